#include "app/settings.h"

#include "liba/text.h"
#include "os/file.h"
#include "os/log.h"
#include "os/path.h"
#include "os/xml_document.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <variant>

namespace {

// A value written as a keyword: "Mode" and "Sort".
struct KeywordField {
    int Settings::*field;
    const wchar_t* (*to_text)(int);
    int (*from_text)(const std::wstring&);
};

using Field = std::variant<std::wstring Settings::*, int Settings::*, double Settings::*, bool Settings::*,
                           KeywordField>;

// One attribute of the file and the field it fills.
struct Key {
    const wchar_t* section;
    const wchar_t* name;
    Field field;
};

constexpr KeywordField kModeField{&Settings::mode, &Settings::mode_keyword, &Settings::mode_from_keyword};
constexpr KeywordField kSortField{&Settings::sort, &Settings::sort_keyword, &Settings::sort_from_keyword};

// The sections in the order the file holds them; the hardware keys lead the
// "Buttons" section, the equalisers and the schedule follow the last of these.
constexpr const wchar_t* kSections[] = {L"Record", L"Play", L"Language", L"Buttons", L"FileExplorer", L"Skin"};

// Every plain key, in the order each section writes its attributes. A new key
// goes behind the last key of its section.
const Key kKeys[] = {
    {L"Record", L"Codec", &Settings::codec},
    {L"Record", L"Channels", &Settings::channels},
    {L"Record", L"Bits", &Settings::bits},
    {L"Record", L"Samples", &Settings::samples},
    {L"Record", L"Bitrate", &Settings::bitrate},
    {L"Record", L"DefaultFolder", &Settings::default_folder},
    {L"Record", L"Folder", &Settings::folder},
    {L"Record", L"DateFolder", &Settings::date_folder},
    {L"Record", L"Prefix", &Settings::prefix},
    {L"Record", L"IncludeDate", &Settings::include_date},
    {L"Record", L"TurnOff", &Settings::turn_off_record},
    {L"Record", L"VASOn", &Settings::vas_on},
    {L"Record", L"Vas", &Settings::vas},
    {L"Record", L"Input", &Settings::input},

    {L"Play", L"Volume", &Settings::volume},
    {L"Play", L"Mode", kModeField},
    {L"Play", L"TurnOff", &Settings::turn_off_play},
    {L"Play", L"AssociateMP3Cmd", &Settings::associate_mp3_cmd},
    {L"Play", L"AssociateWAVCmd", &Settings::associate_wav_cmd},
    {L"Play", L"AssociateM3UCmd", &Settings::associate_m3u_cmd},
    {L"Play", L"AssociateOGGCmd", &Settings::associate_ogg_cmd},
    {L"Play", L"AssociateWMACmd", &Settings::associate_wma_cmd},
    {L"Play", L"AssociateMP3Icon", &Settings::associate_mp3_icon},
    {L"Play", L"AssociateWAVIcon", &Settings::associate_wav_icon},
    {L"Play", L"AssociateM3UIcon", &Settings::associate_m3u_icon},
    {L"Play", L"AssociateOGGIcon", &Settings::associate_ogg_icon},
    {L"Play", L"AssociateWMAIcon", &Settings::associate_wma_icon},
    {L"Play", L"Booster", &Settings::booster},
    {L"Play", L"Noise", &Settings::noise},
    {L"Play", L"Limiter", &Settings::limiter},
    {L"Play", L"Speed", &Settings::speed},
    {L"Play", L"PitchLock", &Settings::pitch_lock},
    {L"Play", L"StretchAnySpeed", &Settings::stretch_any_speed},

    {L"Language", L"Language", &Settings::language},

    {L"Skin", L"Skin", &Settings::skin},

    {L"FileExplorer", L"ShowFolders", &Settings::show_folders},
    {L"FileExplorer", L"Folder", &Settings::explorer_folder},
    {L"FileExplorer", L"Sort", kSortField},

    {L"Buttons", L"UnmapWhenInactive", &Settings::unmap_when_inactive},
    {L"Buttons", L"JoyLeftAction", &Settings::joy_left_action},
    {L"Buttons", L"JoyRightAction", &Settings::joy_right_action},
};

constexpr const wchar_t* kModeKeywords[] = {L"SingleOnce", L"SingleRepeat", L"PlaylistOnce", L"PlaylistRepeat",
                                            L"PlaylistShuffle"};

// Value 4 has no keyword: a field holding it is not written.
struct SortKeyword {
    int value;
    const wchar_t* text;
};
constexpr SortKeyword kSortKeywords[] = {{0, L"NONE"}, {1, L"NAME"},      {2, L"DATE"},
                                         {3, L"SIZE"}, {5, L"DATE_DESC"}, {6, L"SIZE_DESC"}};

// A decimal number as "%f" writes it, with an exponent allowed; not "nan",
// "inf" or hexadecimal, which strtod would also take.
bool read_double(const os::XmlNode& node, const wchar_t* name, double& out)
{
    std::wstring text;
    if (!node.attribute(name, text))
        return false;
    for (wchar_t c : text)
        if (!((c >= L'0' && c <= L'9') || c == L'.' || c == L'-' || c == L'+' || c == L'e' || c == L'E'))
            return false;
    auto v = liba::text_to_double(text);
    if (!v || !std::isfinite(*v))
        return false;
    out = *v;
    return true;
}

// Six decimal numbers separated by blanks: year, month, day, hour, minute,
// second. The date must exist.
bool parse_date_time(const std::wstring& text, os::DateTime& out)
{
    int v[6];
    size_t pos = 0;
    for (int k = 0; k < 6; ++k) {
        size_t start = pos;
        while (pos < text.size() && text[pos] == L' ')
            ++pos;
        if (k > 0 && pos == start)
            return false;
        size_t digits = 0;
        long value = 0;
        for (; pos < text.size() && text[pos] >= L'0' && text[pos] <= L'9'; ++pos, ++digits)
            if (digits < 9)
                value = value * 10 + (text[pos] - L'0');
        if (digits == 0 || digits > 9)
            return false;
        v[k] = static_cast<int>(value);
    }
    while (pos < text.size() && text[pos] == L' ')
        ++pos;
    if (pos != text.size())
        return false;
    // The canonical form does the calendar checks.
    wchar_t canonical[96];
    std::swprintf(canonical, 96, L"%d %02d %02d %02d %02d %02d", v[0], v[1], v[2], v[3], v[4], v[5]);
    auto d = os::DateTime::from_text(canonical);
    if (!d)
        return false;
    out = *d;
    return true;
}

void read_date_time(const os::XmlNode& node, const wchar_t* name, os::DateTime& out)
{
    std::wstring text;
    if (node.attribute(name, text))
        parse_date_time(text, out);
}

void read_key(const os::XmlNode& node, const Key& key, Settings& s)
{
    std::visit(
        [&](auto field) {
            using F = decltype(field);
            if constexpr (std::is_same_v<F, KeywordField>) {
                std::wstring text;
                if (!node.attribute(key.name, text))
                    return;
                int value = field.from_text(text);
                if (value >= 0)
                    s.*field.field = value;
            } else if constexpr (std::is_same_v<F, double Settings::*>) {
                read_double(node, key.name, s.*field);
            } else {
                node.attribute(key.name, s.*field);
            }
        },
        key.field);
}

void write_key(os::XmlNode& node, const Key& key, const Settings& s)
{
    std::visit(
        [&](auto field) {
            using F = decltype(field);
            if constexpr (std::is_same_v<F, KeywordField>) {
                if (const wchar_t* text = field.to_text(s.*field.field))
                    node.set_attribute(key.name, std::wstring(text));
            } else {
                node.set_attribute(key.name, s.*field);
            }
        },
        key.field);
}

std::wstring button_key(int index) { return L"Button" + std::to_wstring(index); }

void read_equalizer(const os::XmlNode& node, EqualizerSettings& band)
{
    read_double(node, L"Frequency", band.frequency);
    read_double(node, L"Amplitude", band.amplitude);
    read_double(node, L"Width", band.width);
    node.attribute(L"Active", band.active);
}

void write_equalizer(os::XmlNode node, const EqualizerSettings& band)
{
    node.set_attribute(L"Frequency", band.frequency);
    node.set_attribute(L"Amplitude", band.amplitude);
    node.set_attribute(L"Width", band.width);
    node.set_attribute(L"Active", band.active);
}

// Only "Task" elements are tasks; anything else inside "Schedule" is ignored
// like any unknown element.
void read_schedule(const os::XmlNode& node, Schedule& schedule)
{
    Schedule tasks;
    int count = node.child_count();
    for (int i = 0; i < count; ++i) {
        os::XmlNode child = node.child_at(i);
        if (child.name() != L"Task")
            continue;
        ScheduleTask task;
        read_date_time(child, L"Begin", task.begin);
        read_date_time(child, L"End", task.end);
        tasks.append(task);
    }
    schedule = tasks;
}

// Moves a file that does not parse out of the way, so the save at shutdown
// does not destroy what the user may want to mend.
void keep_aside(const std::wstring& path, const std::wstring& error)
{
    std::wstring file = os::expand_path(path);
    std::wstring bad = file + L".bad";
    bool kept = std::rename(os::native_path(path).c_str(), os::native_path(bad).c_str()) == 0;
    os::log() << "settings: " << file << " does not parse (" << error << "); "
              << (kept ? L"kept as " + bad : std::wstring(L"can't move it aside")) << "; the defaults stand\n";
}

} // namespace

