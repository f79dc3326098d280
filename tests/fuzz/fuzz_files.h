// The scratch folder of a fuzzer that hands its inputs over as files: one
// folder per fuzzer under the system's temporary folder, files named by
// process so parallel jobs keep apart, and HOME and the XDG folders pointed
// there, so that what the code logs stays away from the user's home.
// Threads: the fuzzer's only.
#pragma once

#include "liba/text.h"
#include "os/file.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace fuzz {

inline std::string& scratch_folder()
{
    static std::string folder;
    return folder;
}

// Makes the folder of `fuzzer` and points the home folders at it; for
// LLVMFuzzerInitialize.
inline void init_scratch(const char* fuzzer)
{
    std::string& folder = scratch_folder();
    folder = (std::filesystem::temp_directory_path() / fuzzer).string();
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    setenv("HOME", folder.c_str(), 1);
    setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
    setenv("XDG_DATA_HOME", folder.c_str(), 1);
}

// "<folder>/<name><pid><extension>".
inline std::wstring scratch_file(const std::string& name, const std::string& extension = "")
{
    return liba::from_utf8(scratch_folder() + "/" + name + std::to_string(getpid()) + extension);
}

// Writes the input as the whole file; a write that fails is the fuzzer's
// own fault and ends it.
inline void put_file(const std::wstring& path, const uint8_t* data, size_t size)
{
    os::File f(path, os::File::kWrite);
    if (size != 0 && f.write(data, size) != size)
        std::abort();
}

inline void remove_file(const std::wstring& path)
{
    std::error_code ignored;
    std::filesystem::remove(liba::to_utf8(path), ignored);
}

} // namespace fuzz
