// Voice activation through the Document, with SDL's disk driver playing
// sentences with silences between them into the capture device in real time
// and the test ticking the Document as the program's timer does.
#include "app/document.h"

#include "files/range_marks.h"
#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int kRate = 22050;
constexpr double kThreshold = 0.1;
// A sample counts as voice above this: the threshold of 16-bit records.
constexpr std::int16_t kLoud = static_cast<std::int16_t>(kThreshold * 32767.0);

std::vector<std::int16_t> samples_of(const std::string& bytes)
{
    std::vector<std::int16_t> s(bytes.size() / 2);
    std::memcpy(s.data(), bytes.data(), s.size() * 2);
    return s;
}

std::string bytes_of(const std::vector<std::int16_t>& s)
{
    return std::string(reinterpret_cast<const char*>(s.data()), s.size() * 2);
}

// A sentence as sox reads it, from its first to its last loud sample, so
// that the silences around it are exactly what the test puts there.
std::vector<std::int16_t> loud_part(const fs::path& wav)
{
    std::string raw;
    EXPECT_EQ(test::run("sox " + test::quote(wav.string()) + " -t raw -r 22050 -c 1 -b 16 -e signed-integer -", &raw),
              0);
    std::vector<std::int16_t> s = samples_of(raw);
    std::size_t first = 0, last = s.size();
    while (first < s.size() && s[first] <= kLoud)
        ++first;
    while (last > first && s[last - 1] <= kLoud)
        --last;
    return std::vector<std::int16_t>(s.begin() + static_cast<std::ptrdiff_t>(first),
                                     s.begin() + static_cast<std::ptrdiff_t>(last));
}

} // namespace

TEST(DocumentVoiceActivation, PausesOnlyAfterTwoSecondsOfSilenceMarksThePauseAndKeepsEveryOnset)
{
    test::PrivateHome home;
    test::TempDir dir;
    std::vector<std::vector<std::int16_t>> sentences;
    for (int i = 1; i <= 4; ++i)
        sentences.push_back(loud_part(test::one_media("vas_sentence" + std::to_string(i) + ".wav")));
    // Silences between the loud parts, in frames: 1.5 s, 2.0 s, 3.5 s.
    const std::size_t gaps[] = {33075, 44100, 77175};

    // The input: the sentences with the gaps. A device buffer (5000 frames)
    // that ends exactly on the first loud sample after the 2.0 s gap would
    // see one frame over 2.0 s; a lead of silence keeps the boundary off it.
    auto layout = [&](std::size_t lead, std::vector<std::size_t>* starts) {
        std::vector<std::int16_t> in(lead, 0);
        for (std::size_t k = 0; k < sentences.size(); ++k) {
            if (k > 0)
                in.insert(in.end(), gaps[k - 1], 0);
            starts->push_back(in.size());
            in.insert(in.end(), sentences[k].begin(), sentences[k].end());
        }
        return in;
    };
    std::size_t lead = 0;
    std::vector<std::size_t> starts;
    std::vector<std::int16_t> input = layout(lead, &starts);
    while (starts[2] % 5000 < 100 || starts[2] % 5000 > 4900) {
        lead += 200;
        starts.clear();
        input = layout(lead, &starts);
    }
    test::write_file(dir / "in.raw", bytes_of(input));
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILEIN", (dir / "in.raw").c_str(), 1);
    setenv("SDL_DISKAUDIOFILE", (dir / "played.raw").c_str(), 1);
    unsetenv("SDL_DISKAUDIODELAY");

    Document doc(test::wide(home.app_data() / "Quillaphonics.xml"));
    doc.set_vas_on(true);
    doc.set_vas_level(kThreshold);
    const fs::path file = dir / "vas.wav";
    ASSERT_TRUE(doc.record_to(test::wide(file), 7));
    // A pause by hand is voice activation's to end: no silence yet, so the
    // first tick resumes it (before the first device buffer is full).
    ASSERT_TRUE(doc.pause());
    EXPECT_TRUE(doc.is_paused());
    doc.on_timer();
    EXPECT_FALSE(doc.is_paused());

    // Tick as the program does; at each pause note the recorded time, which
    // stands still from the cut on. The last sentence is waited for after
    // the resume that follows the long silence.
    std::vector<double> pauses;
    int resumes = 0;
    int ticks_after_resume = 0;
    const int last_sentence_ticks =
        static_cast<int>(static_cast<double>(sentences[3].size()) / kRate / Document::kTickSeconds) + 4;
    const int max_ticks = static_cast<int>(static_cast<double>(input.size()) / kRate / Document::kTickSeconds) + 20;
    bool paused = false;
    for (int tick = 0; tick < max_ticks && ticks_after_resume < last_sentence_ticks; ++tick) {
        std::this_thread::sleep_for(std::chrono::duration<double>(Document::kTickSeconds));
        doc.on_timer();
        if (doc.is_paused() && !paused)
            pauses.push_back(doc.record_time());
        if (!doc.is_paused() && paused)
            ++resumes;
        paused = doc.is_paused();
        if (resumes > 0)
            ++ticks_after_resume;
    }
    ASSERT_TRUE(doc.stop());

    std::string raw;
    ASSERT_EQ(test::run("sox " + test::quote(file.string()) + " -t raw -e signed-integer -b 16 -", &raw), 0);
    std::vector<std::size_t> found;
    for (const auto& s : sentences) {
        // Each sentence whole, once.
        const std::size_t at = raw.find(bytes_of(s));
        ASSERT_NE(at, std::string::npos) << "sentence " << found.size() + 1 << " lost a part";
        EXPECT_EQ(raw.find(bytes_of(s), at + 1), std::string::npos) << "sentence " << found.size() + 1 << " twice";
        found.push_back(at / 2);
    }
    // Nothing before the long silence is cut: the recording starts with the
    // input and keeps the 1.5 s and 2.0 s silences whole.
    EXPECT_EQ(found[0], lead);
    EXPECT_EQ(found[1] - (found[0] + sentences[0].size()), gaps[0]);
    EXPECT_EQ(found[2] - (found[1] + sentences[1].size()), gaps[1]);

    // One pause, in the long silence, 2.0 s to 2.0 s + a device buffer + a
    // tick after the last loud sample; then one resume.
    ASSERT_EQ(pauses.size(), 1u);
    EXPECT_EQ(resumes, 1);
    const double last_loud = static_cast<double>(found[2] + sentences[2].size() - 1) / kRate;
    const double delay = pauses[0] - last_loud;
    EXPECT_GT(delay, Document::kSilenceLimit);
    EXPECT_LE(delay, Document::kSilenceLimit + 5000.0 / kRate + Document::kTickSeconds);
    // What was held at the resume is what came before the onset.
    EXPECT_LT(found[3] - static_cast<std::size_t>(pauses[0] * kRate + 0.5),
              5000 + static_cast<std::size_t>(Document::kTickSeconds * kRate));

    // The bookmark of the pause sits in that silence (bytes of the data).
    RangeMarks marks;
    ASSERT_TRUE(marks.load(side_file_of(test::wide(file))));
    ASSERT_EQ(marks.count(), 1);
    const double mark = marks.mark(0).position / 2.0 / kRate;
    EXPECT_GT(mark, last_loud);
    EXPECT_LE(mark, pauses[0] + 1e-9);
}

