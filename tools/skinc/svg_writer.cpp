#include "tools/skinc/svg_writer.h"

#include "liba/text.h"
#include "tools/skinc/picture_files.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <set>

namespace skinc {

namespace {

// A control that names no font draws in its form's own font, bold 14.
constexpr const wchar_t* kFormFont = L"14 1 0 0 Tahoma";
// The panel templates nest at most this deep, as in the engine.
constexpr int kDeepestPanel = 8;
// Panels that show their own form over and over would multiply without end
// within that depth; a drawing stops at this many controls.
constexpr int kMostControls = 10000;

// DejaVu Sans's vertical metrics in font units: the engine centres a line
// of ascender plus descender, and SVG places text by its baseline.
constexpr double kUnitsPerEm = 2048, kAscender = 1901, kDescender = 483;

struct Box {
    int32_t x = 0, y = 0, w = 0, h = 0;
};

// A run of equal pixels in a row of a picture, in drawing units.
struct Run {
    int32_t x, y, w, h;
    uint32_t rgb;
};

struct Bitmap {
    std::string id; // empty: no such picture
    int32_t w = 0, h = 0;
    std::vector<Run> runs; // a PNG's pixels; empty for an embedded image
};

std::string num(int64_t v) { return std::to_string(v); }

std::string attr(const char* name, int64_t v) { return std::string(" ") + name + "=\"" + num(v) + "\""; }

std::string box_attrs(const Box& b) { return attr("x", b.x) + attr("y", b.y) + attr("width", b.w) + attr("height", b.h); }

std::string escape(const std::wstring& text)
{
    std::string out;
    for (char c : liba::to_utf8(text)) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

// Each character in a span of its own: the engine sets text unkerned, and
// an SVG renderer kerns only within a span.
std::string unkerned(const std::wstring& text)
{
    std::string out;
    for (wchar_t c : text)
        out += "<tspan>" + escape(std::wstring(1, c)) + "</tspan>";
    return out;
}

std::string base64(const std::string& bytes)
{
    static const char* digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t n = uint32_t(uint8_t(bytes[i])) << 16;
        if (i + 1 < bytes.size())
            n |= uint32_t(uint8_t(bytes[i + 1])) << 8;
        if (i + 2 < bytes.size())
            n |= uint8_t(bytes[i + 2]);
        out += digits[n >> 18 & 63];
        out += digits[n >> 12 & 63];
        out += i + 1 < bytes.size() ? digits[n >> 6 & 63] : '=';
        out += i + 2 < bytes.size() ? digits[n & 63] : '=';
    }
    return out;
}

// A PNG picture as runs of equal pixels in a row, each pixel `factor`
// units square: drawn with crisp edges, a stretch of them takes for every
// screen pixel the picture pixel under its centre, as a nearest-pixel
// resize does. Alpha plays no part, as in the engine. Empty when the bytes
// don't decode.
std::vector<Run> png_runs(const std::string& bytes, int factor)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()))
        return {};
    image.format = PNG_FORMAT_RGBA;
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr)) {
        png_image_free(&image);
        return {};
    }
    std::vector<Run> out;
    const uint32_t w = image.width;
    auto rgb = [&](uint32_t x, uint32_t y) {
        const uint8_t* p = &pixels[(size_t(y) * w + x) * 4];
        return uint32_t(p[0]) << 16 | uint32_t(p[1]) << 8 | p[2];
    };
    for (uint32_t y = 0; y < image.height; ++y) {
        for (uint32_t x = 0; x < w;) {
            uint32_t end = x + 1;
            while (end < w && rgb(end, y) == rgb(x, y))
                ++end;
            out.push_back({int32_t(x) * factor, int32_t(y) * factor, int32_t(end - x) * factor, factor, rgb(x, y)});
            x = end;
        }
    }
    return out;
}

