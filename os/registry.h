#pragma once

#include <pugixml.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Registry access by textual key paths ("HKEY_CURRENT_USER\Software\Kelb"),
// kept in the XML store "%app_data%/registry.xml". A key path begins with
// one of the roots HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE, HKEY_USERS or
// HKEY_CURRENT_USER; any other beginning (HKEY_CURRENT_CONFIG among them)
// names an empty key on which every operation fails. Key and value names
// compare without regard to case; the empty value name is the key's default.
namespace os {

// What identifies one version of the store file cheaply: a rewrite always
// makes a new file (new inode), so equal stamps mean an unchanged store even
// when two writes fall in the same clock tick.
struct StoreStamp {
    int error = 0; // errno of the look, 0 when the file is there
    uint64_t inode = 0;
    int64_t mtime_ns = 0;
    int64_t size = 0;

    static StoreStamp of(const std::wstring& path);
    bool operator==(const StoreStamp&) const = default;
};

// The store's content in memory, apart from any file: parsing, lookups and
// changes. Threads: one object belongs to one thread.
class RegistryStore {
public:
    // Empty bytes give an empty store. False for anything but a <registry>
    // document; `error_offset` then gets the byte where parsing gave up.
    bool load(std::string_view bytes, size_t* error_offset = nullptr);
    std::string save() const;

    bool has_key(const std::wstring& key) const;
    // False only for an empty key.
    bool create_key(const std::wstring& key);

    bool read_string(const std::wstring& key, const std::wstring& name, std::wstring& out) const;
    bool read_dword(const std::wstring& key, const std::wstring& name, uint32_t& out) const;
    // Create the key as needed; a value of the other type is replaced.
    bool write_string(const std::wstring& key, const std::wstring& name, const std::wstring& value);
    bool write_dword(const std::wstring& key, const std::wstring& name, uint32_t value);
    // False when there was no such value.
    bool delete_value(const std::wstring& key, const std::wstring& name);
    // Names of the key's direct subkeys, in stored order; false for a missing key.
    bool enum_subkeys(const std::wstring& key, std::vector<std::wstring>& out) const;

private:
    pugi::xml_node find_key(const std::wstring& key, bool create) const;
    pugi::xml_node find_value(const std::wstring& key, const std::wstring& name,
                              const char* type) const;
    bool write_value(const std::wstring& key, const std::wstring& name, const char* type,
                     const std::string& data, bool hex);

    pugi::xml_document doc_;
};

// The store on disk. Reads take the file as it stands (writes replace it
// whole, so a reader never sees half a write). Writes, including the key a
// read creates, run under an flock on "registry.xml.lock" beside it, so the
// program and quillctl may write at once without losing each other's values.
// An unreadable or unparsable store makes every operation fail without
// touching it, and is reported once on standard error.
// Threads: any; each call stands alone.
class Registry {
public:
    static bool write_string(const std::wstring& key, const std::wstring& name,
                             const std::wstring& value);
    // False when the value is missing; a missing key is created.
    static bool read_string(const std::wstring& key, const std::wstring& name, std::wstring& out);
    static bool write_dword(const std::wstring& key, const std::wstring& name, uint32_t value);
    // False when the value is missing; a missing key is created.
    static bool read_dword(const std::wstring& key, const std::wstring& name, uint32_t& out);
    static bool delete_value(const std::wstring& key, const std::wstring& name);
    static bool enum_subkeys(const std::wstring& key, std::vector<std::wstring>& out);

    // "%app_data%/registry.xml", expanded.
    static std::wstring store_path();
    static StoreStamp stamp() { return StoreStamp::of(store_path()); }
};

} // namespace os
