#include "os/path.h"

#include "liba/text.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <pwd.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace os {

namespace {

enum Macro {
    kAppFullName,
    kAppPath,
    kAppName,
    kAppData,
    kMyDocuments,
    kWindows,
    kStartup,
    kPrograms,
    kStartMenu,
    kProgramFiles,
    kMacroCount
};

// In the order they are tested against the start of a path.
constexpr std::wstring_view kNames[kMacroCount] = {
    L"%app_full_name%", L"%app_path%", L"%app_name%",   L"%app_data%",   L"%my_documents%",
    L"%windows%",       L"%startup%",  L"%programs%",   L"%start_menu%", L"%program_files%",
};

struct MacroTable {
    std::wstring values[kMacroCount];
};

std::string env(const char* name)
{
    const char* v = std::getenv(name);
    return v ? std::string(v) : std::string();
}

std::string home_folder()
{
    std::string home = env("HOME");
    if (!home.empty())
        return home;
    passwd pw;
    passwd* found = nullptr;
    std::vector<char> buf(16384);
    if (getpwuid_r(getuid(), &pw, buf.data(), buf.size(), &found) == 0 && found && pw.pw_dir)
        return pw.pw_dir;
    return "/";
}

// An XDG base folder: the variable when it holds an absolute path, else the
// default below the home folder.
std::string xdg_folder(const char* var, const std::string& home, const char* fallback)
{
    std::string v = env(var);
    if (!v.empty() && v[0] == '/')
        return v;
    return home + "/" + fallback;
}

std::string executable_path()
{
    for (size_t size = 1024; size <= (1u << 20); size *= 2) {
        std::vector<char> buf(size);
        ssize_t n = ::readlink("/proc/self/exe", buf.data(), buf.size());
        if (n < 0)
            return {};
        if (static_cast<size_t>(n) < buf.size())
            return std::string(buf.data(), static_cast<size_t>(n));
    }
    return {};
}

bool is_folder(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// XDG_DOCUMENTS_DIR from user-dirs.dirs: a shell assignment of a quoted
// "$HOME/…" or absolute path. Empty when the file or the line is missing.
std::string documents_from_user_dirs(const std::string& config, const std::string& home)
{
    int fd = ::open((config + "/user-dirs.dirs").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return {};
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fd, buf, sizeof buf)) > 0 && text.size() < (1u << 20))
        text.append(buf, static_cast<size_t>(n));
    ::close(fd);

    constexpr std::string_view kKey = "XDG_DOCUMENTS_DIR=";
    std::string found;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos)
            end = text.size();
        std::string_view line(text.data() + pos, end - pos);
        pos = end + 1;
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t'))
            line.remove_prefix(1);
        if (line.substr(0, kKey.size()) != kKey)
            continue;
        line.remove_prefix(kKey.size());
        if (line.empty() || line.front() != '"')
            continue;
        std::string value;
        bool closed = false;
        for (size_t i = 1; i < line.size(); ++i) {
            if (line[i] == '\\' && i + 1 < line.size()) {
                value += line[++i];
            } else if (line[i] == '"') {
                closed = true;
                break;
            } else {
                value += line[i];
            }
        }
        if (!closed)
            continue;
        constexpr std::string_view kHome = "$HOME";
        if (value.compare(0, kHome.size(), kHome) == 0 &&
            (value.size() == kHome.size() || value[kHome.size()] == '/'))
            value = home + value.substr(kHome.size());
        if (!value.empty() && value[0] == '/')
            found = value; // the last assignment wins, as in the shell
    }
    while (found.size() > 1 && found.back() == '/')
        found.pop_back();
    return found;
}

std::string parent_folder(const std::string& folder)
{
    size_t slash = folder.find_last_of('/');
    if (slash == std::string::npos)
        return {};
    if (slash == 0)
        return "/";
    return folder.substr(0, slash);
}

MacroTable compute_macros()
{
    MacroTable t;
    std::string exe = executable_path();
    std::string home = home_folder();
    std::string config = xdg_folder("XDG_CONFIG_HOME", home, ".config");
    std::string data = xdg_folder("XDG_DATA_HOME", home, ".local/share");

    std::string documents = documents_from_user_dirs(config, home);
    if (documents.empty())
        documents = is_folder(home + "/Documents") ? home + "/Documents" : home;

    std::string app_path = parent_folder(exe);
    size_t slash = exe.find_last_of('/');
    std::string app_name = slash == std::string::npos ? exe : exe.substr(slash + 1);

    t.values[kAppFullName] = liba::from_utf8(exe);
    t.values[kAppPath] = liba::from_utf8(app_path);
    t.values[kAppName] = liba::from_utf8(app_name);
    t.values[kAppData] = liba::from_utf8(config + "/quillaphonics");
    t.values[kMyDocuments] = liba::from_utf8(documents);
    t.values[kWindows] = L"/usr/share";
    t.values[kStartup] = liba::from_utf8(config + "/autostart");
    t.values[kPrograms] = liba::from_utf8(data + "/applications");
    t.values[kStartMenu] = t.values[kPrograms];
    t.values[kProgramFiles] = liba::from_utf8(parent_folder(app_path));
    return t;
}

std::mutex g_macro_mutex;

// Guarded by g_macro_mutex.
MacroTable& macro_table()
{
    static MacroTable table = compute_macros();
    return table;
}

} // namespace

