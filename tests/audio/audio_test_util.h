#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"
#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

// Helpers of the audio stage tests: real PCM made by sox, a source that hands
// it out, and a sink that keeps what reaches it. Threads: the test's thread.
namespace audio_test {

using test::samples_of;
using test::wide;

// The one media file that `name` names.
inline std::filesystem::path one(const std::string& name) { return test::one_media(name); }

// What a decoder command (its output raw 16-bit samples) makes of `f`.
inline std::vector<std::int16_t> reference_samples(const std::string& command)
{
    std::string raw;
    EXPECT_EQ(test::run(command, &raw), 0) << command;
    return samples_of(raw);
}

// Largest difference between `ours` and `ref` from `ref_at` on, over the
// length of `ours`; INT_MAX if `ref` is too short.
inline int max_difference(const std::vector<std::int16_t>& ours, const std::vector<std::int16_t>& ref,
                          std::size_t ref_at = 0)
{
    if (ref_at + ours.size() > ref.size())
        return INT_MAX;
    int worst = 0;
    for (std::size_t i = 0; i < ours.size(); ++i)
        worst = std::max(worst, std::abs(int(ours[i]) - int(ref[ref_at + i])));
    return worst;
}

// Signal to noise of `ours` against `ref` (from `ref_at`), in dB; 999 when
// they agree exactly, -999 if `ref` is too short.
inline double snr_db(const std::vector<std::int16_t>& ours, const std::vector<std::int16_t>& ref,
                     std::size_t ref_at = 0)
{
    if (ref_at + ours.size() > ref.size())
        return -999;
    double signal = 0, noise = 0;
    for (std::size_t i = 0; i < ours.size(); ++i) {
        const double r = ref[ref_at + i];
        signal += r * r;
        noise += (ours[i] - r) * (ours[i] - r);
    }
    return noise == 0 ? 999 : 10 * std::log10(signal / noise);
}

// The same over raw 16-bit little-endian samples, as far as both reach.
inline double snr_db(const std::string& ref, const std::string& got)
{
    std::vector<std::int16_t> r = samples_of(ref), g = samples_of(got);
    g.resize(std::min(r.size(), g.size()));
    return snr_db(g, r);
}

// Raw samples and format of a WAV made at build time, as sox reads them.
struct Reference {
    std::string bytes;
    int channels = 0;
    int bits = 0;
    int rate = 0;
};

inline Reference sox_file(const std::filesystem::path& f)
{
    Reference ref;
    ref.channels = test::soxi_int(f, "-c");
    ref.bits = test::soxi_int(f, "-b");
    ref.rate = test::soxi_int(f, "-r");
    // Samples exactly as stored: little-endian, 8-bit unsigned, 16-bit signed.
    std::string enc = ref.bits == 8 ? "-e unsigned-integer" : "-e signed-integer";
    EXPECT_EQ(test::run("sox " + test::quote(f.string()) + " -t raw -L " + enc + " -", &ref.bytes), 0) << f;
    return ref;
}

// The same for the one media file that `pattern` names.
inline Reference sox_reference(const std::string& pattern)
{
    auto files = test::media(pattern);
    EXPECT_EQ(files.size(), 1u) << pattern;
    if (files.empty())
        return {};
    Reference ref = sox_file(files[0]);
    EXPECT_FALSE(ref.bytes.empty());
    return ref;
}

// Mono 16-bit samples at `rate` Hz as a reference (values beyond 16 bits wrap).
template <class T>
Reference mono16(const std::vector<T>& v, int rate)
{
    Reference r;
    r.channels = 1, r.bits = 16, r.rate = rate;
    r.bytes.resize(v.size() * 2);
    for (std::size_t i = 0; i < v.size(); ++i) {
        const auto s = std::int16_t(v[i]);
        std::memcpy(&r.bytes[2 * i], &s, 2);
    }
    return r;
}

inline audio::PCMData pcm_of(const Reference& ref, std::size_t from, std::size_t size)
{
    audio::PCMData r;
    from = std::min(from, ref.bytes.size());
    size = std::min(size, ref.bytes.size() - from);
    r.bytes = liba::ByteBlock(ref.bytes.data() + from, size);
    r.channels = ref.channels;
    r.bits = ref.bits;
    r.rate = ref.rate;
    return r;
}

inline std::string bytes_of(const liba::ByteBlock& b)
{
    return std::string(reinterpret_cast<const char*>(b.data()), b.size());
}

// Pulls up to `frames` sample frames from a 16-bit source, `request` at a
// time, or up to its end; every record has the source's format and no more
// than was asked for.
template <class Source>
std::string pull(Source& d, std::size_t frames, int request = 4096)
{
    const std::size_t frame_bytes = std::size_t(d.get_channels()) * 2;
    std::string out;
    while (out.size() < frames * frame_bytes) {
        audio::PCMData r;
        d.get_data(r, request);
        if (r.empty())
            break;
        EXPECT_EQ(r.channels, d.get_channels());
        EXPECT_EQ(r.bits, 16);
        EXPECT_EQ(r.rate, d.get_rate());
        EXPECT_LE(r.sample_count(), std::size_t(request));
        out += bytes_of(r.bytes);
    }
    return out.substr(0, std::min(out.size(), frames * frame_bytes));
}

// Every byte `stage` gives, pulled `request` at a time until an empty record
// (a stage that never ends fails the test); no record of samples may hold
// more than was asked for.
template <class Record>
std::string drain(audio::Provider<Record>& stage, int request = 16384)
{
    std::string all;
    for (int guard = 0; guard < 1000000; ++guard) {
        Record r;
        stage.get_data(r, request);
        if (r.empty())
            return all;
        if constexpr (std::is_same_v<Record, audio::PCMData>) {
            EXPECT_LE(r.sample_count(), std::size_t(request));
        }
        all += bytes_of(r.bytes);
    }
    ADD_FAILURE() << "the stage never ended";
    return all;
}

// drain for a decoder whose records must all be 16-bit, `channels` × `rate`.
inline std::string drain_pcm(audio::Provider<audio::PCMData>& stage, int request, int channels, int rate)
{
    std::string all;
    for (int guard = 0; guard < 1000000; ++guard) {
        audio::PCMData r;
        stage.get_data(r, request);
        if (r.empty())
            return all;
        EXPECT_EQ(r.bits, 16);
        EXPECT_EQ(r.channels, channels);
        EXPECT_EQ(r.rate, rate);
        EXPECT_LE(r.sample_count(), std::size_t(request));
        all += bytes_of(r.bytes);
    }
    ADD_FAILURE() << "the stage never ended";
    return all;
}

// Hands out the reference `frames` at a time (at most what is asked for) and
// counts the requests.
class PCMSource : public audio::Provider<audio::PCMData> {
public:
    explicit PCMSource(const Reference& ref) : ref_(ref) {}
    void get_data(audio::PCMData& out, int n) override
    {
        ++requests;
        std::size_t frame = static_cast<std::size_t>(ref_.channels * ((ref_.bits + 7) / 8));
        out = pcm_of(ref_, pos_, frame * static_cast<std::size_t>(n));
        pos_ += out.bytes.size();
    }
    int requests = 0;

private:
    const Reference& ref_;
    std::size_t pos_ = 0;
};

// Keeps every record pushed to it.
template <class T>
class Sink : public audio::Consumer<T> {
public:
    void on_data(const T& r) override { records.push_back(r); }
    std::string all_bytes() const
    {
        std::string s;
        for (const auto& r : records)
            s += bytes_of(r.bytes);
        return s;
    }
    std::vector<T> records;
};

// What `stage` pushes on for the records pushed at it.
template <class Out, class Stage, class In>
std::vector<Out> push_through(Stage& stage, const std::vector<In>& records)
{
    Sink<Out> sink;
    audio::connect(stage, &sink);
    for (const In& r : records)
        stage.on_data(r);
    audio::connect(stage, nullptr);
    return sink.records;
}

// `ref` cut into records of `frames` sample frames.
inline std::vector<audio::PCMData> cut_records(const Reference& ref, std::size_t frames)
{
    const std::size_t step = frames * std::size_t(ref.channels) * std::size_t((ref.bits + 7) / 8);
    std::vector<audio::PCMData> out;
    for (std::size_t at = 0; at < ref.bytes.size(); at += step)
        out.push_back(pcm_of(ref, at, step));
    return out;
}

template <class T>
std::string all_bytes(const std::vector<T>& records)
{
    std::string s;
    for (const auto& r : records)
        s += bytes_of(r.bytes);
    return s;
}

// Polls `done` every 2 ms for at most `timeout_ms`; false if it never held.
inline bool wait_until(const std::function<bool()>& done, int timeout_ms = 20000)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// Points SDL at its disk driver: what is played goes to `played`, what is
// captured comes from `captured` (when given), `delay_ms` per device callback
// (0: as fast as the machine goes).
inline void use_disk_audio(const std::filesystem::path& played, int delay_ms,
                           const std::filesystem::path& captured = {})
{
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", played.c_str(), 1);
    if (!captured.empty())
        setenv("SDL_DISKAUDIOFILEIN", captured.c_str(), 1);
    setenv("SDL_DISKAUDIODELAY", std::to_string(delay_ms).c_str(), 1);
}

// The speech clip as raw little-endian samples, made by sox into `out`
// (`effects` are sox's, after the format).
inline std::string speech_raw(const std::filesystem::path& out, int rate, int bits, int channels,
                              const std::string& effects = "")
{
    const std::string enc = bits == 8 ? "unsigned-integer" : "signed-integer";
    EXPECT_EQ(test::run("sox " + test::quote(one("speech_src.wav").string()) + " -r " + std::to_string(rate) +
                        " -b " + std::to_string(bits) + " -c " + std::to_string(channels) + " -e " + enc +
                        " -t raw " + test::quote(out.string()) + " " + effects),
              0);
    return test::read_file(out);
}

} // namespace audio_test
