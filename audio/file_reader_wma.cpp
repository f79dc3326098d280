#include "audio/file_reader_wma.h"

#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"

#include <gst/gst.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <mutex>

namespace audio {

struct FileReaderWMA::Service {
    GstElement* playbin = nullptr;
    GstBus* bus = nullptr;
    bool ended = false; // end of stream seen on the bus since the last seek
    bool error = false;
};

namespace {

// Readers alive in the process; only the first one plays.
std::atomic<int> alive{0};
// Whether readers may start the service at all.
std::atomic<bool> service_allowed{true};

std::atomic<int> load_timeout_ms{FileReaderWMA::kLoadTimeoutMs};

std::mutex sink_mutex;
std::string sink_description;

// GStreamer starts on the first Windows Media file, not at program start.
void start_gstreamer()
{
    static std::once_flag once;
    std::call_once(once, [] { gst_init(nullptr, nullptr); });
}

// How long a seek may take before the position is asked for anyway.
constexpr GstClockTime kSeekWaitMs = 2000;

// The playbin's flag for audio only: a file with video shows none.
constexpr int kPlayFlagAudio = 1 << 1;

std::string error_text(GstMessage* message)
{
    GError* error = nullptr;
    gchar* debug = nullptr;
    gst_message_parse_error(message, &error, &debug);
    std::string text = error != nullptr ? error->message : "unknown error";
    if (debug != nullptr)
        text += std::string(" (") + debug + ")";
    g_clear_error(&error);
    g_free(debug);
    return text;
}

// An error by which the service says it can't read the file or can't tell
// what it is: the file is refused rather than loaded to fail later.
bool is_unknown_type(GstMessage* message)
{
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    const bool unknown =
        error != nullptr &&
        ((error->domain == GST_STREAM_ERROR &&
          (error->code == GST_STREAM_ERROR_TYPE_NOT_FOUND || error->code == GST_STREAM_ERROR_WRONG_TYPE)) ||
         (error->domain == GST_RESOURCE_ERROR &&
          (error->code == GST_RESOURCE_ERROR_NOT_FOUND || error->code == GST_RESOURCE_ERROR_OPEN_READ)));
    g_clear_error(&error);
    return unknown;
}

std::int32_t tag_bitrate(GstElement* playbin)
{
    GstTagList* tags = nullptr;
    g_signal_emit_by_name(playbin, "get-audio-tags", 0, &tags);
    if (tags == nullptr)
        return 0;
    guint rate = 0;
    if (!gst_tag_list_get_uint(tags, GST_TAG_BITRATE, &rate))
        gst_tag_list_get_uint(tags, GST_TAG_NOMINAL_BITRATE, &rate);
    gst_tag_list_unref(tags);
    return static_cast<std::int32_t>(std::min<guint>(rate, INT32_MAX));
}

void close_service(FileReaderWMA::Service* s)
{
    gst_element_set_state(s->playbin, GST_STATE_NULL);
    gst_object_unref(s->bus);
    gst_object_unref(s->playbin);
    delete s;
}

} // namespace

void FileReaderWMA::set_audio_sink(const std::string& description)
{
    std::lock_guard<std::mutex> held(sink_mutex);
    sink_description = description;
}

void FileReaderWMA::set_load_timeout_ms(int ms) { load_timeout_ms.store(ms); }

void FileReaderWMA::set_service_allowed(bool allowed) { service_allowed.store(allowed); }

FileReaderWMA::FileReaderWMA(const std::wstring& path)
{
    if (!service_allowed.load()) {
        alive.fetch_add(1);
        return;
    }
    if (alive.fetch_add(1) != 0) {
        os::log() << L"wma: another Windows Media file is open; " << path << L" stays closed\n";
        return;
    }
    start_gstreamer();
    GstElement* playbin = gst_element_factory_make("playbin", nullptr);
    if (playbin == nullptr) {
        os::log() << L"wma: the media service has no playbin\n";
        return;
    }
    auto* s = new Service;
    s->playbin = playbin;
    s->bus = gst_element_get_bus(playbin);
    {
        std::lock_guard<std::mutex> held(sink_mutex);
        if (!sink_description.empty()) {
            GError* error = nullptr;
            GstElement* sink = gst_parse_bin_from_description(sink_description.c_str(), TRUE, &error);
            if (sink != nullptr)
                g_object_set(playbin, "audio-sink", sink, nullptr);
            else
                os::log() << L"wma: audio sink \"" << liba::from_utf8(sink_description) << L"\" not made\n";
            g_clear_error(&error);
        }
    }
    const std::string native = os::native_path(path);
    gchar* uri = gst_filename_to_uri(native.c_str(), nullptr);
    if (uri == nullptr) {
        close_service(s);
        return;
    }
    g_object_set(playbin, "uri", uri, "flags", kPlayFlagAudio, nullptr);
    g_free(uri);

    os::log() << L"wma: begin waiting for the media service to load " << path << L"\n";
    // Paused at the start: the document starts it when it wants.
    bool answered = false;
    bool refused = false;
    // A failed state change posts its error on the bus, which the wait reads.
    gst_element_set_state(playbin, GST_STATE_PAUSED);
    const int timeout_ms = load_timeout_ms.load();
    const gint64 deadline = g_get_monotonic_time() + gint64(timeout_ms) * 1000;
    while (!answered) {
        const gint64 left = deadline - g_get_monotonic_time();
        if (left <= 0)
            break;
        GstMessage* message = gst_bus_timed_pop_filtered(
            s->bus, static_cast<GstClockTime>(left) * 1000,
            static_cast<GstMessageType>(GST_MESSAGE_ASYNC_DONE | GST_MESSAGE_ERROR));
        if (message == nullptr)
            break;
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
            os::log() << L"wma: " << liba::from_utf8(error_text(message)) << L"\n";
            s->error = true;
            refused = is_unknown_type(message);
        }
        answered = true;
        gst_message_unref(message);
    }
    os::log() << L"wma: end waiting for the media service\n";
    if (!answered || refused) {
        if (!answered)
            os::log() << L"wma: no answer within " << timeout_ms << L" ms for " << path << L"\n";
        close_service(s);
        return;
    }
    // The service prerolls pictures and silent videos as well: without a
    // sound stream the file is none of ours.
    gint sound_streams = 0;
    g_object_get(playbin, "n-audio", &sound_streams, nullptr);
    if (!s->error && sound_streams == 0) {
        os::log() << L"wma: no sound in " << path << L"\n";
        close_service(s);
        return;
    }
    service = s;
    is_valid = true;
    if (!s->error)
        bitrate = tag_bitrate(playbin);
}

