#include "tests/skinner/skin_test_support.h"

#include "liba/text.h"
#include "liba/zip_file.h"
#include "tests/support/test_support.h"
#include "tools/skinc/picture_files.h"
#include "tools/skinc/skin_writer.h"

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace skin_test {

fs::path test_skin_dir() { return QUILL_TEST_SKIN_DIR; }
fs::path test_skin() { return test_skin_dir() / "Test.skin"; }
fs::path test_skin_source() { return fs::path(QUILL_SOURCE_DIR) / "tests/skinner/skins/Test"; }
fs::path skinc() { return QUILL_SKINC; }
fs::path quillctl() { return test::program_dir() / "quillctl"; }

std::wstring wide(const fs::path& p) { return liba::from_utf8(p.string()); }

std::string skin_xml(const std::string& body, const std::string& version, const std::string& devices,
                     const std::string& natives)
{
    return "<skin version=\"" + version + "\" devices=\"" + devices + "\">\n" + natives + "\n" + body + "\n</skin>\n";
}

std::string compile(const fs::path& dir, const std::string& xml, const std::string& name)
{
    skinc::PictureFolder folder(wide(dir));
    skinc::SkinSource source;
    std::wstring error;
    std::string description;
    if (!skinc::parse_skin_source(xml, L"skin.xml", folder.lookup(), source, error) ||
        !skinc::write_description(source, description, error))
        return liba::to_utf8(error);
    test::write_file(dir / (name + ".skin"), skinc::make_stored_zip({{name + ".skin", description}}));
    return {};
}

std::string compile_description(const std::string& xml)
{
    skinc::SkinSource source;
    std::wstring error;
    std::string description;
    auto no_pictures = [](const std::wstring&, int*, int*) { return false; };
    EXPECT_TRUE(skinc::parse_skin_source(xml, L"skin.xml", no_pictures, source, error)) << liba::to_utf8(error);
    EXPECT_TRUE(skinc::write_description(source, description, error)) << liba::to_utf8(error);
    return description;
}

void copy_test_pictures(const fs::path& dir)
{
    for (const auto& e : fs::directory_iterator(test_skin_dir()))
        if (e.path().extension() == ".png")
            fs::copy_file(e.path(), dir / e.path().filename(), fs::copy_options::overwrite_existing);
}

std::string description_of(const fs::path& skin)
{
    liba::ZipFile zip(wide(skin));
    for (std::wstring e = zip.next_entry(); !e.empty(); e = zip.next_entry())
        if (liba::to_lower(e).ends_with(L".skin")) {
            std::string bytes(zip.size(), '\0');
            bytes.resize(zip.read(bytes.data(), bytes.size()));
            return bytes;
        }
    return {};
}

size_t description_offset(const fs::path& skin)
{
    std::string archive = test::read_file(skin);
    std::string d = description_of(skin);
    size_t at = archive.find(d);
    return at == std::string::npos ? 0 : at;
}

} // namespace skin_test
