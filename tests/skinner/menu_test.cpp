// The menu bar's entries as the Default skin places them on the main form.

#include "skinner/control_menu_main.h"
#include "skinner/form_impl.h"
#include "skinner/menu_drop_down.h"
#include "skinner/form_render.h"
#include "skinner/menu_main_items.h"
#include "skinner/menu_manager.h"
#include "skinner/properties.h"

#include "form_test_support.h"
#include "tests/support/test_support.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace {

struct MenuListener : skinner::Listener {
    int on_collect_menu(skinner::MenuEntries* menu) override
    {
        if (menu->menu != L"File")
            return 0;
        skinner::MenuRecord play;
        play.id = L"Play";
        play.text = L"&Play";
        play.separator = true;
        skinner::MenuRecord about;
        about.id = L"About";
        about.text = L"A&bout";
        about.enabled = false;
        skinner::MenuRecord exit;
        exit.id = L"Exit";
        exit.text = L"Exit";
        menu->items = {play, about, exit};
        return 1;
    }
    int on_command(const std::wstring& name) override
    {
        commands.push_back(name);
        return 1;
    }
    std::vector<std::wstring> commands;
};

} // namespace

TEST(MenuMain, SkinEntriesListInOrderWhileVisible)
{
    skinner::Properties skin(test::wide(test::program_dir() / "skins" / "Default" / "Default.skin"), {240, 320});
    ASSERT_TRUE(skin.load_language(test::wide(test::program_dir() / "English.lng")));
    MenuListener listener;
    skinner::ClassFactoryForm form(skin, L"Main", nullptr, &listener);
    skinner::ControlMenuMain* menu = form.main_menu();
    ASSERT_NE(menu, nullptr);
    int changes = 0;
    menu->set_change_handler([&] { ++changes; });

    auto names = [&] {
        std::vector<std::wstring> out;
        for (skinner::MenuItem* item : menu->items())
            out.push_back(item->name() + (item->is_submenu() ? L">" : L""));
        return out;
    };
    ASSERT_EQ(names(), (std::vector<std::wstring>{L"File>", L"Mode"}));

    skinner::MenuRecord file = menu->items()[0]->describe();
    EXPECT_EQ(file.text, L"Menu");
    EXPECT_FALSE(file.icon.natural_size().x == 0);
    ASSERT_EQ(file.sub_items.size(), 3u);
    EXPECT_EQ(file.sub_items[0].text, L"Play") << "no mnemonic marks";
    EXPECT_TRUE(file.sub_items[0].separator);
    EXPECT_EQ(file.sub_items[1].text, L"About");
    EXPECT_FALSE(file.sub_items[1].enabled);

    // The entry's command goes up to the form's listener.
    skinner::MenuRecord mode = menu->items()[1]->describe();
    EXPECT_EQ(mode.text, L"Mode");
    mode.receiver->on_command(mode.id);
    EXPECT_EQ(listener.commands, std::vector<std::wstring>{L"Mode"});

    // Disabling tells the bar; hiding takes the entry off and showing puts it
    // back in its place.
    auto* mode_control = dynamic_cast<skinner::MenuMainButton*>(menu->items()[1]);
    ASSERT_NE(mode_control, nullptr);
    mode_control->set_enabled(false);
    EXPECT_FALSE(menu->items()[1]->describe().enabled);
    auto* file_control = dynamic_cast<skinner::MenuMainSubMenu*>(menu->items()[0]);
    file_control->set_visible(false);
    EXPECT_EQ(names(), std::vector<std::wstring>{L"Mode"});
    file_control->set_visible(true);
    EXPECT_EQ(names(), (std::vector<std::wstring>{L"File>", L"Mode"}));
    EXPECT_EQ(changes, 3);
}

