// GIF's LZW is decoded here rather than by SDL2_image, whose loader writes
// through bad pointers on corrupt code streams. Every code, table index and
// output position is checked against its bound.
#include "skinner/gif_decoder.h"

#include "os/log.h"

#include <array>
#include <cstdint>
#include <vector>

namespace skinner {

namespace {

constexpr int kMaxCodes = 4096;

uint32_t le16(const unsigned char* p) { return uint32_t(p[0]) | (uint32_t(p[1]) << 8); }

struct Palette {
    std::array<uint32_t, 256> argb{};
    int size = 0;
};

// Reads `count` RGB triples at `at`; false when the file ends first.
bool read_palette(std::string_view bytes, size_t& at, int count, Palette& palette)
{
    if (bytes.size() < at || bytes.size() - at < size_t(count) * 3)
        return false;
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data()) + at;
    for (int i = 0; i < count; ++i)
        palette.argb[i] = 0xFF000000u | uint32_t(p[3 * i]) << 16 | uint32_t(p[3 * i + 1]) << 8 | p[3 * i + 2];
    palette.size = count;
    at += size_t(count) * 3;
    return true;
}

// The data sub-blocks from `at` joined; false when the file ends before the
// terminating empty block.
bool read_sub_blocks(std::string_view bytes, size_t& at, std::string* joined)
{
    while (at < bytes.size()) {
        const size_t length = uint8_t(bytes[at++]);
        if (length == 0)
            return true;
        if (bytes.size() - at < length)
            return false;
        if (joined)
            joined->append(bytes.substr(at, length));
        at += length;
    }
    return false;
}

// Colour indices from an LZW code stream, at most `out.size()`; returns how
// many were written. Stops at the end code, the end of the data or the first
// code that the table cannot hold.
size_t decode_lzw(std::string_view data, int min_code_size, std::vector<uint8_t>& out)
{
    const int clear = 1 << min_code_size;
    const int end = clear + 1;
    std::array<uint16_t, kMaxCodes> prefix{};
    std::array<uint8_t, kMaxCodes> suffix{};
    std::array<uint8_t, kMaxCodes> stack{};
    for (int i = 0; i < clear; ++i)
        suffix[i] = uint8_t(i);
    int code_size = min_code_size + 1;
    int next = clear + 2;
    int previous = -1;
    uint8_t first = 0;
    uint32_t bits = 0;
    int bit_count = 0;
    size_t written = 0;
    size_t at = 0;
    while (written < out.size()) {
        while (bit_count < code_size && at < data.size()) {
            bits |= uint32_t(uint8_t(data[at++])) << bit_count;
            bit_count += 8;
        }
        if (bit_count < code_size)
            break;
        const int code = int(bits & ((1u << code_size) - 1));
        bits >>= code_size;
        bit_count -= code_size;
        if (code == clear) {
            code_size = min_code_size + 1;
            next = clear + 2;
            previous = -1;
            continue;
        }
        if (code == end)
            break;
        if (previous < 0) {
            if (code >= clear)
                break;
            out[written++] = first = uint8_t(code);
            previous = code;
            continue;
        }
        if (code > next || (code == next && next >= kMaxCodes))
            break;
        int depth = 0;
        int walk = code;
        if (code == next) { // the code being defined: previous string plus its first
            stack[depth++] = first;
            walk = previous;
        }
        while (walk >= clear) {
            if (depth >= kMaxCodes - 1)
                return written;
            stack[depth++] = suffix[walk];
            walk = prefix[walk];
        }
        stack[depth++] = uint8_t(walk);
        first = uint8_t(walk);
        while (depth > 0 && written < out.size())
            out[written++] = stack[--depth];
        if (next < kMaxCodes) {
            prefix[next] = uint16_t(previous);
            suffix[next] = first;
            ++next;
            if (next == (1 << code_size) && code_size < 12)
                ++code_size;
        }
        previous = code;
    }
    return written;
}

// The row of the image that the n-th stored row is, for interlaced order.
int interlaced_row(int n, int height)
{
    const int starts[] = {0, 4, 2, 1};
    const int steps[] = {8, 8, 4, 2};
    for (int pass = 0; pass < 4; ++pass) {
        const int rows = starts[pass] < height ? (height - starts[pass] + steps[pass] - 1) / steps[pass] : 0;
        if (n < rows)
            return starts[pass] + n * steps[pass];
        n -= rows;
    }
    return height; // beyond the image: dropped
}

struct Frame {
    int left = 0, top = 0, width = 0, height = 0;
    bool interlaced = false;
    int transparent = -1;
};

void paint(SDL_Surface* target, const Frame& frame, const Palette& palette, const std::vector<uint8_t>& indices,
           size_t decoded)
{
    for (size_t i = 0; i < decoded; ++i) {
        const int stored_row = int(i / size_t(frame.width));
        const int row = frame.interlaced ? interlaced_row(stored_row, frame.height) : stored_row;
        const int x = frame.left + int(i % size_t(frame.width));
        const int y = frame.top + row;
        if (x >= target->w || y >= target->h || row >= frame.height)
            continue;
        const int index = indices[i];
        uint32_t argb = index < palette.size ? palette.argb[index] : 0xFF000000u;
        if (index == frame.transparent)
            argb &= 0x00FFFFFFu;
        static_cast<uint32_t*>(target->pixels)[size_t(y) * size_t(target->pitch / 4) + size_t(x)] = argb;
    }
}

Surface refuse(const std::wstring& name, const char* why)
{
    os::log() << "decode_gif: " << name << ": " << why << ", refused\n";
    return nullptr;
}

} // namespace