FileReaderWMA::~FileReaderWMA()
{
    if (service != nullptr)
        close_service(service);
    alive.fetch_sub(1);
}

void FileReaderWMA::get_data(PCMData& out, int)
{
    liba::Lock held(lock);
    out = PCMData();
}

std::int32_t FileReaderWMA::seconds_to_position(double seconds)
{
    const double p = std::trunc(seconds * 1000.0);
    return static_cast<std::int32_t>(std::clamp(p, double(INT32_MIN), double(INT32_MAX)));
}

void FileReaderWMA::poll_bus()
{
    while (GstMessage* message = gst_bus_pop_filtered(
               service->bus, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR))) {
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
            service->ended = true;
        } else {
            os::log() << L"wma: " << liba::from_utf8(error_text(message)) << L"\n";
            service->error = true;
        }
        gst_message_unref(message);
    }
}

int FileReaderWMA::get_play_state()
{
    liba::Lock held(lock);
    if (service == nullptr)
        return 0;
    poll_bus();
    if (service->ended || service->error)
        return 0;
    GstState state = GST_STATE_NULL;
    GstState pending = GST_STATE_VOID_PENDING;
    gst_element_get_state(service->playbin, &state, &pending, 0);
    // A change under way counts as done: the state asked for is the one
    // the program acts on.
    if (pending != GST_STATE_VOID_PENDING)
        state = pending;
    return state == GST_STATE_PLAYING ? 2 : state == GST_STATE_PAUSED ? 1 : 0;
}

bool FileReaderWMA::has_error()
{
    liba::Lock held(lock);
    if (service == nullptr)
        return false;
    poll_bus();
    return service->error;
}

std::int32_t FileReaderWMA::get_length()
{
    liba::Lock held(lock);
    gint64 duration = 0;
    if (service == nullptr || !gst_element_query_duration(service->playbin, GST_FORMAT_TIME, &duration) ||
        duration < 0)
        return 0;
    return static_cast<std::int32_t>(std::min<gint64>(duration / GST_MSECOND, INT32_MAX));
}

std::int32_t FileReaderWMA::get_position()
{
    liba::Lock held(lock);
    if (service == nullptr)
        return 0;
    const int state = get_play_state();
    if (last_state == 2 && state == 0)
        return get_length();
    last_state = state;
    gint64 at = 0;
    if (!gst_element_query_position(service->playbin, GST_FORMAT_TIME, &at) || at < 0)
        return 0;
    return static_cast<std::int32_t>(std::min<gint64>(at / GST_MSECOND, INT32_MAX));
}

void FileReaderWMA::set_position(std::int32_t position)
{
    liba::Lock held(lock);
    if (service == nullptr)
        return;
    poll_bus();
    service->ended = false;
    last_state = 0;
    const gint64 at = gint64(std::max(position, 0)) * GST_MSECOND;
    gst_element_seek_simple(service->playbin, GST_FORMAT_TIME,
                            static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE), at);
    // The seek completes as the pipeline prerolls again; positions asked
    // for before that would still be the old ones.
    gst_element_get_state(service->playbin, nullptr, nullptr, kSeekWaitMs * GST_MSECOND);
}

void FileReaderWMA::set_paused(bool on)
{
    liba::Lock held(lock);
    if (service == nullptr)
        return;
    gst_element_set_state(service->playbin, on ? GST_STATE_PAUSED : GST_STATE_PLAYING);
}

} // namespace audio

#if defined(__has_feature)
#if __has_feature(address_sanitizer) && !defined(__SANITIZE_ADDRESS__)
#define __SANITIZE_ADDRESS__ 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
// GLib keeps its old quark table on purpose when GStreamer makes it grow
// (readers take it without a lock); the leak checker is told so.
extern "C" const char* __lsan_default_suppressions()
{
    // GLib keeps its old quark table on purpose; gst-libav's FFmpeg keeps
    // packet side data of streams it gave up on; on a display, SDL's bus
    // connection keeps libdbus's read buffer. None is ours to free.
    return "leak:libglib-2.0.so\nleak:libavcodec.so\nleak:libavutil.so\nleak:libavformat.so\n"
           "leak:libdbus-1.so\n";
}
#endif
