#include "liba/byte_block.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

std::string bytes_of(const liba::ByteBlock& b)
{
    return std::string(reinterpret_cast<const char*>(b.data()), b.size());
}

liba::ByteBlock block_of(const std::string& s)
{
    return liba::ByteBlock(s.data(), s.size());
}

} // namespace

TEST(ByteBlock, SubViewsCountFromTheirParentAndShareBytes)
{
    liba::ByteBlock whole = block_of("0123456789");
    liba::ByteBlock mid(whole, 2, 6);       // "234567"
    liba::ByteBlock inner(mid, 1, 3);       // "345": offset is from mid, not from the block
    EXPECT_EQ(bytes_of(mid), "234567");
    EXPECT_EQ(bytes_of(inner), "345");
    EXPECT_EQ(inner.data(), whole.data() + 3);
    EXPECT_EQ(whole.use_count(), 3);

    // A range that runs past the parent is cut at the parent's end.
    EXPECT_EQ(bytes_of(liba::ByteBlock(mid, 4, 100)), "67");
    EXPECT_EQ(bytes_of(liba::ByteBlock(mid, 9, 1)), "");
    EXPECT_EQ(bytes_of(liba::ByteBlock(whole, 7, SIZE_MAX)), "789");

    // The bytes outlive the view they were made through.
    liba::ByteBlock tail;
    {
        liba::ByteBlock local = block_of("temporary");
        tail = liba::ByteBlock(local, 4, 5);
    }
    EXPECT_EQ(bytes_of(tail), "orary");
    EXPECT_EQ(tail.use_count(), 1);
}

TEST(ByteBlock, CopyAssignAndMoveKeepCountsRight)
{
    liba::ByteBlock a = block_of("shared");
    {
        liba::ByteBlock b = a;
        EXPECT_EQ(b.data(), a.data());
        EXPECT_EQ(a.use_count(), 2);
        liba::ByteBlock c;
        c = b;
        EXPECT_EQ(a.use_count(), 3);
    }
    EXPECT_EQ(a.use_count(), 1);

    // Self-assignment of the only view must not free the bytes in between
    // (the sanitizer would see the use after free).
    liba::ByteBlock& self = a;
    a = self;
    EXPECT_EQ(bytes_of(a), "shared");
    EXPECT_EQ(a.use_count(), 1);
    // Nor may assigning a sub-view of the only view to that view.
    a = liba::ByteBlock(a, 2, 3);
    EXPECT_EQ(bytes_of(a), "are");
    EXPECT_EQ(a.use_count(), 1);

    liba::ByteBlock moved = std::move(a);
    EXPECT_EQ(bytes_of(moved), "are");
    EXPECT_EQ(moved.use_count(), 1);
    EXPECT_EQ(a.size(), 0u);        // NOLINT: a moved-from view is a valid empty view
    a = moved;
    EXPECT_EQ(moved.use_count(), 2);
    liba::ByteBlock other = block_of("x");
    other = std::move(moved);
    EXPECT_EQ(bytes_of(other), "are");
    EXPECT_EQ(other.use_count(), 2);
}

TEST(ByteBlock, WritableCopiesOnlyWhenShared)
{
    // The only view of a block it made itself: written in place.
    liba::ByteBlock own = block_of("abcd");
    const std::uint8_t* before = own.data();
    std::uint8_t* w = own.writable();
    EXPECT_EQ(w, before);
    w[0] = 'X';
    EXPECT_EQ(bytes_of(own), "Xbcd");

    // Shared: the writer gets a private copy of its view's bytes, at
    // offset 0, and the other view keeps the old bytes.
    liba::ByteBlock whole = block_of("0123456789");
    liba::ByteBlock part(whole, 3, 4);
    std::uint8_t* pw = part.writable();
    EXPECT_EQ(pw, part.data());
    EXPECT_NE(pw, whole.data() + 3);
    EXPECT_EQ(bytes_of(part), "3456");
    pw[0] = '#';
    EXPECT_EQ(bytes_of(part), "#456");
    EXPECT_EQ(bytes_of(whole), "0123456789");
    EXPECT_EQ(whole.use_count(), 1);
    EXPECT_EQ(part.use_count(), 1);

    // An unshared view with an offset gets the start of its block, not its
    // own first byte: only views at offset 0 are written through.
    liba::ByteBlock tail;
    {
        liba::ByteBlock full = block_of("0123456789");
        tail = liba::ByteBlock(full, 6, 4);
    }
    EXPECT_EQ(tail.use_count(), 1);
    EXPECT_EQ(tail.writable(), tail.data() - 6);

    // An empty view has somewhere to point, and can be made writable too.
    liba::ByteBlock none;
    EXPECT_NE(none.data(), nullptr);
    EXPECT_EQ(liba::ByteBlock(nullptr, 0).size(), 0u);
    none.writable();
    EXPECT_EQ(none.size(), 0u);
    EXPECT_EQ(none.use_count(), 1);
}

TEST(ByteBlock, CountsHoldAcrossThreads)
{
    liba::ByteBlock source(4096);
    std::uint8_t* w = source.writable();
    for (int i = 0; i < 4096; ++i)
        w[i] = static_cast<std::uint8_t>(i * 7);
    const std::string expected = bytes_of(source);

    // Views made on one thread are released on others, many times over.
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20000; ++i) {
                liba::ByteBlock copy = source;
                liba::ByteBlock sub(copy, static_cast<std::size_t>(i % 4096), 16);
                liba::ByteBlock moved = std::move(copy);
                if (std::memcmp(sub.data(), expected.data() + i % 4096, sub.size()) != 0)
                    ++mismatches[t];
            }
        });
    }
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(source.use_count(), 1);
    for (int m : mismatches)
        EXPECT_EQ(m, 0);
    EXPECT_EQ(bytes_of(source), expected);
}
