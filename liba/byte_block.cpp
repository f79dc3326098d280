#include "liba/byte_block.h"

#include <algorithm>
#include <cstring>

namespace liba {

ByteBlock::Block* ByteBlock::new_block(std::size_t capacity)
{
    // `new uint8_t[n]` leaves the bytes uninitialised, as promised.
    return new Block{1, new std::uint8_t[capacity], capacity};
}

// Every empty view made from nothing shares this zero-length block, so an
// empty record, or a view left behind by a move, costs no allocation. The
// block holds one count of its own and is therefore never freed.
ByteBlock::Block* ByteBlock::empty_block()
{
    static std::uint8_t no_bytes[1];
    static Block empty{1, no_bytes, 0};
    return &empty;
}

void ByteBlock::release(Block* b)
{
    // acq_rel: the last releaser must see every write made through the other
    // views before it frees the bytes.
    if (b->count.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete[] b->data;
        delete b;
    }
}

ByteBlock::ByteBlock() : block_(empty_block())
{
    retain(block_);
}

ByteBlock::ByteBlock(std::size_t size) : block_(new_block(size)), size_(size) {}

ByteBlock::ByteBlock(const void* bytes, std::size_t size) : block_(new_block(size)), size_(size)
{
    if (size != 0)
        std::memcpy(block_->data, bytes, size);
}

ByteBlock::ByteBlock(const ByteBlock& other, std::size_t offset, std::size_t size)
    : block_(other.block_)
{
    retain(block_);
    offset = std::min(offset, other.size_);
    offset_ = other.offset_ + offset;
    size_ = std::min(size, other.size_ - offset);
}

ByteBlock::ByteBlock(const ByteBlock& other)
    : block_(other.block_), offset_(other.offset_), size_(other.size_)
{
    retain(block_);
}

ByteBlock::ByteBlock(ByteBlock&& other) noexcept
    : block_(other.block_), offset_(other.offset_), size_(other.size_)
{
    other.block_ = empty_block();
    retain(other.block_);
    other.offset_ = 0;
    other.size_ = 0;
}

ByteBlock& ByteBlock::operator=(const ByteBlock& other)
{
    // The incoming block is counted before the old one is released, so that
    // assigning a view to itself (or to another view of its only block)
    // never frees the bytes in between.
    Block* incoming = other.block_;
    retain(incoming);
    release(block_);
    block_ = incoming;
    offset_ = other.offset_;
    size_ = other.size_;
    return *this;
}

ByteBlock& ByteBlock::operator=(ByteBlock&& other) noexcept
{
    if (this != &other) {
        release(block_);
        block_ = other.block_;
        offset_ = other.offset_;
        size_ = other.size_;
        other.block_ = empty_block();
        retain(other.block_);
        other.offset_ = 0;
        other.size_ = 0;
    }
    return *this;
}

ByteBlock::~ByteBlock()
{
    release(block_);
}

std::uint8_t* ByteBlock::writable()
{
    if (block_->count.load(std::memory_order_acquire) != 1) {
        Block* own = new_block(size_);
        if (size_ != 0)
            std::memcpy(own->data, data(), size_);
        release(block_);
        block_ = own;
        offset_ = 0;
    }
    // The offset is deliberately not added. A writer always holds a view it
    // has just made itself (a new block, or the private copy above), so its
    // offset is 0 and both answers agree. A sub-view with an offset is a
    // reader's view; handing out the block start keeps every writer working
    // on whole blocks, which is what the stages that fill records are built
    // around. Readers use data().
    return block_->data;
}

} // namespace liba
