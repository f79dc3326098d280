#include "app/play_path.h"
#include "app/settings.h"
#include "audio/media_service_samples.h"
#include "audio/pipeline.h"
#include "audio/play_chain.h"
#include "audio/sound_out.h"
#include "audio/wav_info.h"
#include "files/range_marks.h"
#include "liba/text.h"
#include "os/file.h"
#include "os/path.h"
#include "tools/commands.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace quillctl {

namespace {

// The player's request: what each pull through the play path asks for.
constexpr int kPlayerRequestFrames = 16384;
// A WAV's sizes are 32-bit.
constexpr std::uint64_t kMaxWavData = 0xFFFFFFFFull - 36;

struct Request {
    std::wstring file;
    std::string out; // "-" for raw samples on standard output
    std::optional<double> start, end;
    bool route = false;
    // The stages of the play path, as the program's settings hold them.
    double speed = 1.0;
    std::string pitch = "keep"; // keep, change or stretch
    std::vector<EqualizerSettings> bands;
    std::optional<int> booster, noise, limiter;
    double volume = 100.0; // percent
};

constexpr std::size_t kMaxBands = 3;

std::optional<double> seconds_value(const std::string& text)
{
    auto v = liba::text_to_double(liba::from_utf8(text));
    if (!v || !std::isfinite(*v) || *v < 0)
        return std::nullopt;
    return v;
}

// A number in [low, high], or nullopt.
std::optional<double> number_in(const std::string& text, double low, double high)
{
    auto v = liba::text_to_double(liba::from_utf8(text));
    if (!v || !std::isfinite(*v) || *v < low || *v > high)
        return std::nullopt;
    return v;
}

// "F,W,G": centre in Hz above 0, width in octaves above 0, gain in dB.
std::optional<EqualizerSettings> band_value(const std::string& text)
{
    std::vector<double> parts;
    std::size_t from = 0;
    for (;;) {
        const std::size_t comma = text.find(',', from);
        auto v = liba::text_to_double(liba::from_utf8(text.substr(from, comma - from)));
        if (!v || !std::isfinite(*v))
            return std::nullopt;
        parts.push_back(*v);
        if (comma == std::string::npos)
            break;
        from = comma + 1;
    }
    if (parts.size() != 3 || parts[0] <= 0 || parts[1] <= 0)
        return std::nullopt;
    EqualizerSettings band;
    band.frequency = parts[0];
    band.width = parts[1];
    band.amplitude = parts[2];
    band.active = true;
    return band;
}

// The value of a stage's option, or nullopt after a line that says what it
// takes.
bool stage_option(Request& r, const std::string& option, const std::string& value)
{
    auto wrong = [&](const char* wants) {
        std::fprintf(stderr, "quillctl: decode: %s wants %s\n", option.c_str(), wants);
        return false;
    };
    if (option == "--speed") {
        std::optional<double> v = number_in(value, 0.5, 2.0);
        if (!v)
            return wrong("a speed from 0.5 to 2.0");
        r.speed = *v;
    } else if (option == "--pitch") {
        if (value != "keep" && value != "change" && value != "stretch")
            return wrong("keep, change or stretch");
        r.pitch = value;
    } else if (option == "--eq") {
        std::optional<EqualizerSettings> band = band_value(value);
        if (!band)
            return wrong("F,W,G: centre Hz and width in octaves above 0, gain in dB");
        if (r.bands.size() == kMaxBands)
            return wrong("to be given at most three times");
        r.bands.push_back(*band);
    } else if (option == "--volume") {
        std::optional<double> v = number_in(value, 0.0, 100.0);
        if (!v)
            return wrong("a volume from 0 to 100");
        r.volume = *v;
    } else {
        std::optional<double> v = number_in(value, 0.0, 3.0);
        if (!v || *v != std::trunc(*v))
            return wrong("0 (Off), 1, 2 or 3 (High)");
        (option == "--booster" ? r.booster : option == "--noise" ? r.noise : r.limiter) = static_cast<int>(*v);
    }
    return true;
}

bool ends_with_wav(const std::string& path)
{
    std::wstring ext = liba::to_lower(os::extension_of(liba::from_utf8(path)));
    return ext == L"wav";
}

// Nullopt when the command line is wrong, after a line that says how where
// the synopsis alone would not.
std::optional<Request> parse(const Args& args)
{
    Request r;
    std::vector<std::string> positional;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--route") {
            r.route = true;
        } else if (a == "--start" || a == "--end") {
            if (i + 1 >= args.size())
                return std::nullopt;
            std::optional<double> s = seconds_value(args[++i]);
            if (!s) {
                std::fprintf(stderr, "quillctl: decode: %s wants seconds, 0 or more\n", a.c_str());
                return std::nullopt;
            }
            (a == "--start" ? r.start : r.end) = s;
        } else if (a == "--speed" || a == "--pitch" || a == "--eq" || a == "--booster" || a == "--noise" ||
                   a == "--limiter" || a == "--volume") {
            if (i + 1 >= args.size() || !stage_option(r, a, args[i + 1]))
                return std::nullopt;
            ++i;
        } else if (a.size() > 1 && a[0] == '-' && a != "-") {
            return std::nullopt;
        } else {
            positional.push_back(a);
        }
    }
    if (positional.size() != 2)
        return std::nullopt;
    r.file = liba::from_utf8(positional[0]);
    r.out = positional[1];
    if (r.out != "-" && !ends_with_wav(r.out)) {
        std::fprintf(stderr, "quillctl: decode: OUT is a .wav file or - for raw samples\n");
        return std::nullopt;
    }
    if (r.route && (r.start || r.end)) {
        std::fprintf(stderr, "quillctl: decode: --route plays the marked ranges; it takes no --start or --end\n");
        return std::nullopt;
    }
    if (r.start && r.end && *r.end <= *r.start) {
        std::fprintf(stderr, "quillctl: decode: --end must come after --start\n");
        return std::nullopt;
    }
    return r;
}

