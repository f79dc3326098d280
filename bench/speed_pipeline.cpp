// The play path's speed stages as the player drives them: FileReaderWAVPCM
// into the program's PlayPath set to a speed, pulled in requests of 16384
// frames, the PCM written out raw. Prints the PCM bytes written.
// Usage: speed_pipeline FILE.wav OUT.raw SPEED keep|change|stretch
#include "app/play_path.h"
#include "audio/file_reader_wav.h"
#include "liba/text.h"
#include "pcm_pipeline.h"

#include <cstdlib>
#include <cstring>

namespace {

class Sink : public audio::PullOnlyConsumer<audio::PCMData> {
public:
    Sink() : audio::PullOnlyConsumer<audio::PCMData>(audio::kPlayerOnData) {}
    void pull(audio::PCMData& out)
    {
        liba::Lock held(lock);
        pull_data(out, 16384);
    }
};

} // namespace

int main(int argc, char** argv)
{
    if (!bench::has_arguments(argc, argv, 4, "FILE.wav OUT.raw SPEED keep|change|stretch"))
        return 2;
    audio::FileReaderWAVPCM reader(liba::from_utf8(argv[1]));
    if (!reader.is_open())
        return 1;
    Sink sink;
    PlayPath path;
    path.attach(&sink);
    path.set_speed(std::atof(argv[3]), std::strcmp(argv[4], "change") != 0, std::strcmp(argv[4], "stretch") == 0);
    audio::connect(reader, &path.head());
    const int status = bench::write_pcm(argv[2], [&](audio::PCMData& pcm) { sink.pull(pcm); });
    path.attach(nullptr);
    audio::connect(reader, nullptr);
    return status;
}
