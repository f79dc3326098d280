// skinart: readies pictures drawn with transparency for the skin engine,
// which draws from colour and grey maps and never reads a PNG's alpha.
// For each PNG named on the command line: when any pixel is not fully
// opaque, its alpha becomes the grey map NAME_8.png beside it; the picture
// itself is rewritten as plain RGB either way, so that loading decodes
// three bytes a pixel. Colours stay unpremultiplied: the engine blends
// dst + (src - dst) * alpha.
// Exit status: 0 done, 1 a file that can't be read or written (one line on
// standard error naming it), 2 wrong command line.

#include <png.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

bool read_rgba(const std::string& path, png_image& image, std::vector<unsigned char>& pixels)
{
    image = png_image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str()))
        return false;
    image.format = PNG_FORMAT_RGBA;
    pixels.resize(PNG_IMAGE_SIZE(image));
    return png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) != 0;
}

bool write(const std::string& path, png_uint_32 width, png_uint_32 height, png_uint_32 format,
           const std::vector<unsigned char>& pixels)
{
    png_image out{};
    out.version = PNG_IMAGE_VERSION;
    out.width = width;
    out.height = height;
    out.format = format;
    return png_image_write_to_file(&out, path.c_str(), 0, pixels.data(), 0, nullptr) != 0;
}

// "dir/name.png" to "dir/name_8.png".
std::string map_name(const std::string& path)
{
    return path.substr(0, path.size() - 4) + "_8.png";
}

bool split(const std::string& path)
{
    png_image image;
    std::vector<unsigned char> rgba;
    if (!read_rgba(path, image, rgba))
        return false;
    const size_t count = size_t(image.width) * image.height;
    std::vector<unsigned char> rgb(count * 3), grey(count);
    bool transparent = false;
    for (size_t i = 0; i < count; ++i) {
        for (int c = 0; c < 3; ++c)
            rgb[i * 3 + c] = rgba[i * 4 + c];
        grey[i] = rgba[i * 4 + 3];
        transparent = transparent || grey[i] != 255;
    }
    if (transparent && !write(map_name(path), image.width, image.height, PNG_FORMAT_GRAY, grey))
        return false;
    return write(path, image.width, image.height, PNG_FORMAT_RGB, rgb);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: skinart PICTURE.png...\n");
        return 2;
    }
    for (int i = 1; i < argc; ++i) {
        std::string path = argv[i];
        if (path.size() < 5 || path.compare(path.size() - 4, 4, ".png") != 0 || !split(path)) {
            std::fprintf(stderr, "skinart: %s: can't split into colour and grey map\n", path.c_str());
            return 1;
        }
    }
    return 0;
}
