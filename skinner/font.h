#pragma once

#include "skinner/canvas.h"
#include "skinner/color.h"

#include <cstddef>
#include <string>

// Fonts of a skin and the one-line text they draw. A specification reads
// "height bold italic underline face", as "14 1 0 0 Tahoma": the height in
// points at 96 dots per inch of the skin's own pixels, so the em is
// height * scale * 96 / 72 screen pixels, truncated. Faces are found by
// fontconfig and drawn by SDL2_ttf, anti-aliased.
// Threads: main thread only; the font cache has no lock. A Font is a value:
// copies share the face, which leaves the cache with the last copy.
namespace skinner {

// Alignment of a line in its rectangle, as the skin names it.
enum HAlignment { kAlignLeft = 0, kAlignCenter = 1, kAlignRight = 2 };
enum VAlignment { kAlignTop = 0, kAlignVCenter = 1, kAlignBottom = 2 };
// "LEFT", "CENTER", "RIGHT" / "TOP", "VCENTER", "BOTTOM" set `field`; any
// other text leaves it and returns false.
bool parse_h_alignment(const std::wstring& name, int& field);
bool parse_v_alignment(const std::wstring& name, int& field);

class Font {
public:
    // An empty font for `scale` (1 to 4): draws nothing, measures (0, 0).
    explicit Font(int scale = 1);
    Font(const Font& other);
    Font& operator=(const Font& other);
    ~Font();

    // Gets or makes the font of the specification at this font's scale.
    // A specification that doesn't parse leaves the font empty (false).
    bool parse(const std::wstring& specification);

    // One line in the rectangle, aligned by HAlignment and VAlignment,
    // transparent background, cut at the rectangle and the canvas's clip.
    void draw_text(Canvas& canvas, Color color, const std::wstring& text, Point position, Point size,
                   int horizontal, int vertical) const;
    // The same, shortened to fit with "…" behind the kept start of the text.
    void draw_text_end_ellipsis(Canvas& canvas, Color color, const std::wstring& text, Point position,
                                Point size, int horizontal, int vertical) const;
    // The same, with "…" ahead of the kept end of the text (for paths).
    void draw_text_start_ellipsis(Canvas& canvas, Color color, const std::wstring& text, Point position,
                                  Point size, int horizontal, int vertical) const;
    // Width of the text (0 for empty text) and the line height, in pixels.
    Point text_size(const std::wstring& text) const;
    // From the top of a line to its baseline, in pixels.
    int ascent() const;

    bool is_empty() const { return rep_ == nullptr; }
    // Whether a face was found and opened; an empty or failed font draws nothing.
    bool is_usable() const;
    int scale() const { return scale_; }
    // The em in pixels; the handheld's font height was its negative.
    int em_height() const;
    // The face name as asked for (at most 31 characters) and the file used.
    std::wstring face_name() const;
    std::string face_file() const;
    bool bold() const;
    bool italic() const;
    bool underline() const;

    // Every font from now on is made from this file, whatever its face name
    // (pixel tests); an empty path goes back to fontconfig. Fonts already
    // in the cache keep their face.
    static void pin_face_file(const std::string& path);
    // The face file fontconfig finds best for a name, bold and italic.
    static std::string match_face_file(const std::wstring& name, bool bold, bool italic);
    static size_t cached_fonts();

    struct Rep;

private:
    void release();
    int width_of(const std::wstring& text) const;

    Rep* rep_ = nullptr;
    int scale_ = 1;
};

} // namespace skinner
