#include "audio/play_chain.h"
#include "files/id3_tag.h"
#include "liba/text.h"
#include "os/file.h"
#include "os/path.h"
#include "tools/commands.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>

namespace quillctl {

namespace {

// Bytes of a whole ID3 version 1 tag, "TAG" included.
constexpr std::int64_t kTagBytes = 128;
// The tag's fields are found in this many bytes at the end of the file.
constexpr std::int64_t kTagWindow = 1000;

struct Request {
    std::wstring file;
    std::optional<std::wstring> title, artist, album, year, comment;
    std::optional<std::uint8_t> track, genre;
    bool remove = false;

    bool changes() const { return title || artist || album || year || comment || track || genre; }
};

std::optional<std::uint8_t> byte_value(const std::string& text)
{
    auto v = liba::text_to_int(liba::from_utf8(text));
    if (!v || *v < 0 || *v > 255)
        return std::nullopt;
    return static_cast<std::uint8_t>(*v);
}

// Nullopt when the command line is wrong.
std::optional<Request> parse(const Args& args)
{
    if (args.empty() || args[0].rfind("--", 0) == 0)
        return std::nullopt;
    Request r;
    r.file = liba::from_utf8(args[0]);
    for (std::size_t i = 1; i < args.size(); ++i) {
        const std::string& option = args[i];
        if (option == "--remove") {
            r.remove = true;
            continue;
        }
        if (i + 1 >= args.size())
            return std::nullopt;
        const std::string& value = args[++i];
        if (option == "--title")
            r.title = liba::from_utf8(value);
        else if (option == "--artist")
            r.artist = liba::from_utf8(value);
        else if (option == "--album")
            r.album = liba::from_utf8(value);
        else if (option == "--year")
            r.year = liba::from_utf8(value);
        else if (option == "--comment")
            r.comment = liba::from_utf8(value);
        else if (option == "--track" && (r.track = byte_value(value)))
            continue;
        else if (option == "--genre" && (r.genre = byte_value(value)))
            continue;
        else
            return std::nullopt;
    }
    if (r.remove && r.changes())
        return std::nullopt;
    return r;
}

// The last bytes of a file, to put back should a write fail half-way.
struct Tail {
    std::int64_t size = 0; // of the whole file
    std::string bytes;     // its last min(size, kTagWindow) bytes
};

bool read_tail(const std::wstring& path, Tail& tail)
{
    os::File file(path, os::File::kRead);
    tail.size = file.size();
    const std::int64_t n = std::min(tail.size, kTagWindow);
    tail.bytes.assign(static_cast<std::size_t>(n), '\0');
    return file.good() && file.seek(tail.size - n) &&
           file.read(tail.bytes.data(), tail.bytes.size()) == tail.bytes.size();
}

// Puts the file back as `tail` found it.
void restore(const std::wstring& path, const Tail& tail)
{
    os::File file(path, 3); // read and write
    if (!file.good() || ::ftruncate(file.handle(), tail.size) != 0)
        return;
    if (file.seek(tail.size - static_cast<std::int64_t>(tail.bytes.size())))
        file.write(tail.bytes.data(), tail.bytes.size());
    file.flush();
}

int write_tag(const Request& r, const std::string& name)
{
    Tail tail;
    if (!read_tail(r.file, tail))
        return fail(name, "can't read the file");
    Id3Tag tag;
    tag.read(r.file);
    if (r.title)
        tag.title = *r.title;
    if (r.artist)
        tag.artist = *r.artist;
    if (r.album)
        tag.album = *r.album;
    if (r.year)
        tag.year = *r.year;
    if (r.comment)
        tag.comment = *r.comment;
    if (r.track)
        tag.track = *r.track;
    if (r.genre)
        tag.genre = *r.genre;
    if (!tag.write(r.file)) {
        restore(r.file, tail);
        return fail(name, "can't write the tag");
    }
    return kDone;
}

// Removes the tag whose "TAG" stands 128 bytes from the end; a tag anywhere
// else stays, since what follows it would go with it.
int remove_tag(const Request& r, const std::string& name)
{
    std::int64_t size = 0;
    char magic[3] = {};
    {
        os::File file(r.file, os::File::kRead);
        size = file.size();
        if (!file.good() || (size >= kTagBytes && (!file.seek(size - kTagBytes) || file.read(magic, 3) != 3)))
            return fail(name, "can't read the file");
    }
    if (size >= kTagBytes && std::memcmp(magic, "TAG", 3) == 0) {
        os::File file(r.file, 3); // read and write
        if (!file.good() || ::ftruncate(file.handle(), size - kTagBytes) != 0 || !file.flush())
            return fail(name, "can't remove the tag");
        return kDone;
    }
    Id3Tag tag;
    tag.read(r.file);
    if (tag.present)
        return fail(name, "its tag does not end the file; left as it is");
    return kDone;
}

} // namespace

int cmd_tag(const Args& args)
{
    std::optional<Request> request = parse(args);
    if (!request)
        return kUsage;
    const std::string name = liba::to_utf8(request->file);
    os::FileAttributes attributes(request->file);
    if (!attributes.exists())
        return fail(name, "no such file");
    if (attributes.is_folder)
        return fail(name, "is a folder, not an MP3 file");
    if (attributes.size == 0)
        return fail(name, "is empty, not an MP3 file");
    // An MP3 file as the program finds one: by content, after the WAV readers.
    std::unique_ptr<audio::PlayChain> chain = audio::create_play_chain(request->file, nullptr);
    if (!chain || chain->get_format() != audio::kFormatMP3)
        return fail(name, "not an MP3 file: ID3 tags belong to MP3 files only");

    if (request->remove)
        return remove_tag(*request, name);
    if (request->changes())
        return write_tag(*request, name);
    Id3Tag tag;
    tag.read(request->file);
    std::printf("%s", tag_fields(tag).c_str());
    return kDone;
}

} // namespace quillctl