TEST(DocumentLevels, TheInputGainAndTheMonitorShapeWhatIsRecorded)
{
    test::PrivateHome home;
    test::TempDir dir;
    const std::string wav = test::quote(test::one_media("speech_src.wav").string());
    std::string input;
    ASSERT_EQ(test::run("sox " + wav + " -r 22050 -c 1 -b 16 -e signed-integer -t raw -", &input), 0);
    test::write_file(dir / "in.raw", input);
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILEIN", (dir / "in.raw").c_str(), 1);
    setenv("SDL_DISKAUDIOFILE", (dir / "played.raw").c_str(), 1);
    setenv("SDL_DISKAUDIODELAY", "1", 1);
    Document doc(test::wide(home.app_data() / "Quillaphonics.xml"));
    auto record = [&](const char* name) {
        const fs::path file = dir / name;
        EXPECT_TRUE(doc.record_to(test::wide(file), 7));
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        EXPECT_TRUE(doc.stop());
        std::string raw;
        EXPECT_EQ(test::run("sox " + test::quote(file.string()) + " -t raw -e signed-integer -b 16 -", &raw), 0);
        // Two seconds of the input at least, whatever the device's pace.
        EXPECT_GE(raw.size(), 4u * kRate);
        return samples_of(raw.substr(0, input.size()));
    };

    // Gains below and above 1, the upper one clipping: as sox's vol, but
    // for its rounding where the control truncates.
    const std::pair<double, double> levels[] = {{0.2, 0.43}, {0.75, 5.5}};
    for (const auto& [level, gain] : levels) {
        doc.set_input(level);
        EXPECT_EQ(doc.settings().input, level);
        const std::vector<std::int16_t> got = record("gain.wav");
        std::string expected;
        ASSERT_EQ(test::run("sox -D -r 22050 -c 1 -b 16 -e signed-integer -t raw " +
                                test::quote((dir / "in.raw").string()) + " -t raw - vol " +
                                std::to_string(gain) + " 2>/dev/null",
                            &expected),
                  0);
        const std::vector<std::int16_t> ref = samples_of(expected);
        ASSERT_LE(got.size(), ref.size());
        int worst = 0;
        for (std::size_t i = 0; i < got.size(); ++i)
            worst = std::max(worst, std::abs(got[i] - ref[i]));
        EXPECT_LE(worst, 1) << "level " << level;
    }

    // The monitor off: the time runs on in silence.
    doc.set_input(0.5);
    doc.set_monitor(false);
    const std::vector<std::int16_t> muted = record("muted.wav");
    EXPECT_EQ(std::count(muted.begin(), muted.end(), 0), static_cast<std::ptrdiff_t>(muted.size()));
    EXPECT_EQ(doc.input_level(), 0.0);
}

TEST(DocumentLevels, TheOutputLevelIsThatOfWhatIsHeard)
{
    test::PrivateHome home;
    test::TempDir dir;
    const fs::path wav = dir / "tone.wav";
    // About half of full scale for a second, then silence for a second.
    ASSERT_EQ(test::run("sox -D -n -r 22050 -b 16 -c 1 " + test::quote(wav.string()) +
                        " synth 1 square 300 vol 0.5 pad 0 1"),
              0);
    std::string raw;
    ASSERT_EQ(test::run("sox " + test::quote(wav.string()) + " -t raw -", &raw), 0);
    const std::vector<std::int16_t> tone = samples_of(raw);
    const double peak = *std::max_element(tone.begin(), tone.end()) / 32768.0;
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", (dir / "played.raw").c_str(), 1);
    unsetenv("SDL_DISKAUDIODELAY");
    Document doc(test::wide(home.app_data() / "Quillaphonics.xml"));
    EXPECT_EQ(doc.output_level(), 0.0);
    ASSERT_TRUE(doc.play_file(test::wide(wav)));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(doc.output_level(), peak);
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    EXPECT_EQ(doc.output_level(), 0.0) << "the silence is heard by now";
    EXPECT_TRUE(doc.stop());
    EXPECT_EQ(doc.output_level(), 0.0);
}
