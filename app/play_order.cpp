#include "app/play_order.h"

#include "os/date_time.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

// The C library's rand gives 15 bits a call on the handheld; a block longer
// than that takes more calls, so every entry can reach every place.
uint32_t random_below_or_wide(uint32_t bound)
{
    uint32_t r = static_cast<uint32_t>(std::rand()) & 0x7fff;
    for (uint32_t reach = 0x8000; reach < bound; reach <<= 15)
        r = (r << 15) | (static_cast<uint32_t>(std::rand()) & 0x7fff);
    return r;
}

} // namespace

void PlayOrder::build(int32_t count, int32_t current_item, int mode)
{
    build_seeded(count, current_item, mode, static_cast<unsigned>(os::tick_count()));
}

void PlayOrder::build_seeded(int32_t count, int32_t current_item, int mode, unsigned seed)
{
    item_count = count;
    shuffle = mode == kModeShuffle;
    repeat = mode >= kModePlaylistRepeat;
    length = shuffle ? kShufflePasses * count : count;
    if (length <= 0) {
        order.clear();
        length = 0;
        position = 0;
        return;
    }
    order.resize(static_cast<size_t>(length));
    for (int32_t i = 0; i < length; ++i)
        order[static_cast<size_t>(i)] = i % count;
    if (!shuffle) {
        position = std::max(current_item, 0);
        return;
    }
    std::srand(seed);
    for (int32_t block = 0; block < kShufflePasses; ++block) {
        int32_t* b = order.data() + static_cast<size_t>(block) * static_cast<size_t>(count);
        for (int32_t k = 1; k < count; ++k) {
            uint32_t r = random_below_or_wide(static_cast<uint32_t>(k) + 1);
            std::swap(b[k], b[r % static_cast<uint32_t>(k + 1)]);
        }
    }
    if (current_item >= 0) {
        int32_t d = current_item - order[0];
        if (d < 0)
            d = count - ((-d) % count);
        for (int32_t& v : order)
            v = (v + d) % count;
    }
    position = 0;
}

int32_t PlayOrder::step(int32_t delta)
{
    if (length < 1)
        return 0;
    position += delta;
    if (repeat) {
        if (position < 0)
            position = 0;
    } else {
        position = std::clamp(position, 0, length - 1);
    }
    return order[static_cast<size_t>(position % length)];
}

bool PlayOrder::has_next() const
{
    return length >= 1 && (repeat || position < length - 1);
}

int32_t PlayOrder::current() const
{
    if (length <= 0 || position < 0)
        return -1;
    return order[static_cast<size_t>(position % length)];
}

void PlayOrder::change_mode(int mode)
{
    int32_t item = length > 0 ? current() : -1;
    build(item_count, item, mode);
}
