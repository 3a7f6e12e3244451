// Small-block pool behind UtAllocMemoryBlock / UtFreeMemory.
//
// Blocks of up to kSbMaxSize bytes come from 1 MiB chunks carved out of one reserved address
// range; each chunk serves one size class (a multiple of 16 bytes) and records free slots in a
// bitmap in its header. Allocation takes the lowest free slot of the thread's current chunk, so a
// table that is freed and rebuilt lies in address order again. A free touches only the chunk
// header, never the block.
//
// Threads: a chunk belongs to the thread (heap) that carved or adopted it; only that thread reads
// or writes its bitmap. Other threads hand a freed block back through the chunk's lock-free remote
// list, which the owner folds into its bitmap when it runs short. A thread that ends gives its
// empty chunks back to the range and leaves the others abandoned for the next thread that needs a
// chunk of that class.
//
// Not installed: the entry points are exported only so that the tests can look inside.
#pragma once

#include <cstddef>

#include "basert/export.h"

inline constexpr size_t kSbMaxSize = 128;

// True when the pool serves requests. Decided once per process: KBASE_SMALL_BLOCKS=0 sends every
// request to malloc, =1 turns the pool on; unset means on, except under AddressSanitizer, where
// malloc's quarantine and leak checks are worth more than exercising the pool.
BASERT_API bool SbEnabled();

// A block of size bytes (1 .. kSbMaxSize), 16-byte aligned, or null when the pool cannot serve it
// (disabled, range exhausted, the thread is ending); the caller then falls back to malloc.
BASERT_API void* SbAlloc(size_t size);

// True when p lies in the pool's range, i.e. was handed out by SbAlloc.
BASERT_API bool SbOwns(const void* p);

// Bytes of the pool block p that hold content: its class size (under AddressSanitizer, the size
// last asked for, since the bytes past it are poisoned).
BASERT_API size_t SbBlockSize(const void* p);

// Resizes the pool block p in place when size (1 .. kSbMaxSize) falls into p's class; otherwise
// returns false and leaves p alone.
BASERT_API bool SbResizeInPlace(void* p, size_t size);

// Releases the pool block p, from any thread.
BASERT_API void SbFree(void* p);

// Counters for tests: chunks taken from the range and not given back, and chunks of ended threads
// that wait for a thread to adopt them.
struct SbStats {
    size_t chunksInUse;
    size_t chunksAbandoned;
};
BASERT_API SbStats SbGetStats();

// The same entry points without export, for memory.cpp (no PLT hop on the hot path).
namespace basert_sb {
bool Enabled();
void* Alloc(size_t size);
bool Owns(const void* p);
size_t UsableSize(const void* p);
bool ResizeInPlace(void* p, size_t size);
void Free(void* p);
SbStats Stats();
}  // namespace basert_sb
