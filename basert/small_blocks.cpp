#include "basert/internal/small_blocks.h"

#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "basert/diag.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/mman.h>
#endif

#if defined(__SANITIZE_ADDRESS__)
#define KBASE_SB_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KBASE_SB_ASAN 1
#endif
#endif

#ifdef KBASE_SB_ASAN
#include <sanitizer/asan_interface.h>
#define SB_POISON(p, n) ASAN_POISON_MEMORY_REGION((p), (n))
#define SB_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION((p), (n))
#else
#define SB_POISON(p, n) ((void)(p), (void)(n))
#define SB_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace basert_sb {
namespace {

constexpr size_t kChunkShift = 20;
constexpr size_t kChunkSize = size_t{1} << kChunkShift;
constexpr size_t kGranule = 16;
constexpr int kClasses = static_cast<int>(kSbMaxSize / kGranule);
constexpr size_t kBitmapWords = kChunkSize / kGranule / 64;
// Free chunks kept committed for reuse; beyond this a released chunk gives its pages back.
constexpr size_t kRetainedChunks = 64;

struct Heap;

enum class Place : uint8_t { kCurrent, kAvailable, kFull, kAbandoned, kFree };

// Header at the start of every chunk in use. Fields above `remote` belong to the owning heap (or,
// while the chunk is abandoned or free, to whoever holds g_lock); `remote` is shared.
// Invariants while owned:
//   * bit i of bits is set exactly when slot i is free and not on the remote list;
//   * used = slotCount - (set bits) = blocks handed out and not yet folded back;
//   * no set bit lies in a word below cursor;
//   * place kCurrent: the heap's current chunk of the class; kAvailable: in the heap's list,
//     used < slotCount; kFull: in the heap's list, used == slotCount (remote frees may be pending).
struct alignas(64) ChunkHeader {
    std::atomic<Heap*> owner;  // null while abandoned or free
    uint32_t slotSize;
    uint32_t slotCount;
    uint32_t recip;   // ceil(2^32 / slotSize): slot index = offset * recip >> 32, exact below 2^20
    uint32_t used;
    uint32_t cursor;  // word index
    uint32_t wordCount;
    int cls;
    Place place;
    ChunkHeader* prev;
    ChunkHeader* next;
    alignas(64) std::atomic<void*> remote;  // blocks freed by other threads, linked through them
    alignas(64) uint64_t bits[kBitmapWords];
};

constexpr size_t kDataOffset = (sizeof(ChunkHeader) + 63) & ~size_t{63};
static_assert(kDataOffset % kGranule == 0);

// Intrusive list of chunks (prev/next in the headers).
struct ChunkList {
    ChunkHeader* head = nullptr;
    size_t count = 0;
    void Push(ChunkHeader* c) {
        c->prev = nullptr;
        c->next = head;
        if (head != nullptr) head->prev = c;
        head = c;
        ++count;
    }
    void Remove(ChunkHeader* c) {
        if (c->prev != nullptr) c->prev->next = c->next;
        else head = c->next;
        if (c->next != nullptr) c->next->prev = c->prev;
        c->prev = c->next = nullptr;
        --count;
    }
    ChunkHeader* Pop() {
        ChunkHeader* c = head;
        if (c != nullptr) Remove(c);
        return c;
    }
};

struct ClassState {
    ChunkHeader* current = nullptr;
    ChunkList available;
    ChunkList full;
};

// Per-thread allocation state. Heaps are never freed: a thread that ends returns its heap to a
// pool for the next thread, so a stale owner pointer read by a remote free always points at a heap.
struct Heap {
    ClassState classes[kClasses];
    // Set by other threads after they pushed onto a remote list of one of our full chunks.
    std::atomic<bool> remotePending[kClasses];
    Heap* nextFree = nullptr;
};

// ---- the reserved range -------------------------------------------------------------------------

std::atomic<uintptr_t> g_base{0};
std::atomic<uintptr_t> g_size{0};  // 0 until reserved: SbOwns is false for every pointer

std::mutex g_lock;  // guards everything below
size_t g_chunkCount = 0;
size_t g_highWater = 0;      // chunks [0, g_highWater) have been taken at least once
uint64_t* g_freeChunks = nullptr;   // bit set: chunk below g_highWater is free
uint64_t* g_committed = nullptr;    // bit set: chunk's pages are committed
size_t g_freeCommitted = 0;
size_t g_inUse = 0;
ChunkList g_abandoned[kClasses];
Heap* g_freeHeaps = nullptr;

char* Base() { return reinterpret_cast<char*>(g_base.load(std::memory_order_relaxed)); }

#ifdef _WIN32
void* Reserve(size_t size) { return VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS); }
bool Commit(void* p) { return VirtualAlloc(p, kChunkSize, MEM_COMMIT, PAGE_READWRITE) != nullptr; }
void Decommit(void* p) { VirtualFree(p, kChunkSize, MEM_DECOMMIT); }
void* AllocPages(size_t size) { return VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE); }
#else
void* Reserve(size_t size) {
    void* p = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return p == MAP_FAILED ? nullptr : p;
}
bool Commit(void* p) { return mprotect(p, kChunkSize, PROT_READ | PROT_WRITE) == 0; }
// Replacing the pages drops them and their commit charge; the range stays reserved.
void Decommit(void* p) {
    mmap(p, kChunkSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0);
}
void* AllocPages(size_t size) {
    void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : p;
}
#endif

