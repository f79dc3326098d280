// One libFuzzer body for the decoders that read a file themselves (Ogg
// Vorbis, Musepack): arbitrary bytes go in as a file, then reads of every
// size, seeks to odd places and transfers. Each record must hold whole
// sample frames, no more than were asked for, in a format that makes sense.
// Threads: the fuzzer's one thread.
#pragma once

#include "audio/decoding_reader.h"
#include "audio/pipeline.h"
#include "liba/text.h"
#include "os/file.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace fuzz_decoder {

inline std::string& folder()
{
    static std::string f;
    return f;
}

// One folder for every run of the fuzzer `name`; the file in it is named
// by process, so parallel jobs keep apart.
inline void set_up(const char* name)
{
    folder() = (std::filesystem::temp_directory_path() / name).string();
    std::error_code ignored;
    std::filesystem::create_directories(folder(), ignored);
    // The decoders log what they refuse; keep that away from the user's home.
    setenv("HOME", folder().c_str(), 1);
    setenv("XDG_CONFIG_HOME", folder().c_str(), 1);
    setenv("XDG_DATA_HOME", folder().c_str(), 1);
}

// Counts what reaches it and keeps nothing.
class Drain : public audio::Consumer<audio::PCMData> {
public:
    void on_data(const audio::PCMData& r) override { frames += r.sample_count(); }
    std::size_t frames = 0;
};

inline void check(const audio::PCMData& r, int asked)
{
    if (r.empty())
        return;
    if (r.bits != 16 || r.channels < 1 || r.channels > 255 || r.rate < 1 ||
        r.bytes.size() % (std::size_t(r.channels) * 2) != 0 || (asked > 0 && r.sample_count() > std::size_t(asked)))
        std::abort();
}

inline void poke(audio::FileReader& r)
{
    (void)r.is_eof();
    (void)r.get_channels();
    (void)r.get_bitrate();
    (void)r.get_duration();
    (void)r.get_time();
    for (int32_t p : {INT32_MIN, -1, 0, 1, INT32_MAX})
        (void)r.position_to_seconds(p);
    for (double s : {-1e300, 0.0, 0.01, 1e300, std::nan("")})
        (void)r.seconds_to_position(s);
}

template <class Decoder>
void run(const uint8_t* data, size_t size)
{
    const std::string path = folder() + "/input-" + std::to_string(getpid());
    {
        os::File f(liba::from_utf8(path), os::File::kWrite);
        if (size != 0 && f.write(data, size) != size)
            std::abort();
    }
    {
        Decoder d(liba::from_utf8(path));
        poke(d);
        if (d.is_open()) {
            if (d.get_channels() < 1 || d.get_rate() < 1)
                std::abort();
            // To the end or the first damage, in bounded steps.
            for (int i = 0; i < 4000; ++i) {
                const int n = i % 3 == 0 ? 16384 : i % 3 == 1 ? 1 : 777;
                audio::PCMData r;
                d.get_data(r, n);
                check(r, n);
                if (r.empty())
                    break;
            }
            for (int32_t p : {INT32_MAX, INT32_MIN, -3, d.get_length() / 2, d.get_length(), 1, 0}) {
                d.set_position(p);
                for (int n : {0, -5, 100, INT_MAX}) {
                    audio::PCMData r;
                    d.get_data(r, n);
                    check(r, n);
                }
                poke(d);
            }
            Drain drain;
            audio::connect(d, &drain);
            d.set_position(0);
            (void)d.transfer_position(50000);
            (void)d.transfer_seconds(0.05);
            d.set_time(1e300);
            (void)d.transfer_seconds(1e300);
            audio::connect(d, nullptr);
        }
    }
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
}

} // namespace fuzz_decoder
