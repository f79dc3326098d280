// The record side of the Document: new files and their names, the start of
// capture, the stop with its drain, pause and the failure path.
#include "app/document.h"

#include "audio/play_chain.h"
#include "audio/system_sound.h"
#include "os/date_time.h"
#include "os/file.h"
#include "os/log.h"
#include "os/path.h"

#include <chrono>
#include <thread>

namespace {

// The rows a remote command chooses from: the row picks the codec and the
// MP3 bit rate; rate, bits and channels come from the "Record" settings.
struct RemoteFormat {
    const wchar_t* codec;
    int bit_rate;
};
constexpr RemoteFormat kRemoteFormats[] = {
    {audio::kFormatMP3, 16000}, {audio::kFormatMP3, 16000}, {audio::kFormatMP3, 32000},
    {audio::kFormatMP3, 32000}, {audio::kFormatPCM, 0},     {audio::kFormatPCM, 0},
    {audio::kFormatPCM, 0},     {audio::kFormatPCM, 0},     {audio::kFormatPCM, 0},
};

constexpr const wchar_t* kMonths[] = {L"jan", L"feb", L"mar", L"apr", L"may", L"jun",
                                      L"jul", L"aug", L"sep", L"oct", L"nov", L"dec"};
// The polling step of the drain at stop.
constexpr auto kDrainPoll = std::chrono::milliseconds(10);
constexpr int kMaxNumber = 9999;

// A single digit gets a leading "0"; of a longer number the last two stay.
std::wstring two_digits(int n)
{
    n %= 100;
    return (n < 10 ? L"0" : L"") + std::to_wstring(n);
}

bool exists(const std::wstring& path)
{
    return os::FileAttributes(path).exists();
}

// The opening of the file, and closing it again, leaves it made and empty.
bool can_write(const std::wstring& path)
{
    os::File f(path, os::File::kWrite);
    return f.is_open();
}

} // namespace

std::wstring Document::numbered_name(const std::wstring& folder, const std::wstring& prefix,
                                     const std::wstring& extension)
{
    for (int i = 1; i <= kMaxNumber; ++i) {
        std::wstring path = os::join_path(folder, prefix + std::to_wstring(i) + L"." + extension);
        if (!exists(path))
            return path;
    }
    return os::join_path(folder, L"") + L"/." + extension;
}

std::wstring Document::dated_name(const std::wstring& folder, const std::wstring& prefix,
                                  const std::wstring& extension, const os::DateTime& t)
{
    std::wstring name = prefix.empty() ? std::wstring() : prefix + L" ";
    name += two_digits(t.day) + L" " + kMonths[(t.month + 11) % 12] + L" " + two_digits(t.year) + L" " +
            two_digits(t.hour) + L"-" + two_digits(t.minute) + L"-" + two_digits(t.second);
    return os::strip_trailing_separator(os::expand_path(folder)) + L"/" + name + L"." + extension;
}

std::wstring Document::new_record_path(const std::wstring& default_folder) const
{
    std::wstring folder = default_folder;
    if (settings_.default_folder) {
        folder = settings_.folder;
        if (settings_.date_folder) {
            const os::DateTime t = os::DateTime::now();
            folder = os::join_path(folder, std::to_wstring(t.year) + L"-" + two_digits(t.month) + L"-" +
                                               two_digits(t.day));
            // A failure shows in the test of the path below.
            os::create_folders(folder);
        }
    }
    const std::wstring extension = settings_.codec == audio::kFormatMP3 ? L"mp3" : L"wav";
    std::wstring path = settings_.include_date
                            ? dated_name(folder, settings_.prefix, extension, os::DateTime::now())
                            : numbered_name(folder, settings_.prefix, extension);
    if (!can_write(path)) {
        os::log() << "record: can't write " << path << "; recording into the documents folder\n";
        path = dated_name(L"%my_documents%", settings_.prefix, extension, os::DateTime::now());
    }
    return path;
}

