// Picture files: each decoder against ffmpeg's decoding of the same file
// (made by rsvg-convert and ffmpeg), the order of the search, the mask and
// scale variants, and files that lie or are cut short.
#include "skinner/image_loader.h"

#include "liba/text.h"
#include "skinner/picture.h"
#include "tests/skinner/drawing_test_support.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

using namespace skinner;
using namespace drawing_test;
namespace fs = std::filesystem;

namespace {

const char kSvg[] = R"svg(<svg xmlns="http://www.w3.org/2000/svg" width="40" height="30">
  <defs><linearGradient id="g" x1="0" x2="1"><stop offset="0" stop-color="#1060d0"/>
  <stop offset="1" stop-color="#f0c020"/></linearGradient></defs>
  <rect width="40" height="30" fill="url(#g)"/>
  <rect x="3" y="4" width="12" height="9" fill="#c01010"/>
  <circle cx="27" cy="18" r="8" fill="#20a040" fill-opacity="0.7"/>
  <path d="M2 28 L38 20" stroke="#000" stroke-width="1.5"/>
</svg>)svg";

// One set of picture files per test program, made by the real tools.
class Files {
public:
    Files()
    {
        test::write_file(dir_ / "art.svg", kSvg);
        ok_ = test::run("rsvg-convert -o '" + path("art.png") + "' '" + path("art.svg") + "'") == 0;
    }
    std::string path(const std::string& name) const { return (dir_.path() / name).string(); }
    bool ok() const { return ok_; }
    // ffmpeg converts art.png into `name` with the extra arguments.
    bool make(const std::string& name, const std::string& args)
    {
        return test::run("ffmpeg -v error -y -i '" + path("art.png") + "' " + args + " '" + path(name) + "'") ==
               0;
    }
    // ffmpeg makes a 6x4 picture of one colour.
    bool make_solid(const std::string& name, const std::string& colour)
    {
        return test::run("ffmpeg -v error -y -f lavfi -i color=c=" + colour + ":s=6x4 -frames:v 1 -q:v 1 '" +
                         path(name) + "'") == 0;
    }
    std::string bytes(const std::string& name) const { return test::read_file(dir_ / name); }

private:
    test::TempDir dir_;
    bool ok_ = false;
};

Files& files()
{
    static Files f;
    return f;
}

struct Difference {
    int largest = 0;
    double mean = 0;
};

// Per channel; alpha only when asked.
Difference compare(const SDL_Surface* a, const SDL_Surface* b, bool with_alpha)
{
    Difference d;
    long total = 0, count = 0;
    for (int y = 0; y < a->h; ++y)
        for (int x = 0; x < a->w; ++x)
            for (int shift = 0; shift < (with_alpha ? 32 : 24); shift += 8) {
                const int va = int(pixel_at(a, x, y) >> shift & 0xFF), vb = int(pixel_at(b, x, y) >> shift & 0xFF);
                d.largest = std::max(d.largest, std::abs(va - vb));
                total += std::abs(va - vb);
                ++count;
            }
    d.mean = double(total) / double(count);
    return d;
}

void expect_like_ffmpeg(const std::string& file, const Surface& ours, int tolerance, double mean_tolerance,
                        bool with_alpha)
{
    Surface reference = ffmpeg_decode(files().path(file));
    ASSERT_TRUE(reference) << file;
    ASSERT_TRUE(ours) << file << " was refused";
    ASSERT_EQ(ours->w, reference->w) << file;
    ASSERT_EQ(ours->h, reference->h) << file;
    const Difference d = compare(ours.get(), reference.get(), with_alpha);
    if (d.largest > tolerance || d.mean > mean_tolerance)
        save_failure("decode_" + file, ours.get(), reference.get());
    EXPECT_LE(d.largest, tolerance) << file;
    EXPECT_LE(d.mean, mean_tolerance) << file;
}

// The bytes of a PNG with the IHDR size replaced and its CRC made good
// again, so that only the size is a lie.
std::string with_png_size(std::string png, uint32_t w, uint32_t h)
{
    auto put = [&png](size_t at, uint32_t v) {
        for (int i = 0; i < 4; ++i)
            png[at + i] = char(v >> (24 - 8 * i));
    };
    put(16, w);
    put(20, h);
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 12; i < 29; ++i) { // chunk type and data
        crc ^= uint8_t(png[i]);
        for (int k = 0; k < 8; ++k)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1)));
    }
    put(29, ~crc);
    return png;
}

