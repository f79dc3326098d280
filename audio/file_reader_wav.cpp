#include "audio/file_reader_wav.h"

#include "os/log.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace audio {

namespace {

// The largest records that a transfer pushes.
constexpr std::int32_t kPCMTransferFrames = 5000;
constexpr std::int32_t kADPCMTransferBlocks = 5;
constexpr std::int32_t kGSMTransferBlocks = 10;
constexpr std::int32_t kDecodedBits = 16;

// Truncates towards zero into the range of a position; NaN is 0.
std::int32_t to_position(double v)
{
    if (std::isnan(v))
        return 0;
    constexpr double lo = std::numeric_limits<std::int32_t>::min();
    constexpr double hi = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::trunc(std::clamp(v, lo, hi)));
}

// 32-bit products of header fields wrap as unsigned arithmetic instead of
// overflowing: a damaged header gives a strange number, never a fault.
std::int32_t wrapping_product(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

} // namespace

// --- FileReaderWAV ---

FileReaderWAV::FileReaderWAV(const std::wstring& path) : file(path, os::File::kRead), path_(path) {}

bool FileReaderWAV::is_open()
{
    liba::Lock held(lock);
    return is_valid;
}

void FileReaderWAV::parse(WAVInfo& info, const char* kind)
{
    liba::Lock held(lock);
    is_valid = info.read(file);
    if (!is_valid)
        os::log() << "WAV reader: " << path_ << " is not " << kind << " WAV (gave up at byte " << file.tell()
                  << ")\n";
}

bool FileReaderWAV::is_eof()
{
    liba::Lock held(lock);
    return !is_valid || get_position() >= get_length();
}

std::int32_t FileReaderWAV::get_channels()
{
    liba::Lock held(lock);
    return is_valid ? get_wav_info().channels : 0;
}

std::int32_t FileReaderWAV::get_rate()
{
    liba::Lock held(lock);
    return is_valid ? get_wav_info().rate : 0;
}

std::int32_t FileReaderWAV::get_bitrate()
{
    liba::Lock held(lock);
    return is_valid ? wrapping_product(get_wav_info().bytes_per_second, 8) : 0;
}

std::int64_t FileReaderWAV::bytes_left_in_file()
{
    return std::max<std::int64_t>(file.size() - file.tell(), 0);
}

// --- FileReaderWAVPCM ---

FileReaderWAVPCM::FileReaderWAVPCM(const std::wstring& path) : FileReaderWAV(path) { parse(info, "PCM"); }

void FileReaderWAVPCM::get_data(PCMData& out, int n)
{
    liba::Lock held(lock);
    out = PCMData();
    if (!is_valid)
        return;
    std::int64_t want = static_cast<std::int64_t>(info.block_align) * n;
    std::int64_t left = static_cast<std::int64_t>(get_length()) - get_position();
    want = std::min(want, left);
    if (want <= 0)
        return;
    // A request the file cannot fill is dropped whole; the read that finds
    // this out still moves the cursor to the end of the file.
    if (want > bytes_left_in_file()) {
        if (file.tell() < file.size())
            file.seek(file.size());
        return;
    }
    liba::ByteBlock bytes(static_cast<std::size_t>(want));
    if (file.read(bytes.writable(), bytes.size()) != bytes.size())
        return;
    out.bytes = std::move(bytes);
    out.channels = info.channels;
    out.bits = info.bits;
    out.rate = info.rate;
}

std::int32_t FileReaderWAVPCM::get_bits()
{
    liba::Lock held(lock);
    return is_valid ? info.bits : 0;
}

std::int32_t FileReaderWAVPCM::seconds_to_position(double seconds)
{
    liba::Lock held(lock);
    if (!is_valid)
        return 0;
    return wrapping_product(to_position(info.rate * seconds), info.block_align);
}

double FileReaderWAVPCM::position_to_seconds(std::int32_t position)
{
    liba::Lock held(lock);
    if (!is_valid || info.block_align == 0 || info.rate == 0)
        return 0.0;
    return static_cast<double>(position) / info.block_align / info.rate;
}

std::int32_t FileReaderWAVPCM::get_length()
{
    liba::Lock held(lock);
    return is_valid ? static_cast<std::int32_t>(info.data_size) : 0;
}

std::int32_t FileReaderWAVPCM::get_position()
{
    liba::Lock held(lock);
    return is_valid ? static_cast<std::int32_t>(file.tell() - info.data_offset) : 0;
}

void FileReaderWAVPCM::set_position(std::int32_t position)
{
    liba::Lock held(lock);
    if (!is_valid || info.block_align == 0)
        return;
    std::int64_t p = position - position % info.block_align;
    p = std::clamp<std::int64_t>(p, 0, file.size());
    file.seek(info.data_offset + p);
}

bool FileReaderWAVPCM::transfer_seconds(double seconds)
{
    liba::Lock held(lock);
    if (!is_valid)
        return false;
    return transfer_position(wrapping_product(to_position(info.rate * seconds), info.block_align));
}