// Where the player stands: the end of the play path, which pulls and is
// never pushed to.
// Its volume scales the samples as the sound device does.
class PathEnd : public audio::PullOnlyConsumer<audio::PCMData> {
public:
    explicit PathEnd(double percent)
        : audio::PullOnlyConsumer<audio::PCMData>(audio::kPlayerOnData),
          level_(static_cast<std::uint32_t>(percent / 100.0 * audio::SoundOut::kFullLevel))
    {
    }
    void pull(audio::PCMData& out)
    {
        liba::Lock held(lock);
        pull_data(out, kPlayerRequestFrames);
        if (out.empty() || level_ >= audio::SoundOut::kFullLevel)
            return;
        out.bytes = liba::ByteBlock(out.bytes.data(), out.bytes.size());
        audio::SoundOut::scale(out.bytes.writable(), out.bytes.size(), out.bits, level_);
    }

private:
    std::uint32_t level_;
};

// The samples of `in` as 16-bit little-endian: 8-bit ones (unsigned, 128 is
// silence) become (x - 128) << 8, wider ones keep their top 16 bits.
void append_16_bits(const audio::PCMData& in, std::string& out)
{
    const std::size_t width = static_cast<std::size_t>((in.bits + 7) / 8);
    const std::size_t samples = in.sample_count() * static_cast<std::size_t>(in.channels);
    const std::uint8_t* p = in.bytes.data();
    const std::size_t at = out.size();
    out.resize(at + samples * 2);
    char* o = out.data() + at;
    for (std::size_t i = 0; i < samples; ++i, p += width, o += 2) {
        if (width == 1) {
            const std::uint16_t v = static_cast<std::uint16_t>((p[0] - 128) * 256);
            o[0] = static_cast<char>(v & 0xFF);
            o[1] = static_cast<char>(v >> 8);
        } else {
            o[0] = static_cast<char>(p[width - 2]);
            o[1] = static_cast<char>(p[width - 1]);
        }
    }
}

