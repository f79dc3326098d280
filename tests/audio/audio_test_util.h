#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

// Helpers of the audio stage tests: real PCM made by sox, a source that hands
// it out, and a sink that keeps what reaches it. Threads: the test's thread.
namespace audio_test {

// Raw samples and format of a WAV made at build time, as sox reads them.
struct Reference {
    std::string bytes;
    int channels = 0;
    int bits = 0;
    int rate = 0;
};

inline Reference sox_reference(const std::string& pattern)
{
    auto files = test::media(pattern);
    EXPECT_EQ(files.size(), 1u) << pattern;
    Reference ref;
    if (files.empty())
        return ref;
    const std::string f = "'" + files[0].string() + "'";
    std::string info;
    EXPECT_EQ(test::run("soxi -c " + f, &info), 0);
    ref.channels = std::stoi(info);
    EXPECT_EQ(test::run("soxi -b " + f, &info), 0);
    ref.bits = std::stoi(info);
    EXPECT_EQ(test::run("soxi -r " + f, &info), 0);
    ref.rate = std::stoi(info);
    // Samples exactly as stored: little-endian, 8-bit unsigned, 16-bit signed.
    std::string enc = ref.bits == 8 ? "-e unsigned-integer" : "-e signed-integer";
    EXPECT_EQ(test::run("sox " + f + " -t raw -L " + enc + " -", &ref.bytes), 0);
    EXPECT_FALSE(ref.bytes.empty());
    return ref;
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

} // namespace audio_test