// The runs that reach into `box`, as rectangles. A piece draws only these:
// an atlas sheet holds far more than one piece shows, and a renderer would
// otherwise draw the whole sheet for every piece.
std::string rects_within(const std::vector<Run>& runs, int32_t x, int32_t y, int32_t w, int32_t h)
{
    std::string out;
    for (const Run& r : runs) {
        if (r.y + r.h <= y || r.y >= y + h || r.x + r.w <= x || r.x >= x + w)
            continue;
        char fill[8];
        std::snprintf(fill, sizeof fill, "#%06x", unsigned(r.rgb));
        out += "<rect" + attr("x", r.x) + attr("y", r.y) + attr("width", r.w) + attr("height", r.h) + " fill=\"" +
               fill + "\"/>";
    }
    return out;
}

std::string mime_of(const std::wstring& file)
{
    std::wstring e = liba::to_lower(file.substr(file.rfind(L'.') + 1));
    return e == L"jpg" ? "image/jpeg" : "image/" + liba::to_utf8(e);
}

const Property* find(const Node& node, skinner::Table type, const std::wstring& key)
{
    for (const Property& p : node.properties)
        if (p.type == type && p.key == key)
            return &p;
    return nullptr;
}

int32_t integer(const Node& node, const wchar_t* key, int32_t def)
{
    const Property* p = find(node, skinner::Table::kIntegers, key);
    return p ? p->integer : def;
}

std::wstring text(const Node& node, const wchar_t* key, const std::wstring& def)
{
    const Property* p = find(node, skinner::Table::kStrings, key);
    return p ? p->text : def;
}

// Alignment names to 0 (left, top), 1 (centre) or 2 (right, bottom).
int alignment(const std::wstring& name, const wchar_t* names[3], int def)
{
    for (int i = 0; i < 3; ++i)
        if (name == names[i])
            return i;
    return def;
}

// The corners shrink when the target is smaller than both together: the
// excess is shared, the odd pixel taken from the far corner.
void shrink(int32_t& near, int32_t& far, int32_t size)
{
    const int32_t excess = near + far - size;
    if (excess <= 0)
        return;
    far -= (excess + 1) / 2;
    near -= excess / 2;
    if (near < 0) {
        far += near;
        near = 0;
    }
    if (far < 0) {
        near += far;
        far = 0;
    }
}

bool is_panel(const std::wstring& kind) { return kind == L"Panel" || kind == L"Auto.Panel" || kind == L"PanelAutoScroll"; }
bool is_picture(const std::wstring& kind) { return kind == L"Picture" || kind == L"Auto.Picture"; }
bool is_frame(const std::wstring& kind) { return kind == L"Frame" || kind == L"Auto.Frame"; }
// Kinds with a look for each state, "Disabled" among them.
bool has_states(const std::wstring& kind)
{
    return kind == L"Button" || kind == L"Auto.Button" || kind == L"CheckBox" || is_picture(kind);
}

class Drawing {
public:
    Drawing(const SkinSource& source, int scale, const PictureReader& pictures)
        : source_(source), scale_(scale), pictures_(pictures)
    {
    }

