// The program's application skins (Default, Dark) as the build made them:
// each holds everything the program creates by name, every form paints at
// every scale from art drawn for that scale, and switching between them at
// run time repaints every open form.

#include "skinner/control_equalizer.h"
#include "skinner/form_impl.h"
#include "skinner/form_render.h"
#include "skinner/properties.h"
#include "skinner/skin_description.h"
#include "skinner/skin_finder.h"

#include "drawing_test_support.h"
#include "tests/support/test_support.h"

#include <SDL_image.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using skinner::Point;

namespace {

// The skins the skin list offers as the program's look. A skin added to the
// program belongs here: it must serve everything below.
const std::string kApplicationSkins[] = {"Default", "Dark"};

std::filesystem::path shipped_skin(const std::string& name)
{
    return test::program_dir() / "skins" / name / (name + ".skin");
}

// Every form the program opens from an application skin and the controls it
// creates in each by id. Grow this list as forms land.
const std::map<std::string, std::vector<std::string>> kCreatedByName = {
    {"Main",
     {"PanelFileExplorer", "PanelLevels", "PanelEqualizer", "PanelMoreControls", "btnNewMark", "btnRewind",
      "btnForward", "btnPlay", "btnRecord", "btnStop", "pbOutput", "pbPosition", "btnMode", "checkRec", "checkPlay",
      "checkStereo", "frmSpeed", "checkVAS", "frmInfo", "frmTitle", "Clock", "btnClockMode", "MainMenu", "File",
      "Mode"}},
    {"Clock", {"lcdClock", "chkMode", "chkHours", "chkMinutes"}},
    {"FileExplorer", {"cmbFolder", "btnFolderUp", "btnSortName", "btnSortDate", "btnSortSize", "lstFiles"}},
    {"Levels",
     {"pbVAS", "pbInput", "pbOutput", "pbVASLeft", "pbVASRight", "pbInputLeft", "pbInputRight", "pbOutputLeft",
      "pbOutputRight", "chkVAS", "chkInput", "chkOutput", "chkVASInd", "chkInputInd", "chkOutputInd"}},
    {"Equalizer", {"Equalizer", "chkEq1", "chkEq2", "chkEq3"}},
    {"MoreControls", {"cmbNoise", "cmbLimiter", "cmbBooster", "pbPlaybackSpeed", "chkTone"}},
    {"MessageOk", {"frmCaption", "frmMessage", "btnOk"}},
    {"Error", {"frmCaption", "frmMessage", "btnOk"}},
    {"ConfirmYesNo", {"frmCaption", "frmMessage", "btnYes", "btnNo"}},
    {"Confirm5Way", {"frmCaption", "frmMessage", "btnYes", "btnNo", "btnYesAll", "btnNoAll", "btnCancel"}},
    {"FileProgress", {"frmFileName", "frmCaption", "frmMessage", "pbProgressFile", "pbProgressTotal", "btnCancel"}},
    {"SaveActiveBuffer", {"pbProgress"}},
    {"Convert", {"frmFileName", "pbProgress"}},
    {"Beam", {"frmFileName", "lstDevices", "btnBeam", "pbProgress", "btnRefresh"}},
    {"Bookmarks", {"Range", "frmName", "btnOk", "btnUp", "btnDown", "btnDelete", "btnEdit", "btnGo"}},
    {"Id3Tags",
     {"txtTitle", "txtArtist", "txtAlbum", "cbGenre", "txtYear", "txtTrack", "txtComment", "btnOk", "MenuMain"}},
    {"Properties",
     {"frmFileName", "frmFormat", "frmDuration", "frmChannels", "frmSampleRate", "frmBitRate", "frmBits", "frmSize",
      "btnOk"}},
    {"DropdownForm", {}},
    {"About", {"frmCaption", "frmTitle", "btnOk"}},
    {"MenuBar", {}},
    {"SubMenu", {}},
};

std::string narrow(const std::wstring& w) { return std::string(w.begin(), w.end()); }

struct Skin {
    explicit Skin(const std::string& skin) : impl(test::wide(shipped_skin(skin)), Point{240, 320}) {}
    skinner::PropertiesImpl impl;
    const skinner::SkinDescription& d = impl.description();

