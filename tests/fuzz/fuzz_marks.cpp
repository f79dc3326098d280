// Feeds arbitrary bytes to the side file loader of range marks. A list that
// loads must keep its promises (ascending positions, none twice, a route that
// matches the kinds), save to bytes that load to the same list, and survive
// the edits the program makes on it.
#include "files/range_marks.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

void check(const RangeMarks& m)
{
    int routed = 0;
    for (int i = 0; i < m.count(); ++i) {
        if (m.mark(i).position < 0 || (i > 0 && m.mark(i - 1).position >= m.mark(i).position))
            std::abort();
        if (m.mark(i).kind != -1) {
            ++routed;
            if (m.mark(i).kind >= m.route_count() || m.route_index(m.mark(i).kind) != i)
                std::abort();
        }
        if (m.range_length(i, INT32_MAX) < 0 || m.range_length(i, 0) < 0)
            std::abort();
    }
    if (routed != m.route_count())
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    RangeMarks m;
    if (!m.load_bytes(bytes, L"fuzz")) {
        if (m.count() != 0 || m.route_count() != 0)
            std::abort();
        return 0;
    }
    check(m);

    RangeMarks again;
    if (!again.load_bytes(m.save_bytes(), L"fuzz again") || !(again == m))
        std::abort();

    // Edits at positions taken from the input: adds inside and outside the
    // route, a splice of the list into itself, removal of every other mark.
    uint32_t seed = 2166136261u;
    for (unsigned char c : bytes.substr(0, 64))
        seed = (seed ^ c) * 16777619u;
    const int32_t a = static_cast<int32_t>(seed & 0x7FFFFFFF);
    m.add_mark(a, L"a");
    m.add_mark(a / 3, L"b");
    m.add_mark_raw(a / 7, L"c", true);
    check(m);
    RangeMarks copy = m;
    m.splice(a / 5, static_cast<int32_t>(seed >> 20), copy);
    check(m);
    for (int i = m.count() - 1; i >= 0; i -= 2)
        m.remove(i);
    check(m);
    if (!again.load_bytes(m.save_bytes(), L"fuzz edited") || !(again == m))
        std::abort();
    label_track(m, [](int32_t p) { return p / 1000.0; }, 1e9);
    return 0;
}