// Where the samples go: a WAV file that appears whole or not at all, or
// standard output.
class Output {
public:
    virtual ~Output() = default;
    virtual bool begin(int channels, int rate) = 0;
    virtual bool write(const std::string& samples) = 0;
    virtual bool finish() = 0;
    // What went wrong, for the line on standard error.
    std::string why = "can't write";
};

class RawOutput : public Output {
public:
    bool begin(int, int) override { return true; }
    bool write(const std::string& samples) override
    {
        return std::fwrite(samples.data(), 1, samples.size(), stdout) == samples.size();
    }
    bool finish() override { return std::fflush(stdout) == 0; }
};

// Written under a temporary name beside OUT and renamed over it at the end,
// so a failed decode leaves an existing OUT as it was.
class WavOutput : public Output {
public:
    explicit WavOutput(const std::wstring& path)
        : path_(path),
          temporary_(os::folder_of(path) + L"." + os::file_name_of(path) + L".quillctl-" +
                     liba::int_to_text(::getpid()))
    {
    }
    ~WavOutput() override
    {
        if (file_) {
            file_.reset();
            os::FileAttributes(temporary_).remove();
        }
    }

    bool begin(int channels, int rate) override
    {
        info_.format_tag = audio::kFormatTagPCM;
        info_.channels = channels;
        info_.bits = 16;
        info_.rate = rate;
        info_.block_align = static_cast<std::uint16_t>(channels * 2);
        info_.bytes_per_second = static_cast<std::uint32_t>(rate) * info_.block_align;
        info_.fmt_size = 16;
        file_ = std::make_unique<os::File>(temporary_, os::File::kWrite);
        return file_->good() && info_.write(*file_);
    }
    bool write(const std::string& samples) override
    {
        data_ += samples.size();
        if (data_ > kMaxWavData) {
            why = "too long for a WAV file (4 GiB of samples at most)";
            return false;
        }
        return file_->write(samples.data(), samples.size()) == samples.size();
    }
    bool finish() override
    {
        info_.data_size = static_cast<std::uint32_t>(data_);
        info_.riff_size = static_cast<std::uint32_t>(info_.data_offset - 8 + data_);
        if (!file_->seek(0) || !info_.write(*file_) || !file_->flush())
            return false;
        file_->close();
        if (std::rename(os::native_path(temporary_).c_str(), os::native_path(path_).c_str()) != 0)
            return false;
        file_.reset();
        return true;
    }

private:
    std::wstring path_;
    std::wstring temporary_;
    std::unique_ptr<os::File> file_;
    audio::WAVInfoPCM info_;
    std::uint64_t data_ = 0;
};

// A progress line on standard error, only when that is a terminal.
class Progress {
public:
    explicit Progress(double total) : on_(::isatty(STDERR_FILENO) == 1), total_(total) {}
    void show(double seconds)
    {
        if (!on_)
            return;
        auto now = std::chrono::steady_clock::now();
        if (now - last_ < std::chrono::milliseconds(200))
            return;
        last_ = now;
        if (total_ > 0)
            std::fprintf(stderr, "\rdecoding: %.1f of %.1f s", seconds, total_);
        else
            std::fprintf(stderr, "\rdecoding: %.1f s", seconds);
        shown_ = true;
    }
    ~Progress()
    {
        if (shown_)
            std::fprintf(stderr, "\r\033[K");
    }

private:
    bool on_;
    double total_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point last_{};
};

// The route through the file's marks, or nullopt after the line saying why.
std::optional<audio::RouteMarks> route_of(const std::wstring& file, const std::string& name)
{
    const std::wstring side = side_file_of(file);
    RangeMarks marks;
    std::wstring why;
    if (!marks.load(side, &why)) {
        fail(liba::to_utf8(side), liba::to_utf8(why));
        return std::nullopt;
    }
    if (marks.route_count() == 0) {
        fail(name, "has no route: no mark of " + liba::to_utf8(side) + " is in it");
        return std::nullopt;
    }
    audio::RouteMarks route;
    for (int i = 0; i < marks.count(); ++i)
        route.push_back({marks.mark(i).position, marks.mark(i).kind != -1});
    return route;
}

