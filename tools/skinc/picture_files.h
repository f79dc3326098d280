#pragma once

#include "tools/skinc/skin_source.h"

#include <string>
#include <vector>

// The picture files of a skin's source folder: which exist, how large they
// are, and where each goes in the compiled skin. Sizes in pixels.
// Threads: one object belongs to one thread.
namespace skinc {

struct PictureFile {
    std::wstring source; // path in the source folder
    std::wstring target; // name in the archive or beside the skin
    bool in_archive = false;
};

// Width and height from a PNG, BMP or GIF header; false for anything else.
bool picture_size(const std::string& bytes, int* width, int* height);

class PictureFolder {
public:
    explicit PictureFolder(const std::wstring& folder) : folder_(folder) {}

    // Answers for "NAME.png", ".bmp", ".gif" and ".jpg", in that order.
    PictureLookup lookup() const;
    // The first file of those for `name`: its name with extension, and its bytes.
    bool read(const std::wstring& name, std::wstring& file, std::string& bytes) const;

    // The files to ship for `pictures`: each picture's own file and every
    // variant named after it ("name_1", "name_8", "name_x2", ...), and the
    // folder's "preview" picture as "SKIN_preview". BMP and GIF files go
    // into the archive, PNG and JPEG files beside it.
    std::vector<PictureFile> files_for(const std::vector<std::wstring>& pictures, const std::wstring& skin_name) const;

private:
    std::wstring folder_;
};

} // namespace skinc
