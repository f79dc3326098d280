#include "tests/skinner/drawing_test_support.h"

#include "tests/support/test_support.h"

#include <png.h>

#include <cstring>
#include <sstream>

namespace drawing_test {

namespace fs = std::filesystem;

Surface new_surface(int width, int height, uint32_t fill)
{
    Surface s(SDL_CreateRGBSurfaceWithFormat(0, width, height, 32, SDL_PIXELFORMAT_ARGB8888));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            set_pixel(s.get(), x, y, fill);
    return s;
}

uint32_t pixel_at(const SDL_Surface* s, int x, int y)
{
    return static_cast<const uint32_t*>(s->pixels)[y * (s->pitch / 4) + x];
}

void set_pixel(SDL_Surface* s, int x, int y, uint32_t p)
{
    static_cast<uint32_t*>(s->pixels)[y * (s->pitch / 4) + x] = p;
}

namespace {

void write_to_string(png_structp png, png_bytep data, png_size_t length)
{
    static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(data), length);
}

void flush_nothing(png_structp) {}

} // namespace

std::string png_bytes(const SDL_Surface* s, bool interlaced)
{
    std::string out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return {};
    }
    png_set_write_fn(png, &out, write_to_string, flush_nothing);
    png_set_IHDR(png, info, s->w, s->h, 8, PNG_COLOR_TYPE_RGB_ALPHA,
                 interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_bgr(png); // our words are blue, green, red, alpha in memory
    const int passes = png_set_interlace_handling(png);
    for (int pass = 0; pass < passes; ++pass)
        for (int y = 0; y < s->h; ++y)
            png_write_row(png, static_cast<png_const_bytep>(s->pixels) + y * s->pitch);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

bool write_png(const fs::path& path, const SDL_Surface* s)
{
    const std::string bytes = png_bytes(s);
    if (bytes.empty())
        return false;
    test::write_file(path, bytes);
    return true;
}

std::string bmp_bytes(const SDL_Surface* s)
{
    // 24 bits: SDL writes the plain 40-byte header then, with no colour masks.
    Surface rgb(SDL_ConvertSurfaceFormat(const_cast<SDL_Surface*>(s), SDL_PIXELFORMAT_BGR24, 0));
    std::string out(size_t(s->w) * s->h * 4 + 1024, '\0');
    SDL_RWops* rw = SDL_RWFromMem(out.data(), int(out.size()));
    SDL_SaveBMP_RW(rgb.get(), rw, 0);
    out.resize(size_t(SDL_RWtell(rw)));
    SDL_RWclose(rw);
    return out;
}

fs::path output_dir()
{
    fs::path dir = fs::path(QUILL_TEST_OUTPUT_DIR) / "skinner";
    fs::create_directories(dir);
    return dir;
}

void save_failure(const std::string& name, const SDL_Surface* actual, const SDL_Surface* expected)
{
    const fs::path dir = output_dir();
    write_png(dir / (name + "_actual.png"), actual);
    write_png(dir / (name + "_expected.png"), expected);
    Surface diff = new_surface(actual->w, actual->h, 0xFFFFFFFFu);
    for (int y = 0; y < actual->h && y < expected->h; ++y)
        for (int x = 0; x < actual->w && x < expected->w; ++x)
            if ((pixel_at(actual, x, y) ^ pixel_at(expected, x, y)) & 0x00FFFFFFu)
                set_pixel(diff.get(), x, y, 0xFFFF0000u);
    write_png(dir / (name + "_diff.png"), diff.get());
}

Surface ffmpeg_decode(const fs::path& file)
{
    std::string size_text;
    if (test::run("ffprobe -v error -select_streams v:0 -show_entries stream=width,height -of csv=p=0 '" +
                      file.string() + "'",
                  &size_text) != 0)
        return nullptr;
    int w = 0, h = 0;
    char comma = 0;
    std::istringstream in(size_text);
    in >> w >> comma >> h;
    std::string raw;
    if (w < 1 || h < 1 ||
        test::run("ffmpeg -v error -i '" + file.string() + "' -frames:v 1 -f rawvideo -pix_fmt bgra -",
                  &raw) != 0 ||
        raw.size() != size_t(w) * h * 4)
        return nullptr;
    Surface s = new_surface(w, h);
    for (int y = 0; y < h; ++y)
        std::memcpy(static_cast<char*>(s->pixels) + y * s->pitch, raw.data() + size_t(y) * w * 4, size_t(w) * 4);
    return s;
}

// ---- FakeStore

namespace {

FakeStore* g_store = nullptr;

class Proxy : public skinner::ImageStore {
public:
    bool read_entry(const std::wstring& name, std::string& bytes) override
    {
        return g_store->read_entry(name, bytes);
    }
    bool read_loose(const std::wstring& name, std::string& bytes) override
    {
        return g_store->read_loose(name, bytes);
    }
};

std::unique_ptr<skinner::ImageStore> open_fake(const std::wstring&)
{
    ++g_store->stores_opened;
    return std::make_unique<Proxy>();
}

std::wstring lower(std::wstring s)
{
    for (auto& c : s)
        c = towlower(c);
    return s;
}

} // namespace

FakeStore::FakeStore()
{
    g_store = this;
    skinner::set_image_store_factory(open_fake);
}

FakeStore::~FakeStore()
{
    skinner::set_image_store_factory(nullptr);
    g_store = nullptr;
}

bool FakeStore::read_entry(const std::wstring& name, std::string& bytes)
{
    ++entry_reads[name];
    for (const auto& [n, b] : entries)
        if (lower(n) == lower(name)) {
            bytes = b;
            return true;
        }
    return false;
}

bool FakeStore::read_loose(const std::wstring& name, std::string& bytes)
{
    ++loose_reads[name];
    auto it = loose.find(name);
    if (it == loose.end())
        return false;
    bytes = it->second;
    return true;
}

} // namespace drawing_test
