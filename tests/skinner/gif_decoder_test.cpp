// Our GIF decoder against ffmpeg's decoding of GIFs that ffmpeg and gifsicle
// write, and corrupt LZW data that once crashed SDL2_image's loader.
#include "skinner/gif_decoder.h"

#include "tests/skinner/drawing_test_support.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

using namespace skinner;
using namespace drawing_test;

TEST(GifDecoder, DecodesLikeFfmpegAndSurvivesCorruptData)
{
    test::TempDir dir;
    const std::string src = "testsrc=size=37x23:duration=0.04";
    const std::string pal = "split[a][b];[a]palettegen=reserve_transparent=1[p];[b][p]paletteuse=alpha_threshold=128";
    const struct {
        const char* name;
        std::string command;
    } cases[] = {
        {"plain.gif", "ffmpeg -v error -y -f lavfi -i " + src + " -frames:v 1 '%s'"},
        // Left ten columns transparent: ffmpeg writes a frame at 10,0 with a transparent index.
        {"alpha.gif", "ffmpeg -v error -y -f lavfi -i \"" + src +
                          ",format=rgba,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='if(lt(X,10),0,255)'\" -vf \"" + pal +
                          "\" -frames:v 1 '%s'"},
        {"interlaced.gif", "gifsicle -i '" + (dir / "alpha.gif").string() + "' -o '%s'"},
    };
    for (const auto& c : cases) {
        const std::string path = (dir / c.name).string();
        std::string command = c.command;
        command.replace(command.find("%s"), 2, path);
        ASSERT_EQ(test::run(command), 0) << command;
        Surface ours = decode_gif(test::read_file(path), L"x.gif");
        Surface reference = ffmpeg_decode(path);
        ASSERT_TRUE(ours && reference) << c.name;
        ASSERT_EQ(ours->w, reference->w) << c.name;
        ASSERT_EQ(ours->h, reference->h) << c.name;
        int wrong = 0;
        for (int y = 0; y < ours->h; ++y)
            for (int x = 0; x < ours->w; ++x) {
                const uint32_t a = pixel_at(ours.get(), x, y), b = pixel_at(reference.get(), x, y);
                // Transparent pixels carry no colour worth comparing.
                wrong += (a >> 24) != (b >> 24) || ((a >> 24) != 0 && a != b);
            }
        EXPECT_EQ(wrong, 0) << c.name;
    }
    // Corrupt LZW data: no crash, and within the limits if anything comes out.
    const std::string bad = test::read_file(std::string(QUILL_FUZZ_SEED_DIR) + "/fuzz_images/bad_lzw.gif").substr(19);
    Surface broken = decode_gif(bad, L"bad.gif");
    if (broken) {
        EXPECT_LE(broken->w, kMaxImageSide);
        EXPECT_LE(broken->h, kMaxImageSide);
    }
    // Cut anywhere before its pixels end, a GIF is refused.
    const std::string plain = test::read_file(dir / "plain.gif");
    for (size_t cut : {size_t(0), size_t(6), size_t(13), plain.size() / 2, plain.size() - 2})
        EXPECT_FALSE(decode_gif(plain.substr(0, cut), L"cut.gif")) << cut;
}
