#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <ostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "basert/diag.h"
#include "basert/internal/small_blocks.h"
#include "basert/memory.h"
#include "test_support.h"

#if defined(__SANITIZE_ADDRESS__)
#define KBASE_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KBASE_TEST_ASAN 1
#endif
#endif

namespace {

constexpr uintptr_t kChunkMask = ~uintptr_t{(1u << 20) - 1};

uintptr_t ChunkBits(const void* p) { return reinterpret_cast<uintptr_t>(p) & kChunkMask; }

void* NewBlock(size_t size) {
    void* p = nullptr;
    EXPECT_EQ(UtAllocMemoryBlock(&p, size, 1), kUtMemOk);
    return p;
}

void Fill(void* p, size_t n, uint32_t seed) {
    auto* b = static_cast<unsigned char*>(p);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(seed * 131u + i * 7u + (seed >> 8));
}

bool Holds(const void* p, size_t n, uint32_t seed) {
    const auto* b = static_cast<const unsigned char*>(p);
    for (size_t i = 0; i < n; ++i) {
        if (b[i] != static_cast<unsigned char>(seed * 131u + i * 7u + (seed >> 8))) return false;
    }
    return true;
}

// Runs body on a thread of its own, so that it starts from a heap with no chunks.
template <typename F>
void OnFreshThread(F body) {
    std::thread t(body);
    t.join();
}

TEST(SmallBlocks, KillSwitchDecidesWhereBlocksComeFrom) {
    const char* env = std::getenv("KBASE_SMALL_BLOCKS");
#ifdef KBASE_TEST_ASAN
    const bool expected = env != nullptr && env[0] == '1';
#else
    const bool expected = env == nullptr || env[0] != '0';
#endif
    EXPECT_EQ(SbEnabled(), expected);
    for (size_t size : {size_t{1}, size_t{16}, size_t{64}, kSbMaxSize}) {
        void* p = NewBlock(size);
        EXPECT_EQ(SbOwns(p), expected) << size;
        UtFreeMemory(p);
    }
    void* big = NewBlock(kSbMaxSize + 1);
    EXPECT_FALSE(SbOwns(big));
    UtFreeMemory(big);
}

struct OrderCase {
    size_t size;
    const char* freeOrder;  // "forward", "reverse", "shuffled"
};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const OrderCase& c, std::ostream* os) { *os << c.size << " bytes, freed " << c.freeOrder; }

class SmallBlocksOrder : public ::testing::TestWithParam<OrderCase> {};

// After a mass free the next allocations walk each chunk upwards again, in the same chunks.
TEST_P(SmallBlocksOrder, ReuseAfterMassFreeRunsInAddressOrder) {
    if (!SbEnabled()) GTEST_SKIP() << "pool switched off";
    const OrderCase c = GetParam();
    OnFreshThread([c] {
        constexpr size_t kCount = 150000;  // several chunks in every class
        std::vector<void*> blocks(kCount);
        for (void*& p : blocks) p = NewBlock(c.size);
        std::vector<uintptr_t> chunksBefore;
        for (void* p : blocks) chunksBefore.push_back(ChunkBits(p));
        std::sort(chunksBefore.begin(), chunksBefore.end());
        chunksBefore.erase(std::unique(chunksBefore.begin(), chunksBefore.end()), chunksBefore.end());

        const std::string order = c.freeOrder;
        if (order == "reverse") std::reverse(blocks.begin(), blocks.end());
        if (order == "shuffled") std::shuffle(blocks.begin(), blocks.end(), std::mt19937(42));
        const SbStats mid = SbGetStats();
        for (void* p : blocks) UtFreeMemory(p);
        EXPECT_LT(SbGetStats().chunksInUse, mid.chunksInUse) << "emptied chunks go back to the range";

        size_t chunkSwitches = 0;
        std::vector<uintptr_t> chunksAfter;
        for (size_t i = 0; i < kCount; ++i) {
            blocks[i] = NewBlock(c.size);
            if (i > 0 && ChunkBits(blocks[i]) == ChunkBits(blocks[i - 1])) {
                ASSERT_GT(blocks[i], blocks[i - 1]) << "block " << i << " went backwards within its chunk";
                ASSERT_LE(static_cast<char*>(blocks[i]) - static_cast<char*>(blocks[i - 1]),
                          static_cast<std::ptrdiff_t>((c.size + 15) / 16 * 16))
                    << "block " << i << " skipped a free slot";
            } else {
                ++chunkSwitches;
                chunksAfter.push_back(ChunkBits(blocks[i]));
            }
        }
        EXPECT_EQ(chunkSwitches, chunksBefore.size());
        std::sort(chunksAfter.begin(), chunksAfter.end());
        EXPECT_EQ(chunksAfter, chunksBefore) << "the rebuilt blocks fill the same chunks";
        for (void* p : blocks) UtFreeMemory(p);
    });
}

