#pragma once

#include "skinner/canvas.h"
#include "skinner/color.h"

#include <cstddef>
#include <string>

// A picture of a skin: a reference into the process-wide bitmap cache and
// the nine-slice geometry that says how it fills a rectangle. Four points
// in bitmap pixels: first corner a, band start b, band end c, last corner d.
// The parts left of / above b and right of / below c are corners, copied
// 1:1; the band between is stretched or tiled.
// Threads: main thread only; the cache has no lock. A Picture is a value:
// copies share the bitmap, which leaves the cache with the last copy.
namespace skinner {

class Picture {
public:
    // An empty picture: draws nothing, is transparent nowhere.
    Picture();
    // Finds or loads the bitmap `name` of the skin at `archive_path` for
    // `scale` (1 to 4) and spans the whole of it. A bitmap that can't be
    // found leaves a picture that is not valid and draws nothing.
    Picture(const std::wstring& archive_path, const std::wstring& name, bool stretch, int scale);
    Picture(const Picture& other);
    Picture& operator=(const Picture& other);
    ~Picture();

    // Draws the picture to the rectangle, within the canvas's clip.
    void draw(Canvas& canvas, Point position, Point size) const;
    // For the picture drawn at (position, size): whether the bitmap pixel
    // that the point maps to is transparent in its mask or alpha map.
    // Outside the rectangle, without a mask, or empty: false.
    bool is_transparent_at(Point point, Point position, Point size) const;

    Point natural_size() const { return last_corner_ - first_corner_; }
    Point smallest_size() const { return (last_corner_ - band_end_) + (band_start_ - first_corner_); }

    Point first_corner() const { return first_corner_; }
    Point band_start() const { return band_start_; }
    Point band_end() const { return band_end_; }
    Point last_corner() const { return last_corner_; }
    bool stretch() const { return stretch_; }
    void set_first_corner(Point p) { first_corner_ = p; }
    void set_band_start(Point p) { band_start_ = p; }
    void set_band_end(Point p) { band_end_ = p; }
    void set_last_corner(Point p) { last_corner_ = p; }
    void set_stretch(bool stretch) { stretch_ = stretch; }

    // Whether the picture refers to a bitmap at all, and whether that loaded.
    bool is_empty() const { return entry_ == nullptr; }
    bool is_valid() const;
    // The bitmap's size in pixels at its scale; (0, 0) when not valid.
    Point bitmap_size() const;
    // The scale the bitmap was loaded for; 1 for an empty picture.
    int scale() const;
    // Whether the bitmap has a "_1" mask, or an "_8" alpha map.
    bool has_mask() const;
    bool has_alpha_map() const;

    // Bitmaps held in the cache now, for tests of sharing.
    static size_t cached_bitmaps();

    struct Entry;

private:
    void release();

    Entry* entry_ = nullptr;
    Point first_corner_;
    Point band_start_;
    Point band_end_;
    Point last_corner_;
    bool stretch_ = false;
};

} // namespace skinner
