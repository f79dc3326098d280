#include "tools/skinc/skin_source.h"

#include "liba/text.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cwctype>
#include <map>
#include <set>

namespace skinc {

namespace {

bool is_blank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

// Whole-text numbers separated by blanks or commas.
bool parse_numbers(std::wstring_view text, std::vector<long long>& out)
{
    out.clear();
    std::wstring token;
    auto flush = [&]() {
        if (token.empty())
            return true;
        auto v = liba::text_to_int(token);
        token.clear();
        if (!v)
            return false;
        out.push_back(*v);
        return true;
    };
    for (wchar_t c : text) {
        if (is_blank(c) || c == L',') {
            if (!flush())
                return false;
        } else {
            token += c;
        }
    }
    return flush();
}

int hex_digit(wchar_t c)
{
    if (c >= L'0' && c <= L'9')
        return c - L'0';
    if (c >= L'a' && c <= L'f')
        return c - L'a' + 10;
    if (c >= L'A' && c <= L'F')
        return c - L'A' + 10;
    return -1;
}

class Parser {
public:
    Parser(std::string_view xml, const std::wstring& file, const PictureLookup& pictures, SkinSource& out)
        : xml_(xml), file_(file), lookup_(pictures), out_(out)
    {
    }

    bool run(std::wstring& error)
    {
        bool ok = parse();
        if (!ok)
            error = error_;
        return ok;
    }

private:
    int line_of(ptrdiff_t offset) const
    {
        if (offset < 0)
            return 0;
        size_t end = std::min(static_cast<size_t>(offset), xml_.size());
        return 1 + static_cast<int>(std::count(xml_.begin(), xml_.begin() + static_cast<ptrdiff_t>(end), '\n'));
    }
    int line_of(const pugi::xml_node& n) const { return line_of(n.offset_debug()); }

    bool fail(int line, const std::wstring& text)
    {
        error_ = file_ + L":" + liba::int_to_text(line) + L": " + text;
        return false;
    }
    bool fail(const pugi::xml_node& n, const std::wstring& text) { return fail(line_of(n), text); }

    static std::wstring wide(const char* utf8) { return liba::from_utf8(utf8 ? utf8 : ""); }
    static std::wstring element(const pugi::xml_node& n) { return L"<" + wide(n.name()) + L">"; }

    // Every attribute of `n` must be one of `allowed`: a misspelt attribute
    // would otherwise be dropped without a word.
    bool only_attributes(const pugi::xml_node& n, std::initializer_list<const char*> allowed)
    {
        for (const pugi::xml_attribute& a : n.attributes()) {
            bool known = false;
            for (const char* name : allowed)
                known = known || std::string_view(a.name()) == name;
            if (!known)
                return fail(n, L"unknown attribute '" + wide(a.name()) + L"' of " + element(n));
        }
        return true;
    }

    bool required(const pugi::xml_node& n, const char* name, std::wstring& out)
    {
        pugi::xml_attribute a = n.attribute(name);
        if (!a)
            return fail(n, element(n) + L" needs the attribute '" + wide(name) + L"'");
        out = wide(a.value());
        if (out.empty())
            return fail(n, L"the attribute '" + wide(name) + L"' of " + element(n) + L" is empty");
        return true;
    }

    bool number(const pugi::xml_node& n, const char* name, long long lo, long long hi, long long& out)
    {
        std::wstring text;
        if (!required(n, name, text))
            return false;
        std::vector<long long> v;
        if (!parse_numbers(text, v) || v.size() != 1 || v[0] < lo || v[0] > hi)
            return fail(n, L"'" + text + L"' is not a number from " + liba::int_to_text(lo) + L" to " +
                               liba::int_to_text(hi));
        out = v[0];
        return true;
    }

    bool header_text(const pugi::xml_node& n, const char* name, std::wstring& out)
    {
        out = wide(n.attribute(name).value());
        if (liba::to_utf16(out).size() >= skinner::kHeaderStringUnits)
            return fail(n, L"the " + wide(name) + L" '" + out + L"' is longer than 31 UTF-16 units");
        return true;
    }

