// Feeds arbitrary bytes, as a file, to the three WAV readers and through the
// ADPCM and GSM decoders, with seeks and transfers to every odd place; the
// bytes go straight into both decoders as well. A header that reads must
// read back the same after it is written out again.
#include "audio/adpcm_codec.h"
#include "audio/file_reader_wav.h"
#include "audio/gsm_codec.h"
#include "audio/wav_info.h"
#include "fuzz_files.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

std::wstring file_in_folder(const char* name) { return fuzz::scratch_file(name, ".wav"); }

// Counts what reaches it and keeps nothing.
template <class T>
class Drain : public audio::Consumer<T> {
public:
    void on_data(const T& r) override { bytes += r.bytes.size(); }
    size_t bytes = 0;
};

template <class Reader>
void poke(Reader& r)
{
    (void)r.is_eof();
    (void)r.get_channels();
    (void)r.get_bits();
    (void)r.get_rate();
    (void)r.get_bitrate();
    (void)r.get_duration();
    for (int32_t p : {INT32_MIN, -1, 0, 1, 7, INT32_MAX})
        (void)r.position_to_seconds(p);
    for (double s : {-1e300, -1.0, 0.0, 0.01, 1e9, 1e300, std::nan("")})
        (void)r.seconds_to_position(s);
}

template <class Reader>
void seek_around(Reader& r)
{
    for (int32_t p : {INT32_MAX, INT32_MIN, -3, 1, 0})
        r.set_position(p);
    r.set_time(std::nan(""));
    r.set_time(1e300);
    r.set_time(0.0);
}

void read_pcm(const std::wstring& path)
{
    audio::FileReaderWAVPCM r(path);
    poke(r);
    if (!r.is_open())
        return;
    for (int n : {1, 16384, INT_MAX, 0, -5}) {
        audio::PCMData rec;
        r.get_data(rec, n);
    }
    seek_around(r);
    Drain<audio::PCMData> drain;
    audio::connect(r, &drain);
    r.transfer_position(INT32_MAX);
    r.set_position(0);
    r.transfer_seconds(0.05);
    r.transfer_seconds(1e300);
    audio::connect(r, nullptr);
}

template <class Reader, class Decoder>
void read_blocks(const std::wstring& path)
{
    Reader r(path);
    poke(r);
    if (!r.is_open())
        return;
    Decoder d;
    audio::connect(r, &d);
    for (int i = 0; i < 10000; ++i) {
        audio::PCMData rec;
        d.get_data(rec, i % 2 ? 16384 : 333);
        if (rec.empty())
            break;
    }
    seek_around(r);
    for (int i = 0; i < 3; ++i) {
        audio::PCMData rec;
        d.get_data(rec, INT_MAX);
    }
    audio::connect(r, nullptr);
}

// A header written from what was read reads back the same.
template <class Info>
void round_trip(const std::wstring& path)
{
    Info first;
    {
        os::File in(path, os::File::kRead);
        if (!first.read(in))
            return;
    }
    const std::wstring again = file_in_folder("again-");
    {
        os::File out(again, os::File::kWrite);
        if (!first.write(out))
            std::abort();
    }
    Info second;
    os::File in(again, os::File::kRead);
    if (!second.read(in) || second.channels != first.channels || second.bits != first.bits ||
        second.rate != first.rate || second.format_tag != first.format_tag ||
        second.block_align != first.block_align || second.bytes_per_second != first.bytes_per_second ||
        second.data_size != first.data_size || second.data_offset != first.data_offset ||
        second.riff_size != first.riff_size || second.fmt_size != first.fmt_size)
        std::abort();
}

// The input's bytes as blocks, with a format from its first bytes.
void decode_raw(const uint8_t* data, size_t size)
{
    if (size < 4)
        return;
    audio::ADPCMData a;
    a.channels = data[0] % 4;
    a.bits = data[1] % 9;
    a.block_size = data[2] | (data[3] & 0x0f) << 8;
    a.rate = 8000;
    a.bytes = liba::ByteBlock(data + 4, size - 4);
    audio::DecoderADPCM adpcm;
    adpcm.on_data(a);
    audio::GSMData g;
    g.bytes = a.bytes;
    audio::DecoderGSM gsm;
    gsm.on_data(g);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The readers log what they refuse.
    fuzz::init_scratch("fuzz_wav");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::wstring path = file_in_folder("input-");
    fuzz::put_file(path, data, size);
    read_pcm(path);
    read_blocks<audio::FileReaderWAVADPCM, audio::DecoderADPCM>(path);
    read_blocks<audio::FileReaderWAVGSM, audio::DecoderGSM>(path);
    round_trip<audio::WAVInfoPCM>(path);
    round_trip<audio::WAVInfoADPCM>(path);
    round_trip<audio::WAVInfoGSM>(path);
    decode_raw(data, size);
    fuzz::remove_file(path);
    fuzz::remove_file(file_in_folder("again-"));
    return 0;
}