    bool form(const Node& form, std::string& svg, std::wstring& error)
    {
        Box size{0, 0, 0, 0};
        if (const Property* p = find(form, skinner::Table::kPoints, L"Size"))
            size = {0, 0, p->x * scale_, p->y * scale_};
        else if (!source_.sizes.empty())
            size = {0, 0, source_.sizes[0].width * scale_, source_.sizes[0].height * scale_};
        if (const Property* p = find(form, skinner::Table::kPictures, L"Background"))
            picture(*p, size);
        controls(form, 0);
        svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" xmlns:xlink=\"http://www.w3.org/1999/xlink\"" +
              attr("width", size.w) + attr("height", size.h) + " viewBox=\"0 0 " + num(size.w) + " " +
              num(size.h) + "\">\n<defs>\n" + defs_ + "</defs>\n" +
              body_ + "</svg>\n";
        error = error_;
        return error_.empty();
    }

private:
    // The bitmap of `name` at `factor` times its size, in the drawing's
    // definitions once; an empty id when the folder has no such picture.
    const Bitmap& bitmap(const std::wstring& name, int factor)
    {
        auto [it, added] = bitmaps_.try_emplace(name);
        if (!added)
            return it->second;
        std::wstring file;
        std::string bytes;
        int w = 0, h = 0;
        if (!pictures_(name, file, bytes) || !picture_size(bytes, &w, &h))
            return it->second;
        it->second = {"b" + num(int64_t(bitmaps_.size())), w * factor, h * factor, png_runs(bytes, factor)};
        if (it->second.runs.empty()) // other formats are left to the renderer's own resizing
            defs_ += "<image id=\"" + it->second.id + "\"" + attr("width", it->second.w) +
                     attr("height", it->second.h) + " preserveAspectRatio=\"none\" xlink:href=\"data:" +
                     mime_of(file) + ";base64," + base64(bytes) + "\"/>\n";
        return it->second;
    }

    // The id of what `from` shows of the bitmap: the whole of an embedded
    // image, else a group of the runs within `from`, defined once.
    std::string part(const Bitmap& b, const Box& from)
    {
        if (b.runs.empty())
            return b.id;
        const std::string id = b.id + "_" + num(from.x) + "_" + num(from.y) + "_" + num(from.w) + "_" + num(from.h);
        if (parts_.insert(id).second)
            defs_ += "<g id=\"" + id + "\" shape-rendering=\"crispEdges\">" +
                     rects_within(b.runs, from.x, from.y, from.w, from.h) + "</g>\n";
        return id;
    }

    // One piece of a picture: the source box `from` of the bitmap drawn to
    // `to`, stretched, or tiled from the target's top left.
    std::string piece(const Bitmap& b, const Box& to, const Box& from, bool tile)
    {
        if (to.w < 1 || to.h < 1 || from.w < 1 || from.h < 1)
            return {};
        const std::string view = " viewBox=\"" + num(from.x) + " " + num(from.y) + " " + num(from.w) + " " +
                                 num(from.h) + "\" preserveAspectRatio=\"none\"";
        const std::string use = "<use xlink:href=\"#" + part(b, from) + "\"/>";
        if (!tile && to.w == from.w && to.h == from.h)
            return "<svg" + box_attrs(to) + view + ">" + use + "</svg>\n";
        if (!tile)
            return "<svg class=\"stretch\"" + box_attrs(to) + on_form(to) + view + ">" + use + "</svg>\n";
        const std::string id = "t" + num(++patterns_);
        defs_ += "<pattern id=\"" + id + "\" patternUnits=\"userSpaceOnUse\"" +
                 box_attrs({to.x, to.y, from.w, from.h}) + "><svg" + box_attrs({0, 0, from.w, from.h}) + view +
                 ">" + use + "</svg></pattern>\n";
        return "<rect" + box_attrs(to) + " fill=\"url(#" + id + ")\"/>\n";
    }

