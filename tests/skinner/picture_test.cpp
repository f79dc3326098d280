// Nine-slice pictures, drawn and hit-tested, against a reference that works
// out every target pixel on its own from the source picture by the rule:
// corners 1:1 (shrunk evenly when the target is small), bands of one unit
// filled, other bands tiled from their top left or stretched.
#include "skinner/picture.h"

#include "tests/skinner/drawing_test_support.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <optional>

using namespace skinner;
using namespace drawing_test;

namespace {

constexpr uint32_t kBackground = 0xFF0A0B0Cu; // no source pixel has this colour

// Every pixel its own colour, so a wrong source pixel can't hide.
uint32_t source_colour(int x, int y)
{
    return 0xFF000000u | uint32_t(x * 15) << 16 | uint32_t(y * 15) << 8 | uint32_t((x + y) * 5 + 1);
}

Surface unique_picture(int w, int h)
{
    Surface s = new_surface(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            set_pixel(s.get(), x, y, source_colour(x, y));
    return s;
}

struct Geo {
    Point a, b, c, d;
    bool stretch;
    int s;
};

void set_geometry(Picture& p, const Geo& g)
{
    p.set_first_corner(g.a);
    p.set_band_start(g.b);
    p.set_band_end(g.c);
    p.set_last_corner(g.d);
    p.set_stretch(g.stretch);
}

// The corners' sizes once the target is too small for both: pixels are
// taken one at a time, from the far corner first, then the near one, and so
// on; a corner that reaches nothing gives the rest to the other.
std::pair<int, int> shrunk(int near, int far, int size)
{
    bool take_far = true;
    while (near + far > size) {
        if ((take_far && far > 0) || near == 0)
            --far;
        else
            --near;
        take_far = !take_far;
    }
    return {near, far};
}

enum Region { kNear, kBand, kFar };
struct AxisPixel {
    Region region;
    int source;            // -1: the band has no source pixels
    std::pair<int, int> band; // the band's source range, for stretch tolerance
};

AxisPixel axis(int o, int size, int a, int b, int c, int d, bool stretch)
{
    const auto [near, far] = shrunk(b - a, d - c, size);
    if (o < near)
        return {kNear, a + o, {}};
    if (o >= size - far)
        return {kFar, d - far + (o - (size - far)), {}};
    const int k = o - near, length = size - near - far, bs = c - b;
    if (bs < 1)
        return {kBand, -1, {}};
    return {kBand, stretch ? b + k * bs / length : b + k % bs, {b, c}};
}

struct Expected {
    bool drawn = false;
    int sx = 0, sy = 0;
    bool loose_x = false, loose_y = false; // stretched: one source pixel either way is fine
};

Expected expected_pixel(int ox, int oy, Point size, const Geo& g)
{
    const AxisPixel x = axis(ox, size.x, g.a.x, g.b.x, g.c.x, g.d.x, g.stretch);
    const AxisPixel y = axis(oy, size.y, g.a.y, g.b.y, g.c.y, g.d.y, g.stretch);
    const int bw = g.c.x - g.b.x, bh = g.c.y - g.b.y;
    const auto [left, right] = shrunk(g.b.x - g.a.x, g.d.x - g.c.x, size.x);
    const auto [top, bottom] = shrunk(g.b.y - g.a.y, g.d.y - g.c.y, size.y);
    Expected e;
    if (x.region != kBand && y.region != kBand)
        return {true, x.source, y.source};
    if (x.region != kBand) { // a side: a band one unit each way is lines of the first band row
        const int width = x.region == kNear ? left : right;
        if (width == g.s && bh == g.s)
            return {true, x.source, g.b.y};
        if (y.source < 0)
            return e;
        return {true, x.source, y.source, false, g.stretch};
    }
    if (y.region != kBand) { // top or bottom: rows each from one source pixel
        const int height = y.region == kNear ? top : bottom;
        if (bw == g.s && height == g.s)
            return {true, g.b.x, y.source};
        if (x.source < 0)
            return e;
        return {true, x.source, y.source, g.stretch, false};
    }
    if (bw == g.s && bh == g.s)
        return {true, g.b.x, g.b.y};
    if (x.source < 0 || y.source < 0)
        return e;
    return {true, x.source, y.source, g.stretch, g.stretch};
}

// Draws `picture` at (pos, size) on a fresh canvas and checks every pixel;
// on a mismatch the actual and expected pictures are saved.
bool draws_as_rule(const Picture& picture, const SDL_Surface* source, const Geo& g, Point pos, Point size,
                   const std::string& label)
{
    const int cw = pos.x + size.x + 6, ch = pos.y + size.y + 6;
    Surface actual = new_surface(cw, ch, kBackground);
    Surface expected = new_surface(cw, ch, kBackground);
    {
        Canvas canvas(actual.get(), {0, 0}, {cw, ch});
        picture.draw(canvas, pos, size);
    }
    int bad = 0;
    for (int y = 0; y < ch; ++y)
        for (int x = 0; x < cw; ++x) {
            const uint32_t got = pixel_at(actual.get(), x, y);
            const bool inside = x >= pos.x && y >= pos.y && x < pos.x + size.x && y < pos.y + size.y;
            const Expected e = inside ? expected_pixel(x - pos.x, y - pos.y, size, g) : Expected{};
            const uint32_t want = e.drawn ? pixel_at(source, e.sx, e.sy) : kBackground;
            set_pixel(expected.get(), x, y, want);
            if (got == want)
                continue;
            bool near_enough = false;
            for (int dy = e.loose_y ? -1 : 0; dy <= (e.loose_y ? 1 : 0); ++dy)
                for (int dx = e.loose_x ? -1 : 0; dx <= (e.loose_x ? 1 : 0); ++dx) {
                    const int sx = e.sx + dx, sy = e.sy + dy;
                    if ((e.loose_x && (sx < g.b.x || sx >= g.c.x)) || (e.loose_y && (sy < g.b.y || sy >= g.c.y)))
                        continue;
                    if (e.drawn && sx >= 0 && sy >= 0 && sx < source->w && sy < source->h &&
                        pixel_at(source, sx, sy) == got)
                        near_enough = true;
                }
            if (!near_enough)
                ++bad;
        }
    if (bad) {
        save_failure(label, actual.get(), expected.get());
        ADD_FAILURE() << label << ": " << bad << " pixels differ; pictures in " << output_dir();
    }
    return bad == 0;
}

// A skin folder holding pictures as loose PNG files.
struct SkinFolder {
    test::TempDir dir;
    std::wstring skin() const { return (dir.path() / "test.skin").wstring(); }
    void add(const std::string& name, const SDL_Surface* s) { write_png(dir / (name + ".png"), s); }
};

} // namespace

TEST(Picture, NineSliceFollowsTheRuleBelowAtAndAboveTheCorners)
{
    SkinFolder folder;
    Surface source = unique_picture(16, 14);
    folder.add("frame", source.get());
    // Corners 3 and 5 wide, 2 and 4 high: together 8 by 6.
    for (bool stretch : {false, true}) {
        const Geo g{{1, 1}, {4, 3}, {9, 8}, {14, 12}, stretch, 1};
        Picture p(folder.skin(), L"frame", stretch, 1);
        ASSERT_TRUE(p.is_valid());
        set_geometry(p, g);
        EXPECT_EQ(p.natural_size(), (Point{13, 11}));
        EXPECT_EQ(p.smallest_size(), (Point{8, 6}));
        for (int w : {1, 2, 3, 4, 5, 7, 8, 9, 10, 13, 17, 33})
            for (int h : {1, 2, 5, 6, 7, 11, 19})
                draws_as_rule(p, source.get(), g, {5, 4}, {w, h},
                              std::string(stretch ? "stretch_" : "tile_") + std::to_string(w) + "x" +
                                  std::to_string(h));
    }
}

TEST(Picture, BandsOfOneUnitAreFilledFromTheirFirstPixel)
{
    SkinFolder folder;
    // At scale 1 a one-pixel band; at scale 2 the skin's own art, whose
    // 2x2 band holds four different pixels: the fills take the first.
    Surface small = unique_picture(8, 6);
    Surface own_art = unique_picture(16, 12);
    folder.add("bar", small.get());
    folder.add("bar_x2", own_art.get());
    for (bool stretch : {false, true}) {
        const Geo g1{{0, 0}, {3, 2}, {4, 3}, {8, 6}, stretch, 1};
        Picture p1(folder.skin(), L"bar", stretch, 1);
        set_geometry(p1, g1);
        const Geo g2{{0, 0}, {6, 4}, {8, 6}, {16, 12}, stretch, 2};
        Picture p2(folder.skin(), L"bar", stretch, 2);
        ASSERT_EQ(p2.bitmap_size(), (Point{16, 12})); // the own art, not the plain one blown up
        set_geometry(p2, g2);
        for (int w : {3, 8, 9, 20})
            for (int h : {5, 6, 15}) {
                const std::string size = std::to_string(w) + "x" + std::to_string(h);
                draws_as_rule(p1, small.get(), g1, {2, 3}, {w, h}, "unit1_" + size);
                draws_as_rule(p2, own_art.get(), g2, {2, 3}, {2 * w, 2 * h}, "unit2_" + size);
            }
    }
}

TEST(Picture, PlainArtIsBlownUpPixelByPixelForTheScale)
{
    SkinFolder folder;
    Surface source = unique_picture(7, 5);
    folder.add("icon", source.get());
    for (int scale : {1, 2, 3, 4}) {
        Picture p(folder.skin(), L"icon", false, scale);
        ASSERT_EQ(p.bitmap_size(), (Point{7 * scale, 5 * scale}));
        EXPECT_EQ(p.natural_size(), p.bitmap_size());
        EXPECT_EQ(p.scale(), scale);
        Surface out = new_surface(7 * scale, 5 * scale, kBackground);
        Canvas canvas(out.get(), {0, 0}, {out->w, out->h});
        p.draw(canvas, {0, 0}, p.natural_size());
        for (int y = 0; y < out->h; ++y)
            for (int x = 0; x < out->w; ++x)
                ASSERT_EQ(pixel_at(out.get(), x, y), source_colour(x / scale, y / scale))
                    << "scale " << scale << " at " << x << "," << y;
    }
}

TEST(Picture, DrawsOnlyInsideTheClip)
{
    SkinFolder folder;
    Surface source = unique_picture(16, 14);
    folder.add("frame", source.get());
    Picture p(folder.skin(), L"frame", true, 1);
    Surface whole = new_surface(40, 30, kBackground);
    Surface clipped = new_surface(40, 30, kBackground);
    {
        Canvas c(whole.get(), {0, 0}, {40, 30});
        p.draw(c, {3, 2}, {30, 25});
    }
    {
        Canvas c(clipped.get(), {0, 0}, {40, 30});
        c.push_clip({10, 5}, {12, 100});
        c.push_clip({0, 0}, {19, 17}); // narrows to x 10..18, y 5..16
        p.draw(c, {3, 2}, {30, 25});
    }
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x) {
            const bool in = x >= 10 && x < 19 && y >= 5 && y < 17;
            ASSERT_EQ(pixel_at(clipped.get(), x, y), in ? pixel_at(whole.get(), x, y) : kBackground)
                << x << "," << y;
        }
}

