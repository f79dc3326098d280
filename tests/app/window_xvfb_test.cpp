// The program in a real X window, on a private Xvfb server: the window is
// the skin's screen times the largest zoom that fits the desktop plus the
// menu strip, what it shows after start is quillctl's own render of "Main",
// and Ctrl+Minus and Ctrl+Plus pressed through xdotool resize it by one zoom
// step within the desktop, a step the next start keeps.
#include "tests/app/program_runner.h"
#include "tests/skinner/drawing_test_support.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <sstream>

namespace fs = std::filesystem;

namespace {

constexpr int kDesktopWidth = 1280;
constexpr int kDesktopHeight = 1024;

struct Geometry {
    int x = 0, y = 0, width = 0, height = 0;
};

class WindowXvfb : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(server.display().empty()) << "Xvfb did not start";
        ::setenv("DISPLAY", server.display().c_str(), 1);
        ::setenv("SDL_VIDEODRIVER", "x11", 1);
    }
    void TearDown() override { test::kill_started(); }

    // Starts the program and waits for its window to be mapped.
    void start()
    {
        program = test::start_program("quillaphonics", {});
        ASSERT_TRUE(test::wait_for([&] {
            test::run("xdotool search --onlyvisible --pid " + std::to_string(program.pid) + " 2>/dev/null", &window);
            window = window.substr(0, window.find('\n'));
            return !window.empty();
        }, 20000)) << "no window";
    }
    // Ends the program as a desktop would, so it keeps its settings.
    void stop()
    {
        program.signal(SIGTERM);
        program.wait(20000);
        ASSERT_FALSE(program.running());
    }
    Geometry geometry()
    {
        std::string out;
        test::run("xdotool getwindowgeometry --shell " + window, &out);
        Geometry g;
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);) {
            const auto eq = line.find('=');
            const std::string key = line.substr(0, eq);
            const int value = eq == std::string::npos ? 0 : std::atoi(line.c_str() + eq + 1);
            if (key == "X")
                g.x = value;
            else if (key == "Y")
                g.y = value;
            else if (key == "WIDTH")
                g.width = value;
            else if (key == "HEIGHT")
                g.height = value;
        }
        return g;
    }
    // Presses `keys` in the window and waits for it to be `width` wide.
    bool press_until_width(const std::string& keys, int width)
    {
        test::run("xdotool windowfocus --sync " + window + " key " + keys);
        return test::wait_for([&] { return geometry().width == width; }, 5000);
    }
    // The skin's "Main" as quillctl renders it at `zoom`.
    drawing_test::Surface render(int zoom)
    {
        const fs::path png = scratch / ("main_x" + std::to_string(zoom) + ".png");
        auto r = test::run_quillctl({"skin", "render", (test::program_dir() / "skins/Default/Default.skin").string(),
                                     "Main", png.string(), "--scale", std::to_string(zoom)},
                                    scratch.path());
        EXPECT_EQ(r.status, 0) << r.err;
        return drawing_test::ffmpeg_decode(png);
    }
    // What the X server shows of the window (a window taller than the
    // desktop is cut), kept in the test output folder.
    drawing_test::Surface screenshot(const Geometry& g)
    {
        const fs::path png = fs::path(QUILL_TEST_OUTPUT_DIR) / "window_xvfb.png";
        fs::create_directories(png.parent_path());
        const int x = std::max(g.x, 0), y = std::max(g.y, 0);
        const int width = std::min(g.x + g.width, kDesktopWidth) - x;
        const int height = std::min(g.y + g.height, kDesktopHeight) - y;
        test::run("import -window root -crop " + std::to_string(width) + "x" + std::to_string(height) + "+" +
                  std::to_string(x) + "+" + std::to_string(y) + " +repage '" + png.string() + "'");
        return drawing_test::ffmpeg_decode(png);
    }

    test::XServer server{std::to_string(kDesktopWidth) + "x" + std::to_string(kDesktopHeight) + "x24"};
    test::PrivateHome home;
    test::TempDir scratch;
    test::Process program;
    std::string window;
};

