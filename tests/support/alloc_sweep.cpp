#include "alloc_sweep.h"

#include <cstdlib>
#include <new>

#include "basert/memory.h"

#if KBASE_TEST_ICU_HEAP
#include <unicode/uclean.h>
#endif

extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace {

// The window that is armed now, if any. Tests run on one thread; the counters are plain.
struct Window {
    bool armed = false;
    uint64_t target = 0;     // the allocation that fails, in the run's sequence
    uint64_t before = 0;     // allocations of the run before this window
    uint64_t news = 0;       // operator new calls in this window
    uint64_t blockBase = 0;  // the runtime's request count when the window opened
    bool failed = false;
};
Window g_window;

uint64_t Blocks() {
    return UtMemRequestCount() - g_window.blockBase;
}

// Counts one allocation (operator new, or ICU's heap); true when it must fail. Before the target the runtime is armed to
// refuse its request that would be the target, so whichever kind comes there fails.
bool Refuse() {
    if (!g_window.armed) return false;
    const uint64_t index = g_window.before + ++g_window.news + Blocks();
    if (g_window.failed || index > g_window.target) return false;
    if (index == g_window.target) {
        g_window.failed = true;
        UtMemFailNth(0);
        return true;
    }
    UtMemFailNth(static_cast<int64_t>(g_window.target - index));
    return false;
}

void* Allocate(std::size_t size, std::size_t align, bool nothrow) {
    if (Refuse()) {
        if (nothrow) return nullptr;
        throw std::bad_alloc();
    }
    if (size == 0) size = 1;
    void* p = nullptr;
    if (align <= alignof(std::max_align_t)) {
        p = std::malloc(size);
    } else if (posix_memalign(&p, align, size) != 0) {
        p = nullptr;
    }
    if (p == nullptr && !nothrow) throw std::bad_alloc();
    return p;
}

#if KBASE_TEST_ICU_HEAP
// ICU takes its heap from functions a program may set (its converters, normalisers and caches
// allocate there); routed here, its allocations join the sequence. Memory ICU took before this
// is set came from malloc, which std::free also releases.
void* IcuAlloc(const void*, std::size_t size) {
    return Refuse() ? nullptr : std::malloc(size);
}
void* IcuRealloc(const void*, void* p, std::size_t size) {
    return Refuse() ? nullptr : std::realloc(p, size);
}
void IcuFree(const void*, void* p) {
    std::free(p);
}
[[maybe_unused]] const bool g_icuRouted = [] {
    UErrorCode err = U_ZERO_ERROR;
    u_setMemoryFunctions(nullptr, IcuAlloc, IcuRealloc, IcuFree, &err);
    return U_SUCCESS(err);
}();
#endif

}  // namespace

namespace kbase_test {

bool SweepPoint::Failed() const {
    return g_window.failed;
}

SweepPoint::Armed::Armed(SweepPoint& point) : point_(point) {
    g_window.armed = true;
    g_window.target = point.n_;
    g_window.before = point.seen_;
    g_window.news = 0;
    g_window.blockBase = UtMemRequestCount();
    if (!g_window.failed && point.seen_ < point.n_)
        UtMemFailNth(static_cast<int64_t>(point.n_ - point.seen_));
}

SweepPoint::Armed::~Armed() {
    UtMemFailNth(0);
    point_.seen_ = g_window.before + g_window.news + Blocks();
    if (point_.seen_ >= point_.n_) g_window.failed = true;  // the runtime refused the target
    g_window.armed = false;
}

uint64_t SweepAllocations(const std::function<void(SweepPoint&)>& scenario, uint64_t limit) {
    uint64_t points = 0;
    for (uint64_t n = 1; n <= limit; ++n) {
        g_window = Window{};
        SweepPoint point(n);
        scenario(point);
        if (!point.Failed()) break;
        ++points;
    }
    g_window = Window{};
    return points;
}

bool LeaksFound() {
    return __lsan_do_recoverable_leak_check != nullptr && __lsan_do_recoverable_leak_check() != 0;
}

}  // namespace kbase_test

// The program's allocation functions: every form goes through Allocate, every release to free.
void* operator new(std::size_t size) {
    return Allocate(size, 0, false);
}
void* operator new[](std::size_t size) {
    return Allocate(size, 0, false);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size, 0, true);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size, 0, true);
}
void* operator new(std::size_t size, std::align_val_t a) {
    return Allocate(size, static_cast<std::size_t>(a), false);
}
void* operator new[](std::size_t size, std::align_val_t a) {
    return Allocate(size, static_cast<std::size_t>(a), false);
}
void* operator new(std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
    return Allocate(size, static_cast<std::size_t>(a), true);
}
void* operator new[](std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
    return Allocate(size, static_cast<std::size_t>(a), true);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(p);
}
