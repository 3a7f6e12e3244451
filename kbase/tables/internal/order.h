// Ordering rows by their cells: cell views, ordinal comparison, a stable merge sort that stays
// safe with any comparison, and dense ranks of columns for sorting by integer keys.
// Not part of the exported interface.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "kbase/text/UtCString.h"

namespace kbase_tables_internal {

// The stored text of a cell: bytes (code pages; UTF-8 past its mark) or UTF-16 units. A missing
// cell is the empty text.
struct CellView {
    const UtCString* s = nullptr;
    const void* p = "";
    uint32_t n = 0;    // elements (bytes or units)
    uint16_t enc = 0;  // encoding; 1201 is folded into 1200, since both store the same units
};

CellView ViewOf(const UtCString* s);

// Ordinal comparison, -1, 0 or 1: unit by unit within one encoding (a shorter prefix is
// smaller), else UtCString::CompareTo (through UTF-16).
inline int CompareCells(const CellView& a, const CellView& b) {
    if (a.n == 0 || b.n == 0) return (a.n != 0) - (b.n != 0);
    if (a.enc != b.enc) return a.s->CompareTo(*b.s);
    int r = 0;
    if (a.enc == 1200) {
        r = std::u16string_view(static_cast<const char16_t*>(a.p), a.n)
                .compare(std::u16string_view(static_cast<const char16_t*>(b.p), b.n));
    } else {
        r = std::string_view(static_cast<const char*>(a.p), a.n)
                .compare(std::string_view(static_cast<const char*>(b.p), b.n));
    }
    return (r > 0) - (r < 0);
}

inline uint64_t Load64(const unsigned char* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}

inline uint64_t Load32(const unsigned char* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

// The first and the last bytes of a short text (n <= 16) as two words: together they cover every
// byte, and reading them takes no loop whose length varies with n.
inline void Ends(const unsigned char* p, size_t n, uint64_t& a, uint64_t& b) {
    if (n >= 8) {
        a = Load64(p);
        b = Load64(p + n - 8);
    } else if (n >= 4) {
        a = Load32(p);
        b = Load32(p + n - 4);
    } else if (n > 0) {
        a = (uint64_t{p[0]} << 16) | (uint64_t{p[n >> 1]} << 8) | p[n - 1];
        b = 0;
    } else {
        a = b = 0;
    }
}

// Equal bytes.
inline bool SameBytes(const unsigned char* x, const unsigned char* y, size_t n) {
    if (n > 16) return std::memcmp(x, y, n) == 0;
    uint64_t xa, xb, ya, yb;
    Ends(x, n, xa, xb);
    Ends(y, n, ya, yb);
    return ((xa ^ ya) | (xb ^ yb)) == 0;
}

// CompareCells(a, b) == 0, without a library call for short texts of one encoding.
inline bool EqualCells(const CellView& a, const CellView& b) {
    if (a.n == 0 || b.n == 0) return a.n == b.n;
    if (a.enc != b.enc) return a.s->CompareTo(*b.s) == 0;
    if (a.n != b.n) return false;
    return SameBytes(static_cast<const unsigned char*>(a.p), static_cast<const unsigned char*>(b.p),
                     a.n * (a.enc == 1200 ? 2 : 1));
}

// Stable sort of idx by less(a, b) ("a before b"). Merges only compare and move within their
// ranges, so a comparison that is not a strict weak order gives some order, never a fault.
template <typename Less>
void StableSort(std::vector<uint32_t>& idx, Less less) {
    const size_t n = idx.size();
    constexpr size_t kRun = 16;
    for (size_t start = 0; start < n; start += kRun) {
        const size_t end = start + kRun < n ? start + kRun : n;
        for (size_t i = start + 1; i < end; ++i) {
            const uint32_t v = idx[i];
            size_t j = i;
            while (j > start && less(v, idx[j - 1])) {
                idx[j] = idx[j - 1];
                --j;
            }
            idx[j] = v;
        }
    }
    std::vector<uint32_t> buf(n);
    for (size_t width = kRun; width < n; width *= 2) {
        for (size_t lo = 0; lo < n; lo += 2 * width) {
            const size_t mid = lo + width < n ? lo + width : n;
            const size_t hi = lo + 2 * width < n ? lo + 2 * width : n;
            size_t i = lo;
            size_t j = mid;
            size_t k = lo;
            while (i < mid && j < hi) buf[k++] = less(idx[j], idx[i]) ? idx[j++] : idx[i++];
            while (i < mid) buf[k++] = idx[i++];
            while (j < hi) buf[k++] = idx[j++];
        }
        idx.swap(buf);
    }
}

// A hash of the view's stored units (not of its encoding): equal texts of one encoding hash
// alike, and a missing cell hashes like an empty one.
uint64_t HashView(const CellView& v);

// Gives the texts of one column ids in order of first appearance, then ranks the distinct texts,
// so that a column of a few thousand distinct texts costs one hash look-up per row and a sort of
// the distinct texts only. The views added must stay valid until Ranks.
class TextRanker {
public:
    // The id of v's text; false when v's encoding is not that of the earlier non-empty texts
    // (their order is then not one of plain units).
    bool Add(const CellView& v, uint32_t& id);
    // rankOf[id]: the dense rank (ascending order) of the text with that id.
    void Ranks(std::vector<uint32_t>& rankOf) const;
    uint32_t count() const { return static_cast<uint32_t>(distinct_.size()); }

private:
    void Grow();
    std::vector<CellView> distinct_;
    std::vector<uint64_t> slots_;  // hash's high 32 bits | (id + 1); 0 is free
    uint16_t enc_ = 0;
};

// Dense ranks of numbers (equal values, also 0 and -0, share a rank). No NaN allowed.
void RankNumbers(const std::vector<double>& values, std::vector<uint32_t>& rank, uint32_t& count);

// A row key built column by column from ranks: rows compare as the tuples of their ranks.
class CompositeKey {
public:
    explicit CompositeKey(size_t rows) : key_(rows, 0) {}
    // Appends a column of ranks below count.
    void Add(const std::vector<uint32_t>& rank, uint32_t count);
    const std::vector<uint64_t>& keys() const { return key_; }
    // The rows in ascending key order, equal keys in row order.
    std::vector<uint32_t> StableOrder() const;

private:
    void Densify();
    std::vector<uint64_t> key_;
    uint64_t distinct_ = 1;  // an upper bound of the number of distinct keys
};

}  // namespace kbase_tables_internal
