#include "playlist/list.h"

#include "os/log.h"
#include "playlist/entry_path.h"
#include "playlist/list_asx.h"
#include "playlist/list_m3u.h"
#include "playlist/list_multi_tracker.h"
#include "playlist/list_offline_radio.h"

namespace playlist {

std::wstring List::location_of(const PlaylistEntry& entry) const { return resolve_entry_path(source, entry.path); }

namespace {

// "M3U: line 1 is not ...; ASX, MultiTracker: ... at byte 3": readers that
// gave up for the same reason share one clause.
void add_reason(std::wstring& reasons, std::wstring& last_error, const List& list)
{
    if (!reasons.empty() && list.error == last_error) {
        size_t colon = reasons.rfind(L": " + last_error);
        reasons.insert(colon, L", " + list.format);
        return;
    }
    if (!reasons.empty())
        reasons += L"; ";
    reasons += list.format + L": " + list.error;
    last_error = list.error;
}

} // namespace

std::unique_ptr<List> load_playlist(const std::wstring& path)
{
    std::wstring reasons;
    std::wstring last_error;
    std::unique_ptr<List> list = std::make_unique<ListM3U>(path);
    if (list->is_valid())
        return list;
    std::wstring extended_error = list->error;
    add_reason(reasons, last_error, *list);

    list = std::make_unique<ListASX>(path);
    if (list->is_valid())
        return list;
    add_reason(reasons, last_error, *list);
    list = std::make_unique<ListMultiTracker>(path);
    if (list->is_valid())
        return list;
    add_reason(reasons, last_error, *list);
    list = std::make_unique<ListOfflineRadio>(path);
    if (list->is_valid())
        return list;
    add_reason(reasons, last_error, *list);

    auto plain = std::make_unique<ListM3U>(path, ListM3U::kPlain);
    if (plain->is_valid()) {
        os::log() << "playlist: " << path << ": read as a plain list of paths (extended M3U: " << extended_error
                  << ")\n";
        return plain;
    }
    os::log() << "playlist: " << path << ": not a list (" << reasons << "; plain M3U: " << plain->error << ")\n";
    return nullptr;
}

std::unique_ptr<List> make_list(const std::wstring& format)
{
    if (format == kFormatM3U)
        return std::make_unique<ListM3U>();
    if (format == kFormatASX)
        return std::make_unique<ListASX>();
    if (format == kFormatMultiTracker)
        return std::make_unique<ListMultiTracker>();
    if (format == kFormatOfflineRadio)
        return std::make_unique<ListOfflineRadio>();
    return nullptr;
}

} // namespace playlist
