#pragma once

#include "app/document.h"
#include "app/main_form_controls.h"
#include "app/main_form_power.h"
#include "app/panel_equalizer.h"
#include "app/panel_file_explorer.h"
#include "app/panel_levels.h"
#include "app/panel_more_controls.h"
#include "app/status_publication.h"
#include "skinner/control_button.h"
#include "skinner/control_frame.h"
#include "skinner/control_menu_main.h"
#include "skinner/control_progress.h"
#include "skinner/form.h"
#include "skinner/screen.h"
#include "skinner/hardware_keys.h"
#include "skinner/menu_main_items.h"
#include "skinner/menu_manager.h"

#include <memory>
#include <string>

// The main window: the skin's "Main" with the transport buttons, the volume
// and position bars, the lamps, the clock and the title lines. It turns
// clicks and commands by name into Document calls and shows what the
// Document says back; its 0.2-second timer is the tick on which the
// Document notices the end of an item and failures.
// Threads: the main thread only. The Document and the skin must outlive it.
// Times are seconds, volume and bars 0..1.
class MainForm : public skinner::Form, public Document::View {
public:
    static constexpr double kTickSeconds = Document::kTickSeconds;
    static constexpr double kVolumeStep = 0.1;

    MainForm(skinner::Properties& skin, Document& document);
    ~MainForm() override;

    int on_click(skinner::Control* control, int user_data) override;
    // Every button and key ends here; 1 when the command was taken.
    int on_command(const std::wstring& name) override;
    int on_range_changed(skinner::Control* control, double value) override;
    void on_timer(int id, int user_data) override;
    void on_document_changed(const ChangeFlags& changes) override;
    // The joystick's actions, then a key of its own for every command once
    // the focused control and the form declined the key.
    bool on_keydown(int key) override;
    // The file menu: Settings, Help, About, Exit.
    int on_collect_menu(skinner::MenuEntries* menu) override;

    // A command line of this start or handed over by a later one
    // (main_form_command_line.cpp): "-hide" does nothing, "AppRunAtTime"
    // runs the due schedule, a path plays, and an empty line with the window
    // in front stops a recording or starts one; then the window comes up.
    void on_command_line(const std::wstring& line);
    // Shows the window and brings it to the front.
    void bring_up();

    // For tests and the status: what the window shows now.
    const ControlClock& clock() const { return clock_; }
    const skinner::ControlButtonMultistate& play_button() const { return play_; }
    const skinner::ControlButtonMultistate& record_button() const { return record_; }
    const skinner::ControlButton& stop_button() const { return stop_; }
    const skinner::ControlButton& clock_mode_button() const { return clock_mode_; }
    const skinner::ControlButton& next_button() const { return next_; }
    const skinner::ControlButton& previous_button() const { return previous_; }
    const skinner::ControlFrame& title_line() const { return title_; }
    const skinner::ControlFrame& info_line() const { return info_; }
    const skinner::ControlProgress& position_bar() const { return position_; }
    const skinner::ControlProgress& volume_bar() const { return volume_; }
    const ControlFlash& play_lamp() const { return play_lamp_; }
    const ControlFlash& record_lamp() const { return record_lamp_; }
    // The screen saver and the display's turn-off as the tick left them.
    const MainFormPower& power() const { return power_; }
    // Ticks taken, and ticks that came while a dialog of a tick was up.
    int ticks() const { return ticks_; }
    int ticks_held() const { return ticks_held_; }
    const ControlSpeed& speed_line() const { return speed_; }
    const skinner::ControlButtonMultistate& panel_button() const { return mode_; }
    // The panels that "btnMode" switches between, in its order.
    static constexpr int kPanels = 4;
    const skinner::ControlPanel& panel(int index) const;
    PanelFileExplorer& explorer() { return explorer_; }
    PanelLevels& levels_panel() { return levels_; }
    PanelEqualizer& equalizer_panel() { return equalizer_; }
    PanelMoreControls& more_panel() { return more_; }
    const skinner::MenuMainButton& mode_menu() const { return mode_menu_; }
    // Null while the form stands on no screen.
    skinner::HardwareKeysImpl* hardware_keys() const { return hardware_keys_.get(); }
    skinner::MenuManagerImpl* menu_bar() const { return menu_bar_.get(); }
    // The folder of the dialogs' skin, the language files and the help:
    // "%app_path%", unless a test moves it.
    void set_program_folder(const std::wstring& folder) { program_folder_ = folder; }

private:
    // The commands (main_form_commands.cpp).
    void play(bool stop_when_playing);
    void record(bool stop_when_recording);
    void change_volume(double delta);
    // Shows the panel that "btnMode" stands on and hides the others.
    void show_panel();
    // The tick's own work (main_form.cpp).
    void on_tick();
    void check_recording();
    void show_state();
    void show_position();
    // "16 bit"-like, empty when idle or unknown.
    std::wstring bits_text() const;
    // Menus and hardware keys (main_form_menus.cpp).
    void make_menu_bar();
    void assign_hardware_keys();
    void show_mode();
    void show_settings();
    void show_help();
    void show_about();
    void exit();
    // `path` with a leading "%app_path%" in the program folder.
    std::wstring in_program_folder(const std::wstring& path) const;
    // Keys (main_form_keys.cpp): left, right, up, down and the action key.
    bool on_joystick(int key);

    // The screen's new size reaches the form's listener: the skin is loaded
    // again for it (main_form_command_line.cpp).
    class ScreenListener : public skinner::Listener {
    public:
        explicit ScreenListener(MainForm& form) : form_(form) {}
        int on_command(const std::wstring& name) override;

    private:
        MainForm& form_;
    };
    // Handed-over lines (main_form_command_line.cpp).
    void play_handed_over(const std::wstring& path);
    // `path` selected in the file explorer and played; empty: the
    // explorer's current file. True when it plays.
    bool play_selected(const std::wstring& path);
    void record_or_stop_by_line();
    int reload_skin_for_screen();

    ScreenListener screen_listener_{*this};
    Document& document_;
    StatusPublication publication_;
    int timer_id_ = 0;
    skinner::ControlButton new_mark_;
    skinner::ControlButton previous_;
    skinner::ControlButton next_;
    skinner::ControlButtonMultistate play_;
    skinner::ControlButtonMultistate record_;
    skinner::ControlButton stop_;
    skinner::ControlProgress volume_;
    skinner::ControlProgress position_;
    skinner::ControlButtonMultistate mode_;
    ControlFlash record_lamp_;
    ControlFlash play_lamp_;
    skinner::ControlCheckBox stereo_;
    ControlSpeed speed_;
    skinner::ControlCheckBox vas_;
    skinner::ControlFrame info_;
    skinner::ControlFrame title_;
    ControlClock clock_;
    skinner::ControlButton clock_mode_;
    PanelFileExplorer explorer_;
    PanelLevels levels_;
    PanelEqualizer equalizer_;
    PanelMoreControls more_;
    skinner::ControlMenuMain main_menu_;
    skinner::MenuMainSubMenu file_menu_;
    skinner::MenuMainButton mode_menu_;
    std::unique_ptr<skinner::HardwareKeysImpl> hardware_keys_;
    std::unique_ptr<skinner::MenuManagerImpl> menu_bar_;
    std::wstring program_folder_ = L"%app_path%";
    // Made after the screen it watches, from the Document's settings.
    MainFormPower power_{skinner::Screen::instance(), document_.settings()};
    int ticks_ = 0;
    int ticks_held_ = 0;
};
