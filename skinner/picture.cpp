#include "skinner/picture.h"

#include "os/log.h"
#include "skinner/image_loader.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>
#include <vector>

namespace skinner {

// ---- The bitmap cache: one record per (scale, archive path, name), counted
// by the pictures that refer to it. The map itself lives while any Picture
// does, empty ones included.

struct Picture::Entry {
    LoadedBitmap bitmap;
    int scale = 1;
    std::wstring path;
    std::wstring name;
    int references = 0;
};

namespace {

using CacheKey = std::tuple<int, std::wstring, std::wstring>;
using Cache = std::map<CacheKey, Picture::Entry>;

Cache* g_cache = nullptr;
size_t g_pictures = 0; // live Picture objects

void picture_born()
{
    if (g_pictures++ == 0)
        g_cache = new Cache;
}

void picture_died()
{
    if (--g_pictures == 0) {
        delete g_cache;
        g_cache = nullptr;
    }
}

constexpr uint32_t kRgb = 0x00FFFFFFu;
constexpr uint32_t kOpaque = 0xFF000000u;

// ---- Pixel work. A target is a block of 32-bit pixels whose first pixel
// sits at `origin` in canvas coordinates; nothing outside `clip` is touched.
struct Target {
    uint32_t* pixels;
    int32_t stride;
    Point origin;
    Rect clip;
};

struct Source {
    const SDL_Surface* colour;
    const SDL_Surface* mask; // a "_1" mask, or null for a plain copy
};

// How target columns (or rows) find their source column: 1:1, repeated
// from the first, spread evenly, or all from one.
enum class Map { copy, tile, stretch, fill };

// Source coordinates for the target span [start, start + length) clipped
// to [lo, hi); -1 where the source has no pixel.
void map_axis(std::vector<int32_t>& out, Map map, int32_t start, int32_t length, int32_t lo,
              int32_t hi, int32_t from, int32_t from_length, int32_t source_size)
{
    out.clear();
    for (int32_t t = std::max(start, lo); t < std::min<int64_t>(int64_t(start) + length, hi); ++t) {
        const int64_t i = t - start;
        int64_t s = from;
        switch (map) {
        case Map::copy: s = from + i; break;
        case Map::tile: s = from + i % from_length; break;
        case Map::stretch: s = from + i * from_length / length; break;
        case Map::fill: break;
        }
        out.push_back(s >= 0 && s < source_size ? int32_t(s) : -1);
    }
}

// Copies the source rectangle `from` to the target rectangle `to` under the
// two maps. A fill through a mask skips a source pixel whose mask isn't
// white; any other copy through a mask ORs the mask onto the target and
// ANDs the colour onto that, which leaves the target where the mask is
// black and the colour white.
void blit(const Target& target, const Source& source, const Rect& to, const Rect& from, Map mx, Map my)
{
    if (to.empty() || from.empty())
        return;
    const Rect area = intersect(target.clip, to);
    if (area.empty())
        return;
    static std::vector<int32_t> xs, ys;
    map_axis(xs, mx, to.x, to.w, area.x, area.x + area.w, from.x, from.w, source.colour->w);
    map_axis(ys, my, to.y, to.h, area.y, area.y + area.h, from.y, from.h, source.colour->h);
    const bool fill = mx == Map::fill || my == Map::fill;
    const auto* colour = static_cast<const uint32_t*>(source.colour->pixels);
    const int32_t colour_stride = source.colour->pitch / 4;
    const auto* mask = source.mask ? static_cast<const uint32_t*>(source.mask->pixels) : nullptr;
    const int32_t mask_stride = source.mask ? source.mask->pitch / 4 : 0;
    // A stretched, tiled or filled band shows each source row on many target
    // rows; without a mask, and with every column taken from the source,
    // such a row is mapped once and copied on.
    static std::vector<int32_t> first_target_row;
    const bool reuse_rows = !mask && std::find(xs.begin(), xs.end(), -1) == xs.end();
    if (reuse_rows)
        first_target_row.assign(size_t(std::max(from.h, 1)), -1);
    for (size_t j = 0; j < ys.size(); ++j) {
        if (ys[j] < 0)
            continue;
        uint32_t* out = target.pixels + int64_t(area.y + int32_t(j) - target.origin.y) * target.stride +
                        (area.x - target.origin.x);
        const uint32_t* in = colour + int64_t(ys[j]) * colour_stride;
        if (!mask) {
            if (reuse_rows) {
                // A source row shown before comes out as it did then.
                int32_t& first = first_target_row[size_t(ys[j] - from.y)];
                if (first >= 0) {
                    std::memcpy(out, out - int64_t(int32_t(j) - first) * target.stride, xs.size() * sizeof *out);
                    continue;
                }
                first = int32_t(j);
            }
            for (size_t i = 0; i < xs.size(); ++i)
                if (xs[i] >= 0)
                    out[i] = in[xs[i]] | kOpaque;
            continue;
        }
        const uint32_t* m = mask + int64_t(ys[j]) * mask_stride;
        for (size_t i = 0; i < xs.size(); ++i) {
            if (xs[i] < 0)
                continue;
            const uint32_t mp = m[xs[i]] & kRgb;
            if (fill) {
                if (mp == kRgb)
                    out[i] = in[xs[i]] | kOpaque;
            } else {
                out[i] = ((out[i] | mp) & in[xs[i]]) | kOpaque;
            }
        }
    }
}

// A corner shrinks when the target is smaller than both corners together:
// the excess is taken evenly, the odd pixel from the far side.
void shrink_corners(int32_t& near, int32_t& far, int32_t size)
{
    const int64_t e = int64_t(near) + far - size;
    if (e <= 0)
        return;
    far -= int32_t((e + 1) / 2);
    near -= int32_t(e / 2);
    if (near < 0) {
        far += near;
        near = 0;
    }
    if (far < 0) {
        near += far;
        far = 0;
    }
}

struct Geometry {
    Point a, b, c, d;
    bool stretch;
    int32_t s; // the bitmap's scale: one unit of a band
};

// Draws the nine parts of the picture to `rect`.
void compose(const Target& target, const Source& src, const Rect& rect, const Geometry& g)
{
    const int32_t x0 = rect.x, y0 = rect.y, w = rect.w, h = rect.h;
    if (w < 1 || h < 1)
        return;
    const Point a = g.a, b = g.b, c = g.c, d = g.d;
    const int32_t x1 = x0 + w, y1 = y0 + h;
    int32_t left = b.x - a.x, right = d.x - c.x, top = b.y - a.y, bottom = d.y - c.y;
    shrink_corners(left, right, w);
    shrink_corners(top, bottom, h);
    const Map band = g.stretch ? Map::stretch : Map::tile;
    auto copy = [&](Rect to, Point from) {
        if (to.w >= 1 && to.h >= 1)
            blit(target, src, to, Rect{from.x, from.y, to.w, to.h}, Map::copy, Map::copy);
    };
    copy(Rect{x0, y0, left, top}, a);
    copy(Rect{x1 - right, y0, right, top}, Point{d.x - right, a.y});
    copy(Rect{x0, y1 - bottom, left, bottom}, Point{a.x, d.y - bottom});
    copy(Rect{x1 - right, y1 - bottom, right, bottom}, Point{d.x - right, d.y - bottom});

    const int32_t bw = c.x - b.x, bh = c.y - b.y;
    const int32_t cw = w - left - right, ch = h - top - bottom;
    // Side edges: one unit wide and one unit of band high are lines in the
    // colours of the band's first source row.
    auto side = [&](int32_t x, int32_t width, int32_t from_x) {
        const Rect to{x, y0 + top, width, ch};
        const Rect from{from_x, a.y + top, width, bh};
        if (width == g.s && bh == g.s)
            blit(target, src, to, from, Map::copy, Map::fill);
        else
            blit(target, src, to, from, band, band);
    };
    side(x0, left, a.x);
    side(x1 - right, right, d.x - right);
    // Top and bottom edges: rows each filled from one source pixel.
    auto edge = [&](int32_t y, int32_t height, int32_t from_y) {
        const Rect to{x0 + left, y, cw, height};
        const Rect from{a.x + left, from_y, bw, height};
        if (bw == g.s && height == g.s)
            blit(target, src, to, from, Map::fill, Map::copy);
        else
            blit(target, src, to, from, band, band);
    };
    edge(y0, top, a.y);
    edge(y1 - bottom, bottom, d.y - bottom);
    // Centre: most often one colour, filled from the band's first pixel.
    const Rect centre{x0 + left, y0 + top, cw, ch};
    if (bw == g.s && bh == g.s)
        blit(target, src, centre, Rect{b.x, b.y, 1, 1}, Map::fill, Map::fill);
    else
        blit(target, src, centre, Rect{b.x, b.y, bw, bh}, band, band);
}

// dst + (src - dst) * alpha / 256 per channel, the red-blue pair and green
// each in one 32-bit step, keeping the low 8 bits of every channel.
uint32_t blend(uint32_t src, uint32_t dst, uint32_t alpha)
{
    const uint32_t rb_src = src & 0x00FF00FFu, rb_dst = dst & 0x00FF00FFu;
    const uint32_t g_src = src & 0x0000FF00u, g_dst = dst & 0x0000FF00u;
    const uint32_t rb = (((rb_src - rb_dst) * alpha + (rb_dst << 8)) >> 8) & 0x00FF00FFu;
    const uint32_t g = (((g_src - g_dst) * alpha + (g_dst << 8)) >> 8) & 0x0000FF00u;
    return kOpaque | rb | g;
}

// Per axis: the bitmap coordinate that target offset `o` shows, for a
// picture spanning `size`; the band maps as the drawing does when the
// corners have their full size.
int64_t map_point(int64_t o, int64_t size, int64_t a, int64_t b, int64_t c, int64_t d, bool stretch)
{
    const int64_t l = b - a;
    if (o <= l)
        return a + o;
    const int64_t r = size - d + c;
    if (o >= r)
        return c + (o - r);
    if (stretch)
        return b + (o - l) * (c - b) / (r - l);
    if (c == b)
        return 0;
    return b + (o - l) % (c - b);
}

} // namespace

// ---- Picture

Picture::Picture() { picture_born(); }

Picture::Picture(const std::wstring& archive_path, const std::wstring& name, bool stretch, int scale)
    : stretch_(stretch)
{
    picture_born();
    auto [it, inserted] = g_cache->try_emplace(CacheKey{scale, archive_path, name});
    entry_ = &it->second;
    if (inserted) {
        entry_->scale = scale;
        entry_->path = archive_path;
        entry_->name = name;
        std::unique_ptr<ImageStore> store = open_image_store(archive_path);
        entry_->bitmap = load_bitmap(*store, name, scale);
        if (!entry_->bitmap.colour)
            os::log() << "Picture: can't load {" << name << "} of " << archive_path << "\n";
    }
    ++entry_->references;
    band_end_ = last_corner_ = entry_->bitmap.size;
}

Picture::Picture(const Picture& other)
    : entry_(other.entry_), first_corner_(other.first_corner_), band_start_(other.band_start_),
      band_end_(other.band_end_), last_corner_(other.last_corner_), stretch_(other.stretch_)
{
    picture_born();
    if (entry_)
        ++entry_->references;
}

Picture& Picture::operator=(const Picture& other)
{
    if (this == &other)
        return *this;
    if (other.entry_)
        ++other.entry_->references;
    release();
    entry_ = other.entry_;
    first_corner_ = other.first_corner_;
    band_start_ = other.band_start_;
    band_end_ = other.band_end_;
    last_corner_ = other.last_corner_;
    stretch_ = other.stretch_;
    return *this;
}

Picture::~Picture()
{
    release();
    picture_died();
}

void Picture::release()
{
    if (entry_ && --entry_->references == 0)
        g_cache->erase(CacheKey{entry_->scale, entry_->path, entry_->name});
    entry_ = nullptr;
}

bool Picture::is_valid() const { return entry_ && entry_->bitmap.colour; }
Point Picture::bitmap_size() const { return is_valid() ? entry_->bitmap.size : Point{}; }
int Picture::scale() const { return entry_ ? entry_->scale : 1; }
bool Picture::has_mask() const { return is_valid() && entry_->bitmap.mask && !entry_->bitmap.alpha; }
bool Picture::has_alpha_map() const { return is_valid() && entry_->bitmap.alpha; }
size_t Picture::cached_bitmaps() { return g_cache ? g_cache->size() : 0; }

void Picture::draw(Canvas& canvas, Point position, Point size) const
{
    if (!is_valid() || size.x < 1 || size.y < 1)
        return;
    CanvasImpl& impl = canvas.impl();
    const Rect rect{position.x, position.y, size.x, size.y};
    // Nothing outside the rectangle is touched, whatever the four points say.
    const Rect area = intersect(impl.clip(), rect);
    if (area.empty())
        return;
    const LoadedBitmap& bmp = entry_->bitmap;
    const Geometry g{first_corner_, band_start_, band_end_, last_corner_, stretch_, entry_->scale};
    if (!bmp.alpha) {
        const Target target{impl.pixels(), impl.stride(), Point{0, 0}, area};
        compose(target, Source{bmp.colour.get(), bmp.mask.get()}, rect, g);
        return;
    }
    // An alpha map: colour and map are composed at the target size, then
    // laid over what is there.
    // The buffers stay between draws: a screen-sized picture would otherwise
    // map fresh pages of memory on every paint.
    static std::vector<uint32_t> colour, alpha;
    colour.assign(size_t(area.w) * size_t(area.h), 0);
    alpha.assign(colour.size(), 0);
    compose(Target{colour.data(), area.w, Point{area.x, area.y}, area}, Source{bmp.colour.get(), nullptr},
            rect, g);
    compose(Target{alpha.data(), area.w, Point{area.x, area.y}, area}, Source{bmp.mask.get(), nullptr}, rect,
            g);
    for (int32_t y = 0; y < area.h; ++y) {
        uint32_t* out = impl.pixels() + int64_t(area.y + y) * impl.stride() + area.x;
        const uint32_t* c = colour.data() + size_t(y) * size_t(area.w);
        const uint32_t* m = alpha.data() + size_t(y) * size_t(area.w);
        for (int32_t x = 0; x < area.w; ++x)
            out[x] = blend(c[x] & kRgb, out[x], m[x] & 0xFFu);
    }
}

bool Picture::is_transparent_at(Point point, Point position, Point size) const
{
    if (!is_valid() || !entry_->bitmap.mask)
        return false;
    const Rect rect{position.x, position.y, size.x, size.y};
    if (!rect.contains(point.x, point.y))
        return false;
    const int64_t mx = map_point(point.x - position.x, size.x, first_corner_.x, band_start_.x, band_end_.x,
                                 last_corner_.x, stretch_);
    const int64_t my = map_point(point.y - position.y, size.y, first_corner_.y, band_start_.y, band_end_.y,
                                 last_corner_.y, stretch_);
    const SDL_Surface* mask = entry_->bitmap.mask.get();
    if (mx < 0 || my < 0 || mx >= mask->w || my >= mask->h)
        return false;
    const auto* row = static_cast<const uint32_t*>(mask->pixels) + my * (mask->pitch / 4);
    return (row[mx] & kRgb) == 0;
}

} // namespace skinner
