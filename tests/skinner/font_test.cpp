// Fonts: specifications, sizes, the face fontconfig finds, alignment and
// ellipsis. Pixel tests pin the face file to DejaVu Sans; text ink against
// rsvg-convert's is compared on whole forms, in form_svg_test.cpp.
#include "skinner/font.h"

#include "liba/text.h"
#include "tests/skinner/drawing_test_support.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

using namespace skinner;
using namespace drawing_test;

namespace {

constexpr uint32_t kWhite = 0xFFFFFFFFu;
constexpr Color kBlack{0, 0, 0, 0};

std::string dejavu_sans()
{
    std::string out;
    test::run("fc-match -f '%{file}' 'DejaVu Sans'", &out);
    return out;
}

// Pins the face for the pixel tests of one test and lets it go after.
struct PinnedFace {
    PinnedFace() { Font::pin_face_file(dejavu_sans()); }
    ~PinnedFace() { Font::pin_face_file(""); }
};

// The box of the pixels darker than mid grey; w = 0 when there are none.
Rect ink_box(const SDL_Surface* s)
{
    int left = s->w, top = s->h, right = -1, bottom = -1;
    for (int y = 0; y < s->h; ++y)
        for (int x = 0; x < s->w; ++x)
            if (((pixel_at(s, x, y) >> 8) & 0xFF) < 128) {
                left = std::min(left, x);
                right = std::max(right, x);
                top = std::min(top, y);
                bottom = std::max(bottom, y);
            }
    if (right < 0)
        return {};
    return {left, top, right - left + 1, bottom - top + 1};
}

Surface draw(const Font& font, const std::wstring& text, Point pos, Point size, int h, int v, int cw = 400,
             int ch = 120)
{
    Surface s = new_surface(cw, ch, kWhite);
    Canvas canvas(s.get(), {0, 0}, {cw, ch});
    font.draw_text(canvas, kBlack, text, pos, size, h, v);
    return s;
}

bool same_pixels(const SDL_Surface* a, const SDL_Surface* b)
{
    for (int y = 0; y < a->h; ++y)
        for (int x = 0; x < a->w; ++x)
            if (pixel_at(a, x, y) != pixel_at(b, x, y))
                return false;
    return true;
}

} // namespace

TEST(Font, ParsesSpecificationsAndSizesTheEm)
{
    Font f(2);
    EXPECT_TRUE(f.is_empty());
    EXPECT_EQ(f.text_size(L"abc"), (Point{0, 0}));
    ASSERT_TRUE(f.parse(L"14 1 0 0 Tahoma"));
    EXPECT_EQ(f.em_height(), 37); // 14 * 2 * 96 / 72 = 37.33
    EXPECT_TRUE(f.bold());
    EXPECT_FALSE(f.italic());
    EXPECT_FALSE(f.underline());
    EXPECT_EQ(f.face_name(), L"Tahoma");
    EXPECT_TRUE(f.is_usable());
    // The face is the one fontconfig's own tool picks for that name.
    std::string best;
    test::run("fc-match -f '%{file}' 'Tahoma:weight=bold'", &best);
    EXPECT_EQ(f.face_file(), best);
    EXPECT_TRUE(std::filesystem::exists(f.face_file()));

    const struct {
        const wchar_t* spec;
        int scale, em;
    } sizes[] = {{L"8 0 0 0 Arial", 1, 10}, {L"9 0 1 1 Arial", 3, 36}, {L"  10 0 0 0 Sans", 4, 53}, {L"7 0 0 0 X", 1, 9}};
    for (const auto& s : sizes) {
        Font g(s.scale);
        ASSERT_TRUE(g.parse(s.spec)) << liba::to_utf8(s.spec);
        EXPECT_EQ(g.em_height(), s.em) << liba::to_utf8(s.spec);
    }
    Font italic;
    ASSERT_TRUE(italic.parse(L"9 0 1 1 DejaVu Sans Mono"));
    EXPECT_TRUE(italic.italic());
    EXPECT_TRUE(italic.underline());
    EXPECT_EQ(italic.face_name(), L"DejaVu Sans Mono");

    const std::wstring long_name = L"ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789abcd"; // 40
    Font cut;
    ASSERT_TRUE(cut.parse(L"10 0 0 0 " + long_name));
    EXPECT_EQ(cut.face_name(), long_name.substr(0, 31));
    EXPECT_TRUE(cut.is_usable()); // an unknown face falls back to a sans face

    for (const wchar_t* bad : {L"", L"14", L"14 1 0 0", L"14 1 0 0 ", L"x 1 0 0 Tahoma", L"14 1 0 0Tahoma",
                               L"14,1,0,0 Tahoma", L"14 1 0 Tahoma", L"99999999999 0 0 0 A"}) {
        Font b(1);
        EXPECT_FALSE(b.parse(bad)) << liba::to_utf8(bad);
        EXPECT_TRUE(b.is_empty());
        EXPECT_EQ(b.text_size(L"abc"), (Point{0, 0}));
    }
    Font zero, vast(4);
    EXPECT_TRUE(zero.parse(L"0 0 0 0 Tahoma")); // parses, but no face has no size
    EXPECT_FALSE(zero.is_usable());
    EXPECT_TRUE(vast.parse(L"200 0 0 0 Tahoma")); // an em of 1066 pixels is refused
    EXPECT_FALSE(vast.is_usable());
    EXPECT_EQ(vast.text_size(L"abc"), (Point{0, 0}));
}

