// The pictures of a skin on disk: entries of its ZIP archive and the files
// in the folder beside it.
#include "skinner/image_loader.h"

#include "liba/text.h"
#include "liba/zip_file.h"
#include "os/file.h"
#include "os/path.h"

#include <dirent.h>

#include <vector>

namespace skinner {

namespace {

class SkinImageStore : public ImageStore {
public:
    explicit SkinImageStore(const std::wstring& archive_path)
        : path_(os::expand_path(archive_path)), folder_(os::folder_of(path_)), zip_(path_)
    {
    }

    bool read_entry(const std::wstring& name, std::string& bytes) override
    {
        if (!zip_.is_open() || !zip_.find(name))
            return false;
        bytes.resize(zip_.size());
        bytes.resize(zip_.read(bytes.data(), bytes.size()));
        return true;
    }

    bool read_loose(const std::wstring& name, std::string& bytes) override
    {
        if (os::read_whole_file(os::join_path(folder_, name), bytes))
            return true;
        const std::wstring* other = find_ignoring_case(name);
        return other && os::read_whole_file(os::join_path(folder_, *other), bytes);
    }

private:
    const std::wstring* find_ignoring_case(const std::wstring& name)
    {
        if (!listed_) {
            listed_ = true;
            const std::string native = os::native_path(folder_.empty() ? L"." : folder_);
            if (DIR* dir = opendir(native.c_str())) {
                while (const dirent* e = readdir(dir))
                    names_.push_back(liba::from_utf8(e->d_name));
                closedir(dir);
            }
        }
        const std::wstring wanted = liba::to_lower(name);
        for (const std::wstring& n : names_)
            if (liba::to_lower(n) == wanted)
                return &n;
        return nullptr;
    }

    std::wstring path_;
    std::wstring folder_;
    liba::ZipFile zip_;
    bool listed_ = false;
    std::vector<std::wstring> names_;
};

} // namespace

std::unique_ptr<ImageStore> open_skin_store(const std::wstring& archive_path)
{
    return std::make_unique<SkinImageStore>(archive_path);
}

} // namespace skinner
