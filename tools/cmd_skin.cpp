#include "liba/text.h"
#include "os/path.h"
#include "skinner/properties.h"
#include "tools/commands.h"

#include <cstdio>
#include <string>

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

} // namespace

int cmd_skin(const Args& args)
{
    if (args.empty())
        return kUsage;
    Args rest(args.begin() + 1, args.end());
    if (args[0] == "info")
        return skin_info(rest);
    return kUsage;
}

} // namespace quillctl