std::unique_ptr<Output> output_for(const std::string& out)
{
    if (out == "-")
        return std::make_unique<RawOutput>();
    return std::make_unique<WavOutput>(liba::from_utf8(out));
}

// A file the media service plays: its own sample output, not the play
// path, gives the samples, in the stream's rate and channels.
int decode_media_service(const Request& request, const std::string& name)
{
    if (request.route)
        return fail(name, "plays through the media service, which has no route playing");
    audio::MediaServiceSamples samples(request.file);
    if (!samples.is_open())
        return fail(name, "the media service can't decode it: " + samples.error());
    const int channels = samples.get_channels();
    const int rate = samples.get_rate();
    if (channels * 2 > 0xFFFF)
        return fail(name, "has " + std::to_string(channels) + " channels, more than a 16-bit WAV holds");
    const double duration = samples.get_duration();
    if (request.start) {
        if (duration > 0 && *request.start >= duration) {
            char buf[128];
            std::snprintf(buf, sizeof buf, "--start %.3f is not before the end (%.3f s)", *request.start, duration);
            return fail(name, buf);
        }
        if (!samples.seek(*request.start))
            return fail(name, "the media service can't seek to --start");
    }
    std::unique_ptr<Output> output = output_for(request.out);
    if (!output->begin(channels, rate))
        return fail(request.out, output->why);
    const std::size_t frame_bytes = static_cast<std::size_t>(channels) * 2;
    // Up to the sample frame --end names, counted from where the first
    // block stands.
    std::optional<std::int64_t> frames_left;
    Progress progress(duration);
    std::string block;
    std::int64_t written = 0;
    double at = -1;
    while (!frames_left || *frames_left > 0) {
        block.clear();
        if (!samples.read(block, &at))
            break;
        if (request.end && !frames_left) {
            const double first = at >= 0 ? at : request.start.value_or(0);
            frames_left = std::max<std::int64_t>(
                static_cast<std::int64_t>(std::trunc(*request.end * rate)) - std::llround(first * rate), 0);
        }
        block.resize(block.size() / frame_bytes * frame_bytes);
        if (frames_left) {
            const auto frames = static_cast<std::int64_t>(block.size() / frame_bytes);
            if (frames > *frames_left)
                block.resize(static_cast<std::size_t>(*frames_left) * frame_bytes);
            *frames_left -= std::min(frames, *frames_left);
        }
        if (!output->write(block))
            return fail(request.out, output->why);
        written += static_cast<std::int64_t>(block.size() / frame_bytes);
        progress.show(request.start.value_or(0) + static_cast<double>(written) / rate);
    }
    if (!samples.error().empty())
        return fail(name, "the media service failed: " + samples.error());
    if (!output->finish())
        return fail(request.out, output->why);
    return kDone;
}

} // namespace