    bool parse()
    {
        pugi::xml_document doc;
        pugi::xml_parse_result r = doc.load_buffer(xml_.data(), xml_.size(), pugi::parse_default, pugi::encoding_utf8);
        if (!r)
            return fail(line_of(r.offset), L"not well-formed XML: " + wide(r.description()));
        pugi::xml_node root = doc.document_element();
        if (std::string_view(root.name()) != "skin")
            return fail(root, L"the top element must be <skin>");
        if (!only_attributes(root, {"name", "version", "devices"}))
            return false;
        out_.name = wide(root.attribute("name").value());
        if (!required(root, "version", out_.version) || !header_text(root, "version", out_.version) ||
            !header_text(root, "devices", out_.devices))
            return false;
        std::set<std::wstring> forms, kinds;
        for (pugi::xml_node n = root.first_child(); n; n = n.next_sibling()) {
            if (n.type() != pugi::node_element)
                continue;
            std::string_view tag = n.name();
            if (tag == "native") {
                if (!native(n))
                    return false;
            } else if (tag == "form" || tag == "kind") {
                Node node;
                node.line = line_of(n);
                if (!only_attributes(n, {"name"}) || !required(n, "name", node.name))
                    return false;
                auto& seen = tag == "form" ? forms : kinds;
                if (!seen.insert(node.name).second)
                    return fail(n, L"a second " + wide(n.name()) + L" named '" + node.name + L"'");
                if (!node_children(n, node, tag == "form"))
                    return false;
                (tag == "form" ? out_.forms : out_.kinds).push_back(std::move(node));
            } else {
                return fail(n, L"unknown element " + element(n) + L" in <skin>");
            }
        }
        return true;
    }

    bool native(const pugi::xml_node& n)
    {
        if (out_.sizes.size() == static_cast<size_t>(skinner::kNativeSizeSlots))
            return fail(n, L"more than 32 native sizes");
        long long w = 0, h = 0;
        if (!only_attributes(n, {"width", "height"}) || !number(n, "width", 1, INT32_MAX, w) ||
            !number(n, "height", 1, INT32_MAX, h))
            return false;
        out_.sizes.push_back({static_cast<int32_t>(w), static_cast<int32_t>(h)});
        return true;
    }

    bool node_children(const pugi::xml_node& parent, Node& node, bool is_form)
    {
        std::set<std::wstring> ids;
        for (pugi::xml_node n = parent.first_child(); n; n = n.next_sibling()) {
            if (n.type() != pugi::node_element)
                continue;
            if (is_form && std::string_view(n.name()) == "control") {
                Node control;
                control.line = line_of(n);
                if (!only_attributes(n, {"id", "class"}) || !required(n, "id", control.name) ||
                    !required(n, "class", control.kind))
                    return false;
                if (!ids.insert(control.name).second)
                    return fail(n, L"a second control with id '" + control.name + L"' in form '" + node.name + L"'");
                if (!node_children(n, control, false))
                    return false;
                node.controls.push_back(std::move(control));
                continue;
            }
            Property p;
            if (!property(n, p))
                return false;
            for (const Property& q : node.properties)
                if (q.type == p.type && q.key == p.key)
                    return fail(n, L"a second " + element(n) + L" named '" + p.key + L"'");
            node.properties.push_back(std::move(p));
        }
        return true;
    }

    bool property(const pugi::xml_node& n, Property& p)
    {
        std::string_view tag = n.name();
        p.line = line_of(n);
        if (tag == "picture") {
            if (!only_attributes(n, {"name", "file", "area", "band", "stretch"}))
                return false;
        } else if (tag == "int" || tag == "point" || tag == "string" || tag == "color" || tag == "font") {
            if (!only_attributes(n, {"name", "value"}))
                return false;
        } else {
            return fail(n, L"unknown element " + element(n));
        }
        if (!required(n, "name", p.key))
            return false;
        std::wstring value = wide(n.attribute("value").value());
        if (tag != "picture" && tag != "string" && !required(n, "value", value))
            return false;
        if (tag == "int")
            return integer(n, value, p);
        if (tag == "point")
            return point(n, value, p);
        if (tag == "string") {
            if (!n.attribute("value"))
                return fail(n, L"<string> needs the attribute 'value'");
            p.type = skinner::Table::kStrings;
            p.text = value;
            return true;
        }
        if (tag == "color")
            return color(n, value, p);
        if (tag == "font")
            return font(n, value, p);
        return picture(n, p);
    }

