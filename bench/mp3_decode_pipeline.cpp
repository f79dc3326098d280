// The MP3 decode as the player drives it: FileReaderMP3 into DecoderMP3,
// pulled in requests of 16384 frames, the PCM written out raw. Prints the PCM
// bytes written. Usage: mp3_decode_pipeline FILE.mp3 OUT.raw
#include "audio/decoder_mp3.h"
#include "audio/file_reader_mp3.h"
#include "liba/text.h"

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s FILE.mp3 OUT.raw\n", argv[0]);
        return 2;
    }
    audio::FileReaderMP3 reader(liba::from_utf8(argv[1]));
    if (!reader.is_open())
        return 1;
    std::FILE* out = std::fopen(argv[2], "wb");
    if (!out)
        return 1;
    audio::DecoderMP3 decoder;
    audio::connect(reader, &decoder);
    unsigned long long written = 0;
    for (;;) {
        audio::PCMData pcm;
        decoder.get_data(pcm, 16384);
        if (pcm.empty())
            break;
        std::fwrite(pcm.bytes.data(), 1, pcm.bytes.size(), out);
        written += pcm.bytes.size();
    }
    audio::connect(reader, nullptr);
    std::fclose(out);
    std::printf("%llu\n", written);
    return 0;
}
