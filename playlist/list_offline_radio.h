#pragma once

#include "playlist/list_xml.h"

namespace playlist {

// The log of another radio automation tool: <Log StartTime>, one <LogEvent>
// per entry with its values as element text, times in milliseconds, a
// negative number meaning none, and the texts in a child <AudioInfo>.
// Threads: the owner's.
class ListOfflineRadio : public ListXml {
public:
    // A new, empty list.
    ListOfflineRadio();
    // Reads the file; is_valid() tells whether it was such a log.
    explicit ListOfflineRadio(const std::wstring& path);

    // Builds the document save() writes; entries without a path are left out.
    void write(os::XmlDocument& document) const override;

private:
    // Takes the entries of a parsed document; false (and `error` set) unless
    // the root is a "Log". Events without a "FileName" are skipped.
    bool read_entries(const os::XmlDocument& document) override;
};

} // namespace playlist
