#include "liba/text.h"
#include "os/path.h"
#include "skinner/form_impl.h"
#include "skinner/form_render.h"
#include "skinner/png_writer.h"
#include "skinner/properties.h"
#include "tools/commands.h"

#include <cstdio>
#include <string>
#include <vector>

namespace quillctl {

namespace {

// "WxH" with both numbers from 1 to 100000.
bool parse_size(const std::string& text, skinner::Point& size)
{
    size_t x = text.find('x');
    if (x == std::string::npos)
        return false;
    auto w = liba::text_to_int(liba::from_utf8(text.substr(0, x)));
    auto h = liba::text_to_int(liba::from_utf8(text.substr(x + 1)));
    if (!w || !h || *w < 1 || *h < 1 || *w > 100000 || *h > 100000)
        return false;
    size = {static_cast<int32_t>(*w), static_cast<int32_t>(*h)};
    return true;
}

// Prints what a skin is made for and the forms it holds, as the program
// loads it for the given screen (pictures included: a skin that lacks one
// is invalid here as it is in the program).
int skin_info(const Args& args)
{
    std::string path;
    skinner::Point size;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--size" && i + 1 < args.size()) {
            if (!parse_size(args[++i], size))
                return kUsage;
        } else if (path.empty() && !args[i].empty() && args[i][0] != '-') {
            path = args[i];
        } else {
            return kUsage;
        }
    }
    if (path.empty())
        return kUsage;
    os::init_path_macros();

    skinner::PropertiesImpl skin(liba::from_utf8(path), size);
    if (!skin.is_valid())
        return fail(path, "not a usable skin: " + liba::to_utf8(skin.load_error()));

    const skinner::SkinDescription& d = skin.description();
    skinner::SkinHeaderView header = d.header();
    std::printf("version: %s\n", liba::to_utf8(header.version()).c_str());
    std::printf("devices: %s\n", liba::to_utf8(header.devices()).c_str());
    for (int i = 0; i < skinner::kNativeSizeSlots; ++i) {
        skinner::NativeSize n = header.native_size(i);
        if (n.width != 0 || n.height != 0)
            std::printf("native: %dx%d\n", n.width, n.height);
    }
    std::printf("scale: %d\n", skin.scale());
    for (uint32_t node : d.inorder(header.form_tree()))
        std::printf("form: %s\n", liba::to_utf8(d.text_at(d.name(node))).c_str());
    return kDone;
}

// Paints one form of a skin headless, every control made by its class, into
// a PNG of the form's size. The screen is the skin's first native size times
// the scale, or the given size.
int skin_render(const Args& args)
{
    std::vector<std::string> names;
    skinner::Point size;
    int scale = 1;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--size" && i + 1 < args.size()) {
            if (!parse_size(args[++i], size))
                return kUsage;
        } else if (args[i] == "--scale" && i + 1 < args.size()) {
            auto n = liba::text_to_int(liba::from_utf8(args[++i]));
            if (!n || *n < 1 || *n > 4)
                return kUsage;
            scale = int(*n);
        } else if (!args[i].empty() && args[i][0] != '-') {
            names.push_back(args[i]);
        } else {
            return kUsage;
        }
    }
    if (names.size() != 3)
        return kUsage;
    const std::string& path = names[0];
    const std::wstring form = liba::from_utf8(names[1]);
    const std::string& out = names[2];
    os::init_path_macros();

    if (size.x == 0) {
        skinner::PropertiesImpl probe(liba::from_utf8(path), {});
        if (!probe.is_valid())
            return fail(path, "not a usable skin: " + liba::to_utf8(probe.load_error()));
        skinner::SkinHeaderView header = probe.description().header();
        for (int i = 0; i < skinner::kNativeSizeSlots && size.x == 0; ++i) {
            skinner::NativeSize n = header.native_size(i);
            if (n.width != 0 && n.height != 0)
                size = {n.width * scale, n.height * scale};
        }
        if (size.x == 0)
            size = {240 * scale, 320 * scale};
    }
    skinner::Properties skin(liba::from_utf8(path), size);
    std::wstring why = skinner::check_form(skin, form);
    if (!why.empty())
        return fail(path, liba::to_utf8(why));
    skinner::ClassFactoryForm shown(skin, form);
    shown.paint_dirty();
    if (!skinner::write_png(out, shown.impl().back_buffer()))
        return fail(out, "can't write the picture");
    return kDone;
}

} // namespace

int cmd_skin(const Args& args)
{
    if (args.empty())
        return kUsage;
    Args rest(args.begin() + 1, args.end());
    if (args[0] == "info")
        return skin_info(rest);
    if (args[0] == "render")
        return skin_render(rest);
    return kUsage;
}

} // namespace quillctl
