// UtCPtrList: the ordered list of untyped pointers that typed lists are built on.
//
// It is a gap buffer: the free slots of its array lie between the front part and the back part
// of the list, at the place of the last insertion or removal, so a run of insertions or removals
// at one place shifts nothing; only moving to another place shifts the items in between.
// Invariant (capacity c, count n, gap g, 0 <= g <= n <= c): items 0..g-1 are in slots 0..g-1, item
// i with g <= i < n is in slot i + (c - n); slots g..g+c-n-1 are free. The list does not own the
// objects its pointers name.
//
// Capacity grows along a fixed table of block sizes (UtCPtrListBestNewSize); the array comes from
// the global operator new[] and is never shrunk. An index outside the list reads as null and is
// reported (see item); an impossible growth leaves the list unchanged and writes two lines to
// standard error. Not thread-safe: the slot handed out for an invalid index is process-wide.
#pragma once

#include <cstdint>

#include "kbase/export.h"

// Compares two items: < 0, 0 or > 0 as a orders before, with or after b.
using UtCPtrListCompareFunc = int (*)(const void* a, const void* b);

// The comparison object for Sort and bSearch.
class KBASE_API UtCPtrListComparer {
public:
    virtual ~UtCPtrListComparer();
    virtual int Compare(const void* a, const void* b) const = 0;
};

// The element count that fills the next block size: T / elementSize for the first table entry T
// (byte sizes 2^k - 16, k = 6..26) with count * elementSize < T, where the product is taken in 32
// unsigned bits; from the largest entry (67108848) on, count + 67108848 / elementSize.
// So for pointers (8 bytes): 5 -> 6, 6 -> 14, and from 8388606 on steps of 8388606.
KBASE_API long UtCPtrListBestNewSize(long count, unsigned int elementSize);

// Writes "internal error: list index <index> out of range" to standard error and aborts.
[[noreturn]] KBASE_API void UtCPtrListRangeError(long index);

class KBASE_API UtCPtrList {
public:
    // size < 1: empty, no array. Otherwise room for UtCPtrListBestNewSize(size, 8) items (all
    // fields 0 when that allocation fails).
    explicit UtCPtrList(long size = 0);
    // Same capacity and layout as other (empty when the allocation fails).
    UtCPtrList(const UtCPtrList& other);
    // Unchanged when the allocation fails.
    UtCPtrList& operator=(const UtCPtrList& other);
    virtual ~UtCPtrList();

    long count() const { return count_; }
    long capacity() const { return capacity_; }
    // The gap position: the index of the last insertion plus one, or of the last removal.
    long gap() const { return gap_; }

    // The slot of item i. An index outside 0..count-1 is reported ("invalid index=<i>
    // count=<count>", module UtC_ptrlst) and yields a process-wide dummy slot set to null, so that
    // reading gives null and writing is harmless.
    void*& item(long i) {
        if (static_cast<unsigned long>(i) < static_cast<unsigned long>(count_)) return slots_[Slot(i)];
        return itemInvalid_(i);
    }
    void* item(long i) const {
        if (static_cast<unsigned long>(i) < static_cast<unsigned long>(count_)) return slots_[Slot(i)];
        return itemInvalid_(i);
    }
    void*& operator[](long i) { return item(i); }
    void* operator[](long i) const { return item(i); }

    // Insert(count(), p). Inline while there is room and the gap is at the end.
    void Append(void* p) {
        if (count_ < capacity_ && gap_ == count_) {
            slots_[count_++] = p;
            ++gap_;
        } else {
            Insert(count_, p);
        }
    }
    UtCPtrList& operator+=(void* p) {
        Append(p);
        return *this;
    }
    void Prepend(void* p) { Insert(0, p); }
    // Inserts p before item i (0 <= i <= count). The list grows first when it is full, and only
    // then is the index checked: an index outside 0..count is ignored, growth or not.
    void Insert(long i, void* p);
    // Removes item i; an index outside the list is ignored.
    void Remove(long i);
    // Empties the list; the array stays.
    void RemoveAll() { count_ = gap_ = 0; }

    // Puts p into the first null item and returns its index, or appends it and returns the index
    // it got. A null p is refused with -1.
    long Add(void* p);
    // As Add, unless p is already in the list: then its index is returned and nothing changes.
    long AddUnique(void* p);
    // Index of the first item equal to p, or -1.
    long IndexOf(const void* p) const;
    bool Contains(const void* p) const { return IndexOf(p) >= 0; }

    // Closes the gap: afterwards items 0..count-1 are in slots 0..count-1 and gap() == count().
    void Compress();
    // n consecutive slots holding items start..start+n-1: the items up to start+n are moved into
    // the front part when the range straddles the gap. Null for a range outside the list.
    void** array(long start, long n);

    // Orders the items with compare(a, b) (stable: equal items keep their order). The list is
    // compressed first. Cost: O(n log n) comparisons.
    void Sort(UtCPtrListCompareFunc compare);
    void Sort(const UtCPtrListComparer& comparer);
    // On a list sorted by the same comparison: the index of the first item for which
    // compare(key, item) == 0, or -1.
    long bSearch(const void* key, UtCPtrListCompareFunc compare) const;
    long bSearch(const void* key, const UtCPtrListComparer& comparer) const;
    // Reverses the order of the items.
    void Turn();
    // Exchanges items i and j; ignored when either is outside the list.
    void Swap(long i, long j);
    // Appends the items of other (which may be this list).
    void AppendList(const UtCPtrList& other);
    // Exchanges the contents of the two lists.
    void SwapList(UtCPtrList& other);

protected:
    // Slot of item i (0 <= i < count).
    long Slot(long i) const { return i < gap_ ? i : i + (capacity_ - count_); }
    void*& itemInvalid_(long i) const;
    // Moves the gap to position to (0 <= to <= count).
    void MoveGap(long to);
    // Grows the array to UtCPtrListBestNewSize(capacity + 1, 8); false (and two lines on
    // standard error naming index) when that is impossible.
    bool Grow(long index);
    template <typename Less>
    long LowerBound(const void* key, Less less) const;

    void** slots_;
    int32_t capacity_;
    int32_t count_;
    int32_t gap_;
};

// Walks a list by index. The iterator designates a current item (initially item 0); cur() is null
// and curRef() the null dummy slot when it designates none.
class KBASE_API UtCPtrListIter {
public:
    explicit UtCPtrListIter(UtCPtrList& list) : list_(&list), index_(0) {}

    // Moves to item 0 / to the last item and returns it.
    void* first() {
        index_ = 0;
        return cur();
    }
    void* last() {
        index_ = list_->count() - 1;
        return cur();
    }
    // Whether the iterator designates an item.
    bool more() const { return index_ >= 0 && index_ < list_->count(); }
    // The opposite of more().
    bool end() const { return !more(); }
    // Moves to the following item and returns it.
    void* next() {
        ++index_;
        return cur();
    }
    UtCPtrListIter& operator++() {
        ++index_;
        return *this;
    }
    void* cur() const { return more() ? list_->item(index_) : nullptr; }
    void*& curRef() { return list_->item(more() ? index_ : list_->count()); }
    void reset() { index_ = 0; }
    void resetEnd() { index_ = list_->count() - 1; }
    // Removes the current item; the next step (next() or ++) reaches the item that followed it.
    void RemoveCur() {
        if (more()) list_->Remove(index_--);
    }
    // The index of the current item (the iterator's position counter).
    long refCounter() const { return index_; }

private:
    UtCPtrList* list_;
    long index_;
};
