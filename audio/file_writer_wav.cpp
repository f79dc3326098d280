#include "audio/file_writer_wav.h"

#include "audio/adpcm_codec.h"
#include "audio/gsm_codec.h"
#include "audio/wav_repair.h"
#include "liba/little_endian.h"

#include <cstring>
#include <type_traits>
#include <unistd.h>

namespace audio {

namespace {

constexpr std::uint32_t kPCMFmtSize = 16;
constexpr std::uint32_t kADPCMFmtSize = 50;
constexpr std::uint32_t kGSMFmtSize = 20;
// Where the audio begins in the headers written here; writing the header
// sets the real offset again, these are only its starting values.
constexpr std::uint32_t kPCMDataOffset = 44;
constexpr std::uint32_t kADPCMDataOffset = 90;
constexpr std::uint32_t kGSMDataOffset = 60;
constexpr std::int32_t kADPCMBits = 4;
constexpr std::uint32_t kGSMBytesPerSecond = 1625;

using liba::kRiffChunkHeader;
using liba::kRiffSizeAt;

// Sample frames in an ADPCM block, as the header counts them; 0 for a
// format that can't hold one.
std::int32_t adpcm_block_samples(std::int32_t block_size, std::int32_t channels, std::int32_t bits)
{
    if (bits * channels <= 0 || block_size < kADPCMHeaderPerChannel * channels)
        return 0;
    return ((block_size - kADPCMHeaderPerChannel * channels) * 8) / (bits * channels) + 2;
}

} // namespace

// --- FileWriterWAV ---

template <class Info, class Data>
FileWriterWAV<Info, Data>::FileWriterWAV(const std::wstring& p, bool append, const os::RecordingJournal* journal)
    : path(p)
{
    if (journal)
        guard = std::make_unique<RecordingGuard>(*journal);
    if (!append) {
        good = true;
        return;
    }
    if (guard)
        guard->list(path);
    // A recording cut off by a crash is whole again before it goes on.
    check_and_repair_wav(path);
    file = std::make_unique<os::File>(path, os::File::kReadWrite);
    if (!info.read(*file) || !read_header())
        return;
    // Anything behind the data chunk goes, a half block left by a crash
    // included; a header that claims more than the file holds makes it
    // longer.
    if (!cut_at_data_end())
        header.clear();
    else
        good = true;
}

template <class Info, class Data>
bool FileWriterWAV<Info, Data>::read_header()
{
    std::string bytes(info.data_offset, '\0');
    if (info.data_offset < kRiffChunkHeader + kRiffSizeAt || !file->seek(0) ||
        file->read(bytes.data(), bytes.size()) != bytes.size())
        return false;
    return keep_header(std::move(bytes));
}

template <class Info, class Data>
bool FileWriterWAV<Info, Data>::keep_header(std::string bytes)
{
    // The "fact" chunk is searched for behind the format tail, chunk by
    // chunk, the way the reader found it.
    std::size_t at = 0;
    if constexpr (std::is_same_v<Info, WAVInfoADPCM>)
        at = 42 + 4 * static_cast<std::size_t>(info.coefficient_count);
    else if constexpr (std::is_same_v<Info, WAVInfoGSM>)
        at = 40;
    if (at != 0) {
        auto not_fact = [&](std::size_t c) { return std::memcmp(bytes.data() + c, "fact", 4) != 0; };
        at = liba::walk_riff_chunks(bytes, at, not_fact);
        if (at + kRiffChunkHeader + 4 > bytes.size())
            return false;
        fact_at = at + kRiffChunkHeader;
    }
    header = std::move(bytes);
    return true;
}

template <class Info, class Data>
void FileWriterWAV<Info, Data>::patch_header()
{
    if (header.empty())
        return;
    info.riff_size = info.data_offset + info.data_size - 8;
    liba::put_le32(header.data() + kRiffSizeAt, info.riff_size);
    liba::put_le32(header.data() + header.size() - 4, info.data_size);
    if constexpr (!std::is_same_v<Info, WAVInfoPCM>) {
        if (fact_at != 0)
            liba::put_le32(header.data() + fact_at, info.fact_samples);
    }
    // Failures are not looked at: the data stays where it was written.
    [[maybe_unused]] ssize_t n = ::pwrite(file->handle(), header.data(), header.size(), 0);
}

template <class Info, class Data>
void FileWriterWAV<Info, Data>::sync_if_due()
{
    if (!guard || !guard->sync_due())
        return;
    patch_header();
    ::fdatasync(file->handle());
    guard->synced();
}

template <class Info, class Data>
FileWriterWAV<Info, Data>::~FileWriterWAV()
{
    liba::Lock held(this->lock);
    if (!file)
        return;
    // A short write left its error in the file object; the header is
    // written all the same.
    file->clear_errors();
    patch_header();
    if (guard)
        ::fdatasync(file->handle());
    file.reset();
    // The file is whole: its entry in the journal goes last.
    guard.reset();
}

template <class Info, class Data>
bool FileWriterWAV<Info, Data>::is_good()
{
    liba::Lock held(this->lock);
    return good;
}

template <class Info, class Data>
void FileWriterWAV<Info, Data>::process(Data& out, const Data& in)
{
    liba::Lock held(this->lock);
    out = in;
    // An empty record carries no format and no audio: it makes no file.
    if (!good || in.empty())
        return;
    if (!file) {
        if (!set_format(in))
            return;
        if (guard)
            guard->list(path);
        file = std::make_unique<os::File>(path, os::File::kWrite);
        good = file->is_open() && info.write(*file) && keep_header(info.header_bytes());
        if (!good)
            return;
    }
    good = write_data(in);
    sync_if_due();
}

template <class Info, class Data>
std::size_t FileWriterWAV<Info, Data>::write_bytes(const liba::ByteBlock& bytes)
{
    return file->write(bytes.data(), bytes.size());
}

template <class Info, class Data>
bool FileWriterWAV<Info, Data>::finish_write(std::size_t written, std::size_t whole, std::size_t size)
{
    if (whole == written)
        return written == size;
    file->clear_errors();
    cut_at_data_end();
    return false;
}

template <class Info, class Data>
bool FileWriterWAV<Info, Data>::cut_at_data_end()
{
    std::int64_t end = static_cast<std::int64_t>(info.data_offset) + info.data_size;
    return ::ftruncate(file->handle(), static_cast<off_t>(end)) == 0 && file->seek(end);
}

template class FileWriterWAV<WAVInfoPCM, PCMData>;
template class FileWriterWAV<WAVInfoADPCM, ADPCMData>;
template class FileWriterWAV<WAVInfoGSM, GSMData>;

// --- FileWriterWAVPCM ---

FileWriterWAVPCM::FileWriterWAVPCM(const std::wstring& p, bool append, const os::RecordingJournal* journal)
    : FileWriterWAV(p, append, journal)
{
    if (append) {
        if (info.block_align != 0)
            sample_count = static_cast<std::int32_t>(info.data_size / info.block_align);
        return;
    }
    info.format_tag = kFormatTagPCM;
    info.fmt_size = kPCMFmtSize;
    info.data_offset = kPCMDataOffset;
}

std::int32_t FileWriterWAVPCM::get_position()
{
    liba::Lock held(lock);
    return ((info.bits + 7) / 8) * info.channels * sample_count;
}

std::int32_t FileWriterWAVPCM::get_bitrate()
{
    liba::Lock held(lock);
    return static_cast<std::int32_t>(info.bytes_per_second * 8);
}

bool FileWriterWAVPCM::set_format(const PCMData& in)
{
    // A record without a frame size can't say what a file would hold.
    if (in.bytes_per_frame() <= 0 || in.rate <= 0)
        return false;
    info.channels = in.channels;
    info.bits = in.bits;
    info.rate = in.rate;
    info.block_align = static_cast<std::uint16_t>(in.bytes_per_frame());
    info.bytes_per_second = static_cast<std::uint32_t>(info.block_align) * static_cast<std::uint32_t>(in.rate);
    return true;
}

bool FileWriterWAVPCM::write_data(const PCMData& in)
{
    if (in.rate != info.rate || in.bits != info.bits || in.channels != info.channels || in.bytes_per_frame() <= 0)
        return true;
    const std::size_t frame = static_cast<std::size_t>(in.bytes_per_frame());
    const std::size_t written = write_bytes(in.bytes);
    const std::size_t units = written / frame;
    sample_count += static_cast<std::int32_t>(units);
    info.data_size += static_cast<std::uint32_t>(units * frame);
    return finish_write(written, units * frame, in.bytes.size());
}

// --- FileWriterWAVADPCM ---

FileWriterWAVADPCM::FileWriterWAVADPCM(const std::wstring& p, bool append, const os::RecordingJournal* journal)
    : FileWriterWAV(p, append, journal)
{
    if (append) {
        if (info.block_align != 0)
            block_count = static_cast<std::int32_t>(info.data_size / info.block_align);
        return;
    }
    info.format_tag = kFormatTagADPCM;
    info.fmt_size = kADPCMFmtSize;
    info.data_offset = kADPCMDataOffset;
    info.bits = kADPCMBits;
    info.set_standard_coefficients();
}

std::int32_t FileWriterWAVADPCM::get_position()
{
    liba::Lock held(lock);
    return block_count;
}

bool FileWriterWAVADPCM::set_format(const ADPCMData& in)
{
    if (in.channels != 1 && in.channels != 2)
        return false;
    const std::int32_t spb = adpcm_block_samples(in.block_size, in.channels, in.bits);
    if (spb <= 0 || in.rate <= 0)
        return false;
    info.block_align = static_cast<std::uint16_t>(in.block_size);
    info.channels = in.channels;
    info.rate = in.rate;
    info.samples_per_block = static_cast<std::uint16_t>(spb);
    info.bytes_per_second = static_cast<std::uint32_t>(static_cast<std::int64_t>(in.rate) * in.block_size / spb);
    return true;
}

bool FileWriterWAVADPCM::write_data(const ADPCMData& in)
{
    if (in.rate != info.rate || in.bits != info.bits || in.channels != info.channels ||
        in.block_size != info.block_align || in.block_size <= 0)
        return true;
    const std::size_t block = static_cast<std::size_t>(in.block_size);
    const std::size_t written = write_bytes(in.bytes);
    const std::size_t units = written / block;
    block_count += static_cast<std::int32_t>(units);
    info.data_size += static_cast<std::uint32_t>(units * block);
    info.fact_samples +=
        static_cast<std::uint32_t>(units) * static_cast<std::uint32_t>(adpcm_block_samples(in.block_size, in.channels, in.bits));
    return finish_write(written, units * block, in.bytes.size());
}

// --- FileWriterWAVGSM ---

FileWriterWAVGSM::FileWriterWAVGSM(const std::wstring& p, bool append, const os::RecordingJournal* journal)
    : FileWriterWAV(p, append, journal)
{
    if (append) {
        if (info.block_align != 0)
            block_count = static_cast<std::int32_t>(info.data_size / info.block_align);
        return;
    }
    info.format_tag = kFormatTagGSM;
    info.fmt_size = kGSMFmtSize;
    info.data_offset = kGSMDataOffset;
    info.bits = 0;
    info.channels = 1;
    info.rate = kGSMRate;
    info.block_align = kGSMBlockBytes;
    info.bytes_per_second = kGSMBytesPerSecond;
    info.samples_per_block = kGSMBlockSamples;
}

std::int32_t FileWriterWAVGSM::get_position()
{
    liba::Lock held(lock);
    return block_count;
}

bool FileWriterWAVGSM::set_format(const GSMData&) { return true; }

bool FileWriterWAVGSM::write_data(const GSMData& in)
{
    const std::size_t block = kGSMBlockBytes;
    const std::size_t written = write_bytes(in.bytes);
    const std::size_t units = written / block;
    block_count += static_cast<std::int32_t>(units);
    info.data_size += static_cast<std::uint32_t>(units * block);
    info.fact_samples += static_cast<std::uint32_t>(units * kGSMBlockSamples);
    return finish_write(written, units * block, in.bytes.size());
}

} // namespace audio
