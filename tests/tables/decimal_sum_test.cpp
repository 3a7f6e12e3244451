// UtCDecimalSum: exact totals of decimal texts, the texts it takes and refuses, merging blocks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kbase/tables/UtCDecimalSum.h"
#include "kbase/text/UtCString.h"

namespace {

UtCDecimalSum SumOf(const std::vector<std::string>& texts) {
    UtCDecimalSum s;
    for (const std::string& t : texts) s.Add(t.data(), t.size());
    return s;
}

std::string Repeat(const std::string& text, int n) {
    UtCDecimalSum s;
    for (int i = 0; i < n; ++i) EXPECT_TRUE(s.Add(text.data(), text.size()));
    return s.Format("%.6f");
}

TEST(DecimalSum, TotalsOfDecimalTextsAreExact) {
    struct Case {
        std::vector<std::string> texts;
        const char* format;
        const char* expected;
        bool exact;
    };
    const Case cases[] = {
        {{"0.1", "0.2"},
         "%.17g",
         "0.29999999999999999",
         true},  // the double 0.3; doubles sum 0.30000000000000004
        {{"1.5", "2.25", "-0.125", "1e3", "5E-2", "+.5", "7."}, "%.4f", "1011.1750", true},
        {{"  12.50 ", "\t-2.5"}, "%.2f", "10.00", true},
        {{"0.00000000000000000001", "1e9"}, "%.1f", "1000000000.0", true},
        {{"0.000000000000000000000000000001", "1e9"},
         "%.1f",
         "1000000000.0",
         false},  // 10^39 units
        {{"100000000000000000000000000000000000", "-99999999999999999999999999999999999"},
         "%.0f",
         "1",
         true},
        {{"0x10", "1.5"},
         "%.2f",
         "17.50",
         false},  // hexadecimal reads as a number, not as a decimal
        {{"inf", "1"}, "%f", "inf", false},
        {{"1e300", "1"}, "%.0e", "1e+300", false},
        {{"0.1234567890123456789012345678901234567", "1"}, "%.6f", "1.123457", false},  // 37 digits
        {{"-0", "-0.00"}, "%.2f", "-0.00", true},
        {{"-0", "0"}, "%.2f", "0.00", true},
        {{}, "%.2f", "0.00", true},
    };
    for (const Case& c : cases) {
        const UtCDecimalSum s = SumOf(c.texts);
        EXPECT_EQ(s.Format(c.format), c.expected)
            << c.texts.size() << " texts, first " << (c.texts.empty() ? "" : c.texts[0]);
        EXPECT_EQ(s.IsExact(), c.exact) << c.expected;
    }
    // Drift that a double sum shows at the sixth decimal, and at the second.
    EXPECT_EQ(Repeat("0.10", 1000000), "100000.000000");
    UtCDecimalSum money;
    double plain = 0.0;
    for (int i = 0; i < 10000; ++i) {
        money.Add("7654321.09", 10);
        plain += 7654321.09;
    }
    EXPECT_EQ(money.Format("%.2f"), "76543210900.00");
    char drifted[64];
    std::snprintf(drifted, sizeof drifted, "%.2f", plain);
    EXPECT_STRNE(drifted, "76543210900.00");  // what summing doubles gives
}

TEST(DecimalSum, TakesWhatTheStringConversionTakes) {
    using namespace std::string_literals;
    const std::string texts[] = {"abc",
                                 "1e",
                                 "",
                                 " ",
                                 "1.2.3",
                                 "12kg",
                                 "--1",
                                 ".",
                                 "e5",
                                 "1e5",
                                 " 7 ",
                                 "+0",
                                 "0x1p4",
                                 "nan",
                                 "1,5",
                                 "\xB1"
                                 "0",
                                 "1 2",
                                 "12\0"
                                 "3x"s,
                                 "\0"
                                 "5"s};
    const eUtEncodingType system = UtCString::systemEncodingType();
    for (const std::string& t : texts) {
        double v = 0.0;
        const bool convertible =
            UtCString(t.data(), static_cast<int>(t.size()), system, system).Convert(v);
        UtCDecimalSum s;
        EXPECT_EQ(s.Add(t.data(), t.size()), convertible) << t;
        if (convertible && std::isfinite(v)) {
            EXPECT_EQ(s.Value(), v) << t;
        } else if (!convertible) {
            EXPECT_EQ(s.Format("%g"), "0") << t;  // nothing added
        }
    }
    // The lenient reading is atof's, that is strtod's (msvcrt's atof knows no hexadecimal; the C99
    // strtod of MinGW does, as the library's does).
    const char* lenient[] = {"12kg", "abc", "1e5x", "  .5e1e", "0x1p4z", "-3.25 m", "", "1e99999"};
    for (const char* t : lenient) {
        UtCDecimalSum s;
        s.AddLenient(t, std::strlen(t));
        EXPECT_EQ(s.Value(), std::strtod(t, nullptr)) << t;
    }
}

// Random columns of money and measures: the total is the double nearest to the exact decimal sum,
// whichever way the column is cut into blocks and the blocks are merged.
TEST(DecimalSum, RandomColumnsAndMergedBlocksGiveTheNearestDouble) {
    std::mt19937_64 rng(21);
    for (int round = 0; round < 200; ++round) {
        std::vector<std::string> texts;
        long long units = 0;  // in 10^-4
        const int rows = 1 + static_cast<int>(rng() % 400);
        for (int i = 0; i < rows; ++i) {
            const long long v = static_cast<long long>(rng() % 2000000000000ULL) - 1000000000000LL;
            const int decimals = static_cast<int>(rng() % 5);
            long long unit = 1;
            for (int d = decimals; d < 4; ++d) unit *= 10;
            const long long scaled = v / unit * unit;
            units += scaled;
            const long long magnitude = scaled < 0 ? -scaled : scaled;
            std::string text = (scaled < 0 ? "-" : "") + std::to_string(magnitude / 10000);
            if (decimals > 0) {
                std::string fraction = std::to_string(10000 + magnitude % 10000).substr(1);
                text += "." + fraction.substr(0, static_cast<size_t>(decimals));
            }
            texts.push_back(text);
        }
        const long long magnitude = units < 0 ? -units : units;
        const std::string exact = (units < 0 ? "-" : "") + std::to_string(magnitude) + "e-4";
        const double want = std::strtod(exact.c_str(), nullptr);
        EXPECT_EQ(SumOf(texts).Value(), want) << exact;

        std::vector<UtCDecimalSum> blocks(1 + rng() % 5);
        for (const std::string& t : texts) blocks[rng() % blocks.size()].Add(t.data(), t.size());
        UtCDecimalSum merged;
        for (size_t i = blocks.size(); i-- > 0;) merged.Merge(blocks[i]);
        EXPECT_EQ(merged.Value(), want) << exact;
        EXPECT_TRUE(merged.IsExact());
    }
}

TEST(DecimalSum, FormatsTakeOneFloatingConversionAndFiftyBytes) {
    UtCDecimalSum s;
    s.Add("1234.5", 6);
    EXPECT_EQ(s.Format("%.1f kg"), "1234.5 kg");
    EXPECT_EQ(s.Format("%s"), "1234.50");  // no floating conversion: "%.2f"
    EXPECT_EQ(s.Format("%f %f"), "1234.50");
    EXPECT_EQ(s.Format("100%% %+.0f"), "100% +1234");
    EXPECT_EQ(s.Format(nullptr), "1234.50");
    EXPECT_EQ(s.Format("%060.1f").size(), 50u);

    // A double part and an exact part merge into one total.
    UtCDecimalSum a;
    a.AddDouble(0.5);
    a.Add("0.25", 4);
    UtCDecimalSum b;
    b.Add("1e40", 4);  // beyond the exact part
    b.Merge(a);
    EXPECT_EQ(b.Value(), 1e40 + 0.75);
    EXPECT_FALSE(b.IsExact());
}

}  // namespace
