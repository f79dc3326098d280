#include "audio/wav_info.h"

#include "liba/little_endian.h"

#include <cstring>
#include <string>

namespace audio {

namespace {

constexpr char kRiffTag[] = "RIFF";
constexpr char kWaveForm[] = "WAVE";
constexpr char kFmtTag[] = "fmt ";
constexpr char kFactTag[] = "fact";
constexpr char kDataTag[] = "data";
constexpr std::size_t kTagSize = 4;
constexpr std::uint32_t kFactSize = 4;
constexpr std::uint16_t kGSMExtraSize = 2;
constexpr std::uint16_t kGSMSamplesPerBlock = 320;
constexpr std::uint16_t kGSMBlockAlign = 65;
constexpr std::int32_t kGSMRate = 8000;
constexpr std::uint32_t kADPCMCoefficientCount = 7;
constexpr std::int32_t kADPCMBits = 4;

bool read_exact(os::File& file, void* to, std::size_t size)
{
    return file.read(to, size) == size;
}

bool read_u16(os::File& file, std::uint16_t& value)
{
    std::uint8_t b[2];
    if (!read_exact(file, b, sizeof b))
        return false;
    value = liba::get_le16(b);
    return true;
}

bool read_u32(os::File& file, std::uint32_t& value)
{
    std::uint8_t b[4];
    if (!read_exact(file, b, sizeof b))
        return false;
    value = liba::get_le32(b);
    return true;
}

bool read_tag(os::File& file, const char* tag)
{
    char b[kTagSize];
    return read_exact(file, b, kTagSize) && std::memcmp(b, tag, kTagSize) == 0;
}

// Walks the chunks from the file's position to the one named `tag` and
// leaves the file behind its size word. The size words of the chunks passed
// are trusted as they stand, odd ones included; only a short read (the end
// of the file) ends the search without a match.
bool find_chunk(os::File& file, const char* tag, std::uint32_t& size)
{
    for (;;) {
        char name[kTagSize];
        if (!read_exact(file, name, kTagSize) || !read_u32(file, size))
            return false;
        if (std::memcmp(name, tag, kTagSize) == 0)
            return true;
        file.skip(size);
    }
}

void append_tag(std::string& bytes, const char* tag) { bytes.append(tag, kTagSize); }

} // namespace

bool WAVInfo::read(os::File& file)
{
    if (!file.good() || !file.is_open())
        return false;
    std::uint16_t tag = 0, ch = 0, align = 0, bps = 0;
    std::uint32_t samples_per_second = 0;
    // The "fmt " chunk stands at a fixed offset: nothing may come before it.
    if (!read_tag(file, kRiffTag) || !read_u32(file, riff_size) || !read_tag(file, kWaveForm) ||
        !read_tag(file, kFmtTag) || !read_u32(file, fmt_size) || !read_u16(file, tag) ||
        !read_u16(file, ch) || !read_u32(file, samples_per_second) ||
        !read_u32(file, bytes_per_second) || !read_u16(file, align) || !read_u16(file, bps))
        return false;
    format_tag = tag;
    channels = ch;
    rate = static_cast<std::int32_t>(samples_per_second);
    block_align = align;
    bits = bps;
    // `fmt_size` is not used to skip: the tail reads what its format has,
    // and anything longer is taken for the next chunk.
    if (!read_format_tail(file))
        return false;
    std::uint32_t size = 0;
    if (!find_chunk(file, kDataTag, size))
        return false;
    data_size = size;
    data_offset = static_cast<std::uint32_t>(file.tell());
    return true;
}

std::string WAVInfo::header_bytes()
{
    std::string head;
    append_tag(head, kRiffTag);
    liba::append_le32(head, riff_size);
    append_tag(head, kWaveForm);
    append_tag(head, kFmtTag);
    liba::append_le32(head, fmt_size);
    liba::append_le16(head, format_tag);
    liba::append_le16(head, static_cast<std::uint32_t>(channels));
    liba::append_le32(head, static_cast<std::uint32_t>(rate));
    liba::append_le32(head, bytes_per_second);
    liba::append_le16(head, block_align);
    liba::append_le16(head, static_cast<std::uint32_t>(bits));
    append_format_tail(head);
    append_tag(head, kDataTag);
    liba::append_le32(head, data_size);
    return head;
}

bool WAVInfo::write(os::File& file)
{
    const std::int64_t start = file.tell();
    const std::string head = header_bytes();
    if (file.write(head.data(), head.size()) != head.size())
        return false;
    data_offset = static_cast<std::uint32_t>(start + static_cast<std::int64_t>(head.size()));
    return true;
}

bool WAVInfo::read_format_tail(os::File&) { return true; }

void WAVInfo::append_format_tail(std::string&) {}

bool WAVInfoPCM::read_format_tail(os::File&) { return format_tag == kFormatTagPCM; }

bool WAVInfoADPCM::read_format_tail(os::File& file)
{
    std::uint16_t extra = 0, spb = 0, count = 0;
    if (!read_u16(file, extra) || !read_u16(file, spb) || !read_u16(file, count))
        return false;
    samples_per_block = spb;
    coefficient_count = count;
    // The table in one read: a damaged count may ask for 65535 pairs.
    std::vector<std::uint8_t> pairs(static_cast<std::size_t>(count) * 4);
    if (!read_exact(file, pairs.data(), pairs.size()))
        return false;
    coefficients.assign(count, ADPCMCoefficient{});
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t* p = pairs.data() + 4 * i;
        coefficients[i].coef1 = static_cast<std::int16_t>(p[0] | (p[1] << 8));
        coefficients[i].coef2 = static_cast<std::int16_t>(p[2] | (p[3] << 8));
    }
    // Only the first 4 bytes of "fact" are read; the search for "data" goes
    // on right behind them, whatever the chunk's size says.
    std::uint32_t size = 0;
    if (!find_chunk(file, kFactTag, size) || !read_u32(file, fact_samples))
        return false;
    return format_tag == kFormatTagADPCM && (channels == 1 || channels == 2) && bits == kADPCMBits &&
           coefficient_count == kADPCMCoefficientCount;
}

