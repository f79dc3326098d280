// What the pipeline programs share: the check of their arguments and the
// loop that pulls PCM from the last stage into a raw file and prints the
// bytes written. Called from the program's main thread; sizes in bytes.
#pragma once

#include "audio/records.h"

#include <cstdio>

namespace bench {

// True when the program got `count` arguments; else prints
// "usage: PROGRAM `usage`".
inline bool has_arguments(int argc, char** argv, int count, const char* usage)
{
    if (argc == count + 1)
        return true;
    std::fprintf(stderr, "usage: %s %s\n", argv[0], usage);
    return false;
}

// Calls pull(record) until it gives an empty record, writing each one's bytes
// to `path`, then prints how many there were. The program's exit code.
template <class Pull>
int write_pcm(const char* path, Pull pull)
{
    std::FILE* out = std::fopen(path, "wb");
    if (!out)
        return 1;
    unsigned long long written = 0;
    for (;;) {
        audio::PCMData pcm;
        pull(pcm);
        if (pcm.empty())
            break;
        std::fwrite(pcm.bytes.data(), 1, pcm.bytes.size(), out);
        written += pcm.bytes.size();
    }
    std::fclose(out);
    std::printf("%llu\n", written);
    return 0;
}

} // namespace bench
