// The quantity's "%.3f" formatting against the C library's, on values where a shortcut would
// round differently.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "kbase/gaeb/internal/format.h"

namespace {

using kbase_gaeb_internal::FormatFixed3;
using kbase_gaeb_internal::kFixed3Room;

std::string Ours(double v) {
    char buf[kFixed3Room];
    return std::string(buf, FormatFixed3(v, buf));
}

std::string Printf(double v) {
    char buf[kFixed3Room + 8];
    std::snprintf(buf, sizeof buf, "%.3f", v);
    return buf;
}

TEST(GaebFormat, Fixed3MatchesPrintfOnAwkwardValues) {
    const double inf = std::numeric_limits<double>::infinity();
    const double values[] = {
        0.0, -0.0, 1.0, -1.0, 0.5, 12.5, 100000.0,
        // halves of the last decimal: exact ties round to even, the rest by their binary value
        0.0005, 0.0015, 0.0025, 1.0005, 2.0625, 0.0625, 0.1875, -0.0625, -2.0625, 1.2345, 1.2355,
        0.0105, 999.9995, 9.9995, 0.9995, -0.9995,
        // values that round to zero, with their sign
        0.0004, 0.00049999999999999999, -0.0004, -0.0005, 5e-324, -5e-324, DBL_MIN, -DBL_MIN,
        // carries into the integer part
        0.99951, 9.99999, 99.9996, -99.9996, 123456.9999,
        // large values: the edge of the short path and beyond it
        4503599627370495.5, 9007199254740991.0, 9007199254740992.0, 9007199254740993.0,
        1e15 + 0.125, 1e16, 1e17, 1e20, -1e20, 1.7976931348623157e308, -1.7976931348623157e308,
        123456789012.3456, 1e12 + 0.0005, 4.35, 0.1, 0.2, 0.3, 2.675, 1.005, 1e-3, 1e-4, inf, -inf};
    for (double v : values) EXPECT_EQ(Ours(v), Printf(v)) << std::hexfloat << v;
    // A NaN's sign is written as glibc writes it on every platform (Windows' C library drops it),
    // so that a bill is the same bytes wherever it was stored.
    EXPECT_EQ(Ours(std::nan("")), "nan");
    EXPECT_EQ(Ours(-std::nan("")), "-nan");
}

TEST(GaebFormat, Fixed3MatchesPrintfOnRandomValues) {
    std::mt19937_64 rng(83);
    for (int i = 0; i < 200000; ++i) {
        double v;
        switch (i % 4) {
            case 0: {  // any bit pattern
                const uint64_t bits = rng();
                std::memcpy(&v, &bits, sizeof v);
                break;
            }
            case 1:  // quantities as bills hold them, and the ties between their decimals
                v = static_cast<double>(static_cast<int64_t>(rng() % 200000000) - 100000000) /
                    (i % 8 == 1 ? 1000.0 : 2000.0);
                break;
            case 2:  // k / 2^n: exact binary values, many of them ties
                v = std::ldexp(static_cast<double>(rng() % (uint64_t{1} << 40)),
                               -static_cast<int>(rng() % 60));
                break;
            default:  // around the powers of two where the short path ends
                v = std::nextafter(std::ldexp(1.0, static_cast<int>(rng() % 70) - 10),
                                   (rng() & 1) != 0 ? 0.0 : 1e300) *
                    ((rng() & 1) != 0 ? -1 : 1);
                break;
        }
        if (std::isnan(v)) continue;  // the payload's sign is the only thing printed; seen above
        ASSERT_EQ(Ours(v), Printf(v)) << std::hexfloat << v;
    }
}

}  // namespace
