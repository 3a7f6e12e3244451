// UtCStringList: an ordered list of owned strings with an owned comparator; and the comparators.
//
// The list keeps heap copies of the strings put into it (each copy keeps the source's encoding) in
// a UtCPtrList, and one comparator object that decides equality and order for Contains, Sort,
// SearchSorted and CompareTo. Copies of lists copy the strings and clone the comparator.
//
// Kept on purpose (callers rely on it):
//  - AddSorted orders by the ordinal UtCString::CompareTo, whereas SearchSorted and Sort use the
//    list's comparator: a list with a non-ordinal comparator must not mix the two;
//  - UtCStringMultiNumberComparator is asymmetric (see there).
// A bad index given to item() is reported and yields a shared empty string; nothing throws.
// Not thread-safe: that shared string is process-wide.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "kbase/export.h"
#include "kbase/text/UtCPtrList.h"
#include "kbase/text/UtCString.h"

// The comparison object of a string list. The virtual operations keep this slot order:
// ComparePtr, the destructor, Compare, IsEqual, Clone.
class KBASE_API UtCStringComparatorBase {
public:
    // 1 when either pointer is null, else Compare(*a, *b).
    virtual int ComparePtr(const UtCString* a, const UtCString* b) const;
    virtual ~UtCStringComparatorBase();
    // Negative, 0 or positive as a orders before, with or after b.
    virtual int Compare(const UtCString& a, const UtCString& b) const = 0;
    // True exactly when Compare returns 0.
    virtual bool IsEqual(const UtCString& a, const UtCString& b) const;
    // A new comparator of the same kind (the caller owns it).
    virtual UtCStringComparatorBase* Clone() const = 0;
};

// Ordinal order: UtCString::CompareTo.
class KBASE_API UtCStringComparator : public UtCStringComparatorBase {
public:
    int Compare(const UtCString& a, const UtCString& b) const override;
    UtCStringComparatorBase* Clone() const override;
};

// Order by the numbers inside the texts. A string's value is built from its number runs (maximal
// runs of decimal digits, ',' and '.'): value = value * 100000 + run, where a run that is not a
// number (say "1,5") adds 0; the value of the string with fewer runs is multiplied by 100000 once
// per missing run. Unequal non-zero values decide; otherwise UtCString::CompareTo decides.
// Kept on purpose, exactly:
//  - b's value is computed from the characters of a, over b's length: the value of b is the
//    value of the first length(b) characters of a (positions past a's end count as non-digits).
//    So Compare("a10", "a9") and Compare("a9", "a10") are both 1;
//  - only a string in an 8-bit code page has digits: every character of a UTF-8 or UTF-16
//    string is a non-digit (the encoding of a decides, for both values);
//  - the scan index is 16 bits wide: characters past index 65534 are not scanned.
class KBASE_API UtCStringMultiNumberComparator : public UtCStringComparatorBase {
public:
    int Compare(const UtCString& a, const UtCString& b) const override;
    UtCStringComparatorBase* Clone() const override;
};

class KBASE_API UtCStringList {
public:
    // An empty list with the ordinal comparator (UtCStringComparator). That comparator has no
    // state, so the lists that use it share one instance rather than each allocating its own.
    UtCStringList();
    // An empty list that adopts comparator (null: the list has none).
    explicit UtCStringList(UtCStringComparatorBase* comparator);
    // A one-element list / a list of the given strings, with a UtCStringComparator.
    explicit UtCStringList(const UtCString& s);
    UtCStringList(std::initializer_list<UtCString> strings);
    // Copies the strings and clones the comparator.
    UtCStringList(const UtCStringList& other);
    UtCStringList& operator=(const UtCStringList& other);
    // Takes the strings and the comparator; other is left empty and without a comparator.
    UtCStringList(UtCStringList&& other) noexcept;
    UtCStringList& operator=(UtCStringList&& other) noexcept;
    // Frees every string, then the comparator.
    virtual ~UtCStringList();

    // Adopts c and deletes the current comparator; a null c is ignored.
    void SetComparator(UtCStringComparatorBase* c);
    const UtCStringComparatorBase* GetComparator() const { return comparator_; }

    long count() const { return items_.count(); }
    bool IsEmpty() const { return items_.count() == 0; }
    bool IsAny() const { return items_.count() != 0; }

