// Arbitrary bytes through the MPEG frame header parser at every offset, and,
// as a file, through the MP3 reader's frame search and the libmad decoder,
// with seeks and transfers to odd places. Nothing may crash, every parsed
// header must be one the decoder can size, and every pull must end.
#include "audio/decoder_mp3.h"
#include "audio/file_reader_mp3.h"
#include "audio/mp3_header.h"
#include "liba/text.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

void check(bool ok)
{
    if (!ok)
        std::abort();
}

// One in-memory file for all runs, opened by its /proc name like any path.
const std::wstring& memory_file(int& fd)
{
    static int made = memfd_create("fuzz_mp3", 0);
    static std::wstring path = liba::from_utf8("/proc/self/fd/" + std::to_string(made));
    fd = made;
    return path;
}

// Counts what reaches it and keeps nothing.
template <class T>
class Drain : public audio::Consumer<T> {
public:
    void on_data(const T& r) override { bytes += r.bytes.size(); }
    std::size_t bytes = 0;
};

void check_header(const audio::MP3Header& h)
{
    check(h.version >= 1 && h.version <= 3);
    check(h.layer >= 1 && h.layer <= 3);
    check(h.channels == 1 || h.channels == 2);
    check(h.rate >= 8000 && h.rate <= 48000);
    check(h.bitrate >= 8 && h.bitrate <= 448);
    check(h.frame_size > audio::kMP3HeaderSize && h.frame_size < audio::FileReaderMP3::kFrameCopy);
    check(h.samples == 384 || h.samples == 576 || h.samples == 1152);
}

// Pulls PCM until the end; a pull either ends the stream or moves the reader
// on, so there can't be more pulls than bytes.
void pull_to_end(audio::FileReaderMP3& reader, audio::DecoderMP3& decoder, std::size_t size)
{
    for (std::size_t pulls = 0;; ++pulls) {
        check(pulls <= size + 1);
        audio::PCMData out;
        decoder.get_data(out, 16384);
        std::int32_t p = reader.get_position();
        check(p >= 0);
        if (out.empty())
            break;
        check(out.bits == 16 && out.channels == reader.get_channels() && out.rate == reader.get_rate());
        check(out.bytes.size() % std::size_t(2 * out.channels) == 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    for (std::size_t i = 0; i + audio::kMP3HeaderSize <= size; ++i) {
        audio::MP3Header h;
        if (audio::parse_mp3_header(data + i, h))
            check_header(h);
    }

    int fd = -1;
    const std::wstring& path = memory_file(fd);
    check(fd >= 0 && ftruncate(fd, 0) == 0);
    check(size == 0 || pwrite(fd, data, size, 0) == static_cast<ssize_t>(size));

    audio::FileReaderMP3 reader(path);
    check(reader.get_length() == static_cast<std::int32_t>(size));
    if (!reader.is_open())
        return 0;
    if (size != 0)
        check_header(reader.get_format());
    (void)reader.get_duration();
    for (double s : {-1e300, -1.0, 0.0, 0.05, 1e300, std::nan("")})
        (void)reader.seconds_to_position(s);
    for (std::int32_t p : {INT32_MIN, -1, 0, 1, INT32_MAX})
        (void)reader.position_to_seconds(p);

    audio::DecoderMP3 decoder;
    audio::connect(reader, &decoder);
    pull_to_end(reader, decoder, size);
    check(reader.is_eof());

    // Again from odd places, and the push side through the same decoder.
    for (std::int32_t p : {INT32_MIN, INT32_MAX, static_cast<std::int32_t>(size / 3), 1}) {
        reader.set_position(p);
        check(reader.get_position() >= 0 && reader.get_position() <= reader.get_length());
        pull_to_end(reader, decoder, size);
    }
    Drain<audio::PCMData> drain;
    audio::connect(decoder, &drain);
    reader.set_position(0);
    (void)reader.transfer_seconds(0.1);
    (void)reader.transfer_position(static_cast<std::int32_t>(size / 2));
    (void)reader.transfer_seconds(1e300);
    (void)reader.transfer_seconds(std::nan(""));
    audio::connect(decoder, nullptr);
    return 0;
}