INSTANTIATE_TEST_SUITE_P(Sizes, SmallBlocksOrder,
                         ::testing::Values(OrderCase{16, "forward"}, OrderCase{24, "shuffled"},
                                           OrderCase{48, "reverse"}, OrderCase{64, "shuffled"},
                                           OrderCase{100, "forward"}, OrderCase{128, "shuffled"}),
                         [](const ::testing::TestParamInfo<OrderCase>& param) {
                             return std::to_string(param.param.size) + "_" + param.param.freeOrder;
                         });

// Holes left by single frees are taken lowest first, before fresh slots further up.
TEST(SmallBlocks, FreedSlotsAreReusedLowestFirst) {
    if (!SbEnabled()) GTEST_SKIP() << "pool switched off";
    OnFreshThread([] {
        std::vector<void*> blocks(1000);
        for (void*& p : blocks) p = NewBlock(32);
        for (size_t i : {size_t{700}, size_t{3}, size_t{500}}) UtFreeMemory(blocks[i]);
        for (size_t i : {size_t{3}, size_t{500}, size_t{700}}) {
            void* const old = blocks[i];
            blocks[i] = NewBlock(32);
            EXPECT_EQ(blocks[i], old) << i;
        }
        void* const next = NewBlock(32);
        EXPECT_EQ(next, static_cast<char*>(blocks.back()) + 32) << "then the slot after the last one";
        UtFreeMemory(next);
        for (void* p : blocks) UtFreeMemory(p);
    });
}

struct ResizeCase {
    size_t from;
    size_t to;
};

void PrintTo(const ResizeCase& c, std::ostream* os) { *os << c.from << " -> " << c.to << " bytes"; }

class SmallBlocksResize : public ::testing::TestWithParam<ResizeCase> {};