namespace {

// The bitmap pixel a target point shows, per axis, for hit tests: corners
// at full size, the band as drawn. nullopt: outside.
std::optional<int> hit_axis(int x, int p, int size, int a, int b, int c, int d, bool stretch)
{
    if (x < p || x >= p + size)
        return std::nullopt;
    const int o = x - p;
    if (o <= b - a)
        return a + o;
    const int r = size - (d - c);
    if (o >= r)
        return c + (o - r);
    if (stretch)
        return b + (o - (b - a)) * (c - b) / (r - (b - a));
    return c == b ? 0 : b + (o - (b - a)) % (c - b);
}

// White where the mask is opaque; the colour is white where it's not.
void make_masked(Surface& colour, Surface& mask, int w, int h)
{
    colour = unique_picture(w, h);
    mask = new_surface(w, h, 0xFFFFFFFFu);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if ((x * 3 + y * 5) % 4 == 0 || (x == 4 && y == 3)) { // (4,3): the one-unit band
                set_pixel(mask.get(), x, y, 0xFF000000u);
                set_pixel(colour.get(), x, y, 0xFFFFFFFFu);
            }
}

} // namespace

TEST(Picture, MaskLeavesTheBackgroundAndHitTestsFollowTheMapping)
{
    SkinFolder folder;
    Surface colour, mask;
    make_masked(colour, mask, 10, 8);
    folder.add("knob", colour.get());
    folder.add("knob_1", mask.get());
    struct Case {
        Geo g;
    } cases[] = {
        {{{0, 0}, {3, 2}, {7, 5}, {10, 8}, false, 1}},
        {{{0, 0}, {3, 2}, {7, 5}, {10, 8}, true, 1}},
        {{{1, 1}, {4, 3}, {5, 4}, {9, 7}, false, 1}}, // one-unit band: a fill through the mask
        {{{0, 0}, {3, 2}, {3, 5}, {10, 8}, false, 1}}, // no band across: nothing drawn there
    };
    for (const auto& [g] : cases) {
        Picture p(folder.skin(), L"knob", g.stretch, 1);
        ASSERT_TRUE(p.has_mask());
        set_geometry(p, g);
        for (Point size : {Point{10, 8}, Point{23, 17}, Point{11, 9}, Point{5, 4}}) {
            const Point pos{4, 3};
            Surface out = new_surface(40, 30, kBackground);
            Canvas canvas(out.get(), {0, 0}, {40, 30});
            p.draw(canvas, pos, size);
            const bool full_corners = size.x >= p.smallest_size().x && size.y >= p.smallest_size().y;
            for (int y = 0; y < 30; ++y)
                for (int x = 0; x < 40; ++x) {
                    const auto mx = hit_axis(x, pos.x, size.x, g.a.x, g.b.x, g.c.x, g.d.x, g.stretch);
                    const auto my = hit_axis(y, pos.y, size.y, g.a.y, g.b.y, g.c.y, g.d.y, g.stretch);
                    const bool want = mx && my && *mx < mask->w && *my < mask->h &&
                                      (pixel_at(mask.get(), *mx, *my) & 0xFFFFFF) == 0;
                    ASSERT_EQ(p.is_transparent_at({x, y}, pos, size), want)
                        << x << "," << y << " size " << size.x << "x" << size.y;
                    // Drawn and hit-tested agree while the corners keep their size,
                    // wherever a band was drawn at all.
                    const Expected e = expected_pixel(x - pos.x, y - pos.y, size, g);
                    if (full_corners && mx && my && e.drawn) {
                        ASSERT_EQ(pixel_at(out.get(), x, y) == kBackground, want)
                            << x << "," << y << " size " << size.x << "x" << size.y;
                    }
                }
        }
    }
    // A tiled band of no width maps to pixel 0 of that axis.
    Picture p(folder.skin(), L"knob", false, 1);
    set_geometry(p, Geo{{0, 0}, {3, 2}, {3, 5}, {10, 8}, false, 1});
    const bool mask_at_0 = (pixel_at(mask.get(), 0, 3) & 0xFFFFFF) == 0;
    EXPECT_EQ(p.is_transparent_at({4 + 5, 3 + 3}, {4, 3}, {20, 8}), mask_at_0);
}

