// Feeds arbitrary bytes to the skin description reader. A block that passes
// the check at load must answer every question about everything it holds
// without reading outside itself; the rest must simply be refused.
#include "skinner/skin_description.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using skinner::SkinDescription;
using skinner::Table;

// Every record of every table of a node is found again by its own name, as
// long as the table is sorted (an unsorted one may fail, silently).
void ask_node(const SkinDescription& d, uint32_t node)
{
    d.text_at(d.name(node));
    for (int t = 0; t < skinner::kTableCount; ++t) {
        auto [begin, end] = d.table(node, static_cast<Table>(t));
        size_t record = skinner::kRecordSize[t];
        for (uint32_t r = begin; r < end; r += static_cast<uint32_t>(record)) {
            std::wstring key = d.text_at(skinner::read_u16(d.data() + r));
            uint32_t found = d.find_record(node, static_cast<Table>(t), key);
            if (found && (found < begin || found >= end))
                std::abort();
            if (t == static_cast<int>(Table::kStrings))
                d.text_at(skinner::read_u16(d.data() + r + skinner::kStringValueAt));
        }
    }
}

void ask_tree(const SkinDescription& d, uint32_t root, bool forms)
{
    auto pre = d.preorder(root);
    auto in = d.inorder(root);
    if (pre.size() != in.size())
        std::abort();
    for (uint32_t node : pre) {
        ask_node(d, node);
        std::wstring name = d.text_at(d.name(node));
        d.find_node(root, name);
        d.starts_with_at(d.name(node), name.substr(0, name.size() / 2));
        if (!forms)
            continue;
        for (uint32_t i = 0; i < d.item_count(node); ++i) {
            auto [id, kind] = d.item(node, i);
            d.find_node(d.controls(node), d.text_at(id));
            d.text_at(kind);
        }
        ask_tree(d, d.controls(node), false);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    SkinDescription d(std::string(reinterpret_cast<const char*>(data), size));
    std::wstring why;
    if (!d.validate(&why)) {
        if (why.empty())
            std::abort();
        return 0;
    }
    skinner::SkinHeaderView h = d.header();
    h.version();
    for (int w : {0, 240, 320, 480})
        skinner::check_header_version(h, skinner::kAppVersionMark, w, w == 0 ? 0 : 320);
    d.pool_strings();
    ask_tree(d, h.form_tree(), true);
    ask_tree(d, h.kind_tree(), false);
    return 0;
}
