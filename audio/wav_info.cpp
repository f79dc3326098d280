#include "audio/wav_info.h"

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
    value = static_cast<std::uint16_t>(b[0] | (b[1] << 8));
    return true;
}

bool read_u32(os::File& file, std::uint32_t& value)
{
    std::uint8_t b[4];
    if (!read_exact(file, b, sizeof b))
        return false;
    value = static_cast<std::uint32_t>(b[0]) | (static_cast<std::uint32_t>(b[1]) << 8) |
            (static_cast<std::uint32_t>(b[2]) << 16) | (static_cast<std::uint32_t>(b[3]) << 24);
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

// Little-endian fields gathered for one write.
class HeaderBytes {
public:
    void tag(const char* t) { bytes_.append(t, kTagSize); }
    void u16(std::uint32_t v)
    {
        bytes_.push_back(static_cast<char>(v & 0xff));
        bytes_.push_back(static_cast<char>((v >> 8) & 0xff));
    }
    void u32(std::uint32_t v)
    {
        u16(v & 0xffff);
        u16(v >> 16);
    }
    bool write_to(os::File& file) const { return file.write(bytes_.data(), bytes_.size()) == bytes_.size(); }

private:
    std::string bytes_;
};

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

bool WAVInfo::write(os::File& file)
{
    HeaderBytes head;
    head.tag(kRiffTag);
    head.u32(riff_size);
    head.tag(kWaveForm);
    head.tag(kFmtTag);
    head.u32(fmt_size);
    head.u16(format_tag);
    head.u16(static_cast<std::uint32_t>(channels));
    head.u32(static_cast<std::uint32_t>(rate));
    head.u32(bytes_per_second);
    head.u16(block_align);
    head.u16(static_cast<std::uint32_t>(bits));
    if (!head.write_to(file) || !write_format_tail(file))
        return false;
    HeaderBytes data;
    data.tag(kDataTag);
    data.u32(data_size);
    if (!data.write_to(file))
        return false;
    data_offset = static_cast<std::uint32_t>(file.tell());
    return true;
}

bool WAVInfo::read_format_tail(os::File&) { return true; }

bool WAVInfo::write_format_tail(os::File&) { return true; }

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

bool WAVInfoADPCM::write_format_tail(os::File& file)
{
    HeaderBytes tail;
    tail.u16((coefficient_count + 1) * 4);
    tail.u16(samples_per_block);
    tail.u16(coefficient_count);
    for (std::size_t i = 0; i < coefficient_count; ++i) {
        ADPCMCoefficient c = i < coefficients.size() ? coefficients[i] : ADPCMCoefficient{};
        tail.u16(static_cast<std::uint16_t>(c.coef1));
        tail.u16(static_cast<std::uint16_t>(c.coef2));
    }
    tail.tag(kFactTag);
    tail.u32(kFactSize);
    tail.u32(fact_samples);
    return tail.write_to(file);
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

bool WAVInfoGSM::write_format_tail(os::File& file)
{
    HeaderBytes tail;
    tail.u16(kGSMExtraSize);
    tail.u16(samples_per_block);
    tail.tag(kFactTag);
    tail.u32(kFactSize);
    tail.u32(fact_samples);
    return tail.write_to(file);
}

} // namespace audio