Surface decode_gif(std::string_view bytes, const std::wstring& name)
{
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    if (bytes.size() < 13 || (bytes.substr(0, 6) != "GIF87a" && bytes.substr(0, 6) != "GIF89a"))
        return refuse(name, "no GIF header");
    int screen_w = int(le16(p + 6)), screen_h = int(le16(p + 8));
    size_t at = 13;
    Palette global;
    if ((p[10] & 0x80) && !read_palette(bytes, at, 2 << (p[10] & 7), global))
        return refuse(name, "cut short in its colour table");
    Frame frame;
    while (at < bytes.size() && p[at] != 0x2C) {
        if (p[at] != 0x21 || bytes.size() - at < 2)
            return refuse(name, "no image before the trailer");
        const bool control = p[at + 1] == 0xF9;
        at += 2;
        if (control && at + 4 < bytes.size() && p[at] >= 4 && (p[at + 1] & 1))
            frame.transparent = p[at + 4];
        if (!read_sub_blocks(bytes, at, nullptr))
            return refuse(name, "cut short in an extension");
    }
    if (at >= bytes.size() || bytes.size() - at < 10)
        return refuse(name, "cut short before its image");
    frame.left = int(le16(p + at + 1));
    frame.top = int(le16(p + at + 3));
    frame.width = int(le16(p + at + 5));
    frame.height = int(le16(p + at + 7));
    const unsigned flags = p[at + 9];
    frame.interlaced = flags & 0x40;
    at += 10;
    if (screen_w == 0 || screen_h == 0) { // some writers leave the screen empty
        screen_w = frame.left + frame.width;
        screen_h = frame.top + frame.height;
    }
    if (screen_w < 1 || screen_h < 1 || screen_w > kMaxImageSide || screen_h > kMaxImageSide ||
        frame.width < 1 || frame.height < 1 || frame.width > kMaxImageSide || frame.height > kMaxImageSide)
        return refuse(name, "no size or one beyond the limit");
    Palette local;
    if ((flags & 0x80) && !read_palette(bytes, at, 2 << (flags & 7), local))
        return refuse(name, "cut short in its local colour table");
    if (at >= bytes.size())
        return refuse(name, "cut short before its pixels");
    const int min_code_size = p[at++];
    if (min_code_size < 2 || min_code_size > 8)
        return refuse(name, "a code size outside 2..8");
    std::string data;
    if (!read_sub_blocks(bytes, at, &data))
        return refuse(name, "cut short in its pixels");
    std::vector<uint8_t> indices(size_t(frame.width) * size_t(frame.height));
    const size_t decoded = decode_lzw(data, min_code_size, indices);
    if (decoded < indices.size())
        os::log() << "decode_gif: " << name << ": pixel data ends after " << decoded << " of " << indices.size()
                  << " pixels\n";
    Surface image = make_surface(screen_w, screen_h);
    if (!image)
        return nullptr;
    paint(image.get(), frame, (flags & 0x80) ? local : global, indices, decoded);
    return image;
}

} // namespace skinner
