// The record side of the Document: new files and their names, the start of
// capture, the stop with its drain, pause and the failure path.
#include "app/document.h"

#include "app/complete_form.h"
#include "audio/play_chain.h"
#include "audio/system_sound.h"
#include "files/range_marks.h"
#include "os/date_time.h"
#include "os/file.h"
#include "os/log.h"
#include "os/path.h"
#include "os/system.h"

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

// Where the files being recorded are listed, so that a crash leaves them
// repaired at the next start.
const os::RecordingJournal* journal()
{
    static const os::RecordingJournal recordings;
    return &recordings;
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
                                                      settings_.samples, settings_.bitrate, false, journal()),
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
                                                      settings_.samples, row.bit_rate, false, journal()),
                           path);
}

bool Document::record_overwrite(const std::wstring& path)
{
    return record_into(path, false);
}

bool Document::record_append(const std::wstring& path)
{
    return record_into(path, true);
}

bool Document::record_into(const std::wstring& path, bool append)
{
    pending_changes_.state = true;
    stop();
    if (!prepare(path, path, append))
        return false;
    title_ = os::file_name_of(path);
    return start_capture();
}

bool Document::record_insert(const std::wstring& target, int32_t position)
{
    // Stopped first: a recording under way merges into its own target.
    stop();
    insert_target_ = target;
    insert_position_ = position;
    const std::wstring temporary = numbered_name(os::folder_of(target), L"insert", L"tmp");
    if (!prepare(target, temporary, false)) {
        insert_target_.clear();
        return false;
    }
    title_ = os::file_name_of(temporary) + L" for " + os::file_name_of(target);
    if (!start_capture()) {
        // A temporary file already made stays where it is.
        insert_target_.clear();
        return false;
    }
    return true;
}

