// Numbers to text and text to numbers, formatting and scanning.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "basert/locale.h"
#include "kbase/text/UtCString.h"
#include "string_test_util.h"

namespace {

using kbase_test::Make;
using kbase_test::U8;

TEST(StringNumbers, ConvertToDoubleKeepsThePlusMinusZeroRule) {
    const struct {
        std::u16string text;
        bool ok;
        double value;
    } cases[] = {
        {u" \u00B10.00 ", true, 0.0}, {u"\u00B10", true, 0.0},  {u"\u00B11", false, 0.0},
        {u"1,5", false, 0.0},         {u"", false, 0.0},        {u"  2.5  ", true, 2.5},
        {u"1\t", false, 0.0},         {u"-1e3", true, -1000.0}, {u"\u00B1", false, 0.0},
        {u"abc", false, 0.0},         {u"   ", false, 0.0},
    };
    for (const auto& c : cases) {
        for (const auto e : kbase_test::kEncodings) {
            double v = -1;
            EXPECT_EQ(UtCString(c.text, e).Convert(v), c.ok) << U8(UtCString(c.text, e)) << " in " << e;
            if (c.ok) {
                EXPECT_EQ(v, c.value);
            }
        }
    }
    float f = 0;
    EXPECT_TRUE(Make("0.25", eUtEncodingTypeUtf16).Convert(f));
    EXPECT_EQ(f, 0.25f);
}

TEST(StringNumbers, ConvertIntegersTruncatesWithoutRangeCheck) {
    int i = 0;
    EXPECT_TRUE(Make("4294967297", eUtEncodingTypeAnsi1252).Convert(i));
    EXPECT_EQ(i, 1);
    short sh = 0;
    EXPECT_TRUE(Make("65537", eUtEncodingTypeUtf8).Convert(sh));
    EXPECT_EQ(sh, 1);
    const struct {
        const char* text;
        bool ok;
        long long value;
    } cases[] = {
        {" 42 ", true, 42}, {"-7", true, -7}, {"4 2", false, 4}, {"", false, 0},
        {"12a", false, 12}, {"0x10", false, 0}, {"+3", true, 3}, {"9223372036854775807", true, LLONG_MAX},
    };
    for (const auto& c : cases) {
        for (const auto e : kbase_test::kEncodings) {
            long long v = -99;
            EXPECT_EQ(Make(c.text, e).Convert(v), c.ok) << c.text;
            EXPECT_EQ(v, c.value) << c.text;
        }
    }
    unsigned long long u = 0;
    EXPECT_TRUE(Make("18446744073709551615", eUtEncodingTypeUtf16).Convert(u));
    EXPECT_EQ(u, ULLONG_MAX);
}

TEST(StringNumbers, ConvertBoolAcceptsOnlyTheWords) {
    const struct {
        const char* text;
        bool ok, value;
    } cases[] = {{"TRUE", true, true}, {"false", true, false}, {"FaLsE", true, false},
                 {"1", false, false},  {"0", false, false},    {"true ", false, false}, {"yes", false, false}};
    for (const auto& c : cases) {
        for (const auto e : kbase_test::kEncodings) {
            bool v = !c.value;
            EXPECT_EQ(Make(c.text, e).Convert(v), c.ok) << c.text;
            if (c.ok) {
                EXPECT_EQ(v, c.value);
            }
        }
    }
}

TEST(StringNumbers, ConvertSplitsAtTheLastDigitRun) {
    UtCString prefix, suffix;
    long number = 0, digits = 0;
    ASSERT_TRUE(Make("plan_007.dwg", eUtEncodingTypeUtf8).Convert(prefix, number, digits, suffix));
    EXPECT_EQ(U8(prefix), "plan_");
    EXPECT_EQ(number, 7);
    EXPECT_EQ(digits, 3);
    EXPECT_EQ(U8(suffix), ".dwg");
    const UtCString back(prefix, number, digits, UtCString(), -1, suffix, eUtEncodingTypeUtf8);
    EXPECT_EQ(U8(back), "plan_007.dwg");
    EXPECT_EQ(U8(UtCString(Make("W", eUtEncodingTypeUtf16), 12, 4, Make("-", eUtEncodingTypeUtf16), 3,
                           Make("x", eUtEncodingTypeUtf16), eUtEncodingTypeAnsi1252)),
              "W0012-3x");
    EXPECT_FALSE(Make("none", eUtEncodingTypeAnsi1252).Convert(prefix, number, digits, suffix));
    // Characters of several bytes around and between the digits count as one position each.
    for (const eUtEncodingType e : {eUtEncodingTypeUtf8, eUtEncodingTypeUtf16, eUtEncodingTypeAnsi1252}) {
        ASSERT_TRUE(Make("Ma\u00DF_12\u00FC34\u20AC.dwg", e).Convert(prefix, number, digits, suffix)) << e;
        EXPECT_EQ(U8(prefix), "Ma\u00DF_12\u00FC") << e;
        EXPECT_EQ(number, 34);
        EXPECT_EQ(digits, 2);
        EXPECT_EQ(U8(suffix), "\u20AC.dwg") << e;
        ASSERT_TRUE(Make("42\u00E4", e).Convert(prefix, number, digits, suffix)) << e;
        EXPECT_EQ(U8(prefix), "");
        EXPECT_EQ(number, 42);
        EXPECT_EQ(U8(suffix), "\u00E4");
        EXPECT_FALSE(Make("\u00E4\u20AC", e).Convert(prefix, number, digits, suffix)) << e;
    }
}

TEST(StringNumbers, FormatDoubleDropsZerosOnlyAfterAPoint) {
    const struct {
        double value;
        int digits;
        const char* text;
    } cases[] = {
        {3.0, 0, "3"},    {0.10, 3, "0.1"},   {2.5, 3, "2.5"},  {2.0, 2, "2"},       {1234.5678, 2, "1234.57"},
        {-0.5, 0, "-1"},  {100.0, 0, "100"},  {1.005, 2, "1.01"}, {-2.25, 1, "-2.3"}, {0.0, 3, "0"},
    };
    for (const auto& c : cases) {
        UtCString s(eUtEncodingTypeUtf16);
        EXPECT_EQ(U8(s.FormatDouble(c.value, c.digits)), c.text) << c.value << "@" << c.digits;
        EXPECT_EQ(U8(UtCString(c.value, c.digits, eUtEncodingTypeUtf8)), c.text);
    }
    UtCString f;
    EXPECT_EQ(U8(f.FormatFloat(0.5f, 2)), "0.5");
}

TEST(StringNumbers, FormatDoubleLocaleUsesTheUserSeparator) {
    const int before = OsUserGetDecimalType();
    OsUserSetDecimalType(kOsDecimalComma);
    UtCString s;
    EXPECT_EQ(U8(s.FormatDoubleLocale(0.1, 3)), "0,100");
    const double values[] = {1.5, 2.0, -0.25};
    EXPECT_EQ(U8(s.DoubleValueListToGuiString(values, 3, 3)), "1,5; 2; -0,25");
    double back[3] = {0, 0, 0};
    EXPECT_EQ(s.GuiStringToDoubleValueList(back, 3), 3);
    EXPECT_EQ(back[0], 1.5);
    EXPECT_EQ(back[2], -0.25);
    EXPECT_EQ(Make("1; x", eUtEncodingTypeUtf8).GuiStringToDoubleValueList(back, 3), -1);
    EXPECT_EQ(Make("1;;2", eUtEncodingTypeUtf8).GuiStringToDoubleValueList(back, 3), -1);
    EXPECT_EQ(Make("1;2;3;4", eUtEncodingTypeUtf8).GuiStringToDoubleValueList(back, 2), 4)
        << "the count of the text, though only two are written";
    OsUserSetDecimalType(kOsDecimalPoint);
    EXPECT_EQ(U8(s.FormatDoubleLocale(0.1, 3)), "0.100");
    OsUserSetDecimalType(before);
}

TEST(StringFormat, PrintfIntoTheString) {
    for (const auto e : kbase_test::kEncodings) {
        UtCString s(e);
        EXPECT_EQ(s.Format("%d-%s-%.2f", 42, "x", 1.5), 9);
        EXPECT_EQ(U8(s), "42-x-1.50");
        s.AppendFormat("|%05d", 7);
        EXPECT_EQ(U8(s), "42-x-1.50|00007");
        const std::string longText(5000, 'y');
        EXPECT_EQ(s.Format("%s!", longText.c_str()), 5001) << "past the first buffer";
        EXPECT_EQ(s.Format(static_cast<const char*>(nullptr)), 5001) << "null format: unchanged";

        EXPECT_EQ(s.Format(u"%s|%hs|%c|%5d|%-3s|%x|%%", u"\u00E4\u20AC", "ab", u'\u00DF', -12, u"z", 255u), 22);
        EXPECT_EQ(s.GetUtf16String(), u"\u00E4\u20AC|ab|\u00DF|  -12|z  |ff|%");
        s.AppendFormat(u"%lld", 1LL << 40);
        EXPECT_TRUE(s.EndsWith(Make("1099511627776", e)));
    }
}

TEST(StringFormat, AppendNumbersWithAndWithoutFormat) {
    UtCString s(eUtEncodingTypeUtf16);
    s.Append(-5);
    s.Append(static_cast<unsigned long long>(ULLONG_MAX));
    s.Append(42, "[%04d]");
    s.Append(2.5, "%.3f");
    s.Append(1.25, 1);
    s.Append(7LL, static_cast<const char*>(nullptr));
    EXPECT_EQ(U8(s), "-518446744073709551615[0042]2.5001.3");
    EXPECT_EQ(U8(UtCString(static_cast<short>(-3), eUtEncodingTypeUtf8)), "-3");
    EXPECT_EQ(U8(UtCString(5u, "%x", 0, eUtEncodingTypeAnsi1252)), "5");
    EXPECT_EQ(U8(UtCString(255, "%X", 0, eUtEncodingTypeAnsi1252)), "FF");
}

TEST(StringFormat, UnFormatScansTheText) {
    for (const auto e : kbase_test::kEncodings) {
        int a = 0, b = 0;
        char word[16] = {0};
        EXPECT_EQ(Make("12 34 wall", e).UnFormat("%d %d %15s", &a, &b, word), 3);
        EXPECT_EQ(a, 12);
        EXPECT_EQ(b, 34);
        EXPECT_STREQ(word, "wall");
        EXPECT_EQ(Make("7", e).UnFormat(u"%d", &a), 1);
        EXPECT_EQ(a, 7);
        EXPECT_EQ(Make("", e).UnFormat("%d", &a), -1);
        EXPECT_EQ(Make("1", e).UnFormat(static_cast<const char*>(nullptr)), -1);
    }
}

}  // namespace
