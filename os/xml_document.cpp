#include "os/xml_document.h"

#include "liba/text.h"
#include "os/file.h"
#include "os/path.h"

#include <pugixml.hpp>

#include <algorithm>
#include <sstream>

namespace os {

namespace {

pugi::xml_node as_node(void* p) { return pugi::xml_node(static_cast<pugi::xml_node_struct*>(p)); }

std::string utf8(const std::wstring& s) { return liba::to_utf8(s); }

} // namespace

std::wstring XmlNode::name() const
{
    return node_ ? liba::from_utf8(as_node(node_).name()) : std::wstring();
}

XmlNode XmlNode::child(const std::wstring& name) const
{
    if (!node_)
        return {};
    return XmlNode(as_node(node_).child(utf8(name).c_str()).internal_object());
}

int XmlNode::child_count() const
{
    if (!node_)
        return 0;
    int n = 0;
    for (auto c = as_node(node_).first_child(); c; c = c.next_sibling())
        if (c.type() == pugi::node_element)
            ++n;
    return n;
}

XmlNode XmlNode::child_at(int index) const
{
    if (!node_ || index < 0)
        return {};
    pugi::xml_node c = as_node(node_).first_child();
    int at = 0;
    if (cached_child_ && cached_index_ <= index) {
        c = as_node(cached_child_);
        at = cached_index_;
    } else {
        while (c && c.type() != pugi::node_element)
            c = c.next_sibling();
    }
    while (c && at < index) {
        c = c.next_sibling();
        while (c && c.type() != pugi::node_element)
            c = c.next_sibling();
        ++at;
    }
    if (!c)
        return {};
    cached_index_ = index;
    cached_child_ = c.internal_object();
    return XmlNode(c.internal_object());
}

XmlNode XmlNode::add_child(const std::wstring& name)
{
    if (!node_)
        return {};
    return XmlNode(as_node(node_).append_child(utf8(name).c_str()).internal_object());
}

bool XmlNode::attribute(const std::wstring& name, std::wstring& out) const
{
    if (!node_)
        return false;
    auto a = as_node(node_).attribute(utf8(name).c_str());
    if (!a)
        return false;
    out = liba::from_utf8(a.value());
    return true;
}

void XmlNode::set_attribute(const std::wstring& name, const std::wstring& value)
{
    if (!node_)
        return;
    auto n = as_node(node_);
    std::string key = utf8(name);
    auto a = n.attribute(key.c_str());
    if (!a)
        a = n.append_attribute(key.c_str());
    a.set_value(utf8(value).c_str());
}

bool XmlNode::attribute(const std::wstring& name, int& out) const
{
    std::wstring text;
    if (!attribute(name, text))
        return false;
    auto v = liba::text_to_int(text);
    if (!v || *v < INT32_MIN || *v > INT32_MAX)
        return false;
    out = static_cast<int>(*v);
    return true;
}

bool XmlNode::attribute(const std::wstring& name, double& out) const
{
    std::wstring text;
    if (!attribute(name, text))
        return false;
    auto v = liba::text_to_double(text);
    if (!v)
        return false;
    out = *v;
    return true;
}

bool XmlNode::attribute(const std::wstring& name, bool& out) const
{
    std::wstring text;
    if (!attribute(name, text))
        return false;
    auto v = liba::text_to_bool(text);
    if (!v)
        return false;
    out = *v;
    return true;
}

void XmlNode::set_attribute(const std::wstring& name, int value) { set_attribute(name, liba::int_to_text(value)); }

void XmlNode::set_attribute(const std::wstring& name, double value)
{
    set_attribute(name, liba::double_to_text(value));
}

void XmlNode::set_attribute(const std::wstring& name, bool value) { set_attribute(name, liba::bool_to_text(value)); }

std::wstring XmlNode::text() const
{
    return node_ ? liba::from_utf8(as_node(node_).text().get()) : std::wstring();
}

void XmlNode::set_text(const std::wstring& value)
{
    if (node_)
        as_node(node_).text().set(utf8(value).c_str());
}

XmlDocument::XmlDocument() : doc_(std::make_unique<pugi::xml_document>()) {}

XmlDocument::~XmlDocument() = default;

bool XmlDocument::load_bytes(std::string_view bytes, std::wstring* error)
{
    doc_->reset();
    pugi::xml_parse_result r = doc_->load_buffer(bytes.data(), bytes.size(), pugi::parse_default, pugi::encoding_auto);
    if (!r) {
        if (error)
            // Cut inside an attribute, pugixml counts the end marker it adds.
            *error = liba::from_utf8(r.description()) + L" at byte " +
                     std::to_wstring(std::min<size_t>(static_cast<size_t>(r.offset), bytes.size()));
        doc_->reset();
        return false;
    }
    return true;
}

bool XmlDocument::load(const std::wstring& path, std::wstring* error)
{
    std::string bytes;
    if (!read_whole_file(path, bytes)) {
        doc_->reset();
        if (error)
            *error = L"can't read the file";
        return false;
    }
    return load_bytes(bytes, error);
}

void XmlDocument::create() { doc_->reset(); }

std::string XmlDocument::save_bytes() const
{
    std::ostringstream out;
    doc_->save(out, "  ", pugi::format_default, pugi::encoding_utf8);
    return out.str();
}

bool XmlDocument::save(const std::wstring& path) const { return write_file_atomically(path, save_bytes()); }

XmlNode XmlDocument::root() const { return XmlNode(doc_->internal_object()); }

} // namespace os