    std::string name(uint32_t node) const { return narrow(d.text_at(d.name(node))); }
    std::vector<uint32_t> forms() const { return d.inorder(d.header().form_tree()); }
    // Every variant of `form`: the nodes whose names begin with it.
    std::vector<uint32_t> variants(const std::string& form) const
    {
        std::vector<uint32_t> out;
        for (uint32_t node : forms())
            if (name(node).rfind(form, 0) == 0)
                out.push_back(node);
        return out;
    }
    std::vector<std::string> ids(uint32_t form) const
    {
        std::vector<std::string> out;
        for (uint32_t i = 0; i < d.item_count(form); ++i)
            out.push_back(narrow(d.text_at(d.item(form, i).first)));
        return out;
    }
    // The string values of `node` whose keys satisfy `wanted`.
    template <class Wanted>
    std::vector<std::string> strings(uint32_t node, Wanted wanted) const
    {
        std::vector<std::string> out;
        auto [begin, end] = d.table(node, skinner::Table::kStrings);
        for (uint32_t r = begin; r < end; r += skinner::kRecordSize[int(skinner::Table::kStrings)]) {
            const uint8_t* p = d.data() + r;
            std::string key = narrow(d.text_at(p[0] | p[1] << 8));
            if (wanted(key))
                out.push_back(narrow(d.text_at(p[2] | p[3] << 8)));
        }
        return out;
    }
    // Every node that can hold properties: forms, their controls, kinds.
    std::vector<uint32_t> all_nodes() const
    {
        std::vector<uint32_t> out = d.inorder(d.header().kind_tree());
        for (uint32_t form : forms()) {
            out.push_back(form);
            for (uint32_t c : d.inorder(d.controls(form)))
                out.push_back(c);
        }
        return out;
    }
};

class ApplicationSkin : public ::testing::TestWithParam<std::string> {};

TEST_P(ApplicationSkin, HoldsEveryFormControlAndKindTheProgramCreatesByName)
{
    Skin skin(GetParam());
    ASSERT_TRUE(skin.impl.is_valid()) << narrow(skin.impl.load_error());
    EXPECT_EQ(narrow(skin.d.header().version()), "Quillaphonics_500");
    for (const auto& [form, ids] : kCreatedByName) {
        std::vector<uint32_t> variants = skin.variants(form);
        EXPECT_FALSE(variants.empty()) << "no form " << form;
        for (uint32_t v : variants) {
            std::vector<std::string> have = skin.ids(v);
            for (const std::string& id : ids)
                EXPECT_NE(std::find(have.begin(), have.end(), id), have.end())
                    << "form " << skin.name(v) << " lacks " << id;
        }
    }
    // Whatever names a kind or a form template must name one that exists:
    // the program builds those parts by that name and ends on a missing one.
    auto names_kind = [](const std::string& key) {
        return key.starts_with("Kind") || (key.size() > 4 && key.ends_with("Kind"));
    };
    std::set<std::string> forms;
    for (uint32_t f : skin.forms())
        forms.insert(skin.name(f));
    int kinds_named = 0;
    for (uint32_t node : skin.all_nodes()) {
        for (const std::string& kind : skin.strings(node, names_kind)) {
            ++kinds_named;
            EXPECT_NE(skin.d.find_node(skin.d.header().kind_tree(), std::wstring(kind.begin(), kind.end())), 0u)
                << skin.name(node) << " names the missing kind " << kind;
        }
        for (const std::string& t : skin.strings(node, [](const std::string& k) { return k == "FormTemplate"; }))
            EXPECT_TRUE(forms.count(t)) << skin.name(node) << " names the missing form " << t;
    }
    EXPECT_GE(kinds_named, 10) << "the lists, combo boxes and scroll bars name their parts by kind";
}

// The pictures at scale 4 were drawn at that size, not blown up from scale
// 1: a blow-up is made of uniform 4x4 blocks, vector art's edges cut them.
double blocks_not_uniform(const SDL_Surface* s)
{
    int blocks = 0, mixed = 0;
    for (int by = 0; by + 4 <= s->h; by += 4)
        for (int bx = 0; bx + 4 <= s->w; bx += 4) {
            ++blocks;
            const uint32_t first = drawing_test::pixel_at(s, bx, by) & 0xFFFFFFu;
            bool same = true;
            for (int y = by; y < by + 4 && same; ++y)
                for (int x = bx; x < bx + 4 && same; ++x)
                    same = (drawing_test::pixel_at(s, x, y) & 0xFFFFFFu) == first;
            mixed += !same;
        }
    return blocks ? double(mixed) / blocks : 0;
}

// Mean difference per channel, 0..255, between `small` and `large` averaged
// down over blocks of `factor` squared pixels.
double mean_difference_scaled_down(const SDL_Surface* small, const SDL_Surface* large, int factor)
{
    double total = 0;
    for (int y = 0; y < small->h; ++y)
        for (int x = 0; x < small->w; ++x)
            for (int shift = 0; shift < 24; shift += 8) {
                int sum = 0;
                for (int dy = 0; dy < factor; ++dy)
                    for (int dx = 0; dx < factor; ++dx)
                        sum += (drawing_test::pixel_at(large, x * factor + dx, y * factor + dy) >> shift) & 0xFF;
                total += std::abs(double(sum) / (factor * factor) - ((drawing_test::pixel_at(small, x, y) >> shift) & 0xFF));
            }
    return total / (3.0 * small->w * small->h);
}

TEST_P(ApplicationSkin, EveryFormPaintsAtScalesOneToFourFromArtDrawnForEachScale)
{
    // Texts are laid out anew at each size, on whole pixels; with every
    // text a blank, what is left to compare is the art.
    test::TempDir dir;
    const std::filesystem::path blank = dir.path() / "Blank.lng";
    std::vector<std::string> forms;
    {
        Skin skin(GetParam());
        std::string keys;
        for (uint32_t node : skin.all_nodes())
            for (const std::string& v : skin.strings(node, [](const std::string&) { return true; }))
                if (v.starts_with("form."))
                    keys += v + " \u00a0\n"; // a no-break space: a text that draws nothing
        test::write_file(blank, keys);
        for (uint32_t f : skin.forms())
            forms.push_back(skin.name(f));
    }
    ASSERT_GE(forms.size(), kCreatedByName.size());
    for (const std::string& form : forms) {
        std::map<int, skinner::Surface> painted;
        for (int scale = 1; scale <= 4; ++scale) {
            skinner::Properties skin(test::wide(shipped_skin(GetParam())), Point{240 * scale, 320 * scale});
            ASSERT_EQ(skin.scale(), scale);
            ASSERT_TRUE(skin.load_language(test::wide(blank)));
            const std::wstring name(form.begin(), form.end());
            ASSERT_EQ(skinner::check_form(skin, name), L"") << form;
            skinner::ClassFactoryForm shown(skin, name);
            shown.paint_dirty();
            const SDL_Surface* s = shown.impl().back_buffer();
            ASSERT_NE(s, nullptr);
            painted[scale] = drawing_test::new_surface(s->w, s->h);
            SDL_BlitSurface(const_cast<SDL_Surface*>(s), nullptr, painted[scale].get(), nullptr);
        }
        const SDL_Surface* one = painted[1].get();
        for (int scale = 2; scale <= 4; ++scale) {
            const SDL_Surface* big = painted[scale].get();
            ASSERT_EQ(big->w, one->w * scale) << form;
            ASSERT_EQ(big->h, one->h * scale) << form;
            EXPECT_LT(mean_difference_scaled_down(one, big, scale), 1.5) << form << " at scale " << scale;
        }
        if (form == "Main") {
            // About 5% of the blocks of Main's art; a blow-up has none.
            EXPECT_GT(blocks_not_uniform(painted[4].get()), 0.02) << "Main at scale 4 looks blown up";
            if (HasFailure())
                drawing_test::write_png(drawing_test::output_dir() / (GetParam() + "_skin_main_x4.png"), painted[4].get());
        }
    }
}

TEST_P(ApplicationSkin, ShipsEachPictureAtFourScalesExactlyInProportion)
{
    const std::filesystem::path folder = shipped_skin(GetParam()).parent_path();
    int sheets = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string stem = entry.path().stem().string();
        if (entry.path().extension() != ".png" || stem.find("_x") != std::string::npos || stem.ends_with("_8"))
            continue;
        ++sheets;
        skinner::Surface base(IMG_Load(entry.path().c_str()));
        ASSERT_NE(base, nullptr) << stem;
        const bool has_map = std::filesystem::exists(folder / (stem + "_8.png"));
        for (int scale = 2; scale <= 4; ++scale) {
            const std::string scaled = stem + "_x" + std::to_string(scale);
            skinner::Surface s(IMG_Load((folder / (scaled + ".png")).c_str()));
            ASSERT_NE(s, nullptr) << scaled;
            EXPECT_EQ(s->w, base->w * scale) << scaled;
            EXPECT_EQ(s->h, base->h * scale) << scaled;
            EXPECT_EQ(std::filesystem::exists(folder / (scaled + "_8.png")), has_map) << scaled;
        }
    }
    EXPECT_GE(sheets, 4);
}

