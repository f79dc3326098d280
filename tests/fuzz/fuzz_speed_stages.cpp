// Feeds arbitrary samples, in a format and at a speed taken from the first
// bytes, through fast play and the stretch filter as the player pulls them,
// in records of odd sizes: no read or write strays, nothing loops, and the
// stretch's bookkeeping holds (factor times the frames at the end for the
// repeated periods of half speed, the input's length over the speed for the
// any-speed stretch).
#include "audio/fast_play.h"
#include "audio/stretch_filter.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

constexpr std::int32_t kRates[] = {1, 100, 600, 8000, 11025, 22050, 44100, 48000};
constexpr double kSteps[] = {1.0, 0.5, 0.75, 1.5, 2.0, 1.3};

// Hands out the samples in records whose sizes the data chooses.
class Source : public audio::Provider<audio::PCMData> {
public:
    Source(const std::uint8_t* data, std::size_t size, audio::PCMData format, std::uint8_t cut)
        : data_(data), size_(size), format_(format), cut_(cut)
    {
    }
    void get_data(audio::PCMData& out, int n) override
    {
        const std::size_t frame = static_cast<std::size_t>(format_.bytes_per_frame());
        std::size_t want = std::min<std::size_t>(static_cast<std::size_t>(n), 1 + (cut_ * (at_ + 7)) % 3001) * frame;
        want = std::min(want, (size_ - at_) / frame * frame);
        out = format_;
        out.bytes = want ? liba::ByteBlock(data_ + at_, want) : liba::ByteBlock();
        at_ += want;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    audio::PCMData format_;
    std::uint8_t cut_;
    std::size_t at_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 6)
        return 0;
    audio::PCMData format;
    format.bits = data[0] & 1 ? 16 : 8;
    format.channels = 1 + data[1] % 3;
    format.rate = kRates[data[2] % std::size(kRates)];
    const int mode = data[3] % 4; // factor 1, 2, 3, or the any-speed stretch
    const double speed = 0.5 + (data[4] % 151) / 100.0;
    const std::uint8_t cut = data[5];
    data += 6;
    size -= 6;
    const std::size_t frame = static_cast<std::size_t>(format.bytes_per_frame());
    const std::size_t frames_in = size / frame;

    Source source(data, size, format, cut);
    audio::FastPlay fast;
    audio::StretchFilter stretch;
    audio::connect(source, &fast);
    audio::connect(fast, &stretch);
    if (mode == 3)
        stretch.set_stretch(speed);
    else
        stretch.set_factor(mode + 1);
    const bool plain_step = (cut & 0x80) == 0;
    if (!plain_step)
        fast.set_step(kSteps[cut % std::size(kSteps)]);
    std::size_t frames_out = 0;
    for (;;) {
        audio::PCMData r;
        stretch.get_data(r, 1 + (cut * 131) % 16384);
        if (r.empty())
            break;
        frames_out += r.sample_count();
    }
    audio::connect(fast, nullptr);
    audio::connect(source, nullptr);

    const bool periods = (format.channels <= 2) && mode >= 1 && mode <= 2;
    if (plain_step && frames_in > 0) {
        if (periods && frames_out != frames_in * static_cast<std::size_t>(mode + 1))
            std::abort();
        if (mode == 3 && stretch.get_stretch() != 1.0) {
            const double want = static_cast<double>(frames_in) / stretch.get_stretch();
            if (std::fabs(static_cast<double>(frames_out) - want) > 1.0)
                std::abort();
        }
        if (mode == 0 && frames_out != frames_in)
            std::abort();
    }
    return 0;
}