TEST_P(SmallBlocksResize, KeepsTheCommonPrefix) {
    const ResizeCase c = GetParam();
    void* p = NewBlock(c.from);
    Fill(p, c.from, 7);
    void* const before = p;
    ASSERT_EQ(UtAllocMemoryBlock(&p, c.to, 1), kUtMemOk);
    EXPECT_TRUE(Holds(p, std::min(c.from, c.to), 7));
    const bool sameClass = c.from <= kSbMaxSize && c.to <= kSbMaxSize && (c.from + 15) / 16 == (c.to + 15) / 16;
    if (SbEnabled() && sameClass) {
        EXPECT_EQ(p, before) << "same class resizes in place";
    }
    Fill(p, c.to, 9);  // the whole new size is writable (AddressSanitizer checks the bytes)
    EXPECT_TRUE(Holds(p, c.to, 9));
    ASSERT_EQ(UtAllocMemoryBlock(&p, 0, 1), kUtMemOk);
    EXPECT_EQ(p, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Sizes, SmallBlocksResize,
                         ::testing::Values(ResizeCase{1, 16}, ResizeCase{16, 1}, ResizeCase{16, 17},
                                           ResizeCase{17, 48}, ResizeCase{33, 127}, ResizeCase{64, 5},
                                           ResizeCase{128, 129}, ResizeCase{100, 4000}, ResizeCase{129, 64},
                                           ResizeCase{4000, 3}, ResizeCase{127, 112}, ResizeCase{112, 97}),
                         [](const ::testing::TestParamInfo<ResizeCase>& param) {
                             return std::to_string(param.param.from) + "_to_" + std::to_string(param.param.to);
                         });

// A refused request is counted and leaves a pool block, its place and its content alone.
TEST(SmallBlocks, InjectedFailureRefusesTheNthRequestOnPoolBlocks) {
    void* p = NewBlock(20);
    Fill(p, 20, 3);
    for (size_t to : {size_t{24}, size_t{40}, size_t{500}, size_t{8}}) {
        const uint64_t requests = UtMemRequestCount();
        void* const before = p;
        {
            kbase_test::FailNthAllocation fail(1);
            EXPECT_EQ(UtAllocMemoryBlock(&p, to, 1), kUtMemNoMemory) << to;
        }
        EXPECT_EQ(UtMemRequestCount(), requests + 1);
        EXPECT_EQ(p, before);
        EXPECT_TRUE(Holds(p, 20, 3));
    }
    {
        kbase_test::FailNthAllocation fail(2);
        void* q = nullptr;
        EXPECT_EQ(UtAllocMemoryBlock(&q, 8, 1), kUtMemOk);
        void* r = nullptr;
        EXPECT_EQ(UtAllocMemoryBlock(&r, 8, 1), kUtMemNoMemory);
        EXPECT_EQ(r, nullptr);
        EXPECT_EQ(UtAllocMemoryBlock(&r, 8, 1), kUtMemOk);
        UtFreeMemory(q);
        UtFreeMemory(r);
    }
    UtFreeMemory(p);
}

// Freeing a block twice or freeing a pointer into a block's middle is reported and ignored; the
// pool stays usable and hands no block out twice.
TEST(SmallBlocks, BadFreesAreReportedAndIgnored) {
    if (!SbEnabled()) GTEST_SKIP() << "pool switched off";
    OnFreshThread([] {
        void* a = NewBlock(32);
        void* b = NewBlock(32);
        Fill(b, 32, 5);
        const uint64_t reports = DebugReportCount();
        UtFreeMemory(a);
        SbFree(a);
        EXPECT_EQ(DebugReportCount(), reports + 1);
        SbFree(static_cast<char*>(b) + 8);
        EXPECT_EQ(DebugReportCount(), reports + 2);
        OnFreshThread([b] { SbFree(static_cast<char*>(b) + 16); });  // not the owner: no bitmap
        EXPECT_EQ(DebugReportCount(), reports + 3);
        EXPECT_TRUE(Holds(b, 32, 5)) << "a refused free leaves the live block alone";
        void* c = NewBlock(32);
        void* d = NewBlock(32);
        EXPECT_EQ(c, a);
        EXPECT_NE(d, a);
        EXPECT_NE(d, b);
        for (void* p : {b, c, d}) UtFreeMemory(p);
    });
}

struct Handed {
    void* p;
    size_t size;
    uint32_t seed;
};

// Several threads allocate, resize and free blocks and hand some to each other to be checked and
// freed there; some threads end while others still free their blocks. Nothing may be handed out
// twice (the contents would clash) and, once all is freed, every chunk must be reclaimable.
TEST(SmallBlocks, ThreadsHandingBlocksAroundLoseNothing) {
    const SbStats before = SbGetStats();
    constexpr int kThreads = 4;
    std::mutex lock;
    std::vector<Handed> shared;
    std::atomic<int> corrupt{0};

    auto worker = [&](int id, int rounds) {
        std::mt19937 rng(static_cast<uint32_t>(id) * 7919u);
        std::vector<Handed> mine;
        for (int i = 0; i < rounds; ++i) {
            const uint32_t seed = static_cast<uint32_t>(id) << 24 | static_cast<uint32_t>(i);
            const size_t size = 1 + rng() % 160;
            Handed h{NewBlock(size), size, seed};
            Fill(h.p, size, seed);
            mine.push_back(h);
            const uint32_t action = rng() % 8;
            if (action < 3) {  // hand one over
                std::swap(mine[rng() % mine.size()], mine.back());
                const Handed out = mine.back();
                mine.pop_back();
                std::lock_guard<std::mutex> g(lock);
                shared.push_back(out);
            } else if (action < 5) {  // take one handed over by anyone and free it
                Handed in{};
                {
                    std::lock_guard<std::mutex> g(lock);
                    if (shared.empty()) continue;
                    const size_t k = rng() % shared.size();
                    in = shared[k];
                    shared[k] = shared.back();
                    shared.pop_back();
                }
                if (!Holds(in.p, in.size, in.seed)) ++corrupt;
                UtFreeMemory(in.p);
            } else if (action < 6) {  // resize one of ours
                Handed& r = mine[rng() % mine.size()];
                const size_t to = 1 + rng() % 160;
                if (!Holds(r.p, r.size, r.seed)) ++corrupt;
                ASSERT_EQ(UtAllocMemoryBlock(&r.p, to, 1), kUtMemOk);
                if (!Holds(r.p, std::min(r.size, to), r.seed)) ++corrupt;
                r.size = to;
                Fill(r.p, to, r.seed);
            } else {  // free one of ours
                const size_t k = rng() % mine.size();
                if (!Holds(mine[k].p, mine[k].size, mine[k].seed)) ++corrupt;
                UtFreeMemory(mine[k].p);
                mine[k] = mine.back();
                mine.pop_back();
            }
        }
        // Half of what is left is handed over before the thread ends, the rest freed here.
        for (size_t k = 0; k < mine.size(); ++k) {
            if (k % 2 == 0) {
                std::lock_guard<std::mutex> g(lock);
                shared.push_back(mine[k]);
            } else {
                if (!Holds(mine[k].p, mine[k].size, mine[k].seed)) ++corrupt;
                UtFreeMemory(mine[k].p);
            }
        }
    };

    for (int wave = 0; wave < 3; ++wave) {
        std::vector<std::thread> threads;
        for (int id = 0; id < kThreads; ++id) threads.emplace_back(worker, wave * kThreads + id, 20000 + id * 5000);
        for (std::thread& t : threads) t.join();
    }
    EXPECT_EQ(corrupt.load(), 0);
    for (const Handed& h : shared) {
        EXPECT_TRUE(Holds(h.p, h.size, h.seed));
        UtFreeMemory(h.p);
    }
    shared.clear();
    if (!SbEnabled()) return;

    // Everything is free now, partly on remote lists of abandoned chunks. A thread that needs
    // chunks adopts them all; once it has freed its blocks and ended, the range holds no more
    // chunks than before.
    OnFreshThread([] {
        std::vector<void*> held;
        for (size_t n = 0; SbGetStats().chunksAbandoned > 0; ++n) {
            ASSERT_LT(n, size_t{50'000'000}) << "abandoned chunks never adopted";
            for (size_t size = 16; size <= kSbMaxSize; size += 16) held.push_back(NewBlock(size));
        }
        for (void* p : held) UtFreeMemory(p);
    });
    const SbStats after = SbGetStats();
    EXPECT_EQ(after.chunksAbandoned, 0u);
    EXPECT_LE(after.chunksInUse, before.chunksInUse);
}

}  // namespace
