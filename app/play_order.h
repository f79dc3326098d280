#pragma once

#include <cstdint>
#include <vector>

// The order in which the items of the current list play, for one of the five
// playback modes (0 single once, 1 single repeat, 2 list once, 3 list repeat,
// 4 shuffle). Shuffle plays five passes, each a permutation of the list by
// itself, and then the whole order repeats. Item numbers are indices into the
// list. Threads: main thread, owned by Document.
class PlayOrder {
public:
    static constexpr int kModeSingleOnce = 0;
    static constexpr int kModeSingleRepeat = 1;
    static constexpr int kModePlaylistOnce = 2;
    static constexpr int kModePlaylistRepeat = 3;
    static constexpr int kModeShuffle = 4;
    static constexpr int kShufflePasses = 5;

    // `current` (or -1) comes first in a shuffled order; in the other modes
    // it is where the order stands.
    void build(int32_t count, int32_t current, int mode);
    // As build, with `seed` instead of the tick count: for tests.
    void build_seeded(int32_t count, int32_t current, int mode, unsigned seed);
    // Moves by `delta` and returns the item there (0 for an empty order). A
    // repeating order never wraps at the front; the others stop at both ends.
    int32_t step(int32_t delta);
    bool has_next() const;
    // Rebuilds for `mode`, keeping the item that stands at `position` first.
    void change_mode(int mode);
    // The item at `position`, or -1 when there is none.
    int32_t current() const;

    std::vector<int32_t> order;
    int32_t position = 0;
    int32_t item_count = 0;
    int32_t length = 0;
    bool shuffle = false;
    bool repeat = false;
};
