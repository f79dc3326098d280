// Three active equaliser bands as the player drives them: FileReaderWAVPCM
// into three EqualizerPCM, pulled in requests of 16384 frames, the PCM
// written out raw. Prints the PCM bytes written.
// Usage: equalizer_pipeline FILE.wav OUT.raw
#include "audio/equalizer_pcm.h"
#include "audio/file_reader_wav.h"
#include "liba/text.h"

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s FILE.wav OUT.raw\n", argv[0]);
        return 2;
    }
    audio::FileReaderWAVPCM reader(liba::from_utf8(argv[1]));
    if (!reader.is_open())
        return 1;
    std::FILE* out = std::fopen(argv[2], "wb");
    if (!out)
        return 1;
    // The same bands as the peers get: Hz, octaves, dB.
    const double bands[3][3] = {{100, 1, 4}, {1000, 1, -6}, {6000, 2, 3}};
    audio::EqualizerPCM eq[3];
    for (int i = 0; i < 3; ++i) {
        eq[i].set_frequency(bands[i][0]);
        eq[i].set_width(bands[i][1]);
        eq[i].set_amplitude(bands[i][2]);
    }
    audio::connect(reader, &eq[0]);
    audio::connect(eq[0], &eq[1]);
    audio::connect(eq[1], &eq[2]);
    unsigned long long written = 0;
    for (;;) {
        audio::PCMData pcm;
        eq[2].get_data(pcm, 16384);
        if (pcm.empty())
            break;
        std::fwrite(pcm.bytes.data(), 1, pcm.bytes.size(), out);
        written += pcm.bytes.size();
    }
    audio::connect(eq[1], nullptr);
    audio::connect(eq[0], nullptr);
    audio::connect(reader, nullptr);
    std::fclose(out);
    std::printf("%llu\n", written);
    return 0;
}
