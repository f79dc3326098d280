// The record path of the program on its own: SDL's disk driver plays a raw
// 44.1 kHz 16-bit stereo file in as capture input, paced as a device would
// be, through RecorderPCM and ActiveBuffer into the MP3 record chain at
// 128 kbit/s, until the device has delivered the whole file. Prints what
// was heard, lost and encoded as `key: value` lines (frames, bytes, seconds).
// Usage: record_pipeline IN.raw OUT.mp3
#include "audio/active_buffer.h"
#include "audio/record_chain.h"
#include "audio/recorder_pcm.h"
#include "liba/text.h"

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace {

constexpr int kChannels = 2;
constexpr int kRate = 44100;
constexpr int kFrameBytes = 4;

// Counts the bytes that pass.
class Counter : public audio::Processor<audio::PCMData> {
public:
    std::atomic<std::uint64_t> bytes{0};

protected:
    void process(audio::PCMData& out, const audio::PCMData& in) override
    {
        bytes += in.bytes.size();
        out = in;
    }
};

double cpu_seconds()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
           static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: record_pipeline IN.raw OUT.mp3\n");
        return 2;
    }
    const std::uint64_t input = std::filesystem::file_size(argv[1]);
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILEIN", argv[1], 1);
    setenv("SDL_DISKAUDIOFILE", "/dev/null", 1);

    Counter heard, encoded;
    audio::ActiveBuffer buffer;
    auto chain = audio::create_record_chain(liba::from_utf8(argv[2]), L"mp3", kChannels, 16, kRate, 128000, false);
    auto rec = std::make_unique<audio::RecorderPCM>(kChannels, kRate, 16);
    if (!chain || !rec->is_good()) {
        std::fprintf(stderr, "record_pipeline: no capture device or no MP3 chain\n");
        return 1;
    }
    audio::connect(*rec, &heard);
    audio::connect(heard, &buffer);
    audio::connect(buffer, &encoded);
    audio::connect(encoded, chain->get_consumer());
    const auto start = std::chrono::steady_clock::now();
    rec->start();
    std::int32_t max_pending = 0;
    bool good = true;
    while (heard.bytes < input && good) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        max_pending = std::max(max_pending, buffer.pending_bytes());
        good = rec->is_good() && buffer.is_good();
    }
    audio::connect(*rec, nullptr);
    const audio::RecorderPCM::Counts counts = rec->counts();
    rec.reset();
    while (buffer.queued_records() > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    audio::connect(buffer, nullptr);
    const bool writer_good = chain->get_writer()->is_good();
    chain.reset();
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    std::printf("input_frames: %llu\n", static_cast<unsigned long long>(input / kFrameBytes));
    std::printf("device_frames: %llu\n", static_cast<unsigned long long>(counts.heard / kFrameBytes));
    std::printf("lost_frames: %llu\n", static_cast<unsigned long long>(counts.lost / kFrameBytes));
    std::printf("pushed_frames: %llu\n", static_cast<unsigned long long>(heard.bytes / kFrameBytes));
    std::printf("encoder_frames: %llu\n", static_cast<unsigned long long>(encoded.bytes / kFrameBytes));
    std::printf("overrun: %s\n", good ? "no" : "yes");
    std::printf("writer_good: %s\n", writer_good ? "yes" : "no");
    std::printf("max_pending_bytes: %d\n", max_pending);
    std::printf("wall: %.3f\n", wall);
    std::printf("cpu: %.3f\n", cpu_seconds());
    return good && writer_good ? 0 : 1;
}