    bool integer(const pugi::xml_node& n, const std::wstring& value, Property& p)
    {
        p.type = skinner::Table::kIntegers;
        std::vector<long long> v;
        if (auto flag = liba::text_to_bool(value); flag && value != L"0" && value != L"1") {
            p.integer = *flag ? 1 : 0;
            return true;
        }
        if (!parse_numbers(value, v) || v.size() != 1 || v[0] < INT32_MIN || v[0] > INT32_MAX)
            return fail(n, L"'" + value + L"' is not a 32-bit integer");
        p.integer = static_cast<int32_t>(v[0]);
        return true;
    }

    bool point(const pugi::xml_node& n, const std::wstring& value, Property& p)
    {
        p.type = skinner::Table::kPoints;
        std::vector<long long> v;
        if (!parse_numbers(value, v) || v.size() != 2 || v[0] < INT16_MIN || v[0] > INT16_MAX || v[1] < INT16_MIN ||
            v[1] > INT16_MAX)
            return fail(n, L"'" + value + L"' is not a point of two numbers from -32768 to 32767");
        p.x = static_cast<int16_t>(v[0]);
        p.y = static_cast<int16_t>(v[1]);
        return true;
    }

    bool color(const pugi::xml_node& n, const std::wstring& value, Property& p)
    {
        p.type = skinner::Table::kColors;
        bool ok = (value.size() == 7 || value.size() == 9) && value[0] == L'#';
        p.color = {0, 0, 0, 255};
        for (size_t i = 1; ok && i < value.size(); i += 2) {
            int hi = hex_digit(value[i]), lo = hex_digit(value[i + 1]);
            ok = hi >= 0 && lo >= 0;
            if (ok)
                p.color[(i - 1) / 2] = static_cast<uint8_t>(hi * 16 + lo);
        }
        if (!ok)
            return fail(n, L"'" + value + L"' is not a colour #RRGGBB or #RRGGBBAA");
        return true;
    }

    bool font(const pugi::xml_node& n, const std::wstring& value, Property& p)
    {
        p.type = skinner::Table::kFonts;
        if (!font_spec_ok(value))
            return fail(n, L"'" + value + L"' is not a font: height bold italic underline face");
        auto at = std::find(out_.fonts.begin(), out_.fonts.end(), value);
        p.font = static_cast<uint32_t>(at - out_.fonts.begin());
        if (at == out_.fonts.end())
            out_.fonts.push_back(value);
        return true;
    }

    bool picture(const pugi::xml_node& n, Property& p)
    {
        p.type = skinner::Table::kPictures;
        std::wstring file;
        if (!required(n, "file", file))
            return false;
        int width = -1, height = -1;
        if (!lookup_(file, &width, &height))
            return fail(n, L"no picture file '" + file + L"' (.png, .bmp, .gif or .jpg) beside the source");
        auto at = std::find(out_.pictures.begin(), out_.pictures.end(), file);
        if (at == out_.pictures.end()) {
            // The record holds the index in one byte.
            if (out_.pictures.size() == 256)
                return fail(n, L"a 257th picture '" + file + L"': a skin holds at most 256 pictures");
            out_.pictures.push_back(file);
            out_.picture_lines.push_back(p.line);
            at = out_.pictures.end() - 1;
        }
        p.picture = static_cast<uint8_t>(at - out_.pictures.begin());

        std::vector<long long> area{0, 0, width, height}, band;
        if (n.attribute("area") && !rectangle(n, "area", area))
            return false;
        if (!n.attribute("area") && (width < 0 || height < 0))
            return fail(n, L"the size of '" + file + L"' is unknown: give its area");
        band = area;
        if (n.attribute("band") && !rectangle(n, "band", band))
            return false;
        if (band[0] < area[0] || band[1] < area[1] || band[2] > area[2] || band[3] > area[3] || area[0] > area[2] ||
            area[1] > area[3] || band[0] > band[2] || band[1] > band[3])
            return fail(n, L"the band must lie within the area, each corner before its opposite");
        if (width >= 0 && height >= 0 && (area[2] > width || area[3] > height))
            return fail(n, L"the area reaches beyond the picture's " + liba::int_to_text(width) + L"x" +
                               liba::int_to_text(height) + L" pixels");
        p.points = {uint16_t(area[0]), uint16_t(area[1]), uint16_t(band[0]), uint16_t(band[1]),
                    uint16_t(band[2]), uint16_t(band[3]), uint16_t(area[2]), uint16_t(area[3])};
        std::wstring stretch = wide(n.attribute("stretch").as_string("1"));
        auto flag = liba::text_to_bool(stretch);
        if (!flag)
            return fail(n, L"stretch '" + stretch + L"' is neither 1 nor 0");
        p.stretch = *flag ? 1 : 0;
        return true;
    }

