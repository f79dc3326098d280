// Three active equaliser bands as the player drives them: FileReaderWAVPCM
// into three EqualizerPCM, pulled in requests of 16384 frames, the PCM
// written out raw. Prints the PCM bytes written.
// Usage: equalizer_pipeline FILE.wav OUT.raw
#include "audio/equalizer_pcm.h"
#include "audio/file_reader_wav.h"
#include "liba/text.h"
#include "pcm_pipeline.h"

int main(int argc, char** argv)
{
    if (!bench::has_arguments(argc, argv, 2, "FILE.wav OUT.raw"))
        return 2;
    audio::FileReaderWAVPCM reader(liba::from_utf8(argv[1]));
    if (!reader.is_open())
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
    const int status = bench::write_pcm(argv[2], [&](audio::PCMData& pcm) { eq[2].get_data(pcm, 16384); });
    audio::connect(eq[1], nullptr);
    audio::connect(eq[0], nullptr);
    audio::connect(reader, nullptr);
    return status;
}