    // The nine pieces of a picture with first corner a, band start b, band
    // end c and last corner d (source points 0 to 7) drawn to `r`.
    std::string nine(const Bitmap& bmp, const Property& p, const Box& r, bool tile)
    {
        if (r.w < 1 || r.h < 1)
            return {};
        auto at = [&](int i) { return int32_t(p.points[size_t(i)]) * scale_; };
        const int32_t ax = at(0), ay = at(1), bx = at(2), by = at(3), cx = at(4), cy = at(5), dx = at(6), dy = at(7);
        int32_t left = bx - ax, right = dx - cx, top = by - ay, bottom = dy - cy;
        shrink(left, right, r.w);
        shrink(top, bottom, r.h);
        const int32_t x1 = r.x + r.w, y1 = r.y + r.h;
        const int32_t bw = cx - bx, bh = cy - by, cw = r.w - left - right, ch = r.h - top - bottom;
        std::string out;
        out += piece(bmp, {r.x, r.y, left, top}, {ax, ay, left, top}, false);
        out += piece(bmp, {x1 - right, r.y, right, top}, {dx - right, ay, right, top}, false);
        out += piece(bmp, {r.x, y1 - bottom, left, bottom}, {ax, dy - bottom, left, bottom}, false);
        out += piece(bmp, {x1 - right, y1 - bottom, right, bottom}, {dx - right, dy - bottom, right, bottom}, false);
        out += piece(bmp, {r.x, r.y + top, left, ch}, {ax, ay + top, left, bh}, tile);
        out += piece(bmp, {x1 - right, r.y + top, right, ch}, {dx - right, ay + top, right, bh}, tile);
        out += piece(bmp, {r.x + left, r.y, cw, top}, {ax + left, ay, bw, top}, tile);
        out += piece(bmp, {r.x + left, y1 - bottom, cw, bottom}, {ax + left, dy - bottom, bw, bottom}, tile);
        out += piece(bmp, {r.x + left, r.y + top, cw, ch}, {bx, by, bw, bh}, tile);
        return out;
    }

    // A picture drawn to `r`: the scale's own art when the folder has it
    // ("NAME_x2"), else the picture grown by the scale through its mask
    // ("NAME_1", white opaque) or alpha map ("NAME_8").
    void picture(const Property& p, const Box& r)
    {
        const std::wstring& name = source_.pictures[p.picture];
        const bool tile = p.stretch == 0;
        if (scale_ > 1) {
            const Bitmap& own = bitmap(name + L"_x" + liba::int_to_text(scale_), 1);
            if (!own.id.empty()) {
                body_ += nine(own, p, r, tile);
                return;
            }
        }
        const Bitmap& colour = bitmap(name, scale_);
        if (colour.id.empty()) {
            error_ = source_.file + L":" + liba::int_to_text(p.line) + L": can't read the picture '" + name + L"'";
            return;
        }
        const Bitmap* mask = &bitmap(name + L"_1", scale_);
        if (mask->id.empty())
            mask = &bitmap(name + L"_8", scale_);
        if (mask->id.empty()) {
            body_ += nine(colour, p, r, tile);
            return;
        }
        const std::string id = "m" + num(++masks_);
        defs_ += "<mask id=\"" + id + "\" maskUnits=\"userSpaceOnUse\"" + box_attrs(r) + ">\n" +
                 nine(*mask, p, r, tile) + "</mask>\n";
        body_ += "<g mask=\"url(#" + id + ")\">\n" + nine(colour, p, r, tile) + "</g>\n";
    }

    // A line of text in `room`, aligned as asked (0 start, 1 centre, 2 end),
    // clipped to `room` as the engine clips it.
    void text_line(const std::wstring& line, const std::wstring& font, const Property* colour, const Box& room,
                   int horizontal, int vertical)
    {
        int height = 0, bold = 0, italic = 0, underline = 0;
        if (line.empty() || !font_fields(font, height, bold, italic, underline))
            return;
        const int64_t em = std::abs(int64_t(height) * scale_ * 96 / 72);
        if (em < 1 || room.w < 1 || room.h < 1)
            return;
        static const char* anchors[] = {"start", "middle", "end"};
        // The line box in whole pixels, as FreeType rounds the face's metrics.
        const int64_t ascent = int64_t(std::ceil(kAscender * double(em) / kUnitsPerEm));
        const int64_t line_height = int64_t(std::ceil((kAscender + kDescender) * double(em) / kUnitsPerEm));
        const int64_t baseline = (room.h - line_height) * vertical / 2 + ascent;
        char fill[8] = "#000000";
        if (colour)
            std::snprintf(fill, sizeof fill, "#%02x%02x%02x", colour->color[0], colour->color[1], colour->color[2]);
        const std::string x = std::to_string(room.w / 2.0 * horizontal);
        body_ += "<svg class=\"text\"" + box_attrs(room) + on_form(room) + "><text x=\"" + x + "\"" +
                 attr("y", baseline) + " font-family=\"DejaVu Sans\"" + attr("font-size", em) + " font-weight=\"" +
                 (bold ? "bold" : "normal") + "\" font-style=\"" + (italic ? "italic" : "normal") + "\"" +
                 (underline ? " text-decoration=\"underline\"" : "") + " fill=\"" + fill + "\" text-anchor=\"" +
                 anchors[horizontal] + "\" xml:space=\"preserve\">" + unkerned(line) + "</text></svg>\n";
    }

