#pragma once

#include "tools/skinc/skin_source.h"

#include <functional>
#include <string>
#include <vector>

// Drawings of a skin's forms as SVG, made from the source alone, so that an
// SVG renderer gives a picture of each form that owes nothing to the engine:
// the form's background, then every visible control in z order with its
// picture (nine pieces, corners 1:1 and bands stretched or tiled) and its
// text (DejaVu Sans at the engine's pixel size), panels filled from their
// template form. Controls that draw more than a picture and a text line
// (progress bars, digits, scroll bars) appear only as that picture and
// text. Coordinates are screen pixels at the given scale (1 to 4).
// Each control is a group <g class="control" data-kind="CLASS"
// data-rect="X Y W H"> and each line of text an <svg class="text"
// data-rect="X Y W H"> clipping it, and each stretched piece of a picture
// an <svg class="stretch" data-rect=...>, with rectangles on the form, so
// that a reader can tell what was drawn where and how. Threads: any (no shared state).
namespace skinc {

// A picture file of the source folder by name without extension: the file's
// name with its extension and its bytes, false when there is none.
using PictureReader = std::function<bool(const std::wstring& name, std::wstring& file, std::string& bytes)>;

struct FormDrawing {
    std::wstring form;
    std::string svg;
};

// One drawing per form of the source, in source order. False with `error`
// as "FILE:LINE: what" when a picture can't be read.
bool draw_forms(const SkinSource& source, int scale, const PictureReader& pictures,
                std::vector<FormDrawing>& out, std::wstring& error);

} // namespace skinc