// Reserves the range once: as large as the system allows, from 64 GiB down to 256 MiB, aligned to
// the chunk size so that a block's chunk is found by masking its address.
void ReserveRange() {
    for (size_t size = size_t{64} << 30; size >= (size_t{256} << 20); size /= 2) {
        void* raw = Reserve(size + kChunkSize);
        if (raw == nullptr) continue;
        const size_t chunks = size / kChunkSize;
        const size_t words = (chunks + 63) / 64;
        void* maps = AllocPages(2 * words * sizeof(uint64_t));
        if (maps == nullptr) return;  // range stays unreserved: the pool is off
        g_freeChunks = static_cast<uint64_t*>(maps);
        g_committed = g_freeChunks + words;
        g_chunkCount = chunks;
        const uintptr_t aligned = (reinterpret_cast<uintptr_t>(raw) + kChunkSize - 1) & ~(kChunkSize - 1);
        // Base before size: a reader that sees the size sees the base (Owns loads in that order).
        g_base.store(aligned, std::memory_order_relaxed);
        g_size.store(size, std::memory_order_release);
        return;
    }
}

// Lowest free chunk, or a fresh one at the high-water mark; null when the range is exhausted or
// the system refuses to commit. g_lock held.
char* TakeChunkLocked() {
    const size_t words = (g_highWater + 63) / 64;
    for (size_t w = 0; w < words; ++w) {
        if (g_freeChunks[w] == 0) continue;
        const size_t i = w * 64 + static_cast<size_t>(std::countr_zero(g_freeChunks[w]));
        char* c = Base() + i * kChunkSize;
        const uint64_t bit = uint64_t{1} << (i % 64);
        if ((g_committed[w] & bit) == 0) {
            if (!Commit(c)) return nullptr;
            g_committed[w] |= bit;
        } else {
            --g_freeCommitted;
        }
        g_freeChunks[w] &= ~bit;
        ++g_inUse;
        return c;
    }
    if (g_highWater == g_chunkCount) return nullptr;
    char* c = Base() + g_highWater * kChunkSize;
    if (!Commit(c)) return nullptr;
    g_committed[g_highWater / 64] |= uint64_t{1} << (g_highWater % 64);
    ++g_highWater;
    ++g_inUse;
    return c;
}

// Returns an empty chunk to the range. g_lock held.
void ReleaseChunkLocked(ChunkHeader* c) {
    const size_t i = static_cast<size_t>(reinterpret_cast<char*>(c) - Base()) / kChunkSize;
    const uint64_t bit = uint64_t{1} << (i % 64);
    c->owner.store(nullptr, std::memory_order_relaxed);
    c->place = Place::kFree;
    if (g_freeCommitted >= kRetainedChunks) {
#ifdef KBASE_SB_ASAN
        SB_UNPOISON(c, kChunkSize);  // the shadow must not outlive the pages
#endif
        Decommit(c);
        g_committed[i / 64] &= ~bit;
    } else {
        ++g_freeCommitted;
    }
    g_freeChunks[i / 64] |= bit;
    --g_inUse;
}

