#pragma once

#include "app/play_order.h"
#include "app/play_path.h"
#include "app/settings.h"
#include "audio/active_buffer.h"
#include "audio/level_meter.h"
#include "audio/level_meter_record.h"
#include "audio/muter.h"
#include "audio/pipeline.h"
#include "audio/play_chain.h"
#include "audio/player_pcm.h"
#include "audio/record_chain.h"
#include "audio/record_level_control.h"
#include "audio/recorder_pcm.h"
#include "audio/time_meter.h"
#include "files/range_marks.h"
#include "liba/nocopy.h"
#include "os/date_time.h"
#include "os/wake_up.h"
#include "playlist/playlist_entry.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

// What changed since the views were last told. Plain data.
struct ChangeFlags {
    bool general = false;  // list, panels: a full refresh of the title area
    bool position = false; // position, time, levels or bookmarks moved
    bool state = false;    // play or record state, or a setting
    bool volume = false;   // output volume
    std::wstring select_path; // a file the explorer is to select; empty for none

    static ChangeFlags all()
    {
        ChangeFlags f;
        f.general = f.position = f.state = f.volume = true;
        return f;
    }
};

// The model of the program: the settings, the fixed play path (and, as its
// stages land, the record path), the current list with its playing order and
// the one state machine: stopped, playing, play paused (recording and record
// paused come with the recorder). One instance, reachable through instance().
// The UI never touches a stage; it calls Document and hears back through
// Document::View. Audio threads never call it: on_timer, run five times a
// second, polls the stages for the end of an item and for failure.
// Threads: main thread only. Times are seconds, positions the current
// reader's own unit, volume 0..1.
namespace skinner {
class Form;
}

class Document : liba::Nocopy {
public:
    // A listener, not owned. It adds itself to the Document's list when made
    // and removes itself when destroyed, so the Document must outlive it.
    class View {
    public:
        View();
        virtual ~View();
        virtual void on_document_changed(const ChangeFlags& changes) = 0;
    };

    // Loads the settings from `settings_path` (missing file: the defaults)
    // and links the play path. A second Document is fatal.
    explicit Document(const std::wstring& settings_path = kSettingsPath);
    // Stops playing, writes the settings file.
    ~Document();
    // Null when there is none.
    static Document* instance() { return instance_; }

    // Queries.
    bool is_playing() const { return play_chain_ != nullptr; }
    bool is_recording() const { return recorder_ != nullptr; }
    bool is_paused() const;
    // Recording: the stages are well. Playing: the reader is. Idle: no
    // requested item failed to open.
    bool is_healthy() const;
    // Recording: the file being written still takes what comes (false once a
    // write failed, as on a full disk). True when not recording.
    bool record_writer_good() const;
    const Settings& settings() const { return settings_; }
    int play_mode() const { return settings_.mode; }
    double volume() const { return settings_.volume; }
    double speed() const { return settings_.speed; }
    // The peak of the last device buffer while recording with the input
    // monitored, else 0; the VAS level is the same, and 0 too unless voice
    // activation is on. 0.0..1.0 of full scale.
    double input_level() const;
    double vas_level() const;
    // The level of what is heard while playing, else 0.
    double output_level();
    // Seconds recorded since the recording began; still while paused.
    double record_time() const;
    int item_count() const { return static_cast<int>(items_.size()); }
    const std::wstring& title() const { return title_; }
    const std::wstring& playlist_name() const { return playlist_name_; }
    const std::vector<playlist::PlaylistEntry>& items() const { return items_; }
    const PlayOrder& play_order() const { return play_order_; }
    // The marks of the current item (or of the last one played), as its side
    // file held them when it was opened, with the marks added since.
    const RangeMarks& bookmarks() const { return bookmarks_; }
    // The file now playing, empty when stopped.
    const std::wstring& current_path() const { return current_item_.path; }
    const std::wstring& record_file_path() const { return record_path_; }
    // The reader of the current chain, null when stopped.
    audio::FileReader* reader() const;
    // The format name of the current chain (audio::kFormat...), empty when stopped.
    std::wstring format() const;
    // Seconds into the current item, and seconds left; 0 when idle.
    double time_position() const;
    double remaining_time() const;
    // Seconds into the current item as heard: the reader's time less what
    // the player and the device still hold to sound. 0 when idle.
    double heard_time() const;
    // "44 kHz"-like and "128 kbps"-like texts; empty when idle.
    std::wstring rate_text() const;
    std::wstring bitrate_text() const;
    // The player's status, for tests and diagnostics.
    audio::PlayerPCM::Status player_status() const { return player_.status(); }

    // Tells every view, in order, what changed since the last call plus
    // `changes`; views that change the Document meanwhile go to the next round.
    void notify_views(const ChangeFlags& changes = {});

