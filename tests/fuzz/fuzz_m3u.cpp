// Feeds arbitrary bytes to the M3U reader in both its readings. A list that
// reads must write a file that the strict reading takes back with the same
// paths and titles, and that writes again to the same bytes; the paths must
// resolve and rebase consistently.
#include "playlist/entry_path.h"
#include "playlist/list_m3u.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

const std::wstring kFrom = L"/home/ann/lists/mix.m3u";
const std::wstring kTo = L"/home/ann/other/deep/copy.m3u";

void check_paths(const std::wstring& path)
{
    std::wstring rebased = playlist::rebase_entry_path(path, kFrom, kTo);
    if (playlist::resolve_entry_path(kTo, rebased) != playlist::resolve_entry_path(kFrom, path))
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    for (auto reading : {playlist::ListM3U::kExtended, playlist::ListM3U::kPlain}) {
        playlist::ListM3U list;
        if (!list.read(bytes, reading)) {
            if (list.is_valid() || !list.entries.empty() || list.error.empty())
                std::abort();
            continue;
        }
        std::string written = list.to_bytes();
        playlist::ListM3U again;
        if (!again.read(written, playlist::ListM3U::kExtended) || again.entries.size() != list.entries.size())
            std::abort();
        for (size_t i = 0; i < list.entries.size(); ++i) {
            if (again.entries[i].path != list.entries[i].path ||
                again.entries[i].attribute(L"title") != list.entries[i].attribute(L"title"))
                std::abort();
            check_paths(list.entries[i].path);
        }
        if (again.to_bytes() != written)
            std::abort();
    }
    return 0;
}
