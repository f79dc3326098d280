// The record path under way: the recorder's thread pushes what SDL's disk
// driver captures through a gate into the active buffer, whose thread writes
// it to a WAV file, while the main thread pauses and resumes by cutting and
// rejoining the gate's link and then stops in the Document's order. A pause
// drops whole device buffers, never a part of one, and what was let through
// is written in order.
#include "audio/active_buffer.h"
#include "audio/record_chain.h"
#include "audio/recorder_pcm.h"
#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

TEST(RecordPath, PausesWhileCapturingDropWholeBuffersAndTheRestIsWrittenInOrder)
{
    test::TempDir dir;
    const std::filesystem::path in = dir / "in.raw";
    // A counting signal: every 16-bit sample differs from those near it, so
    // a torn or reordered buffer can't match the input by chance.
    std::string input;
    for (int i = 0; i < 600000; ++i) {
        const auto s = static_cast<std::uint16_t>(i * 7 + 1);
        input.push_back(static_cast<char>(s & 0xff));
        input.push_back(static_cast<char>(s >> 8));
    }
    test::write_file(in, input);
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILEIN", in.c_str(), 1);
    setenv("SDL_DISKAUDIOFILE", (dir / "played.raw").c_str(), 1);
    setenv("SDL_DISKAUDIODELAY", "1", 1);

    const std::filesystem::path file = dir / "out.wav";
    audio::NullProcessor<audio::PCMData> gate;
    audio::ActiveBuffer buffer;
    auto chain = audio::create_record_chain(liba::from_utf8(file.string()), L"PCM", 1, 16, 22050, 0, false);
    ASSERT_TRUE(chain);
    auto rec = std::make_unique<audio::RecorderPCM>(1, 22050, 16);
    ASSERT_TRUE(rec->is_good());
    const std::size_t buffer_bytes = static_cast<std::size_t>(rec->buffer_size());
    audio::connect(gate, &buffer);
    audio::connect(*rec, &gate);
    audio::connect(buffer, chain->get_consumer());
    ASSERT_TRUE(rec->start());
    for (int i = 0; i < 200; ++i) {
        audio::connect(gate, i % 2 == 0 ? nullptr : &buffer);
        std::this_thread::sleep_for(std::chrono::microseconds(500 + 97 * (i % 13)));
    }
    // The stop: capture cut and ended, the pause undone, the buffer drained.
    audio::connect(*rec, nullptr);
    rec.reset();
    audio::connect(gate, &buffer);
    while (buffer.queued_records() > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    buffer.reset();
    audio::connect(buffer, nullptr);
    chain.reset();

    std::string written;
    ASSERT_EQ(test::run("sox '" + file.string() + "' -t raw -e signed-integer -b 16 -", &written), 0);
    ASSERT_EQ(written.size() % buffer_bytes, 0u);
    ASSERT_GT(written.size(), 0u);
    std::size_t last = 0;
    bool first = true;
    bool gap = false;
    for (std::size_t at = 0; at < written.size(); at += buffer_bytes) {
        const std::string piece = written.substr(at, buffer_bytes);
        const std::size_t found = input.find(piece, first ? 0 : last + buffer_bytes);
        ASSERT_NE(found, std::string::npos) << "buffer at " << at << " is not a whole buffer of the input";
        EXPECT_EQ(found % buffer_bytes, 0u);
        gap = gap || (!first && found > last + buffer_bytes);
        last = found;
        first = false;
    }
    EXPECT_TRUE(gap) << "no pause took hold";
}
