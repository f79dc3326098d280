#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"

#include <memory>

// The input gain of the record path. The level runs 0.0..1.0 and maps to a
// gain on two straight lines: 0.0 gives 0.05, 0.5 gives 1.0 (and leaves the
// samples untouched), 1.0 gives 10.0. Samples are scaled one at a time and
// clamped to their range.
// Owned by Document for the whole run. Threads: process on the recorder's
// thread; get_level and set_level on the main thread, all under the stage's
// lock.
namespace audio {

// How the gain is applied; the soft one below scales the samples.
class RecordLevelControlImpl {
public:
    virtual ~RecordLevelControlImpl() = default;
    virtual double get_level() const = 0;
    virtual void set_level(double level) = 0;
    virtual void process(PCMData& out, const PCMData& in) = 0;
};

class RecordLevelControlSoft : public RecordLevelControlImpl {
public:
    // The level that passes records on as they are.
    static constexpr double kBypass = 0.5;
    // The gain of `level`.
    static double gain_of(double level);

    double get_level() const override { return level_; }
    void set_level(double level) override { level_ = level; }
    // Scales the first sample_count() samples of the record (for a stereo
    // record, its first half) into a new block; the rest of the block is
    // zero.
    void process(PCMData& out, const PCMData& in) override;

private:
    double level_ = kBypass;
};

class RecordLevelControl : public Processor<PCMData> {
public:
    RecordLevelControl();
    double get_level();
    void set_level(double level);

protected:
    void process(PCMData& out, const PCMData& in) override;

private:
    std::unique_ptr<RecordLevelControlImpl> impl_;
};

} // namespace audio
