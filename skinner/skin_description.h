#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The compiled skin description: one block of bytes read in place, never
// parsed into objects. Every reference inside it is a byte offset from its
// start; numbers are little-endian, text UTF-16LE and NUL-terminated.
// The engine reads it (skinner::PropertiesImpl), the skin compiler writes it.
// Threads: a description belongs to the user-interface thread.
namespace skinner {

// ---- Layout --------------------------------------------------------------

inline constexpr size_t kSkinHeaderSize = 540;
// The Cyrillic word for skin, as four UTF-16 units.
inline constexpr uint16_t kSkinMagic[4] = {0x0421, 0x043A, 0x0438, 0x043D};

// Positions of the header's fields.
inline constexpr size_t kHeaderVersionAt = 8;
inline constexpr size_t kHeaderFormTreeAt = 72;
inline constexpr size_t kHeaderKindTreeAt = 76;
inline constexpr size_t kHeaderPictureCountAt = 80;
inline constexpr size_t kHeaderFontCountAt = 84;
inline constexpr size_t kHeaderStringPoolAt = 88;
inline constexpr size_t kHeaderNativeSizesAt = 92;
inline constexpr size_t kHeaderDevicesAt = 476;

inline constexpr int kNativeSizeSlots = 32;
inline constexpr size_t kNativeSizeRecordSize = 12;
// Version mark and devices: 32 units, NUL-terminated, zero-filled.
inline constexpr size_t kHeaderStringUnits = 32;

// A node is 15 words; a form node has two more (its control tree and its
// item count) and then two 16-bit offsets (id, kind name) per item.
inline constexpr size_t kNodeWords = 15;
inline constexpr size_t kFormNodeWords = 17;
inline constexpr size_t kNodeLeftWord = 0;
inline constexpr size_t kNodeRightWord = 1;
inline constexpr size_t kNodeNameWord = 2;
inline constexpr size_t kNodeControlsWord = 15;
inline constexpr size_t kNodeItemCountWord = 16;
inline constexpr size_t kItemSize = 4;

// The property tables of a node, in the order of their word pairs (3..14).
enum class Table { kIntegers = 0, kPoints, kStrings, kPictures, kColors, kFonts };
inline constexpr int kTableCount = 6;
// Record sizes by table: IntegerNode, PointNode, StringNode, PictureNode,
// ColorNode, FontNode.
inline constexpr size_t kRecordSize[kTableCount] = {8, 6, 4, 20, 6, 8};
inline constexpr size_t kIntegerNodeSize = 8;
inline constexpr size_t kPointNodeSize = 6;
inline constexpr size_t kColorNodeSize = 6;
inline constexpr size_t kStringNodeSize = 4;
inline constexpr size_t kPictureNodeSize = 20;
inline constexpr size_t kFontNodeSize = 8;
// Positions within the records, behind the 16-bit name at 0.
inline constexpr size_t kIntegerValueAt = 4;   // signed 32
inline constexpr size_t kPointXAt = 2;         // signed 16, then y
inline constexpr size_t kColorBytesAt = 2;     // red, green, blue, alpha
inline constexpr size_t kStringValueAt = 2;    // 16-bit offset
inline constexpr size_t kPicturePointsAt = 2;  // 4 x (unsigned 16 x, y)
inline constexpr size_t kPictureIndexAt = 18;  // one byte into the picture list
inline constexpr size_t kPictureStretchAt = 19;
inline constexpr size_t kFontIndexAt = 4;      // unsigned 32 into the font list
// Record names and string values are 16-bit offsets: they must lie in the
// block's first 64 KiB.
inline constexpr size_t kShortOffsetLimit = 65536;

inline constexpr const wchar_t* kAppVersionMark = L"Quillaphonics_500";
inline constexpr const wchar_t* kTodayVersionMark = L"QuillaphonicsToday_500";
// The shared skin of the settings and stock dialogs: it has no "Main", so
// no skin list offers it and no start takes it as the application skin.
inline constexpr const wchar_t* kSettingsVersionMark = L"QuillaphonicsSettings_500";

// This build is the Pocket PC kind of the program: skins and form variants
// marked for Smartphones only ("S" without "P") are passed over.
inline constexpr bool is_smartphone() { return false; }

// ---- Little-endian access at any alignment -------------------------------

inline uint16_t read_u16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline uint32_t read_u32(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline int32_t read_i32(const uint8_t* p) { return static_cast<int32_t>(read_u32(p)); }
inline int16_t read_i16(const uint8_t* p) { return static_cast<int16_t>(read_u16(p)); }

// ---- The header ----------------------------------------------------------

struct NativeSize {
    int32_t width = 0;
    int32_t height = 0;
};

// The 540 bytes at the start of a description. Construct only over bytes
// that is_well_formed accepted.
class SkinHeaderView {
public:
    explicit SkinHeaderView(const uint8_t* bytes) : p_(bytes) {}

    // At least 540 bytes, the magic, and a version mark and devices string
    // that each end within their 32 units with nothing but NULs behind.
    static bool is_well_formed(const uint8_t* bytes, size_t size);

    std::wstring version() const;
    std::wstring devices() const;
    NativeSize native_size(int slot) const;
    uint32_t form_tree() const { return read_u32(p_ + kHeaderFormTreeAt); }
    uint32_t kind_tree() const { return read_u32(p_ + kHeaderKindTreeAt); }
    uint32_t picture_count() const { return read_u32(p_ + kHeaderPictureCountAt); }
    uint32_t font_count() const { return read_u32(p_ + kHeaderFontCountAt); }
    uint32_t string_pool() const { return read_u32(p_ + kHeaderStringPoolAt); }

private:
    const uint8_t* p_;
};

// An empty devices string fits every device; otherwise it must hold "S" on a
// Smartphone and "P" on a Pocket PC.
bool devices_fit(std::wstring_view devices, bool smartphone);

// The outcome of the compatibility test of a header against a screen size.
struct VersionFit {
    bool ok = false;
    int scale = 1;
    NativeSize native; // the native size that matched; (0,0) if none did
};

// Devices must fit; a non-empty `mark` must equal the version mark; then a
// size of (0,0), a native size times a scale of 1 to 4 equal to the size,
// or a skin without native sizes passes.
VersionFit check_header_version(const SkinHeaderView& header, std::wstring_view mark, int width, int height);

// ---- Text ----------------------------------------------------------------

// Three-way comparison of UTF-16 units: the stored, NUL-terminated name at
// `stored` (which must end within `end`) against `key`, whose characters
// beyond U+FFFF count as their surrogate pairs. A prefix sorts first.
int compare_units(const uint8_t* stored, const uint8_t* end, std::wstring_view key);
// Whether the stored name begins with `prefix`, compared the same way.
bool starts_with_units(const uint8_t* stored, const uint8_t* end, std::wstring_view prefix);
// The stored text widened; surrogate pairs are joined, a lone surrogate
// becomes U+FFFD. Stops at `end` if no NUL comes first.
std::wstring text_from_units(const uint8_t* stored, const uint8_t* end);

// ---- The whole description -----------------------------------------------

// Owns the block and answers from it in place. validate() checks once, at
// load, that every node, table, record and string the trees reach lies in the
// block, so that later lookups can trust their offsets.
class SkinDescription {
public:
    SkinDescription() = default;
    explicit SkinDescription(std::string bytes) : bytes_(std::move(bytes)) {}

    const uint8_t* data() const { return reinterpret_cast<const uint8_t*>(bytes_.data()); }
    size_t size() const { return bytes_.size(); }
    const uint8_t* end() const { return data() + size(); }

    // True when the header is well formed and everything reachable is in
    // place; otherwise `why` (if given) says what is wrong.
    bool validate(std::wstring* why = nullptr) const;
    SkinHeaderView header() const { return SkinHeaderView(data()); }

    // Node fields (the node must have passed validate()).
    uint32_t word(uint32_t node, size_t index) const { return read_u32(data() + node + 4 * index); }
    uint32_t left(uint32_t node) const { return word(node, kNodeLeftWord); }
    uint32_t right(uint32_t node) const { return word(node, kNodeRightWord); }
    uint32_t name(uint32_t node) const { return word(node, kNodeNameWord); }
    std::pair<uint32_t, uint32_t> table(uint32_t node, Table t) const
    {
        size_t w = 3 + 2 * static_cast<size_t>(t);
        return {word(node, w), word(node, w + 1)};
    }
    uint32_t controls(uint32_t form) const { return word(form, kNodeControlsWord); }
    uint32_t item_count(uint32_t form) const { return word(form, kNodeItemCountWord); }
    // The (id, kind name) offsets of item `index` of a form node.
    std::pair<uint32_t, uint32_t> item(uint32_t form, uint32_t index) const;

    // Descends the tree at `root` for `name`; 0 if absent. Each name
    // comparison adds one to *compares.
    uint32_t find_node(uint32_t root, std::wstring_view name, uint32_t* compares = nullptr) const;
    // Binary search of a node's table; the record's offset, 0 if absent.
    uint32_t find_record(uint32_t node, Table t, std::wstring_view key, uint32_t* compares = nullptr) const;

    std::wstring text_at(uint32_t offset) const { return text_from_units(data() + offset, end()); }
    int compare_at(uint32_t offset, std::wstring_view key) const { return compare_units(data() + offset, end(), key); }
    bool starts_with_at(uint32_t offset, std::wstring_view prefix) const
    {
        return starts_with_units(data() + offset, end(), prefix);
    }

    // The string pool: picture names, then font specifications.
    std::vector<std::wstring> pool_strings() const;

    // Every node of the tree at `root`, node before its left subtree before
    // its right subtree. No recursion: a lopsided tree is still a tree.
    std::vector<uint32_t> preorder(uint32_t root) const;
    // The same nodes, in name order.
    std::vector<uint32_t> inorder(uint32_t root) const;

private:
    std::string bytes_;
};

} // namespace skinner
