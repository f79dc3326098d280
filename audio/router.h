#pragma once

#include "audio/file_reader.h"
#include "audio/file_reader_mp3.h"
#include "audio/file_reader_wav.h"
#include "audio/pipeline.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// Route playing: a reader that delivers only the marked ranges of its file.
// The marks cut the file into ranges, each from its mark's position to the
// next mark's (the last one's to the end of the audio); the ranges of the
// marks to be played come out one after another in position order, and what
// lies between them is jumped over.
namespace audio {

// One mark as the router sees it. `position` is in the position unit of the
// file's reader (bytes of the data for PCM WAV, blocks for ADPCM and GSM,
// bytes of the file for MP3).
struct RouteMark {
    std::int32_t position = 0;
    bool play = false; // its range is in the route
};

// The marks of one file, in ascending position.
using RouteMarks = std::vector<RouteMark>;

namespace route_detail {

// The record type of a reader, from its one Provider base.
template <class T>
T record_of(Provider<T>*);
template <class R>
using RecordOf = decltype(record_of(std::declval<R*>()));

} // namespace route_detail

// A reader `R` (FileReaderWAVPCM, FileReaderWAVADPCM, FileReaderWAVGSM,
// FileReaderMP3, and the Vorbis decoder once it exists) that plays the route
// through `marks`. It reads no further than the end of the range it is in,
// then moves the cursor to the next range to play; an empty record ends the
// route. Threads: get_data on the player's thread, is_eof and the queries of
// R on the main thread; `current` is atomic for that, the rest is R's under
// R's own lock. Owned by its play chain.
template <class R>
class Router : public R {
public:
    using Record = route_detail::RecordOf<R>;

    Router(const std::wstring& path, RouteMarks marks) : R(path), marks_(std::move(marks))
    {
        current = next_playable(-1);
        if (current < count())
            this->set_position(marks_[static_cast<std::size_t>(current)].position);
    }

    // True once the last range to play is behind; the reader's own end does
    // not count.
    bool is_eof() override { return current >= count(); }

    void get_data(Record& out, int n) override
    {
        read_in_range(out, n);
        if (!out.empty())
            return;
        current = next_playable(current);
        // The cursor may already stand in the next range (adjacent ranges).
        read_in_range(out, n);
        if (!out.empty())
            return;
        if (current != count()) {
            this->set_position(marks_[static_cast<std::size_t>(current)].position);
            read_in_range(out, n);
        }
        if (out.empty())
            this->set_position(this->get_length());
    }

    // The index of the range being played; the mark count once the route is
    // done.
    std::atomic<int> current{0};

private:
    int count() const { return static_cast<int>(marks_.size()); }

    // The first mark after `i` whose range is to be played; count() if none.
    int next_playable(int i) const
    {
        for (int j = std::max(i + 1, 0); j < count(); ++j)
            if (marks_[static_cast<std::size_t>(j)].play)
                return j;
        return count();
    }

    // Length of range `i` in the position unit, to the next mark or the end
    // of the audio.
    std::int64_t range_length(int i)
    {
        std::int64_t end = i + 1 < count() ? marks_[static_cast<std::size_t>(i) + 1].position : this->get_length();
        return end - marks_[static_cast<std::size_t>(i)].position;
    }

    // Reads at most `n` units from the cursor when the cursor stands in the
    // current range and no further than its end; otherwise `out` is empty.
    void read_in_range(Record& out, int n)
    {
        out = Record();
        const int i = current;
        if (i >= count())
            return;
        std::int64_t start = marks_[static_cast<std::size_t>(i)].position;
        const std::int64_t end = start + range_length(i);
        const std::int64_t p = this->get_position();
        if constexpr (std::is_same_v<R, FileReaderWAVPCM>) {
            // The cursor only ever stands on whole frames: a mark inside a
            // frame starts its range at that frame.
            const std::int64_t align = this->get_wav_info().block_align;
            if (align != 0)
                start -= ((start % align) + align) % align;
        }
        if (p < start || p >= end)
            return;
        const std::int64_t m = units_left(end - p, n);
        if (m > 0)
            R::get_data(out, static_cast<int>(m));
    }

    // How much of the range, `left` position units, one read may take.
    std::int64_t units_left(std::int64_t left, int n)
    {
        if constexpr (std::is_base_of_v<FileReaderWAV, R>) {
            // One rule for the three WAV readers: for PCM it turns bytes
            // into frames; for ADPCM and GSM, whose positions are blocks
            // already, it divides them all the same, so their reads are
            // short and a range ends up to `block_align` blocks early.
            const std::int64_t align = this->get_wav_info().block_align;
            if (align == 0)
                return 0;
            return std::min<std::int64_t>(n, left / align);
        } else if constexpr (std::is_same_v<R, FileReaderMP3>) {
            return std::min<std::int64_t>(n, 1);
        } else {
            return std::min<std::int64_t>(n, left);
        }
    }

    RouteMarks marks_;
};

} // namespace audio
