#pragma once

#include "liba/nocopy.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace pugi {
class xml_document;
class xml_node;
} // namespace pugi

// A small XML reader and writer over pugixml, the one XML library of the
// program: the settings file, range marks and XML lists are written through
// it. A node may be null; every operation on a null node does nothing or
// fails. Threads: one thread at a time, like the files it reads.
namespace os {

class XmlDocument;

// A handle to an element of an XmlDocument; valid while the document lives.
class XmlNode {
public:
    XmlNode() = default;
    bool is_null() const { return node_ == nullptr; }
    explicit operator bool() const { return node_ != nullptr; }

    std::wstring name() const;
    // First child element of that name, compared exactly; null when none.
    XmlNode child(const std::wstring& name) const;
    // Child elements, by position.
    int child_count() const;
    XmlNode child_at(int index) const;
    // Creates an element and appends it; null on a null node.
    XmlNode add_child(const std::wstring& name);

    // False when the attribute is missing (out is then left alone).
    bool attribute(const std::wstring& name, std::wstring& out) const;
    void set_attribute(const std::wstring& name, const std::wstring& value);

    // Typed forms: a read returns false and leaves `out` alone when the
    // attribute is missing or does not parse. Integers are "%d", doubles "%f"
    // in the C locale, flags "true"/"false" (reading also True, TRUE, 1 and
    // False, FALSE, 0).
    bool attribute(const std::wstring& name, int& out) const;
    bool attribute(const std::wstring& name, double& out) const;
    bool attribute(const std::wstring& name, bool& out) const;
    void set_attribute(const std::wstring& name, int value);
    void set_attribute(const std::wstring& name, double value);
    void set_attribute(const std::wstring& name, bool value);
    void set_attribute(const std::wstring& name, const wchar_t* value) { set_attribute(name, std::wstring(value)); }

    // The element's own text (for formats that keep values as text).
    std::wstring text() const;
    void set_text(const std::wstring& value);

private:
    friend class XmlDocument;
    explicit XmlNode(void* node) : node_(node) {}
    void* node_ = nullptr; // a pugi::xml_node_struct
    // The last child found by child_at, so that walking the children by
    // position costs one step each rather than a walk from the first.
    mutable int cached_index_ = -1;
    mutable void* cached_child_ = nullptr;
};

class XmlDocument : liba::Nocopy {
public:
    XmlDocument();
    ~XmlDocument();

    // Expands the path and loads the file; false when it can't be read or
    // does not parse, the document then empty. `error` (if given) says why
    // and at which byte.
    bool load(const std::wstring& path, std::wstring* error = nullptr);
    bool load_bytes(std::string_view bytes, std::wstring* error = nullptr);
    // Empties the document.
    void create();
    // Expands the path and writes the file whole (temporary file, renamed
    // over the old one), UTF-8 with an XML declaration; false on failure.
    bool save(const std::wstring& path) const;
    std::string save_bytes() const;

    // The document node: its children are the top-level elements.
    XmlNode root() const;

private:
    std::unique_ptr<pugi::xml_document> doc_;
};

} // namespace os
