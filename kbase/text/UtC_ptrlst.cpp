#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "basert/diag.h"
#include "kbase/text/UtCPtrList.h"

namespace {

// The report of an invalid index names this module, line and function.
constexpr const char* kModule = "UtC_ptrlst";
constexpr int kLineItemInvalid = 619;
constexpr int kReportLevel = 2;

// Byte sizes of the blocks the list grows along: 2^k - 16 for k = 6..26.
constexpr int kBlockCount = 21;
constexpr uint32_t BlockSize(int i) {
    return (uint32_t{1} << (i + 6)) - 16u;
}
constexpr uint32_t kLargestBlock = BlockSize(kBlockCount - 1);
static_assert(BlockSize(0) == 48 && kLargestBlock == 67108848u);

// The slot handed out for an invalid index.
void* g_dummySlot = nullptr;

void** NewSlots(long n) {
    return new (std::nothrow) void*[static_cast<size_t>(n)];
}

// A stable sort that stays inside a[0..n) whatever less answers. std::stable_sort may read past
// the front when less is not a consistent strict weak order, and callers' comparisons are not:
// the multi-number comparator is asymmetric on purpose, and a comparison that converts texts
// answers "greater" both ways when a conversion runs out of memory, so one pair may answer
// differently from call to call. Runs of kRun items are sorted by insertion, then merged
// bottom-up through a buffer; without memory for the buffer, insertion sorts everything.
template <typename Less>
void StableSortSlots(void** a, long n, Less less) {
    constexpr long kRun = 16;
    auto insertion = [&](long lo, long hi) {
        for (long i = lo + 1; i < hi; ++i) {
            void* v = a[i];
            long j = i;
            for (; j > lo && less(v, a[j - 1]); --j) a[j] = a[j - 1];
            a[j] = v;
        }
    };
    void** buffer = n > kRun ? NewSlots(n) : nullptr;
    if (buffer == nullptr) {
        insertion(0, n);
        return;
    }
    for (long lo = 0; lo < n; lo += kRun) insertion(lo, std::min(lo + kRun, n));
    for (long width = kRun; width < n; width *= 2) {
        for (long lo = 0; lo + width < n; lo += 2 * width) {
            const long mid = lo + width;
            const long hi = std::min(lo + 2 * width, n);
            long i = lo, j = mid, k = 0;
            // The right item goes first only when it is less: equal items keep their order.
            while (i < mid && j < hi) buffer[k++] = less(a[j], a[i]) ? a[j++] : a[i++];
            while (i < mid) buffer[k++] = a[i++];
            while (j < hi) buffer[k++] = a[j++];
            std::memcpy(a + lo, buffer, static_cast<size_t>(k) * sizeof(void*));
        }
    }
    delete[] buffer;
}

}  // namespace

UtCPtrListComparer::~UtCPtrListComparer() = default;

long UtCPtrListBestNewSize(long count, unsigned int elementSize) {
    if (elementSize == 0) return count;
    // The product is taken in 32 bits on purpose: that is the table's domain.
    const uint32_t bytes = static_cast<uint32_t>(count) * elementSize;
    for (int i = 0; i < kBlockCount; ++i) {
        if (bytes < BlockSize(i)) return static_cast<long>(BlockSize(i) / elementSize);
    }
    return count + static_cast<long>(kLargestBlock / elementSize);
}

void UtCPtrListRangeError(long index) {
    std::fprintf(stderr, "internal error: list index %d out of range\n", static_cast<int>(index));
    std::fflush(stderr);
    std::abort();
}

UtCPtrList::UtCPtrList(long size)
    : slots_(nullptr), capacity_(0), count_(0), gap_(0), back_(nullptr) {
    if (size < 1) return;
    const long capacity = UtCPtrListBestNewSize(size, sizeof(void*));
    if (capacity > INT32_MAX) return;
    slots_ = NewSlots(capacity);
    if (slots_ != nullptr) capacity_ = static_cast<int32_t>(capacity);
    SyncBack();
}

