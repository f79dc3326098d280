#include "app/main_form.h"

#include "dialogs/form_about.h"
#include "os/log.h"
#include "os/system.h"
#include "skinner/form_impl.h"
#include "skinner/form_message.h"
#include "skinner/screen.h"
#include "skinner/skin_choice.h"

namespace {

// The translation keys of the playback modes 0 to 4.
constexpr const wchar_t* kModeNames[] = {L"PlaybackModeSingleFile", L"PlaybackModeSingleFileRepeat",
                                         L"PlaybackModeAllFilesByOrder", L"PlaybackModeAllFilesRepeating",
                                         L"PlaybackModeShuffle"};

constexpr const wchar_t* kFileMenu[] = {L"Settings", L"Help", L"About", L"Exit"};

constexpr const wchar_t* kAboutTitle = L"Kelb Quillaphonics v1.8";

} // namespace

void MainForm::make_menu_bar()
{
    skinner::Screen* screen = skinner::Screen::instance();
    if (!screen)
        return;
    hardware_keys_ = std::make_unique<skinner::HardwareKeysImpl>(*screen);
    hardware_keys_->set_listener(this);
    menu_bar_ = std::make_unique<skinner::MenuManagerImpl>(*screen, properties(), *this);
}

void MainForm::assign_hardware_keys()
{
    if (!hardware_keys_)
        return;
    const std::vector<std::wstring>& buttons = document_.settings().buttons;
    for (int i = 0; i < hardware_keys_->key_count(); ++i) {
        const std::wstring command = i < int(buttons.size()) ? buttons[size_t(i)] : std::wstring();
        hardware_keys_->set_command(i, command);
        // A key with no command is left to the forms.
        hardware_keys_->assign(i, !command.empty());
    }
}

int MainForm::on_collect_menu(skinner::MenuEntries* menu)
{
    if (menu->menu != file_menu_.id())
        return Form::on_collect_menu(menu);
    for (const wchar_t* id : kFileMenu) {
        skinner::MenuRecord entry;
        entry.id = id;
        entry.receiver = this;
        entry.text = properties().translate(id);
        menu->items.push_back(std::move(entry));
    }
    return 1;
}

void MainForm::show_mode()
{
    const int mode = document_.play_mode();
    const bool known = mode >= 0 && mode < int(std::size(kModeNames));
    mode_menu_.set_text(known ? properties().translate(kModeNames[mode]) : std::wstring());
    mode_menu_.set_enabled(true);
}

void MainForm::show_settings()
{
    Settings copy = document_.settings();
    // The settings form is still to come: the user hears so, and the
    // settings go through the same steps as after it, unchanged.
    skinner::FormMessage(this, properties(), L"MessageOk", properties().translate(L"Settings"),
                         properties().translate(L"SettingsFormMissing"))
        .run();
    document_.apply_settings(copy);
    assign_hardware_keys();
    // The turn-off of what is armed now, else of playing.
    power_.on_settings(document_.settings());
    show_mode();
    document_.notify_views(ChangeFlags());
}

void MainForm::show_help()
{
    const std::wstring link = properties().get_form_string(name(), L"Help_link", std::wstring());
    if (link.empty()) {
        os::log() << "MainForm: the skin names no help\n";
        return;
    }
    os::execute_file(in_program_folder(L"%app_path%/" + link), std::wstring());
}

void MainForm::show_about()
{
    skinner::Screen* screen = skinner::Screen::instance();
    std::wstring language;
    document_.settings().language_file(language);
    skinner::Properties skin(in_program_folder(skinner::kSettingsSkinPath), screen ? screen->size() : size());
    if (!skin.impl().is_valid() || skin.item_count(L"About") == 0) {
        os::log() << "MainForm: the settings skin has no about box\n";
        return;
    }
    if (!language.empty())
        skin.load_language(in_program_folder(language));
    dialogs::FormAbout(this, skin, kAboutTitle, L"About").run();
    ChangeFlags general;
    general.general = true;
    document_.notify_views(general);
}

std::wstring MainForm::in_program_folder(const std::wstring& path) const
{
    const std::wstring macro = L"%app_path%";
    return path.compare(0, macro.size(), macro) == 0 ? program_folder_ + path.substr(macro.size()) : path;
}

void MainForm::exit()
{
    // While the pointer is held (a drag under way) the command only lets it
    // go; otherwise the form's loop ends, and the program with it.
    if (impl().any_button_held()) {
        impl().capture_lost();
        release_capture();
        return;
    }
    close();
}