    // The string at i. An index outside the list is reported ("invalid index = <i>, count = <n>",
    // module UtC_string, level 2) and yields a shared string that is emptied on each such call.
    UtCString& item(long i) {
        if (static_cast<unsigned long>(i) < static_cast<unsigned long>(items_.count())) return *At(i);
        return ItemInvalid(i);
    }
    const UtCString& item(long i) const { return const_cast<UtCStringList*>(this)->item(i); }
    UtCString& operator[](long i) { return item(i); }
    const UtCString& operator[](long i) const { return item(i); }

    // The adding members store a copy of s. When memory runs out the list stays unchanged.
    UtCStringList& Add(const UtCString& s);
    // Inserts before position i (0..count; other positions are ignored).
    UtCStringList& Insert(long i, const UtCString& s);
    // Add(s) unless Contains(s).
    UtCStringList& AddUnique(const UtCString& s);
    UtCStringList& AddList(const UtCStringList& l);
    // Adds each string of l that the list does not contain yet, testing against the growing list.
    UtCStringList& AddListUnique(const UtCStringList& l);
    // Inserts before the first element e with e.CompareTo(s) >= 0 (ordinal, whatever the
    // comparator), or appends.
    UtCStringList& AddSorted(const UtCString& s);

    // False without a comparator; else whether an element is equal to s under it.
    bool Contains(const UtCString& s) const;
    // Index of the first element at or after start that is equal to s under comparator (null: the
    // list's comparator, and ordinal equality when the list has none either), or -1.
    long Search(const UtCString& s, long start = 0, const UtCStringComparatorBase* comparator = nullptr) const;
    // Removes the first element equal to s (comparator as for Search); returns whether one was.
    bool Remove(const UtCString& s, const UtCStringComparatorBase* comparator = nullptr);
    // Removes every element equal to s; returns how many were removed.
    long RemoveAll(const UtCString& s, const UtCStringComparatorBase* comparator = nullptr);
    // Binary search with the list's comparator over a list sorted by it: an index of an element
    // equal to s, or -1. Without a comparator it reports "invalid index" and returns -1.
    long SearchSorted(const UtCString& s) const;
    // Orders the strings with the list's comparator (stable); nothing without a comparator.
    void Sort();

    // Frees the string at i and closes the gap (an index outside the list is ignored).
    void Remove(long i);
    // Exchanges two elements (ignored for an index outside the list).
    void Swap(long i, long j);
    // Frees all strings; the comparator stays.
    void Clear();
    // UtCString::trim() / SetToLower() on every element.
    void Trim();
    void SetToLower();

    // out = elements from..to (inclusive; to < 0 or past the end: the last) joined by separator,
    // in out's encoding. An empty range gives the empty string.
    void Concatenate(const UtCString& separator, UtCString& out, long from = 0, long to = -1) const;
    UtCString Concatenate(const UtCString& separator) const;

    // Element-wise Compare with this list's comparator (ordinal without one); the first non-zero
    // result is returned as it is; otherwise the shorter list is smaller (-1, 0, 1).
    int CompareTo(const UtCStringList& l) const;
    bool operator==(const UtCStringList& l) const { return CompareTo(l) == 0; }
    bool operator!=(const UtCStringList& l) const { return CompareTo(l) != 0; }

    // Memory record: 16-bit version 1, 32-bit count (both little-endian), then each string's own
    // record (UtCString::SaveToMem). SaveToMem appends it at the end of *buffer (size bytes) and
    // advances size; false when memory runs out (the bytes already written stay).
    bool SaveToMem(unsigned char** buffer, uint64_t& size) const;
    // Replaces the list's strings by the record at offset and advances offset past it. The
    // unbounded form trusts the record. The bounded form refuses (false; list and offset
    // unchanged) a record that runs past blockSize, has another version, or holds a bad string.
    bool ReadFromMem(const unsigned char* data, uint64_t& offset);
    bool ReadFromMem(const unsigned char* data, uint64_t blockSize, uint64_t& offset);

private:
    static UtCStringComparatorBase* SharedOrdinal();
    static UtCStringComparatorBase* CloneComparator(const UtCStringComparatorBase* c);
    void DropComparator();  // deletes the comparator unless it is the shared one
    static UtCString* NewCopy(const UtCString& s);
    static void DeleteString(void* p);
    UtCString* At(long i) const { return static_cast<UtCString*>(items_.item(i)); }
    UtCString& ItemInvalid(long i);  // reports a bad index and hands out the shared empty string
    int Compare(const UtCString& a, const UtCString& b) const;
    long BinarySearch(const UtCString& key, long lo, long hi) const;
    bool ReadRecord(const unsigned char* data, uint64_t blockSize, bool bounded, uint64_t& offset);

    UtCPtrList items_;
    UtCStringComparatorBase* comparator_;
};
