#include "playlist/entry_path.h"

#include "liba/text.h"
#include "os/path.h"

#include <vector>

namespace playlist {

namespace {

bool is_ascii_letter(wchar_t c) { return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z'); }

bool is_digit(wchar_t c) { return c >= L'0' && c <= L'9'; }

bool is_hex_digit(wchar_t c) { return is_digit(c) || (c >= L'a' && c <= L'f') || (c >= L'A' && c <= L'F'); }

int hex_value(wchar_t c)
{
    if (c >= L'0' && c <= L'9')
        return c - L'0';
    return (c | 0x20) - L'a' + 10;
}

// "scheme://", the scheme two or more characters long so that "C://x" stays
// a drive path.
size_t url_scheme_length(const std::wstring& path)
{
    size_t i = 0;
    while (i < path.size() && (is_ascii_letter(path[i]) ||
                               (i > 0 && (is_digit(path[i]) || path[i] == L'+' || path[i] == L'-' || path[i] == L'.'))))
        ++i;
    if (i >= 2 && path.compare(i, 3, L"://") == 0)
        return i;
    return 0;
}

bool is_file_url(const std::wstring& path)
{
    size_t n = url_scheme_length(path);
    return n == 4 && liba::to_lower(path.substr(0, 4)) == L"file";
}

bool has_drive_letter(const std::wstring& path)
{
    return path.size() >= 2 && is_ascii_letter(path[0]) && path[1] == L':' &&
           (path.size() == 2 || path[2] == L'\\' || path[2] == L'/');
}

// "file:///home/me/a%20b.mp3" and "file://localhost/..." to "/home/me/a b.mp3";
// the escaped bytes are UTF-8.
std::wstring path_of_file_url(const std::wstring& url)
{
    std::wstring rest = url.substr(7);
    if (liba::to_lower(rest.substr(0, 9)) == L"localhost")
        rest.erase(0, 9);
    std::string bytes;
    for (size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == L'%' && i + 2 < rest.size() && is_hex_digit(rest[i + 1]) && is_hex_digit(rest[i + 2])) {
            bytes.push_back(static_cast<char>(hex_value(rest[i + 1]) * 16 + hex_value(rest[i + 2])));
            i += 2;
        } else {
            bytes += liba::to_utf8(std::wstring_view(&rest[i], 1));
        }
    }
    std::wstring path = liba::from_utf8(bytes);
    // "file:///C:/Music/a.mp3" names a drive path.
    if (path.size() >= 3 && path[0] == L'/' && has_drive_letter(path.substr(1)))
        path.erase(0, 1);
    return path;
}

std::vector<std::wstring> components(const std::wstring& normalized)
{
    std::vector<std::wstring> parts;
    size_t start = 0;
    while (start <= normalized.size()) {
        size_t end = normalized.find(L'/', start);
        if (end == std::wstring::npos)
            end = normalized.size();
        if (end > start)
            parts.push_back(normalized.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

} // namespace

bool is_relative_entry_path(const std::wstring& entry_path)
{
    if (entry_path.empty() || url_scheme_length(entry_path) > 0 || has_drive_letter(entry_path))
        return false;
    std::wstring expanded = os::expand_path(entry_path);
    return expanded.empty() || expanded[0] != L'/';
}

std::wstring resolve_entry_path(const std::wstring& list_path, const std::wstring& entry_path)
{
    if (entry_path.empty())
        return {};
    if (is_file_url(entry_path)) {
        std::wstring path = path_of_file_url(entry_path);
        return has_drive_letter(path) ? os::expand_path(path) : os::normalize_path(path);
    }
    if (url_scheme_length(entry_path) > 0)
        return entry_path;
    if (has_drive_letter(entry_path))
        return os::expand_path(entry_path);
    if (!is_relative_entry_path(entry_path))
        return os::normalize_path(entry_path);
    return os::normalize_path(os::join_path(os::folder_of(os::expand_path(list_path)), os::expand_path(entry_path)));
}

std::wstring rebase_entry_path(const std::wstring& entry_path, const std::wstring& from_list,
                               const std::wstring& to_list)
{
    if (!is_relative_entry_path(entry_path))
        return entry_path;
    std::wstring from_folder = os::normalize_path(os::folder_of(os::expand_path(from_list)));
    std::wstring to_folder = os::normalize_path(os::folder_of(os::expand_path(to_list)));
    if (from_folder == to_folder)
        return entry_path;
    std::wstring target = resolve_entry_path(from_list, entry_path);
    if (target.empty() || target[0] != L'/' || to_folder.empty() || to_folder[0] != L'/')
        return target;
    std::vector<std::wstring> to = components(to_folder);
    std::vector<std::wstring> file = components(target);
    size_t common = 0;
    while (common < to.size() && common + 1 < file.size() && to[common] == file[common])
        ++common;
    std::wstring relative;
    for (size_t i = common; i < to.size(); ++i)
        relative += L"../";
    for (size_t i = common; i < file.size(); ++i) {
        relative += file[i];
        if (i + 1 < file.size())
            relative += L'/';
    }
    return relative;
}

} // namespace playlist