bool Document::prepare(const std::wstring& model, const std::wstring& target, bool keep_marks)
{
    recorder_ = audio::create_recorder_like(model);
    if (!recorder_) {
        os::log() << "record: no recorder in the format of " << model << "\n";
        return false;
    }
    int32_t old_length = 0;
    record_chain_ = audio::create_record_chain_like(model, target, keep_marks, &old_length, journal());
    if (!record_chain_) {
        os::log() << "record: can't write " << target << " in the format of " << model << "\n";
        recorder_.reset();
        return false;
    }
    bookmarks_.clear();
    if (keep_marks) {
        // The new part begins at the old end of the audio.
        bookmarks_.load(side_file_of(target));
        bookmarks_.add_mark(old_length, L"Bookmark");
        if (!bookmarks_.save(side_file_of(target)))
            os::log() << "record: can't write the marks of " << target << "\n";
    }
    record_path_ = target;
    return true;
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
    bookmarks_.clear();
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
    // Input held from an earlier pause never reaches this file.
    level_meter_record_.drop_held();
    time_meter_.reset();
    audio::connect(*recorder_, &muter_);
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

bool Document::stop(skinner::Form* owner)
{
    if (!is_recording())
        return stop();
    pending_changes_.state = true;
    item_open_ = false;
    return stop_recording(owner);
}

bool Document::stop_recording(skinner::Form* owner)
{
    pending_changes_.select_path = record_path_;
    // Capture ends; what the device still held is dropped with the link.
    audio::connect(*recorder_, nullptr);
    recorder_.reset();
    // Undoes a pause, so the next recording finds the path whole.
    level_meter_record_.relink(&time_meter_, false);
    if (owner && active_buffer_.pending_bytes() > kDrainQuietBytes) {
        CompleteForm progress(owner, active_buffer_);
        progress.run();
    }
    while (active_buffer_.queued_records() > 0)
        std::this_thread::sleep_for(kDrainPoll);
    active_buffer_.reset();
    audio::connect(active_buffer_, nullptr);
    record_chain_.reset();
    audio::play_system_sound(L"RecEnd.wav");
    os::log() << "record: stopped " << record_path_ << "\n";
    if (!insert_target_.empty())
        merge_insert();
    return true;
}

void Document::merge_insert()
{
    const std::wstring target = insert_target_;
    const std::wstring recorded = record_path_;
    const std::wstring output = numbered_name(os::folder_of(target), L"insert", L"tmp");
    // No second stop repeats the merge.
    insert_target_.clear();
    record_path_.clear();
    std::unique_ptr<audio::PlayChain> old_audio = audio::create_play_chain(target, nullptr);
    std::unique_ptr<audio::PlayChain> new_audio = audio::create_play_chain(recorded, nullptr);
    std::unique_ptr<audio::RecordChain> out =
        audio::create_record_chain_like(recorded, output, false, nullptr, journal());
    if (!out || !new_audio) {
        os::log() << "record: can't merge " << recorded << " into " << target << "; both stay as they are\n";
        return;
    }
    audio::FileReader* head = old_audio ? old_audio->get_reader() : nullptr;
    audio::FileReader* insert = new_audio->get_reader();
    const bool target_open = head && head->is_open();
    if (target_open && out->attach_reader(*head))
        head->transfer_position(insert_position_);
    const int32_t inserted = insert->get_length();
    if (insert->is_open() && out->attach_reader(*insert))
        insert->transfer_position(inserted);
    if (target_open) {
        const int32_t end_of_insert = out->get_writer()->get_position();
        if (out->attach_reader(*head))
            head->transfer_position(head->get_length() - head->get_position());
        RangeMarks marks, made;
        marks.load(side_file_of(target));
        made.load(side_file_of(recorded));
        marks.splice(insert_position_, inserted, made);
        marks.add_mark(insert_position_, L"Bookmark");
        marks.add_mark(end_of_insert, L"Bookmark");
        if (!marks.save(side_file_of(target)))
            os::log() << "record: can't write the marks of " << target << "\n";
    }
    // The readers go first: a reader with a decoder cuts its link, which
    // leads into the output's writer now. Closing the output writes its
    // final header.
    old_audio.reset();
    new_audio.reset();
    out.reset();
    os::FileAttributes(target).remove();
    os::FileAttributes(recorded).remove();
    os::FileAttributes(side_file_of(recorded)).remove();
    if (!os::FileAttributes(output).rename(target))
        os::log() << "record: the merged file stays as " << output << "\n";
}

bool Document::is_record_paused() const
{
    return level_meter_record_.consumer.load() == nullptr;
}

void Document::set_record_paused(bool paused)
{
    pending_changes_.state = true;
    if (paused)
        level_meter_record_.cut();
    else
        level_meter_record_.relink(&time_meter_, false);
}

bool Document::recording_healthy() const
{
    return recorder_->is_good() && active_buffer_.is_good();
}

bool Document::record_writer_good() const
{
    return !record_chain_ || record_chain_->get_writer()->is_good();
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

bool Document::add_record_bookmark()
{
    pending_changes_.position = true;
    bookmarks_.add_mark(record_chain_->get_writer()->get_position(), L"Bookmark");
    if (!bookmarks_.save(side_file_of(record_path_)))
        os::log() << "record: can't write the marks of " << record_path_ << "\n";
    return true;
}

Document::RecordStatus Document::record_status() const
{
    RecordStatus s;
    if (!recorder_ || !record_chain_)
        return s;
    s.position = record_chain_->get_writer()->get_position();
    s.format = record_chain_->get_format();
    s.bit_rate = record_chain_->get_encoder()->get_bitrate();
    s.rate = recorder_->get_samples_per_sec();
    s.bits = recorder_->get_bits();
    s.channels = recorder_->get_channels();
    return s;
}

double Document::record_remaining_time() const
{
    const int32_t bit_rate = record_status().bit_rate;
    if (bit_rate <= 0)
        return 0.0;
    return os::free_disk_space(record_path_) / bit_rate * 8;
}
