// Times the skin engine headless on the offscreen driver, on the engine's
// test skin and on the program's Default skin: loading and first painting
// "Main" at scales 1 and 4, a full repaint at scale 4 against one
// SDL_BlitSurface of the whole screen, and the repaint of one button's
// press. Prints each figure with its goal.

#include "liba/active.h"
#include "os/event_loop.h"
#include "skinner/control_button.h"
#include "skinner/form_render.h"
#include "skinner/properties.h"
#include "skinner/screen.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median_ms(int runs, const std::function<void()>& body)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        auto start = Clock::now();
        body();
        times.push_back(ms_since(start));
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void report(const char* what, double ms, double goal_ms)
{
    std::printf("%-34s %9.3f ms  goal %6.1f ms  ratio to goal %.2f\n", what, ms, goal_ms, ms / goal_ms);
}

// Times one skin; false when its Main lacks the button pressed.
bool time_skin(os::EventLoop& loop, const char* name, const std::wstring& skin)
{
    std::printf("%s\n", name);
    for (int scale : {1, 4}) {
        skinner::Point size{240 * scale, 320 * scale};
        skinner::Screen screen(loop, size);
        // Cold: the first load reads and decodes every picture.
        auto start = Clock::now();
        {
            skinner::Properties properties(skin, size);
            skinner::ClassFactoryForm form(properties, L"Main");
            form.show(true);
            form.paint_dirty();
        }
        double cold = ms_since(start);
        double warm = median_ms(10, [&] {
            skinner::Properties properties(skin, size);
            skinner::ClassFactoryForm form(properties, L"Main");
            form.show(true);
            form.paint_dirty();
        });
        char what[64];
        std::snprintf(what, sizeof what, "load+first paint x%d (cold)", scale);
        report(what, cold, scale == 1 ? 50 : 100);
        std::snprintf(what, sizeof what, "load+first paint x%d (median)", scale);
        report(what, warm, scale == 1 ? 50 : 100);
    }

    skinner::Point size{960, 1280};
    skinner::Screen screen(loop, size);
    skinner::Properties properties(skin, size);
    skinner::ClassFactoryForm form(properties, L"Main");
    form.show(true);
    form.paint_dirty();
    double full = median_ms(30, [&] {
        form.invalidate_all();
        form.paint_dirty();
    });
    report("full repaint x4 (median)", full, 8);

    SDL_Surface* from = SDL_CreateRGBSurfaceWithFormat(0, size.x, size.y, 32, SDL_PIXELFORMAT_ARGB8888);
    SDL_Surface* to = SDL_CreateRGBSurfaceWithFormat(0, size.x, size.y, 32, SDL_PIXELFORMAT_ARGB8888);
    SDL_SetSurfaceBlendMode(from, SDL_BLENDMODE_NONE);
    double blit = median_ms(30, [&] { SDL_BlitSurface(from, nullptr, to, nullptr); });
    SDL_FreeSurface(from);
    SDL_FreeSurface(to);
    std::printf("%-34s %9.3f ms  full repaint / blit %.1f\n", "one SDL_BlitSurface of the screen", blit, full / blit);

    auto* button = dynamic_cast<skinner::ControlButtonBase*>(form.find_control(L"btnRecord"));
    if (!button) {
        std::fprintf(stderr, "bench_skin: the Main of %s has no btnRecord\n", name);
        return false;
    }
    bool down = false;
    double press = median_ms(60, [&] {
        down = !down;
        button->press_by_form(down);
        form.paint_dirty();
    });
    report("button press repaint x4 (median)", press, 1);
    return true;
}

} // namespace

int main()
{
    setenv("SDL_VIDEODRIVER", "offscreen", 1);
    CActiveScheduler scheduler;
    os::EventLoop loop(scheduler);
    bool ok = time_skin(loop, "the engine's test skin", L"" QUILL_BENCH_TEST_SKIN);
    std::printf("\n");
    ok = time_skin(loop, "the program's Default skin", L"" QUILL_BENCH_DEFAULT_SKIN) && ok;
    return ok ? 0 : 1;
}
