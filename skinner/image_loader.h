#pragma once

#include "skinner/color.h"

#include <SDL.h>

#include <memory>
#include <string>
#include <string_view>

// Where a skin's pictures come from and how their files become bitmaps.
// Every bitmap made here is a 32-bit SDL surface in SDL_PIXELFORMAT_ARGB8888
// (blue, green, red, alpha in memory, rows from the top); its owner is the
// Surface handle returned. Sizes are pixels.
// Threads: main thread only (the store factory is process-wide state).
namespace skinner {

struct SurfaceDeleter {
    void operator()(SDL_Surface* s) const { SDL_FreeSurface(s); }
};
using Surface = std::unique_ptr<SDL_Surface, SurfaceDeleter>;

// The largest width or height accepted from any picture file; a header that
// claims more is refused before anything is allocated for it.
inline constexpr int kMaxImageSide = 10000;

// A new ARGB8888 surface of that size, all zero; empty for a size outside
// 1..kMaxImageSide.
Surface make_surface(int width, int height);

// ---- Decoders: each takes a whole file in memory and refuses bad data by
// returning an empty Surface. `name` only labels log lines.

// PNG of any colour type, bit depth and interlace (libpng).
Surface decode_png(std::string_view bytes, const std::wstring& name);

enum class ImageKind { gif, bmp, jpeg };
// BMP or JPEG through SDL2_image, GIF by decode_gif (gif_decoder.h); the
// picture's size is read from its header first and checked against
// kMaxImageSide.
Surface decode_platform_image(std::string_view bytes, ImageKind kind, const std::wstring& name);

// A device-independent bitmap read as it lies in the file: file header,
// 40-byte info header, colour table for 1 to 8 bits, then the rows from the
// offset the file header gives. Uncompressed 1, 4, 8, 16 (5-5-5), 24 and 32
// bits; bottom-up or top-down.
Surface decode_raw_bitmap(std::string_view bytes, const std::wstring& name);

// ---- Where the files are.

// The pictures of one skin: entries of its archive and files in its folder.
class ImageStore {
public:
    virtual ~ImageStore() = default;
    // The whole archive entry `name` (compared without regard to case); false
    // when the skin has no archive or the archive no such entry. A short read
    // still returns true with what arrived.
    virtual bool read_entry(const std::wstring& name, std::string& bytes) = 0;
    // The whole file `name` in the skin's folder; false when there is none.
    virtual bool read_loose(const std::wstring& name, std::string& bytes) = 0;
};

// The store of the skin at `archive_path` (macros allowed): its ZIP entries,
// if it is an archive, and the files beside it. Loose names that don't exist
// as given are matched without regard to case, as skins are made on systems
// whose file names ignore case.
std::unique_ptr<ImageStore> open_skin_store(const std::wstring& archive_path);

// Tests put a store of their own in place of open_skin_store; null restores it.
using ImageStoreFactory = std::unique_ptr<ImageStore> (*)(const std::wstring& archive_path);
void set_image_store_factory(ImageStoreFactory factory);
std::unique_ptr<ImageStore> open_image_store(const std::wstring& archive_path);

// ---- The search.

enum class SearchOutcome {
    found,
    absent, // no file of any kind had the name
    broken, // a file was there but its decoder refused it
};

// Looks for `name` in the fixed order: archive .gif, archive .bmp (SDL2_image,
// then the raw reader), loose .png, loose .bmp, .gif, .jpg. A file that is
// present in the first four places but can't be decoded ends the search.
Surface find_image(ImageStore& store, const std::wstring& name, SearchOutcome* outcome = nullptr);

// A picture as the bitmap cache keeps it: colour at the final scale, with
// either a "_1" mask (white opaque, black transparent) or a "_8" alpha map,
// same size as the colour.
struct LoadedBitmap {
    Surface colour; // empty: the picture could not be loaded
    Surface mask;   // the mask, or the alpha map when `alpha`
    bool alpha = false;
    Point size;
};

// Loads `name` for `scale` (1 to 4): a skin's own art "name_xS" with its
// mask or map is taken as it is; else the plain art and its mask or map are
// blown up by the factor, pixel by pixel.
LoadedBitmap load_bitmap(ImageStore& store, const std::wstring& name, int scale);

// Every pixel repeated `factor` times in both directions.
Surface scale_surface(const SDL_Surface* source, int factor);

} // namespace skinner