Settings::Settings()
    : folder(os::expand_path(L"%my_documents%")), buttons(kButtonCount),
      explorer_folder(os::expand_path(L"%my_documents%"))
{
    // The keyboard's media keys come first among the buttons and do what
    // their symbols say until the user gives them something else.
    const wchar_t* const media_keys[] = {L"Play",   L"Stop",    L"Prev",     L"Next",
                                         L"Rewind", L"Forward", L"VolumeUp", L"VolumeDown"};
    std::copy(std::begin(media_keys), std::end(media_keys), buttons.begin());
}

const wchar_t* Settings::mode_keyword(int mode)
{
    if (mode < 0 || mode >= static_cast<int>(std::size(kModeKeywords)))
        return nullptr;
    return kModeKeywords[mode];
}

int Settings::mode_from_keyword(const std::wstring& text)
{
    for (size_t i = 0; i < std::size(kModeKeywords); ++i)
        if (text == kModeKeywords[i])
            return static_cast<int>(i);
    return -1;
}

const wchar_t* Settings::sort_keyword(int sort)
{
    for (const SortKeyword& k : kSortKeywords)
        if (k.value == sort)
            return k.text;
    return nullptr;
}

int Settings::sort_from_keyword(const std::wstring& text)
{
    for (const SortKeyword& k : kSortKeywords)
        if (text == k.text)
            return k.value;
    return -1;
}

