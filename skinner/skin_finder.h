#pragma once

#include "skinner/color.h"
#include "skinner/picture.h"

#include <string>
#include <vector>

// Gathers the skins that the settings offer: every "*.skin" below
// "%app_path%/skins", "%app_path%/TodayPlugin/skins" and "%app_data%/skins"
// (subfolders too, except "%windows%"), sorted into application skins and
// Today skins by the version mark of their header.
// Threads: the user-interface thread. Sizes in screen pixels.
namespace skinner {

class MySkinFinder {
public:
    // Skins whose header passes the compatibility test for `screen_size`.
    explicit MySkinFinder(Point screen_size) : screen_size_(screen_size) {}

    // Looks through the stock folders.
    void run();
    // Looks through one folder and its subfolders.
    void find_in(const std::wstring& folder);
    // Tests one found file and lists it where it belongs.
    void on_found(const std::wstring& path);

    // Paths as found, one entry per file name: a later skin of the same file
    // name replaces the earlier.
    const std::vector<std::wstring>& skins() const { return skins_; }
    const std::vector<std::wstring>& today_skins() const { return today_skins_; }

    // The picture "STEM_preview" of the skin at `path`, beside the skin or
    // in its archive; an empty Picture when there is none.
    static Picture preview(const std::wstring& path);

private:
    static void add(std::vector<std::wstring>& list, const std::wstring& path);

    Point screen_size_;
    std::vector<std::wstring> skins_;
    std::vector<std::wstring> today_skins_;
};

} // namespace skinner