// A copy of what `form` shows now, painted first.
skinner::Surface painted(skinner::ClassFactoryForm& form)
{
    form.paint_dirty();
    const SDL_Surface* s = form.impl().back_buffer();
    skinner::Surface copy = drawing_test::new_surface(s->w, s->h);
    SDL_BlitSurface(const_cast<SDL_Surface*>(s), nullptr, copy.get(), nullptr);
    return copy;
}

bool same_pixels(const SDL_Surface* a, const SDL_Surface* b)
{
    if (a->w != b->w || a->h != b->h)
        return false;
    for (int y = 0; y < a->h; ++y)
        for (int x = 0; x < a->w; ++x)
            if (drawing_test::pixel_at(a, x, y) != drawing_test::pixel_at(b, x, y))
                return false;
    return true;
}

// Mean luma (Rec. 601), 0..255.
double mean_luma(const SDL_Surface* s)
{
    double total = 0;
    for (int y = 0; y < s->h; ++y)
        for (int x = 0; x < s->w; ++x) {
            const uint32_t p = drawing_test::pixel_at(s, x, y);
            total += 0.299 * (p >> 16 & 0xFF) + 0.587 * (p >> 8 & 0xFF) + 0.114 * (p & 0xFF);
        }
    return total / (double(s->w) * s->h);
}

