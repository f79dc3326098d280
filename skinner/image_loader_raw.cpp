// The engine's own reader of device-independent bitmaps, for archive
// entries that SDL2_image refuses: the headers are taken at their word, as
// the bitmap would be created from them, with no check of the file type.
#include "skinner/image_loader.h"

#include "os/log.h"

#include <cstdlib>
#include <cstring>

namespace skinner {

namespace {

constexpr size_t kFileHeaderSize = 14;
constexpr size_t kInfoHeaderSize = 40;
constexpr size_t kPaletteEntrySize = 4;
constexpr uint32_t kUncompressed = 0;

uint32_t le16(const unsigned char* p) { return uint32_t(p[0]) | (uint32_t(p[1]) << 8); }
uint32_t le32(const unsigned char* p) { return le16(p) | (le16(p + 2) << 16); }

// A 5-bit channel spread over 8 bits, the top bits repeated below.
uint32_t expand5(uint32_t v) { return (v << 3) | (v >> 2); }

} // namespace

Surface decode_raw_bitmap(std::string_view bytes, const std::wstring& name)
{
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    if (bytes.size() < kFileHeaderSize + kInfoHeaderSize)
        return nullptr;
    const uint32_t offset = le32(p + 10);
    const unsigned char* info = p + kFileHeaderSize;
    const int64_t width = int32_t(le32(info + 4));
    const int64_t signed_height = int32_t(le32(info + 8));
    const unsigned bits = le16(info + 14);
    const uint32_t compression = le32(info + 16);
    const int64_t height = std::llabs(signed_height);
    const bool bottom_up = signed_height > 0;
    if (width < 1 || height < 1 || width > kMaxImageSide || height > kMaxImageSide)
        return nullptr;
    if (compression != kUncompressed ||
        (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32))
        return nullptr;

    uint32_t palette[256] = {};
    if (bits < 9) {
        const size_t entries = size_t(1) << bits;
        const size_t start = kFileHeaderSize + kInfoHeaderSize;
        for (size_t i = 0; i < entries && start + (i + 1) * kPaletteEntrySize <= bytes.size(); ++i) {
            const unsigned char* e = p + start + i * kPaletteEntrySize;
            palette[i] = 0xFF000000u | (uint32_t(e[2]) << 16) | (uint32_t(e[1]) << 8) | e[0];
        }
    }

    const uint64_t row_bytes = ((uint64_t(bits) * uint64_t(width) + 31) / 32) * 4;
    const uint64_t size = uint64_t(height) * row_bytes;
    os::log() << "load_zipped_image: " << name << " - " << size << "\n";
    if (offset > bytes.size() || bytes.size() - offset < size) {
        os::log() << "load_zipped_image: " << name << " is cut short\n";
        return nullptr;
    }
    Surface s = make_surface(int(width), int(height));
    if (!s)
        return nullptr;
    for (int64_t y = 0; y < height; ++y) {
        const unsigned char* row = p + offset + uint64_t(bottom_up ? height - 1 - y : y) * row_bytes;
        auto* out = static_cast<uint32_t*>(s->pixels) + y * (s->pitch / 4);
        for (int64_t x = 0; x < width; ++x) {
            uint32_t pixel = 0;
            switch (bits) {
            case 1: pixel = palette[(row[x / 8] >> (7 - x % 8)) & 1]; break;
            case 4: pixel = palette[(row[x / 2] >> (x % 2 ? 0 : 4)) & 0x0F]; break;
            case 8: pixel = palette[row[x]]; break;
            case 16: {
                const uint32_t v = le16(row + 2 * x);
                pixel = 0xFF000000u | (expand5((v >> 10) & 31) << 16) | (expand5((v >> 5) & 31) << 8) |
                        expand5(v & 31);
                break;
            }
            case 24: {
                const unsigned char* c = row + 3 * x;
                pixel = 0xFF000000u | (uint32_t(c[2]) << 16) | (uint32_t(c[1]) << 8) | c[0];
                break;
            }
            default: pixel = 0xFF000000u | (le32(row + 4 * x) & 0x00FFFFFFu); break;
            }
            out[x] = pixel;
        }
    }
    return s;
}

} // namespace skinner
