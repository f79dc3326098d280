#pragma once

#include "liba/text.h"
#include "playlist/list.h"
#include "tests/support/test_support.h"

#include <filesystem>
#include <string>

// Helpers of the list tests: lists are text that people and players write,
// so the tests write small, realistic list files into a TempDir.
namespace test_playlist {

using test::wide;

// Writes `bytes` to `name` in `dir` and returns its path as wide text.
inline std::wstring write_list(const test::TempDir& dir, const std::string& name, const std::string& bytes)
{
    test::write_file(dir / name, bytes);
    return wide(dir / name);
}

// "path|title|duration" per entry, for comparing lists in one expression.
inline std::wstring summary(const playlist::List& list)
{
    std::wstring out;
    for (const auto& e : list.get_entries())
        out += e.path + L"|" + e.attribute(L"title") + L"|" + std::to_wstring(static_cast<long long>(e.duration)) +
               L"\n";
    return out;
}

} // namespace test_playlist
