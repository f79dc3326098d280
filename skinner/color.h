#pragma once

#include <cstdint>

// The value types of drawing: a colour as a skin stores it and the signed
// pair that is both a point and a size. Numbers are screen pixels.
// Threads: plain values, usable anywhere.
namespace skinner {

// Red, green, blue, alpha, in the order of the skin's colour records.
// Drawing ignores alpha.
struct Color {
    uint8_t red = 0;
    uint8_t green = 0;
    uint8_t blue = 0;
    uint8_t alpha = 0;

    bool operator==(const Color&) const = default;

    // As one pixel of a 32-bit surface (0xAARRGGBB, alpha set to opaque).
    uint32_t pixel() const
    {
        return 0xFF000000u | (uint32_t(red) << 16) | (uint32_t(green) << 8) | uint32_t(blue);
    }
    static Color from_pixel(uint32_t p)
    {
        return Color{uint8_t(p >> 16), uint8_t(p >> 8), uint8_t(p), uint8_t(p >> 24)};
    }
};

// A point or a size in screen pixels.
struct Point {
    int32_t x = 0;
    int32_t y = 0;

    bool operator==(const Point&) const = default;
    Point operator+(Point o) const { return {x + o.x, y + o.y}; }
    Point operator-(Point o) const { return {x - o.x, y - o.y}; }
};

} // namespace skinner
