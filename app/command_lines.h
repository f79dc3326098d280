#pragma once

// The two command lines that name no file: a start in the background, and
// the wake-up of a scheduled recording. Each matches only as the whole line.
inline constexpr const wchar_t* kHideCommand = L"-hide";
inline constexpr const wchar_t* kRunAtTimeCommand = L"AppRunAtTime";
