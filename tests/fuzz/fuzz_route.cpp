// Feeds arbitrary bytes, as a file, to the play chain factory, plain and with
// marks taken from the input's first bytes, and pulls each chain to its end
// as the player does. No chain may crash, and none may deliver more records
// than its ranges and its file could hold: a route that never ends is a hang.
#include "audio/file_reader_wma.h"
#include "audio/play_chain.h"
#include "fuzz_files.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// Up to 8 marks: a count, then 5 bytes each (position little-endian, play).
audio::RouteMarks marks_of(const uint8_t*& data, size_t& size)
{
    audio::RouteMarks marks;
    if (size == 0)
        return marks;
    size_t count = data[0] % 9;
    ++data;
    --size;
    for (size_t i = 0; i < count && size >= 5; ++i, data += 5, size -= 5) {
        uint32_t p;
        std::memcpy(&p, data, 4);
        marks.push_back({static_cast<int32_t>(p), (data[4] & 1) != 0});
    }
    return marks;
}

void pull_to_end(audio::PlayChain& chain, size_t most_records)
{
    audio::FileReader& reader = *chain.get_reader();
    (void)reader.get_duration();
    (void)reader.get_time();
    (void)reader.is_eof();
    audio::NullProcessor<audio::PCMData> head;
    audio::connect(*chain.get_provider(), &head);
    for (size_t records = 0;; ++records) {
        if (records > most_records)
            std::abort();
        audio::PCMData rec;
        head.get_data(rec, 16384);
        if (rec.empty())
            break;
    }
    (void)reader.is_eof();
    audio::connect(*chain.get_provider(), nullptr);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The readers log what they refuse.
    fuzz::init_scratch("fuzz_route");
    // The media service is a library's parser, not ours, and starting it for
    // every random input would only slow the search.
    audio::FileReaderWMA::set_service_allowed(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    audio::RouteMarks marks = marks_of(data, size);
    const std::wstring path = fuzz::scratch_file("input-", ".bin");
    fuzz::put_file(path, data, size);
    // Every record holds at least one byte's worth of the file, once per
    // range at most.
    const size_t most = (marks.size() + 2) * (size + 1) + 16;
    if (auto plain = audio::create_play_chain(path, nullptr))
        pull_to_end(*plain, most);
    if (auto routed = audio::create_play_chain(path, &marks))
        pull_to_end(*routed, most);
    fuzz::remove_file(path);
    return 0;
}
