#include "skinner/canvas.h"

#include "liba/fatal.h"
#include "tests/skinner/drawing_test_support.h"

#include <SDL.h>
#include <gtest/gtest.h>

using namespace skinner;
using namespace drawing_test;

namespace {

constexpr uint32_t kBack = 0xFF203040u;
constexpr Color kInk{200, 10, 90, 0};

int count_ink(const SDL_Surface* s)
{
    int n = 0;
    for (int y = 0; y < s->h; ++y)
        for (int x = 0; x < s->w; ++x)
            n += pixel_at(s, x, y) == kInk.pixel();
    return n;
}

} // namespace

TEST(Canvas, ClipsNestByIntersectionAndCollapseWhenDisjoint)
{
    Surface s = new_surface(50, 40, kBack);
    Canvas c(s.get(), {-5, 2}, {40, 100}); // cut to the surface too
    EXPECT_EQ(c.clip(), (Rect{0, 2, 35, 38}));
    c.push_clip({10, 10}, {30, 5});
    EXPECT_EQ(c.clip(), (Rect{10, 10, 25, 5}));
    c.push_clip({0, 20}, {5, 5}); // nothing in common: empty, at the corner where it would begin
    EXPECT_EQ(c.clip(), (Rect{10, 20, 0, 0}));
    c.fill_rect({0, 0}, {50, 40}, kInk);
    EXPECT_EQ(count_ink(s.get()), 0);
    c.pop_clip();
    c.fill_rect({0, 0}, {50, 40}, kInk);
    EXPECT_EQ(count_ink(s.get()), 25 * 5);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 50; ++x)
            ASSERT_EQ(pixel_at(s.get(), x, y) == kInk.pixel(), x >= 10 && x < 35 && y >= 10 && y < 15);
    c.pop_clip();
    EXPECT_EQ(c.clip(), (Rect{0, 2, 35, 38}));
    EXPECT_EXIT(c.pop_clip(), testing::ExitedWithCode(liba::kFatalExitCode), "clip");
}

TEST(Canvas, FillsWithinTheRectangleAndIgnoresAlpha)
{
    Surface s = new_surface(20, 10, kBack);
    Canvas c(s.get(), {0, 0}, {20, 10});
    c.fill_rect({3, 2}, {4, 5}, Color{1, 2, 3, 0});
    c.fill_rect({18, 8}, {10, 10}, kInk); // runs off the surface
    c.fill_rect({5, 5}, {0, 3}, kInk);    // no width
    c.fill_rect({5, 5}, {-3, 3}, kInk);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 20; ++x) {
            uint32_t want = kBack;
            if (x >= 3 && x < 7 && y >= 2 && y < 7)
                want = 0xFF010203u;
            if (x >= 18 && y >= 8)
                want = kInk.pixel();
            ASSERT_EQ(pixel_at(s.get(), x, y), want) << x << "," << y;
        }
}

TEST(Canvas, LinesAreOnePixelWideAndStopBeforeTheirEnd)
{
    Surface s = new_surface(30, 30, kBack);
    Canvas c(s.get(), {0, 0}, {30, 30});
    c.line({2, 3}, {12, 3}, kInk); // 10 pixels, x 2..11
    EXPECT_EQ(count_ink(s.get()), 10);
    EXPECT_EQ(pixel_at(s.get(), 11, 3), kInk.pixel());
    EXPECT_NE(pixel_at(s.get(), 12, 3), kInk.pixel());
    c.line({5, 5}, {5, 5}, kInk); // no length, nothing
    EXPECT_EQ(count_ink(s.get()), 10);

    // A diagonal and a steep line: one pixel per step of the longer axis,
    // each within half a pixel of the ideal line.
    Surface d = new_surface(30, 30, kBack);
    Canvas cd(d.get(), {0, 0}, {30, 30});
    cd.line({20, 2}, {4, 27}, kInk);
    EXPECT_EQ(count_ink(d.get()), 25);
    for (int y = 2; y < 27; ++y) {
        int on_row = 0, at = -1;
        for (int x = 0; x < 30; ++x)
            if (pixel_at(d.get(), x, y) == kInk.pixel()) {
                ++on_row;
                at = x;
            }
        ASSERT_EQ(on_row, 1) << "row " << y;
        const double ideal = 20.0 + (4.0 - 20.0) * (y - 2) / 25.0;
        EXPECT_LE(std::abs(at - ideal), 0.5 + 1e-9) << "row " << y;
    }

    // Clipped: only the part inside is drawn, and nothing is written outside.
    Surface k = new_surface(30, 30, kBack);
    Canvas ck(k.get(), {0, 0}, {30, 30});
    ck.push_clip({10, 0}, {5, 30});
    ck.line({-100, 7}, {200, 7}, kInk);
    EXPECT_EQ(count_ink(k.get()), 5);
}

TEST(Canvas, RefusesSurfacesOfAnotherLayout)
{
    SDL_Surface* s16 = SDL_CreateRGBSurfaceWithFormat(0, 4, 4, 16, SDL_PIXELFORMAT_RGB565);
    SDL_Surface* abgr = SDL_CreateRGBSurfaceWithFormat(0, 4, 4, 32, SDL_PIXELFORMAT_ABGR8888);
    SDL_Surface* xrgb = SDL_CreateRGBSurfaceWithFormat(0, 4, 4, 32, SDL_PIXELFORMAT_RGB888);
    EXPECT_EXIT(Canvas(s16, {0, 0}, {4, 4}), testing::ExitedWithCode(liba::kFatalExitCode), "");
    EXPECT_EXIT(Canvas(abgr, {0, 0}, {4, 4}), testing::ExitedWithCode(liba::kFatalExitCode), "");
    {
        Canvas ok(xrgb, {0, 0}, {4, 4}); // the usual window surface
        ok.fill_rect({0, 0}, {4, 4}, kInk);
        EXPECT_EQ(static_cast<uint32_t*>(xrgb->pixels)[5] & 0xFFFFFFu, kInk.pixel() & 0xFFFFFFu);
    }
    SDL_FreeSurface(s16);
    SDL_FreeSurface(abgr);
    SDL_FreeSurface(xrgb);
}

TEST(Canvas, DirtyRectanglesFarApartStayApartAndTheListKeepsItsLimit)
{
    std::vector<Rect> dirty;
    add_dirty(dirty, {0, 0, 10, 10}, 3);
    add_dirty(dirty, {100, 100, 10, 10}, 3);
    EXPECT_EQ(dirty.size(), 2u) << "a clock and a lamp apart are painted apart";
    // Touching the first merges with it only.
    add_dirty(dirty, {10, 0, 5, 5}, 3);
    ASSERT_EQ(dirty.size(), 2u);
    EXPECT_EQ(dirty[1], (Rect{0, 0, 15, 10}));
    // One that bridges both pulls them into one.
    add_dirty(dirty, {5, 5, 100, 100}, 3);
    ASSERT_EQ(dirty.size(), 1u);
    EXPECT_EQ(dirty[0], (Rect{0, 0, 110, 110}));
    // Full: the newcomer joins the nearest, and the count stays at the limit.
    dirty = {{0, 0, 10, 10}, {200, 0, 10, 10}, {400, 0, 10, 10}};
    add_dirty(dirty, {390, 20, 5, 5}, 3);
    ASSERT_EQ(dirty.size(), 3u);
    EXPECT_EQ(dirty.back(), (Rect{390, 0, 20, 25}));
}
