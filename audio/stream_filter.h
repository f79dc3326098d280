#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"

#include <cstdint>

namespace audio {

// The base of play stages that need more input than they are asked for and
// keep a queue of finished output: get_data gathers input until a pass of
// filter() gives something, and hands the output out in pieces of at most
// the frames asked for. A push into it is fatal.
// Threads: get_data runs on the driver's thread under `lock`; a subclass's
// setters take `lock` too. Units: `threshold` in bytes; records out are views
// of the filter's own blocks, owned by the receiver.
class StreamFilter : public Consumer<PCMData>, public Provider<PCMData> {
public:
    void on_data(const PCMData& in) override;
    // Forgets the analysis state of a stream (a new format begins).
    virtual void reset() {}
    // Filters `in` into `out` and returns the bytes of `in` it is done with;
    // the rest comes again, with more behind it, at the next pass. With
    // `flush` the stream ends (or its format changes): all of `in` is used.
    virtual std::size_t filter(PCMData& out, const PCMData& in, bool flush) = 0;

    void get_data(PCMData& out, int n) override;

protected:
    // Finished output not yet taken.
    PCMData ready;
    // Received and not yet filtered.
    PCMData input;
    // A pass of filter() runs only on more input than this.
    std::int32_t threshold = 10000;

private:
    void take(PCMData& out, int n);
};

} // namespace audio
