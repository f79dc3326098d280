// Feeds arbitrary bytes, as XML, to the readers of both XML logs. A list
// that reads must write a document that reads back with the same fields
// (times within the microsecond the files keep), and each format's list must
// write in the other format without harm.
#include "os/xml_document.h"
#include "playlist/list_multi_tracker.h"
#include "playlist/list_offline_radio.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

bool near(double a, double b, double tolerance) { return std::fabs(a - b) <= tolerance; }

void compare(const playlist::List& a, const playlist::List& b)
{
    if (a.entries.size() != b.entries.size() || a.name != b.name || a.header_id != b.header_id ||
        a.start_time != b.start_time)
        std::abort();
    double scale = 1;
    for (const auto& e : a.entries)
        scale += std::fabs(e.duration) + std::fabs(e.next_offset) + std::fabs(e.clip_begin) + std::fabs(e.fade_in) +
                 std::fabs(e.clip_end) + std::fabs(e.fade_out);
    bool sane = scale < 1e9;
    double tolerance = 1e-5 + 1e-12 * scale;
    for (size_t i = 0; i < a.entries.size(); ++i) {
        const auto& x = a.entries[i];
        const auto& y = b.entries[i];
        if (x.path.empty() || x.path != y.path || x.attributes != y.attributes || x.track != y.track)
            std::abort();
        if (sane && !(near(x.duration, y.duration, tolerance) && near(x.next_offset, y.next_offset, tolerance) &&
                      near(x.clip_begin, y.clip_begin, tolerance) && near(x.fade_in, y.fade_in, tolerance) &&
                      near(x.clip_end, y.clip_end, tolerance) && near(x.fade_out, y.fade_out, tolerance)))
            std::abort();
    }
}

template <typename List, typename Other>
void round_trip(const os::XmlDocument& document)
{
    List list;
    if (!list.read(document)) {
        if (list.is_valid() || !list.entries.empty())
            std::abort();
        return;
    }
    os::XmlDocument written;
    list.write(written);
    os::XmlDocument reread;
    List again;
    if (!reread.load_bytes(written.save_bytes()) || !again.read(reread))
        std::abort();
    compare(list, again);

    Other other;
    other.entries = list.entries;
    os::XmlDocument converted;
    other.write(converted);
    Other back;
    if (!back.read(converted) || back.entries.size() != list.entries.size())
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    os::XmlDocument document;
    if (!document.load_bytes(std::string_view(reinterpret_cast<const char*>(data), size)))
        return 0;
    round_trip<playlist::ListMultiTracker, playlist::ListOfflineRadio>(document);
    round_trip<playlist::ListOfflineRadio, playlist::ListMultiTracker>(document);
    return 0;
}
