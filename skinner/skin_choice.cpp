#include "skinner/skin_choice.h"

#include "liba/text.h"
#include "os/log.h"

#include <SDL.h>

#include <cstdio>

namespace skinner {

bool screen_size_for(const std::wstring& path, int& zoom, Point desktop, Point& size)
{
    size = {};
    std::string header;
    if (!read_skin_header(path, header) ||
        !SkinHeaderView::is_well_formed(reinterpret_cast<const uint8_t*>(header.data()), header.size())) {
        if (zoom < 1 || zoom > 4)
            zoom = 1;
        return false;
    }
    NativeSize n = SkinHeaderView(reinterpret_cast<const uint8_t*>(header.data())).native_size(0);
    Point native{n.width, n.height};
    if (native.x <= 0 || native.y <= 0)
        native = kScreenWithoutNativeSize;
    if (zoom < 1 || zoom > 4) {
        zoom = 1;
        for (int z = 4; z > 1; --z)
            if (int64_t(native.x) * z <= desktop.x && int64_t(native.y) * z <= desktop.y) {
                zoom = z;
                break;
            }
    }
    size = {native.x * zoom, native.y * zoom};
    return true;
}

std::unique_ptr<Properties> choose_skin(const std::wstring& settings_skin_path, int zoom, Point desktop,
                                        const std::wstring& language_file, SkinChoice* choice,
                                        const std::wstring& default_skin_path)
{
    SkinChoice made;
    made.path = settings_skin_path;
    made.zoom = zoom;
    screen_size_for(made.path, made.zoom, desktop, made.screen_size);
    auto properties = std::make_unique<Properties>(made.path, made.screen_size);
    if (!properties->check_version(kAppVersionMark, made.screen_size)) {
        os::log() << "start-up: skin [" << made.path << "] doesn't fit ("
                  << properties->impl().load_error() << "); taking the default skin\n";
        made.path = default_skin_path;
        made.zoom = zoom;
        made.fell_back = true;
        // The default skin has a screen of its own.
        screen_size_for(made.path, made.zoom, desktop, made.screen_size);
        properties->change_skin(made.path, made.screen_size);
        if (!properties->check_version(kAppVersionMark, made.screen_size)) {
            os::log() << "start-up: the default skin [" << made.path << "] doesn't fit either ("
                      << properties->impl().load_error() << ")\n";
            show_no_skin_warning();
            if (choice)
                *choice = made;
            return nullptr;
        }
    }
    if (!language_file.empty() && !properties->load_language(language_file))
        os::log() << "start-up: language file [" << language_file << "] not loaded\n";
    if (choice)
        *choice = made;
    return properties;
}

void show_no_skin_warning()
{
    os::log() << kNoSkinCaption << ": " << kNoSkinText << "\n";
    const char* driver = SDL_WasInit(SDL_INIT_VIDEO) ? SDL_GetCurrentVideoDriver() : nullptr;
    if (driver && std::string(driver) != "offscreen" && std::string(driver) != "dummy" &&
        SDL_ShowSimpleMessageBox(SDL_MESSAGEBOX_WARNING, liba::to_utf8(kNoSkinCaption).c_str(),
                                 liba::to_utf8(kNoSkinText).c_str(), nullptr) == 0)
        return;
    std::fprintf(stderr, "%s: %s\n", liba::to_utf8(kNoSkinCaption).c_str(), liba::to_utf8(kNoSkinText).c_str());
}

} // namespace skinner
