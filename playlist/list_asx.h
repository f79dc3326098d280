#pragma once

#include "playlist/list_xml.h"

namespace playlist {

// ASX, the Windows Media list: <ASX><ENTRY><REF HREF="..."/><TITLE>...</TITLE>
// <PARAM name="..." value="..."/></ENTRY></ASX>. Element and attribute
// names are matched without regard to case, as media players write them in
// lower case. Threads: the owner's.
class ListASX : public ListXml {
public:
    // A new, empty list.
    ListASX();
    // Reads the file; is_valid() tells whether it was an ASX list.
    explicit ListASX(const std::wstring& path);

    // Builds the document save() writes: version "3.0", per entry REF, TITLE
    // where the entry has a "title", and PARAM naming its "artist".
    void write(os::XmlDocument& document) const override;

private:
    // Takes the entries of a parsed document; false (and `error` set) when
    // its root is no "ASX" element.
    bool read_entries(const os::XmlDocument& document) override;
};

} // namespace playlist
