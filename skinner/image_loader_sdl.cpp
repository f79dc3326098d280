// BMP and JPEG through SDL2_image, GIF by our own decoder. SDL2_image
// allocates what a header claims before it reads the pixels, so each
// header's size is read here first and held to kMaxImageSide.
#include "skinner/image_loader.h"

#include "skinner/gif_decoder.h"

#include "os/log.h"

#include <SDL_image.h>

#include <cstdint>
#include <cstdlib>

namespace skinner {

namespace {

uint32_t le16(const unsigned char* p) { return uint32_t(p[0]) | (uint32_t(p[1]) << 8); }
uint32_t le32(const unsigned char* p) { return le16(p) | (le16(p + 2) << 16); }
uint32_t be16(const unsigned char* p) { return (uint32_t(p[0]) << 8) | p[1]; }

struct Size {
    int64_t width = -1;
    int64_t height = -1;
};

Size bmp_size(std::string_view bytes)
{
    constexpr size_t kInfoStart = 14;
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    if (bytes.size() < kInfoStart + 12)
        return {};
    const uint32_t info_size = le32(p + kInfoStart);
    if (info_size == 12) // the old core header: 16-bit sizes
        return {le16(p + 18), le16(p + 20)};
    if (bytes.size() < kInfoStart + 16)
        return {};
    const int32_t w = int32_t(le32(p + 18));
    const int32_t h = int32_t(le32(p + 22));
    return {std::llabs(w), std::llabs(h)};
}

// The first start-of-frame marker holds the size.
Size jpeg_size(std::string_view bytes)
{
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const size_t n = bytes.size();
    if (n < 4 || p[0] != 0xFF || p[1] != 0xD8)
        return {};
    size_t at = 2;
    while (at + 4 <= n) {
        if (p[at] != 0xFF)
            return {};
        const unsigned marker = p[at + 1];
        if (marker == 0xFF) { // fill byte
            ++at;
            continue;
        }
        if (marker == 0xD8 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {
            at += 2;
            continue;
        }
        const size_t length = be16(p + at + 2);
        const bool sof = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 &&
                         marker != 0xCC;
        if (sof) {
            if (at + 9 > n)
                return {};
            return {be16(p + at + 7), be16(p + at + 5)};
        }
        if (length < 2)
            return {};
        at += 2 + length;
    }
    return {};
}

} // namespace

Surface decode_platform_image(std::string_view bytes, ImageKind kind, const std::wstring& name)
{
    if (kind == ImageKind::gif)
        return decode_gif(bytes, name);
    const Size size = kind == ImageKind::bmp ? bmp_size(bytes) : jpeg_size(bytes);
    if (size.width < 1 || size.height < 1 || size.width > kMaxImageSide || size.height > kMaxImageSide) {
        os::log() << "decode_platform_image: " << name << " has no size or one beyond "
                  << kMaxImageSide << ", refused\n";
        return nullptr;
    }
    if (bytes.size() > size_t(INT32_MAX))
        return nullptr;
    SDL_RWops* rw = SDL_RWFromConstMem(bytes.data(), int(bytes.size()));
    if (!rw)
        return nullptr;
    // The loader of the one format: SDL2_image's own sniffing would hand
    // data that looks like something else (SVG, TGA, ...) to other loaders.
    Surface loaded;
    switch (kind) {
    case ImageKind::gif: break; // decoded above
    case ImageKind::bmp: loaded.reset(IMG_isBMP(rw) ? IMG_LoadBMP_RW(rw) : nullptr); break;
    case ImageKind::jpeg: loaded.reset(IMG_isJPG(rw) ? IMG_LoadJPG_RW(rw) : nullptr); break;
    }
    SDL_RWclose(rw);
    if (!loaded) {
        os::log() << "decode_platform_image: " << name << ": " << IMG_GetError() << "\n";
        return nullptr;
    }
    if (loaded->w > kMaxImageSide || loaded->h > kMaxImageSide)
        return nullptr;
    Surface converted(SDL_ConvertSurfaceFormat(loaded.get(), SDL_PIXELFORMAT_ARGB8888, 0));
    if (!converted)
        os::log() << "decode_platform_image: " << name << ": " << SDL_GetError() << "\n";
    return converted;
}

} // namespace skinner
