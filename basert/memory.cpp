#include "basert/memory.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "basert/internal/small_blocks.h"

namespace {

// Injection is meant for one thread at a time, but blocks may be requested on several threads:
// relaxed loads and stores keep that free of data races without a locked instruction per request
// (concurrent requests may then be counted once).
struct Injection {
    std::atomic<uint64_t> requests{0};
    std::atomic<uint64_t> failAt{0};       // request number that fails; 0 = none
    std::atomic<bool> failOnwards{false};  // also fail every later request
};
Injection g_inject;

// Counts the request and says whether it must be refused.
bool RefuseThisRequest() {
    const uint64_t n = g_inject.requests.load(std::memory_order_relaxed) + 1;
    g_inject.requests.store(n, std::memory_order_relaxed);
    const uint64_t failAt = g_inject.failAt.load(std::memory_order_relaxed);
    if (failAt == 0) return false;
    const bool onwards = g_inject.failOnwards.load(std::memory_order_relaxed);
    if (n == failAt) {
        if (!onwards) g_inject.failAt.store(0, std::memory_order_relaxed);
        return true;
    }
    return onwards && n > failAt;
}

void FreeBlock(void* block) {
    if (basert_sb::Owns(block)) basert_sb::Free(block);
    else std::free(block);
}

// A new block of size bytes: small ones from the pool, the rest (or when the pool cannot serve)
// from malloc.
void* NewBlock(size_t size) {
    if (size <= kSbMaxSize) {
        if (void* p = basert_sb::Alloc(size)) return p;
    }
    return std::malloc(size);
}

}  // namespace

int UtAllocMemoryBlock(void** block, uint64_t count, uint64_t elemSize) {
    if (block == nullptr || elemSize == 0) return kUtMemBadArgument;
    if (count == 0) {
        FreeBlock(*block);
        *block = nullptr;
        return kUtMemOk;
    }
    if (count > std::numeric_limits<size_t>::max() / elemSize) return kUtMemBadArgument;
    if (RefuseThisRequest()) return kUtMemNoMemory;
    const size_t size = static_cast<size_t>(count * elemSize);
    void* old = *block;
    void* p = nullptr;
    if (old == nullptr) {
        p = NewBlock(size);
    } else if (basert_sb::Owns(old)) {
        if (basert_sb::ResizeInPlace(old, size)) return kUtMemOk;
        p = NewBlock(size);
        if (p == nullptr) return kUtMemNoMemory;
        std::memcpy(p, old, std::min(basert_sb::UsableSize(old), size));
        basert_sb::Free(old);
    } else {
        // Blocks that started large stay with malloc, even when they shrink into pool sizes.
        p = std::realloc(old, size);
    }
    if (p == nullptr) return kUtMemNoMemory;
    *block = p;
    return kUtMemOk;
}

void UtFreeMemory(void* block) { FreeBlock(block); }

void* UtCcalloc(size_t count, size_t size) {
    if (size != 0 && count > std::numeric_limits<size_t>::max() / size) return nullptr;
    if (RefuseThisRequest()) return nullptr;
    count = count == 0 ? 1 : count;
    size = size == 0 ? 1 : size;
    // Small ones (objects, short arrays of a walk) from the pool, zeroed here.
    if (count * size <= kSbMaxSize) {
        if (void* p = basert_sb::Alloc(count * size)) {
            std::memset(p, 0, count * size);
            return p;
        }
    }
    return std::calloc(count, size);
}

void UtCfree(void* block) { FreeBlock(block); }

void UtMemFailNth(int64_t n) {
    const uint64_t now = g_inject.requests.load(std::memory_order_relaxed);
    g_inject.failOnwards.store(false, std::memory_order_relaxed);
    g_inject.failAt.store(n > 0 ? now + static_cast<uint64_t>(n) : 0, std::memory_order_relaxed);
}

void UtMemFailFrom(int64_t n) {
    const uint64_t now = g_inject.requests.load(std::memory_order_relaxed);
    g_inject.failOnwards.store(n > 0, std::memory_order_relaxed);
    g_inject.failAt.store(n > 0 ? now + static_cast<uint64_t>(n) : 0, std::memory_order_relaxed);
}

uint64_t UtMemRequestCount() { return g_inject.requests.load(std::memory_order_relaxed); }