void init_path_macros()
{
    MacroTable fresh = compute_macros();
    std::lock_guard<std::mutex> lock(g_macro_mutex);
    macro_table() = std::move(fresh);
}

std::wstring macro_value(const std::wstring& macro)
{
    std::lock_guard<std::mutex> lock(g_macro_mutex);
    for (int k = 0; k < kMacroCount; ++k)
        if (macro == kNames[k])
            return macro_table().values[k];
    return {};
}

bool ensure_app_data(liba::ErrorBase* errors)
{
    std::wstring folder = macro_value(L"%app_data%");
    if (create_folders(folder))
        return true;
    if (errors)
        errors->add_error(L"can't create folder \"" + folder + L"\"");
    return false;
}

bool is_separator(wchar_t c) { return c == L'/' || c == L'\\'; }

std::wstring expand_path(const std::wstring& path)
{
    std::wstring out;
    size_t i = 0;
    {
        std::lock_guard<std::mutex> lock(g_macro_mutex);
        for (int k = 0; k < kMacroCount; ++k) {
            if (path.compare(0, kNames[k].size(), kNames[k]) == 0) {
                out = macro_table().values[k];
                i = kNames[k].size();
                break;
            }
        }
    }
    // A value that is the root already ends in the separator the rest brings.
    if (!out.empty() && out.back() == L'/' && i < path.size() && is_separator(path[i]))
        ++i;
    out.reserve(out.size() + path.size() - i);
    for (; i < path.size(); ++i)
        out += path[i] == L'\\' ? L'/' : path[i];
    return out;
}

std::string native_path(const std::wstring& path) { return liba::to_utf8(expand_path(path)); }

std::wstring strip_trailing_separator(const std::wstring& path)
{
    if (!path.empty() && is_separator(path.back()))
        return path.substr(0, path.size() - 1);
    return path;
}

std::wstring folder_of(const std::wstring& path)
{
    size_t pos = path.find_last_of(L"/\\");
    return pos == std::wstring::npos ? std::wstring() : path.substr(0, pos + 1);
}

std::wstring file_name_of(const std::wstring& path)
{
    size_t pos = path.find_last_of(L"/\\");
    return pos == std::wstring::npos ? path : path.substr(pos + 1);
}

std::wstring extension_of(const std::wstring& path)
{
    std::wstring name = file_name_of(path);
    size_t dot = name.rfind(L'.');
    return dot == std::wstring::npos ? std::wstring() : name.substr(dot + 1);
}

std::wstring parent_of(const std::wstring& path) { return folder_of(strip_trailing_separator(path)); }

std::wstring join_path(const std::wstring& folder, const std::wstring& name)
{
    if (folder.empty())
        return name;
    size_t end = folder.size();
    while (end > 0 && is_separator(folder[end - 1]))
        --end;
    size_t start = 0;
    while (start < name.size() && is_separator(name[start]))
        ++start;
    std::wstring out(folder, 0, end);
    out += L'/';
    out.append(name, start, std::wstring::npos);
    return out;
}

std::wstring normalize_path(const std::wstring& path)
{
    std::wstring p = expand_path(path);
    bool absolute = !p.empty() && p[0] == L'/';
    std::vector<std::wstring> parts;
    size_t pos = 0;
    while (pos <= p.size()) {
        size_t end = p.find(L'/', pos);
        if (end == std::wstring::npos)
            end = p.size();
        std::wstring part = p.substr(pos, end - pos);
        pos = end + 1;
        if (part.empty() || part == L".")
            continue;
        if (part == L"..") {
            if (!parts.empty() && parts.back() != L"..")
                parts.pop_back();
            else if (!absolute)
                parts.push_back(part);
            continue;
        }
        parts.push_back(std::move(part));
    }
    std::wstring out = absolute ? L"/" : L"";
    for (size_t k = 0; k < parts.size(); ++k) {
        if (k > 0)
            out += L'/';
        out += parts[k];
    }
    return out.empty() ? L"." : out;
}

bool same_path(const std::wstring& a, const std::wstring& b)
{
    return normalize_path(a) == normalize_path(b);
}

bool create_folders(const std::wstring& path)
{
    std::string p = native_path(path);
    if (p.empty())
        return false;
    for (size_t pos = p.find('/', 1); pos != std::string::npos; pos = p.find('/', pos + 1))
        ::mkdir(p.substr(0, pos).c_str(), 0777);
    ::mkdir(p.c_str(), 0777);
    return is_folder(p);
}

std::wstring make_absolute(const std::wstring& path, const std::wstring& base_folder)
{
    std::wstring expanded = expand_path(path);
    if (!expanded.empty() && expanded[0] == L'/')
        return path;
    return normalize_path(join_path(expand_path(base_folder), expanded));
}

std::wstring runtime_dir()
{
    std::string xdg = env("XDG_RUNTIME_DIR");
    if (!xdg.empty() && xdg[0] == '/')
        return liba::from_utf8(xdg);
    return private_folder(L"/tmp/quillaphonics-" + std::to_wstring(::getuid()));
}

std::wstring private_folder(const std::wstring& path)
{
    std::string dir = native_path(path);
    if (dir.empty() || (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST))
        return {};
    struct stat st;
    // lstat: a link planted there by someone else must not lead us elsewhere.
    if (::lstat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != ::getuid())
        return {};
    if ((st.st_mode & 077) != 0 && ::chmod(dir.c_str(), 0700) != 0)
        return {};
    return liba::from_utf8(dir);
}

} // namespace os
