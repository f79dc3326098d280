#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"
#include "liba/nocopy.h"

#include <cstdint>
#include <memory>

// The front of the record path: sound from the default capture device, cut
// into records of one device buffer each and pushed to the linked stage from
// a thread of its own. Nothing pulls from it; a pull ends the process.
// Made by Document for one recording and deleted at its stop, with its
// output cut first. Threads: every operation belongs to the owner's (main)
// thread; the records are pushed on the recorder's thread. Rates in samples
// per second, bit rates in bits per second.
namespace audio {

// What a recorder answers, whatever device it takes sound from.
class Recorder : public PushOnlyProvider<PCMData> {
public:
    Recorder() : PushOnlyProvider<PCMData>(kRecorderGetData) {}
    // Starts taking sound; false when there is no device or it refused.
    virtual bool start() = 0;
    // Stops taking sound; true when stopped.
    virtual bool stop() = 0;
    virtual bool is_stopped() = 0;
    // The device is open and has not run out of buffers.
    virtual bool is_good() = 0;
    virtual std::int32_t get_channels() = 0;
    virtual std::int32_t get_bits() = 0;
    virtual std::int32_t get_samples_per_sec() = 0;
    virtual std::int32_t get_bit_rate() = 0;
};

class RecorderPCMImpl;

class RecorderPCM : public Recorder, liba::Nocopy {
public:
    // Device buffers, and sample blocks in each.
    static constexpr int kBufferCount = 20;
    static constexpr int kBlocksPerBuffer = 5000;

    // Opens the default capture device in this format, stopped. When the
    // device can't be opened, is_good answers false and nothing else works.
    RecorderPCM(std::uint32_t channels, std::uint32_t samples_per_sec, std::uint32_t bits);
    // Closes the device and ends the thread; records the device still held
    // go to the linked stage, so the owner cuts the link first.
    ~RecorderPCM() override;

    bool start() override;
    bool stop() override;
    bool is_stopped() override;
    bool is_good() override;
    std::int32_t get_channels() override;
    std::int32_t get_bits() override;
    std::int32_t get_samples_per_sec() override;
    // ((bits + 7) x rate x channels) / 8, then x 8.
    std::int32_t get_bit_rate() override;

    // Bytes of one device buffer: the block alignment x 5000.
    std::int32_t buffer_size() const;
    // For tests and benchmarks: bytes the device delivered, those of them
    // that found no free buffer, and those pushed on as records. Takes no
    // lock of the recorder's, so it answers while a push waits downstream.
    struct Counts {
        std::uint64_t heard = 0;
        std::uint64_t lost = 0;
        std::uint64_t pushed = 0;
    };
    Counts counts() const;

private:
    std::unique_ptr<RecorderPCMImpl> impl;
};

// ((bits + 7) x channels) / 8: the rounding before the division is that of
// the device's format record, which gives 5 bytes for 16-bit stereo.
std::int32_t recorder_block_align(std::int32_t channels, std::int32_t bits);

} // namespace audio
