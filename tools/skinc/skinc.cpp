// skinc: the skin compiler. Reads SRC_DIR/skin.xml and the picture files
// beside it and writes OUT_DIR/NAME.skin, a stored ZIP archive holding the
// compiled description and the BMP and GIF pictures, with the PNG and JPEG
// pictures placed loose beside it (the program reads those only as loose
// files). Exit status: 0 done, 1 bad source or failed write (one line on
// standard error naming the file and line), 2 wrong command line.

#include "liba/text.h"
#include "os/file.h"
#include "os/finder.h"
#include "os/path.h"
#include "skinner/skin_description.h"
#include "tools/skinc/picture_files.h"
#include "tools/skinc/skin_source.h"
#include "tools/skinc/skin_writer.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr const wchar_t* kSourceName = L"skin.xml";

int fail(const std::wstring& text)
{
    std::fprintf(stderr, "skinc: %s\n", liba::to_utf8(text).c_str());
    return 1;
}

int usage()
{
    std::fprintf(stderr, "usage: skinc [--name NAME] SRC_DIR OUT_DIR\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::wstring> args;
    for (int i = 1; i < argc; ++i)
        args.push_back(liba::from_utf8(argv[i]));
    std::wstring name;
    if (args.size() >= 2 && args[0] == L"--name") {
        name = args[1];
        args.erase(args.begin(), args.begin() + 2);
    }
    if (args.size() != 2 || (!name.empty() && name.find(L'/') != std::wstring::npos))
        return usage();
    const std::wstring source_dir = os::strip_trailing_separator(args[0]);
    const std::wstring out_dir = os::strip_trailing_separator(args[1]);

    const std::wstring source_path = os::join_path(source_dir, kSourceName);
    std::string xml;
    if (!os::read_whole_file(source_path, xml))
        return fail(source_path + L": can't read it");

    skinc::PictureFolder folder(source_dir);
    skinc::SkinSource source;
    std::wstring error;
    if (!skinc::parse_skin_source(xml, source_path, folder.lookup(), source, error))
        return fail(error);
    if (name.empty())
        name = !source.name.empty() ? source.name : os::file_name_of(source_dir);

    std::string description;
    if (!skinc::write_description(source, description, error))
        return fail(error);
    // The compiler's own check: what it wrote must read back whole.
    std::wstring why;
    if (!skinner::SkinDescription(description).validate(&why))
        return fail(source_path + L": the compiled description does not read back: " + why);

    std::vector<std::pair<std::string, std::string>> entries;
    entries.emplace_back(liba::to_utf8(name) + ".skin", description);
    std::vector<skinc::PictureFile> loose;
    for (const skinc::PictureFile& f : folder.files_for(source.pictures, name)) {
        std::string bytes;
        if (!os::read_whole_file(f.source, bytes))
            return fail(f.source + L": can't read it");
        if (f.in_archive)
            entries.emplace_back(liba::to_utf8(f.target), bytes);
        else
            loose.push_back(f);
    }

    if (!os::create_folders(out_dir))
        return fail(out_dir + L": can't create the folder");
    for (const skinc::PictureFile& f : loose) {
        std::string bytes;
        std::wstring target = os::join_path(out_dir, f.target);
        if (!os::read_whole_file(f.source, bytes) || !os::write_file_atomically(target, bytes))
            return fail(target + L": can't write it");
    }
    std::wstring skin_path = os::join_path(out_dir, name + L".skin");
    if (!os::write_file_atomically(skin_path, skinc::make_stored_zip(entries)))
        return fail(skin_path + L": can't write it");
    return 0;
}
