#pragma once

#include "playlist/list.h"

namespace os {
class XmlDocument;
}

namespace playlist {

// A list kept as an XML document (ASX and the two logs): the file is parsed
// once, a format takes its entries in read_entries and builds the document
// to save in write. Threads: the owner's.
class ListXml : public List {
public:
    // Takes the entries of a parsed document; false (and `error` set) when
    // the document is not of this format.
    bool read(const os::XmlDocument& document);
    // Builds the document save() writes; entries without a path are left out.
    virtual void write(os::XmlDocument& document) const = 0;

    bool is_valid() const override { return valid; }
    bool save(const std::wstring& path) const override;

protected:
    using List::List;
    // Reads the file at `path`, for the formats' constructors.
    void load(const std::wstring& path);

private:
    // Fills `entries` from a document, which read() has emptied; false (and
    // `error` set) when the document is not of this format.
    virtual bool read_entries(const os::XmlDocument& document) = 0;
};

} // namespace playlist
