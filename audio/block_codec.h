#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"
#include "liba/nocopy.h"

#include <cstddef>
#include <cstdint>

// Bridges between whole coded blocks and PCM of any length. Instantiated for
// ADPCMData, GSMData and MP3Data (decoder) and ADPCMData and GSMData
// (encoder). Threads: those of the drive; one lock (the consumer end's)
// guards the kept samples.
namespace audio {

// Decodes blocks of T from upstream into PCM. A pull for `n` frames hands out
// at most `n` frames of what was decoded and keeps the rest as `residue`,
// both as views of the decoded block: nothing is copied. It asks upstream for
// more only once `residue` is used up.
template <class T>
class BlockDecoderPCM : public Provider<PCMData>, public Consumer<T>, liba::Nocopy {
public:
    // At most `n` sample frames; an empty record once the source has ended
    // (and on every later call, each of which asks upstream again).
    void get_data(PCMData& out, int n) override;
    // Decodes the pushed blocks and pushes the PCM on.
    void on_data(const T& in) override;

protected:
    // PCM of all blocks in `in`; empty when nothing could be decoded.
    virtual void decode_blocks(PCMData& out, const T& in) = 0;
    // Blocks to ask upstream for so as to yield about `n` frames.
    virtual int blocks_for_samples(int n) = 0;

    // Decoded frames not handed on yet.
    PCMData residue;
};

// Gathers pushed PCM into blocks of a fixed length and pushes each full block
// encoded. The block is made from the first record's format; records of
// another format are dropped, and a format the encoder refuses (a block of
// size 0) drops everything. A tail shorter than a block is never flushed, so
// an encoded stream is a whole number of blocks.
template <class T>
class BlockEncoderPCM : public Consumer<PCMData>, public Provider<T>, liba::Nocopy {
public:
    void on_data(const PCMData& in) override;
    // The pull form, which ignores `n` and returns one encoded block. It
    // pulls until the block is full, so it must only be used on a source
    // that never ends: a source that runs dry keeps it asking forever.
    void get_data(T& out, int n) override;

protected:
    // Encodes one full `block`.
    virtual void encode_block(T& out, const PCMData& block) = 0;
    // A new, writable block of the encoder's length in `sample`'s format, or
    // an empty record with a zeroed format when the format is refused.
    virtual void make_block(PCMData& out, const PCMData& sample) = 0;

    // The block being gathered; empty until the first record arrives.
    PCMData block;
    // Bytes of `block` filled so far.
    std::size_t filled = 0;

private:
    // Copies what fits of `in` from byte `from` on into `block` at `filled`;
    // returns the bytes copied.
    std::size_t gather(const PCMData& in, std::size_t from);
};

extern template class BlockDecoderPCM<ADPCMData>;
extern template class BlockDecoderPCM<GSMData>;
extern template class BlockDecoderPCM<MP3Data>;
extern template class BlockEncoderPCM<ADPCMData>;
extern template class BlockEncoderPCM<GSMData>;

} // namespace audio