namespace {

// The darkest ink of a band of rows of a form's back buffer: 0 black, 765 white.
int darkest_in(skinner::Form& form, int top, int height)
{
    SDL_Surface* s = form.impl().back_buffer();
    int darkest = 765;
    for (int y = top; y < top + height && y < s->h; ++y)
        for (int x = 0; x < s->w; ++x) {
            Uint32 p = static_cast<Uint32*>(s->pixels)[y * s->pitch / 4 + x];
            darkest = std::min(darkest, int((p >> 16) & 255) + int((p >> 8) & 255) + int(p & 255));
        }
    return darkest;
}

// The Default skin's main form, shown in English on a screen of its own.
struct MainOnScreen {
    form_test::TestScreen screen{1, (test::program_dir() / "skins" / "Default" / "Default.skin").string()};
    MenuListener listener;
    skinner::ClassFactoryForm form{english(screen.properties()), L"Main", nullptr, &listener};

    static skinner::Properties& english(skinner::Properties& p)
    {
        EXPECT_TRUE(p.load_language(test::wide(test::program_dir() / "English.lng")));
        return p;
    }
    MainOnScreen()
    {
        form.show(true);
        form.set_active(true);
    }
};

} // namespace

TEST(MenuMain, SubMenuDropsDownAndSendsOnlyEnabledEntries)
{
    MainOnScreen main;
    auto& [screen, listener, form] = main;
    skinner::MenuRecord file = form.main_menu()->items()[0]->describe();

    skinner::MenuDropDown drop(&form, screen.properties(), file, {10, 320});
    screen.settle();
    int h = drop.row_height();
    ASSERT_EQ(drop.size().y, 3 * h);
    EXPECT_EQ(drop.screen_position().y + drop.size().y, 320) << "opens upward from the bar";
    EXPECT_LT(darkest_in(drop, 0, h), 0x30 * 3 + 0x60) << "an enabled entry is in dark ink";
    EXPECT_GT(darkest_in(drop, h, h), 0xa0 * 3) << "a disabled entry is grey";

    // A disabled entry sends nothing and leaves the drop-down open.
    auto row_center = [&](int row) { return form_test::TestScreen::on_screen(drop, {drop.size().x / 2, row * h + h / 2}); };
    screen.press_at(row_center(1));
    screen.release();
    EXPECT_TRUE(listener.commands.empty());
    EXPECT_TRUE(drop.is_visible());
    // An enabled one closes it, then its command reaches the form's listener.
    screen.press_at(row_center(0));
    screen.release();
    EXPECT_EQ(listener.commands, std::vector<std::wstring>{L"Play"});
    EXPECT_FALSE(drop.is_visible());
}

TEST(MenuMain, BarBelowTheScreenOpensByTapAndF10)
{
    MainOnScreen main;
    auto& [screen, listener, form] = main;
    skinner::MenuManagerImpl bar(screen.screen(), screen.properties(), form);
    screen.settle();
    int w = 0, h = 0;
    SDL_GetWindowSize(screen.screen().window(), &w, &h);
    EXPECT_EQ(h, 320 + 26) << "the window is the screen and the bar below it";
    EXPECT_EQ(screen.screen().size(), (skinner::Point{240, 320})) << "forms keep the screen";
    SDL_Surface* window = SDL_GetWindowSurface(screen.screen().window());
    ASSERT_EQ(window->h, 320 + 26);
    EXPECT_GT(static_cast<Uint32*>(window->pixels)[(320 + 2) * window->pitch / 4 + 1] & 0xFFFFFFu, 0xC0C0C0u)
        << "the bar's light background fills the strip";
    ASSERT_EQ(bar.entries().size(), 2u);
    auto entry_center = [&](int i) {
        const auto& e = bar.entries()[size_t(i)];
        return skinner::Point{e.x + e.width / 2, 320 + 13};
    };

    // A tap on the sub-menu's entry drops it down; its entry sends its command.
    screen.press_at(entry_center(0));
    screen.release();
    ASSERT_NE(bar.drop_down(), nullptr);
    ASSERT_TRUE(bar.drop_down()->is_visible());
    int row = bar.drop_down()->row_height();
    screen.press_at(form_test::TestScreen::on_screen(*bar.drop_down(), {10, row / 2}));
    screen.release();
    EXPECT_EQ(listener.commands, std::vector<std::wstring>{L"Play"});
    EXPECT_FALSE(bar.drop_down()->is_visible());

    // F10 drops the first sub-menu down; a tap on the bar closes it again.
    screen.key(SDLK_F10);
    ASSERT_TRUE(bar.drop_down() && bar.drop_down()->is_visible());
    screen.press_at(entry_center(1));
    EXPECT_FALSE(bar.drop_down()->is_visible());
    screen.release();
    EXPECT_EQ(listener.commands, (std::vector<std::wstring>{L"Play", L"Mode"})) << "a command entry sends at once";

    // A disabled command entry sends nothing.
    dynamic_cast<skinner::Control*>(form.main_menu()->items()[1])->set_enabled(false);
    screen.press_at(entry_center(1));
    screen.release();
    EXPECT_EQ(listener.commands.size(), 2u);
}

