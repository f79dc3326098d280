#pragma once

#include "app/document.h"
#include "os/session_bus.h"

#include <functional>
#include <string>

struct sd_bus_slot;

// The program as a media player on the session bus, for desktop media keys
// and tools such as playerctl: org.mpris.MediaPlayer2.quillaphonics at
// /org/mpris/MediaPlayer2. Its transport methods are the main window's
// commands by name, on the main thread; seeks and properties act on the
// Document. It hears the Document's changes as a view and tells the bus which
// properties changed, and that the position jumped.
// Threads: main thread only. Positions on the bus are microseconds, volume
// 0..1, rate the speed of play.
class MprisPlayer : public Document::View {
public:
    // Runs a command of the main window ("Play", "Exit"…); 1 when taken.
    using Command = std::function<int(const std::wstring&)>;

    // `raise` shows the window and does nothing else.
    MprisPlayer(Document& document, Command command, std::function<void()> raise);
    ~MprisPlayer() override;

    // Connects, registers the objects and takes the name. False, having
    // logged why, when there is no session bus or the name is taken.
    bool publish();
    void stop();

    void on_document_changed(const ChangeFlags& changes) override;

    // The pieces the bus handlers read and act through (public for them).
    Document& document() { return document_; }
    std::string track_id() const;
    int64_t position_us() const;
    void raise() { raise_(); }
    int command(const std::wstring& name) { return command_(name); }
    // Seeks to `us` in the current item and tells the bus.
    void seek_to(int64_t us);
    // The window's pause toggle: "Record" while recording, else "Play".
    void play_pause();
    // Only from stopped or paused.
    void play();
    // Only while playing or recording.
    void pause();

private:
    void emit_changed(const char* interface, const std::vector<const char*>& names);

    Document& document_;
    Command command_;
    std::function<void()> raise_;
    os::SessionBus bus_;
    sd_bus_slot* root_slot_ = nullptr;
    sd_bus_slot* player_slot_ = nullptr;
    std::wstring track_path_;
    unsigned track_number_ = 0;
    // Where the position should be now had it run on: a jump from it is a seek.
    double last_time_ = 0;
};
