#include "liba/text.h"
#include "os/file.h"
#include "os/path.h"
#include "playlist/entry_path.h"
#include "playlist/list.h"
#include "tools/commands.h"

#include <cstdio>
#include <memory>
#include <unistd.h>

namespace quillctl {

namespace {

std::wstring working_folder()
{
    char buf[4096];
    if (!::getcwd(buf, sizeof buf))
        return L"/";
    return liba::from_utf8(buf);
}

// The format that OUT's extension names; empty for none of them.
std::wstring format_for(const std::wstring& out, const playlist::List& read_as)
{
    std::wstring ext = liba::to_lower(os::extension_of(out));
    if (ext == L"m3u" || ext == L"m3u8")
        return playlist::kFormatM3U;
    if (ext == L"asx")
        return playlist::kFormatASX;
    if (ext == L"xml") {
        if (read_as.format == playlist::kFormatMultiTracker || read_as.format == playlist::kFormatOfflineRadio)
            return read_as.format;
        return playlist::kFormatMultiTracker;
    }
    return {};
}

int save_list(const playlist::List& list, const std::string& out_arg)
{
    std::wstring out = os::make_absolute(liba::from_utf8(out_arg), working_folder());
    std::wstring format = format_for(out, list);
    if (format.empty()) {
        fail(out_arg, "unknown list format: the name must end in .m3u, .asx or .xml");
        return kUsage;
    }
    std::unique_ptr<playlist::List> copy = playlist::make_list(format);
    copy->name = list.name;
    copy->header_id = list.header_id;
    copy->start_time = list.start_time;
    copy->entries = list.entries;
    // Relative paths keep naming the same files from the new list's folder.
    for (playlist::PlaylistEntry& entry : copy->entries)
        entry.path = playlist::rebase_entry_path(entry.path, list.source, out);
    if (!copy->save(out))
        return fail(out_arg, "can't write the list");
    return kDone;
}

} // namespace

int cmd_list(const Args& args)
{
    std::string file;
    std::string out;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--save" && i + 1 < args.size() && out.empty())
            out = args[++i];
        else if (file.empty() && !args[i].empty() && args[i] != "--save")
            file = args[i];
        else
            return kUsage;
    }
    if (file.empty())
        return kUsage;
    os::init_path_macros();

    std::wstring path = os::make_absolute(liba::from_utf8(file), working_folder());
    os::FileAttributes attributes(path);
    if (!attributes.exists())
        return fail(file, "no such file");
    if (attributes.is_folder)
        return fail(file, "is a folder, not a list");
    std::unique_ptr<playlist::List> list = playlist::load_playlist(path);
    if (!list)
        return fail(file, "not a list (M3U, ASX or an XML log) nor a text file of paths");

    for (const playlist::PlaylistEntry& entry : list->get_entries()) {
        std::string line = liba::to_utf8(list->location_of(entry));
        std::wstring title = entry.attribute(L"title");
        if (!title.empty())
            line += "\t" + liba::to_utf8(title);
        std::printf("%s\n", line.c_str());
    }
    if (std::fflush(stdout) != 0)
        return fail(file, "can't write the entries");
    return out.empty() ? kDone : save_list(*list, out);
}

} // namespace quillctl
