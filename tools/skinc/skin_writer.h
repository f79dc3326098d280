#pragma once

#include "tools/skinc/skin_source.h"

#include <string>
#include <utility>
#include <vector>

// Lays a parsed source out as the compiled description the engine reads in
// place, and packs files into a stored ZIP archive.
// Threads: any (no shared state). Sizes in bytes.
namespace skinc {

// The description: header, then every property name, string value, control
// id and kind name (all reached through 16-bit offsets, so they come first),
// the string pool, and the nodes with their tables. Trees are balanced and
// tables sorted by UTF-16 units. Fails with "FILE:LINE: what" when a name or
// string value would end beyond the first 64 KiB.
bool write_description(const SkinSource& source, std::string& out, std::wstring& error);

// A ZIP archive of stored entries (method 0) with correct CRCs and a central
// directory, so that common tools list and test it. Entry names are narrow.
std::string make_stored_zip(const std::vector<std::pair<std::string, std::string>>& entries);

} // namespace skinc
