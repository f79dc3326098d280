#pragma once

#include "skinner/image_loader.h"

#include <filesystem>
#include <functional>
#include <map>
#include <string>

// Helpers of the drawing tests: surfaces, PNG files, failure pictures and
// an in-memory picture store. Threads: the test's main thread.
namespace drawing_test {

using skinner::Surface;

// An ARGB8888 surface filled with one pixel value.
Surface new_surface(int width, int height, uint32_t fill = 0xFF000000u);
uint32_t pixel_at(const SDL_Surface* s, int x, int y);
void set_pixel(SDL_Surface* s, int x, int y, uint32_t p);

// PNG through libpng's writer (8-bit RGBA, or Adam7-interlaced on request).
std::string png_bytes(const SDL_Surface* s, bool interlaced = false);
bool write_png(const std::filesystem::path& path, const SDL_Surface* s);
std::string bmp_bytes(const SDL_Surface* s); // SDL_SaveBMP_RW, 24 bits

// Where failing tests leave their pictures: <build>/test_output/skinner.
std::filesystem::path output_dir();
// Writes NAME_actual.png, NAME_expected.png and NAME_diff.png (white where
// they agree, red where they don't) for a picture test that failed.
void save_failure(const std::string& name, const SDL_Surface* actual, const SDL_Surface* expected);

// ffmpeg's own decoding of an image file, as 32-bit pixels (0xAARRGGBB):
// an independent reference for every decoder of ours.
Surface ffmpeg_decode(const std::filesystem::path& file);

// A skin's pictures held in memory, with a count of every read, installed
// as the store of every archive path while the object lives.
class FakeStore : public skinner::ImageStore {
public:
    FakeStore();
    ~FakeStore() override;
    bool read_entry(const std::wstring& name, std::string& bytes) override;
    bool read_loose(const std::wstring& name, std::string& bytes) override;

    std::map<std::wstring, std::string> entries; // names as the archive holds them
    std::map<std::wstring, std::string> loose;
    std::map<std::wstring, int> entry_reads;      // by name as asked
    std::map<std::wstring, int> loose_reads;
    int stores_opened = 0;
};

} // namespace drawing_test
