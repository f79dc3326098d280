#include "skinner/image_loader.h"

#include "os/log.h"

#include <cstring>

namespace skinner {

Surface make_surface(int width, int height)
{
    if (width < 1 || height < 1 || width > kMaxImageSide || height > kMaxImageSide)
        return nullptr;
    Surface s(SDL_CreateRGBSurfaceWithFormat(0, width, height, 32, SDL_PIXELFORMAT_ARGB8888));
    if (s)
        std::memset(s->pixels, 0, size_t(s->pitch) * size_t(height));
    return s;
}

namespace {

ImageStoreFactory g_factory = nullptr;

enum class Source { archive, loose };

struct Step {
    Source source;
    const wchar_t* extension;
    enum { gif, bmp, raw_bmp, jpeg, png } decoder;
};

// The order in which a picture is looked for. A broken file in the first
// four steps ends the search; the loose files after the PNG are only tried.
constexpr Step kSteps[] = {
    {Source::archive, L".gif", Step::gif},  {Source::archive, L".bmp", Step::bmp},
    {Source::archive, L".bmp", Step::raw_bmp}, {Source::loose, L".png", Step::png},
    {Source::loose, L".bmp", Step::bmp},    {Source::loose, L".gif", Step::gif},
    {Source::loose, L".jpg", Step::jpeg},
};
constexpr size_t kStepsThatStop = 4;

Surface decode(const Step& step, std::string_view bytes, const std::wstring& file)
{
    switch (step.decoder) {
    case Step::gif: return decode_platform_image(bytes, ImageKind::gif, file);
    case Step::bmp: return decode_platform_image(bytes, ImageKind::bmp, file);
    case Step::jpeg: return decode_platform_image(bytes, ImageKind::jpeg, file);
    case Step::raw_bmp: return decode_raw_bitmap(bytes, file);
    case Step::png: return decode_png(bytes, file);
    }
    return nullptr;
}

} // namespace

void set_image_store_factory(ImageStoreFactory factory) { g_factory = factory; }

std::unique_ptr<ImageStore> open_image_store(const std::wstring& archive_path)
{
    return g_factory ? g_factory(archive_path) : open_skin_store(archive_path);
}

Surface find_image(ImageStore& store, const std::wstring& name, SearchOutcome* outcome)
{
    SearchOutcome result = SearchOutcome::absent;
    Surface image;
    for (size_t i = 0; i < std::size(kSteps); ++i) {
        const Step& step = kSteps[i];
        const std::wstring file = name + step.extension;
        std::string bytes;
        const bool present = step.source == Source::archive ? store.read_entry(file, bytes)
                                                            : store.read_loose(file, bytes);
        if (!present)
            continue;
        image = decode(step, bytes, file);
        if (image) {
            result = SearchOutcome::found;
            break;
        }
        os::log() << "find_image: can't decode " << file << "\n";
        result = SearchOutcome::broken;
        // The raw reader is the second opinion on an archive BMP that
        // SDL2_image refused; it reads the same entry next.
        if (step.decoder == Step::bmp && step.source == Source::archive)
            continue;
        if (i < kStepsThatStop)
            break;
    }
    if (outcome)
        *outcome = result;
    return image;
}

Surface scale_surface(const SDL_Surface* source, int factor)
{
    Surface out = make_surface(source->w * factor, source->h * factor);
    if (!out)
        return nullptr;
    const int32_t in_stride = source->pitch / 4;
    const int32_t out_stride = out->pitch / 4;
    const auto* in = static_cast<const uint32_t*>(source->pixels);
    auto* dst = static_cast<uint32_t*>(out->pixels);
    for (int y = 0; y < out->h; ++y) {
        const uint32_t* row = in + int64_t(y / factor) * in_stride;
        uint32_t* o = dst + int64_t(y) * out_stride;
        for (int x = 0; x < out->w; ++x)
            o[x] = row[x / factor];
    }
    return out;
}

namespace {

// Steps 2 to 4 of a load: the colour image, then its mask or, failing
// that, its alpha map. A mask or map of another size than the colour would
// be read past its edge and is dropped.
LoadedBitmap load_with_mask(ImageStore& store, const std::wstring& name)
{
    LoadedBitmap b;
    b.colour = find_image(store, name);
    if (!b.colour)
        return b;
    b.mask = find_image(store, name + L"_1");
    if (!b.mask) {
        b.mask = find_image(store, name + L"_8");
        b.alpha = bool(b.mask);
    }
    if (b.mask && (b.mask->w != b.colour->w || b.mask->h != b.colour->h)) {
        os::log() << "load_bitmap: " << name << (b.alpha ? " alpha map" : " mask")
                  << " differs in size from the picture and is ignored\n";
        b.mask.reset();
        b.alpha = false;
    }
    b.size = {b.colour->w, b.colour->h};
    return b;
}

} // namespace

LoadedBitmap load_bitmap(ImageStore& store, const std::wstring& name, int scale)
{
    if (scale != 1) {
        LoadedBitmap own = load_with_mask(store, name + L"_x" + std::to_wstring(scale));
        if (own.colour)
            return own;
    }
    LoadedBitmap b = load_with_mask(store, name);
    if (!b.colour || scale == 1)
        return b;
    os::log() << "bmp: Width=" << b.size.x << " Height=" << b.size.y << " bmBitsPixel=32 bmPlanes=1\n";
    if (b.mask)
        os::log() << "bitmap_info_a: bmBitsPixel=32 bmPlanes=1\n";
    Surface colour = scale_surface(b.colour.get(), scale);
    Surface mask = b.mask ? scale_surface(b.mask.get(), scale) : nullptr;
    if (!colour || (b.mask && !mask)) {
        os::log() << "load_bitmap: " << name << " can't be scaled by " << scale << "\n";
        return LoadedBitmap{};
    }
    b.colour = std::move(colour);
    b.mask = std::move(mask);
    b.size = {b.colour->w, b.colour->h};
    return b;
}

} // namespace skinner