constexpr uint32_t kNothing = 0x1000000u;

// Within 8 levels on every channel.
bool looks_like(uint32_t got, uint32_t want)
{
    for (int shift : {0, 8, 16})
        if (std::abs(int(got >> shift & 0xFF) - int(want >> shift & 0xFF)) > 8)
            return false;
    return got != kNothing;
}

} // namespace

TEST(ImageLoader, DecodesPngOfEveryKindLikeFfmpeg)
{
    ASSERT_TRUE(files().ok()) << "rsvg-convert failed";
    Surface art = decode_png(files().bytes("art.png"), L"art.png");
    expect_like_ffmpeg("art.png", art, 0, 0, true);
    // Adam7, written by libpng itself.
    test::write_file(fs::path(files().path("adam7.png")), png_bytes(art.get(), true));
    expect_like_ffmpeg("adam7.png", decode_png(files().bytes("adam7.png"), L"adam7.png"), 0, 0, true);
    // Colour types and depths as ffmpeg writes them. Sixteen bits come down
    // to eight by rounding here and by cutting there: one level apart at most.
    const struct {
        const char* name;
        const char* pix_fmt;
        int tolerance;
    } kinds[] = {
        {"rgb24.png", "rgb24", 0}, {"gray.png", "gray", 0},       {"ya8.png", "ya8", 0},
        {"pal8.png", "pal8", 0},   {"monob.png", "monob", 0},     {"rgb48.png", "rgb48be", 1},
        {"rgba64.png", "rgba64be", 1}, {"gray16.png", "gray16be", 1},
    };
    for (const auto& k : kinds) {
        ASSERT_TRUE(files().make(k.name, std::string("-pix_fmt ") + k.pix_fmt)) << k.name;
        expect_like_ffmpeg(k.name, decode_png(files().bytes(k.name), liba::from_utf8(k.name)), k.tolerance, 0.5, true);
    }
}

TEST(ImageLoader, DecodesGifBmpAndJpegThroughSdlImageLikeFfmpeg)
{
    ASSERT_TRUE(files().ok());
    ASSERT_TRUE(files().make("art.gif", "-vf \"split[a][b];[a]palettegen[p];[b][p]paletteuse=dither=none\""));
    expect_like_ffmpeg("art.gif", decode_platform_image(files().bytes("art.gif"), ImageKind::gif, L"art.gif"), 0,
                       0, false);
    ASSERT_TRUE(files().make("art.jpg", "-q:v 2"));
    // Two JPEG decoders differ in rounding and chroma smoothing, a little.
    expect_like_ffmpeg("art.jpg", decode_platform_image(files().bytes("art.jpg"), ImageKind::jpeg, L"art.jpg"),
                       24, 2.0, false);
    // Five- and six-bit channels are widened to eight a level apart by the two.
    for (const char* fmt : {"bgr24", "bgra", "rgb555le", "rgb565le", "pal8", "gray", "monob", "rgb4_byte"}) {
        const std::string name = std::string("art_") + fmt + ".bmp";
        const int tolerance = std::string(fmt).starts_with("rgb5") ? 1 : 0;
        ASSERT_TRUE(files().make(name, std::string("-pix_fmt ") + fmt)) << name;
        expect_like_ffmpeg(name, decode_platform_image(files().bytes(name), ImageKind::bmp, liba::from_utf8(name)),
                           tolerance, 0.6, false);
    }
}

