#pragma once

#include "skinner/image_loader.h"

#include <string>
#include <string_view>

// The first image of a GIF87a or GIF89a file as an ARGB8888 bitmap the size
// of the file's logical screen (pixels). The graphic control extension's
// transparent index gives alpha 0; screen pixels the image doesn't cover are
// transparent black. A file cut short before its image data ends, or one
// whose sizes exceed kMaxImageSide, is refused (empty Surface); a corrupt
// LZW code inside whole data ends the image there, the rest transparent.
// Threads: any; the caller owns the Surface. `name` only labels log lines.
namespace skinner {

Surface decode_gif(std::string_view bytes, const std::wstring& name);

} // namespace skinner