void WAVInfoADPCM::append_format_tail(std::string& tail)
{
    liba::append_le16(tail, (coefficient_count + 1) * 4);
    liba::append_le16(tail, samples_per_block);
    liba::append_le16(tail, coefficient_count);
    for (std::size_t i = 0; i < coefficient_count; ++i) {
        ADPCMCoefficient c = i < coefficients.size() ? coefficients[i] : ADPCMCoefficient{};
        liba::append_le16(tail, static_cast<std::uint16_t>(c.coef1));
        liba::append_le16(tail, static_cast<std::uint16_t>(c.coef2));
    }
    append_tag(tail, kFactTag);
    liba::append_le32(tail, kFactSize);
    liba::append_le32(tail, fact_samples);
}

void WAVInfoADPCM::set_standard_coefficients()
{
    coefficients.assign(std::begin(kADPCMCoefficients), std::end(kADPCMCoefficients));
    coefficient_count = static_cast<std::uint32_t>(coefficients.size());
}

bool WAVInfoGSM::read_format_tail(os::File& file)
{
    std::uint16_t extra = 0, spb = 0;
    if (!read_u16(file, extra) || !read_u16(file, spb))
        return false;
    samples_per_block = spb;
    std::uint32_t size = 0;
    if (!find_chunk(file, kFactTag, size) || !read_u32(file, fact_samples))
        return false;
    return format_tag == kFormatTagGSM && channels == 1 && rate == kGSMRate &&
           samples_per_block == kGSMSamplesPerBlock && block_align == kGSMBlockAlign;
}

void WAVInfoGSM::append_format_tail(std::string& tail)
{
    liba::append_le16(tail, kGSMExtraSize);
    liba::append_le16(tail, samples_per_block);
    append_tag(tail, kFactTag);
    liba::append_le32(tail, kFactSize);
    liba::append_le32(tail, fact_samples);
}

} // namespace audio
