#include "audio/block_codec.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace audio {

template <class T>
void BlockDecoderPCM<T>::get_data(PCMData& out, int n)
{
    liba::Lock held(this->lock);
    // A block that decodes to nothing (a damaged one) is simply decoded
    // past: only a source with nothing left stops this loop.
    while (residue.bytes.size() == 0) {
        T coded;
        this->pull_data(coded, blocks_for_samples(n));
        if (coded.bytes.size() == 0)
            break;
        PCMData decoded;
        decode_blocks(decoded, coded);
        residue = std::move(decoded);
    }
    std::size_t frame = static_cast<std::size_t>(std::max(residue.bytes_per_frame(), 0));
    std::size_t take = std::min(frame * static_cast<std::size_t>(std::max(n, 0)), residue.bytes.size());
    out.bytes = liba::ByteBlock(residue.bytes, 0, take);
    out.channels = residue.channels;
    out.bits = residue.bits;
    out.rate = residue.rate;
    residue.bytes = liba::ByteBlock(residue.bytes, take, residue.bytes.size() - take);
}

template <class T>
void BlockDecoderPCM<T>::on_data(const T& in)
{
    liba::Lock held(this->lock);
    PCMData decoded;
    decode_blocks(decoded, in);
    this->push_data(decoded);
}

template <class T>
std::size_t BlockEncoderPCM<T>::gather(const PCMData& in, std::size_t from)
{
    std::size_t room = block.bytes.size() - filled;
    std::size_t count = std::min(room, in.bytes.size() - from);
    if (count != 0)
        std::memcpy(block.bytes.writable() + filled, in.bytes.data() + from, count);
    filled += count;
    return count;
}

template <class T>
void BlockEncoderPCM<T>::on_data(const PCMData& in)
{
    liba::Lock held(this->lock);
    if (block.bytes.size() == 0) {
        make_block(block, in);
        filled = 0;
    }
    // A refused format leaves a block of size 0, which can hold nothing.
    if (block.bytes.size() == 0 || !format_equal(block, in))
        return;
    std::size_t from = 0;
    while (from < in.bytes.size()) {
        from += gather(in, from);
        if (filled == block.bytes.size()) {
            T encoded;
            encode_block(encoded, block);
            this->push_data(encoded);
            filled = 0;
        }
    }
}

template <class T>
void BlockEncoderPCM<T>::get_data(T& out, int)
{
    liba::Lock held(this->lock);
    if (block.bytes.size() == 0) {
        PCMData first;
        this->pull_data(first, 1);
        make_block(block, first);
        filled = 0;
        if (block.bytes.size() == 0) {
            out = T();
            return;
        }
        if (format_equal(block, first))
            gather(first, 0);
    }
    std::size_t frame = static_cast<std::size_t>(std::max(block.bytes_per_frame(), 1));
    while (filled < block.bytes.size()) {
        PCMData more;
        std::size_t frames = std::max<std::size_t>((block.bytes.size() - filled) / frame, 1);
        this->pull_data(more, static_cast<int>(std::min<std::size_t>(frames, INT32_MAX)));
        if (format_equal(block, more))
            gather(more, 0);
    }
    filled = 0;
    encode_block(out, block);
}

template class BlockDecoderPCM<ADPCMData>;
template class BlockDecoderPCM<GSMData>;
template class BlockDecoderPCM<MP3Data>;
template class BlockEncoderPCM<ADPCMData>;
template class BlockEncoderPCM<GSMData>;

} // namespace audio
