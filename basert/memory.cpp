#include "basert/memory.h"

#include <cstdlib>
#include <limits>

namespace {

// Single-threaded by contract, like the rest of the runtime's process-wide state.
struct Injection {
    uint64_t requests = 0;
    uint64_t failAt = 0;      // request number that fails; 0 = none
    bool failOnwards = false;  // also fail every later request
};
Injection g_inject;

// Counts the request and says whether it must be refused.
bool RefuseThisRequest() {
    ++g_inject.requests;
    if (g_inject.failAt == 0) return false;
    if (g_inject.requests == g_inject.failAt) {
        if (!g_inject.failOnwards) g_inject.failAt = 0;
        return true;
    }
    return g_inject.failOnwards && g_inject.requests > g_inject.failAt;
}

}  // namespace

int UtAllocMemoryBlock(void** block, uint64_t count, uint64_t elemSize) {
    if (block == nullptr || elemSize == 0) return kUtMemBadArgument;
    if (count == 0) {
        std::free(*block);
        *block = nullptr;
        return kUtMemOk;
    }
    if (count > std::numeric_limits<size_t>::max() / elemSize) return kUtMemBadArgument;
    if (RefuseThisRequest()) return kUtMemNoMemory;
    void* p = std::realloc(*block, static_cast<size_t>(count * elemSize));
    if (p == nullptr) return kUtMemNoMemory;
    *block = p;
    return kUtMemOk;
}

void UtFreeMemory(void* block) { std::free(block); }

void* UtCcalloc(size_t count, size_t size) {
    if (size != 0 && count > std::numeric_limits<size_t>::max() / size) return nullptr;
    if (RefuseThisRequest()) return nullptr;
    return std::calloc(count == 0 ? 1 : count, size == 0 ? 1 : size);
}

void UtCfree(void* block) { std::free(block); }

void UtMemFailNth(int64_t n) {
    g_inject.failAt = n > 0 ? g_inject.requests + static_cast<uint64_t>(n) : 0;
    g_inject.failOnwards = false;
}

void UtMemFailFrom(int64_t n) {
    g_inject.failAt = n > 0 ? g_inject.requests + static_cast<uint64_t>(n) : 0;
    g_inject.failOnwards = n > 0;
}

uint64_t UtMemRequestCount() { return g_inject.requests; }
