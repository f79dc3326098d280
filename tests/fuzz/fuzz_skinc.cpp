// Feeds arbitrary text to the skin compiler's parser. A source it accepts
// must compile to a description that the engine's reader accepts, and in
// which every property of the source is found with its value.
#include "skinner/skin_description.h"
#include "tools/skinc/skin_source.h"
#include "tools/skinc/skin_writer.h"
#include "tools/skinc/svg_writer.h"

#include <png.h>
#include <pugixml.hpp>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using skinner::SkinDescription;
using skinner::Table;

void check(const SkinDescription& d, uint32_t node, const skinc::Property& p)
{
    uint32_t r = d.find_record(node, p.type, p.key);
    if (!r)
        std::abort();
    const uint8_t* b = d.data() + r;
    bool same = true;
    switch (p.type) {
    case Table::kIntegers: same = skinner::read_i32(b + skinner::kIntegerValueAt) == p.integer; break;
    case Table::kPoints:
        same = skinner::read_i16(b + skinner::kPointXAt) == p.x && skinner::read_i16(b + skinner::kPointXAt + 2) == p.y;
        break;
    case Table::kStrings: same = d.text_at(skinner::read_u16(b + skinner::kStringValueAt)) == p.text; break;
    case Table::kColors:
        for (int i = 0; i < 4; ++i)
            same = same && b[skinner::kColorBytesAt + i] == p.color[i];
        break;
    case Table::kPictures: same = b[skinner::kPictureIndexAt] == p.picture; break;
    case Table::kFonts: same = skinner::read_u32(b + skinner::kFontIndexAt) == p.font; break;
    }
    if (!same)
        std::abort();
}

// A 2x2 PNG for every picture the drawings ask for, names with a 'q' aside.
bool read_picture(const std::wstring& name, std::wstring& file, std::string& bytes)
{
    static const std::string png = [] {
        const uint8_t pixels[16] = {255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255, 255, 255, 255, 255};
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        image.width = image.height = 2;
        image.format = PNG_FORMAT_RGBA;
        std::string out(1024, '\0');
        png_alloc_size_t size = out.size();
        if (!png_image_write_to_memory(&image, out.data(), &size, 0, pixels, 0, nullptr))
            std::abort();
        out.resize(size);
        return out;
    }();
    if (name.find(L'q') != std::wstring::npos)
        return false;
    file = name + L".png";
    bytes = png;
    return true;
}

void check_drawings(const skinc::SkinSource& source, int scale)
{
    std::vector<skinc::FormDrawing> drawings;
    std::wstring error;
    if (!skinc::draw_forms(source, scale, read_picture, drawings, error)) {
        if (error.rfind(L"skin.xml:", 0) != 0)
            std::abort();
        return;
    }
    if (drawings.size() != source.forms.size())
        std::abort();
    for (const skinc::FormDrawing& d : drawings) {
        pugi::xml_document doc;
        if (!doc.load_buffer(d.svg.data(), d.svg.size()))
            std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Every picture exists at 64x64, except names with a 'j', whose size is
    // unknown (as a JPEG's), and names with a 'q', which are missing.
    auto pictures = [](const std::wstring& name, int* w, int* h) {
        if (name.find(L'q') != std::wstring::npos)
            return false;
        bool known = name.find(L'j') == std::wstring::npos;
        *w = *h = known ? 64 : -1;
        return true;
    };
    skinc::SkinSource source;
    std::wstring error;
    std::string_view xml(reinterpret_cast<const char*>(data), size);
    if (!skinc::parse_skin_source(xml, L"skin.xml", pictures, source, error)) {
        if (error.rfind(L"skin.xml:", 0) != 0)
            std::abort();
        return 0;
    }
    if (source.pictures.size() > 256)
        std::abort();
    std::string bytes;
    if (!skinc::write_description(source, bytes, error))
        return 0; // past the 64 KiB of names: refused with a line
    SkinDescription d(std::move(bytes));
    if (!d.validate())
        std::abort();
    uint32_t forms = d.header().form_tree(), kinds = d.header().kind_tree();
    for (const skinc::Node& f : source.forms) {
        uint32_t node = d.find_node(forms, f.name);
        if (!node || d.item_count(node) != f.controls.size())
            std::abort();
        for (const skinc::Property& p : f.properties)
            check(d, node, p);
        for (const skinc::Node& c : f.controls) {
            uint32_t control = d.find_node(d.controls(node), c.name);
            if (!control)
                std::abort();
            for (const skinc::Property& p : c.properties)
                check(d, control, p);
        }
    }
    for (const skinc::Node& k : source.kinds) {
        uint32_t node = d.find_node(kinds, k.name);
        if (!node)
            std::abort();
        for (const skinc::Property& p : k.properties)
            check(d, node, p);
    }
    check_drawings(source, 1 + int(size % 4));
    return 0;
}
