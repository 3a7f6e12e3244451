// UtBitList: a growable list of bits packed into 32-bit words (bit i is bit i mod 32 of word i/32).
//
// Words come from UtAllocMemoryBlock; operations that allocate return its status (kUtMemOk, or the
// failure, with the list unchanged). bit() and the bit setters check only that the word exists,
// not the bit count, so bits past count() can be read and written within the allocated words.
//
// Kept on purpose: Append writes the new bit at position (count mod 32) of the LAST word. When
// the append needed a new word, which happens whenever count() was 31, 63, 95, ..., that is the new
// word, one word past the one bit() reads for that index. So after 32 appends to an empty list,
// bit(31) does not return the 32nd appended value; bit(63) does (until something is written
// there). Files and callers depend on this placement; do not "fix" it.
//
// Wire form (XdrEnStream << / XdrDeStream >>): the bit count, the word count, then every word,
// each an XDR unsigned int. The words travel as they are, so a list reads back exactly, bits past
// count() included.
#pragma once

#include <cstdint>
#include <cstdio>

#include "kbase/export.h"

class XdrEnStream;
class XdrDeStream;

class KBASE_API UtBitList {
public:
    // count bits of value. count 0: no words; otherwise count / 32 + 1 words (one more than needed
    // when count is a multiple of 32), every word all ones for true, zero for false. All fields 0
    // when the words cannot be allocated.
    explicit UtBitList(unsigned long count = 0, bool value = false);
    // Same words and counts (empty when the allocation fails).
    UtBitList(const UtBitList& other);
    // Unchanged when the allocation fails.
    UtBitList& operator=(const UtBitList& other);
    // Word-wise or; grows to other's words (zero-filled) and to the larger bit count. Unchanged
    // when it cannot grow.
    UtBitList& operator|=(const UtBitList& other);
    ~UtBitList();

    unsigned long count() const { return bitCount_; }
    // The number of words allocated.
    unsigned long size() const { return wordCount_; }

    // Bit i mod 32 of word i / 32; false when that word does not exist.
    bool bit(unsigned long i) const {
        return i / 32 < wordCount_ && ((words_[i / 32] >> (i % 32)) & 1u) != 0;
    }
    bool operator[](unsigned long i) const { return bit(i); }
    // Set, clear or flip bit i; nothing when its word does not exist.
    void Set(unsigned long i);
    void Reset(unsigned long i);
    void Toggle(unsigned long i);
    // Writes bit i. With extend, a list shorter than i + 1 is first extended by appending false
    // bits; without, an index past the list is refused (kUtMemBadArgument).
    int SetBit(unsigned long i, bool value, bool extend);
    // Every bit of every word to one / to zero.
    void SetAll();
    void ClearAll();

    // Adds a bit at the end (placement: see the top of this file). One word is added when
    // (count + 1) / 32 + 1 exceeds the word count.
    int Append(bool value);
    int Prepend(bool value) { return Insert(0, value); }
    // Inserts before bit i: bits i.. move up by one. i == count() appends; i > count() is
    // refused (kUtMemBadArgument).
    int Insert(unsigned long i, bool value);
    // Removes bit i (bits above move down); an index past the list is ignored. Words stay.
    void Remove(unsigned long i);
    // Sets the count to 0; the words stay.
    void RemoveAll() { bitCount_ = 0; }

    // "UtBitList: <count> bits" and the bits as 0/1, 64 to a line.
    void Print(FILE* file) const;
    // Print(stderr).
    void debug() const;

private:
    friend KBASE_API XdrEnStream& operator<<(XdrEnStream& s, const UtBitList& bits);
    friend KBASE_API XdrDeStream& operator>>(XdrDeStream& s, UtBitList& bits);
    int AddWords(uint32_t n);
    void Swap(UtBitList& other);

    uint32_t* words_;
    uint32_t wordCount_;
    uint32_t bitCount_;
};

// Writes the list (see the wire form above); the stream's status is left to Xdr-level callers.
KBASE_API XdrEnStream& operator<<(XdrEnStream& s, const UtBitList& bits);
// Reads a list; on failure (truncated data, counts that contradict each other, no memory) the
// list is unchanged. Memory grows with the words actually read, never ahead of them.
KBASE_API XdrDeStream& operator>>(XdrDeStream& s, UtBitList& bits);

// Walks a bit list by index; the iterator designates a current bit (initially bit 0).
class KBASE_API UtBitListIter {
public:
    explicit UtBitListIter(UtBitList& list) : list_(&list), index_(0) {}

    // Whether the iterator designates a bit of the list.
    bool more() const { return index_ >= 0 && static_cast<uint64_t>(index_) < list_->count(); }
    // Whether it designates the last bit.
    bool last() const { return more() && static_cast<uint64_t>(index_) + 1 == list_->count(); }
    int64_t index() const { return index_; }
    bool cur() const { return more() && list_->bit(static_cast<unsigned long>(index_)); }
    // Moves to the following bit; returns more().
    bool next() {
        ++index_;
        return more();
    }
    // Moves to the next set bit after the current one; false (at the end) when there is none.
    bool nextSet() {
        while (next()) {
            if (list_->bit(static_cast<unsigned long>(index_))) return true;
        }
        return false;
    }
    UtBitListIter& operator++() {
        ++index_;
        return *this;
    }
    // Removes the current bit; the next step reaches the bit that followed it.
    void RemoveCur() {
        if (more()) list_->Remove(static_cast<unsigned long>(index_--));
    }

private:
    UtBitList* list_;
    int64_t index_;
};
