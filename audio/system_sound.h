#pragma once

#include <string>

// The short sounds the program makes at the start and the end of a
// recording: WAV files in "%app_path%/sounds/", played to the end on the
// default output device before the call returns, so that a beep never ends up
// in the recording that follows it. Threads: the main thread; it blocks for
// the length of the sound.
namespace audio {

// Plays "%app_path%/sounds/<name>". False, with a line in the log, when the
// file is missing or unreadable or no output device opens; nothing is played
// then.
bool play_system_sound(const std::wstring& name);

} // namespace audio
