// PNG pictures through libpng's whole-image interface: every colour type,
// bit depth and interlace comes out as 8-bit blue, green, red, alpha.
#include "skinner/image_loader.h"

#include "os/log.h"

#include <png.h>

#include <cstring>

namespace skinner {

namespace {

constexpr size_t kSignatureSize = 8;
constexpr size_t kIhdrEnd = 8 + 8 + 13; // signature, chunk length and type, IHDR data
// Deflate gains at most about 1032:1; a header that claims more pixel data
// than the file could hold at that rate lies about its size.
constexpr uint64_t kMostDeflateGain = 1032;

uint32_t big_endian_32(const unsigned char* p)
{
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

// Checks the header's claims before libpng allocates anything for them.
bool header_is_plausible(std::string_view bytes, const std::wstring& name)
{
    if (bytes.size() < kIhdrEnd || png_sig_cmp(reinterpret_cast<png_const_bytep>(bytes.data()), 0,
                                               kSignatureSize) != 0)
        return false;
    const auto* ihdr = reinterpret_cast<const unsigned char*>(bytes.data()) + 16;
    const uint32_t width = big_endian_32(ihdr);
    const uint32_t height = big_endian_32(ihdr + 4);
    const unsigned depth = ihdr[8];
    const unsigned colour_type = ihdr[9];
    if (width < 1 || height < 1 || width > uint32_t(kMaxImageSide) || height > uint32_t(kMaxImageSide)) {
        os::log() << "decode_png: " << name << " claims " << width << "x" << height << ", refused\n";
        return false;
    }
    unsigned channels = 1;
    switch (colour_type) {
    case 2: channels = 3; break;
    case 4: channels = 2; break;
    case 6: channels = 4; break;
    default: break;
    }
    const uint64_t row_bytes = 1 + (uint64_t(width) * channels * depth + 7) / 8;
    if (row_bytes * height / kMostDeflateGain > bytes.size()) {
        os::log() << "decode_png: " << name << " claims " << width << "x" << height
                  << " in only " << bytes.size() << " bytes, refused\n";
        return false;
    }
    return true;
}

} // namespace

Surface decode_png(std::string_view bytes, const std::wstring& name)
{
    if (!header_is_plausible(bytes, name))
        return nullptr;
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, bytes.data(), bytes.size())) {
        os::log() << "decode_png: " << name << ": " << image.message << "\n";
        return nullptr;
    }
    image.format = PNG_FORMAT_BGRA;
    // Sixteen-bit samples without gamma information are taken as the eight-bit
    // ones are, not as linear light: they come down to eight bits unchanged.
    image.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
    Surface s = make_surface(int(image.width), int(image.height));
    if (!s) {
        png_image_free(&image);
        return nullptr;
    }
    if (!png_image_finish_read(&image, nullptr, s->pixels, s->pitch, nullptr)) {
        os::log() << "decode_png: " << name << ": " << image.message << "\n";
        return nullptr;
    }
    return s;
}

} // namespace skinner