int cmd_decode(const Args& args)
{
    std::optional<Request> request = parse(args);
    if (!request)
        return kUsage;
    const std::string name = liba::to_utf8(request->file);
    os::FileAttributes attributes(request->file);
    if (!attributes.exists())
        return fail(name, "no such file");
    if (attributes.is_folder)
        return fail(name, "is a folder, not a sound file");
    const bool to_stdout = request->out == "-";
    const std::wstring out_path = liba::from_utf8(request->out);
    if (!to_stdout && os::FileAttributes(out_path).is_folder)
        return fail(request->out, "is a folder");

    std::unique_ptr<audio::PlayChain> chain;
    if (request->route) {
        std::optional<audio::RouteMarks> route = route_of(request->file, name);
        if (!route)
            return kFailed;
        chain = audio::create_play_chain(request->file, &*route);
        if (!chain) {
            std::unique_ptr<audio::PlayChain> plain = audio::create_play_chain(request->file, nullptr);
            if (plain)
                return fail(name, liba::to_utf8(plain->get_format()) + " files have no route playing");
        }
    } else {
        chain = audio::create_play_chain(request->file, nullptr);
    }
    if (!chain || chain->get_reader() == nullptr)
        return fail(name, "no reader opens it: not a sound file the program plays");
    if (!chain->uses_player()) {
        // The chain's own hold on the service goes before the decode's.
        chain.reset();
        return decode_media_service(*request, name);
    }

    audio::FileReader& reader = *chain->get_reader();
    const int channels = reader.get_channels();
    const int rate = reader.get_rate();
    const int bits = reader.get_bits();
    if (channels < 1 || rate < 1)
        return fail(name, "has no audio to decode (channels " + std::to_string(channels) + ", rate " +
                              std::to_string(rate) + " Hz)");
    if (channels * 2 > 0xFFFF)
        return fail(name, "has " + std::to_string(channels) + " channels, more than a 16-bit WAV holds");
    if (bits < 1 || bits > 64)
        return fail(name, "has samples of " + std::to_string(bits) + " bits, which can't become 16-bit ones");

    // What to pull: from the sample frame where the seek landed to the one
    // that --end names.
    std::optional<std::int64_t> frames_left;
    if (request->start) {
        const double duration = reader.get_duration();
        if (*request->start >= duration) {
            char buf[128];
            std::snprintf(buf, sizeof buf, "--start %.3f is not before the end (%.3f s)", *request->start, duration);
            return fail(name, buf);
        }
        reader.set_time(*request->start);
    }

    // The program's play path with the file in the player's place, set up
    // as the Document sets it from the settings.
    PathEnd end(request->volume);
    PlayPath path;
    const EqualizerSettings off;
    const std::vector<EqualizerSettings>& b = request->bands;
    path.set_equalizers(b.size() > 0 ? b[0] : off, b.size() > 1 ? b[1] : off, b.size() > 2 ? b[2] : off);
    path.attach(&end);
    const double speed = path.set_speed(request->speed, request->pitch != "change", request->pitch == "stretch").stored;
    if (request->booster || request->noise || request->limiter)
        path.set_levels(request->booster.value_or(0), request->noise.value_or(0), request->limiter.value_or(0));
    audio::connect(*chain->get_provider(), &path.head());

    if (request->end) {
        // Frames out, at the speed of play.
        const std::int64_t first = std::llround(reader.get_time() * rate);
        const std::int64_t source = static_cast<std::int64_t>(std::trunc(*request->end * rate)) - first;
        frames_left = std::max<std::int64_t>(std::llround(static_cast<double>(source) / speed), 0);
    }

    std::unique_ptr<Output> output = output_for(request->out);
    int result = kDone;
    if (!output->begin(channels, rate)) {
        result = fail(request->out, output->why);
    } else {
        Progress progress(request->route ? 0.0 : reader.get_duration());
        std::string samples;
        std::int64_t written = 0;
        while (!frames_left || *frames_left > 0) {
            audio::PCMData record;
            end.pull(record);
            if (record.empty())
                break;
            if (record.channels != channels || record.rate != rate || record.bits != bits) {
                result = fail(name, "changes its format in mid-stream, which a WAV can't follow");
                break;
            }
            audio::PCMData part = record;
            if (frames_left) {
                const auto frames = static_cast<std::int64_t>(record.sample_count());
                if (frames > *frames_left)
                    part.bytes = liba::ByteBlock(record.bytes, 0,
                                                 static_cast<std::size_t>(*frames_left) * record.bytes_per_frame());
                *frames_left -= std::min(frames, *frames_left);
            }
            samples.clear();
            append_16_bits(part, samples);
            if (!output->write(samples)) {
                result = fail(request->out, output->why);
                break;
            }
            written += static_cast<std::int64_t>(part.sample_count());
            progress.show(request->route ? static_cast<double>(written) / rate : reader.get_time());
        }
        if (result == kDone && !output->finish())
            result = fail(request->out, output->why);
    }
    // The links go before the stages and the chain.
    path.attach(nullptr);
    audio::connect(*chain->get_provider(), nullptr);
    return result;
}

} // namespace quillctl
