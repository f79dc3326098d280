#pragma once

#include "playlist/list.h"

namespace os {
class XmlDocument;
}

namespace playlist {

// The log of a radio automation tool: <Log version="multitracker" HeaderID
// Name StartTime>, one <LogEvent> per entry whose child elements hold the
// values as text, times in milliseconds. Threads: the owner's.
class ListMultiTracker : public List {
public:
    // A new, empty list.
    ListMultiTracker();
    // Reads the file; is_valid() tells whether it was such a log.
    explicit ListMultiTracker(const std::wstring& path);

    // Takes the entries of a parsed document; false (and `error` set) unless
    // the root is a "Log" of version "multitracker". Events without a
    // "MediaLocation" are skipped.
    bool read(const os::XmlDocument& document);
    // Builds the document save() writes; entries without a path are left out.
    void write(os::XmlDocument& document) const;

    bool is_valid() const override { return valid; }
    bool save(const std::wstring& path) const override;
};

} // namespace playlist
