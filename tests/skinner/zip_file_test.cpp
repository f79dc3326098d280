// liba::ZipFile on archives made by Info-ZIP's zip.
#include "liba/text.h"
#include "liba/zip_file.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <random>

namespace fs = std::filesystem;

namespace {

std::wstring wide(const fs::path& p) { return liba::from_utf8(p.string()); }

std::string random_bytes(size_t n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::string s(n, '\0');
    for (char& c : s)
        c = static_cast<char>(rng());
    return s;
}

// Runs zip in `dir`; the archive's bytes.
std::string zip_in(const fs::path& dir, const std::string& arguments)
{
    std::string out;
    int rc = test::run("cd '" + dir.string() + "' && zip -q " + arguments + " 2>&1", &out);
    EXPECT_EQ(rc, 0) << out;
    return out;
}

std::string read_entry(liba::ZipFile& zip)
{
    std::string bytes(zip.size(), '\0');
    bytes.resize(zip.read(bytes.data(), bytes.size()));
    return bytes;
}

} // namespace

TEST(ZipFile, ReadsStoredEntriesWithAndWithoutExtraFields)
{
    test::TempDir dir;
    const std::string text = "a skin's description stands here";
    const std::string binary = random_bytes(3000, 1);
    fs::create_directory(dir / "sub");
    test::write_file(dir / "a.txt", text);
    test::write_file(dir / "B.BIN", binary);
    test::write_file(dir / "sub" / "c.skin", "");
    // -X leaves the extra fields out; without it zip writes time and owner
    // extras that the reader must step over.
    for (const std::string options : {"-0 -X", "-0"}) {
        fs::remove(dir / "arch.zip");
        zip_in(dir.path(), options + " arch.zip a.txt B.BIN sub/c.skin");
        liba::ZipFile zip(wide(dir / "arch.zip"));
        ASSERT_TRUE(zip.is_open());
        EXPECT_EQ(zip.next_entry(), L"a.txt") << options;
        EXPECT_EQ(read_entry(zip), text);
        EXPECT_EQ(zip.next_entry(), L"B.BIN");
        EXPECT_EQ(zip.size(), binary.size());
        EXPECT_EQ(read_entry(zip), binary);
        EXPECT_EQ(zip.next_entry(), L"sub/c.skin");
        EXPECT_EQ(zip.size(), 0u);
        // Then the central directory: not a local header, the chain ends.
        EXPECT_EQ(zip.next_entry(), L"");
        EXPECT_EQ(zip.next_entry(), L"");

        // Names compare without regard to case; find starts from the top.
        ASSERT_TRUE(zip.find(L"b.bin"));
        EXPECT_EQ(zip.size(), binary.size());
        ASSERT_TRUE(zip.find(L"A.TXT"));
        EXPECT_EQ(read_entry(zip), text);
        EXPECT_FALSE(zip.find(L"a.tx"));
        EXPECT_FALSE(zip.find(L"c.skin")) << "the folder is part of the name";

        // Reads stop at the entry's end, and seeks stay inside it.
        ASSERT_TRUE(zip.find(L"B.BIN"));
        char part[1000];
        ASSERT_TRUE(zip.seek(2500));
        EXPECT_EQ(zip.tell(), 2500u);
        EXPECT_EQ(zip.read(part, sizeof part), 500u);
        EXPECT_EQ(std::string(part, 500), binary.substr(2500));
        EXPECT_EQ(zip.read(part, sizeof part), 0u);
        EXPECT_FALSE(zip.seek(3001));
        ASSERT_TRUE(zip.seek(10));
        EXPECT_EQ(zip.read(part, 5), 5u);
        EXPECT_EQ(std::string(part, 5), binary.substr(10, 5));
    }
}

TEST(ZipFile, CompressedOrStreamedEntriesEndTheChain)
{
    test::TempDir dir;
    test::write_file(dir / "a.txt", "hello");
    std::string lines;
    for (int i = 0; i < 2000; ++i)
        lines += std::to_string(i) + "\n";
    test::write_file(dir / "big.txt", lines);

    // A stored entry and behind it a deflated one: the first reads, the
    // second ends the enumeration, and find can't reach it.
    zip_in(dir.path(), "-0 mixed.zip a.txt");
    zip_in(dir.path(), "-9 mixed.zip big.txt");
    liba::ZipFile mixed(wide(dir / "mixed.zip"));
    EXPECT_EQ(mixed.next_entry(), L"a.txt");
    EXPECT_EQ(mixed.next_entry(), L"");
    EXPECT_FALSE(mixed.find(L"big.txt"));
    EXPECT_TRUE(mixed.find(L"a.txt"));

    // Written to a pipe, zip can't go back for the sizes: they are zero in
    // the header and follow the data. The zero-size entry reads as empty and
    // the chain loses its place behind it.
    std::string out;
    ASSERT_EQ(test::run("cd '" + dir.path().string() + "' && cat big.txt | zip -q -fz- - - | cat > streamed.zip",
                        &out),
              0);
    liba::ZipFile streamed(wide(dir / "streamed.zip"));
    EXPECT_EQ(streamed.next_entry(), L"-");
    EXPECT_EQ(streamed.size(), 0u);
    EXPECT_EQ(streamed.next_entry(), L"");

    // Zip64 streaming marks both sizes 0xFFFFFFFF: equal, but the entry
    // would run past a 32-bit archive.
    ASSERT_EQ(test::run("cd '" + dir.path().string() + "' && printf hello | zip -q -0 - - > zip64.zip", &out), 0);
    liba::ZipFile zip64(wide(dir / "zip64.zip"));
    EXPECT_EQ(zip64.next_entry(), L"");
}

TEST(ZipFile, CutArchivesAndForeignFilesNeverReadBeyondWhatIsThere)
{
    test::TempDir dir;
    const std::string payload = random_bytes(700, 2);
    test::write_file(dir / "one.bin", payload);
    test::write_file(dir / "two.skin", "description");
    zip_in(dir.path(), "-0 -X whole.zip one.bin two.skin");
    const std::string whole = test::read_file(dir / "whole.zip");
    const size_t first_data = liba::kZipLocalHeaderSize + 7;

    for (size_t cut = 0; cut < whole.size(); cut += 3) {
        test::write_file(dir / "cut.zip", whole.substr(0, cut));
        liba::ZipFile zip(wide(dir / "cut.zip"));
        std::wstring first = zip.next_entry();
        // The header of the first entry must be whole to name it.
        EXPECT_EQ(first.empty(), cut < first_data) << cut;
        if (first.empty())
            continue;
        std::string got = read_entry(zip);
        EXPECT_EQ(got, payload.substr(0, std::min(payload.size(), cut - first_data))) << cut;
        for (int i = 0; i < 4 && !zip.next_entry().empty(); ++i) {
        }
    }

    // Random files and a missing file enumerate as empty archives.
    for (unsigned seed = 0; seed < 20; ++seed) {
        test::write_file(dir / "noise.zip", random_bytes(100 + seed * 37, seed));
        liba::ZipFile zip(wide(dir / "noise.zip"));
        EXPECT_EQ(zip.next_entry(), L"");
        EXPECT_EQ(zip.read(nullptr, 0), 0u);
    }
    liba::ZipFile missing(wide(dir / "nothing.zip"));
    EXPECT_FALSE(missing.is_open());
    EXPECT_EQ(missing.next_entry(), L"");
    EXPECT_FALSE(missing.find(L"x"));
}
