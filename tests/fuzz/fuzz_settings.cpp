// Feeds arbitrary bytes to the settings loader as a settings file. Whatever a
// file held, the record it leaves must save to a file that loads again, and
// from then on saving and loading change nothing: the second save writes the
// same bytes and the third load the same record.
#include "app/settings.h"
#include "os/xml_document.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

std::string bytes_of(const Settings& s)
{
    os::XmlDocument doc;
    s.save_to(doc);
    return doc.save_bytes();
}

Settings load(const std::string& bytes)
{
    os::XmlDocument doc;
    if (!doc.load_bytes(bytes))
        std::abort(); // what the settings wrote must parse
    Settings s;
    s.load_from(doc);
    return s;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    os::XmlDocument doc;
    if (!doc.load_bytes(std::string_view(reinterpret_cast<const char*>(data), size)))
        return 0;
    Settings first;
    first.load_from(doc);
    if (first.buttons.size() != Settings::kButtonCount)
        std::abort();

    std::string saved = bytes_of(first);
    Settings second = load(saved);
    std::string saved_again = bytes_of(second);
    if (saved_again != saved)
        std::abort();
    if (!(load(saved_again) == second))
        std::abort();
    return 0;
}