TEST(Picture, EmptyAndMissingPicturesDrawNothingAndAreNeverTransparent)
{
    SkinFolder folder;
    Surface out = new_surface(20, 20, kBackground);
    Canvas canvas(out.get(), {0, 0}, {20, 20});
    Picture empty;
    Picture missing(folder.skin(), L"nowhere", false, 2);
    EXPECT_TRUE(empty.is_empty());
    EXPECT_FALSE(missing.is_empty());
    EXPECT_FALSE(missing.is_valid());
    EXPECT_EQ(missing.natural_size(), (Point{0, 0}));
    EXPECT_EQ(empty.scale(), 1);
    for (const Picture* p : {&empty, &missing}) {
        Picture copy = *p;
        copy.set_last_corner({8, 8});
        copy.draw(canvas, {0, 0}, {20, 20});
        EXPECT_FALSE(copy.is_transparent_at({3, 3}, {0, 0}, {20, 20}));
    }
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 20; ++x)
            ASSERT_EQ(pixel_at(out.get(), x, y), kBackground);
}

TEST(Picture, AlphaMapBlendsColourOverTheBackground)
{
    SkinFolder folder;
    Surface colour = unique_picture(9, 7);
    Surface map = new_surface(9, 7);
    const int levels[] = {0, 1, 64, 128, 200, 254, 255};
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) {
            const uint32_t a = uint32_t(levels[(x + y) % 7]);
            set_pixel(map.get(), x, y, 0xFF000000u | a << 16 | a << 8 | a);
        }
    folder.add("glow", colour.get());
    folder.add("glow_8", map.get());
    Picture p(folder.skin(), L"glow", true, 1);
    ASSERT_TRUE(p.has_alpha_map());
    EXPECT_FALSE(p.has_mask());
    const Geo g{{0, 0}, {2, 2}, {6, 5}, {9, 7}, true, 1};
    set_geometry(p, g);
    auto background = [](int x, int y) { return 0xFF000000u | uint32_t(x * 9) << 16 | 0x8000u | uint32_t(y * 11); };
    for (Point size : {Point{9, 7}, Point{20, 13}, Point{5, 3}}) {
        Surface out = new_surface(24, 16);
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 24; ++x)
                set_pixel(out.get(), x, y, background(x, y));
        Canvas canvas(out.get(), {0, 0}, {24, 16});
        p.draw(canvas, {1, 2}, size);
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 24; ++x) {
                const bool inside = x >= 1 && y >= 2 && x < 1 + size.x && y < 2 + size.y;
                uint32_t want = background(x, y);
                if (inside) {
                    const Expected e = expected_pixel(x - 1, y - 2, size, g);
                    const uint32_t src = pixel_at(colour.get(), e.sx, e.sy);
                    const uint32_t alpha = pixel_at(map.get(), e.sx, e.sy) & 0xFF;
                    want = 0xFF000000u;
                    for (int shift : {0, 8, 16}) {
                        const uint32_t s = (src >> shift) & 0xFF, d = (background(x, y) >> shift) & 0xFF;
                        want |= ((d * (256 - alpha) + s * alpha) >> 8) << shift;
                    }
                }
                ASSERT_EQ(pixel_at(out.get(), x, y), want) << x << "," << y << " size " << size.x;
            }
    }
    EXPECT_TRUE(p.is_transparent_at({1, 2}, {1, 2}, {9, 7})); // alpha 0 there
    EXPECT_FALSE(p.is_transparent_at({2, 2}, {1, 2}, {9, 7}));
}

