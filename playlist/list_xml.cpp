#include "playlist/list_xml.h"

#include "os/xml_document.h"

namespace playlist {

bool ListXml::read(const os::XmlDocument& document)
{
    entries.clear();
    error.clear();
    valid = read_entries(document);
    return valid;
}

void ListXml::load(const std::wstring& path)
{
    source = path;
    os::XmlDocument document;
    if (document.load(path, &error))
        read(document);
}

bool ListXml::save(const std::wstring& path) const
{
    os::XmlDocument document;
    write(document);
    return document.save(path);
}

} // namespace playlist