    bool rectangle(const pugi::xml_node& n, const char* name, std::vector<long long>& out)
    {
        std::wstring text = wide(n.attribute(name).value());
        if (!parse_numbers(text, out) || out.size() != 4 ||
            std::any_of(out.begin(), out.end(), [](long long v) { return v < 0 || v > UINT16_MAX; }))
            return fail(n, L"the " + wide(name) + L" '" + text + L"' is not four numbers from 0 to 65535");
        return true;
    }

    std::string_view xml_;
    std::wstring file_;
    const PictureLookup& lookup_;
    SkinSource& out_;
    std::wstring error_;
};

const Property* point_of(const Node& node, const wchar_t* key)
{
    for (const Property& p : node.properties)
        if (p.type == skinner::Table::kPoints && p.key == key)
            return &p;
    return nullptr;
}

// Every control must lie within its form: a form variant by its own "Size",
// a form without one by the largest screen the skin names, as it fills the
// screen. A control beyond that is never seen, which is a slip of the skin
// maker's, not a way of hiding it ("Visible" does that).
bool controls_within_forms(const SkinSource& source, std::wstring& error)
{
    int32_t screen_w = 0, screen_h = 0;
    for (const skinner::NativeSize& s : source.sizes)
        screen_w = std::max(screen_w, s.width), screen_h = std::max(screen_h, s.height);
    for (const Node& form : source.forms) {
        int32_t w = screen_w, h = screen_h;
        if (const Property* size = point_of(form, L"Size"))
            w = size->x, h = size->y;
        if (w <= 0 || h <= 0)
            continue;
        for (const Node& c : form.controls) {
            const Property* at = point_of(c, L"Position");
            const Property* size = point_of(c, L"Size");
            const int32_t x = at ? at->x : 0, y = at ? at->y : 0;
            const int32_t cw = size ? size->x : 0, ch = size ? size->y : 0;
            if (x >= 0 && y >= 0 && x + cw <= w && y + ch <= h)
                continue;
            const int line = at ? at->line : size ? size->line : c.line;
            error = source.file + L":" + liba::int_to_text(line) + L": the control '" + c.name + L"' (" +
                    liba::int_to_text(x) + L" " + liba::int_to_text(y) + L", " + liba::int_to_text(cw) + L"x" +
                    liba::int_to_text(ch) + L") lies outside its form '" + form.name + L"' (" +
                    liba::int_to_text(w) + L"x" + liba::int_to_text(h) + L")";
            return false;
        }
    }
    return true;
}

} // namespace

bool font_spec_ok(std::wstring_view spec)
{
    size_t at = 0;
    for (int field = 0; field < 4; ++field) {
        size_t start = at;
        while (at < spec.size() && is_blank(spec[at]))
            ++at;
        if (field > 0 && at == start)
            return false;
        size_t digits = at;
        if (at < spec.size() && spec[at] == L'-')
            ++at;
        while (at < spec.size() && std::iswdigit(spec[at]))
            ++at;
        if (at == digits || (spec[digits] == L'-' && at == digits + 1))
            return false;
    }
    size_t blanks = at;
    while (at < spec.size() && is_blank(spec[at]))
        ++at;
    return at > blanks && at < spec.size();
}

bool parse_skin_source(std::string_view xml, const std::wstring& file, const PictureLookup& pictures,
                       SkinSource& out, std::wstring& error)
{
    out = SkinSource{};
    out.file = file;
    return Parser(xml, file, pictures, out).run(error) && controls_within_forms(out, error);
}

} // namespace skinc