    // Takes a list whose entries are openable paths; the order is rebuilt
    // for the current mode with `current_index` where it stands.
    void set_playlist(const std::wstring& name, std::vector<playlist::PlaylistEntry> items,
                      int current_index, bool ranges_only);
    // Plays item `index` (outside the list: where the mode says) from
    // `start_position`. False when the list is empty or the file doesn't open.
    bool play_item(int index, int32_t start_position);
    // Plays a file: a sound file as a list of one, a list from its first
    // entry. False when it is neither or its first item doesn't open.
    bool play_file(const std::wstring& path);
    // Plays the item where the order stands; false when there is none.
    bool play_current();
    // Next (1), previous (-1) or again (0) by the playing order.
    bool step_item(int delta);
    bool pause();
    bool resume();
    // Ends playing. False when nothing was playing.
    bool stop();
    // The same; a recording with more than kDrainQuietBytes still queued
    // drains under a progress form over `owner` (null: a wait in place).
    bool stop(skinner::Form* owner);
    static constexpr int32_t kDrainQuietBytes = 100000;
    // Stops, and records a new file named by the "Record" settings in
    // `default_folder` (or where the settings say), in their format. False
    // when no chain or no capture device could be made.
    bool record(const std::wstring& default_folder);
    // Stops, and records into `path` in the codec and MP3 bit rate of the
    // remote control's row `format_index` (0..8), with rate, bits and
    // channels from the settings. False for another index.
    bool record_to(const std::wstring& path, int format_index);
    // What is being recorded, for the status record: the writer's position
    // (its format's unit), the chain's format name and bit rate (bits per
    // second) and the recorder's format. Zeros and empty when not recording.
    struct RecordStatus {
        int32_t position = 0;
        std::wstring format;
        int32_t bit_rate = 0;
        int32_t rate = 0;
        int32_t bits = 0;
        int32_t channels = 0;
    };
    RecordStatus record_status() const;
    // Bytes recorded and not yet handed to the file's chain: what a stop
    // still has to drain.
    std::int32_t record_backlog() const { return active_buffer_.pending_bytes(); }
    // Stop, and record into the existing file `path` in its own format,
    // whatever the settings say: anew, or continued at its end, where a
    // mark "Bookmark" is set. False, the file as it was, for a format that
    // can't be written (Vorbis, Musepack, Windows Media).
    bool record_overwrite(const std::wstring& path);
    bool record_append(const std::wstring& path);
    // Stop, and record beside `target` into a temporary file in its format;
    // stop merges it into `target` at `position` (the unit of the target's
    // reader), copying coded data as it is, with marks at both ends.
    bool record_insert(const std::wstring& target, int32_t position);
    // New time = time + seconds, within the item. Nothing without a chain.
    void seek_relative(double seconds);
    // Position = length x fraction. Nothing without a chain.
    void seek_fraction(double fraction);
    // Marks the reader's position as "Bookmark" and saves the marks beside
    // the file. False, and nothing marked, when nothing plays.
    bool add_bookmark();
    void set_play_mode(int mode);
    void set_volume(double volume);
    // Speed of play, 0.5..2.0, with the pitch held or following. With the
    // pitch held only normal and half speed exist (0.75 stays 0.75 and plays
    // at normal speed), unless the settings ask for any speed.
    void set_speed(double speed, bool pitch_lock);
    bool pitch_lock() const { return settings_.pitch_lock; }
    // Index 0..3 (Off, Low, Medium, High). Each stores its value, writes the
    // settings and applies all three to the level filter: the stored values
    // reach the filter only once one of these is called.
    void set_booster(int index);
    void set_noise(int index);
    void set_limiter(int index);
    const PlayPath& play_path() const { return play_path_; }
    // Takes the record, writes the settings file and rebuilds the order for
    // its mode.
    void apply_settings(const Settings& new_settings);
    // Sets the play path's bands up again from the settings' three
    // equalisers, linking the active ones.
    void rebuild_equalizers();
    // The scheduled recording whose span holds the present moment, unless a
    // recording runs: it starts in the settings' "Folder", ends at the span's
    // end and leaves the schedule. Returns its file; empty when nothing
    // started, and then only the next wake-up is armed.
    std::wstring run_due_schedule();
    // Registers the start of the next task of the schedule with the
    // system's wake-up; with none left it clears a name that is not the
    // program's, so what was registered before stays.
    void arm_wakeup();
    // When the scheduled recording under way ends; null when none does.
    const os::DateTime& stop_time() const { return stop_time_; }
    // The 0.2-second poll: the end of an item (or its failed open) moves on by
    // the mode; while playing the views hear that the position moved.
    void on_timer();
    // Each stores its value in the settings and hands it to its stage: the
    // input gain (0.5 passes the input as it is), the voice activation
    // threshold, voice activation, and the monitor (off: the input is
    // recorded as silence). The monitor is never written to the file.
    void set_input(double level);
    void set_vas_level(double threshold);
    void set_vas_on(bool on);
    void set_monitor(bool on);
    // The silence that makes voice activation pause: strictly more than this.
    static constexpr double kSilenceLimit = 2.0;
    // The period of on_timer, which voice activation answers in.
    static constexpr double kTickSeconds = 0.2;

private:
    void apply_levels();
    // The level settings to the record stages (document_levels.cpp).
    void apply_level_settings();
    // Pauses a recording after a silence, resumes it at the sound.
    void voice_activation();
    void drop_chain();
    // Whether `path` opens as sound; may close a media-service item to look.
    bool is_sound(const std::wstring& path);
    // Ends the current item and picks the next one by the mode.
    void end_of_item();
    // True while the device still sounds what was read before the end.
    bool player_still_sounding();