TEST(ImageLoader, RawBitmapReaderMatchesFfmpegOnUncompressedBitmaps)
{
    ASSERT_TRUE(files().ok());
    // 16 bits of 5-6-5 need colour masks, which a raw read doesn't take.
    for (const char* fmt : {"bgr24", "rgb555le", "pal8", "gray", "monob", "rgb4_byte", "bgra"}) {
        const std::string name = std::string("raw_") + fmt + ".bmp";
        ASSERT_TRUE(files().make(name, std::string("-pix_fmt ") + fmt)) << name;
        const std::string bytes = files().bytes(name);
        const uint32_t compression = uint8_t(bytes[30]) | uint32_t(uint8_t(bytes[31])) << 8;
        Surface ours = decode_raw_bitmap(bytes, liba::from_utf8(name));
        if (compression != 0) {
            EXPECT_FALSE(ours) << name << " has compression " << compression;
            continue;
        }
        expect_like_ffmpeg(name, std::move(ours), 0, 0, false);
    }
    // A bitmap written by SDL, top-down copy of the same art, and one whose
    // rows are cut short.
    Surface art = decode_png(files().bytes("art.png"), L"art.png");
    const std::string sdl_bmp = bmp_bytes(art.get());
    Surface back = decode_raw_bitmap(sdl_bmp, L"sdl.bmp");
    ASSERT_TRUE(back);
    EXPECT_EQ(compare(back.get(), art.get(), false).largest, 0);
    EXPECT_FALSE(decode_raw_bitmap(sdl_bmp.substr(0, sdl_bmp.size() - 3), L"short.bmp"));
}

TEST(ImageLoader, SearchesInOrderAndStopsAtABrokenFile)
{
    ASSERT_TRUE(files().ok());
    ASSERT_TRUE(files().make_solid("red.gif", "red"));
    // Each place gets its own solid colour, to tell which file was taken.
    auto solid = [](uint32_t colour) {
        return new_surface(6, 4, colour);
    };
    const std::string gif = files().bytes("red.gif");
    FakeStore store;
    store.entries[L"pic.GIF"] = gif; // the archive ignores case
    store.entries[L"pic.bmp"] = bmp_bytes(solid(0xFF00FF00u).get());
    store.loose[L"pic.png"] = png_bytes(solid(0xFF0000FFu).get());
    store.loose[L"pic.bmp"] = bmp_bytes(solid(0xFFFFFF00u).get());
    ASSERT_TRUE(files().make_solid("cyan.jpg", "cyan"));
    store.loose[L"pic.jpg"] = files().bytes("cyan.jpg");
    ASSERT_TRUE(files().make_solid("magenta.gif", "magenta"));
    store.loose[L"pic.gif"] = files().bytes("magenta.gif");

    auto found = [&store](SearchOutcome* outcome = nullptr) -> uint32_t {
        Surface s = find_image(store, L"pic", outcome);
        return s ? pixel_at(s.get(), 2, 2) & 0xFFFFFFu : kNothing;
    };
    EXPECT_PRED2(looks_like, found(), 0xFF0000u); // GIF palettes and JPEG are near, not exact
    store.entries.erase(L"pic.GIF");
    EXPECT_EQ(found(), 0x00FF00u);
    store.entries.erase(L"pic.bmp");
    EXPECT_EQ(found(), 0x0000FFu);
    store.loose.erase(L"pic.png");
    EXPECT_EQ(found(), 0xFFFF00u);
    store.loose.erase(L"pic.bmp");
    EXPECT_PRED2(looks_like, found(), 0xFF00FFu);
    store.loose.erase(L"pic.gif");
    EXPECT_PRED2(looks_like, found(), 0x00FFFFu);
    store.loose.erase(L"pic.jpg");
    SearchOutcome outcome = SearchOutcome::found;
    EXPECT_EQ(found(&outcome), kNothing);
    EXPECT_EQ(outcome, SearchOutcome::absent);

    // A broken file in the archive, or a broken loose PNG, ends the search
    // although a good file waits further down.
    store.loose[L"pic.bmp"] = bmp_bytes(solid(0xFFFFFF00u).get());
    store.entries[L"pic.gif"] = gif.substr(0, gif.size() / 2);
    EXPECT_EQ(found(&outcome), kNothing);
    EXPECT_EQ(outcome, SearchOutcome::broken);
    store.entries.clear();
    const std::string png = png_bytes(solid(0xFF0000FFu).get());
    store.loose[L"pic.png"] = png.substr(0, png.size() - 20);
    EXPECT_EQ(found(&outcome), kNothing);
    EXPECT_EQ(outcome, SearchOutcome::broken);
    // Broken loose BMP and GIF files are only passed over.
    store.loose.clear();
    store.loose[L"pic.bmp"] = "BM but nothing more";
    store.loose[L"pic.gif"] = "GIF89a";
    store.loose[L"pic.jpg"] = files().bytes("cyan.jpg");
    EXPECT_PRED2(looks_like, found(), 0x00FFFFu);
    // A BMP entry that SDL2_image refuses is read by the raw reader.
    std::string odd_bmp = bmp_bytes(solid(0xFF00FF00u).get());
    odd_bmp[0] = 'X'; // a damaged type field
    ASSERT_FALSE(decode_platform_image(odd_bmp, ImageKind::bmp, L"odd.bmp"));
    store.entries[L"pic.bmp"] = odd_bmp;
    EXPECT_EQ(found(), 0x00FF00u);
}

