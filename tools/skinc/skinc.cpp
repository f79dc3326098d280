// skinc: the skin compiler. Reads SRC_DIR/skin.xml and the picture files
// beside it and writes OUT_DIR/NAME.skin, a stored ZIP archive holding the
// compiled description and the BMP and GIF pictures, with the PNG and JPEG
// pictures placed loose beside it (the program reads those only as loose
// files). With --svg DIR it also writes DIR/FORM.svg for each form, a
// drawing of the form made from the source alone at the --scale given (1 to
// 4, default 1), for checking the engine's drawing against an SVG renderer.
// Exit status: 0 done, 1 bad source or failed write (one line on standard
// error naming the file and line), 2 wrong command line.

#include "liba/text.h"
#include "os/file.h"
#include "os/finder.h"
#include "os/path.h"
#include "skinner/skin_description.h"
#include "tools/skinc/picture_files.h"
#include "tools/skinc/skin_source.h"
#include "tools/skinc/skin_writer.h"
#include "tools/skinc/svg_writer.h"

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
    std::fprintf(stderr, "usage: skinc [--name NAME] [--svg DIR [--scale N]] SRC_DIR OUT_DIR\n");
    return 2;
}

struct Options {
    std::wstring name;
    std::wstring svg_dir;
    int scale = 1;
};

// Takes the options off the front of `args`; false on a bad one.
bool take_options(std::vector<std::wstring>& args, Options& options)
{
    while (args.size() >= 2 && args[0].starts_with(L"--")) {
        const std::wstring& value = args[1];
        if (args[0] == L"--name" && value.find(L'/') == std::wstring::npos) {
            options.name = value;
        } else if (args[0] == L"--svg") {
            options.svg_dir = os::strip_trailing_separator(value);
        } else if (args[0] == L"--scale") {
            auto n = liba::text_to_int(value);
            if (!n || *n < 1 || *n > 4)
                return false;
            options.scale = int(*n);
        } else {
            return false;
        }
        args.erase(args.begin(), args.begin() + 2);
    }
    return true;
}

int write_drawings(const skinc::SkinSource& source, const skinc::PictureFolder& folder, const Options& options)
{
    std::vector<skinc::FormDrawing> drawings;
    std::wstring error;
    auto read = [&folder](const std::wstring& name, std::wstring& file, std::string& bytes) {
        return folder.read(name, file, bytes);
    };
    if (!skinc::draw_forms(source, options.scale, read, drawings, error))
        return fail(error);
    if (!os::create_folders(options.svg_dir))
        return fail(options.svg_dir + L": can't create the folder");
    for (const skinc::FormDrawing& d : drawings) {
        std::wstring target = os::join_path(options.svg_dir, d.form + L".svg");
        if (!os::write_file_atomically(target, d.svg))
            return fail(target + L": can't write it");
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::wstring> args;
    for (int i = 1; i < argc; ++i)
        args.push_back(liba::from_utf8(argv[i]));
    Options options;
    if (!take_options(args, options) || args.size() != 2)
        return usage();
    std::wstring name = options.name;
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
    return options.svg_dir.empty() ? 0 : write_drawings(source, folder, options);
}