ChunkHeader* InitChunk(char* raw, int cls, Heap* owner) {
    ChunkHeader* c = new (raw) ChunkHeader;
    const uint32_t size = static_cast<uint32_t>((cls + 1) * kGranule);
    const uint32_t slots = static_cast<uint32_t>((kChunkSize - kDataOffset) / size);
    c->owner.store(owner, std::memory_order_relaxed);
    c->slotSize = size;
    c->slotCount = slots;
    c->recip = static_cast<uint32_t>(((uint64_t{1} << 32) + size - 1) / size);
    c->used = 0;
    c->cursor = 0;
    c->wordCount = (slots + 63) / 64;
    c->cls = cls;
    c->place = Place::kCurrent;
    c->prev = c->next = nullptr;
    c->remote.store(nullptr, std::memory_order_relaxed);
    std::memset(c->bits, 0xff, sizeof(uint64_t) * (slots / 64));
    if (slots % 64 != 0) c->bits[slots / 64] = (uint64_t{1} << (slots % 64)) - 1;
    SB_POISON(raw + kDataOffset, kChunkSize - kDataOffset);
    return c;
}

// ---- per-thread heap ------------------------------------------------------------------------------

// Read on every allocation and free: initial-exec avoids a __tls_get_addr call per access.
#if defined(__GNUC__) && !defined(_WIN32)
#define SB_TLS_FAST __attribute__((tls_model("initial-exec")))
#else
#define SB_TLS_FAST
#endif
SB_TLS_FAST thread_local Heap* t_heap = nullptr;
SB_TLS_FAST thread_local bool t_ended = false;

void AbandonHeap(Heap* h);

#ifdef _WIN32
// A MinGW DLL may free its thread-local variables before it runs their destructors, so there the
// heap is handed over by a fiber-local-storage callback, which Windows calls early in a thread's
// end, while the thread-local variables are still there.
DWORD g_flsIndex = FLS_OUT_OF_INDEXES;
void WINAPI ReapHeap(void* heap) {
    if (heap == nullptr) return;
    AbandonHeap(static_cast<Heap*>(heap));
    t_heap = nullptr;
    t_ended = true;
}
void ArmReaper(Heap* h) {
    static std::once_flag once;
    std::call_once(once, [] { g_flsIndex = FlsAlloc(ReapHeap); });
    if (g_flsIndex != FLS_OUT_OF_INDEXES) FlsSetValue(g_flsIndex, h);
}
#else
// Its destructor runs when the thread ends and hands the heap over.
struct HeapReaper {
    bool armed = false;
    ~HeapReaper() {
        if (t_heap != nullptr) AbandonHeap(t_heap);
        t_heap = nullptr;
        t_ended = true;
    }
};
thread_local HeapReaper t_reaper;
void ArmReaper(Heap*) { t_reaper.armed = true; }  // first use registers the destructor
#endif

std::atomic<int> g_mode{-1};  // -1 undecided, 0 off, 1 on

bool DecideEnabled() {
    int mode = g_mode.load(std::memory_order_acquire);
    if (mode >= 0) return mode == 1;
    const char* env = std::getenv("KBASE_SMALL_BLOCKS");
#ifdef KBASE_SB_ASAN
    bool on = env != nullptr && env[0] == '1';
#else
    bool on = env == nullptr || env[0] != '0';
#endif
    if (on) {
        static std::once_flag once;
        std::call_once(once, ReserveRange);
        on = g_size.load(std::memory_order_acquire) != 0;
    }
    int expected = -1;
    g_mode.compare_exchange_strong(expected, on ? 1 : 0, std::memory_order_acq_rel);
    return g_mode.load(std::memory_order_acquire) == 1;
}

Heap* SlowHeap() {
    if (t_ended || !DecideEnabled()) return nullptr;
    Heap* h = nullptr;
    {
        std::lock_guard<std::mutex> lock(g_lock);
        h = g_freeHeaps;
        if (h != nullptr) g_freeHeaps = h->nextFree;
    }
    if (h == nullptr) {
        void* mem = std::malloc(sizeof(Heap));
        if (mem == nullptr) return nullptr;
        h = new (mem) Heap();
    }
    ArmReaper(h);
    t_heap = h;
    return h;
}

inline char* SlotAddress(ChunkHeader* c, size_t index) {
    return reinterpret_cast<char*>(c) + kDataOffset + index * c->slotSize;
}

inline uint32_t SlotIndex(const ChunkHeader* c, const void* p) {
    const uint64_t off = static_cast<uint64_t>(static_cast<const char*>(p) - reinterpret_cast<const char*>(c)) - kDataOffset;
    return static_cast<uint32_t>((off * c->recip) >> 32);
}

inline ChunkHeader* ChunkOf(const void* p) {
    return reinterpret_cast<ChunkHeader*>(reinterpret_cast<uintptr_t>(p) & ~(kChunkSize - 1));
}

void ReportBadFree(const char* what) {
    DebugAssert("small_blocks", 0, "UtFreeMemory", 1, what, "p");
}

