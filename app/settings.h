#pragma once

#include "app/schedule.h"

#include <string>
#include <vector>

namespace os {
class XmlDocument;
}

// The settings file of the program, in the folder of the user's own files.
inline constexpr const wchar_t* kSettingsPath = L"%app_data%/Quillaphonics.xml";

// One band of an equaliser. Frequency in Hz, amplitude and width in the
// equaliser's own units (Document hands them on unchanged).
struct EqualizerSettings {
    double frequency = 200.0;
    double amplitude = 0.0;
    double width = 0.0;
    bool active = false;

    bool operator==(const EqualizerSettings&) const = default;
};

// All user settings: a plain record with its defaults built in, and its XML
// file ("Settings", one element per section, every value an attribute).
// Loading overlays what the file has; saving writes every key. Paths are kept
// unexpanded. Volumes and levels are 0..1, speed is a factor, times are
// seconds, rates are per second.
// Threads: main thread only; workers get copies of single values.
// Copy and assignment copy the whole record, buttons and schedule included.
class Settings {
public:
    // Hardware keys of the platform: "Button0" to "Button11".
    static constexpr int kButtonCount = 12;

    Settings();

    // Overlays the file at `path` on this record. A missing file leaves the
    // record alone; one that can't be read or does not parse also does, and
    // is logged; one that does not parse is moved aside to "<path>.bad" so the
    // next save does not destroy it. Returns whether the file's values were
    // taken; the record is usable either way.
    bool load(const std::wstring& path);
    // Writes the file anew and whole (temporary file renamed over the old
    // one); false when that failed.
    bool save(const std::wstring& path) const;

    // The same on a document in memory: overlay what it has; fill an empty one.
    void load_from(const os::XmlDocument& doc);
    void save_to(os::XmlDocument& doc) const;

    // The language file of `language`: "%app_path%/<stem>.lng", or the one in
    // "%app_data%" when only that exists. Unexpanded.
    void language_file(std::wstring& out) const;

    // Keywords of the "Mode" and "Sort" values; nullptr for a value without
    // one. The reverse gives -1 for text that is not a keyword (exact match).
    static const wchar_t* mode_keyword(int mode);
    static int mode_from_keyword(const std::wstring& text);
    static const wchar_t* sort_keyword(int sort);
    static int sort_from_keyword(const std::wstring& text);

    bool operator==(const Settings&) const = default;

    // Record: the format of a recording and where it goes.
    int channels = 1;
    int bits = 16;
    int samples = 22050;
    int bitrate = 32000;
    std::wstring codec = L"mp3"; // "PCM", "ADPCM", "GSM" or "mp3"
    bool default_folder = false; // always record into `folder`
    std::wstring folder;         // default: the documents folder, expanded
    bool date_folder = false;
    std::wstring prefix;
    bool include_date = false;
    int turn_off_record = 0; // seconds of idle before the screen goes dark; 0 never
    // Play.
    double volume = 1.0;
    int mode = 0; // playback mode 0..4, see mode_keyword
    int turn_off_play = 0;
    // What the file associations replaced, to give it back.
    std::wstring associate_mp3_cmd;
    std::wstring associate_wav_cmd;
    std::wstring associate_m3u_cmd;
    std::wstring associate_ogg_cmd;
    std::wstring associate_wma_cmd;
    std::wstring associate_mp3_icon;
    std::wstring associate_wav_icon;
    std::wstring associate_m3u_icon;
    std::wstring associate_ogg_icon;
    std::wstring associate_wma_icon;
    // Voice activation and levels.
    bool vas_on = false;
    bool monitor = true; // kept in the record, never in the file
    double vas = 0.5;
    double input = 0.5;
    // Buttons: the command of each hardware key, then the joystick.
    std::vector<std::wstring> buttons;
    bool unmap_when_inactive = true;
    std::wstring joy_left_action = L"Rewind";
    std::wstring joy_right_action = L"Forward";
    EqualizerSettings equalizer1{200.0};
    EqualizerSettings equalizer2{400.0};
    EqualizerSettings equalizer3{800.0};
    // FileExplorer.
    bool show_folders = true;
    std::wstring explorer_folder; // default: the documents folder, expanded
    int sort = 1;                 // see sort_keyword
    // Play, continued.
    double speed = 1.0;
    bool pitch_lock = false;
    // With the pitch held, any speed 0.5..2.0 (time stretch) instead of
    // normal and half speed only.
    bool stretch_any_speed = false;
    // Recording spans, sorted by begin; kept in file order when loaded.
    Schedule schedule;
    int booster = 0; // level filter indexes 0..3
    int noise = 0;
    int limiter = 0;
    std::wstring language = L"English"; // stem of the language file
    std::wstring skin = L"%app_path%/skins/Default/Default.skin";
};
