// The settings skin as the build made it: it holds everything the settings
// dialog and the stock dialogs create by name, its forms paint at every
// scale in both orientations with their texts fitting, and no skin list
// offers it as an application skin.

#include "liba/text.h"
#include "os/path.h"
#include "skinner/control_panel.h"
#include "skinner/form_impl.h"
#include "skinner/form_render.h"
#include "skinner/properties.h"
#include "skinner/skin_choice.h"
#include "skinner/skin_description.h"
#include "skinner/skin_finder.h"

#include "tests/skinner/skin_test_support.h"
#include "tests/support/test_support.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace fs = std::filesystem;
using skin_test::wide;
using skinner::Point;

namespace {

fs::path settings_skin()
{
    return test::program_dir() / "skins" / "settings" / "settings.skin";
}

// Every form opened from the settings skin and the controls created in it
// by id. Grow this list as the settings pages land.
const std::map<std::wstring, std::vector<std::wstring>> kCreatedByName = {
    {L"Settings",
     {L"tabSettings", L"tabRecording", L"tabPlayback", L"tabButtons", L"tabSchedule", L"tabAssociate", L"tabLanguage",
      L"tabSkin", L"menuMain", L"btnOk"}},
    {L"PageRecording",
     {L"cbFormats", L"chkDefaultDir", L"cbDirectory", L"chkCreateDateFolder", L"editPrefix", L"chkIncludeDate",
      L"cbTurnOff"}},
    {L"PagePlayback", {L"cbMode", L"cbTurnOff"}},
    {L"PageButtons", {L"lstButtons", L"cbAssign", L"chkUnmap"}},
    {L"PageSchedule",
     {L"btnAdd", L"btnDelete", L"btnChange", L"btnDeleteAll", L"grdSchedule", L"calDateBegin", L"calTimeBegin",
      L"calDateEnd", L"calTimeEnd"}},
    {L"PageAssociate", {L"chkWAV", L"chkMP3", L"chkM3U", L"chkOGG", L"chkWMA"}},
    {L"PageLanguage", {L"cbLanguage"}},
    {L"PageSkin", {L"lstSkins", L"picPreview"}},
    {L"MessageOk", {L"frmCaption", L"frmMessage", L"btnOk"}},
    {L"Error", {L"frmCaption", L"frmMessage", L"btnOk"}},
    {L"ConfirmYesNo", {L"frmCaption", L"frmMessage", L"btnYes", L"btnNo"}},
    {L"Confirm5Way", {L"frmCaption", L"frmMessage", L"btnYes", L"btnNo", L"btnYesAll", L"btnNoAll", L"btnCancel"}},
    {L"DropdownForm", {}},
    {L"About", {L"frmCaption", L"frmTitle", L"btnOk"}},
};

// The kinds the tab strip, lists, combo boxes and scroll bars build by name.
const std::vector<std::wstring> kKinds = {
    L"Tab.Strip",  L"Tab.Left",     L"Tab.Right",    L"ScrollBar.Vertical", L"ScrollBar.Horizontal", L"Combo.Edit",
    L"Combo.List", L"Edit.InPlace", L"Tree.Folders", L"ScrollBar.Up",       L"ScrollBar.Handle"};
// Keys whose value names a kind.
const std::vector<std::wstring> kNamingKeys = {L"KindScroll", L"KindHScroll", L"EditKind", L"ListKind",  L"TreeKind",
                                               L"KindGrid",   L"KindMin",     L"KindMax",  L"KindSpace", L"KindTrack"};

const Point kScreens[] = {{240, 320}, {320, 240}};

std::vector<std::wstring> form_names(const skinner::SkinDescription& d)
{
    std::vector<std::wstring> out;
    for (uint32_t node : d.inorder(d.header().form_tree()))
        out.push_back(d.text_at(d.name(node)));
    return out;
}

} // namespace

TEST(SettingsSkin, HoldsEveryFormControlAndKindTheDialogsCreateByName)
{
    for (Point screen : kScreens) {
        skinner::Properties skin(wide(settings_skin()), screen);
        ASSERT_TRUE(skin.impl().is_valid()) << liba::to_utf8(skin.impl().load_error());
        const skinner::SkinDescription& d = skin.impl().description();
        EXPECT_EQ(d.header().version(), skinner::kSettingsVersionMark);
        EXPECT_TRUE(skin.check_version(skinner::kSettingsVersionMark, screen)) << screen.x;
        const std::vector<std::wstring> forms = form_names(d);
        std::set<std::wstring> named;
        for (const auto& [form, ids] : kCreatedByName) {
            ASSERT_TRUE(skin.impl().choose_form(form)) << liba::to_utf8(form) << " at " << screen.x;
            std::vector<std::wstring> have;
            for (int i = 0; i < skin.item_count(form); ++i)
                have.push_back(skin.item(form, i).first);
            for (const std::wstring& id : ids)
                EXPECT_NE(std::find(have.begin(), have.end(), id), have.end())
                    << liba::to_utf8(form) << " lacks " << liba::to_utf8(id);
            for (const std::wstring& id : have) {
                for (const std::wstring& key : kNamingKeys) {
                    std::wstring kind = skin.get_string(form, id, key, L"");
                    if (!kind.empty())
                        named.insert(kind);
                }
                std::wstring page = skin.get_string(form, id, L"FormTemplate", L"");
                if (!page.empty()) {
                    EXPECT_TRUE(kCreatedByName.count(page)) << liba::to_utf8(id) << " shows " << liba::to_utf8(page);
                }
            }
        }
        // Kinds name their own parts (a scroll bar its arrows and handle).
        for (uint32_t node : d.inorder(d.header().kind_tree())) {
            for (const std::wstring& key : kNamingKeys) {
                std::wstring kind = skin.get_string(L"", d.text_at(d.name(node)), key, L"");
                if (!kind.empty())
                    named.insert(kind);
            }
        }
        for (const std::wstring& kind : kKinds)
            EXPECT_TRUE(named.count(kind)) << "nothing names the kind " << liba::to_utf8(kind);
        for (const std::wstring& kind : named)
            EXPECT_NE(d.find_node(d.header().kind_tree(), kind), 0u) << "no kind " << liba::to_utf8(kind);
    }
}

