#include "playlist/list_asx.h"

#include "liba/text.h"
#include "os/xml_document.h"

namespace playlist {

namespace {

bool same_name(const std::wstring& a, const wchar_t* b) { return liba::to_upper(a) == b; }

// The first child element whose name is `upper_name` in any case.
os::XmlNode child_any_case(const os::XmlNode& node, const wchar_t* upper_name)
{
    int count = node.child_count();
    for (int i = 0; i < count; ++i) {
        os::XmlNode child = node.child_at(i);
        if (same_name(child.name(), upper_name))
            return child;
    }
    return {};
}

// The attribute as "HREF", "href" or "Href": the spellings players write.
bool attribute_any_case(const os::XmlNode& node, const std::wstring& lower_name, std::wstring& out)
{
    std::wstring capitalised = lower_name;
    capitalised[0] = liba::to_upper(capitalised.substr(0, 1))[0];
    return node.attribute(lower_name, out) || node.attribute(liba::to_upper(lower_name), out) ||
           node.attribute(capitalised, out);
}

} // namespace

ListASX::ListASX() : ListXml(kFormatASX) {}

ListASX::ListASX(const std::wstring& path) : ListXml(kFormatASX) { load(path); }

bool ListASX::read_entries(const os::XmlDocument& document)
{
    os::XmlNode root = child_any_case(document.root(), L"ASX");
    if (!root) {
        error = L"no \"ASX\" element";
        return false;
    }
    int count = root.child_count();
    for (int i = 0; i < count; ++i) {
        os::XmlNode node = root.child_at(i);
        if (!same_name(node.name(), L"ENTRY"))
            continue;
        PlaylistEntry entry;
        if (!attribute_any_case(child_any_case(node, L"REF"), L"href", entry.path) || entry.path.empty())
            continue;
        if (os::XmlNode title = child_any_case(node, L"TITLE"))
            entry.attributes[L"title"] = title.text();
        std::wstring key, value;
        os::XmlNode param = child_any_case(node, L"PARAM");
        if (attribute_any_case(param, L"name", key) && attribute_any_case(param, L"value", value))
            entry.attributes[key] = value;
        entries.push_back(std::move(entry));
    }
    return true;
}

void ListASX::write(os::XmlDocument& document) const
{
    document.create();
    os::XmlNode root = document.root().add_child(L"ASX");
    root.set_attribute(L"version", L"3.0");
    for (const PlaylistEntry& entry : entries) {
        if (entry.path.empty())
            continue; // an entry without a reference would not read back
        os::XmlNode node = root.add_child(L"ENTRY");
        node.add_child(L"REF").set_attribute(L"HREF", entry.path);
        auto title = entry.attributes.find(L"title");
        if (title != entry.attributes.end())
            node.add_child(L"TITLE").set_text(title->second);
        // Only the name is written, so that the artist does not read back
        // as an attribute of its own name.
        auto artist = entry.attributes.find(L"artist");
        if (artist != entry.attributes.end())
            node.add_child(L"PARAM").set_attribute(L"name", artist->second);
    }
}

} // namespace playlist
