#include "tools/skinc/skin_writer.h"

#include "liba/text.h"
#include "liba/zip_file.h"

#include <algorithm>
#include <map>

namespace skinc {

namespace {

using skinner::Table;

class Writer {
public:
    Writer(const SkinSource& source, std::string& out, std::wstring& error)
        : source_(source), out_(out), error_(error)
    {
    }

    bool run()
    {
        out_.assign(skinner::kSkinHeaderSize, '\0');
        if (!intern_all())
            return false;
        align();
        uint32_t pool = offset();
        for (const std::wstring& s : source_.pictures)
            append_text(s);
        for (const std::wstring& s : source_.fonts)
            append_text(s);
        uint32_t forms = write_tree(source_.forms, true);
        uint32_t kinds = write_tree(source_.kinds, false);
        header(forms, kinds, pool);
        return true;
    }

private:
    uint32_t offset() const { return static_cast<uint32_t>(out_.size()); }
    void align()
    {
        while (out_.size() % 4)
            out_ += '\0';
    }
    void put16(size_t at, uint16_t v)
    {
        out_[at] = static_cast<char>(v);
        out_[at + 1] = static_cast<char>(v >> 8);
    }
    void put32(size_t at, uint32_t v)
    {
        put16(at, static_cast<uint16_t>(v));
        put16(at + 2, static_cast<uint16_t>(v >> 16));
    }
    void append16(uint16_t v) { out_.append({static_cast<char>(v), static_cast<char>(v >> 8)}); }
    uint32_t append_text(const std::wstring& s)
    {
        uint32_t at = offset();
        for (char16_t u : liba::to_utf16(s))
            append16(static_cast<uint16_t>(u));
        append16(0);
        return at;
    }

    // A string reached through a 16-bit offset; each distinct text once.
    bool intern(const std::wstring& s, int line)
    {
        if (short_.count(s))
            return true;
        uint32_t at = append_text(s);
        if (out_.size() > skinner::kShortOffsetLimit) {
            error_ = source_.file + L":" + liba::int_to_text(line) + L": '" + s +
                     L"' ends beyond the first 64 KiB of the description, where names and string values "
                     L"must lie: the skin has too many or too long names and strings";
            return false;
        }
        short_[s] = static_cast<uint16_t>(at);
        return true;
    }

    bool intern_node(const Node& n)
    {
        for (const Property& p : n.properties)
            if (!intern(p.key, p.line) || (p.type == Table::kStrings && !intern(p.text, p.line)))
                return false;
        for (const Node& c : n.controls)
            if (!intern(c.name, c.line) || !intern(c.kind, c.line) || !intern_node(c))
                return false;
        return true;
    }

    bool intern_all()
    {
        for (const auto* list : {&source_.forms, &source_.kinds})
            for (const Node& n : *list)
                if (!intern_node(n))
                    return false;
        return true;
    }

    static bool by_units(const std::u16string& a, const std::u16string& b) { return a < b; }

    // Writes the nodes of one tree, each followed by its tables, and links
    // them as a balanced search tree; returns the root's offset.
    uint32_t write_tree(const std::vector<Node>& nodes, bool forms)
    {
        std::vector<std::pair<std::u16string, const Node*>> sorted;
        for (const Node& n : nodes)
            sorted.emplace_back(liba::to_utf16(n.name), &n);
        std::sort(sorted.begin(), sorted.end(),
                  [](const auto& a, const auto& b) { return by_units(a.first, b.first); });
        std::vector<uint32_t> at;
        for (const auto& [name, node] : sorted)
            at.push_back(write_node(*node, forms));
        return link(at, 0, at.size());
    }

    uint32_t link(const std::vector<uint32_t>& at, size_t lo, size_t hi)
    {
        if (lo >= hi)
            return 0;
        size_t mid = (lo + hi) / 2;
        put32(at[mid] + 4 * skinner::kNodeLeftWord, link(at, lo, mid));
        put32(at[mid] + 4 * skinner::kNodeRightWord, link(at, mid + 1, hi));
        return at[mid];
    }

    uint32_t write_node(const Node& n, bool form)
    {
        align();
        uint32_t node = offset();
        size_t words = form ? skinner::kFormNodeWords : skinner::kNodeWords;
        out_.append(4 * words + (form ? skinner::kItemSize * n.controls.size() : 0), '\0');
        uint32_t name = short_.count(n.name) ? short_[n.name] : append_text(n.name);
        put32(node + 4 * skinner::kNodeNameWord, name);
        for (int t = 0; t < skinner::kTableCount; ++t) {
            auto [begin, end] = write_table(n, static_cast<Table>(t));
            put32(node + 4 * (3 + 2 * t), begin);
            put32(node + 4 * (4 + 2 * t), end);
        }
        if (!form)
            return node;
        put32(node + 4 * skinner::kNodeItemCountWord, static_cast<uint32_t>(n.controls.size()));
        for (size_t i = 0; i < n.controls.size(); ++i) {
            size_t item = node + 4 * skinner::kFormNodeWords + skinner::kItemSize * i;
            put16(item, short_[n.controls[i].name]);
            put16(item + 2, short_[n.controls[i].kind]);
        }
        put32(node + 4 * skinner::kNodeControlsWord, write_tree(n.controls, false));
        return node;
    }