TEST(SettingsSkin, EveryFormPaintsAtEveryScaleInBothOrientationsWithItsTextsInside)
{
    const std::wstring english = wide(test::program_dir() / "English.lng");
    for (Point native : kScreens) {
        std::map<std::wstring, Point> first_size;
        for (int scale = 1; scale <= 4; ++scale) {
            const Point screen{native.x * scale, native.y * scale};
            skinner::Properties skin(wide(settings_skin()), screen);
            ASSERT_EQ(skin.scale(), scale);
            ASSERT_TRUE(skin.load_language(english));
            for (const std::wstring& form : form_names(skin.impl().description())) {
                const std::string where =
                    liba::to_utf8(form) + " at " + std::to_string(screen.x) + "x" + std::to_string(screen.y);
                ASSERT_EQ(skinner::check_form(skin, form), L"") << where;
                skinner::ClassFactoryForm shown(skin, form);
                shown.paint_dirty();
                const SDL_Surface* painted = shown.impl().back_buffer();
                ASSERT_NE(painted, nullptr) << where;
                const Point size{painted->w, painted->h};
                if (scale == 1)
                    first_size[form] = size;
                EXPECT_EQ(size, (Point{first_size[form].x * scale, first_size[form].y * scale})) << where;
                EXPECT_LE(size.x, screen.x) << where;
                EXPECT_LE(size.y, screen.y) << where;

                // One line of text fits its control, less the margins.
                for (int i = 0; i < skin.item_count(form); ++i) {
                    const std::wstring id = skin.item(form, i).first;
                    const std::wstring text = skin.get_string(form, id, L"Text", L"");
                    if (text.empty() || skin.get_integer(form, id, L"Wrap", 0))
                        continue;
                    const Point border = skin.get_point(form, id, L"BorderMin", {});
                    const Point room = skin.get_point(form, id, L"Size", {}) - border -
                                       skin.get_point(form, id, L"BorderMax", border);
                    const Point need = skin.get_font(form, id, L"Normal", skinner::Font()).text_size(text);
                    EXPECT_LT(need.x, room.x)
                        << where << ": " << liba::to_utf8(id) << " \"" << liba::to_utf8(text) << "\"";
                }
            }

            // The pages stretch with the screen and hold their controls inside.
            skinner::ClassFactoryForm settings(skin, L"Settings");
            for (const skinner::Control* child : settings.children()) {
                auto* page = dynamic_cast<const skinner::ControlPanel*>(child);
                if (!page)
                    continue;
                const Point low = page->position(), high = page->position() + page->size();
                EXPECT_EQ(high.x, screen.x);
                EXPECT_EQ(high.y, screen.y);
                for (const skinner::Control* c : page->inner_container().children()) {
                    const Point end = c->position() + c->size();
                    EXPECT_TRUE(c->position().x >= low.x && c->position().y >= low.y && end.x <= high.x &&
                                end.y <= high.y)
                        << liba::to_utf8(page->id()) << "/" << liba::to_utf8(c->id()) << " leaves its page at "
                        << screen.x << "x" << screen.y;
                }
            }
        }
    }
}

TEST(SettingsSkin, IsNeverOfferedNorTakenAsTheApplicationSkin)
{
    const fs::path skins = test::program_dir() / "skins";
    skinner::MySkinFinder finder({240, 320});
    finder.find_in(wide(skins));
    std::vector<std::wstring> offered;
    for (const std::wstring& p : finder.skins())
        offered.push_back(os::file_name_of(p));
    EXPECT_NE(std::find(offered.begin(), offered.end(), L"Default.skin"), offered.end());
    EXPECT_EQ(std::find(offered.begin(), offered.end(), L"settings.skin"), offered.end());
    EXPECT_TRUE(finder.today_skins().empty());

    // Named in the settings, it gives way to the default skin.
    const fs::path fallback = skins / "Default" / "Default.skin";
    skinner::SkinChoice choice;
    auto skin = skinner::choose_skin(wide(settings_skin()), 1, {}, L"", &choice, wide(fallback));
    ASSERT_NE(skin, nullptr);
    EXPECT_TRUE(choice.fell_back);
    EXPECT_EQ(choice.path, wide(fallback));
}