    static bool font_fields(const std::wstring& spec, int& height, int& bold, int& italic, int& underline)
    {
        return font_spec_ok(spec) &&
               std::swscanf(spec.c_str(), L"%d %d %d %d", &height, &bold, &italic, &underline) == 4;
    }

    // The control's text as buttons and frames place it: within the borders,
    // a centred frame line growing into the smaller vertical border.
    void control_text(const Node& c, const Box& r, const std::wstring& state)
    {
        std::wstring line = text(c, L"Text", L"");
        if (c.kind == L"CheckBox" && integer(c, L"Checked", 0) != 0)
            line = text(c, L"CheckedText", line);
        const Property* font = find(c, skinner::Table::kFonts, state);
        if (!font)
            font = find(c, skinner::Table::kFonts, L"Normal");
        const Property* colour = find(c, skinner::Table::kColors, state);
        if (!colour)
            colour = find(c, skinner::Table::kColors, L"Normal");
        const Property* min = find(c, skinner::Table::kPoints, L"BorderMin");
        const Property* max = find(c, skinner::Table::kPoints, L"BorderMax");
        if (!max)
            max = min;
        const int32_t x0 = min ? min->x * scale_ : 0, y0 = min ? min->y * scale_ : 0;
        const int32_t x1 = max ? max->x * scale_ : 0, y1 = max ? max->y * scale_ : 0;
        Box room{r.x + x0, r.y + y0, r.w - x0 - x1, r.h - y0 - y1};
        static const wchar_t* h_names[] = {L"LEFT", L"CENTER", L"RIGHT"};
        static const wchar_t* v_names[] = {L"TOP", L"VCENTER", L"BOTTOM"};
        const int horizontal = alignment(text(c, L"HAlignment", L""), h_names, 1);
        const int vertical = alignment(text(c, L"VAlignment", L""), v_names, 1);
        if (is_frame(c.kind) && vertical == 1) {
            const int32_t grow = std::min(y0, y1);
            room.y -= grow;
            room.h += 2 * grow;
        }
        const std::wstring face = font ? source_.fonts[font->font] : std::wstring(kFormFont);
        text_line(line, face, colour, room, horizontal, vertical);
    }

    // A picture control's "Picture": shrunk to fit if larger, then aligned.
    void fitted_picture(const Node& c, const Box& r)
    {
        const Property* p = find(c, skinner::Table::kPictures, L"Picture");
        if (!p)
            return;
        const int32_t nw = (p->points[6] - p->points[0]) * scale_, nh = (p->points[7] - p->points[1]) * scale_;
        if (nw == 0 || nh == 0)
            return;
        const double f = std::min({nw > r.w ? double(r.w) / nw : 1.0, nh > r.h ? double(r.h) / nh : 1.0});
        Box drawn{r.x, r.y, int32_t(nw * f), int32_t(nh * f)};
        static const wchar_t* h_names[] = {L"LEFT", L"CENTER", L"RIGHT"};
        static const wchar_t* v_names[] = {L"TOP", L"VCENTER", L"BOTTOM"};
        drawn.x += (r.w - drawn.w) * alignment(text(c, L"PictureHAlignment", L""), h_names, 1) / 2;
        drawn.y += (r.h - drawn.h) * alignment(text(c, L"PictureVAlignment", L""), v_names, 1) / 2;
        picture(*p, drawn);
    }

