// Feeds arbitrary bytes, as a file, to the Ogg Vorbis decoder: its pages,
// headers, packets and chained links as Tremor and libogg read them.
#include "audio/decoder_vorbis.h"

#include "fuzz_decoder.h"

// Tremor's header reader loses its list of stream serial numbers when the
// headers after them fail; that is the library's, not ours to free.
extern "C" const char* __lsan_default_suppressions() { return "leak:_fetch_headers\n"; }

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz_decoder::set_up("fuzz_ogg");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz_decoder::run<audio::DecoderVorbis>(data, size);
    return 0;
}
