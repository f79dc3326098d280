#include "app/mpris_player.h"

#include "files/id3_tag.h"
#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cctype>
#include <cmath>

namespace {

constexpr const char* kName = "org.mpris.MediaPlayer2.quillaphonics";
constexpr const char* kPath = "/org/mpris/MediaPlayer2";
constexpr const char* kRoot = "org.mpris.MediaPlayer2";
constexpr const char* kPlayer = "org.mpris.MediaPlayer2.Player";
constexpr const char* kNoTrack = "/org/mpris/MediaPlayer2/TrackList/NoTrack";

MprisPlayer& me(void* userdata)
{
    return *static_cast<MprisPlayer*>(userdata);
}

#define QUILL_GETTER(name) \
    int name(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* u, sd_bus_error*)
#define QUILL_SETTER(name) \
    int name(sd_bus*, const char*, const char*, const char*, sd_bus_message* value, void* u, sd_bus_error*)

QUILL_GETTER(get_true)
{
    (void)u;
    return sd_bus_message_append(reply, "b", 1);
}

QUILL_GETTER(get_false)
{
    (void)u;
    return sd_bus_message_append(reply, "b", 0);
}

// --- org.mpris.MediaPlayer2 ---

int raise(sd_bus_message* m, void* u, sd_bus_error*)
{
    me(u).raise();
    return sd_bus_reply_method_return(m, nullptr);
}

int quit(sd_bus_message* m, void* u, sd_bus_error*)
{
    me(u).command(L"Exit");
    return sd_bus_reply_method_return(m, nullptr);
}

int get_uri_schemes(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*)
{
    const char* schemes[] = {"file", nullptr};
    return sd_bus_message_append_strv(reply, const_cast<char**>(schemes));
}

int get_mime_types(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*)
{
    const char* types[] = {"audio/mpeg", "audio/x-wav", "audio/ogg", "audio/x-musepack", "audio/x-ms-wma",
                           "audio/x-mpegurl", "video/x-ms-asf", nullptr};
    return sd_bus_message_append_strv(reply, const_cast<char**>(types));
}

const sd_bus_vtable kRootTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Raise", "", "", raise, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Quit", "", "", quit, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("Identity", "s", [](sd_bus*, const char*, const char*, const char*, sd_bus_message* r, void*,
                                        sd_bus_error*) { return sd_bus_message_append(r, "s", "Quillaphonics"); },
                    0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("CanQuit", "b", get_true, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("CanRaise", "b", get_true, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("HasTrackList", "b", get_false, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("SupportedUriSchemes", "as", get_uri_schemes, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("SupportedMimeTypes", "as", get_mime_types, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END,
};

// --- org.mpris.MediaPlayer2.Player ---

// "%20" and the like back to bytes; a stray "%" stays as it is.
std::string percent_decoded(const std::string& text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() + 0 && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

Document& doc(void* u)
{
    return me(u).document();
}

// Views hear at once what a method did, as after a command of the window.
int reply(sd_bus_message* m, void* u)
{
    doc(u).notify_views();
    return sd_bus_reply_method_return(m, nullptr);
}

// The window's commands tell the views themselves.
template <int (*Act)(MprisPlayer&)>
int by_command(sd_bus_message* m, void* u, sd_bus_error*)
{
    Act(me(u));
    return sd_bus_reply_method_return(m, nullptr);
}

int next(MprisPlayer& p) { return p.command(L"Next"); }
int previous(MprisPlayer& p) { return p.command(L"Prev"); }
int stop(MprisPlayer& p) { return p.command(L"Stop"); }
int pause(MprisPlayer& p) { return p.pause(), 1; }
int play_pause(MprisPlayer& p) { return p.play_pause(), 1; }
int play(MprisPlayer& p) { return p.play(), 1; }

int seek(sd_bus_message* m, void* u, sd_bus_error*)
{
    int64_t offset = 0;
    int r = sd_bus_message_read(m, "x", &offset);
    if (r < 0)
        return r;
    if (doc(u).is_playing() && !doc(u).is_recording())
        me(u).seek_to(std::max<int64_t>(0, me(u).position_us() + offset));
    return reply(m, u);
}

int set_position(sd_bus_message* m, void* u, sd_bus_error*)
{
    const char* track = nullptr;
    int64_t us = 0;
    int r = sd_bus_message_read(m, "ox", &track, &us);
    if (r < 0)
        return r;
    // A stale track or a position before the start is ignored.
    if (us >= 0 && me(u).track_id() == track && doc(u).is_playing() && !doc(u).is_recording())
        me(u).seek_to(us);
    return reply(m, u);
}

int open_uri(sd_bus_message* m, void* u, sd_bus_error* error)
{
    const char* uri = nullptr;
    int r = sd_bus_message_read(m, "s", &uri);
    if (r < 0)
        return r;
    std::string text = uri;
    const std::string scheme = "file://";
    if (text.compare(0, scheme.size(), scheme) != 0)
        return sd_bus_error_set(error, SD_BUS_ERROR_NOT_SUPPORTED, "only file:// addresses play here");
    std::wstring file = liba::from_utf8(percent_decoded(text.substr(scheme.size())));
    if (!doc(u).play_file(file))
        return sd_bus_error_set(error, SD_BUS_ERROR_FAILED, "the file doesn't play");
    return reply(m, u);
}

// Reads the new value of a property of `type`, hands it to `apply` and tells
// the views, as a command of the window would.
template <typename T, typename Apply>
int set_from(sd_bus_message* value, void* u, const char* type, Apply apply)
{
    T v{};
    int r = sd_bus_message_read(value, type, &v);
    if (r < 0)
        return r;
    apply(doc(u), v);
    doc(u).notify_views(ChangeFlags::all());
    return 0;
}

QUILL_GETTER(get_status)
{
    Document& d = doc(u);
    const char* status = !d.is_playing() && !d.is_recording() ? "Stopped" : d.is_paused() ? "Paused" : "Playing";
    return sd_bus_message_append(reply, "s", status);
}

QUILL_GETTER(get_loop)
{
    int mode = doc(u).play_mode();
    const char* loop = mode == 1 ? "Track" : mode >= 3 ? "Playlist" : "None";
    return sd_bus_message_append(reply, "s", loop);
}

QUILL_SETTER(set_loop)
{
    return set_from<const char*>(value, u, "s", [](Document& d, std::string l) {
        d.set_play_mode(l == "Track" ? 1 : l == "Playlist" ? 3 : 2);
    });
}

QUILL_GETTER(get_shuffle)
{
    return sd_bus_message_append(reply, "b", doc(u).play_mode() == 4);
}

QUILL_SETTER(set_shuffle)
{
    return set_from<int>(value, u, "b", [](Document& d, int on) { d.set_play_mode(on ? 4 : 3); });
}

QUILL_GETTER(get_rate)
{
    return sd_bus_message_append(reply, "d", doc(u).speed());
}

QUILL_SETTER(set_rate)
{
    return set_from<double>(value, u, "d", [](Document& d, double rate) {
        if (rate > 0)
            d.set_speed(std::clamp(rate, 0.5, 2.0), d.pitch_lock());
    });
}

QUILL_GETTER(get_volume)
{
    return sd_bus_message_append(reply, "d", doc(u).volume());
}

QUILL_SETTER(set_volume)
{
    return set_from<double>(value, u, "d", [](Document& d, double v) { d.set_volume(std::clamp(v, 0.0, 1.0)); });
}

QUILL_GETTER(get_position)
{
    return sd_bus_message_append(reply, "x", me(u).position_us());
}

QUILL_GETTER(get_min_rate)
{
    (void)u;
    return sd_bus_message_append(reply, "d", 0.5);
}

QUILL_GETTER(get_max_rate)
{
    (void)u;
    return sd_bus_message_append(reply, "d", 2.0);
}

QUILL_GETTER(get_can_go)
{
    return sd_bus_message_append(reply, "b", doc(u).item_count() > 0);
}

QUILL_GETTER(get_can_seek)
{
    return sd_bus_message_append(reply, "b", doc(u).is_playing() && !doc(u).is_recording());
}

int append_entry(sd_bus_message* reply, const char* key, const char* type, const void* value, bool array)
{
    int r = sd_bus_message_open_container(reply, 'e', "sv");
    if (r >= 0)
        r = sd_bus_message_append(reply, "s", key);
    if (r >= 0)
        r = sd_bus_message_open_container(reply, 'v', type);
    if (r >= 0 && array) {
        const char* list[] = {static_cast<const char*>(value), nullptr};
        r = sd_bus_message_append_strv(reply, const_cast<char**>(list));
    } else if (r >= 0 && type[0] == 'x') {
        r = sd_bus_message_append(reply, "x", *static_cast<const int64_t*>(value));
    } else if (r >= 0) {
        r = sd_bus_message_append(reply, type, static_cast<const char*>(value));
    }
    if (r >= 0)
        r = sd_bus_message_close_container(reply);
    if (r >= 0)
        r = sd_bus_message_close_container(reply);
    return r;
}

QUILL_GETTER(get_metadata)
{
    Document& d = doc(u);
    int r = sd_bus_message_open_container(reply, 'a', "{sv}");
    if (r < 0)
        return r;
    std::string id = me(u).track_id();
    r = append_entry(reply, "mpris:trackid", "o", id.c_str(), false);
    if (r >= 0 && d.is_playing() && !d.is_recording()) {
        int64_t length = std::llround((d.time_position() + d.remaining_time()) * 1e6);
        r = append_entry(reply, "mpris:length", "x", &length, false);
        Id3Tag tag;
        tag.read(d.current_path());
        std::string title = liba::to_utf8(tag.title.empty() ? os::file_name_of(d.current_path()) : tag.title);
        if (r >= 0)
            r = append_entry(reply, "xesam:title", "s", title.c_str(), false);
        std::string artist = liba::to_utf8(tag.artist);
        if (r >= 0 && !artist.empty())
            r = append_entry(reply, "xesam:artist", "as", artist.c_str(), true);
        std::string url = "file://" + liba::to_utf8(d.current_path());
        if (r >= 0)
            r = append_entry(reply, "xesam:url", "s", url.c_str(), false);
    }
    if (r >= 0)
        r = sd_bus_message_close_container(reply);
    return r;
}

const sd_bus_vtable kPlayerTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Next", "", "", by_command<next>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Previous", "", "", by_command<previous>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Pause", "", "", by_command<pause>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("PlayPause", "", "", by_command<play_pause>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Stop", "", "", by_command<stop>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Play", "", "", by_command<play>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Seek", "x", "", seek, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("SetPosition", "ox", "", set_position, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("OpenUri", "s", "", open_uri, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("Seeked", "x", 0),
    SD_BUS_PROPERTY("PlaybackStatus", "s", get_status, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_WRITABLE_PROPERTY("LoopStatus", "s", get_loop, set_loop, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_WRITABLE_PROPERTY("Shuffle", "b", get_shuffle, set_shuffle, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_WRITABLE_PROPERTY("Rate", "d", get_rate, set_rate, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_WRITABLE_PROPERTY("Volume", "d", get_volume, set_volume, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("Metadata", "a{sv}", get_metadata, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("Position", "x", get_position, 0, 0),
    SD_BUS_PROPERTY("MinimumRate", "d", get_min_rate, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("MaximumRate", "d", get_max_rate, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("CanGoNext", "b", get_can_go, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("CanGoPrevious", "b", get_can_go, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("CanPlay", "b", get_true, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("CanPause", "b", get_true, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("CanSeek", "b", get_can_seek, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("CanControl", "b", get_true, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END,
};

} // namespace

MprisPlayer::MprisPlayer(Document& document, Command command, std::function<void()> raise)
    : document_(document), command_(std::move(command)), raise_(std::move(raise))
{
}

MprisPlayer::~MprisPlayer()
{
    stop();
}

bool MprisPlayer::publish()
{
    if (!bus_.open())
        return false;
    if (sd_bus_add_object_vtable(bus_.bus(), &root_slot_, kPath, kRoot, kRootTable, this) < 0 ||
        sd_bus_add_object_vtable(bus_.bus(), &player_slot_, kPath, kPlayer, kPlayerTable, this) < 0 ||
        !bus_.request_name(kName)) {
        stop();
        return false;
    }
    bus_.start();
    return true;
}

void MprisPlayer::stop()
{
    root_slot_ = sd_bus_slot_unref(root_slot_);
    player_slot_ = sd_bus_slot_unref(player_slot_);
    bus_.stop();
}

std::string MprisPlayer::track_id() const
{
    if (track_path_.empty())
        return kNoTrack;
    return "/org/quillaphonics/track/" + std::to_string(track_number_);
}

int64_t MprisPlayer::position_us() const
{
    return std::llround(document_.time_position() * 1e6);
}

void MprisPlayer::seek_to(int64_t us)
{
    double length = document_.time_position() + document_.remaining_time();
    if (length <= 0)
        return;
    document_.seek_fraction(std::clamp(us / 1e6 / length, 0.0, 1.0));
    // Told here, so the views' next round does not take it for a seek from
    // elsewhere.
    last_time_ = document_.time_position();
    sd_bus_emit_signal(bus_.bus(), kPath, kPlayer, "Seeked", "x", position_us());
    sd_bus_flush(bus_.bus());
}

void MprisPlayer::play_pause()
{
    command(document_.is_recording() ? L"Record" : L"Play");
}

void MprisPlayer::play()
{
    if (document_.is_paused() || (!document_.is_playing() && !document_.is_recording()))
        play_pause();
}

void MprisPlayer::pause()
{
    if ((document_.is_playing() || document_.is_recording()) && !document_.is_paused())
        play_pause();
}

void MprisPlayer::on_document_changed(const ChangeFlags& changes)
{
    if (!bus_.bus())
        return;
    if (document_.current_path() != track_path_) {
        track_path_ = document_.current_path();
        last_time_ = document_.time_position();
        ++track_number_;
        emit_changed(kPlayer, {"Metadata", "CanSeek", "CanGoNext", "CanGoPrevious"});
    }
    if (changes.state || changes.general)
        emit_changed(kPlayer, {"PlaybackStatus", "LoopStatus", "Shuffle", "Rate", "CanSeek"});
    if (changes.volume)
        emit_changed(kPlayer, {"Volume"});
    if (changes.position) {
        // Ticks come five times a second: a move of more than a second from
        // where the last one stood is a seek from elsewhere.
        double now = document_.time_position();
        if (document_.is_playing() && std::fabs(now - last_time_) > 1.0)
            sd_bus_emit_signal(bus_.bus(), kPath, kPlayer, "Seeked", "x", position_us());
        last_time_ = now;
    }
    sd_bus_flush(bus_.bus());
}

void MprisPlayer::emit_changed(const char* interface, const std::vector<const char*>& names)
{
    std::vector<char*> list;
    for (const char* n : names)
        list.push_back(const_cast<char*>(n));
    list.push_back(nullptr);
    sd_bus_emit_properties_changed_strv(bus_.bus(), kPath, interface, list.data());
}
