#include "audio/file_reader_wma.h"
#include "audio/play_chain.h"
#include "files/id3_tag.h"
#include "files/range_marks.h"
#include "liba/text.h"
#include "os/file.h"
#include "tools/commands.h"

#include <cstdio>
#include <memory>
#include <string>

namespace quillctl {

namespace {

// The name scripts see for a chain's format.
const char* format_key(const std::wstring& format)
{
    if (format == audio::kFormatPCM)
        return "wav-pcm";
    if (format == audio::kFormatADPCM)
        return "wav-adpcm";
    if (format == audio::kFormatGSM)
        return "wav-gsm";
    if (format == audio::kFormatMP3)
        return "mp3";
    if (format == audio::kFormatVorbis)
        return "vorbis";
    if (format == audio::kFormatMPC)
        return "musepack";
    if (format == audio::kFormatWMA)
        return "wma";
    return "unknown";
}

// Appends a `key: value` line.
void line(std::string& out, const char* key, const std::string& value)
{
    out += key;
    out += ": ";
    out += value;
    out += "\n";
}

std::string number(long long value) { return std::to_string(value); }

// The facts of one file into `out`; kFailed after the line that says why
// not.
int info_of(const std::string& file, std::string& out)
{
    const std::wstring path = liba::from_utf8(file);
    os::FileAttributes attributes(path);
    if (!attributes.exists())
        return fail(file, "no such file");
    if (attributes.is_folder)
        return fail(file, "is a folder, not a sound file");
    std::unique_ptr<audio::PlayChain> chain = audio::create_play_chain(path, nullptr);
    if (!chain || chain->get_reader() == nullptr)
        return fail(file, "no reader opens it: not a sound file the program plays");

    audio::FileReader& reader = *chain->get_reader();
    const std::wstring format = chain->get_format();
    line(out, "file", file);
    line(out, "format", format_key(format));
    line(out, "channels", number(reader.get_channels()));
    line(out, "rate", number(reader.get_rate()));
    line(out, "bits", number(reader.get_bits()));
    line(out, "bitrate", number(reader.get_bitrate() / 1000));
    char duration[64];
    std::snprintf(duration, sizeof duration, "%.3f", reader.get_duration());
    line(out, "duration", duration);
    if (format == audio::kFormatMP3) {
        Id3Tag tag;
        tag.read(path);
        out += tag_fields(tag);
    }
    const std::wstring side = side_file_of(path);
    if (os::FileAttributes(side).exists()) {
        // A side file that can't be read counts as no marks, as in the program.
        RangeMarks marks;
        marks.load(side);
        line(out, "marks", number(marks.count()));
    }
    return kDone;
}

} // namespace

std::string tag_fields(const Id3Tag& tag)
{
    std::string out;
    if (!tag.present)
        return out;
    auto text = [&out](const char* key, const std::wstring& value) {
        if (value.empty())
            return;
        // One fact a line, whatever bytes the tag holds.
        std::string utf8 = liba::to_utf8(value);
        for (char& c : utf8)
            if (c == '\n' || c == '\r' || c == '\t')
                c = ' ';
        line(out, key, utf8);
    };
    text("title", tag.title);
    text("artist", tag.artist);
    text("album", tag.album);
    text("year", tag.year);
    text("comment", tag.comment);
    if (tag.track != 0)
        line(out, "track", number(tag.track));
    line(out, "genre", number(tag.genre));
    return out;
}

int cmd_info(const Args& args)
{
    if (args.empty())
        return kUsage;
    // Asking the media service about a file must not play it aloud.
    audio::FileReaderWMA::set_audio_sink("fakesink");
    int result = kDone;
    bool printed = false;
    for (const std::string& file : args) {
        std::string out;
        if (info_of(file, out) != kDone) {
            result = kFailed;
            continue;
        }
        std::printf("%s%s", printed ? "\n" : "", out.c_str());
        std::fflush(stdout);
        printed = true;
    }
    return result;
}

} // namespace quillctl
