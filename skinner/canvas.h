#pragma once

#include "liba/nocopy.h"
#include "skinner/color.h"

#include <string>
#include <vector>

struct SDL_Surface;

// The drawing surface of the engine: a 32-bit SDL surface (0xAARRGGBB words,
// that is blue, green, red, alpha in memory) with a stack of clip rectangles.
// Threads: main thread only. A canvas borrows its surface; the caller keeps
// the surface alive and locked (where SDL needs locking) while it draws.
// All coordinates are surface pixels.
namespace skinner {

// A rectangle of surface pixels, half-open: [x, x + w) by [y, y + h).
struct Rect {
    int32_t x = 0;
    int32_t y = 0;
    int32_t w = 0;
    int32_t h = 0;

    bool operator==(const Rect&) const = default;
    bool empty() const { return w < 1 || h < 1; }
    bool contains(int32_t px, int32_t py) const
    {
        return px >= x && py >= y && px - x < w && py - y < h;
    }
};

// The intersection; an empty one is a zero-size rectangle at the corner
// where it would have begun.
Rect intersect(const Rect& a, const Rect& b);
// The smallest rectangle holding both.
Rect bounding(const Rect& a, const Rect& b);
// Adds `r` to a list of at most `limit` rectangles: merged with every one it
// overlaps or touches, else appended, else (the list full) merged with the
// one whose bounding rectangle grows least.
void add_dirty(std::vector<Rect>& rects, Rect r, size_t limit);

// What a canvas holds: the surface and the clip stack, whose top is always
// inside the surface.
class CanvasImpl : liba::Nocopy {
public:
    CanvasImpl(SDL_Surface* surface, const Rect& clip);

    SDL_Surface* surface() const { return surface_; }
    uint32_t* pixels() const { return pixels_; }
    // Pixels from one row to the next.
    int32_t stride() const { return stride_; }
    const Rect& clip() const { return clips_.back(); }
    void push_clip(const Rect& r) { clips_.push_back(intersect(clips_.back(), r)); }
    void pop_clip();

private:
    SDL_Surface* surface_;
    uint32_t* pixels_;
    int32_t stride_;
    std::vector<Rect> clips_;
};

class Canvas : liba::Nocopy {
public:
    // `surface` must be 32 bits per pixel with red in bits 16..23, green in
    // 8..15 and blue in 0..7 (SDL's ARGB8888 or RGB888): anything else is a
    // fault of the caller and fatal. The initial clip is (position, size)
    // within the surface.
    Canvas(SDL_Surface* surface, Point position, Point size);

    // Solid fill of the rectangle, within the clip.
    void fill_rect(Point position, Point size, Color color);
    // One pixel wide, from `from` up to but not including `to`, as a pen
    // that stops there: a line from (0, y) to (w, y) covers w pixels.
    void line(Point from, Point to, Color color);
    // Narrows the clip to its intersection with the rectangle; pop_clip
    // restores the one before. Popping the initial clip is fatal.
    void push_clip(Point position, Point size);
    void pop_clip();

    Rect clip() const { return impl_.clip(); }
    CanvasImpl& impl() { return impl_; }

private:
    CanvasImpl impl_;
};

// The stock cursor for one of the names "ARROW", "HAND", "IBEAM",
// "SIZENESW", "SIZENS", "SIZENWSE", "SIZEWE", "WAIT", "SIZEALL", "NO",
// "HELP", "APPSTARTING": an SDL_SystemCursor value, or -1 for any other
// text (no cursor).
int cursor_from_name(const std::wstring& name);

} // namespace skinner
