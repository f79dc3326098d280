#pragma once

#include <filesystem>
#include <string>

// Helpers of the skin data tests: the engine's test skin as the build made
// it, and small skins compiled in the test from XML by the compiler's own
// code. Threads: the test's main thread.
namespace skin_test {

// The test skin compiled at build time: Test.skin with its PNG pictures.
std::filesystem::path test_skin_dir();
std::filesystem::path test_skin();
// Its source: skin.xml and the SVG drawings.
std::filesystem::path test_skin_source();
// The skin compiler and quillctl of this build tree.
std::filesystem::path skinc();
std::filesystem::path quillctl();

// `body` inside <skin version=... devices=...> with a 240x320 native size.
std::string skin_xml(const std::string& body, const std::string& version = "Quillaphonics_500",
                     const std::string& devices = "", const std::string& natives = "<native width=\"240\" height=\"320\"/>");

// Compiles `xml` as the compiler does into DIR/NAME.skin, looking for
// pictures in DIR. Returns the compiler's error, empty on success.
std::string compile(const std::filesystem::path& dir, const std::string& xml, const std::string& name = "T");
// The same, but only the bare description, as bytes.
std::string compile_description(const std::string& xml);

// Copies the PNG pictures of the built test skin into `dir`.
void copy_test_pictures(const std::filesystem::path& dir);

// The description entry of a compiled skin archive.
std::string description_of(const std::filesystem::path& skin);
// Byte offset of the description entry's data within the archive.
size_t description_offset(const std::filesystem::path& skin);

std::wstring wide(const std::filesystem::path& p);

} // namespace skin_test
