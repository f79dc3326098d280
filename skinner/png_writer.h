#pragma once

#include <SDL.h>

#include <string>

// Writes a 32-bit surface (ARGB8888 or RGB888) as an 8-bit RGB PNG through
// libpng. Threads: any, one surface at a time. False when the file can't be
// written; a half-written file is removed.
namespace skinner {

bool write_png(const std::string& path, SDL_Surface* surface);

} // namespace skinner
