#pragma once

#include "skinner/control.h"

#include <map>
#include <string>
#include <vector>

// Text shown with one picture per character, like the digits of a display:
// letters, digits and a few signs each have their own picture ("SymbolA",
// "Symbol7", "SymbolColon", ...). Lines break at line feeds and are aligned
// one by one. Threads: the user-interface thread only. Points are form pixels.

namespace skinner {

class ControlLCD : public Control {
public:
    ControlLCD(Container* container, const std::wstring& name, Source source = kByName);

    void set_text(const std::wstring& text);
    const std::wstring& text() const { return text_; }

    // Sum of glyph widths by the tallest glyph; unknown characters add nothing.
    Point line_size(const std::wstring& line) const;
    // All lines: the widest by the sum of heights.
    Point text_size() const;
    // The larger of the skin size and the text's size per axis.
    Point get_skin_size() const override;
    void paint(Canvas& canvas, Point clip_position, Point clip_size) override;
    void refresh() override;

private:
    void read_lcd_properties();
    std::vector<std::wstring> lines() const;
    int h_alignment_ = kAlignCenter;
    std::wstring text_;
    std::map<wchar_t, Picture> glyphs_;
};

} // namespace skinner