    void control(const Node& c, int depth)
    {
        if (integer(c, L"Visible", 1) == 0 || !error_.empty())
            return;
        if (++drawn_ > kMostControls) {
            error_ = source_.file + L":" + liba::int_to_text(c.line) + L": more than " +
                     liba::int_to_text(kMostControls) + L" controls to draw through panels";
            return;
        }
        Box r;
        if (const Property* p = find(c, skinner::Table::kPoints, L"Position"))
            r.x = p->x * scale_, r.y = p->y * scale_;
        if (const Property* p = find(c, skinner::Table::kPoints, L"Size"))
            r.w = p->x * scale_, r.h = p->y * scale_;
        body_ += "<g class=\"control\" data-id=\"" + escape(c.name) + "\" data-kind=\"" + escape(c.kind) + "\"" +
                 on_form(r) + ">\n";
        if (is_panel(c.kind)) {
            panel(c, r, depth);
        } else {
            const bool disabled = has_states(c.kind) && integer(c, L"Enabled", 1) == 0;
            const std::wstring state = disabled ? L"Disabled" : L"Normal";
            const Property* look = find(c, skinner::Table::kPictures, state);
            if (!look)
                look = find(c, skinner::Table::kPictures, L"Normal");
            if (look)
                picture(*look, r);
            control_text(c, r, state);
            if (is_picture(c.kind))
                fitted_picture(c, r);
        }
        body_ += "</g>\n";
    }

    // A panel: its background, else its template's, then the template's
    // controls inside the panel's rectangle.
    void panel(const Node& c, const Box& r, int depth)
    {
        const std::wstring name = text(c, L"FormTemplate", L"");
        const Node* inner = nullptr;
        for (const Node& f : source_.forms)
            if (f.name == name)
                inner = &f;
        const Property* background = find(c, skinner::Table::kPictures, L"Background");
        if (!background && inner)
            background = find(*inner, skinner::Table::kPictures, L"Background");
        if (background)
            picture(*background, r);
        if (!inner || depth >= kDeepestPanel)
            return;
        body_ += "<svg" + box_attrs(r) + ">\n";
        origin_ = {origin_.x + r.x, origin_.y + r.y, 0, 0};
        controls(*inner, depth + 1);
        origin_ = {origin_.x - r.x, origin_.y - r.y, 0, 0};
        body_ += "</svg>\n";
    }

    // The controls of a form in z order, ties in source order.
    void controls(const Node& form, int depth)
    {
        std::vector<const Node*> order;
        for (const Node& c : form.controls)
            order.push_back(&c);
        std::stable_sort(order.begin(), order.end(), [](const Node* a, const Node* b) {
            return integer(*a, L"ZOrder", 0) < integer(*b, L"ZOrder", 0);
        });
        for (const Node* c : order)
            control(*c, depth);
    }

    // A box's place on the form, for whoever reads the drawing back.
    std::string on_form(const Box& b) const
    {
        return " data-rect=\"" + num(origin_.x + b.x) + " " + num(origin_.y + b.y) + " " + num(b.w) + " " +
               num(b.h) + "\"";
    }

    const SkinSource& source_;
    const int scale_;
    const PictureReader& pictures_;
    std::map<std::wstring, Bitmap> bitmaps_;
    std::set<std::string> parts_; // ids of the bitmap parts defined
    Box origin_; // of the panel being drawn, on the form
    int drawn_ = 0; // controls so far
    int patterns_ = 0;
    int masks_ = 0;
    std::string defs_;
    std::string body_;
    std::wstring error_;
};

} // namespace

bool draw_forms(const SkinSource& source, int scale, const PictureReader& pictures, std::vector<FormDrawing>& out,
                std::wstring& error)
{
    out.clear();
    for (const Node& form : source.forms) {
        std::string svg;
        if (!Drawing(source, scale, pictures).form(form, svg, error))
            return false;
        out.push_back({form.name, std::move(svg)});
    }
    return true;
}

} // namespace skinc
