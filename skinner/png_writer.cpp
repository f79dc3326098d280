#include "skinner/png_writer.h"

#include <png.h>

#include <cstdio>
#include <vector>

namespace skinner {

namespace {

bool write_rows(FILE* file, SDL_Surface* s)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (!png)
        return false;
    png_infop info = png_create_info_struct(png);
    std::vector<png_byte> row(size_t(s->w) * 3);
    // libpng reports its failures by longjmp; nothing here needs unwinding.
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, info ? &info : nullptr);
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, png_uint_32(s->w), png_uint_32(s->h), 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    SDL_LockSurface(s);
    for (int y = 0; y < s->h; ++y) {
        const uint32_t* src = reinterpret_cast<const uint32_t*>(static_cast<const uint8_t*>(s->pixels) + y * s->pitch);
        for (int x = 0; x < s->w; ++x) {
            row[size_t(x) * 3] = png_byte(src[x] >> 16);
            row[size_t(x) * 3 + 1] = png_byte(src[x] >> 8);
            row[size_t(x) * 3 + 2] = png_byte(src[x]);
        }
        png_write_row(png, row.data());
    }
    SDL_UnlockSurface(s);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

} // namespace

bool write_png(const std::string& path, SDL_Surface* surface)
{
    if (!surface || surface->format->BytesPerPixel != 4)
        return false;
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return false;
    bool ok = write_rows(file, surface);
    ok = std::fclose(file) == 0 && ok;
    if (!ok)
        std::remove(path.c_str());
    return ok;
}

} // namespace skinner
