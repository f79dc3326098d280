#include "skinner/skin_description.h"

#include "liba/text.h"

#include <unordered_set>

namespace skinner {

namespace {

// Yields the UTF-16 units of wide text one at a time.
class UnitCursor {
public:
    explicit UnitCursor(std::wstring_view text) : text_(text) {}
    bool done() const { return pos_ >= text_.size() && !pending_; }
    uint16_t next()
    {
        if (pending_) {
            uint16_t u = pending_;
            pending_ = 0;
            return u;
        }
        uint32_t c = static_cast<uint32_t>(text_[pos_++]);
        if (c > 0xFFFF && c <= 0x10FFFF) {
            c -= 0x10000;
            pending_ = static_cast<uint16_t>(0xDC00 | (c & 0x3FF));
            return static_cast<uint16_t>(0xD800 | (c >> 10));
        }
        return c > 0x10FFFF ? 0xFFFD : static_cast<uint16_t>(c);
    }

private:
    std::wstring_view text_;
    size_t pos_ = 0;
    uint16_t pending_ = 0;
};

bool header_string_ok(const uint8_t* p)
{
    bool ended = false;
    for (size_t i = 0; i < kHeaderStringUnits; ++i) {
        uint16_t u = read_u16(p + 2 * i);
        if (ended && u != 0)
            return false;
        ended = ended || u == 0;
    }
    return ended;
}

} // namespace

bool SkinHeaderView::is_well_formed(const uint8_t* bytes, size_t size)
{
    if (!bytes || size < kSkinHeaderSize)
        return false;
    for (size_t i = 0; i < 4; ++i)
        if (read_u16(bytes + 2 * i) != kSkinMagic[i])
            return false;
    return header_string_ok(bytes + kHeaderVersionAt) && header_string_ok(bytes + kHeaderDevicesAt);
}

std::wstring SkinHeaderView::version() const
{
    return text_from_units(p_ + kHeaderVersionAt, p_ + kHeaderVersionAt + 2 * kHeaderStringUnits);
}

std::wstring SkinHeaderView::devices() const
{
    return text_from_units(p_ + kHeaderDevicesAt, p_ + kHeaderDevicesAt + 2 * kHeaderStringUnits);
}

NativeSize SkinHeaderView::native_size(int slot) const
{
    if (slot < 0 || slot >= kNativeSizeSlots)
        return {};
    const uint8_t* r = p_ + kHeaderNativeSizesAt + kNativeSizeRecordSize * static_cast<size_t>(slot);
    return {read_i32(r), read_i32(r + 4)};
}

bool devices_fit(std::wstring_view devices, bool smartphone)
{
    if (devices.empty())
        return true;
    return devices.find(smartphone ? L'S' : L'P') != std::wstring_view::npos;
}

VersionFit check_header_version(const SkinHeaderView& header, std::wstring_view mark, int width, int height)
{
    VersionFit fit;
    if (!devices_fit(header.devices(), is_smartphone()))
        return fit;
    if (!mark.empty() && header.version() != mark)
        return fit;
    if (width == 0 && height == 0) {
        fit.ok = true;
        return fit;
    }
    for (int s = 1; s <= 4; ++s)
        for (int i = 0; i < kNativeSizeSlots; ++i) {
            NativeSize n = header.native_size(i);
            // 64-bit products: a skin may hold any 32-bit number here.
            if (int64_t(n.width) * s == width && int64_t(n.height) * s == height) {
                fit.ok = true;
                fit.scale = s;
                fit.native = n;
                return fit;
            }
        }
    NativeSize first = header.native_size(0);
    fit.ok = first.width == 0 && first.height == 0;
    return fit;
}

int compare_units(const uint8_t* stored, const uint8_t* end, std::wstring_view key)
{
    UnitCursor k(key);
    for (const uint8_t* p = stored; p + 1 < end; p += 2) {
        uint16_t u = read_u16(p);
        if (u == 0)
            return k.done() ? 0 : -1;
        if (k.done())
            return 1;
        uint16_t v = k.next();
        if (u != v)
            return u < v ? -1 : 1;
    }
    // Unterminated: the stored text ends at the block's end.
    return k.done() ? 0 : -1;
}

bool starts_with_units(const uint8_t* stored, const uint8_t* end, std::wstring_view prefix)
{
    UnitCursor k(prefix);
    for (const uint8_t* p = stored; !k.done(); p += 2) {
        if (p + 1 >= end)
            return false;
        uint16_t u = read_u16(p);
        if (u == 0 || u != k.next())
            return false;
    }
    return true;
}

std::wstring text_from_units(const uint8_t* stored, const uint8_t* end)
{
    std::wstring out;
    for (const uint8_t* p = stored; p + 1 < end; p += 2) {
        uint16_t u = read_u16(p);
        if (u == 0)
            break;
        if (u >= 0xD800 && u < 0xDC00 && p + 3 < end) {
            uint16_t low = read_u16(p + 2);
            if (low >= 0xDC00 && low < 0xE000) {
                out += static_cast<wchar_t>(0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
                p += 2;
                continue;
            }
        }
        out += (u >= 0xD800 && u < 0xE000) ? L'\xFFFD' : static_cast<wchar_t>(u);
    }
    return out;
}

std::pair<uint32_t, uint32_t> SkinDescription::item(uint32_t form, uint32_t index) const
{
    const uint8_t* p = data() + form + 4 * kFormNodeWords + kItemSize * index;
    return {read_u16(p), read_u16(p + 2)};
}

uint32_t SkinDescription::find_node(uint32_t root, std::wstring_view name, uint32_t* compares) const
{
    // validate() has ruled out cycles, so the descent ends.
    uint32_t node = root;
    while (node != 0) {
        if (compares)
            ++*compares;
        int c = compare_at(this->name(node), name);
        if (c == 0)
            return node;
        // The stored name is greater than the one sought: the sought one is
        // to the left.
        node = c > 0 ? left(node) : right(node);
    }
    return 0;
}

uint32_t SkinDescription::find_record(uint32_t node, Table t, std::wstring_view key, uint32_t* compares) const
{
    auto [begin, end_offset] = table(node, t);
    size_t record = kRecordSize[static_cast<int>(t)];
    size_t lo = 0, hi = (end_offset - begin) / record;
    while (lo < hi) {
        size_t mid = (lo + hi) / 2;
        uint32_t at = begin + static_cast<uint32_t>(mid * record);
        if (compares)
            ++*compares;
        int c = compare_at(read_u16(data() + at), key);
        if (c == 0)
            return at;
        if (c < 0)
            lo = mid + 1;
        else
            hi = mid;
    }
    return 0;
}

std::vector<std::wstring> SkinDescription::pool_strings() const
{
    std::vector<std::wstring> out;
    SkinHeaderView h = header();
    uint64_t count = uint64_t(h.picture_count()) + h.font_count();
    size_t at = h.string_pool();
    for (uint64_t i = 0; i < count && at < size(); ++i) {
        std::wstring s = text_at(static_cast<uint32_t>(at));
        out.push_back(s);
        // Step over the units of this string and its NUL.
        while (at + 1 < size() && read_u16(data() + at) != 0)
            at += 2;
        at += 2;
    }
    return out;
}

std::vector<uint32_t> SkinDescription::preorder(uint32_t root) const
{
    std::vector<uint32_t> out, stack;
    if (root)
        stack.push_back(root);
    while (!stack.empty()) {
        uint32_t n = stack.back();
        stack.pop_back();
        out.push_back(n);
        if (right(n))
            stack.push_back(right(n));
        if (left(n))
            stack.push_back(left(n));
    }
    return out;
}

std::vector<uint32_t> SkinDescription::inorder(uint32_t root) const
{
    std::vector<uint32_t> out, stack;
    uint32_t n = root;
    while (n || !stack.empty()) {
        while (n) {
            stack.push_back(n);
            n = left(n);
        }
        n = stack.back();
        stack.pop_back();
        out.push_back(n);
        n = right(n);
    }
    return out;
}

// ---- Validation ----------------------------------------------------------

namespace {

class Validator {
public:
    Validator(const SkinDescription& d, std::wstring* why) : d_(d), why_(why) {}

    bool run()
    {
        if (!SkinHeaderView::is_well_formed(d_.data(), d_.size()))
            return fail(d_.size() < kSkinHeaderSize ? L"shorter than its header" : L"bad header");
        SkinHeaderView h = d_.header();
        pictures_ = h.picture_count();
        fonts_ = h.font_count();
        return pool(h) && tree(h.form_tree(), true, L"form") && tree(h.kind_tree(), false, L"kind");
    }

private:
    bool fail(const std::wstring& text)
    {
        if (why_)
            *why_ = text;
        return false;
    }
    bool fail_at(const std::wstring& what, uint64_t offset)
    {
        return fail(what + L" at offset " + liba::int_to_text(static_cast<long long>(offset)) +
                    L" lies outside the description");
    }

    bool inside(uint64_t offset, uint64_t bytes) const { return offset <= d_.size() && bytes <= d_.size() - offset; }

    // A NUL-terminated UTF-16 string wholly in the block. Each offset is
    // scanned once however many records share it.
    bool string_at(uint64_t offset)
    {
        if (checked_strings_.count(offset))
            return true;
        for (uint64_t p = offset;; p += 2) {
            if (!inside(p, 2))
                return false;
            if (read_u16(d_.data() + p) == 0)
                break;
        }
        checked_strings_.insert(offset);
        return true;
    }

    bool pool(const SkinHeaderView& h)
    {
        uint64_t at = h.string_pool();
        uint64_t count = uint64_t(pictures_) + fonts_;
        for (uint64_t i = 0; i < count; ++i) {
            if (!inside(at, 2))
                return fail_at(L"string pool entry", at);
            while (inside(at, 2) && read_u16(d_.data() + at) != 0)
                at += 2;
            if (!inside(at, 2))
                return fail_at(L"string pool entry", at);
            at += 2;
        }
        return true;
    }

    // A tree may share nothing within itself (a node met twice is a cycle or
    // a shared subtree), while two trees may share nodes: form variants may
    // point at one control tree.
    bool tree(uint32_t root, bool forms, const wchar_t* what)
    {
        if (!root || !checked_trees_.insert(root).second)
            return true;
        std::unordered_set<uint32_t> visited;
        std::vector<uint32_t> stack{root};
        while (!stack.empty()) {
            uint32_t n = stack.back();
            stack.pop_back();
            if (!visited.insert(n).second)
                return fail(std::wstring(what) + L" node at offset " + liba::int_to_text(n) + L" is reached twice");
            if (!node(n, forms, what))
                return false;
            if (forms && !tree(d_.controls(n), false, L"control"))
                return false;
            for (uint32_t child : {d_.right(n), d_.left(n)})
                if (child)
                    stack.push_back(child);
        }
        return true;
    }

    bool node(uint32_t n, bool form, const wchar_t* what)
    {
        std::wstring label = std::wstring(what) + L" node";
        if (!inside(n, 4 * (form ? kFormNodeWords : kNodeWords)))
            return fail_at(label, n);
        if (!string_at(d_.name(n)))
            return fail_at(label + L" name", d_.name(n));
        for (int t = 0; t < kTableCount; ++t)
            if (!table(n, static_cast<Table>(t)))
                return false;
        if (!form)
            return true;
        uint64_t items = d_.item_count(n);
        if (!inside(uint64_t(n) + 4 * kFormNodeWords, items * kItemSize))
            return fail_at(L"item list", n);
        for (uint32_t i = 0; i < items; ++i) {
            auto [id, kind] = d_.item(n, i);
            if (!string_at(id) || !string_at(kind))
                return fail_at(L"item name", id);
        }
        return true;
    }

    bool table(uint32_t n, Table t)
    {
        auto [begin, end] = d_.table(n, t);
        size_t size = kRecordSize[static_cast<int>(t)];
        if (begin > end || !inside(begin, end - begin) || (end - begin) % size != 0)
            return fail_at(L"property table", begin);
        for (uint64_t r = begin; r < end; r += size) {
            const uint8_t* p = d_.data() + r;
            if (!string_at(read_u16(p)))
                return fail_at(L"property name", read_u16(p));
            if (t == Table::kStrings && !string_at(read_u16(p + 2)))
                return fail_at(L"string value", read_u16(p + 2));
            if (t == Table::kPictures && p[kPictureIndexAt] >= pictures_)
                return fail(L"picture index " + liba::int_to_text(p[kPictureIndexAt]) + L" lies outside the picture list");
            if (t == Table::kFonts && read_u32(p + kFontIndexAt) >= fonts_)
                return fail(L"font index " + liba::int_to_text(read_u32(p + kFontIndexAt)) + L" lies outside the font list");
        }
        return true;
    }

    const SkinDescription& d_;
    std::wstring* why_;
    uint32_t pictures_ = 0;
    uint32_t fonts_ = 0;
    std::unordered_set<uint64_t> checked_strings_;
    std::unordered_set<uint32_t> checked_trees_;
};

} // namespace

bool SkinDescription::validate(std::wstring* why) const { return Validator(*this, why).run(); }

} // namespace skinner
