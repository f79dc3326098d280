#pragma once

#include <cstdint>
#include <string>

// The ID3 version 1 tag of an MP3 file: "TAG" and 125 bytes of fixed fields
// near the end of the file. The texts are Windows-1252 on disk ("?" for what
// it lacks). The tag is found by searching the last 1000 bytes of the file
// from the end for "TAG", so a tag followed by other data is found too, and
// the last "TAG" there wins.
// Threads: a plain value; read and write run on the caller's thread (the
// main thread, or a play chain that wants the title).
struct Id3Tag {
    std::wstring title;   // 30 bytes
    std::wstring artist;  // 30 bytes
    std::wstring album;   // 30 bytes
    std::wstring year;    // 4 bytes
    std::wstring comment; // 30 bytes read, 28 written (the last two hold the track)
    std::uint8_t track = 0; // 0 for none
    std::uint8_t genre = 0; // an index of the genre table; 0 in a new record
    bool present = false;   // read found a whole tag

    // Replaces the record by the tag of the file at `path`; an empty record
    // when the file can't be read or has no whole tag.
    void read(const std::wstring& path);
    // Writes the record over the file's tag, or appends a tag to a file
    // without one (creating the file if there is none). False when the file
    // can't be opened or the tag wasn't written whole.
    bool write(const std::wstring& path) const;
};
