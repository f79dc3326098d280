// Document::set_speed: the speeds kept and what the stages get, with the pitch
// following, held (normal and half speed only) and held at any speed; and the
// stored speed taken up again by the next Document.
#include "app/document.h"

#include "liba/text.h"
#include "os/path.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>

TEST(DocumentSpeed, KeepsTheSpeedTableAndHandsItToTheStages)
{
    os::init_path_macros();
    setenv("SDL_AUDIODRIVER", "disk", 1);
    test::PrivateHome home;
    test::TempDir dir;
    setenv("SDL_DISKAUDIOFILE", (dir / "out.raw").c_str(), 1);
    const std::wstring settings = liba::from_utf8((dir / "settings.xml").string());
    struct Case {
        double speed;
        bool lock, any;
        double stored, step;
        int factor;
        double stretch;
    };
    const Case cases[] = {
        {1.5, false, false, 1.5, 1.5, 1, 1.0},   {0.5, false, false, 0.5, 0.5, 1, 1.0},
        {0.76, true, false, 1.0, 1.0, 1, 1.0},   {2.0, true, false, 1.0, 1.0, 1, 1.0},
        {0.74, true, false, 0.5, 1.0, 2, 1.0},   {0.75, true, false, 0.75, 1.0, 1, 1.0},
        {1.5, true, true, 1.5, 1.0, 1, 1.5},     {0.6, true, true, 0.6, 1.0, 1, 0.6},
        {1.25, false, true, 1.25, 1.25, 1, 1.0}, {0.5, true, false, 0.5, 1.0, 2, 1.0},
    };
    {
        Document d(settings);
        for (const Case& c : cases) {
            Settings s = d.settings();
            s.stretch_any_speed = c.any;
            d.apply_settings(s);
            d.set_speed(c.speed, c.lock);
            EXPECT_EQ(d.speed(), c.stored) << c.speed << " " << c.lock << " " << c.any;
            EXPECT_EQ(d.pitch_lock(), c.lock);
            EXPECT_EQ(d.play_path().fast_play().get_step(), c.step) << c.speed;
            EXPECT_EQ(d.play_path().stretch_filter().get_factor(), c.factor) << c.speed;
            EXPECT_NEAR(d.play_path().stretch_filter().get_stretch(), c.stretch, 1e-4) << c.speed;
        }
    }
    // The last case is kept: half speed with the pitch held.
    Document again(settings);
    EXPECT_EQ(again.speed(), 0.5);
    EXPECT_TRUE(again.pitch_lock());
    EXPECT_EQ(again.play_path().stretch_filter().get_factor(), 2);
    EXPECT_EQ(again.play_path().fast_play().get_step(), 1.0);
}