    // The record side (document_record.cpp).
    // The first free "<prefix><n>.<extension>" in `folder`, n from 1.
    static std::wstring numbered_name(const std::wstring& folder, const std::wstring& prefix,
                                      const std::wstring& extension);
    // "<folder>/<prefix> dd mon yy hh-mm-ss.<extension>" at time `t`.
    static std::wstring dated_name(const std::wstring& folder, const std::wstring& prefix,
                                   const std::wstring& extension, const os::DateTime& t);
    std::wstring new_record_path(const std::wstring& default_folder) const;
    bool start_recording(std::unique_ptr<audio::RecordChain> chain, const std::wstring& path);
    // Makes the recorder and the chain in the format of `model`, writing
    // `target`; with `keep_marks` the target is continued and marked.
    bool prepare(const std::wstring& model, const std::wstring& target, bool keep_marks);
    bool record_into(const std::wstring& path, bool append);
    // Builds the target with the recording inserted beside it, then puts
    // it in the target's place.
    void merge_insert();
    // Links the new recorder and chain, beeps and starts capture; drops
    // both on failure.
    bool start_capture();
    void drop_recording();
    // Ends capture, drains the buffer into the chain and closes the file.
    bool stop_recording(skinner::Form* owner = nullptr);
    bool is_record_paused() const;
    void set_record_paused(bool paused);
    bool recording_healthy() const;
    void on_record_timer();
    // Marks how far the file being recorded has come, and saves the marks.
    bool add_record_bookmark();
    // Seconds that still fit on the volume of the file at the chain's bit
    // rate.
    double record_remaining_time() const;
    // The schedule side (document_schedule.cpp).
    // The running program's own wake-up came: as a start with "AppRunAtTime".
    void on_wakeup_due();
    // Whether the end of the scheduled recording under way has passed.
    bool stop_time_passed() const;

    static Document* instance_;

    std::vector<View*> views_;
    bool ranges_only_ = false;
    bool item_open_ = false;
    std::wstring playlist_name_;
    std::wstring title_;
    std::wstring record_path_;
    playlist::PlaylistEntry current_item_;
    std::vector<playlist::PlaylistEntry> items_;
    PlayOrder play_order_;
    RangeMarks bookmarks_;
    // Items that failed to open since the last one that opened: a whole
    // pass of them stops playing, so a list of bad files never spins.
    int failed_opens_ = 0;
    // The reader's position at the last tick on which the player had
    // finished its stream: a file cut short while playing never reaches the
    // length its header gives, so a stream that stays finished on a reader
    // that no longer moves ends the item as well.
    int32_t stalled_position_ = -1;
    int drain_ticks_ = 0;                // ticks at the end without a device callback
    std::uint64_t drain_callbacks_ = 0; // the device's callbacks at the last such tick

    // The play path, in the order of the data: the chain, the stages of
    // play_path, player. Members are destroyed in reverse, the player (and
    // its thread) first.
    PlayPath play_path_;
    audio::LevelMeter level_meter_;
    audio::PlayerPCM player_;
    std::unique_ptr<audio::PlayChain> play_chain_;

    // The record path, in the order of the data: the recorder, the fixed
    // stages from muter_ to active_buffer_, the chain. The recorder and the
    // chain exist while a recording runs; the fixed stages live as long as
    // the Document. A pause cuts the link behind level_meter_record_.
    audio::Muter muter_;
    audio::RecordLevelControl record_level_control_;
    audio::LevelMeterRecord level_meter_record_{kSilenceLimit, audio::RecorderPCM::kBlocksPerBuffer, kTickSeconds};
    audio::TimeMeter time_meter_;
    audio::ActiveBuffer active_buffer_;
    std::unique_ptr<audio::RecorderPCM> recorder_;
    std::unique_ptr<audio::RecordChain> record_chain_;
    // The file the recording goes into at stop; empty when none.
    std::wstring insert_target_;
    int32_t insert_position_ = 0;

    // The end of the scheduled recording under way; null when none.
    os::DateTime stop_time_;
    os::WakeUp wake_up_;

    std::wstring settings_path_;
    Settings settings_;
    ChangeFlags pending_changes_ = ChangeFlags::all();
};
