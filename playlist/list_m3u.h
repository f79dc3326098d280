#pragma once

#include "playlist/list.h"

#include <string>
#include <string_view>

namespace playlist {

// Extended M3U: "#EXTM3U", then pairs of an "#EXTINF:seconds,title" line and
// a path line. Text is UTF-8, or Windows-1252 where it is not valid UTF-8, or
// UTF-16 after a byte-order mark. The plain reading takes what other programs
// write: paths one a line, with "#EXTINF" and comment lines anywhere.
// Threads: the owner's. Durations in seconds.
class ListM3U : public List {
public:
    enum Reading {
        kExtended, // the strict form; anything else leaves the list invalid
        kPlain,    // any text that does not begin with "<"
    };

    // A new, empty list.
    ListM3U();
    // Reads the file; is_valid() tells whether it was a list of this form.
    explicit ListM3U(const std::wstring& path, Reading reading = kExtended);

    // Parses the bytes of a file; false (and `error` set) when they are not a
    // list of the given form.
    bool read(std::string_view bytes, Reading reading);
    // The file that save() writes: UTF-8, "\n" line ends, each duration
    // truncated to whole seconds (-1 when unknown), the title behind ",".
    std::string to_bytes() const;

    bool is_valid() const override { return valid; }
    bool save(const std::wstring& path) const override;

private:
    bool read_extended(const std::wstring& text);
    bool read_plain(const std::wstring& text);
    bool give_up(const std::wstring& why);
};

} // namespace playlist
