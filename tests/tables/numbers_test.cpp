// Reading ASCII cells as numbers: every shape must give strtod's value to the bit, whichever
// path (short decimal, from_chars, strtod) reads it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "kbase/tables/internal/numbers.h"

namespace {

using kbase_tables_internal::AsciiToDouble;
using kbase_tables_internal::Parse;

void ExpectStrtod(const std::string& text) {
    double got = 0.0;
    const Parse r = AsciiToDouble(text.c_str(), text.size(), got);
    ASSERT_EQ(r, Parse::kYes) << text;
    const double want = std::strtod(text.c_str(), nullptr);
    EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0) << text << ": " << got << " vs " << want;
}

TEST(Numbers, ShapesReadLikeStrtod) {
    for (const char* text : {"0", "-0", "-0.0", "12.50", "0.1", "0.3", "-7.25", "123456789012345", "1234567890123456",
                             "999999999999999.9", "0.0000000000000000000001", "1.00000000000000000000001",
                             "00000000000000012.5", "2.5e3", " 42 ", "1e-400", "1e400", "3.", ".5"}) {
        double v = 0.0;
        if (AsciiToDouble(text, std::strlen(text), v) == Parse::kYes) ExpectStrtod(text);
    }
    double v = 1.0;
    for (const char* text : {"", "  ", "-", ".", "1.2.3", "12a", "abc", "1,5"}) {
        EXPECT_EQ(AsciiToDouble(text, std::strlen(text), v), Parse::kNo) << text;
    }
}

TEST(Numbers, RandomDecimalsReadLikeStrtod) {
    std::mt19937_64 rng(3);
    for (int i = 0; i < 200000; ++i) {
        std::string text = rng() % 4 == 0 ? "-" : "";
        const int whole = 1 + static_cast<int>(rng() % 17);
        const int fraction = static_cast<int>(rng() % 24);
        for (int d = 0; d < whole; ++d) text += static_cast<char>('0' + rng() % 10);
        if (fraction > 0) {
            text += '.';
            for (int d = 0; d < fraction; ++d) text += static_cast<char>('0' + rng() % 10);
        }
        ExpectStrtod(text);
        if (HasFatalFailure()) return;
    }
}

}  // namespace
