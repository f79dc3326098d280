#pragma once

#include "audio/encoder_mp3.h"
#include "audio/file_writer_mp3.h"
#include "audio/play_chain.h"
#include "files/range_marks.h"
#include "liba/critical_section.h"
#include "liba/thread.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

// Turns one sound file into an MP3 file at 64 kbit/s: the source's play
// chain pushes straight into an MP3 encoder and writer, driven by a thread of
// its own, and the source's marks are carried over by time once the whole
// source has gone through, since the two files count positions differently.
// Threads: made, asked and deleted on one owner's thread (the form's or a
// command's); the work runs on the conversion's own thread. Positions are in
// the source reader's unit, sizes in bytes, bit rates in bits per second.
// Deleting a conversion that did not succeed removes its target.
class Conversion : public liba::Thread {
public:
    static constexpr std::int32_t kBitRate = 64000;
    // The amount each step of the thread hands on, in the reader's position
    // unit; it only bounds how long a stop request waits.
    static constexpr std::int32_t kStep = 5000;

    // Opens the source by content and creates (or empties) the target. With
    // `save_side_file` false the carried-over marks stay in target_marks()
    // for the owner to save where the target finally lands.
    Conversion(const std::wstring& source_path, const std::wstring& target_path, bool save_side_file = true);
    ~Conversion() override;

    // A reader took the source; the rest of the interface needs one.
    bool is_open() const;
    // The target was created and no write to it has failed.
    bool is_good();
    // LAME can encode the source's stream: a rate of MPEG audio, 1 or 2
    // channels, 8- or 16-bit samples. Otherwise false with the reason.
    bool can_encode(std::wstring* why = nullptr);
    // The target's folder has strictly more free bytes than the encoder's
    // bit rate x the source's duration x 0.125.
    bool has_room();
    // Starts the thread at `priority` (liba::Thread levels; -1 is one below
    // normal).
    bool begin(int priority = -1);
    // Position and length of the source's reader, for a progress bar; and
    // whether it has reached its end.
    std::int32_t get_position();
    std::int32_t get_length();
    double get_duration();
    bool is_eof();

    // Waits for the thread, closes the target and says whether the whole
    // source reached it with every byte written. Call once, after begin().
    bool finish();

    // The source's marks in the target's position unit; filled when the
    // source has marks and finish() succeeded.
    const RangeMarks& target_marks() const { return marks; }
    // The source had marks to carry over.
    bool has_marks() const { return marks_found; }

    const std::wstring& get_source_path() const { return source_path; }
    const std::wstring& get_target_path() const { return target_path; }

protected:
    void run() override;

private:
    // Closes the target: the writer's cache goes to the file. True when the
    // writer was good and the file holds every byte it took.
    bool close_writer();
    void carry_marks();
    void unlink();

    std::wstring source_path;
    std::wstring target_path;
    bool save_side_file;
    std::unique_ptr<audio::PlayChain> source;
    std::unique_ptr<audio::EncoderMP3> encoder;
    // Deleted by the thread once the source has ended and by its owner
    // otherwise; the owner's is_good reads it under `writer_lock`.
    std::unique_ptr<audio::FileWriterMP3> writer;
    liba::CriticalSection writer_lock;
    std::atomic<bool> closed_ok{false};
    std::atomic<bool> ended{false};
    bool succeeded = false;
    bool marks_found = false;
    bool marks_ok = true;
    RangeMarks marks;
};