UtCPtrList::UtCPtrList(const UtCPtrList& other)
    : slots_(nullptr), capacity_(0), count_(0), gap_(0), back_(nullptr) {
    *this = other;
}

UtCPtrList& UtCPtrList::operator=(const UtCPtrList& other) {
    if (this == &other) return *this;
    void** copy = nullptr;
    if (other.capacity_ > 0) {
        copy = NewSlots(other.capacity_);
        if (copy == nullptr) return *this;
        // The whole array, free slots included: the copy keeps the layout and so the gap.
        std::memcpy(copy, other.slots_, sizeof(void*) * static_cast<size_t>(other.capacity_));
    }
    delete[] slots_;
    slots_ = copy;
    capacity_ = other.capacity_;
    count_ = other.count_;
    gap_ = other.gap_;
    SyncBack();
    return *this;
}

UtCPtrList::~UtCPtrList() {
    delete[] slots_;
}

void*& UtCPtrList::itemInvalid_(long i) const {
    char message[96];
    std::snprintf(message, sizeof message, "invalid index=%ld count=%ld", i,
                  static_cast<long>(count_));
    DebugAssert(kModule, kLineItemInvalid, "UtCPtrList::itemInvalid_", kReportLevel, message,
                "index < count");
    g_dummySlot = nullptr;
    return g_dummySlot;
}

void UtCPtrList::MoveGap(long to) {
    const long free = capacity_ - count_;
    if (to < gap_) {
        // Items to..gap-1 join the back part.
        std::memmove(slots_ + to + free, slots_ + to,
                     sizeof(void*) * static_cast<size_t>(gap_ - to));
    } else if (to > gap_) {
        // Items gap..to-1 join the front part.
        std::memmove(slots_ + gap_, slots_ + gap_ + free,
                     sizeof(void*) * static_cast<size_t>(to - gap_));
    }
    gap_ = static_cast<int32_t>(to);
}

bool UtCPtrList::Grow(long index) {
    const long capacity = UtCPtrListBestNewSize(static_cast<long>(capacity_) + 1, sizeof(void*));
    void** grown = capacity <= INT32_MAX ? NewSlots(capacity) : nullptr;
    if (grown == nullptr) {
        std::fprintf(stderr, "no memory for realloc in UtCPtrList::Insert\n");
        std::fprintf(stderr, "Insert at index %d not possible.\n", static_cast<int>(index));
        std::fflush(stderr);
        return false;
    }
    // Front part to the start, back part to the end: the gap stays where it was.
    const long back = count_ - gap_;
    if (gap_ > 0) std::memcpy(grown, slots_, sizeof(void*) * static_cast<size_t>(gap_));
    if (back > 0) {
        std::memcpy(grown + capacity - back, slots_ + capacity_ - back,
                    sizeof(void*) * static_cast<size_t>(back));
    }
    delete[] slots_;
    slots_ = grown;
    capacity_ = static_cast<int32_t>(capacity);
    SyncBack();
    return true;
}

void UtCPtrList::Insert(long i, void* p) {
    if (count_ == capacity_ && !Grow(i)) return;
    // The index is checked only after growing; a list may grow for an insert that is ignored.
    if (i < 0 || i > count_) return;
    MoveGap(i);
    slots_[i] = p;
    ++count_;
    ++gap_;
    --back_;
}

void UtCPtrList::Remove(long i) {
    if (static_cast<unsigned long>(i) >= static_cast<unsigned long>(count_)) return;
    // With the gap behind item i, dropping the item is moving the gap back over it.
    MoveGap(i + 1);
    --count_;
    ++back_;
    gap_ = static_cast<int32_t>(i);
}

