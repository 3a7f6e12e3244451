// Memory blocks of the runtime.
//
// Every growable array and every text of the library lives in a block handed out here, so that a
// host (or a test) can watch and fail allocations in one place. Blocks from UtAllocMemoryBlock are
// released with UtFreeMemory; blocks from UtCcalloc with UtCfree. Neither pair may be mixed with
// malloc/free of the caller's runtime (on Windows the runtimes differ per module).
#pragma once

#include <cstddef>
#include <cstdint>

#include "basert/export.h"

// Status codes of UtAllocMemoryBlock. Non-zero codes are negative and below every status the
// library's definition functions use (-1 .. -5), so a caller may pass them on unchanged.
constexpr int kUtMemOk = 0;
constexpr int kUtMemNoMemory = -100;   // the allocator refused (or a test made it refuse)
constexpr int kUtMemBadArgument = -101;  // null block pointer, zero element size or size overflow

// Makes *block a block of count elements of elemSize bytes each. A null *block is created; an
// existing one is grown or shrunk in place or moved, keeping min(old, new) bytes of content. New
// bytes are not initialised. count 0 frees the block and sets *block to null.
// Returns kUtMemOk, or a non-zero status and leaves *block and its content as they were.
[[nodiscard]] BASERT_API int UtAllocMemoryBlock(void** block, uint64_t count, uint64_t elemSize);

// Typed convenience over UtAllocMemoryBlock: the element size is sizeof(T).
template <typename T>
[[nodiscard]] inline int UtAllocMemoryBlockT(T** block, uint64_t count) {
    void* p = *block;
    const int rc = UtAllocMemoryBlock(&p, count, sizeof(T));
    if (rc == kUtMemOk) *block = static_cast<T*>(p);
    return rc;
}

// Releases a block of UtAllocMemoryBlock (or a text handed out by the library). Null is ignored.
BASERT_API void UtFreeMemory(void* block);

// calloc: count zeroed elements of size bytes, or null when refused or when count * size overflows.
[[nodiscard]] BASERT_API void* UtCcalloc(size_t count, size_t size);
// Releases a block of UtCcalloc. Null is ignored.
BASERT_API void UtCfree(void* block);

// Failure injection for tests: the n-th allocation request from now on (UtAllocMemoryBlock with
// count > 0, or UtCcalloc) is refused, and only that one; n <= 0 switches injection off.
BASERT_API void UtMemFailNth(int64_t n);
// Failure injection for tests: every allocation request from the n-th on is refused (n <= 0: off).
BASERT_API void UtMemFailFrom(int64_t n);
// Number of allocation requests seen since the process started (refused ones included).
BASERT_API uint64_t UtMemRequestCount();
