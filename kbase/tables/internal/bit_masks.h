// Finding bytes 64 at a time as bit masks (bit k for the byte at offset k), with SSE2 where the
// target has it. Not part of the exported interface.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define KBASE_CSV_SSE2 1
#endif
#if defined(_MSC_VER)
#include <intrin.h>
#endif

namespace kbase_tables_internal {

// Bit k is set when p[k] == c (k < len <= 64). Nothing past p[len) is read.
inline uint64_t ByteMask(const char* p, size_t len, char c) {
    uint64_t mask = 0;
    size_t k = 0;
#if defined(KBASE_CSV_SSE2)
    const __m128i needle = _mm_set1_epi8(c);
    for (; k + 16 <= len; k += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + k));
        mask |= static_cast<uint64_t>(
                    static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, needle))))
                << k;
    }
#endif
    for (; k < len; ++k) mask |= static_cast<uint64_t>(p[k] == c) << k;
    return mask;
}

// The masks of a record's special bytes in p[0..len) (len <= 64): ends, any of the delimiter, CR
// and LF; breaks, CR and LF; quotes, the quote (only when quotes count, else 0).
struct RecordBits {
    uint64_t ends;
    uint64_t breaks;
    uint64_t quotes;
};

inline RecordBits RecordMasks(const char* p, size_t len, char delimiter, bool quotes) {
    uint64_t d = 0;
    uint64_t b = 0;
    uint64_t q = 0;
    size_t k = 0;
#if defined(KBASE_CSV_SSE2)
    const __m128i dv = _mm_set1_epi8(delimiter);
    const __m128i cr = _mm_set1_epi8('\r');
    const __m128i lf = _mm_set1_epi8('\n');
    const __m128i qu = _mm_set1_epi8('"');
    for (; k + 16 <= len; k += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + k));
        const __m128i brk = _mm_or_si128(_mm_cmpeq_epi8(v, cr), _mm_cmpeq_epi8(v, lf));
        d |= static_cast<uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, dv))))
             << k;
        b |= static_cast<uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(brk))) << k;
        if (quotes)
            q |= static_cast<uint64_t>(
                     static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, qu))))
                 << k;
    }
#endif
    for (; k < len; ++k) {
        const char c = p[k];
        d |= static_cast<uint64_t>(c == delimiter) << k;
        b |= static_cast<uint64_t>(c == '\r' || c == '\n') << k;
        if (quotes) q |= static_cast<uint64_t>(c == '"') << k;
    }
    return {d | b, b, q};
}

// Index of the lowest set bit of a non-zero mask.
inline unsigned LowestBit(uint64_t mask) {
#if defined(_MSC_VER)
    unsigned long i = 0;
    _BitScanForward64(&i, mask);
    return static_cast<unsigned>(i);
#else
    return static_cast<unsigned>(__builtin_ctzll(mask));
#endif
}

}  // namespace kbase_tables_internal
