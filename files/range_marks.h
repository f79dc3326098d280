#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// Named marks on a sound file and the route through their ranges. The marks
// cut the audio into ranges: a mark's range runs from its position to the
// next mark's, the last one's to the end of the audio. The route is an
// ordered choice of ranges played instead of the whole file.
// Positions are in the position unit of the file's reader (bytes of the data
// for PCM WAV, blocks for ADPCM and GSM, bytes of the file for MP3), never
// seconds. Threads: a list belongs to one thread at a time (the main thread's
// Document, or a copy handed to a router); it is a plain value, and the marks
// it hands out by reference stay valid until the list next changes.

struct RangeMark {
    std::wstring name;
    int32_t position = 0;
    // Place in the route, from 0; -1 when the mark is not in it.
    int32_t kind = -1;

    bool operator==(const RangeMark&) const = default;
};

// The side file of a sound file: its whole path with ".bm" appended,
// extension included ("rec.wav" -> "rec.wav.bm").
std::wstring side_file_of(const std::wstring& path);

class RangeMarks {
public:
    // Reads a side file. A missing file is an empty list and true. A file
    // that can't be read or does not parse as a whole leaves the list empty,
    // logs the file and where it gave up, and returns false.
    bool load(const std::wstring& side_path, std::wstring* why = nullptr);
    // The same on bytes in memory; `origin` names them in the log line.
    bool load_bytes(std::string_view bytes, const std::wstring& origin, std::wstring* why = nullptr);
    // Writes the side file whole, replacing it atomically; false when it
    // can't be written. Route marks come first, in route order, then the
    // others by position.
    bool save(const std::wstring& side_path) const;
    std::string save_bytes() const;

    // Adds a mark outside the route and returns its index. When `position`
    // lies inside a routed range, the new mark joins the route right behind
    // that range, so both halves stay in the route. A mark already at
    // `position` is kept with its old name and is the result.
    int add_mark(int32_t position, const std::wstring& name);
    // Adds a mark, appending it to the route when `in_route`. A mark already
    // at `position` keeps its name and is the result (with `in_route` it
    // joins the route if it was not in it).
    int add_mark_raw(int32_t position, const std::wstring& name, bool in_route);
    void remove(int index);
    void clear();

    int count() const { return static_cast<int>(marks_.size()); }
    // Marks by index, in ascending position.
    const RangeMark& mark(int index) const;
    int route_count() const { return static_cast<int>(route_.size()); }
    // The mark at place `i` of the route.
    const RangeMark& route_mark(int i) const;
    // Index into the marks of route place `i`.
    int route_index(int i) const;

    // Length of a mark's range: to the next mark, or for the last mark to
    // `total_length` (the reader's get_length()); never below 0.
    int32_t range_length(int index, int32_t total_length) const;

    // Merges the marks of a recording inserted at `at`: the marks of `other`
    // enter at their own position + `at`, and the marks of this list behind
    // `at` move by `shift`, the length of the inserted audio. Route places
    // are kept, this list's route first. Where two marks meet at one
    // position, this list's mark stays.
    void splice(int32_t at, int32_t shift, const RangeMarks& other);

    bool operator==(const RangeMarks&) const = default;

private:
    // One mark to be placed; `order` is its route key (-1: not routed).
    struct Entry {
        std::wstring name;
        int64_t position;
        int64_t order;
    };
    // Replaces the list by `entries`: sorted by position, the first entry at
    // each position kept, taking the smallest route key of those it absorbs;
    // the route follows the keys in ascending order.
    void assign(std::vector<Entry> entries);
    void renumber_route();
    void check_index(int index, int size, const char* what) const;

    std::vector<RangeMark> marks_; // ascending position, no two at one position
    std::vector<int32_t> route_;   // indices into marks_, in playing order
};

// The marks as a label track that audio editors import: one line per mark in
// position order, "start<TAB>end<TAB>name" in seconds with six decimals; a
// mark's range ends at the next mark or at `duration_seconds`. Tabs and line
// breaks in names become blanks. UTF-8.
std::string label_track(const RangeMarks& marks, const std::function<double(int32_t)>& seconds_of,
                        double duration_seconds);
