#include "audio/encoder_mp3.h"

#include <lame/lame.h>

#include <cstdlib>
#include <cstring>

namespace audio {

EncoderMP3::EncoderMP3(std::int32_t rate_bits) : bit_rate(rate_bits) {}

EncoderMP3::~EncoderMP3()
{
    liba::Lock held(lock);
    close_lame();
}

bool EncoderMP3::open_lame()
{
    lame = lame_init();
    if (lame == nullptr)
        return false;
    lame_set_in_samplerate(lame, rate);
    // LAME would pick a lower output rate for a low bit rate; the
    // recording's own rate is kept instead.
    lame_set_out_samplerate(lame, rate);
    lame_set_num_channels(lame, channels);
    lame_set_brate(lame, bit_rate / 1000);
    // No Info tag frame: nobody comes back to fill it in, and a file grown
    // by appending would carry a stale one at its start.
    lame_set_bWriteVbrTag(lame, 0);
    if (lame_init_params(lame) < 0) {
        lame_close(lame);
        lame = nullptr;
        return false;
    }
    return true;
}

void EncoderMP3::close_lame()
{
    if (lame == nullptr)
        return;
    // What LAME still holds never reaches the file.
    lame_encode_flush(lame, out, kOutBytes);
    lame_close(lame);
    lame = nullptr;
}

void EncoderMP3::get_data(MP3Data& out_record, int) { out_record = MP3Data(); }

void EncoderMP3::on_data(const PCMData& in)
{
    liba::Lock held(lock);
    const std::int32_t size = static_cast<std::int32_t>(in.bytes.size());
    if (size == 0 || in.rate == 0 || in.bits == 0 || (in.channels != 1 && in.channels != 2))
        return;
    if (in.bits != 8 && in.bits != 16)
        return;
    if (in.channels != channels || in.rate != rate) {
        close_lame();
        channels = in.channels;
        rate = in.rate;
    }
    if (lame == nullptr) {
        residue_size = 0;
        if (!open_lame())
            return;
    }
    const int frame = lame_get_framesize(lame);
    const std::int32_t block = frame * ((in.bits * in.channels) / 8);
    if (frame <= 0 || frame > kFrameSamples || block == 0)
        return;
    const std::uint8_t* bytes = in.bytes.data();
    std::int32_t used = 0;
    if (block - residue_size < size) {
        do {
            const std::int32_t take = block - residue_size;
            std::memcpy(residue + residue_size, bytes + used, static_cast<std::size_t>(take));
            used += take;
            residue_size = 0;
            encode_residue(frame, in.bits);
        } while (block + used < size);
    }
    // What is left waits for the next record; when no frame was completed
    // this replaces what the residue held.
    residue_size = size - used;
    std::memcpy(residue, bytes + used, static_cast<std::size_t>(residue_size));
}

void EncoderMP3::encode_residue(int frame, int bits)
{
    if (bits == 16) {
        if (channels == 1) {
            std::memcpy(left, residue, static_cast<std::size_t>(frame) * 2);
            std::memset(right, 0, sizeof right);
        } else {
            for (int i = 0; i < frame; ++i) {
                std::memcpy(&left[i], residue + 4 * i, 2);
                std::memcpy(&right[i], residue + 4 * i + 2, 2);
            }
        }
    } else {
        // 8-bit sound comes only from a conversion. Each byte is taken as its
        // distance from 127, rectified as it always was.
        auto widen = [](std::uint8_t x) { return static_cast<std::int16_t>(std::abs(x - 127) * 256); };
        if (channels == 1) {
            for (int i = 0; i < frame; ++i)
                left[i] = widen(residue[i]);
            std::memset(right, 0, sizeof right);
        } else {
            for (int i = 0; i < frame; ++i) {
                left[i] = widen(residue[2 * i]);
                right[i] = widen(residue[2 * i + 1]);
            }
        }
    }
    int n = lame_encode_buffer(lame, left, right, frame, out, kOutBytes);
    MP3Data record;
    if (n > 0) {
        record.bytes = liba::ByteBlock(out, static_cast<std::size_t>(n));
        record.frame_size = n;
    }
    push_data(record);
}

} // namespace audio
