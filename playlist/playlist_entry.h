#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace playlist {

// One entry of a list, rich enough for every list format: fades, clip points
// and text attributes survive a round trip through the format that has them.
// Plain data; times in seconds.
struct PlaylistEntry {
    // As the list holds it: a relative path stays relative (resolve_entry_path
    // finds the file), "\" separators stay as they were written.
    std::wstring path;
    double duration = -1.0;   // -1.0 when unknown
    double next_offset = 0.0; // when the next entry starts, from this one's end; negative overlaps
    int32_t track = -1;
    double clip_begin = 0.0;
    double fade_in = 0.0;
    double clip_end = 0.0;
    double fade_out = 0.0;
    // Text attributes by name: "title", "artist", "MediaID", "EntryType", ...
    std::map<std::wstring, std::wstring> attributes;

    // The attribute, or empty when the entry has none of that name.
    std::wstring attribute(const std::wstring& key) const
    {
        auto it = attributes.find(key);
        return it == attributes.end() ? std::wstring() : it->second;
    }
};

} // namespace playlist
