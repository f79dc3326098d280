#pragma once

#include "skinner/color.h"
#include "skinner/properties.h"

#include <memory>
#include <string>

// The skin the program starts with: the one the settings name if it fits,
// else the default skin. Threads: main thread, at start-up. Sizes in screen
// pixels.
namespace skinner {

inline constexpr const wchar_t* kDefaultSkinPath = L"%app_path%/skins/Default/Default.skin";
inline constexpr const wchar_t* kDefaultTodaySkinPath = L"%windows%/Today Default.skin";
inline constexpr const wchar_t* kSettingsSkinPath = L"%app_path%/skins/settings/settings.skin";
inline constexpr const wchar_t* kDialogsSkinPath = L"%app_path%/skins/settings/dialogs.skin";

inline constexpr const wchar_t* kNoSkinText = L"Skin not found or it is incompatible with this version of Quillaphonics";
inline constexpr const wchar_t* kNoSkinCaption = L"Warning";

// The screen of a skin that names no native size, before the zoom.
inline constexpr Point kScreenWithoutNativeSize{240, 320};

// The screen for the skin at `path`: its first native size times the zoom.
// A zoom of 0 asks for the largest of 1 to 4 that fits `desktop` (1 when
// none does or the desktop is unknown), and is replaced by it. False, with
// (0,0), when the skin has no readable header.
bool screen_size_for(const std::wstring& path, int& zoom, Point desktop, Point& size);

struct SkinChoice {
    std::wstring path;  // the skin in use
    Point screen_size;  // the screen it was loaded for
    int zoom = 1;
    bool fell_back = false; // the settings' skin didn't fit: the default skin is in use
};

// Loads the skin of the settings for its screen (native size times zoom);
// if it is invalid or fails the test for "Quillaphonics_500" at that size,
// the default skin is loaded for its own screen. If that fails too, shows
// the warning (kNoSkinText under kNoSkinCaption) and returns null: the
// program then ends. Otherwise loads `language_file` (if not empty) into
// the new skin's translator and returns the skin. `default_skin_path` is
// for tests.
std::unique_ptr<Properties> choose_skin(const std::wstring& settings_skin_path, int zoom, Point desktop,
                                        const std::wstring& language_file, SkinChoice* choice = nullptr,
                                        const std::wstring& default_skin_path = kDefaultSkinPath);

// The warning of a start without a usable skin: a message box when a real
// display is there, else standard error; logged either way.
void show_no_skin_warning();

} // namespace skinner
