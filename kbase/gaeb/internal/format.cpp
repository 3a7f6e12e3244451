// "%.3f" without printf: a quantity is written for every position of a bill.
#include "kbase/gaeb/internal/format.h"

#include <charconv>
#include <cstdint>
#include <cstring>

namespace kbase_gaeb_internal {

namespace {

// The general path: exact for every double, about ten times slower than the one below.
char* FormatFixed3Exact(double v, char* out) {
    const auto r = std::to_chars(out, out + kFixed3Room, v, std::chars_format::fixed, 3);
    if (r.ec != std::errc()) {  // cannot happen with kFixed3Room; stay well-formed regardless
        std::memcpy(out, "0.000", 5);
        return out + 5;
    }
    return r.ptr;
}

}  // namespace

char* FormatFixed3(double v, char* out) {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    const bool negative = (bits >> 63) != 0;
    const int biased = static_cast<int>((bits >> 52) & 0x7FF);
    const uint64_t fraction = bits & ((uint64_t{1} << 52) - 1);
    if (biased == 0x7FF) return FormatFixed3Exact(v, out);
    // v = m * 2^e exactly.
    const uint64_t m = biased == 0 ? fraction : (fraction | (uint64_t{1} << 52));
    const int e = biased == 0 ? -1074 : biased - 1075;
    uint64_t thousandths;  // v * 1000 rounded half to even, as an integer
    if (e >= 0) {
        if (e > 10 || (m << e) >= (uint64_t{1} << 53)) return FormatFixed3Exact(v, out);
        thousandths = (m << e) * 1000;
    } else {
        const uint64_t n = m * 1000;  // < 2^63
        const int q = -e;
        if (q >= 64) {
            thousandths = 0;  // n < 2^63 <= half a unit: rounds to zero
        } else {
            thousandths = n >> q;
            const uint64_t rest = n & ((uint64_t{1} << q) - 1);
            const uint64_t half = uint64_t{1} << (q - 1);
            if (rest > half || (rest == half && (thousandths & 1) != 0)) ++thousandths;
        }
    }
    char* p = out;
    if (negative) *p++ = '-';
    const uint64_t whole = thousandths / 1000;
    const auto r = std::to_chars(p, p + 24, whole);
    p = r.ptr;
    const unsigned frac = static_cast<unsigned>(thousandths % 1000);
    p[0] = '.';
    p[1] = static_cast<char>('0' + frac / 100);
    p[2] = static_cast<char>('0' + frac / 10 % 10);
    p[3] = static_cast<char>('0' + frac % 10);
    return p + 4;
}

}  // namespace kbase_gaeb_internal
