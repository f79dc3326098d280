// Feeds arbitrary bytes to the registry store's loader and to every lookup a
// caller can make on what it loaded; a store that loads must also save to
// bytes that load again with the same values.
#include "os/registry.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

const std::wstring kRoots[] = {L"HKEY_CLASSES_ROOT", L"HKEY_LOCAL_MACHINE", L"HKEY_USERS",
                               L"HKEY_CURRENT_USER"};

// Walks the first levels of every root, reading the values a program reads.
void walk(const os::RegistryStore& store, std::vector<std::wstring>& seen)
{
    std::vector<std::wstring> level(std::begin(kRoots), std::end(kRoots));
    for (int depth = 0; depth < 4 && !level.empty(); ++depth) {
        std::vector<std::wstring> next;
        for (const std::wstring& key : level) {
            std::wstring s;
            uint32_t v = 0;
            for (const wchar_t* name : {L"", L"Log", L"Flicker", L"x"}) {
                if (store.read_string(key, name, s))
                    seen.push_back(key + L"|" + name + L"=" + s);
                if (store.read_dword(key, name, v))
                    seen.push_back(key + L"|" + name + L"#" + std::to_wstring(v));
            }
            std::vector<std::wstring> subkeys;
            if (store.enum_subkeys(key, subkeys))
                for (const std::wstring& sub : subkeys)
                    if (next.size() < 64)
                        next.push_back(key + L"\\" + sub);
        }
        level.swap(next);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    os::RegistryStore store;
    size_t offset = 0;
    if (!store.load(std::string_view(reinterpret_cast<const char*>(data), size), &offset))
        return 0;
    std::vector<std::wstring> before;
    walk(store, before);

    os::RegistryStore again;
    if (!again.load(store.save()))
        std::abort();
    std::vector<std::wstring> after;
    walk(again, after);
    if (before != after)
        std::abort();

    // Changes on top of whatever was loaded.
    again.write_string(L"HKEY_CURRENT_USER\\Software\\Kelb", L"x", std::wstring(L"v\x01\0w", 4));
    again.write_dword(L"HKEY_CURRENT_USER\\Software\\Kelb", L"Log", 1);
    again.delete_value(L"HKEY_CURRENT_USER\\Software\\Kelb", L"Flicker");
    os::RegistryStore third;
    if (!third.load(again.save()))
        std::abort();
    std::wstring s;
    uint32_t v = 0;
    if (!third.read_string(L"HKEY_CURRENT_USER\\Software\\Kelb", L"x", s) ||
        s != std::wstring(L"v\x01\0w", 4) ||
        !third.read_dword(L"HKEY_CURRENT_USER\\Software\\Kelb", L"log", v) || v != 1)
        std::abort();
    return 0;
}