TEST(ImageLoader, LoadsScaleArtMasksAndMapsAsTheSkinOffers)
{
    FakeStore store;
    const std::string plain = png_bytes(new_surface(3, 2, 0xFF102030u).get());
    const std::string own = png_bytes(new_surface(5, 5, 0xFF405060u).get());
    const std::string mask = png_bytes(new_surface(3, 2, 0xFFFFFFFFu).get());
    store.loose[L"b.png"] = plain;
    store.loose[L"b_x2.png"] = own;
    store.loose[L"b_1.png"] = mask;
    store.loose[L"b_8.png"] = mask;

    LoadedBitmap at2 = load_bitmap(store, L"b", 2);
    ASSERT_TRUE(at2.colour);
    EXPECT_EQ(at2.size, (Point{5, 5})); // the skin's own art, as it is
    EXPECT_EQ(store.loose_reads[L"b.png"], 0);
    EXPECT_FALSE(at2.mask);

    LoadedBitmap at3 = load_bitmap(store, L"b", 3);
    ASSERT_TRUE(at3.colour);
    EXPECT_EQ(at3.size, (Point{9, 6}));
    ASSERT_TRUE(at3.mask);
    EXPECT_FALSE(at3.alpha);
    EXPECT_EQ(at3.mask->w, 9);
    EXPECT_EQ(store.loose_reads[L"b_8.png"], 0); // the mask wins; the map isn't read

    store.loose.erase(L"b_1.png");
    LoadedBitmap map = load_bitmap(store, L"b", 1);
    EXPECT_TRUE(map.alpha);
    // A mask of another size is dropped rather than read past its edge.
    store.loose[L"b_8.png"] = png_bytes(new_surface(2, 2).get());
    LoadedBitmap odd = load_bitmap(store, L"b", 1);
    EXPECT_TRUE(odd.colour);
    EXPECT_FALSE(odd.mask);
}

