#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "basert/memory.h"
#include "test_support.h"

namespace {

TEST(MemoryBlock, GrowsKeepingContentAndShrinks) {
    char* p = nullptr;
    ASSERT_EQ(UtAllocMemoryBlockT(&p, 4), kUtMemOk);
    std::memcpy(p, "abc", 4);
    ASSERT_EQ(UtAllocMemoryBlockT(&p, 100000), kUtMemOk);
    EXPECT_STREQ(p, "abc");
    ASSERT_EQ(UtAllocMemoryBlockT(&p, 2), kUtMemOk);
    EXPECT_EQ(std::memcmp(p, "ab", 2), 0);
    ASSERT_EQ(UtAllocMemoryBlockT(&p, 0), kUtMemOk);
    EXPECT_EQ(p, nullptr);
}

// Zeroed blocks of every small size (pool) and a large one (malloc), also when the memory was
// used and released just before; each is released with UtCfree.
TEST(MemoryBlock, CcallocHandsOutZeroedBlocksAgainAndAgain) {
    for (size_t bytes : {size_t{1}, size_t{15}, size_t{16}, size_t{17}, size_t{64}, size_t{127}, size_t{128},
                         size_t{129}, size_t{5000}}) {
        for (int round = 0; round < 3; ++round) {
            std::vector<unsigned char*> blocks;
            for (int i = 0; i < 50; ++i) {
                auto* p = static_cast<unsigned char*>(UtCcalloc(bytes, 1));
                ASSERT_NE(p, nullptr) << bytes;
                for (size_t k = 0; k < bytes; ++k) ASSERT_EQ(p[k], 0) << bytes << " byte " << k << " round " << round;
                std::memset(p, 0xAB, bytes);
                blocks.push_back(p);
            }
            for (unsigned char* p : blocks) UtCfree(p);
        }
    }
    UtCfree(nullptr);
}

TEST(MemoryBlock, RefusesBadArgumentsWithoutTouchingTheBlock) {
    void* p = nullptr;
    EXPECT_EQ(UtAllocMemoryBlock(nullptr, 1, 1), kUtMemBadArgument);
    EXPECT_EQ(UtAllocMemoryBlock(&p, 1, 0), kUtMemBadArgument);
    EXPECT_EQ(UtAllocMemoryBlock(&p, UINT64_MAX / 2, 4), kUtMemBadArgument);
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(UtCcalloc(SIZE_MAX / 2, 4), nullptr);
}

TEST(MemoryBlock, InjectedFailureHitsExactlyTheNthRequestAndKeepsTheBlock) {
    int* p = nullptr;
    ASSERT_EQ(UtAllocMemoryBlockT(&p, 2), kUtMemOk);
    p[0] = 7;
    p[1] = 8;
    int* const before = p;
    {
        kbase_test::FailNthAllocation fail(2);
        EXPECT_EQ(UtAllocMemoryBlockT(&p, 3), kUtMemOk);
        int* const grown = p;
        EXPECT_EQ(UtAllocMemoryBlockT(&p, 1000), kUtMemNoMemory);
        EXPECT_EQ(p, grown);
        EXPECT_EQ(p[0], 7);
        EXPECT_EQ(p[1], 8);
        EXPECT_EQ(UtAllocMemoryBlockT(&p, 1000), kUtMemOk) << "only the n-th request fails";
    }
    (void)before;
    {
        kbase_test::FailAllocationsFrom fail(1);
        EXPECT_EQ(UtCcalloc(1, 1), nullptr);
        EXPECT_EQ(UtCcalloc(1, 1), nullptr);
    }
    void* q = UtCcalloc(3, 4);
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(std::memcmp(q, "\0\0\0\0\0\0\0\0\0\0\0\0", 12), 0);
    UtCfree(q);
    UtFreeMemory(p);
}

}  // namespace