bool FileReaderWAVPCM::transfer_position(std::int32_t amount)
{
    liba::Lock held(lock);
    if (!is_valid || info.block_align == 0)
        return false;
    std::int64_t frames = amount / info.block_align;
    while (frames > 0) {
        PCMData record;
        get_data(record, static_cast<int>(std::min<std::int64_t>(frames, kPCMTransferFrames)));
        if (record.empty())
            return false;
        push_data(record);
        frames -= static_cast<std::int64_t>(record.sample_count());
    }
    return true;
}

// --- FileReaderWAVBlocks ---

template <class T, class Info>
FileReaderWAVBlocks<T, Info>::FileReaderWAVBlocks(const std::wstring& path, const char* kind,
                                                  std::int32_t transfer_step)
    : FileReaderWAV(path), transfer_step_(transfer_step)
{
    parse(info, kind);
}

template <class T, class Info>
void FileReaderWAVBlocks<T, Info>::get_data(T& out, int n)
{
    liba::Lock held(lock);
    out = T();
    if (!is_valid)
        return;
    std::int64_t blocks = std::min<std::int64_t>(n, static_cast<std::int64_t>(get_length()) - block_index);
    std::int64_t want = std::max<std::int64_t>(blocks, 0) * info.block_align;
    // What lies beyond the end of the file would not be read anyway.
    want = std::min(want, bytes_left_in_file());
    liba::ByteBlock bytes(static_cast<std::size_t>(want));
    std::size_t got = want > 0 ? file.read(bytes.writable(), bytes.size()) : 0;
    std::size_t whole = info.block_align != 0 ? got / info.block_align : 0;
    block_index += static_cast<std::int32_t>(whole);
    // A part block stays unread: the cursor goes back to the block boundary.
    if (info.block_align != 0 && got % info.block_align != 0)
        file.seek(info.data_offset + static_cast<std::int64_t>(block_index) * info.block_align);
    make_record(out, liba::ByteBlock(bytes, 0, whole * info.block_align));
}

template <class T, class Info>
std::int32_t FileReaderWAVBlocks<T, Info>::get_bits()
{
    liba::Lock held(lock);
    return is_valid ? kDecodedBits : 0;
}

template <class T, class Info>
std::int32_t FileReaderWAVBlocks<T, Info>::seconds_to_position(double seconds)
{
    liba::Lock held(lock);
    if (!is_valid || info.samples_per_block == 0)
        return 0;
    return to_position(info.rate * seconds / info.samples_per_block);
}

template <class T, class Info>
double FileReaderWAVBlocks<T, Info>::position_to_seconds(std::int32_t position)
{
    liba::Lock held(lock);
    if (!is_valid || info.rate == 0)
        return 0.0;
    return static_cast<double>(info.samples_per_block) * position / info.rate;
}

template <class T, class Info>
std::int32_t FileReaderWAVBlocks<T, Info>::get_length()
{
    liba::Lock held(lock);
    if (!is_valid || info.samples_per_block == 0)
        return 0;
    return static_cast<std::int32_t>(info.fact_samples / info.samples_per_block);
}

template <class T, class Info>
std::int32_t FileReaderWAVBlocks<T, Info>::get_position()
{
    liba::Lock held(lock);
    return is_valid ? block_index : 0;
}

template <class T, class Info>
void FileReaderWAVBlocks<T, Info>::set_position(std::int32_t position)
{
    liba::Lock held(lock);
    if (!is_valid || position == block_index)
        return;
    block_index = position;
    file.seek(info.data_offset + static_cast<std::int64_t>(position) * info.block_align);
}

template <class T, class Info>
bool FileReaderWAVBlocks<T, Info>::transfer_seconds(double seconds)
{
    liba::Lock held(lock);
    if (!is_valid || info.samples_per_block == 0)
        return false;
    return transfer_position(seconds_to_position(seconds));
}

template <class T, class Info>
bool FileReaderWAVBlocks<T, Info>::transfer_position(std::int32_t amount)
{
    liba::Lock held(lock);
    if (!is_valid)
        return false;
    std::int64_t left = amount;
    while (left > 0) {
        T record;
        get_data(record, static_cast<int>(std::min<std::int64_t>(left, transfer_step_)));
        if (record.empty())
            return false;
        this->push_data(record);
        // A record is never empty without a block size: it holds whole blocks.
        left -= static_cast<std::int64_t>(record.bytes.size() / info.block_align);
    }
    return true;
}

template class FileReaderWAVBlocks<ADPCMData, WAVInfoADPCM>;
template class FileReaderWAVBlocks<GSMData, WAVInfoGSM>;

// --- FileReaderWAVADPCM, FileReaderWAVGSM ---

FileReaderWAVADPCM::FileReaderWAVADPCM(const std::wstring& path)
    : FileReaderWAVBlocks(path, "Microsoft ADPCM", kADPCMTransferBlocks)
{
}

void FileReaderWAVADPCM::make_record(ADPCMData& out, const liba::ByteBlock& bytes)
{
    out.bytes = bytes;
    out.channels = info.channels;
    out.bits = info.bits;
    out.rate = info.rate;
    out.block_size = info.block_align;
}

FileReaderWAVGSM::FileReaderWAVGSM(const std::wstring& path)
    : FileReaderWAVBlocks(path, "GSM 06.10", kGSMTransferBlocks)
{
}

void FileReaderWAVGSM::make_record(GSMData& out, const liba::ByteBlock& bytes) { out.bytes = bytes; }

} // namespace audio
