#include "app/conversion.h"
#include "files/range_marks.h"
#include "liba/text.h"
#include "os/file.h"
#include "os/path.h"
#include "tools/commands.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <unistd.h>

namespace quillctl {

namespace {

// How often the progress line is brought up to date.
constexpr auto kTick = std::chrono::milliseconds(100);

// A progress line on standard error, only when that is a terminal.
class Progress {
public:
    Progress() : on_(::isatty(STDERR_FILENO) == 1) {}
    void show(std::int32_t position, std::int32_t length)
    {
        if (!on_ || length <= 0)
            return;
        std::fprintf(stderr, "\rconverting: %3d%%", static_cast<int>(100.0 * position / length));
        shown_ = true;
    }
    ~Progress()
    {
        if (shown_)
            std::fprintf(stderr, "\r\033[K");
    }

private:
    bool on_;
    bool shown_ = false;
};

} // namespace

int cmd_convert(const Args& args)
{
    if (args.size() != 2)
        return kUsage;
    const std::wstring in = liba::from_utf8(args[0]);
    const std::wstring out = liba::from_utf8(args[1]);
    if (liba::to_lower(os::extension_of(out)) != L"mp3") {
        std::fprintf(stderr, "quillctl: convert: OUT is an .mp3 file\n");
        return kUsage;
    }
    os::FileAttributes source(in);
    if (!source.exists())
        return fail(args[0], "no such file");
    if (source.is_folder)
        return fail(args[0], "is a folder, not a sound file");
    os::FileAttributes target(out);
    if (target.is_folder)
        return fail(args[1], "is a folder");
    const std::wstring folder = os::folder_of(out);
    os::FileAttributes target_folder(folder.empty() ? std::wstring(L".") : folder);
    if (!target_folder.exists() || !target_folder.is_folder)
        return fail(args[1], "its folder does not exist");

    // Written beside OUT under a name of its own and renamed over it at the
    // end, so a failed conversion leaves an existing OUT as it was. The marks
    // wait until OUT has its final name.
    const std::wstring temporary =
        os::folder_of(out) + L"." + os::file_name_of(out) + L".quillctl-" + liba::int_to_text(::getpid());
    Conversion conversion(in, temporary, false);
    if (!conversion.is_open())
        return fail(args[0], "no reader opens it: not a sound file the program converts");
    std::wstring why;
    if (!conversion.can_encode(&why))
        return fail(args[0], "has " + liba::to_utf8(why));
    if (!conversion.is_good())
        return fail(args[1], "can't be written");
    if (!conversion.has_room())
        return fail(args[1], "not enough room in its folder for the MP3");

    // quillctl has nothing else to do, so the work runs at normal urgency.
    if (!conversion.begin(0))
        return fail("convert", "can't start the conversion's thread");
    {
        Progress progress;
        while (conversion.is_running()) {
            progress.show(conversion.get_position(), conversion.get_length());
            std::this_thread::sleep_for(kTick);
        }
    }
    if (!conversion.finish())
        return conversion.is_eof() ? fail(args[1], "can't be written") : fail(args[0], "could not be read to its end");
    if (std::rename(os::native_path(temporary).c_str(), os::native_path(out).c_str()) != 0) {
        os::FileAttributes(temporary).remove();
        return fail(args[1], "can't be written");
    }
    const std::wstring side = side_file_of(out);
    if (conversion.has_marks()) {
        if (!conversion.target_marks().save(side))
            return fail(liba::to_utf8(side), "can't be written");
    } else if (os::FileAttributes(side).exists() && !os::FileAttributes(side).remove()) {
        return fail(liba::to_utf8(side), "is stale and can't be removed");
    }
    return kDone;
}

} // namespace quillctl
