// Feeds arbitrary bytes, as a file, to the Musepack decoder: its stream
// header, packets and seek table as libmpcdec's demuxer reads them.
#include "audio/decoder_mpc.h"

#include "fuzz_decoder.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz_decoder::set_up("fuzz_mpc");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz_decoder::run<audio::DecoderMPC>(data, size);
    return 0;
}
