// The MP3 decode as the player drives it: FileReaderMP3 into DecoderMP3,
// pulled in requests of 16384 frames, the PCM written out raw. Prints the PCM
// bytes written. Usage: mp3_decode_pipeline FILE.mp3 OUT.raw
#include "audio/decoder_mp3.h"
#include "audio/file_reader_mp3.h"
#include "liba/text.h"
#include "pcm_pipeline.h"

int main(int argc, char** argv)
{
    if (!bench::has_arguments(argc, argv, 2, "FILE.mp3 OUT.raw"))
        return 2;
    audio::FileReaderMP3 reader(liba::from_utf8(argv[1]));
    if (!reader.is_open())
        return 1;
    audio::DecoderMP3 decoder;
    audio::connect(reader, &decoder);
    const int status = bench::write_pcm(argv[2], [&](audio::PCMData& pcm) { decoder.get_data(pcm, 16384); });
    audio::connect(reader, nullptr);
    return status;
}
