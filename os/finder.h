#pragma once

#include "liba/nocopy.h"
#include "os/date_time.h"

#include <cstdint>
#include <string>

// Lists the entries of one folder whose names match a wildcard pattern: "*"
// any run of characters, "?" one character, letters without regard to case;
// "*.*" matches every name, with or without a dot. "." and ".." are skipped.
// Threads: one object belongs to one thread. Sizes in bytes.
namespace os {

class Finder : liba::Nocopy {
public:
    Finder(const std::wstring& folder, const std::wstring& pattern = L"*");
    ~Finder();

    // Advances to the next matching entry; false when there is none more (or
    // the folder could not be opened). The accessors describe that entry.
    bool next();

    bool is_open() const { return dir_ != nullptr; }
    const std::wstring& name() const { return name_; }
    // The folder as given, joined with the name.
    std::wstring full_path() const;
    bool is_folder() const { return is_folder_; }
    int64_t size() const { return size_; }
    const DateTime& modified() const { return modified_; }
    const DateTime& created() const { return created_; }
    bool read_only() const { return read_only_; }

    // The match the finder applies, for callers that filter names themselves.
    static bool matches(const std::wstring& pattern, const std::wstring& name);

private:
    void* dir_ = nullptr; // DIR*
    std::wstring folder_;
    std::wstring pattern_;
    std::wstring name_;
    bool is_folder_ = false;
    int64_t size_ = 0;
    DateTime modified_;
    DateTime created_;
    bool read_only_ = false;
};

} // namespace os