TEST(Font, FacesAreSharedBySpecificationAndScale)
{
    ASSERT_EQ(Font::cached_fonts(), 0u);
    {
        Font a(1), b(1), c(2);
        a.parse(L"10 0 0 0 Tahoma");
        b.parse(L"10 0 0 0 Tahoma");
        c.parse(L"10 0 0 0 Tahoma");
        EXPECT_EQ(Font::cached_fonts(), 2u);
        Font d = c;
        EXPECT_EQ(d.em_height(), 26);
        c = Font();
        EXPECT_EQ(Font::cached_fonts(), 2u);
        d.parse(L"nonsense");
        EXPECT_EQ(Font::cached_fonts(), 1u);
    }
    EXPECT_EQ(Font::cached_fonts(), 0u);
}

TEST(Font, AlignsInTheRectangleAndCutsAtItsEdges)
{
    PinnedFace pinned;
    Font f(2);
    ASSERT_TRUE(f.parse(L"9 0 0 0 Tahoma"));
    const std::wstring text = L"Align me";
    const Point extent = f.text_size(text);
    EXPECT_EQ(f.text_size(L"").x, 0);
    EXPECT_EQ(f.text_size(L"").y, extent.y);
    EXPECT_GT(extent.x, f.text_size(L"Align").x);
    const Point pos{30, 20}, size{300, 80};
    const Rect base = ink_box(draw(f, text, pos, size, kAlignLeft, kAlignTop).get());
    ASSERT_GT(base.w, 0);
    for (int h = 0; h < 3; ++h)
        for (int v = 0; v < 3; ++v) {
            const int dx = h == 0 ? 0 : h == 1 ? (size.x - extent.x) / 2 : size.x - extent.x;
            const int dy = v == 0 ? 0 : v == 1 ? (size.y - extent.y) / 2 : size.y - extent.y;
            const Rect r = ink_box(draw(f, text, pos, size, h, v).get());
            EXPECT_EQ(r, (Rect{base.x + dx, base.y + dy, base.w, base.h})) << "h " << h << " v " << v;
        }
    // Too wide and too tall for the rectangle: no ink outside it, nor
    // outside the canvas's clip.
    const Rect cut = ink_box(draw(f, text, {50, 30}, {40, 12}, kAlignCenter, kAlignVCenter).get());
    EXPECT_GE(cut.x, 50);
    EXPECT_LE(cut.x + cut.w, 90);
    EXPECT_GE(cut.y, 30);
    EXPECT_LE(cut.y + cut.h, 42);
    Surface whole = draw(f, text, pos, size, kAlignLeft, kAlignTop);
    Surface s = new_surface(400, 120, kWhite);
    Canvas canvas(s.get(), {0, 0}, {400, 120});
    canvas.push_clip({0, 0}, {60, 120});
    f.draw_text(canvas, kBlack, text, pos, size, kAlignLeft, kAlignTop);
    for (int y = 0; y < 120; ++y)
        for (int x = 0; x < 400; ++x)
            ASSERT_EQ(pixel_at(s.get(), x, y), x < 60 ? pixel_at(whole.get(), x, y) : kWhite) << x << "," << y;
    // Empty text and an empty font draw nothing.
    EXPECT_EQ(ink_box(draw(f, L"", pos, size, 0, 0).get()).w, 0);
    EXPECT_EQ(ink_box(draw(Font(), text, pos, size, 0, 0).get()).w, 0);
    // Underline reaches below the letters' ink; bold is wider.
    Font under(2), bold(2);
    under.parse(L"9 0 0 1 Tahoma");
    bold.parse(L"9 1 0 0 Tahoma");
    EXPECT_GT(ink_box(draw(under, L"ace", pos, size, 0, 0).get()).h, ink_box(draw(f, L"ace", pos, size, 0, 0).get()).h);
    EXPECT_GT(bold.text_size(text).x, extent.x);
}

TEST(Font, EllipsisKeepsWhatFits)
{
    PinnedFace pinned;
    Font f(1);
    ASSERT_TRUE(f.parse(L"10 0 0 0 Tahoma"));
    const std::wstring text = L"/music/recordings/2024/interview with the mayor.wav";
    const std::wstring dots = L"\u2026";
    const int e = f.text_size(dots).x;
    const int full = f.text_size(text).x;
    const Point pos{4, 10};
    for (int available : {1, e, 2 * e + 3, 60, 150, full - 1, full, full + 1}) {
        const Point size{available, 30};
        // The longest start with room for the ellipsis, found by trying every length.
        size_t keep = 0;
        for (size_t n = 0; n <= text.size(); ++n)
            if (f.text_size(text.substr(0, n)).x + e < available)
                keep = n;
        // The shortest end that, with twice the ellipsis, reaches the width.
        size_t tail = text.size();
        for (size_t n = text.size() + 1; n-- > 0;)
            if (f.text_size(text.substr(text.size() - n)).x + 2 * e >= available)
                tail = n;
        const std::wstring end_form = available > full ? text : text.substr(0, keep) + dots;
        const std::wstring start_form = available > full ? text : dots + text.substr(text.size() - tail);

        Surface end = new_surface(400, 50, kWhite), start = new_surface(400, 50, kWhite);
        Canvas ce(end.get(), {0, 0}, {400, 50}), cs(start.get(), {0, 0}, {400, 50});
        f.draw_text_end_ellipsis(ce, kBlack, text, pos, size, kAlignLeft, kAlignTop);
        f.draw_text_start_ellipsis(cs, kBlack, text, pos, size, kAlignLeft, kAlignTop);
        EXPECT_TRUE(same_pixels(end.get(), draw(f, end_form, pos, size, 0, 0, 400, 50).get()))
            << "end, width " << available << ": " << liba::to_utf8(end_form);
        EXPECT_TRUE(same_pixels(start.get(), draw(f, start_form, pos, size, 0, 0, 400, 50).get()))
            << "start, width " << available << ": " << liba::to_utf8(start_form);
    }
}