bool Document::record(const std::wstring& default_folder)
{
    pending_changes_.state = true;
    stop();
    const std::wstring path = new_record_path(default_folder);
    return start_recording(audio::create_record_chain(path, settings_.codec, settings_.channels, settings_.bits,
                                                      settings_.samples, settings_.bitrate, false),
                           path);
}

bool Document::record_to(const std::wstring& path, int format_index)
{
    if (format_index < 0 || format_index >= static_cast<int>(std::size(kRemoteFormats)))
        return false;
    pending_changes_.state = true;
    stop();
    const RemoteFormat& row = kRemoteFormats[format_index];
    return start_recording(audio::create_record_chain(path, row.codec, settings_.channels, settings_.bits,
                                                      settings_.samples, row.bit_rate, false),
                           path);
}

bool Document::record_overwrite(const std::wstring&)
{
    return false;
}

bool Document::record_append(const std::wstring&)
{
    return false;
}

bool Document::record_insert(const std::wstring&, int32_t)
{
    return false;
}

bool Document::start_recording(std::unique_ptr<audio::RecordChain> chain, const std::wstring& path)
{
    record_chain_ = std::move(chain);
    if (!record_chain_) {
        os::log() << "record: no chain for the format of the settings\n";
        return false;
    }
    record_path_ = path;
    title_ = os::file_name_of(path);
    recorder_ = std::make_unique<audio::RecorderPCM>(static_cast<uint32_t>(settings_.channels),
                                                     static_cast<uint32_t>(settings_.samples),
                                                     static_cast<uint32_t>(settings_.bits));
    return start_capture();
}

bool Document::start_capture()
{
    if (!recorder_->is_good()) {
        os::log() << "record: no capture device takes " << settings_.samples << " Hz, " << settings_.bits
                  << " bits, " << settings_.channels << " channels\n";
        drop_recording();
        return false;
    }
    audio::connect(*recorder_, &record_input_);
    audio::connect(active_buffer_, record_chain_->get_consumer());
    // The beep ends before sound is taken, so it stays out of the file.
    audio::play_system_sound(L"Voicbeep.wav");
    if (!recorder_->start()) {
        os::log() << "record: the capture device doesn't start\n";
        drop_recording();
        return false;
    }
    os::log() << "record: " << record_path_ << "\n";
    return true;
}

void Document::drop_recording()
{
    if (recorder_)
        audio::connect(*recorder_, nullptr);
    recorder_.reset();
    audio::connect(active_buffer_, nullptr);
    active_buffer_.reset();
    record_chain_.reset();
}

bool Document::stop_recording()
{
    pending_changes_.select_path = record_path_;
    // Capture ends; what the device still held is dropped with the link.
    audio::connect(*recorder_, nullptr);
    recorder_.reset();
    // Undoes a pause, so the next recording finds the path whole.
    audio::connect(record_input_, &active_buffer_);
    while (active_buffer_.queued_records() > 0)
        std::this_thread::sleep_for(kDrainPoll);
    active_buffer_.reset();
    audio::connect(active_buffer_, nullptr);
    record_chain_.reset();
    audio::play_system_sound(L"RecEnd.wav");
    os::log() << "record: stopped " << record_path_ << "\n";
    return true;
}

bool Document::is_record_paused() const
{
    return record_input_.consumer.load() == nullptr;
}

void Document::set_record_paused(bool paused)
{
    pending_changes_.state = true;
    audio::connect(record_input_, paused ? nullptr : &active_buffer_);
}

bool Document::recording_healthy() const
{
    return recorder_->is_good() && active_buffer_.is_good();
}

void Document::on_record_timer()
{
    if (!recording_healthy()) {
        // Everything that reached the queue is still written; the file stays
        // valid up to the failure.
        set_record_paused(true);
        os::log() << "record: the recording failed: "
                  << (recorder_->is_good() ? "the buffer ran full" : "the capture device ran out of buffers") << "\n";
        stop();
    } else if (!record_chain_->get_writer()->is_good()) {
        os::log() << "record: can't write " << record_path_ << "; stopped\n";
        stop();
    }
    ChangeFlags changes;
    changes.position = true;
    notify_views(changes);
}
