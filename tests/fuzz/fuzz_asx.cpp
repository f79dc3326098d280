// Feeds arbitrary bytes, as XML, to the ASX reader. A list that reads must
// write a document that reads back with the same paths and titles.
#include "os/xml_document.h"
#include "playlist/list_asx.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    os::XmlDocument document;
    if (!document.load_bytes(std::string_view(reinterpret_cast<const char*>(data), size)))
        return 0;
    playlist::ListASX list;
    if (!list.read(document)) {
        if (list.is_valid() || !list.entries.empty())
            std::abort();
        return 0;
    }
    os::XmlDocument written;
    list.write(written);
    std::string bytes = written.save_bytes();
    os::XmlDocument reread;
    playlist::ListASX again;
    if (!reread.load_bytes(bytes) || !again.read(reread) || again.entries.size() != list.entries.size())
        std::abort();
    for (size_t i = 0; i < list.entries.size(); ++i) {
        const auto& a = list.entries[i];
        const auto& b = again.entries[i];
        if (a.path.empty() || a.path != b.path || a.attributes.count(L"title") != b.attributes.count(L"title") ||
            a.attribute(L"title") != b.attribute(L"title"))
            std::abort();
    }
    return 0;
}
