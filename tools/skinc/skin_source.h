#pragma once

#include "skinner/skin_description.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// The readable source of a skin, "skin.xml", as the skin compiler reads it.
//
//   <skin name="Default" version="Quillaphonics_500" devices="">
//     <native width="240" height="320"/>                up to 32
//     <kind name="Grid.Row"> properties </kind>
//     <form name="Main">
//       properties of the form node
//       <control id="btnOk" class="Button"> properties </control>
//     </form>
//   </skin>
//
// Properties, each with the key in `name`:
//   <int name="ZOrder" value="-3"/>               signed 32-bit; true/false are 1/0
//   <point name="Position" value="10 20"/>        two signed 16-bit numbers
//   <string name="Text" value="OK"/>
//   <color name="TextColor" value="#RRGGBB"/>     or #RRGGBBAA; alpha else 255
//   <picture name="Normal" file="button" area="x0 y0 x1 y1" band="x0 y0 x1 y1" stretch="1"/>
//       file: a picture file of the source folder without its extension;
//       area: first and last corner, default the whole image; band: the
//       stretched or tiled band, default the whole area; stretch 0 tiles.
//   <font name="Font" value="10 1 0 0 DejaVu Sans"/>  height bold italic underline face
//
// A form's controls become its item list in source order, each with its
// class as kind. Threads: any (no shared state).
namespace skinc {

struct Property {
    skinner::Table type = skinner::Table::kIntegers;
    std::wstring key;
    int line = 0;
    int32_t integer = 0;
    int16_t x = 0, y = 0;
    std::wstring text;
    std::array<uint8_t, 4> color{};
    // First corner, band start, band end, last corner: x, y each.
    std::array<uint16_t, 8> points{};
    uint8_t picture = 0; // index into SkinSource::pictures
    uint8_t stretch = 1;
    uint32_t font = 0; // index into SkinSource::fonts
};

struct Node {
    std::wstring name;
    std::wstring kind; // controls only: their class
    int line = 0;
    std::vector<Property> properties;
    std::vector<Node> controls; // forms only, in source order
};

struct SkinSource {
    std::wstring file; // as error messages name it
    std::wstring name;
    std::wstring version;
    std::wstring devices;
    std::vector<skinner::NativeSize> sizes;
    std::vector<std::wstring> pictures; // in order of first use
    std::vector<int> picture_lines;
    std::vector<std::wstring> fonts;    // specifications, in order of first use
    std::vector<Node> forms;
    std::vector<Node> kinds;
};

// A picture of the source folder by name, without extension: whether a file
// exists, and its size in pixels (-1 when the format's header doesn't say).
using PictureLookup = std::function<bool(const std::wstring& name, int* width, int* height)>;

// Parses the source text and checks that every control lies within its
// form (by the form's "Size", else the largest native size). On failure
// returns false with `error` as
// "FILE:LINE: what", FILE being `file`.
bool parse_skin_source(std::string_view xml, const std::wstring& file, const PictureLookup& pictures,
                       SkinSource& out, std::wstring& error);

// A font specification as the engine parses it: four integers, then after
// white space a face name.
bool font_spec_ok(std::wstring_view spec);

} // namespace skinc
