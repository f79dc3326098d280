#include "skinner/control_lcd.h"

#include "skinner/canvas.h"

#include <algorithm>

namespace skinner {

namespace {

struct Named {
    wchar_t c;
    const wchar_t* key;
};
constexpr Named kNamedSymbols[] = {
    {L',', L"SymbolComma"}, {L':', L"SymbolColon"}, {L'.', L"SymbolDot"},
    {L'-', L"SymbolDash"},  {L' ', L"SymbolSpace"},
};

} // namespace

ControlLCD::ControlLCD(Container* container, const std::wstring& name, Source source)
    : Control(container, name, source)
{
    read_lcd_properties();
}

void ControlLCD::read_lcd_properties()
{
    if (source() == kNoSkin)
        return;
    h_alignment_ = kAlignCenter;
    parse_h_alignment(get_string(L"HAlignment", L"CENTER"), h_alignment_);
    text_ = get_string(L"Text", text_);
    glyphs_.clear();
    auto add = [this](wchar_t c, const std::wstring& key) {
        Picture p = get_picture(key, Picture());
        if (!p.is_empty())
            glyphs_[c] = p;
    };
    for (wchar_t c = L'a'; c <= L'z'; ++c)
        add(c, std::wstring(L"Symbol") + c);
    for (wchar_t c = L'A'; c <= L'Z'; ++c)
        add(c, std::wstring(L"Symbol") + c);
    for (wchar_t c = L'0'; c <= L'9'; ++c)
        add(c, std::wstring(L"Symbol") + c);
    for (const Named& n : kNamedSymbols)
        add(n.c, n.key);
}

void ControlLCD::refresh()
{
    Control::refresh();
    read_lcd_properties();
    invalidate();
}

void ControlLCD::set_text(const std::wstring& text)
{
    if (text == text_)
        return;
    text_ = text;
    invalidate();
}

std::vector<std::wstring> ControlLCD::lines() const
{
    std::vector<std::wstring> out(1);
    for (wchar_t c : text_) {
        if (c == L'\n')
            out.emplace_back();
        else
            out.back() += c;
    }
    return out;
}

Point ControlLCD::line_size(const std::wstring& line) const
{
    Point size;
    for (wchar_t c : line) {
        auto it = glyphs_.find(c);
        if (it == glyphs_.end())
            continue;
        Point n = it->second.natural_size();
        size.x += n.x;
        size.y = std::max(size.y, n.y);
    }
    return size;
}

Point ControlLCD::text_size() const
{
    Point total;
    for (const std::wstring& line : lines()) {
        Point s = line_size(line);
        total.x = std::max(total.x, s.x);
        total.y += s.y;
    }
    return total;
}

Point ControlLCD::get_skin_size() const
{
    Point skin = Control::get_skin_size();
    Point text = text_size();
    return {std::max(skin.x, text.x), std::max(skin.y, text.y)};
}

void ControlLCD::paint(Canvas& canvas, Point clip_position, Point clip_size)
{
    canvas.push_clip(position(), size());
    int y = position().y;
    for (const std::wstring& line : lines()) {
        Point s = line_size(line);
        int x = position().x;
        if (h_alignment_ == kAlignCenter)
            x += (size().x - s.x) / 2;
        else if (h_alignment_ == kAlignRight)
            x += size().x - s.x;
        for (wchar_t c : line) {
            auto it = glyphs_.find(c);
            if (it == glyphs_.end())
                continue;
            Point n = it->second.natural_size();
            it->second.draw(canvas, {x, y}, n);
            x += n.x;
        }
        y += s.y;
    }
    canvas.pop_clip();
    Control::paint(canvas, clip_position, clip_size);
}

} // namespace skinner
