#include "skinner/font.h"

#include "liba/text.h"
#include "os/log.h"

#include <SDL.h>
#include <SDL_ttf.h>
#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <cwctype>
#include <map>
#include <utility>

namespace skinner {

bool parse_h_alignment(const std::wstring& name, int& field)
{
    static const wchar_t* const kNames[] = {L"LEFT", L"CENTER", L"RIGHT"};
    for (int i = 0; i < 3; ++i)
        if (name == kNames[i]) {
            field = i;
            return true;
        }
    return false;
}

bool parse_v_alignment(const std::wstring& name, int& field)
{
    static const wchar_t* const kNames[] = {L"TOP", L"VCENTER", L"BOTTOM"};
    for (int i = 0; i < 3; ++i)
        if (name == kNames[i]) {
            field = i;
            return true;
        }
    return false;
}

// ---- The font cache: one face per (specification, scale), counted by the
// fonts that use it; the map lives while any Font does.

struct Font::Rep {
    std::wstring specification;
    int scale = 1;
    TTF_Font* font = nullptr; // null: no face could be opened, draws nothing
    int em = 0;
    std::wstring face_name;
    std::string file;
    bool bold = false, italic = false, underline = false;
    int references = 0;
};

namespace {

constexpr size_t kLongestFaceName = 31;
// No screen needs a larger em, and a line of text at a far larger one would
// take hundreds of megabytes: such a font is refused.
constexpr int64_t kLargestEm = 1024;
constexpr int kPointsPerInch = 72;
constexpr int kDotsPerInch = 96;
constexpr wchar_t kEllipsis[] = L"\u2026";

using FontKey = std::pair<std::wstring, int>;
using FontCache = std::map<FontKey, Font::Rep>;
FontCache* g_fonts = nullptr;
size_t g_font_objects = 0;
std::string g_pinned_file;
bool g_fontconfig_up = false;

void font_born()
{
    if (g_font_objects++ == 0)
        g_fonts = new FontCache;
}

void font_died()
{
    if (--g_font_objects == 0) {
        delete g_fonts;
        g_fonts = nullptr;
        // Nothing else in the process asks fontconfig; its tables go with
        // the last font and come back with the next.
        if (g_fontconfig_up)
            FcFini();
        g_fontconfig_up = false;
    }
}

struct Spec {
    int height = 0, bold = 0, italic = 0, underline = 0;
    std::wstring name;
};

// Four integers and the face name, each after white space.
bool parse_spec(const std::wstring& text, Spec& spec)
{
    size_t at = 0;
    int* fields[] = {&spec.height, &spec.bold, &spec.italic, &spec.underline};
    for (int* field : fields) {
        const size_t start = at;
        while (at < text.size() && std::iswspace(text[at]))
            ++at;
        if (at == start && start != 0)
            return false;
        const size_t digits = at;
        if (at < text.size() && (text[at] == L'-' || text[at] == L'+'))
            ++at;
        while (at < text.size() && std::iswdigit(text[at]))
            ++at;
        const auto value = liba::text_to_int(std::wstring_view(text).substr(digits, at - digits));
        if (!value || *value < INT32_MIN || *value > INT32_MAX)
            return false;
        *field = int(*value);
    }
    const size_t start = at;
    while (at < text.size() && std::iswspace(text[at]))
        ++at;
    if (at == start || at == text.size())
        return false;
    spec.name = text.substr(at, kLongestFaceName);
    return true;
}

void open_face(Font::Rep& rep)
{
    rep.file = g_pinned_file.empty() ? Font::match_face_file(rep.face_name, rep.bold, rep.italic)
                                     : g_pinned_file;
    if (rep.file.empty() || rep.em < 1 || TTF_Init() != 0)
        return;
    rep.font = TTF_OpenFont(rep.file.c_str(), rep.em);
    if (!rep.font) {
        TTF_Quit();
        return;
    }
    // What the face itself lacks of the asked style is made up by SDL2_ttf.
    const std::string style = TTF_FontFaceStyleName(rep.font) ? TTF_FontFaceStyleName(rep.font) : "";
    int flags = TTF_STYLE_NORMAL;
    if (rep.bold && style.find("Bold") == std::string::npos)
        flags |= TTF_STYLE_BOLD;
    if (rep.italic && style.find("Italic") == std::string::npos && style.find("Oblique") == std::string::npos)
        flags |= TTF_STYLE_ITALIC;
    if (rep.underline)
        flags |= TTF_STYLE_UNDERLINE;
    TTF_SetFontStyle(rep.font, flags);
    // Glyphs placed at fractions of a pixel, as the desktop sets text, so a
    // word is as wide as its face says rather than a sum of rounded widths.
    TTF_SetFontHinting(rep.font, TTF_HINTING_LIGHT_SUBPIXEL);
}

void build_rep(Font::Rep& rep, const Spec& spec, int scale)
{
    os::log() << "Creating font: {" << rep.specification << "}\n";
    os::log() << "height=" << spec.height << " name.scale=" << scale << "\n";
    const int64_t h = int64_t(spec.height) * scale;
    const int64_t platform_height = -(h * kDotsPerInch / kPointsPerInch);
    os::log() << "dpiy=" << kDotsPerInch << " log_font.lfHeight=" << platform_height << "\n";
    const int64_t em = platform_height < 0 ? -platform_height : platform_height;
    rep.em = em <= kLargestEm ? int(em) : 0;
    rep.face_name = spec.name;
    rep.bold = spec.bold != 0;
    rep.italic = spec.italic != 0;
    rep.underline = spec.underline != 0;
    open_face(rep);
    if (!rep.font)
        os::log() << "ERROR: FontRep::FontRep() Failed to create font\n";
}

// Blends `colour` onto the canvas through the coverage of a rendered line.
void blend_coverage(CanvasImpl& canvas, const SDL_Surface* line, int32_t x, int32_t y, const Rect& clip,
                    Color colour)
{
    const Rect area = intersect(clip, Rect{x, y, line->w, line->h});
    if (area.empty())
        return;
    const uint32_t cr = colour.red, cg = colour.green, cb = colour.blue;
    for (int32_t j = area.y; j < area.y + area.h; ++j) {
        const auto* in = static_cast<const uint32_t*>(line->pixels) + int64_t(j - y) * (line->pitch / 4);
        uint32_t* out = canvas.pixels() + int64_t(j) * canvas.stride();
        for (int32_t i = area.x; i < area.x + area.w; ++i) {
            const uint32_t a = in[i - x] >> 24;
            if (a == 0)
                continue;
            const uint32_t d = out[i];
            auto mix = [a](uint32_t src, uint32_t dst) { return (src * a + dst * (255 - a) + 127) / 255; };
            out[i] = 0xFF000000u | (mix(cr, (d >> 16) & 0xFF) << 16) | (mix(cg, (d >> 8) & 0xFF) << 8) |
                     mix(cb, d & 0xFF);
        }
    }
}

} // namespace

std::string Font::match_face_file(const std::wstring& name, bool bold, bool italic)
{
    if (!FcInit())
        return {};
    g_fontconfig_up = true;
    FcPattern* pattern = FcPatternCreate();
    const std::string family = liba::to_utf8(name);
    FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(family.c_str()));
    FcPatternAddInteger(pattern, FC_WEIGHT, bold ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
    FcPatternAddInteger(pattern, FC_SLANT, italic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
    FcPatternAddBool(pattern, FC_SCALABLE, FcTrue);
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(nullptr, pattern, &result);
    std::string file;
    FcChar8* path = nullptr;
    if (match && FcPatternGetString(match, FC_FILE, 0, &path) == FcResultMatch && path)
        file = reinterpret_cast<const char*>(path);
    if (match)
        FcPatternDestroy(match);
    FcPatternDestroy(pattern);
    return file;
}

void Font::pin_face_file(const std::string& path) { g_pinned_file = path; }
size_t Font::cached_fonts() { return g_fonts ? g_fonts->size() : 0; }

Font::Font(int scale) : scale_(scale) { font_born(); }

Font::Font(const Font& other) : rep_(other.rep_), scale_(other.scale_)
{
    font_born();
    if (rep_)
        ++rep_->references;
}

Font& Font::operator=(const Font& other)
{
    if (this == &other)
        return *this;
    if (other.rep_)
        ++other.rep_->references;
    release();
    rep_ = other.rep_;
    scale_ = other.scale_;
    return *this;
}

Font::~Font()
{
    release();
    font_died();
}

void Font::release()
{
    if (rep_ && --rep_->references == 0) {
        if (rep_->font) {
            TTF_CloseFont(rep_->font);
            TTF_Quit();
        }
        g_fonts->erase(FontKey{rep_->specification, rep_->scale});
    }
    rep_ = nullptr;
}

bool Font::parse(const std::wstring& specification)
{
    release();
    Spec spec;
    if (!parse_spec(specification, spec))
        return false;
    auto [it, inserted] = g_fonts->try_emplace(FontKey{specification, scale_});
    rep_ = &it->second;
    if (inserted) {
        rep_->specification = specification;
        rep_->scale = scale_;
        build_rep(*rep_, spec, scale_);
    }
    ++rep_->references;
    return true;
}

bool Font::is_usable() const { return rep_ && rep_->font; }
int Font::em_height() const { return rep_ ? rep_->em : 0; }
std::wstring Font::face_name() const { return rep_ ? rep_->face_name : std::wstring(); }
std::string Font::face_file() const { return rep_ ? rep_->file : std::string(); }
bool Font::bold() const { return rep_ && rep_->bold; }
bool Font::italic() const { return rep_ && rep_->italic; }
bool Font::underline() const { return rep_ && rep_->underline; }

int Font::width_of(const std::wstring& text) const
{
    if (!is_usable() || text.empty())
        return 0;
    int w = 0, h = 0;
    if (TTF_SizeUTF8(rep_->font, liba::to_utf8(text).c_str(), &w, &h) != 0)
        return 0;
    // A line is as wide as its pen moves, as the platform measured it;
    // SDL2_ttf reaches on to the last glyph's ink where that overhangs its
    // advance (a "K"), which would push centred text off to the left.
    int min_x = 0, max_x = 0, min_y = 0, max_y = 0, advance = 0;
    if (TTF_GlyphMetrics32(rep_->font, uint32_t(text.back()), &min_x, &max_x, &min_y, &max_y, &advance) == 0 &&
        max_x > advance)
        w -= std::min(w, max_x - advance);
    return w;
}

Point Font::text_size(const std::wstring& text) const
{
    if (!is_usable())
        return {};
    return Point{width_of(text), TTF_FontHeight(rep_->font)};
}

int Font::ascent() const { return is_usable() ? TTF_FontAscent(rep_->font) : 0; }

void Font::draw_text(Canvas& canvas, Color color, const std::wstring& text, Point position, Point size,
                     int horizontal, int vertical) const
{
    if (!is_usable() || text.empty())
        return;
    const Point extent = text_size(text);
    int32_t x = position.x, y = position.y;
    if (horizontal == kAlignCenter)
        x += (size.x - extent.x) / 2;
    else if (horizontal == kAlignRight)
        x += size.x - extent.x;
    if (vertical == kAlignVCenter)
        y += (size.y - extent.y) / 2;
    else if (vertical == kAlignBottom)
        y += size.y - extent.y;
    SDL_Surface* line =
        TTF_RenderUTF8_Blended(rep_->font, liba::to_utf8(text).c_str(), SDL_Color{255, 255, 255, 255});
    if (!line)
        return;
    const Rect clip = intersect(canvas.clip(), Rect{position.x, position.y, size.x, size.y});
    if (line->format->BytesPerPixel == 4)
        blend_coverage(canvas.impl(), line, x, y, clip, color);
    SDL_FreeSurface(line);
}

void Font::draw_text_end_ellipsis(Canvas& canvas, Color color, const std::wstring& text, Point position,
                                  Point size, int horizontal, int vertical) const
{
    if (text.empty() || width_of(text) < size.x) {
        draw_text(canvas, color, text, position, size, horizontal, vertical);
        return;
    }
    // The longest start that leaves room for the ellipsis, by halving.
    const int e = width_of(kEllipsis);
    size_t lo = 0, hi = text.size();
    for (;;) {
        const size_t mid = (lo + hi) / 2;
        if (width_of(text.substr(0, mid)) + e >= size.x) {
            if (hi == mid)
                break;
            hi = mid;
        } else {
            if (lo == mid)
                break;
            lo = mid;
        }
    }
    draw_text(canvas, color, text.substr(0, lo) + kEllipsis, position, size, horizontal, vertical);
}

void Font::draw_text_start_ellipsis(Canvas& canvas, Color color, const std::wstring& text, Point position,
                                    Point size, int horizontal, int vertical) const
{
    if (text.empty() || width_of(text) < size.x) {
        draw_text(canvas, color, text, position, size, horizontal, vertical);
        return;
    }
    // Tails are tried against twice the ellipsis, and the one just past that
    // margin is drawn: the end of a path matters more than an exact fit.
    const int e = width_of(kEllipsis);
    size_t lo = 0, hi = text.size();
    for (;;) {
        const size_t mid = (lo + hi) / 2;
        if (width_of(text.substr(text.size() - mid)) + 2 * e >= size.x) {
            if (hi == mid)
                break;
            hi = mid;
        } else {
            if (lo == mid)
                break;
            lo = mid;
        }
    }
    draw_text(canvas, color, kEllipsis + text.substr(text.size() - hi), position, size, horizontal,
              vertical);
}

} // namespace skinner
