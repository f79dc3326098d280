#include "app/conversion.h"

#include "audio/file_reader_mp3.h"
#include "audio/pipeline.h"
#include "liba/text.h"
#include "os/file.h"
#include "os/path.h"
#include "os/system.h"

#include <utility>
#include <vector>

Conversion::Conversion(const std::wstring& source_path_, const std::wstring& target_path_, bool save_side_file_)
    : source_path(source_path_), target_path(target_path_), save_side_file(save_side_file_)
{
    source = audio::create_play_chain(source_path, nullptr);
    // A chain that plays through the media service has no stream to hand on.
    if (!source || !source->get_reader() || !source->uses_player()) {
        source.reset();
        return;
    }
    encoder = std::make_unique<audio::EncoderMP3>(kBitRate);
    writer = std::make_unique<audio::FileWriterMP3>(target_path, false);
    audio::connect(*source->get_provider(), encoder.get());
    audio::connect(*encoder, writer.get());
}

Conversion::~Conversion()
{
    request_stop();
    // A conversion that reached its end before the stop counts as done.
    if (source)
        finish();
    if (!succeeded && source)
        unlink();
    if (source)
        audio::connect(*source->get_provider(), nullptr);
    encoder.reset();
    source.reset();
}

bool Conversion::is_open() const
{
    return source != nullptr;
}

bool Conversion::is_good()
{
    liba::Lock held(writer_lock);
    return writer ? writer->is_good() : closed_ok.load();
}

bool Conversion::can_encode(std::wstring* why)
{
    if (!source)
        return false;
    audio::FileReader& reader = *source->get_reader();
    const std::int32_t rate = reader.get_rate();
    const std::int32_t channels = reader.get_channels();
    const std::int32_t bits = reader.get_bits();
    static const std::int32_t kRates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
    bool rate_ok = false;
    for (std::int32_t r : kRates)
        rate_ok = rate_ok || r == rate;
    std::wstring reason;
    if (!rate_ok)
        reason = L"a rate of " + liba::int_to_text(rate) + L" Hz, which MP3 has not";
    else if (channels != 1 && channels != 2)
        reason = liba::int_to_text(channels) + L" channels; MP3 takes 1 or 2";
    else if (bits != 8 && bits != 16)
        reason = liba::int_to_text(bits) + L"-bit samples; the encoder takes 8 or 16 bits";
    if (why)
        *why = reason;
    return reason.empty();
}

bool Conversion::has_room()
{
    if (!source)
        return false;
    const double needed = static_cast<double>(encoder->get_bitrate()) * source->get_reader()->get_duration() * 0.125;
    const std::wstring folder = os::folder_of(target_path);
    return os::free_disk_space(folder.empty() ? std::wstring(L".") : folder) > needed;
}

bool Conversion::begin(int priority)
{
    if (!source)
        return false;
    set_priority(priority);
    return start();
}

std::int32_t Conversion::get_position()
{
    return source ? source->get_reader()->get_position() : 0;
}

std::int32_t Conversion::get_length()
{
    return source ? source->get_reader()->get_length() : 0;
}

double Conversion::get_duration()
{
    return source ? source->get_reader()->get_duration() : 0;
}

bool Conversion::is_eof()
{
    return source && source->get_reader()->is_eof();
}

void Conversion::run()
{
    audio::FileReader& reader = *source->get_reader();
    while (!should_stop() && !reader.is_eof()) {
        // A reader that hands on nothing more before its end, or a writer
        // that failed, ends the work: waiting would not help.
        if (!reader.transfer_position(kStep) && !reader.is_eof())
            break;
        if (!is_good())
            break;
    }
    if (!reader.is_eof())
        return;
    {
        liba::Lock held(writer_lock);
        closed_ok = close_writer();
    }
    ended = true;
    if (closed_ok)
        carry_marks();
}

bool Conversion::finish()
{
    join();
    if (writer) {
        liba::Lock held(writer_lock);
        close_writer();
    }
    succeeded = ended && closed_ok && marks_ok;
    return succeeded;
}

bool Conversion::close_writer()
{
    audio::connect(*encoder, nullptr);
    const bool good = writer->is_good();
    const std::int64_t expected = writer->get_position();
    writer.reset();
    os::FileAttributes written(target_path);
    return good && written.exists() && written.size == expected;
}

void Conversion::carry_marks()
{
    RangeMarks old;
    if (!old.load(side_file_of(source_path)) || old.count() == 0)
        return;
    marks_found = true;
    audio::FileReaderMP3 target(target_path);
    if (!target.is_open()) {
        marks_ok = false;
        return;
    }
    audio::FileReader& reader = *source->get_reader();
    auto moved = [&](const RangeMark& mark) {
        return target.seconds_to_position(reader.position_to_seconds(mark.position));
    };
    // Route marks first, in route order, so the route keeps its order; then
    // the others.
    for (int i = 0; i < old.route_count(); ++i) {
        const RangeMark& mark = old.route_mark(i);
        marks.add_mark_raw(moved(mark), mark.name, true);
    }
    for (int i = 0; i < old.count(); ++i) {
        const RangeMark& mark = old.mark(i);
        if (mark.kind == -1)
            marks.add_mark_raw(moved(mark), mark.name, false);
    }
    if (save_side_file)
        marks_ok = marks.save(side_file_of(target_path));
}

void Conversion::unlink()
{
    os::FileAttributes(target_path).remove();
    if (save_side_file && marks_found)
        os::FileAttributes(side_file_of(target_path)).remove();
}