TEST_P(ApplicationSkin, EqualizerKeepsItsGridAndLineOffItsFrame)
{
    skinner::Properties skin(test::wide(shipped_skin(GetParam())), Point{240 * 3, 320 * 3});
    skinner::ClassFactoryForm form(skin, L"Equalizer");
    auto* eq = dynamic_cast<skinner::ControlEqualizer*>(form.find_control(L"Equalizer"));
    ASSERT_NE(eq, nullptr);
    const skinner::Surface shown = painted(form);
    auto at = [&](Point p) { return drawing_test::pixel_at(shown.get(), p.x, p.y) & 0xFFFFFFu; };
    // The frame's top and bottom edges are one colour along their length:
    // no grid column crosses them.
    const Point p = eq->position(), s = eq->size();
    for (int y : {p.y, p.y + s.y - 1}) {
        const uint32_t edge = at({p.x + s.x / 2 + 1, y});
        for (int x = p.x + 16; x < p.x + s.x - 16; ++x)
            ASSERT_EQ(at({x, y}), edge) << "edge at " << x - p.x << "," << y - p.y;
    }
}

TEST(ApplicationSkins, SwitchingAtRunTimeRepaintsEveryOpenFormOfTheSkin)
{
    const Point screen{240, 320};
    skinner::Properties skin(test::wide(shipped_skin("Default")), screen);
    // The settings skin's forms have a handle of their own: a change of the
    // program's look leaves them as they are.
    skinner::Properties settings(test::wide(test::program_dir() / "skins" / "settings" / "settings.skin"), screen);
    ASSERT_TRUE(skin.check_version(skinner::kAppVersionMark, screen));
    const std::wstring names[] = {L"Main", L"ConfirmYesNo"};
    std::vector<std::unique_ptr<skinner::ClassFactoryForm>> open;
    std::vector<skinner::Surface> before;
    for (const std::wstring& name : names) {
        open.push_back(std::make_unique<skinner::ClassFactoryForm>(skin, name));
        before.push_back(painted(*open.back()));
    }
    skinner::ClassFactoryForm settings_form(settings, L"MessageOk");
    skinner::Surface settings_before = painted(settings_form);

    // The skin list offers every application skin; the program changes to
    // the one picked there.
    skinner::MySkinFinder finder(screen);
    finder.find_in(test::wide(test::program_dir() / "skins"));
    std::map<std::string, std::wstring> offered;
    for (const std::wstring& path : finder.skins())
        offered[std::filesystem::path(path).stem().string()] = path;
    for (const std::string& name : kApplicationSkins)
        ASSERT_TRUE(offered.count(name)) << "the skin list lacks " << name;
    skin.change_skin(offered["Dark"], screen);

    skinner::Properties dark(test::wide(shipped_skin("Dark")), screen);
    for (size_t i = 0; i < open.size(); ++i) {
        const std::string name = narrow(names[i]);
        skinner::Surface after = painted(*open[i]);
        skinner::ClassFactoryForm fresh_form(dark, names[i]);
        skinner::Surface fresh = painted(fresh_form);
        EXPECT_FALSE(same_pixels(after.get(), before[i].get())) << name << " kept the old skin's look";
        EXPECT_TRUE(same_pixels(after.get(), fresh.get())) << name << " differs from Dark's own " << name;
        if (name == "Main") {
            EXPECT_LT(mean_luma(after.get()), 0.6 * mean_luma(before[i].get())) << "Dark is not dark enough";
        }
        if (HasFailure())
            drawing_test::save_failure("skin_switch_" + name, after.get(), fresh.get());
    }
    EXPECT_TRUE(same_pixels(painted(settings_form).get(), settings_before.get()));
}

INSTANTIATE_TEST_SUITE_P(Shipped, ApplicationSkin, ::testing::ValuesIn(kApplicationSkins),
                         [](const auto& info) { return info.param; });

} // namespace