TEST(ImageLoader, RefusesFilesThatLieOrAreCutShort)
{
    ASSERT_TRUE(files().ok());
    const std::string png = files().bytes("art.png");
    ASSERT_TRUE(decode_png(png, L"art.png"));
    // Cut anywhere: refused, never read past the end.
    for (size_t cut : {size_t(0), size_t(7), size_t(8), size_t(20), size_t(33), png.size() / 3, png.size() / 2,
                       png.size() - 13})
        EXPECT_FALSE(decode_png(png.substr(0, cut), L"cut.png")) << "cut at " << cut;
    // A header that claims more rows or columns than the data holds.
    EXPECT_FALSE(decode_png(with_png_size(png, 40, 31), L"taller.png"));
    EXPECT_FALSE(decode_png(with_png_size(png, 400, 300), L"larger.png"));
    // Beyond 10000 a side: refused before anything is allocated for it.
    EXPECT_FALSE(decode_png(with_png_size(png, 10001, 30), L"wide.png"));
    EXPECT_FALSE(decode_png(with_png_size(png, 60000, 60000), L"huge.png"));
    EXPECT_FALSE(decode_png(with_png_size(png, 0, 30), L"none.png"));

    // GIF, BMP and raw bitmaps whose headers claim a vast picture would have
    // SDL2_image allocate gigabytes: the size is read and refused first.
    ASSERT_TRUE(files().make("art2.gif", ""));
    std::string gif = files().bytes("art2.gif");
    gif[6] = gif[7] = gif[8] = gif[9] = char(0xEA); // screen 60138 x 60138
    EXPECT_FALSE(decode_platform_image(gif, ImageKind::gif, L"huge.gif"));
    Surface art = decode_png(png, L"art.png");
    std::string bmp = bmp_bytes(art.get());
    std::string huge_bmp = bmp;
    huge_bmp[19] = huge_bmp[23] = char(0xC3); // 50000-odd a side
    EXPECT_FALSE(decode_platform_image(huge_bmp, ImageKind::bmp, L"huge.bmp"));
    EXPECT_FALSE(decode_raw_bitmap(huge_bmp, L"huge.bmp"));
    for (size_t cut : {size_t(0), size_t(10), size_t(30), size_t(54), bmp.size() / 2, bmp.size() - 1}) {
        EXPECT_FALSE(decode_platform_image(bmp.substr(0, cut), ImageKind::bmp, L"cut.bmp")) << cut;
        EXPECT_FALSE(decode_raw_bitmap(bmp.substr(0, cut), L"cut.bmp")) << cut;
    }
    ASSERT_TRUE(files().make("art2.jpg", ""));
    const std::string jpg = files().bytes("art2.jpg");
    for (size_t cut : {size_t(0), size_t(2), size_t(100)})
        EXPECT_FALSE(decode_platform_image(jpg.substr(0, cut), ImageKind::jpeg, L"cut.jpg")) << cut;
    // Wrong kind for the extension: a PNG named .gif is no GIF.
    EXPECT_FALSE(decode_platform_image(png, ImageKind::gif, L"png.gif"));
}

TEST(ImageLoader, SkinStoreReadsStoredArchiveEntriesBeforeLooseFilesIgnoringCase)
{
    // Not an archive: loose files only, whatever the case of their names.
    test::TempDir dir;
    test::write_file(dir / "Title.PNG", png_bytes(new_surface(2, 3, 0xFF112233u).get()));
    test::write_file(dir / "plain.skin", "not an archive");
    std::unique_ptr<ImageStore> store = open_skin_store((dir / "plain.skin").wstring());
    std::string bytes;
    EXPECT_FALSE(store->read_entry(L"Title.png", bytes));
    EXPECT_TRUE(store->read_loose(L"title.png", bytes));
    EXPECT_EQ(bytes, test::read_file(dir / "Title.PNG"));
    EXPECT_FALSE(store->read_loose(L"title.gif", bytes));
    Picture p((dir / "plain.skin").wstring(), L"title", false, 1);
    EXPECT_EQ(p.bitmap_size(), (Point{2, 3}));

    // Stored entries of an archive come first.
    test::write_file(dir / "frame.bmp", bmp_bytes(new_surface(4, 3, 0xFF00FF00u).get()));
    test::write_file(dir / "late.bmp", bmp_bytes(new_surface(4, 3, 0xFF00FF00u).get()));
    ASSERT_EQ(test::run("cd '" + dir.path().string() + "' && zip -q -0 pack.skin frame.bmp && zip -q -9 pack.skin " +
                        "late.bmp && rm frame.bmp late.bmp"),
              0);
    // Beside the archive, pictures of another colour under the same names.
    test::write_file(dir / "frame.png", png_bytes(new_surface(4, 3, 0xFF0000FFu).get()));
    test::write_file(dir / "late.png", png_bytes(new_surface(4, 3, 0xFF0000FFu).get()));
    const std::wstring skin = (dir / "pack.skin").wstring();
    Picture frame(skin, L"FRAME", false, 1); // archive names compare without case
    Surface out = new_surface(4, 3);
    Canvas canvas(out.get(), {0, 0}, {4, 3});
    frame.draw(canvas, {0, 0}, {4, 3});
    EXPECT_EQ(pixel_at(out.get(), 1, 1), 0xFF00FF00u);
    // A deflated entry can't be read from the archive: the loose file serves.
    Picture late(skin, L"late", false, 1);
    late.draw(canvas, {0, 0}, {4, 3});
    EXPECT_EQ(pixel_at(out.get(), 1, 1), 0xFF0000FFu);
}
