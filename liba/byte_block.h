#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace liba {

// A counted, shareable view of bytes: the buffer under every audio record.
// Copying a view shares the bytes and costs one atomic increment; the bytes
// go when the last view of their block goes.
// Threads: a view belongs to one thread at a time, but views of one block may
// be copied and released on different threads (the count is atomic). The
// bytes themselves are not guarded: they are read-only unless writable() has
// been called on the view. Sizes and offsets are in bytes.
class ByteBlock {
public:
    // Empty: a view of size 0 on a zero-length block.
    ByteBlock();
    // `size` uninitialised bytes in a new block.
    explicit ByteBlock(std::size_t size);
    // A new block holding a copy of `size` bytes from `bytes`.
    ByteBlock(const void* bytes, std::size_t size);
    // A sub-view of the same block: `offset` counts from the start of
    // `other`'s view. The range is clamped to `other`'s view, so
    // ByteBlock(b, k, SIZE_MAX) is everything of `b` from `k` on.
    ByteBlock(const ByteBlock& other, std::size_t offset, std::size_t size);

    ByteBlock(const ByteBlock& other);
    ByteBlock(ByteBlock&& other) noexcept;
    ByteBlock& operator=(const ByteBlock& other);
    ByteBlock& operator=(ByteBlock&& other) noexcept;
    ~ByteBlock();

    // The first byte of the view (block start plus offset).
    const std::uint8_t* data() const { return block_->data + offset_; }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }

    // Makes the bytes private to this view, copying them into a new block
    // (offset 0) when another view shares the block, and returns the start
    // of the block, NOT data(). See the definition for why.
    std::uint8_t* writable();

    // Views sharing this view's block, this one included; for tests and
    // diagnostics (another thread may change it at any moment).
    std::int32_t use_count() const { return block_->count.load(std::memory_order_acquire); }

private:
    struct Block {
        std::atomic<std::int32_t> count;
        std::uint8_t* data;
        std::size_t capacity;
    };

    static Block* new_block(std::size_t capacity);
    static Block* empty_block();
    static void retain(Block* b) { b->count.fetch_add(1, std::memory_order_relaxed); }
    static void release(Block* b);

    Block* block_;
    std::size_t offset_ = 0;
    std::size_t size_ = 0;
};

} // namespace liba