TEST(MenuMain, DropDownGoesByKeysOverTheEnabledEntries)
{
    MainOnScreen main;
    auto& [screen, listener, form] = main;
    skinner::MenuManagerImpl bar(screen.screen(), screen.properties(), form);
    auto open_drop = [&] { return bar.drop_down() && bar.drop_down()->is_visible() ? bar.drop_down() : nullptr; };

    // F10 lights the first entry; Down and Up step over the disabled one
    // and go round the ends. The lit row keeps the frame's top border, and
    // the drop-down, having no title, leaves the form's up.
    form.set_title(L"Main title");
    screen.key(SDLK_F10);
    ASSERT_NE(open_drop(), nullptr);
    EXPECT_STREQ(SDL_GetWindowTitle(screen.screen().window()), "Main title");
    SDL_Surface* drawn = open_drop()->impl().back_buffer();
    EXPECT_EQ(static_cast<Uint32*>(drawn->pixels)[drawn->w / 2] & 0xFFFFFFu, 0xB9C2CDu) << "the frame's top border";
    const std::pair<SDL_Keycode, int> steps[] = {{SDLK_DOWN, 2}, {SDLK_DOWN, 0}, {SDLK_UP, 2}, {SDLK_UP, 0}};
    EXPECT_EQ(open_drop()->highlighted(), 0);
    for (const auto& [key, lit] : steps) {
        screen.key(key);
        EXPECT_EQ(open_drop()->highlighted(), lit) << "after key " << key;
    }
    // Left and Right find no other sub-menu on this bar: the same one stays.
    skinner::MenuDropDown* file = open_drop();
    screen.key(SDLK_RIGHT);
    screen.key(SDLK_LEFT);
    EXPECT_EQ(open_drop(), file);
    // Enter and Space run the lit entry and close the drop-down.
    screen.key(SDLK_UP);
    screen.key(SDLK_RETURN);
    EXPECT_EQ(open_drop(), nullptr);
    screen.key(SDLK_F10);
    screen.key(SDLK_SPACE);
    EXPECT_EQ(listener.commands, (std::vector<std::wstring>{L"Exit", L"Play"}));
    // Escape and F10 close it without a command.
    for (SDL_Keycode closer : {SDLK_ESCAPE, SDLK_F10}) {
        screen.key(SDLK_F10);
        ASSERT_NE(open_drop(), nullptr);
        screen.key(closer);
        EXPECT_EQ(open_drop(), nullptr) << "closed by " << closer;
    }
    EXPECT_EQ(listener.commands.size(), 2u);

    // Left and Right ask the bar for the neighbouring sub-menu.
    std::vector<int> asked;
    skinner::MenuDropDown drop(&form, screen.properties(), form.main_menu()->items()[0]->describe(), {0, 320});
    drop.set_neighbour_handler([&](int step) { asked.push_back(step); });
    drop.show(true);
    screen.key(SDLK_LEFT);
    screen.key(SDLK_RIGHT);
    EXPECT_EQ(asked, (std::vector<int>{-1, 1}));
}
