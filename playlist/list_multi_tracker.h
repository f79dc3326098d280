#pragma once

#include "playlist/list_xml.h"

namespace playlist {

// The log of a radio automation tool: <Log version="multitracker" HeaderID
// Name StartTime>, one <LogEvent> per entry whose child elements hold the
// values as text, times in milliseconds. Threads: the owner's.
class ListMultiTracker : public ListXml {
public:
    // A new, empty list.
    ListMultiTracker();
    // Reads the file; is_valid() tells whether it was such a log.
    explicit ListMultiTracker(const std::wstring& path);

    // Builds the document save() writes; entries without a path are left out.
    void write(os::XmlDocument& document) const override;

private:
    // Takes the entries of a parsed document; false (and `error` set) unless
    // the root is a "Log" of version "multitracker". Events without a
    // "MediaLocation" are skipped.
    bool read_entries(const os::XmlDocument& document) override;
};

} // namespace playlist