// True when p starts a slot of c. Reads only fields fixed while c holds a live block, so any
// thread may ask before it touches the block.
inline bool IsSlotStart(ChunkHeader* c, const void* p) {
    const uint32_t i = SlotIndex(c, p);
    return i < c->slotCount && SlotAddress(c, i) == p;
}

// Puts the slot p back into its owner's bitmap (the caller owns c). A slot that is free already
// is reported and left alone.
inline bool SetFree(ChunkHeader* c, void* p) {
    const uint32_t i = SlotIndex(c, p);
    const uint32_t w = i / 64;
    const uint64_t bit = uint64_t{1} << (i % 64);
    if ((c->bits[w] & bit) != 0) {
        ReportBadFree("block freed twice");
        return false;
    }
    SB_POISON(p, c->slotSize);
    c->bits[w] |= bit;
    if (w < c->cursor) c->cursor = w;
    --c->used;
    return true;
}

// Moves c between the heap's lists after it gained free slots; releases it when empty.
void AfterFrees(Heap* h, ChunkHeader* c, bool wasFull) {
    ClassState& cs = h->classes[c->cls];
    if (c->place == Place::kCurrent) return;
    if (wasFull) {
        cs.full.Remove(c);
        c->place = Place::kAvailable;
        cs.available.Push(c);
    }
    if (c->used == 0) {
        cs.available.Remove(c);
        std::lock_guard<std::mutex> lock(g_lock);
        ReleaseChunkLocked(c);
    }
}

// Folds the remote list of c into its bitmap. Returns the number of blocks folded.
uint32_t FoldRemote(ChunkHeader* c) {
    void* p = c->remote.exchange(nullptr, std::memory_order_acquire);
    uint32_t n = 0;
    while (p != nullptr) {
        void* next = *static_cast<void**>(p);
        if (SetFree(c, p)) ++n;
        p = next;
    }
    return n;
}

// Gives the thread's chunks up: empty ones back to the range, the others to the abandoned lists.
void AbandonHeap(Heap* h) {
    // Folding may report a bad free to a handler that allocates, so it happens before the lock.
    for (ClassState& cs : h->classes) {
        if (cs.current != nullptr) FoldRemote(cs.current);
        for (ChunkHeader* c = cs.available.head; c != nullptr; c = c->next) FoldRemote(c);
        for (ChunkHeader* c = cs.full.head; c != nullptr; c = c->next) FoldRemote(c);
    }
    std::lock_guard<std::mutex> lock(g_lock);
    for (int cls = 0; cls < kClasses; ++cls) {
        ClassState& cs = h->classes[cls];
        // Blocks freed remotely from here on wait on the remote list for the adopter.
        auto give = [cls](ChunkHeader* c) {
            if (c->used == 0) {
                ReleaseChunkLocked(c);
            } else {
                c->owner.store(nullptr, std::memory_order_relaxed);
                c->place = Place::kAbandoned;
                g_abandoned[cls].Push(c);
            }
        };
        if (cs.current != nullptr) give(cs.current);
        cs.current = nullptr;
        while (ChunkHeader* c = cs.available.Pop()) give(c);
        while (ChunkHeader* c = cs.full.Pop()) give(c);
        h->remotePending[cls].store(false, std::memory_order_relaxed);
    }
    h->nextFree = g_freeHeaps;
    g_freeHeaps = h;
}

// Finds the next chunk with a free slot for class cls and makes it current. Order of preference:
// chunks of this heap with free slots, remote frees waiting in its full chunks, an abandoned
// chunk, the lowest free chunk of the range.
ChunkHeader* Refill(Heap* h, int cls) {
    ClassState& cs = h->classes[cls];
    if (ChunkHeader* c = cs.current) {
        FoldRemote(c);
        if (c->used < c->slotCount) return c;
        c->place = Place::kFull;
        cs.full.Push(c);
        cs.current = nullptr;
    }
    if (cs.available.head == nullptr && h->remotePending[cls].exchange(false, std::memory_order_acquire)) {
        for (ChunkHeader* c = cs.full.head; c != nullptr;) {
            ChunkHeader* next = c->next;
            if (FoldRemote(c) > 0) {
                cs.full.Remove(c);
                c->place = Place::kAvailable;
                cs.available.Push(c);
            }
            c = next;
        }
    }
    ChunkHeader* c = cs.available.Pop();
    while (c == nullptr) {
        {
            std::lock_guard<std::mutex> lock(g_lock);
            c = g_abandoned[cls].Pop();
        }
        if (c == nullptr) break;
        // Adopted: the lock ordered the previous owner's bitmap writes before ours.
        c->owner.store(h, std::memory_order_relaxed);
        FoldRemote(c);
        if (c->used < c->slotCount) break;
        c->place = Place::kFull;
        cs.full.Push(c);
        c = nullptr;
    }
    if (c == nullptr) {
        char* raw = nullptr;
        {
            std::lock_guard<std::mutex> lock(g_lock);
            raw = TakeChunkLocked();
        }
        if (raw == nullptr) return nullptr;
        c = InitChunk(raw, cls, h);
    }
    c->place = Place::kCurrent;
    cs.current = c;
    return c;
}

}  // namespace

