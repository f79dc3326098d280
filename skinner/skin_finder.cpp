#include "skinner/skin_finder.h"

#include "liba/text.h"
#include "os/finder.h"
#include "os/path.h"
#include "skinner/properties.h"

namespace skinner {

void MySkinFinder::run()
{
    find_in(L"%app_path%/skins");
    find_in(L"%app_path%/TodayPlugin/skins");
    // Skins the user installed.
    find_in(L"%app_data%/skins");
}

void MySkinFinder::find_in(const std::wstring& folder)
{
    const std::wstring windows = os::normalize_path(L"%windows%");
    std::vector<std::wstring> pending{os::expand_path(folder)};
    // Folders are walked one level at a time; a bound on the count keeps a
    // loop of links from running on.
    for (size_t walked = 0; !pending.empty() && walked < 10000; ++walked) {
        std::wstring at = pending.back();
        pending.pop_back();
        std::vector<std::wstring> subfolders;
        os::Finder finder(at, L"*");
        while (finder.next()) {
            if (finder.is_folder()) {
                if (os::normalize_path(finder.full_path()) != windows)
                    subfolders.push_back(finder.full_path());
            } else if (os::Finder::matches(L"*.skin", finder.name())) {
                on_found(finder.full_path());
            }
        }
        // Depth first, in the order the folder listed them.
        pending.insert(pending.end(), subfolders.rbegin(), subfolders.rend());
    }
}

void MySkinFinder::on_found(const std::wstring& path)
{
    if (liba::to_lower(os::extension_of(path)) != L"skin")
        return;
    if (Properties::check_version(path, kAppVersionMark, screen_size_))
        add(skins_, path);
    else if (Properties::check_version(path, kTodayVersionMark, screen_size_))
        add(today_skins_, path);
}

void MySkinFinder::add(std::vector<std::wstring>& list, const std::wstring& path)
{
    for (std::wstring& listed : list)
        if (os::file_name_of(listed) == os::file_name_of(path)) {
            listed = path;
            return;
        }
    list.push_back(path);
}

Picture MySkinFinder::preview(const std::wstring& path)
{
    std::wstring name = os::file_name_of(path);
    std::wstring extension = os::extension_of(name);
    std::wstring stem = extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
    Picture picture(path, stem + L"_preview", true, 1);
    return picture.is_valid() ? picture : Picture();
}

} // namespace skinner