long UtCPtrList::Add(void* p) {
    if (p == nullptr) return -1;
    for (long i = 0; i < count_; ++i) {
        void*& slot = slots_[Slot(i)];
        if (slot == nullptr) {
            slot = p;
            return i;
        }
    }
    const long index = count_;
    Insert(index, p);
    return count_ > index ? index : -1;
}

long UtCPtrList::AddUnique(void* p) {
    if (p == nullptr) return -1;
    const long found = IndexOf(p);
    return found >= 0 ? found : Add(p);
}

long UtCPtrList::IndexOf(const void* p) const {
    for (long i = 0; i < gap_; ++i) {
        if (slots_[i] == p) return i;
    }
    const long free = capacity_ - count_;
    for (long i = gap_; i < count_; ++i) {
        if (slots_[i + free] == p) return i;
    }
    return -1;
}

void UtCPtrList::Compress() {
    if (gap_ != count_) MoveGap(count_);
}

void** UtCPtrList::array(long start, long n) {
    if (start < 0 || n < 0 || start > count_ || n > count_ - start || slots_ == nullptr)
        return nullptr;
    if (start + n <= gap_) return slots_ + start;
    if (start < gap_) {
        MoveGap(start + n);  // the range straddles the gap: close it over the range
        return slots_ + start;
    }
    return slots_ + start + (capacity_ - count_);
}

void UtCPtrList::Sort(UtCPtrListCompareFunc compare) {
    if (compare == nullptr || count_ < 2) return;
    Compress();
    StableSortSlots(slots_, count_,
                    [compare](const void* a, const void* b) { return compare(a, b) < 0; });
}

void UtCPtrList::Sort(const UtCPtrListComparer& comparer) {
    if (count_ < 2) return;
    Compress();
    StableSortSlots(slots_, count_, [&comparer](const void* a, const void* b) {
        return comparer.Compare(a, b) < 0;
    });
}

// The first index whose item is not less than key, by less(item, key).
template <typename Less>
long UtCPtrList::LowerBound(const void* key, Less less) const {
    long lo = 0;
    long hi = count_;
    while (lo < hi) {
        const long mid = lo + (hi - lo) / 2;
        if (less(slots_[Slot(mid)], key)) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    return lo;
}

long UtCPtrList::bSearch(const void* key, UtCPtrListCompareFunc compare) const {
    if (compare == nullptr) return -1;
    const long i = LowerBound(
        key, [compare](const void* item, const void* k) { return compare(k, item) > 0; });
    return i < count_ && compare(key, slots_[Slot(i)]) == 0 ? i : -1;
}

long UtCPtrList::bSearch(const void* key, const UtCPtrListComparer& comparer) const {
    const long i = LowerBound(key, [&comparer](const void* item, const void* k) {
        return comparer.Compare(k, item) > 0;
    });
    return i < count_ && comparer.Compare(key, slots_[Slot(i)]) == 0 ? i : -1;
}

void UtCPtrList::Turn() {
    if (count_ < 2) return;
    Compress();
    std::reverse(slots_, slots_ + count_);
}

void UtCPtrList::Swap(long i, long j) {
    if (static_cast<unsigned long>(i) >= static_cast<unsigned long>(count_) ||
        static_cast<unsigned long>(j) >= static_cast<unsigned long>(count_)) {
        return;
    }
    std::swap(slots_[Slot(i)], slots_[Slot(j)]);
}

void UtCPtrList::AppendList(const UtCPtrList& other) {
    // Counted first: appending a list to itself doubles it once.
    const long n = other.count_;
    for (long i = 0; i < n; ++i) {
        const long before = count_;
        Append(other.slots_[other.Slot(i)]);
        if (count_ == before) return;  // could not grow; reported by Insert
    }
}

void UtCPtrList::SwapList(UtCPtrList& other) {
    std::swap(slots_, other.slots_);
    std::swap(capacity_, other.capacity_);
    std::swap(count_, other.count_);
    std::swap(gap_, other.gap_);
    std::swap(back_, other.back_);
}
