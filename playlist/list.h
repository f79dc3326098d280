#pragma once

#include "liba/nocopy.h"
#include "playlist/playlist_entry.h"

#include <memory>
#include <string>
#include <vector>

// The lists the program plays: one array of entries whatever format a file
// holds. A list belongs to the main thread, like the control that shows it.
namespace playlist {

// Names kept in List::format.
inline constexpr wchar_t kFormatM3U[] = L"M3U";
inline constexpr wchar_t kFormatASX[] = L"ASX";
inline constexpr wchar_t kFormatMultiTracker[] = L"MultiTracker";
inline constexpr wchar_t kFormatOfflineRadio[] = L"OfflineRadio";

class List : liba::Nocopy {
public:
    virtual ~List() = default;

    virtual bool is_valid() const { return true; }
    virtual const std::vector<PlaylistEntry>& get_entries() const { return entries; }
    // Writes the whole list to `path` in this list's format, replacing the
    // file only once it is complete. The base writes nothing.
    virtual bool save(const std::wstring& path) const
    {
        (void)path;
        return true;
    }

    // The file to open for an entry: relative paths mean this list's folder.
    std::wstring location_of(const PlaylistEntry& entry) const;

    std::vector<PlaylistEntry> entries;
    std::wstring format;     // one of the kFormat names
    std::wstring name;       // the XML logs' "Name"
    std::wstring header_id;  // the XML logs' "HeaderID"
    std::wstring start_time; // the XML logs' "StartTime", as the file had it
    bool valid = false;      // false until a reader has succeeded

    std::wstring source; // the file the list was read from; empty for a new list
    std::wstring error;  // where and why the reader gave up; empty when it did not

protected:
    explicit List(const wchar_t* format_name) : format(format_name) {}
};

// Reads the list at `path`, the format found by content: extended M3U, ASX,
// the "multitracker" log, the other log, and last, for lists that other
// programs write, text read as a plain list of paths. Null when nothing reads
// the file; the log then names the file and where each reader gave up.
std::unique_ptr<List> load_playlist(const std::wstring& path);

// A new, empty list of the named format (kFormat...); null for an unknown name.
std::unique_ptr<List> make_list(const std::wstring& format);

} // namespace playlist
