// Arbitrary bytes, as the end of an MP3 file, through the ID3 version 1 tag
// reader and writer. Nothing may crash; a tag that reads must read back the
// same after it is written over itself (the comment then keeps 28 bytes), and
// the file keeps its size.
#include "files/id3_tag.h"
#include "liba/text.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void check(bool ok)
{
    if (!ok)
        std::abort();
}

// The comment as it reads after a write: 28 bytes, trailing blanks dropped.
std::wstring written_comment(const std::wstring& comment)
{
    std::wstring c = liba::from_cp1252(liba::to_cp1252(comment).substr(0, 28));
    while (!c.empty() && c.back() == L' ')
        c.pop_back();
    return c;
}

off_t file_size(int fd)
{
    struct stat st;
    check(fstat(fd, &st) == 0);
    return st.st_size;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static int fd = memfd_create("fuzz_id3", 0);
    static std::wstring path = liba::from_utf8("/proc/self/fd/" + std::to_string(fd));
    check(fd >= 0 && ftruncate(fd, 0) == 0);
    check(size == 0 || pwrite(fd, data, size, 0) == static_cast<ssize_t>(size));

    Id3Tag tag;
    tag.read(path);
    if (!tag.present) {
        // A file without "TAG" in its last 1000 bytes gets a tag appended.
        std::string_view tail(reinterpret_cast<const char*>(data), size);
        if (tail.size() > 1000)
            tail.remove_prefix(tail.size() - 1000);
        Id3Tag fresh;
        fresh.title = L"T";
        if (tail.find("TAG") != std::string_view::npos) {
            (void)fresh.write(path);
            return 0;
        }
        check(fresh.write(path));
        check(file_size(fd) == static_cast<off_t>(size + 128));
        Id3Tag back;
        back.read(path);
        check(back.present && back.title == L"T" && back.genre == 0);
        return 0;
    }
    check(tag.title.size() <= 30 && tag.artist.size() <= 30 && tag.album.size() <= 30);
    check(tag.year.size() <= 4 && tag.comment.size() <= 30);

    check(tag.write(path));
    check(file_size(fd) == static_cast<off_t>(size));
    Id3Tag back;
    back.read(path);
    check(back.present);
    check(back.title == tag.title && back.artist == tag.artist && back.album == tag.album);
    check(back.year == tag.year && back.genre == tag.genre && back.track == tag.track);
    check(back.comment == written_comment(tag.comment));
    return 0;
}
