#include "audio/media_service_samples.h"

#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"

#include <gst/gst.h>

#include <atomic>
#include <mutex>

namespace audio {

struct MediaServiceSamples::Service {
    GstElement* playbin = nullptr;
    GstElement* sink = nullptr; // the appsink inside the playbin's audio sink
    GstBus* bus = nullptr;
};

namespace {

void start_gstreamer()
{
    static std::once_flag once;
    std::call_once(once, [] { gst_init(nullptr, nullptr); });
}

// The playbin's flag for audio only: video and subtitles are not decoded.
constexpr int kPlayFlagAudio = 1 << 1;

// How long one wait for a block may take before the bus is looked at.
constexpr GstClockTime kPullWaitMs = 100;

// With no answer for this long the service has stalled (milliseconds).
std::atomic<int> patience_ms{MediaServiceSamples::kPatienceMs};

// No rate or channel count: the stream's own pass through unchanged.
constexpr const char* kSinkDescription =
    "audioconvert dithering=none noise-shaping=none ! appsink name=samples sync=false max-buffers=16 "
    "caps=audio/x-raw,format=S16LE,layout=interleaved";

void close_service(MediaServiceSamples::Service* s)
{
    gst_element_set_state(s->playbin, GST_STATE_NULL);
    if (s->sink != nullptr)
        gst_object_unref(s->sink);
    gst_object_unref(s->bus);
    gst_object_unref(s->playbin);
    delete s;
}

std::string message_text(GstMessage* message)
{
    GError* error = nullptr;
    gchar* debug = nullptr;
    gst_message_parse_error(message, &error, &debug);
    std::string text = error != nullptr ? error->message : "unknown error";
    if (debug != nullptr)
        os::log() << L"media service: " << liba::from_utf8(debug) << L"\n";
    g_clear_error(&error);
    g_free(debug);
    return text;
}

} // namespace

void MediaServiceSamples::set_patience_ms(int ms) { patience_ms.store(ms); }

MediaServiceSamples::MediaServiceSamples(const std::wstring& path)
{
    start_gstreamer();
    GstElement* playbin = gst_element_factory_make("playbin", nullptr);
    if (playbin == nullptr) {
        error_text = "the media service has no playbin";
        return;
    }
    auto* s = new Service;
    s->playbin = playbin;
    s->bus = gst_element_get_bus(playbin);
    GError* parse_error = nullptr;
    GstElement* bin = gst_parse_bin_from_description(kSinkDescription, TRUE, &parse_error);
    g_clear_error(&parse_error);
    const std::string native = os::native_path(path);
    gchar* uri = gst_filename_to_uri(native.c_str(), nullptr);
    if (bin == nullptr || uri == nullptr) {
        if (bin != nullptr)
            gst_object_unref(gst_object_ref_sink(bin));
        g_free(uri);
        error_text = bin == nullptr ? "the media service has no application sink" : "no URI for the file";
        close_service(s);
        return;
    }
    s->sink = gst_bin_get_by_name(GST_BIN(bin), "samples");
    // The playbin takes the floating bin.
    g_object_set(playbin, "audio-sink", bin, "uri", uri, "flags", kPlayFlagAudio, nullptr);
    g_free(uri);
    service = s;
    gst_element_set_state(playbin, GST_STATE_PAUSED);
    if (!wait_preroll()) {
        close_service(service);
        service = nullptr;
        return;
    }
    GstPad* pad = gst_element_get_static_pad(s->sink, "sink");
    GstCaps* caps = pad != nullptr ? gst_pad_get_current_caps(pad) : nullptr;
    if (caps != nullptr && gst_caps_get_size(caps) > 0) {
        const GstStructure* st = gst_caps_get_structure(caps, 0);
        gst_structure_get_int(st, "rate", &rate);
        gst_structure_get_int(st, "channels", &channels);
    }
    if (caps != nullptr)
        gst_caps_unref(caps);
    if (pad != nullptr)
        gst_object_unref(pad);
    if (rate < 1 || channels < 1) {
        error_text = "the media service gave no audio format";
        close_service(service);
        service = nullptr;
    }
}

MediaServiceSamples::~MediaServiceSamples()
{
    if (service != nullptr)
        close_service(service);
}

// Until the service is paused with its first samples at the sink, or says
// it can't be.
bool MediaServiceSamples::wait_preroll()
{
    const int patience = patience_ms.load();
    const gint64 deadline = g_get_monotonic_time() + gint64(patience) * 1000;
    for (;;) {
        const gint64 left = deadline - g_get_monotonic_time();
        if (left <= 0) {
            error_text = "no answer from the media service within " + std::to_string(patience) + " ms";
            return false;
        }
        GstMessage* message = gst_bus_timed_pop_filtered(
            service->bus, static_cast<GstClockTime>(left) * 1000,
            static_cast<GstMessageType>(GST_MESSAGE_ASYNC_DONE | GST_MESSAGE_ERROR));
        if (message == nullptr)
            continue;
        const bool ok = GST_MESSAGE_TYPE(message) == GST_MESSAGE_ASYNC_DONE;
        if (!ok)
            error_text = message_text(message);
        gst_message_unref(message);
        return ok;
    }
}

void MediaServiceSamples::take_errors()
{
    while (GstMessage* message = gst_bus_pop_filtered(service->bus, GST_MESSAGE_ERROR)) {
        if (error_text.empty())
            error_text = message_text(message);
        gst_message_unref(message);
    }
}

double MediaServiceSamples::get_duration()
{
    gint64 duration = 0;
    if (service == nullptr || !gst_element_query_duration(service->playbin, GST_FORMAT_TIME, &duration) ||
        duration < 0)
        return 0;
    return static_cast<double>(duration) / GST_SECOND;
}

bool MediaServiceSamples::seek(double seconds)
{
    if (service == nullptr || playing)
        return false;
    const auto at = static_cast<gint64>(seconds * GST_SECOND);
    if (!gst_element_seek_simple(service->playbin, GST_FORMAT_TIME,
                                 static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE), at))
        return false;
    return wait_preroll();
}

bool MediaServiceSamples::read(std::string& out, double* at)
{
    if (service == nullptr || !error_text.empty())
        return false;
    if (!playing) {
        gst_element_set_state(service->playbin, GST_STATE_PLAYING);
        playing = true;
    }
    GstSample* sample = nullptr;
    const gint64 quiet_since = g_get_monotonic_time();
    const gint64 patience_us = gint64(patience_ms.load()) * 1000;
    while (sample == nullptr) {
        g_signal_emit_by_name(service->sink, "try-pull-sample", kPullWaitMs * GST_MSECOND, &sample);
        if (sample != nullptr)
            break;
        take_errors();
        if (!error_text.empty())
            return false;
        gboolean eos = FALSE;
        g_object_get(service->sink, "eos", &eos, nullptr);
        if (eos)
            return false;
        if (g_get_monotonic_time() - quiet_since > patience_us) {
            error_text = "the media service stopped giving samples";
            return false;
        }
    }
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    *at = -1;
    if (buffer != nullptr) {
        const GstSegment* segment = gst_sample_get_segment(sample);
        if (segment != nullptr && GST_BUFFER_PTS_IS_VALID(buffer)) {
            const guint64 t = gst_segment_to_stream_time(segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
            if (t != GST_CLOCK_TIME_NONE)
                *at = static_cast<double>(t) / GST_SECOND;
        }
        GstMapInfo map;
        if (gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            out.append(reinterpret_cast<const char*>(map.data), map.size);
            gst_buffer_unmap(buffer, &map);
        }
    }
    gst_sample_unref(sample);
    return true;
}

} // namespace audio
