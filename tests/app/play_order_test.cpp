// The playing order of the five playback modes.
#include "app/play_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

TEST(PlayOrder, OnceAndRepeatModesStepAndStopAtTheirEnds)
{
    PlayOrder o;
    o.build(3, 1, PlayOrder::kModePlaylistOnce);
    EXPECT_EQ(o.current(), 1);
    EXPECT_TRUE(o.has_next());
    EXPECT_EQ(o.step(1), 2);
    EXPECT_FALSE(o.has_next()) << "the last item of a list played once";
    EXPECT_EQ(o.step(1), 2) << "clamped at the end";
    EXPECT_EQ(o.step(-5), 0) << "clamped at the front";

    o.build(3, 2, PlayOrder::kModePlaylistRepeat);
    EXPECT_TRUE(o.has_next());
    EXPECT_EQ(o.step(1), 0) << "a repeating list goes on with the first";
    EXPECT_EQ(o.step(4), 1);
    o.build(3, 0, PlayOrder::kModePlaylistRepeat);
    EXPECT_EQ(o.step(-1), 0);
    EXPECT_EQ(o.position, 0) << "no wrap at the front";

    o.build(0, -1, PlayOrder::kModeShuffle);
    EXPECT_EQ(o.length, 0);
    EXPECT_EQ(o.step(1), 0);
    EXPECT_FALSE(o.has_next());
    EXPECT_EQ(o.current(), -1);
}

TEST(PlayOrder, ShufflePlaysEveryItemOncePerPassWithTheCurrentFirstThenRepeats)
{
    for (int count : {1, 2, 7, 40}) {
        for (unsigned seed : {1u, 77u, 12345u}) {
            PlayOrder o;
            const int current = count / 2;
            o.build_seeded(count, current, PlayOrder::kModeShuffle, seed);
            ASSERT_EQ(o.length, 5 * count);
            EXPECT_EQ(o.order[0], current);
            for (int pass = 0; pass < 5; ++pass) {
                std::set<int> seen(o.order.begin() + pass * count, o.order.begin() + (pass + 1) * count);
                EXPECT_EQ(static_cast<int>(seen.size()), count) << count << " pass " << pass;
                EXPECT_EQ(*seen.begin(), 0);
                EXPECT_EQ(*seen.rbegin(), count - 1);
            }
            // Stepping on past the five passes repeats the order exactly.
            std::vector<int> played{o.current()};
            for (int i = 1; i < 10 * count; ++i)
                played.push_back(o.step(1));
            for (int i = 0; i < 5 * count; ++i)
                EXPECT_EQ(played[static_cast<size_t>(i)], played[static_cast<size_t>(i + 5 * count)]);
            EXPECT_TRUE(o.has_next());
        }
    }
    // Different seeds give different orders of a long list.
    PlayOrder a, b;
    a.build_seeded(40, -1, PlayOrder::kModeShuffle, 1);
    b.build_seeded(40, -1, PlayOrder::kModeShuffle, 2);
    EXPECT_NE(a.order, b.order);
}

TEST(PlayOrder, ChangingTheModeKeepsTheCurrentItem)
{
    PlayOrder o;
    o.build(6, 0, PlayOrder::kModePlaylistOnce);
    o.step(3);
    o.change_mode(PlayOrder::kModeShuffle);
    EXPECT_TRUE(o.shuffle && o.repeat);
    EXPECT_EQ(o.current(), 3);
    o.step(2);
    int item = o.current();
    o.change_mode(PlayOrder::kModePlaylistRepeat);
    EXPECT_EQ(o.current(), item);
    EXPECT_EQ(o.length, 6);
}