TEST(Picture, BitmapsAreSharedByKeyAndLeaveWithTheLastCopy)
{
    FakeStore store;
    store.loose[L"a.png"] = png_bytes(unique_picture(4, 4).get());
    ASSERT_EQ(Picture::cached_bitmaps(), 0u);
    {
        Picture one(L"/skins/x.skin", L"a", false, 1);
        Picture two(L"/skins/x.skin", L"a", true, 1);
        EXPECT_EQ(Picture::cached_bitmaps(), 1u);
        EXPECT_EQ(store.stores_opened, 1);
        Picture other_scale(L"/skins/x.skin", L"a", false, 2);
        Picture other_skin(L"/skins/y.skin", L"a", false, 1);
        EXPECT_EQ(Picture::cached_bitmaps(), 3u);
        Picture copy = one;
        Picture assigned;
        assigned = other_scale;
        assigned = assigned; // self-assignment keeps the reference
        EXPECT_TRUE(assigned.is_valid());
        one = Picture();
        two = Picture();
        EXPECT_EQ(Picture::cached_bitmaps(), 3u); // `copy` still holds it
        copy = Picture();
        EXPECT_EQ(Picture::cached_bitmaps(), 2u);
    }
    EXPECT_EQ(Picture::cached_bitmaps(), 0u);
    Picture again(L"/skins/x.skin", L"a", false, 1);
    EXPECT_EQ(store.stores_opened, 4);
}
