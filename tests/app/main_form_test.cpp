// The main window's buttons, commands, clock and recording.
#include "tests/app/main_form_fixture.h"

using namespace main_form_test;

namespace {

TEST_F(MainFormTest, PlayButtonPlaysTheFileToItsEndAndButtonsFollowTheState)
{
    std::string raw;
    fs::path wav = tone("tone.wav", 1.3, &raw);
    open(false);
    EXPECT_FALSE(form->stop_button().is_enabled()) << "nothing to stop yet";
    EXPECT_FALSE(form->play_button().is_enabled()) << "nothing to play yet";
    queue(wav);
    ASSERT_TRUE(form->play_button().is_enabled());

    click(form->play_button());
    ASSERT_TRUE(document->is_playing());
    EXPECT_EQ(form->play_button().state(), 1) << "while playing the button would pause";
    EXPECT_TRUE(form->stop_button().is_enabled());
    EXPECT_TRUE(form->play_lamp().flashing());
    EXPECT_FALSE(form->record_lamp().flashing());
    EXPECT_EQ(form->title_line().text(), L"tone.wav");
    EXPECT_EQ(form->info_line().text(), L"22 kHz 16 bit 352kbps");

    // A second click pauses, a third resumes.
    click(form->play_button());
    EXPECT_TRUE(document->is_paused());
    EXPECT_EQ(form->play_button().state(), 0);
    click(form->play_button());
    EXPECT_FALSE(document->is_paused());

    // The form's own tick notices the end of the file.
    run_until([&] { return !document->is_playing(); });
    EXPECT_EQ(without_silence(test::read_file(out)), raw);
    EXPECT_EQ(form->play_button().state(), 0);
    EXPECT_FALSE(form->stop_button().is_enabled());
    EXPECT_FALSE(form->play_lamp().flashing());
    EXPECT_EQ(form->title_line().text(), L"");
    EXPECT_EQ(form->info_line().text(), L"");

    // The volume steps stop at both ends of the bar.
    struct Step {
        const wchar_t* command;
        int times;
        double volume;
    };
    for (const Step& s : {Step{L"VolumeUp", 12, 1.0}, Step{L"VolumeDown", 3, 0.7}, Step{L"VolumeDown", 12, 0.0}}) {
        for (int i = 0; i < s.times; ++i)
            EXPECT_EQ(form->on_command(s.command), 1);
        EXPECT_NEAR(document->volume(), s.volume, 1e-9) << s.command;
        EXPECT_NEAR(form->volume_bar().value(), s.volume, 1e-9) << s.command;
    }
}

TEST_F(MainFormTest, RecordButtonRecordsIntoTheExplorersFolderPausesAndStops)
{
    ASSERT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 -e signed-integer -t raw '" + in + "' synth 5 sine 300 vol 0.5"), 0);
    open(true);
    Settings s = document->settings();
    s.explorer_folder = w(dir.path() / "take");
    fs::create_directory(dir.path() / "take");
    document->apply_settings(s);
    document->notify_views();

    click(form->record_button());
    ASSERT_TRUE(document->is_recording());
    EXPECT_EQ(form->record_button().state(), 1);
    EXPECT_TRUE(form->record_lamp().flashing());
    EXPECT_FALSE(form->play_lamp().flashing());
    EXPECT_TRUE(form->stop_button().is_enabled());
    const auto started = std::chrono::steady_clock::now();
    // The clock turns to one second on the tick after the first second recorded.
    auto seconds = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(); };
    loop->run([&] { return form->clock().text() != L"00:00:00" || seconds() > 3.0; });
    EXPECT_EQ(form->clock().text(), L"00:00:01");
    // Wall-clock bounds loose enough for a loaded machine.
    EXPECT_GT(seconds(), 0.8);
    EXPECT_LT(seconds(), 2.5);
    // The input meter reads the -6 dBFS input; recording holds the screen
    // saver off and arms the record turn-off.
    EXPECT_NEAR(document->input_level(), 0.5, 0.02);
    EXPECT_FALSE(SDL_IsScreenSaverEnabled());
    EXPECT_TRUE(form->power().record_armed());
    EXPECT_FALSE(form->power().play_armed());

    click(form->record_button());
    EXPECT_TRUE(document->is_paused());
    EXPECT_EQ(form->record_button().state(), 0);
    const fs::path file = document->record_file_path();
    click(form->stop_button());
    EXPECT_FALSE(document->is_recording());
    EXPECT_FALSE(form->record_lamp().flashing());
    EXPECT_EQ(document->input_level(), 0.0);
    EXPECT_EQ(file.parent_path(), dir.path() / "take");
    std::string length;
    ASSERT_EQ(test::run("soxi -D '" + file.string() + "'", &length), 0);
    EXPECT_GT(std::stod(length), 0.8);
    EXPECT_LT(std::stod(length), 2.5);
}

} // namespace

TEST_F(MainFormTest, TransportCommandsByNameMoveThroughTheListAndTheItem)
{
    const fs::path first = tone("first.wav", 12.0);
    const fs::path second = tone("second.wav", 12.0);
    open(true);
    std::vector<playlist::PlaylistEntry> items(2);
    items[0].path = w(first);
    items[1].path = w(second);
    document->set_playlist(L"two", items, 0, false);
    document->notify_views();
    ASSERT_EQ(form->on_command(L"Play"), 1);
    ASSERT_EQ(document->current_path(), w(first));
    EXPECT_TRUE(form->next_button().is_enabled());

    // The player's thread pulls on meanwhile, moving the reader by whole
    // pulls of 16384 frames (0.74 s here): a jump is 5 s plus up to two.
    double before = document->time_position();
    form->on_command(L"Forward");
    double moved = document->time_position() - before;
    EXPECT_GE(moved, 5.0 - 0.05);
    EXPECT_LE(moved, 5.0 + 1.5);
    before = document->time_position();
    form->on_command(L"Rewind");
    moved = document->time_position() - before;
    EXPECT_GE(moved, -5.0 - 0.05);
    EXPECT_LE(moved, -5.0 + 1.5);
    form->on_command(L"Next");
    EXPECT_EQ(document->current_path(), w(second));
    EXPECT_TRUE(form->previous_button().is_enabled());
    form->on_command(L"Prev");
    EXPECT_EQ(document->current_path(), w(first));
    form->on_command(L"PlayStop");
    EXPECT_FALSE(document->is_playing());

    // The modes go round, 4 back to 0.
    const int mode = document->play_mode();
    for (int i = 1; i <= 5; ++i) {
        form->on_command(L"Mode");
        EXPECT_EQ(document->play_mode(), (mode + i) % 5);
    }
    EXPECT_EQ(form->on_command(L"NoSuchCommand"), 0);
}