void Settings::load_from(const os::XmlDocument& doc)
{
    os::XmlNode root = doc.root().child(L"Settings");
    if (!root)
        return;
    for (const Key& key : kKeys) {
        os::XmlNode section = root.child(key.section);
        if (section)
            read_key(section, key, *this);
    }
    if (os::XmlNode node = root.child(L"Buttons")) {
        // Only this device's keys: a file from one with more loses the rest.
        for (int i = 0; i < static_cast<int>(buttons.size()); ++i)
            node.attribute(button_key(i), buttons[static_cast<size_t>(i)]);
    }
    read_equalizer(root.child(L"Equalizer1"), equalizer1);
    read_equalizer(root.child(L"Equalizer2"), equalizer2);
    read_equalizer(root.child(L"Equalizer3"), equalizer3);
    if (os::XmlNode node = root.child(L"Schedule"))
        read_schedule(node, schedule);
}

void Settings::save_to(os::XmlDocument& doc) const
{
    doc.create();
    os::XmlNode root = doc.root().add_child(L"Settings");
    for (const wchar_t* name : kSections) {
        os::XmlNode section = root.add_child(name);
        if (std::wstring(name) == L"Buttons")
            for (int i = 0; i < static_cast<int>(buttons.size()); ++i)
                section.set_attribute(button_key(i), buttons[static_cast<size_t>(i)]);
        for (const Key& key : kKeys)
            if (std::wstring(key.section) == name)
                write_key(section, key, *this);
    }
    write_equalizer(root.add_child(L"Equalizer1"), equalizer1);
    write_equalizer(root.add_child(L"Equalizer2"), equalizer2);
    write_equalizer(root.add_child(L"Equalizer3"), equalizer3);
    os::XmlNode node = root.add_child(L"Schedule");
    for (const ScheduleTask& task : schedule.tasks()) {
        os::XmlNode child = node.add_child(L"Task");
        child.set_attribute(L"Begin", task.begin.to_text());
        child.set_attribute(L"End", task.end.to_text());
    }
}

bool Settings::load(const std::wstring& path)
{
    std::string bytes;
    if (!os::read_whole_file(path, bytes)) {
        if (os::FileAttributes(path).exists())
            os::log() << "settings: can't read " << os::expand_path(path) << "; the defaults stand\n";
        return false;
    }
    os::XmlDocument doc;
    std::wstring error;
    if (!doc.load_bytes(bytes, &error)) {
        keep_aside(path, error);
        return false;
    }
    load_from(doc);
    return true;
}

bool Settings::save(const std::wstring& path) const
{
    os::XmlDocument doc;
    save_to(doc);
    return doc.save(path);
}

void Settings::language_file(std::wstring& out) const
{
    std::wstring beside_program = L"%app_path%/" + language + L".lng";
    std::wstring users_own = L"%app_data%/" + language + L".lng";
    out = !os::FileAttributes(beside_program).exists() && os::FileAttributes(users_own).exists() ? users_own
                                                                                                   : beside_program;
}
