// Arbitrary bytes as a skin's picture file, through the decoders (PNG by
// libpng, GIF by our own, BMP and JPEG by SDL2_image, the raw bitmap reader) and then,
// when a bitmap comes out, drawn and hit-tested with nine-slice points taken
// from the input too, as a skin's picture records could hold any points.
// Layout: byte 0 picks the file, bytes 1..18 the points, scale and stretch,
// the rest is the file.
#include "skinner/image_loader.h"
#include "skinner/picture.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

using namespace skinner;

namespace {

constexpr size_t kHeader = 19;

void check(bool ok)
{
    if (!ok)
        std::abort();
}

// Serves the fuzzed bytes as one file of the search.
struct OneFile : ImageStore {
    static inline std::wstring name;
    static inline bool in_archive = false;
    static inline std::string bytes;
    bool read_entry(const std::wstring& n, std::string& out) override
    {
        if (!in_archive || n != name)
            return false;
        out = bytes;
        return true;
    }
    bool read_loose(const std::wstring& n, std::string& out) override
    {
        if (in_archive || n != name)
            return false;
        out = bytes;
        return true;
    }
};

std::unique_ptr<ImageStore> open_one(const std::wstring&) { return std::make_unique<OneFile>(); }

int16_t point_value(const uint8_t* p) { return int16_t(p[0] | (p[1] << 8)) % 96; }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < kHeader)
        return 0;
    const std::string_view file(reinterpret_cast<const char*>(data) + kHeader, size - kHeader);

    // Each decoder on its own: a bitmap that comes out is within the limits.
    static const ImageKind kinds[] = {ImageKind::gif, ImageKind::bmp, ImageKind::jpeg};
    Surface direct;
    switch (data[0] % 5) {
    case 0: direct = decode_png(file, L"fuzz.png"); break;
    case 1: direct = decode_raw_bitmap(file, L"fuzz.bmp"); break;
    default: direct = decode_platform_image(file, kinds[data[0] % 5 - 2], L"fuzz"); break;
    }
    if (direct)
        check(direct->w >= 1 && direct->h >= 1 && direct->w <= kMaxImageSide && direct->h <= kMaxImageSide &&
              direct->format->format == SDL_PIXELFORMAT_ARGB8888);

    // The whole road of a skin's picture: search, scale, draw, hit test.
    static const wchar_t* const kFiles[] = {L"p.gif", L"p.bmp", L"p.png", L"p.bmp", L"p.gif", L"p.jpg"};
    OneFile::name = kFiles[data[0] % 6];
    OneFile::in_archive = data[0] % 6 < 2;
    OneFile::bytes.assign(file);
    set_image_store_factory(open_one);
    const int scale = 1 + data[17] % 4;
    Picture picture(L"fuzz.skin", L"p", data[18] & 1, scale);
    if (picture.is_valid() && picture.bitmap_size().x * picture.bitmap_size().y <= 512 * 512) {
        picture.set_first_corner({point_value(data + 1), point_value(data + 3)});
        picture.set_band_start({point_value(data + 5), point_value(data + 7)});
        picture.set_band_end({point_value(data + 9), point_value(data + 11)});
        picture.set_last_corner({point_value(data + 13), point_value(data + 15)});
        Surface target = make_surface(80, 60);
        Canvas canvas(target.get(), {0, 0}, {80, 60});
        const Point position{int(data[1] % 20) - 10, int(data[2] % 20) - 10};
        const Point extent{int(data[3] % 100), int(data[4] % 80)};
        picture.draw(canvas, position, extent);
        for (int y = -2; y < 62; y += 3)
            for (int x = -2; x < 82; x += 3)
                picture.is_transparent_at({x, y}, position, extent);
    }
    set_image_store_factory(nullptr);
    return 0;
}