    std::pair<uint32_t, uint32_t> write_table(const Node& n, Table t)
    {
        std::vector<std::pair<std::u16string, const Property*>> sorted;
        for (const Property& p : n.properties)
            if (p.type == t)
                sorted.emplace_back(liba::to_utf16(p.key), &p);
        std::sort(sorted.begin(), sorted.end(),
                  [](const auto& a, const auto& b) { return by_units(a.first, b.first); });
        align();
        uint32_t begin = offset();
        for (const auto& [key, p] : sorted) {
            size_t r = out_.size();
            out_.append(skinner::kRecordSize[static_cast<int>(t)], '\0');
            put16(r, short_[p->key]);
            switch (t) {
            case Table::kIntegers: put32(r + skinner::kIntegerValueAt, static_cast<uint32_t>(p->integer)); break;
            case Table::kPoints:
                put16(r + skinner::kPointXAt, static_cast<uint16_t>(p->x));
                put16(r + skinner::kPointXAt + 2, static_cast<uint16_t>(p->y));
                break;
            case Table::kStrings: put16(r + skinner::kStringValueAt, short_[p->text]); break;
            case Table::kPictures:
                for (size_t i = 0; i < p->points.size(); ++i)
                    put16(r + skinner::kPicturePointsAt + 2 * i, p->points[i]);
                out_[r + skinner::kPictureIndexAt] = static_cast<char>(p->picture);
                out_[r + skinner::kPictureStretchAt] = static_cast<char>(p->stretch);
                break;
            case Table::kColors:
                for (size_t i = 0; i < 4; ++i)
                    out_[r + skinner::kColorBytesAt + i] = static_cast<char>(p->color[i]);
                break;
            case Table::kFonts: put32(r + skinner::kFontIndexAt, p->font); break;
            }
        }
        return {begin, offset()};
    }

    void header_text(size_t at, const std::wstring& s)
    {
        std::u16string units = liba::to_utf16(s);
        for (size_t i = 0; i < units.size() && i + 1 < skinner::kHeaderStringUnits; ++i)
            put16(at + 2 * i, static_cast<uint16_t>(units[i]));
    }

    void header(uint32_t forms, uint32_t kinds, uint32_t pool)
    {
        for (size_t i = 0; i < 4; ++i)
            put16(2 * i, skinner::kSkinMagic[i]);
        header_text(skinner::kHeaderVersionAt, source_.version);
        put32(skinner::kHeaderFormTreeAt, forms);
        put32(skinner::kHeaderKindTreeAt, kinds);
        put32(skinner::kHeaderPictureCountAt, static_cast<uint32_t>(source_.pictures.size()));
        put32(skinner::kHeaderFontCountAt, static_cast<uint32_t>(source_.fonts.size()));
        put32(skinner::kHeaderStringPoolAt, pool);
        for (size_t i = 0; i < source_.sizes.size(); ++i) {
            size_t r = skinner::kHeaderNativeSizesAt + skinner::kNativeSizeRecordSize * i;
            put32(r, static_cast<uint32_t>(source_.sizes[i].width));
            put32(r + 4, static_cast<uint32_t>(source_.sizes[i].height));
        }
        header_text(skinner::kHeaderDevicesAt, source_.devices);
    }

    const SkinSource& source_;
    std::string& out_;
    std::wstring& error_;
    std::map<std::wstring, uint16_t> short_;
};

uint32_t crc32_of(const std::string& bytes)
{
    static uint32_t table[256];
    static bool made = false;
    if (!made) {
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            table[i] = c;
        }
        made = true;
    }
    uint32_t crc = 0xFFFFFFFFu;
    for (unsigned char b : bytes)
        crc = table[(crc ^ b) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}

void le(std::string& out, uint32_t v, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out += static_cast<char>(v >> (8 * i));
}

} // namespace

bool write_description(const SkinSource& source, std::string& out, std::wstring& error)
{
    return Writer(source, out, error).run();
}

std::string make_stored_zip(const std::vector<std::pair<std::string, std::string>>& entries)
{
    // 1980-01-01 00:00, so that the same sources give the same archive.
    constexpr uint32_t kDosDate = (0 << 9) | (1 << 5) | 1;
    std::string zip, directory;
    for (const auto& entry : entries) {
        const std::string& name = entry.first;
        const std::string& data = entry.second;
        uint32_t local = static_cast<uint32_t>(zip.size());
        uint32_t crc = crc32_of(data);
        auto common = [&](std::string& out) {
            le(out, 10, 2); // version needed: stored entries
            le(out, 0, 2);  // flags
            le(out, 0, 2);  // method: stored
            le(out, 0, 2);  // time
            le(out, kDosDate, 2);
            le(out, crc, 4);
            le(out, static_cast<uint32_t>(data.size()), 4);
            le(out, static_cast<uint32_t>(data.size()), 4);
            le(out, static_cast<uint32_t>(name.size()), 2);
            le(out, 0, 2); // extra length
        };
        le(zip, liba::kZipLocalSignature, 4);
        common(zip);
        zip += name;
        zip += data;

        le(directory, 0x02014B50, 4);
        le(directory, 10, 2); // made by
        common(directory);
        le(directory, 0, 2); // comment length
        le(directory, 0, 2); // disk
        le(directory, 0, 2); // internal attributes
        le(directory, 0, 4); // external attributes
        le(directory, local, 4);
        directory += name;
    }
    uint32_t directory_at = static_cast<uint32_t>(zip.size());
    zip += directory;
    le(zip, 0x06054B50, 4);
    le(zip, 0, 2);
    le(zip, 0, 2);
    le(zip, static_cast<uint32_t>(entries.size()), 2);
    le(zip, static_cast<uint32_t>(entries.size()), 2);
    le(zip, static_cast<uint32_t>(directory.size()), 4);
    le(zip, directory_at, 4);
    le(zip, 0, 2);
    return zip;
}

} // namespace skinc
