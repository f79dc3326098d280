// Feeds arbitrary bytes to liba::ZipFile as an archive file: the chain of
// local headers must end, and no read may go past the entry or the file.
#include "liba/text.h"
#include "liba/zip_file.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int fd = ::memfd_create("fuzz_zip", 0);
    if (fd < 0 || ::ftruncate(fd, 0) != 0 || ::pwrite(fd, data, size, 0) != static_cast<ssize_t>(size))
        return 0;
    static const std::wstring path = liba::from_utf8("/proc/self/fd/" + std::to_string(fd));

    liba::ZipFile zip(path);
    std::string buffer;
    std::wstring last;
    size_t total = 0;
    for (int i = 0; i < 1000; ++i) {
        std::wstring name = zip.next_entry();
        if (name.empty())
            break;
        last = name;
        buffer.assign(zip.size() > size ? size + 1 : zip.size(), '\0');
        size_t got = zip.read(buffer.data(), buffer.size());
        // Never more than the entry holds, nor than the file has.
        if (got > zip.size() || got > size || zip.tell() != got)
            std::abort();
        total += got;
        if (zip.size() > 0 && (!zip.seek(zip.size() - 1) || zip.read(buffer.data(), 10) > 1))
            std::abort();
        if (zip.seek(zip.size() + 1))
            std::abort();
    }
    // Every entry has data behind its own header: the entries together
    // can't hold more bytes than the file.
    if (total > size)
        std::abort();
    if (!last.empty() && !zip.find(last))
        std::abort();
    zip.find(L"x.skin");
    return 0;
}
