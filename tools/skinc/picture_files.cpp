#include "tools/skinc/picture_files.h"

#include "liba/text.h"
#include "os/file.h"
#include "os/finder.h"
#include "os/path.h"

#include <algorithm>

namespace skinc {

namespace {

constexpr const wchar_t* kExtensions[] = {L"png", L"bmp", L"gif", L"jpg"};
constexpr const wchar_t* kPreviewStem = L"preview";

uint32_t be32(const std::string& b, size_t at)
{
    return uint32_t(uint8_t(b[at])) << 24 | uint32_t(uint8_t(b[at + 1])) << 16 | uint32_t(uint8_t(b[at + 2])) << 8 |
           uint8_t(b[at + 3]);
}

uint32_t le32(const std::string& b, size_t at)
{
    return uint32_t(uint8_t(b[at])) | uint32_t(uint8_t(b[at + 1])) << 8 | uint32_t(uint8_t(b[at + 2])) << 16 |
           uint32_t(uint8_t(b[at + 3])) << 24;
}

bool is_picture_extension(const std::wstring& extension)
{
    std::wstring e = liba::to_lower(extension);
    return std::find(std::begin(kExtensions), std::end(kExtensions), e) != std::end(kExtensions);
}

std::wstring stem_of(const std::wstring& file)
{
    std::wstring extension = os::extension_of(file);
    return extension.empty() ? file : file.substr(0, file.size() - extension.size() - 1);
}

} // namespace

bool picture_size(const std::string& b, int* width, int* height)
{
    if (b.size() >= 24 && b.compare(0, 8, "\x89PNG\r\n\x1a\n") == 0) {
        *width = static_cast<int>(be32(b, 16));
        *height = static_cast<int>(be32(b, 20));
    } else if (b.size() >= 26 && b.compare(0, 2, "BM") == 0) {
        *width = static_cast<int32_t>(le32(b, 18));
        int32_t h = static_cast<int32_t>(le32(b, 22));
        *height = h < 0 ? -h : h; // negative: rows from the top
    } else if (b.size() >= 10 && (b.compare(0, 6, "GIF87a") == 0 || b.compare(0, 6, "GIF89a") == 0)) {
        *width = uint8_t(b[6]) | uint8_t(b[7]) << 8;
        *height = uint8_t(b[8]) | uint8_t(b[9]) << 8;
    } else {
        return false;
    }
    return *width >= 0 && *height >= 0;
}

bool PictureFolder::read(const std::wstring& name, std::wstring& file, std::string& bytes) const
{
    for (const wchar_t* extension : kExtensions) {
        file = name + L"." + extension;
        if (os::read_whole_file(os::join_path(folder_, file), bytes))
            return true;
    }
    return false;
}

PictureLookup PictureFolder::lookup() const
{
    PictureFolder folder = *this;
    return [folder](const std::wstring& name, int* width, int* height) {
        std::wstring file;
        std::string bytes;
        if (!folder.read(name, file, bytes))
            return false;
        if (!picture_size(bytes, width, height))
            *width = *height = -1;
        return true;
    };
}

std::vector<PictureFile> PictureFolder::files_for(const std::vector<std::wstring>& pictures,
                                                  const std::wstring& skin_name) const
{
    std::vector<PictureFile> out;
    os::Finder finder(folder_, L"*.*");
    while (finder.next()) {
        if (finder.is_folder() || !is_picture_extension(os::extension_of(finder.name())))
            continue;
        std::wstring stem = stem_of(finder.name());
        std::wstring target = finder.name();
        bool wanted = false;
        for (const std::wstring& p : pictures)
            wanted = wanted || stem == p || (stem.size() > p.size() && stem.compare(0, p.size(), p) == 0 &&
                                             stem[p.size()] == L'_');
        if (stem == kPreviewStem) {
            wanted = true;
            target = skin_name + L"_preview." + os::extension_of(finder.name());
        }
        if (!wanted)
            continue;
        std::wstring extension = liba::to_lower(os::extension_of(finder.name()));
        out.push_back({finder.full_path(), target, extension == L"bmp" || extension == L"gif"});
    }
    // Folder order is the file system's; the archive should not depend on it.
    std::sort(out.begin(), out.end(), [](const PictureFile& a, const PictureFile& b) { return a.target < b.target; });
    return out;
}

} // namespace skinc
