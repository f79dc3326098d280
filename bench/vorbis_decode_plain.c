/* The plain Tremor loop the Vorbis decode is measured against: ov_open on
 * the file, ov_read into one buffer until the end, the samples written to
 * standard output as they come. Usage: vorbis_decode_plain FILE.ogg */
#include <tremor/ivorbisfile.h>

#include <stdio.h>

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s FILE.ogg\n", argv[0]);
        return 2;
    }
    FILE* in = fopen(argv[1], "rb");
    OggVorbis_File vf;
    if (in == NULL || ov_open(in, &vf, NULL, 0) != 0) {
        fprintf(stderr, "%s: not Ogg Vorbis\n", argv[1]);
        return 1;
    }
    static char buffer[32768];
    int link = 0;
    long got;
    while ((got = ov_read(&vf, buffer, sizeof buffer, &link)) > 0)
        if (fwrite(buffer, 1, (size_t)got, stdout) != (size_t)got)
            return 1;
    ov_clear(&vf); /* closes `in` too */
    return got < 0;
}