void* Alloc(size_t size) {
    Heap* h = t_heap;
    if (h == nullptr) {
        h = SlowHeap();
        if (h == nullptr) return nullptr;
    }
    const int cls = static_cast<int>((size - 1) / kGranule);
    ChunkHeader* c = h->classes[cls].current;
    for (;;) {
        if (c != nullptr) {
            for (uint32_t w = c->cursor; w < c->wordCount; ++w) {
                const uint64_t word = c->bits[w];
                if (word == 0) continue;
                c->cursor = w;
                c->bits[w] = word & (word - 1);
                ++c->used;
                char* p = SlotAddress(c, w * 64 + static_cast<uint32_t>(std::countr_zero(word)));
                SB_UNPOISON(p, size);
                return p;
            }
            c->cursor = c->wordCount;
        }
        c = Refill(h, cls);
        if (c == nullptr) return nullptr;
    }
}

bool Owns(const void* p) {
    const uintptr_t size = g_size.load(std::memory_order_acquire);
    return reinterpret_cast<uintptr_t>(p) - g_base.load(std::memory_order_relaxed) < size;
}

size_t UsableSize(const void* p) {
    const size_t slot = ChunkOf(p)->slotSize;
#ifdef KBASE_SB_ASAN
    const void* poisoned = __asan_region_is_poisoned(const_cast<void*>(p), slot);
    if (poisoned != nullptr) return static_cast<size_t>(static_cast<const char*>(poisoned) - static_cast<const char*>(p));
#endif
    return slot;
}

bool ResizeInPlace(void* p, size_t size) {
    const size_t slot = ChunkOf(p)->slotSize;
    if (size > slot || size + kGranule <= slot) return false;
    SB_POISON(p, slot);
    SB_UNPOISON(p, size);
    return true;
}

void Free(void* p) {
    ChunkHeader* c = ChunkOf(p);
    if (!IsSlotStart(c, p)) {
        ReportBadFree("pointer is not a block of the pool");
        return;
    }
    Heap* h = t_heap;
    Heap* owner = c->owner.load(std::memory_order_relaxed);
    // Only this thread makes a chunk ours or not ours, so the comparison cannot be overtaken.
    if (h != nullptr && owner == h) {
        const bool wasFull = c->used == c->slotCount;
        if (SetFree(c, p)) AfterFrees(h, c, wasFull);
        return;
    }
    SB_POISON(p, c->slotSize);
    SB_UNPOISON(p, sizeof(void*));
    void* head = c->remote.load(std::memory_order_relaxed);
    do {
        *static_cast<void**>(p) = head;
    } while (!c->remote.compare_exchange_weak(head, p, std::memory_order_release, std::memory_order_relaxed));
    // A stale owner only costs that heap one needless look at its full chunks.
    if (owner != nullptr) owner->remotePending[c->cls].store(true, std::memory_order_release);
}

SbStats Stats() {
    std::lock_guard<std::mutex> lock(g_lock);
    size_t abandoned = 0;
    for (const ChunkList& l : g_abandoned) abandoned += l.count;
    return SbStats{g_inUse, abandoned};
}

bool Enabled() { return DecideEnabled(); }

}  // namespace basert_sb

bool SbEnabled() { return basert_sb::Enabled(); }
void* SbAlloc(size_t size) { return basert_sb::Alloc(size); }
bool SbOwns(const void* p) { return basert_sb::Owns(p); }
size_t SbBlockSize(const void* p) { return basert_sb::UsableSize(p); }
bool SbResizeInPlace(void* p, size_t size) { return basert_sb::ResizeInPlace(p, size); }
void SbFree(void* p) { basert_sb::Free(p); }
SbStats SbGetStats() { return basert_sb::Stats(); }