// The share of the pixels of `expected` that differ by more than a rounding
// in some channel from those of `shot` moved by (dx, dy), over their overlap.
double differing_share(const SDL_Surface* shot, const SDL_Surface* expected, int dx = 0, int dy = 0)
{
    long differing = 0, compared = 0;
    for (int y = std::max(0, -dy); y < std::min(expected->h, shot->h - dy); ++y) {
        for (int x = std::max(0, -dx); x < std::min(expected->w, shot->w - dx); ++x) {
            const uint32_t a = drawing_test::pixel_at(shot, x + dx, y + dy);
            const uint32_t b = drawing_test::pixel_at(expected, x, y);
            ++compared;
            for (int shift : {0, 8, 16}) {
                if (std::abs(int((a >> shift) & 0xFF) - int((b >> shift) & 0xFF)) > 24) {
                    ++differing;
                    break;
                }
            }
        }
    }
    return compared ? double(differing) / double(compared) : 1.0;
}

TEST_F(WindowXvfb, WindowShowsMainAtItsZoomAndZoomKeysResizeItForThisAndTheNextStart)
{
    start();
    Geometry g = geometry();
    // With no zoom saved the program takes the largest that fits the desktop.
    drawing_test::Surface native = render(1);
    ASSERT_TRUE(native);
    const int zoom = g.width / native->w;
    ASSERT_GE(zoom, 2) << g.width << "x" << g.height;
    drawing_test::Surface main = render(zoom);
    ASSERT_TRUE(main);
    ASSERT_EQ(g.width, main->w);
    ASSERT_GE(g.height, main->h);
    // Below the screen, the menu strip: a whole number of skin pixels high.
    ASSERT_EQ((g.height - main->h) % zoom, 0) << g.height;
    const int bar = (g.height - main->h) / zoom;

    // The window fits the desktop, the strip included.
    EXPECT_GE(g.y, 0);
    EXPECT_LE(g.y + g.height, kDesktopHeight);
    EXPECT_GT((zoom + 1) * (main->h / zoom + bar), kDesktopHeight) << "a larger zoom fits";

    // The live window shows its state where the bare render cannot (the
    // translated labels, the folder panel, the volume, disabled buttons):
    // all else is the render, in place. A window still black, misplaced or
    // at another scale differs far more, and so does one moved by a pixel
    // of the skin.
    const int cut = std::min(g.y, 0);
    drawing_test::Surface shot;
    double share = 1.0;
    test::wait_for([&] {
        shot = screenshot(g);
        share = shot ? differing_share(shot.get(), main.get(), 0, cut) : 1.0;
        return share < 0.1;
    }, 10000);
    ASSERT_LT(share, 0.1) << "the window's screen is not the render of Main";
    for (auto [dx, dy] : {std::pair{zoom, 0}, {-zoom, 0}, {0, zoom}, {0, -zoom}})
        EXPECT_GT(differing_share(shot.get(), main.get(), dx, cut + dy), 1.2 * share) << dx << "," << dy;

    const struct {
        const char* keys;
        int zoom;
        const char* what;
    } steps[] = {{"ctrl+minus", zoom - 1, "Ctrl+Minus steps down"},
                 {"ctrl+plus", zoom, "Ctrl+Plus steps up"},
                 {"ctrl+plus ctrl+minus", zoom - 1, "Ctrl+Plus past the desktop changes nothing"}};
    for (const auto& step : steps) {
        ASSERT_TRUE(press_until_width(step.keys, step.zoom * main->w / zoom)) << step.what;
        EXPECT_GE(geometry().height, step.zoom * main->h / zoom) << step.what;
    }
    stop();
    start();
    EXPECT_TRUE(test::wait_for([&] { return geometry().width == (zoom - 1) * main->w / zoom; }, 5000))
        << "the next start forgot the zoom: " << geometry().width;
    stop();
}

} // namespace
