#include "skinner/canvas.h"

#include "liba/fatal.h"

#include <SDL.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace skinner {

Rect intersect(const Rect& a, const Rect& b)
{
    // 64-bit ends, so that a huge size near the integer limit cannot wrap.
    const int64_t left = std::max<int64_t>(a.x, b.x);
    const int64_t top = std::max<int64_t>(a.y, b.y);
    const int64_t right = std::min<int64_t>(int64_t(a.x) + a.w, int64_t(b.x) + b.w);
    const int64_t bottom = std::min<int64_t>(int64_t(a.y) + a.h, int64_t(b.y) + b.h);
    if (right <= left || bottom <= top || a.empty() || b.empty())
        return Rect{int32_t(left), int32_t(top), 0, 0};
    return Rect{int32_t(left), int32_t(top), int32_t(right - left), int32_t(bottom - top)};
}

Rect bounding(const Rect& a, const Rect& b)
{
    const int32_t left = std::min(a.x, b.x), top = std::min(a.y, b.y);
    const int32_t right = std::max(a.x + a.w, b.x + b.w), bottom = std::max(a.y + a.h, b.y + b.h);
    return {left, top, right - left, bottom - top};
}

namespace {

bool touch(const Rect& a, const Rect& b)
{
    return a.x <= b.x + b.w && b.x <= a.x + a.w && a.y <= b.y + b.h && b.y <= a.y + a.h;
}

int64_t area(const Rect& r) { return int64_t(r.w) * r.h; }

} // namespace

void add_dirty(std::vector<Rect>& rects, Rect r, size_t limit)
{
    // A merge can reach rectangles the smaller one did not: go round again.
    for (bool merged = true; merged;) {
        merged = false;
        for (size_t i = 0; i < rects.size(); ++i) {
            if (touch(rects[i], r)) {
                r = bounding(rects[i], r);
                rects.erase(rects.begin() + std::ptrdiff_t(i));
                merged = true;
                break;
            }
        }
    }
    if (rects.size() < limit || rects.empty()) {
        rects.push_back(r);
        return;
    }
    size_t best = 0;
    int64_t best_growth = INT64_MAX;
    for (size_t i = 0; i < rects.size(); ++i) {
        const int64_t growth = area(bounding(rects[i], r)) - area(rects[i]);
        if (growth < best_growth) {
            best_growth = growth;
            best = i;
        }
    }
    const Rect grown = bounding(rects[best], r);
    rects.erase(rects.begin() + std::ptrdiff_t(best));
    add_dirty(rects, grown, limit);
}

namespace {

bool is_canvas_format(const SDL_Surface* s)
{
    const SDL_PixelFormat* f = s->format;
    return f->BytesPerPixel == 4 && f->Rmask == 0x00FF0000u && f->Gmask == 0x0000FF00u &&
           f->Bmask == 0x000000FFu;
}

} // namespace

CanvasImpl::CanvasImpl(SDL_Surface* surface, const Rect& clip) : surface_(surface)
{
    if (!surface_ || !is_canvas_format(surface_))
        liba::fatal(L"CanvasImpl", L"a canvas needs a 32-bit surface with red, green, blue in the low 24 bits");
    pixels_ = static_cast<uint32_t*>(surface_->pixels);
    stride_ = surface_->pitch / 4;
    clips_.push_back(intersect(Rect{0, 0, surface_->w, surface_->h}, clip));
}

void CanvasImpl::pop_clip()
{
    if (clips_.size() < 2)
        liba::fatal(L"CanvasImpl::pop_clip", L"more clips popped than pushed");
    clips_.pop_back();
}

Canvas::Canvas(SDL_Surface* surface, Point position, Point size)
    : impl_(surface, Rect{position.x, position.y, size.x, size.y})
{
}

void Canvas::fill_rect(Point position, Point size, Color color)
{
    const Rect r = intersect(impl_.clip(), Rect{position.x, position.y, size.x, size.y});
    if (r.empty())
        return;
    const uint32_t p = color.pixel();
    for (int32_t y = r.y; y < r.y + r.h; ++y) {
        uint32_t* row = impl_.pixels() + int64_t(y) * impl_.stride() + r.x;
        std::fill(row, row + r.w, p);
    }
}

void Canvas::line(Point from, Point to, Color color)
{
    // Bresenham over the longer axis; every step lands on one pixel.
    const Rect& clip = impl_.clip();
    const uint32_t p = color.pixel();
    int64_t x = from.x;
    int64_t y = from.y;
    const int64_t dx = std::abs(int64_t(to.x) - from.x);
    const int64_t dy = -std::abs(int64_t(to.y) - from.y);
    const int sx = from.x < to.x ? 1 : -1;
    const int sy = from.y < to.y ? 1 : -1;
    int64_t err = dx + dy;
    const int64_t steps = std::max(dx, -dy);
    for (int64_t i = 0; i < steps; ++i) {
        if (clip.contains(int32_t(x), int32_t(y)))
            impl_.pixels()[y * impl_.stride() + x] = p;
        const int64_t e2 = 2 * err;
        if (e2 >= dy) {
            err += dy;
            x += sx;
        }
        if (e2 <= dx) {
            err += dx;
            y += sy;
        }
    }
}

void Canvas::push_clip(Point position, Point size)
{
    impl_.push_clip(Rect{position.x, position.y, size.x, size.y});
}

void Canvas::pop_clip() { impl_.pop_clip(); }

int cursor_from_name(const std::wstring& name)
{
    // The handheld's help and application-starting cursors have no exact
    // stock twin here: the nearest ones stand in.
    static const struct {
        const wchar_t* name;
        SDL_SystemCursor cursor;
    } kCursors[] = {
        {L"ARROW", SDL_SYSTEM_CURSOR_ARROW},       {L"HAND", SDL_SYSTEM_CURSOR_HAND},
        {L"IBEAM", SDL_SYSTEM_CURSOR_IBEAM},       {L"SIZENESW", SDL_SYSTEM_CURSOR_SIZENESW},
        {L"SIZENS", SDL_SYSTEM_CURSOR_SIZENS},     {L"SIZENWSE", SDL_SYSTEM_CURSOR_SIZENWSE},
        {L"SIZEWE", SDL_SYSTEM_CURSOR_SIZEWE},     {L"WAIT", SDL_SYSTEM_CURSOR_WAIT},
        {L"SIZEALL", SDL_SYSTEM_CURSOR_SIZEALL},   {L"NO", SDL_SYSTEM_CURSOR_NO},
        {L"HELP", SDL_SYSTEM_CURSOR_ARROW},        {L"APPSTARTING", SDL_SYSTEM_CURSOR_WAITARROW},
    };
    for (const auto& c : kCursors)
        if (name == c.name)
            return c.cursor;
    return -1;
}

} // namespace skinner
