// quillctl: the command-line companion of Quillaphonics. It works on files
// through the program's own stages and remote-controls a running program.
// Exit status: 0 done, 1 the work failed (one line on standard error), 2 the
// command line is wrong.

#include "tools/commands.h"

#include <cstdio>
#include <string>

namespace quillctl {

int fail(const std::string& what, const std::string& why)
{
    std::fprintf(stderr, "quillctl: %s: %s\n", what.c_str(), why.c_str());
    return kFailed;
}

namespace {

struct Command {
    const char* name;
    const char* synopsis;
    const char* help;
    int (*run)(const Args& args);
};

// One row per command, in the order the usage lists them.
const Command kCommands[] = {
    {"convert", "convert IN OUT.mp3",
     "Converts IN to an MP3 at 64 kbit/s as the program does, its marks carried\n"
     "over by time into OUT.mp3.bm. OUT.mp3 is written under a temporary name and\n"
     "replaces an existing file only when the conversion succeeds. A progress line\n"
     "shows on standard error when that is a terminal.\n",
     cmd_convert},
    {"decode",
     "decode FILE OUT [--start S] [--end S] [--route] [--speed X [--pitch keep|change|stretch]]\n"
     "       [--eq F,W,G]... [--booster N] [--noise N] [--limiter N] [--volume P]",
     "Plays FILE through the program's play path, pulled in the player's requests,\n"
     "into OUT instead of the speaker, as fast as the machine allows. OUT is a .wav\n"
     "(16-bit PCM in the stream's rate and channels) or - for raw 16-bit\n"
     "little-endian samples on standard output. 8-bit samples become (x - 128) << 8,\n"
     "wider ones keep their top 16 bits; every channel is kept.\n"
     "  --start S, --end S  seconds of the file to begin and stop at\n"
     "  --route             plays the route through the marks of FILE.bm\n"
     "  --speed X           0.5 to 2.0; with --end, the frames out follow the speed\n"
     "  --pitch keep        (the default) the program's pitch lock: normal or half\n"
     "                      speed at the natural pitch (below 0.75 is half speed)\n"
     "  --pitch change      fast play: frames picked, the pitch follows the speed\n"
     "  --pitch stretch     any speed at the natural pitch (time stretch)\n"
     "  --eq F,W,G          an active equaliser: centre Hz, width in octaves above\n"
     "                      0, gain dB; up to three, in order\n"
     "  --booster N, --noise N, --limiter N   0 (Off) to 3 (High)\n"
     "  --volume P          0 to 100: the player's volume P / 100\n",
     cmd_decode},
    {"info", "info FILE...",
     "Opens each file as the program would (format found by content) and prints\n"
     "file, format (wav-pcm, wav-adpcm, wav-gsm, mp3, vorbis, musepack, wma),\n"
     "channels, rate, bits, bitrate (kbit/s) and duration (seconds) as the\n"
     "program's reader reports them; then the fields of an MP3's ID3 version 1\n"
     "tag, and marks (their count) where a side file FILE.bm exists. A blank line\n"
     "separates files. A file no reader opens fails with a line naming it.\n",
     cmd_info},
    {"list", "list FILE [--save OUT]",
     "Prints the entries of a list (M3U, ASX or either XML log, found by content;\n"
     "a text file of paths is read as a plain M3U), one a line: the path as the\n"
     "program opens it (relative paths mean the list's folder), a tab and the\n"
     "title where the list has one.\n"
     "  --save OUT  writes the entries to OUT in the format its extension names:\n"
     "              .m3u, .asx, or .xml (the XML log the list was read as, else\n"
     "              the \"multitracker\" one); relative paths are rewritten to\n"
     "              name the same files from OUT's folder.\n",
     cmd_list},
    {"log", "log on|off",
     "Switches the program's log on or off. While on, the program writes\n"
     "%app_data%/Quillaphonics.txt (UTF-16), truncated at each switch-on.\n",
     cmd_log},
    {"marks", "marks FILE [--add NAME POSITION] [--remove NAME] [--route NAME...] [--export OUT.txt]",
     "Prints the marks of FILE from its side file FILE.bm, one a line, tab-separated:\n"
     "name, position (in the file's own position unit), seconds (empty where no\n"
     "reader takes the file) and route (place in the route from 0, -1 when not in it).\n"
     "The options change the side file, in the order given:\n"
     "  --add NAME POSITION  adds a mark; inside a routed range it joins the route\n"
     "  --remove NAME        removes every mark of that name\n"
     "  --route NAME...      the route becomes these marks in this order (a name\n"
     "                       several marks carry brings them all, by position)\n"
     "  --export OUT.txt     writes the marks as a label track for audio editors:\n"
     "                       start, tab, end, tab, name, in seconds\n"
     "A file with no side file has no marks.\n",
     cmd_marks},
    {"skin", "skin info SKIN [--size WxH]",
     "info: prints what the skin is made for, as the program loads it: version,\n"
     "devices, a native: WxH line per native size, the scale for the screen size\n"
     "given (1 without --size) and a form: NAME line per form node. A skin the\n"
     "program can't use (no description, cut short, a picture missing, ...)\n"
     "fails with the reason.\n",
     cmd_skin},
    {"tag", "tag FILE [--title T] [--artist A] [--album A] [--year Y] [--comment C] [--track N] [--genre N] [--remove]",
     "Without options prints the ID3 version 1 tag of an MP3 file as key: value\n"
     "lines (nothing when it has none). With options writes those fields, keeping\n"
     "the others; a file without a tag gains one. Texts are stored in Windows-1252\n"
     "and cut to their fields (30 bytes, the year 4, the comment 28, which leaves\n"
     "room for the track); --track and --genre take 0 to 255.\n"
     "  --remove  removes the tag that ends the file (its \"TAG\" 128 bytes from\n"
     "            the end); a tag elsewhere is left alone\n"
     "A missing file or one that is not MP3 fails and stays untouched.\n",
     cmd_tag},
    {"play", "play [PATH] [--show]",
     "Plays PATH (a sound file, or a list from its first entry) in the running\n"
     "program; without PATH, the program's current item. Prints ok or failed.\n", cmd_play},
    {"record", "record [PATH FORMAT] [--show]",
     "Starts a recording: without arguments where the program puts new ones; with\n"
     "PATH, FORMAT 0 to 8 picks codec and MP3 bit rate. Prints ok or failed.\n", cmd_record},
    {"overwrite", "overwrite PATH [--show]", "Records over PATH in its own format.\n", cmd_overwrite},
    {"append", "append PATH [--show]", "Records onto the end of PATH.\n", cmd_append},
    {"insert", "insert PATH POSITION [--show]",
     "Records into PATH at POSITION (the file's own position unit).\n", cmd_insert},
    {"pause", "pause [--show]", "Pauses the program, or resumes it when paused.\n", cmd_pause},
    {"stop", "stop [--show]", "Stops playing or recording.\n", cmd_stop},
    {"status", "status [--show]",
     "Prints the running program's status: state, path, length, position, format,\n"
     "rate, bits, kbps, stereo, time_ms.\n", cmd_status},
    {"next", "next [--show]", "Plays the next item of the list by the playback mode.\n", cmd_next},
    {"previous", "previous [--show]", "Plays the previous item of the list.\n", cmd_previous},
    {"step", "step DELTA [--show]", "Moves DELTA items through the playing order and plays.\n", cmd_step},
};

void print_usage(FILE* to)
{
    std::fprintf(to, "usage: quillctl COMMAND ARGS...\n\ncommands:\n");
    for (const auto& c : kCommands)
        std::fprintf(to, "  quillctl %s\n", c.synopsis);
    std::fprintf(to, "\n'quillctl COMMAND --help' describes a command.\n");
}

const Command* find_command(const std::string& name)
{
    for (const auto& c : kCommands)
        if (name == c.name)
            return &c;
    return nullptr;
}

} // namespace
} // namespace quillctl

int main(int argc, char** argv)
{
    using namespace quillctl;
    Args all(argv + 1, argv + argc);
    if (all.empty()) {
        print_usage(stderr);
        return kUsage;
    }
    if (all[0] == "--help" || all[0] == "-h" || all[0] == "help") {
        print_usage(stdout);
        return kDone;
    }
    const Command* command = find_command(all[0]);
    if (!command) {
        std::fprintf(stderr, "quillctl: unknown command '%s'\n", all[0].c_str());
        print_usage(stderr);
        return kUsage;
    }
    Args args(all.begin() + 1, all.end());
    if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
        std::printf("usage: quillctl %s\n\n%s", command->synopsis, command->help);
        return kDone;
    }
    int result = command->run(args);
    if (result == kUsage)
        std::fprintf(stderr, "usage: quillctl %s\n", command->synopsis);
    return result;
}
