#include "app/status_publication.h"

#include "app/document.h"
#include "liba/text.h"
#include "os/log.h"

StatusPublication::StatusPublication(Document& document, ShowHandler show, PlayHandler play, CommandHandler command)
    : document_(document), show_(std::move(show)), play_(std::move(play)), command_(std::move(command)),
      server_("status", [this](int c) { serve(c); })
{
}

StatusPublication::~StatusPublication() { stop(); }

bool StatusPublication::publish(const std::string& socket)
{
    if (published_)
        return false;
    if (!clipboard_) {
        auto mapped = std::make_unique<status::CCommMemoryMappedFilesClipboard>();
        if (!mapped->is_open())
            return false;
        clipboard_ = std::move(mapped);
    }
    published_ = server_.listen(socket);
    return published_;
}

void StatusPublication::stop()
{
    server_.stop();
    published_ = false;
}

void StatusPublication::serve(int c)
{
    uint32_t command = 0;
    if (!os::read_u32le(c, command))
        return;
    int32_t result = 0;
    server_.run_on_main([&] { result = handle(static_cast<int32_t>(command)); });
    os::write_u32le(c, static_cast<uint32_t>(result));
}

bool StatusPublication::read_fields(int32_t command, std::vector<std::wstring>& fields)
{
    status::CSerializableString args;
    if (!clipboard_ || !args.read(*clipboard_)) {
        os::log() << "status: command " << command << " without readable arguments\n";
        return false;
    }
    fields = status::split_arguments(*args.text, status::argument_lengths(command));
    if (fields.back() == L"y" && show_)
        show_();
    return true;
}

bool StatusPublication::answer(bool value)
{
    document_.notify_views();
    return status::CSerializableBool(value).write(*clipboard_);
}

int32_t StatusPublication::handle(int32_t command)
{
    if (!clipboard_)
        return 0;
    if (command == status::kStatus) {
        status::CSerializableBool show;
        if (!show.read(*clipboard_))
            return 0;
        if (show.value && show_)
            show_();
        status::CQuillaphonicsStatus s = build_status();
        return s.write(*clipboard_) && status::CSerializableBool(true).write(*clipboard_) ? 1 : 0;
    }
    if (command < status::kPlay || command > status::kStep) {
        os::log() << "status: unknown command " << command << "\n";
        return 0;
    }
    std::vector<std::wstring> f;
    if (!read_fields(command, f))
        return 0;
    bool ok = false;
    switch (command) {
    case status::kPlay:
        if (play_)
            ok = play_(f[0]);
        else
            ok = f[0].empty() ? document_.play_current() : document_.play_file(f[0]);
        break;
    case status::kRecord: {
        if (f[0].empty()) {
            ok = document_.record(L"%my_documents%");
        } else {
            std::optional<long long> format = liba::text_to_int(f[1]);
            if (!format)
                return 0;
            ok = document_.record_to(f[0], static_cast<int>(*format));
        }
        break;
    }
    case status::kOverwrite: ok = document_.record_overwrite(f[0]); break;
    case status::kAppend: ok = document_.record_append(f[0]); break;
    case status::kInsert: {
        std::optional<long long> position = liba::text_to_int(f[1]);
        if (!position)
            return 0;
        ok = document_.record_insert(f[0], static_cast<int32_t>(*position));
        break;
    }
    case status::kPause: ok = pause_or_resume(); break;
    case status::kStop: ok = stop_now(); break;
    case status::kStep: {
        std::optional<long long> delta = liba::text_to_int(f[0]);
        if (!delta)
            return 0;
        ok = document_.step_item(static_cast<int>(*delta));
        break;
    }
    default: break;
    }
    return answer(ok) ? 1 : 0;
}

bool StatusPublication::pause_or_resume()
{
    if (!command_ || (!document_.is_playing() && !document_.is_recording()))
        return document_.is_paused() ? document_.resume() : document_.pause();
    // While something runs, "Play" and "Record" pause it or go on, as the
    // window's own buttons do.
    const bool was_paused = document_.is_paused();
    command_(document_.is_recording() ? L"Record" : L"Play");
    return document_.is_paused() != was_paused;
}

bool StatusPublication::stop_now()
{
    if (!command_ || (!document_.is_playing() && !document_.is_recording()))
        return document_.stop();
    // The stopping variants end it without a progress form: the caller
    // waits for its answer, so a recording drains in place.
    command_(document_.is_recording() ? L"RecordStop" : L"PlayStop");
    return !document_.is_playing() && !document_.is_recording();
}

status::CQuillaphonicsStatus StatusPublication::recording_status() const
{
    status::CQuillaphonicsStatus s;
    const Document::RecordStatus r = document_.record_status();
    s.state = document_.is_paused() ? s.kRecordPaused : s.kRecording;
    s.path = document_.record_file_path();
    s.length = r.position;
    s.position = r.position;
    s.format = r.format == audio::kFormatMP3 ? 0 : 1;
    s.rate = r.rate;
    s.bits = r.bits;
    s.kbps = r.bit_rate / 1000;
    s.stereo = r.channels == 2 ? 1 : 0;
    s.time_ms = static_cast<int32_t>(document_.record_time() * 1000.0);
    return s;
}

status::CQuillaphonicsStatus StatusPublication::build_status() const
{
    status::CQuillaphonicsStatus s;
    if (document_.is_recording())
        return recording_status();
    audio::FileReader* r = document_.reader();
    if (!document_.is_playing() || !r)
        return s;
    s.state = document_.is_paused() ? s.kPlayPaused : s.kPlaying;
    s.path = document_.current_path();
    s.length = r->get_length();
    s.position = r->get_position();
    std::wstring format = document_.format();
    if (format == audio::kFormatMP3)
        s.format = 0;
    else if (format == audio::kFormatPCM || format == audio::kFormatADPCM || format == audio::kFormatGSM)
        s.format = 1;
    else
        s.format = 2;
    s.rate = r->get_rate();
    s.bits = r->get_bits();
    s.kbps = r->get_bitrate() / 1000;
    s.stereo = r->get_channels() == 2 ? 1 : 0;
    s.time_ms = static_cast<int32_t>(r->get_time() * 1000.0);
    return s;
}
