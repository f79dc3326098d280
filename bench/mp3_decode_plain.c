/* The plain libmad loop the MP3 decode is measured against: the whole file in
 * memory, mad_stream_buffer once, frames decoded and synthesised, samples
 * rounded to 16 bits and written interleaved. Prints the PCM bytes written.
 * Usage: mp3_decode_plain FILE.mp3 OUT.raw */
#include <mad.h>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

static signed short to_16(mad_fixed_t s)
{
    s += 1L << (MAD_F_FRACBITS - 16);
    if (s >= MAD_F_ONE)
        s = MAD_F_ONE - 1;
    else if (s < -MAD_F_ONE)
        s = -MAD_F_ONE;
    return (signed short)(s >> (MAD_F_FRACBITS + 1 - 16));
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: %s FILE.mp3 OUT.raw\n", argv[0]);
        return 2;
    }
    int fd = open(argv[1], O_RDONLY);
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0 || st.st_size == 0)
        return 1;
    const unsigned char* data = mmap(NULL, (size_t)st.st_size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (data == MAP_FAILED)
        return 1;
    FILE* out = fopen(argv[2], "wb");
    if (!out)
        return 1;

    struct mad_stream stream;
    struct mad_frame frame;
    struct mad_synth synth;
    mad_stream_init(&stream);
    mad_frame_init(&frame);
    mad_synth_init(&synth);
    mad_stream_buffer(&stream, data, (unsigned long)st.st_size);
    static unsigned char pcm[1152 * 2 * 2];
    unsigned long long written = 0;
    for (;;) {
        if (mad_frame_decode(&frame, &stream) != 0) {
            if (MAD_RECOVERABLE(stream.error))
                continue;
            break;
        }
        mad_synth_frame(&synth, &frame);
        unsigned n = 0;
        for (unsigned i = 0; i < synth.pcm.length; ++i) {
            for (unsigned ch = 0; ch < synth.pcm.channels; ++ch) {
                signed short v = to_16(synth.pcm.samples[ch][i]);
                pcm[n++] = (unsigned char)(v & 0xff);
                pcm[n++] = (unsigned char)((v >> 8) & 0xff);
            }
        }
        fwrite(pcm, 1, n, out);
        written += n;
    }
    mad_synth_finish(&synth);
    mad_frame_finish(&frame);
    mad_stream_finish(&stream);
    fclose(out);
    printf("%llu\n", written);
    return 0;
}
