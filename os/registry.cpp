#include "os/registry.h"

#include "liba/text.h"
#include "os/file.h"
#include "os/path.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace os {

namespace {

constexpr const char* kRootTag = "registry";
constexpr const char* kKeyTag = "key";
constexpr const char* kValueTag = "value";
constexpr const char* kNameAttr = "name";
constexpr const char* kTypeAttr = "type";
constexpr const char* kDataAttr = "data";
constexpr const char* kStringType = "string";
constexpr const char* kDwordType = "dword";
// Text with characters XML 1.0 cannot carry, even escaped (controls, NUL),
// is stored as the hex digits of its UTF-8 bytes, marked with this attribute.
constexpr const char* kEncodingAttr = "encoding";
constexpr const char* kHexEncoding = "hex";

// Splits a key path into its root and the names below it. False for a path
// that begins with no usable root; empty names ("a\\b", a trailing "\") are
// passed over.
bool parse_key(const std::wstring& key, std::vector<std::wstring>& parts)
{
    // In the order they are tested; the last is known and leads nowhere.
    static constexpr std::wstring_view kRoots[] = {
        L"HKEY_CLASSES_ROOT", L"HKEY_LOCAL_MACHINE", L"HKEY_USERS",
        L"HKEY_CURRENT_USER", L"HKEY_CURRENT_CONFIG",
    };
    parts.clear();
    for (std::wstring_view root : kRoots) {
        if (key.compare(0, root.size(), root) != 0)
            continue;
        if (key.size() > root.size() && key[root.size()] != L'\\')
            continue;
        if (root == L"HKEY_CURRENT_CONFIG")
            return false;
        parts.emplace_back(root);
        size_t pos = root.size();
        while (pos < key.size()) {
            size_t end = key.find(L'\\', pos + 1);
            if (end == std::wstring::npos)
                end = key.size();
            std::wstring part = key.substr(pos + 1, end - pos - 1);
            if (!part.empty())
                parts.push_back(std::move(part));
            pos = end;
        }
        return true;
    }
    return false;
}

std::wstring folded(const std::wstring& name) { return liba::to_lower(name); }

pugi::xml_node child_named(pugi::xml_node parent, const char* tag, const std::wstring& folded_name)
{
    for (pugi::xml_node c = parent.child(tag); c; c = c.next_sibling(tag))
        if (folded(liba::from_utf8(c.attribute(kNameAttr).value())) == folded_name)
            return c;
    return {};
}

bool parse_dword(const char* text, uint32_t& out)
{
    uint64_t v = 0;
    if (!*text)
        return false;
    for (const char* p = text; *p; ++p) {
        if (*p < '0' || *p > '9')
            return false;
        v = v * 10 + static_cast<uint64_t>(*p - '0');
        if (v > 0xFFFFFFFFu)
            return false;
    }
    out = static_cast<uint32_t>(v);
    return true;
}

bool fits_xml(const std::wstring& text)
{
    for (wchar_t c : text) {
        if ((c < 0x20 && c != L'\t' && c != L'\n' && c != L'\r') || c == 0xFFFE || c == 0xFFFF)
            return false;
    }
    return true;
}

std::string to_hex(const std::string& bytes)
{
    static const char kDigits[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (char b : bytes) {
        out += kDigits[static_cast<unsigned char>(b) >> 4];
        out += kDigits[static_cast<unsigned char>(b) & 15];
    }
    return out;
}

int hex_digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool from_hex(std::string_view hex, std::string& out)
{
    if (hex.size() % 2 != 0)
        return false;
    out.clear();
    for (size_t i = 0; i < hex.size(); i += 2) {
        int hi = hex_digit(hex[i]), lo = hex_digit(hex[i + 1]);
        if (hi < 0 || lo < 0)
            return false;
        out += static_cast<char>(hi * 16 + lo);
    }
    return true;
}

} // namespace

// --- StoreStamp ---

StoreStamp StoreStamp::of(const std::wstring& path)
{
    StoreStamp s;
    struct stat st;
    if (::stat(native_path(path).c_str(), &st) != 0) {
        s.error = errno;
        return s;
    }
    s.inode = st.st_ino;
    s.mtime_ns = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    s.size = st.st_size;
    return s;
}

// --- RegistryStore ---

bool RegistryStore::load(std::string_view bytes, size_t* error_offset)
{
    doc_.reset();
    if (bytes.empty())
        return true;
    pugi::xml_parse_result r = doc_.load_buffer(bytes.data(), bytes.size(), pugi::parse_default,
                                                pugi::encoding_auto);
    if (!r || std::strcmp(doc_.document_element().name(), kRootTag) != 0) {
        if (error_offset)
            *error_offset = r ? 0 : static_cast<size_t>(r.offset);
        doc_.reset();
        return false;
    }
    return true;
}

std::string RegistryStore::save() const
{
    pugi::xml_document copy;
    const pugi::xml_document* doc = &doc_;
    if (!doc_.child(kRootTag)) {
        copy.append_child(kRootTag);
        doc = &copy;
    }
    std::ostringstream out;
    doc->save(out, "  ", pugi::format_default, pugi::encoding_utf8);
    return out.str();
}

pugi::xml_node RegistryStore::find_key(const std::wstring& key, bool create) const
{
    std::vector<std::wstring> parts;
    if (!parse_key(key, parts))
        return {};
    pugi::xml_node node = doc_.child(kRootTag);
    if (!node) {
        if (!create)
            return {};
        // The document handle is shared by the non-const callers that create.
        node = const_cast<pugi::xml_document&>(doc_).append_child(kRootTag);
    }
    for (const std::wstring& part : parts) {
        pugi::xml_node next = child_named(node, kKeyTag, folded(part));
        if (!next) {
            if (!create)
                return {};
            next = node.append_child(kKeyTag);
            next.append_attribute(kNameAttr) = liba::to_utf8(part).c_str();
        }
        node = next;
    }
    return node;
}

pugi::xml_node RegistryStore::find_value(const std::wstring& key, const std::wstring& name,
                                         const char* type) const
{
    pugi::xml_node k = find_key(key, false);
    if (!k)
        return {};
    pugi::xml_node v = child_named(k, kValueTag, folded(name));
    if (!v || std::strcmp(v.attribute(kTypeAttr).value(), type) != 0)
        return {};
    return v;
}

bool RegistryStore::has_key(const std::wstring& key) const { return find_key(key, false); }

bool RegistryStore::create_key(const std::wstring& key) { return find_key(key, true); }

bool RegistryStore::read_string(const std::wstring& key, const std::wstring& name,
                                std::wstring& out) const
{
    pugi::xml_node v = find_value(key, name, kStringType);
    if (!v)
        return false;
    const char* data = v.attribute(kDataAttr).value();
    if (std::strcmp(v.attribute(kEncodingAttr).value(), kHexEncoding) != 0) {
        out = liba::from_utf8(data);
        return true;
    }
    std::string bytes;
    if (!from_hex(data, bytes))
        return false;
    out = liba::from_utf8(bytes);
    return true;
}

bool RegistryStore::read_dword(const std::wstring& key, const std::wstring& name,
                               uint32_t& out) const
{
    pugi::xml_node v = find_value(key, name, kDwordType);
    return v && parse_dword(v.attribute(kDataAttr).value(), out);
}

bool RegistryStore::write_value(const std::wstring& key, const std::wstring& name,
                                const char* type, const std::string& data, bool hex)
{
    pugi::xml_node k = find_key(key, true);
    if (!k)
        return false;
    pugi::xml_node v = child_named(k, kValueTag, folded(name));
    if (!v) {
        v = k.append_child(kValueTag);
        v.append_attribute(kNameAttr) = liba::to_utf8(name).c_str();
    }
    pugi::xml_attribute t = v.attribute(kTypeAttr);
    if (!t)
        t = v.append_attribute(kTypeAttr);
    t = type;
    pugi::xml_attribute d = v.attribute(kDataAttr);
    if (!d)
        d = v.append_attribute(kDataAttr);
    d = data.c_str();
    v.remove_attribute(kEncodingAttr);
    if (hex)
        v.append_attribute(kEncodingAttr) = kHexEncoding;
    return true;
}

bool RegistryStore::write_string(const std::wstring& key, const std::wstring& name,
                                 const std::wstring& value)
{
    if (fits_xml(value))
        return write_value(key, name, kStringType, liba::to_utf8(value), false);
    return write_value(key, name, kStringType, to_hex(liba::to_utf8(value)), true);
}

bool RegistryStore::write_dword(const std::wstring& key, const std::wstring& name, uint32_t value)
{
    return write_value(key, name, kDwordType, std::to_string(value), false);
}

bool RegistryStore::delete_value(const std::wstring& key, const std::wstring& name)
{
    pugi::xml_node k = find_key(key, false);
    pugi::xml_node v = k ? child_named(k, kValueTag, folded(name)) : pugi::xml_node();
    return v && k.remove_child(v);
}

bool RegistryStore::enum_subkeys(const std::wstring& key, std::vector<std::wstring>& out) const
{
    out.clear();
    pugi::xml_node k = find_key(key, false);
    if (!k)
        return false;
    for (pugi::xml_node c = k.child(kKeyTag); c; c = c.next_sibling(kKeyTag))
        out.push_back(liba::from_utf8(c.attribute(kNameAttr).value()));
    return true;
}

// --- Registry: the store on disk ---

namespace {

// One report per spell of trouble: set when a line went out, cleared by the
// next success, so a store that stays broken does not flood standard error.
std::atomic<bool> g_read_reported{false};
std::atomic<bool> g_write_reported{false};

void report_once(std::atomic<bool>& reported, const std::string& text)
{
    if (reported.exchange(true))
        return;
    std::string line = "quillaphonics: " + text + "\n";
    if (::write(2, line.data(), line.size()) < 0) {
        // Standard error is gone; there is nowhere else to say it.
    }
}

std::string store_name() { return liba::to_utf8(Registry::store_path()); }

// The store as it stands; a missing file is an empty store.
bool load_store(RegistryStore& store)
{
    std::string bytes;
    if (!read_whole_file(Registry::store_path(), bytes)) {
        int err = errno;
        if (err == ENOENT) {
            store.load({});
            g_read_reported = false;
            return true;
        }
        report_once(g_read_reported,
                    "can't read the registry store " + store_name() + ": " + std::strerror(err));
        return false;
    }
    size_t offset = 0;
    if (!store.load(bytes, &offset)) {
        report_once(g_read_reported, "the registry store " + store_name() +
                                         " is not a registry document (gave up at byte " +
                                         std::to_string(offset) +
                                         "); it is left as it is and its values are not used");
        return false;
    }
    g_read_reported = false;
    return true;
}

// Holds the writers' lock for its lifetime.
class WriteLock {
public:
    WriteLock()
    {
        std::string path = store_name() + ".lock";
        fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (fd_ < 0)
            return;
        while (::flock(fd_, LOCK_EX) != 0) {
            if (errno != EINTR) {
                ::close(fd_);
                fd_ = -1;
                return;
            }
        }
    }
    ~WriteLock()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    WriteLock(const WriteLock&) = delete;
    WriteLock& operator=(const WriteLock&) = delete;
    bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

// Read, change and write back the store under the writers' lock. `change`
// returns the operation's result; nothing is written when it is false.
template <typename Change>
bool modify_store(Change change)
{
    // A store that can't be read is reported as such, once, and never
    // overwritten; the look before taking the lock keeps a broken store from
    // being reported a second time as a failed write.
    RegistryStore store;
    if (!load_store(store))
        return false;
    if (!ensure_app_data()) {
        report_once(g_write_reported, "can't create the folder of the registry store " + store_name());
        return false;
    }
    WriteLock lock;
    if (!lock.held()) {
        report_once(g_write_reported, "can't lock the registry store " + store_name() + ".lock: " +
                                          std::strerror(errno));
        return false;
    }
    // Under the lock nobody else is writing: what is left over was killed.
    remove_stale_temporaries(Registry::store_path());
    if (!load_store(store))
        return false;
    if (!change(store))
        return false;
    if (!write_file_atomically(Registry::store_path(), store.save())) {
        report_once(g_write_reported,
                    "can't write the registry store " + store_name() + ": " + std::strerror(errno));
        return false;
    }
    g_write_reported = false;
    return true;
}

bool valid_key(const std::wstring& key)
{
    std::vector<std::wstring> parts;
    return parse_key(key, parts);
}

// Loads the store for a read; a missing key is created, as opening a key
// for reading always did.
bool load_for_read(const std::wstring& key, RegistryStore& store)
{
    if (!valid_key(key) || !load_store(store))
        return false;
    if (!store.has_key(key))
        modify_store([&](RegistryStore& s) { return !s.has_key(key) && s.create_key(key); });
    return true;
}

} // namespace

std::wstring Registry::store_path() { return join_path(macro_value(L"%app_data%"), L"registry.xml"); }

bool Registry::write_string(const std::wstring& key, const std::wstring& name,
                            const std::wstring& value)
{
    return valid_key(key) &&
           modify_store([&](RegistryStore& s) { return s.write_string(key, name, value); });
}

bool Registry::read_string(const std::wstring& key, const std::wstring& name, std::wstring& out)
{
    RegistryStore store;
    return load_for_read(key, store) && store.read_string(key, name, out);
}

bool Registry::write_dword(const std::wstring& key, const std::wstring& name, uint32_t value)
{
    return valid_key(key) &&
           modify_store([&](RegistryStore& s) { return s.write_dword(key, name, value); });
}

bool Registry::read_dword(const std::wstring& key, const std::wstring& name, uint32_t& out)
{
    RegistryStore store;
    return load_for_read(key, store) && store.read_dword(key, name, out);
}

bool Registry::delete_value(const std::wstring& key, const std::wstring& name)
{
    return valid_key(key) &&
           modify_store([&](RegistryStore& s) { return s.delete_value(key, name); });
}

bool Registry::enum_subkeys(const std::wstring& key, std::vector<std::wstring>& out)
{
    out.clear();
    RegistryStore store;
    return valid_key(key) && load_store(store) && store.enum_subkeys(key, out);
}

} // namespace os
