// Construction, invariants, assignment, conversion, comparison and hashing of UtCString.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "basert/memory.h"
#include "kbase/text/UtCString.h"
#include "string_test_util.h"
#include "test_support.h"

namespace {

using kbase_test::Make;
using kbase_test::RawBytes;
using kbase_test::U8;

TEST(StringInvariants, EmptyBufferPerEncoding) {
    const struct {
        eUtEncodingType e;
        std::string bytes;
    } cases[] = {
        {eUtEncodingTypeAnsi1252, std::string(1, '\0')},
        {static_cast<eUtEncodingType>(932), std::string(1, '\0')},
        {eUtEncodingTypeUtf8, std::string("\xEF\xBB\xBF\0", 4)},
        {eUtEncodingTypeUtf16, std::string(2, '\0')},
        {eUtEncodingTypeUtf16BE, std::string(2, '\0')},
    };
    for (const auto& c : cases) {
        const UtCString s(c.e);
        EXPECT_EQ(s.GetLength(), 0);
        EXPECT_TRUE(s.IsEmpty());
        EXPECT_EQ(RawBytes(s), c.bytes) << c.e;
        EXPECT_EQ(s.encodingType(), c.e);
        UtCString t = Make("x", c.e);
        t.Empty();
        EXPECT_EQ(RawBytes(t), c.bytes) << "Empty() of " << c.e;
    }
}

TEST(StringInvariants, DefaultStringFollowsTheSystemEncoding) {
    const UtCString s;
    EXPECT_EQ(s.encodingType(), UtCString::systemEncodingType());
    EXPECT_NE(s.encodingType(), eUtEncodingTypeSystemDefault);
    if (UtCString::systemEncodingType() == eUtEncodingTypeUtf8) {
        EXPECT_EQ(RawBytes(s), std::string("\xEF\xBB\xBF\0", 4));
        EXPECT_EQ(*s.stringSkipBOM(), '\0');
        EXPECT_EQ(s.stringSkipBOM(), s.ptr() + 3);
    } else {
        EXPECT_EQ(s.stringSkipBOM(), s.ptr());
    }
}

TEST(StringInvariants, Utf8KeepsExactlyOneMarkThroughEveryEdit) {
    UtCString s = Make("b", eUtEncodingTypeUtf8);
    s.Prepend(UtCString("\xEF\xBB\xBF" "a", eUtEncodingTypeUtf8, eUtEncodingTypeUtf8));
    s += "c";
    s.Insert(0, u'<');
    s.Insert(100, u'>');
    s.Append(UtCString(u"\u00E4", eUtEncodingTypeUtf16));
    EXPECT_EQ(RawBytes(s), std::string("\xEF\xBB\xBF<abc>\xC3\xA4\0", 11));
    EXPECT_EQ(s.GetLength(), 6);
    EXPECT_STREQ(s.stringSkipBOM(), "<abc>\xC3\xA4");
}

TEST(StringAssign, LeadingByteOrderMarkOfWideTextIsDropped) {
    for (const auto e : kbase_test::kEncodings) {
        const UtCString with(u"\uFEFFabc\u00E4", e);
        const UtCString without(u"abc\u00E4", e);
        EXPECT_EQ(RawBytes(with), RawBytes(without)) << e;
        EXPECT_EQ(with.GetLength(), 4);
        EXPECT_EQ(UtCString(u"\uFFFExy", e).GetLength(), 2);
        EXPECT_EQ(with.CompareTo(u"\uFEFFabc\u00E4"), 0);
    }
}

TEST(StringAssign, ConvertsBetweenEveryPairOfEncodings) {
    const char* text = "Gr\xC3\xBC\xC3\x9F" "e \xE2\x82\xAC 5";  // "Grüße € 5"
    for (const auto from : kbase_test::kEncodings) {
        for (const auto to : kbase_test::kEncodings) {
            const UtCString a = Make(text, from);
            const UtCString b(a, to);
            EXPECT_EQ(b.encodingType(), to);
            EXPECT_EQ(U8(b), text) << from << " -> " << to;
            EXPECT_EQ(b.GetLength(), 9);
            UtCString c(to);
            c = a;
            EXPECT_EQ(c.CompareTo(a), 0);
            EXPECT_EQ(c.encodingType(), to) << "assignment keeps the target's encoding";
        }
    }
    EXPECT_EQ(RawBytes(Make(text, eUtEncodingTypeAnsi1252)), std::string("Gr\xFC\xDF" "e \x80 5\0", 10));
}

TEST(StringAssign, CountedSourcesAndNulls) {
    EXPECT_EQ(U8(UtCString("abcdef", 3, eUtEncodingTypeAnsi1252, eUtEncodingTypeUtf16)), "abc");
    EXPECT_EQ(UtCString("abc", 0, eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252).GetLength(), 0);
    EXPECT_EQ(UtCString(static_cast<const char*>(nullptr)).GetLength(), 0);
    EXPECT_EQ(UtCString(static_cast<const char16_t*>(nullptr), eUtEncodingTypeUtf8).GetLength(), 0);
    EXPECT_EQ(U8(UtCString(u"abcdef", 2, eUtEncodingTypeUtf8)), "ab");
    for (const auto e : kbase_test::kEncodings) {
        // A terminator inside the count ends the text: the length never runs past it.
        EXPECT_EQ(UtCString("ab\0cd", 5, eUtEncodingTypeAnsi1252, e).GetLength(), 2) << e;
        EXPECT_EQ(UtCString(u"ab\0cd", 5, e).GetLength(), 2) << e;
    }
    UtCString s = Make("x", eUtEncodingTypeAnsi1252);
    s = std::string("std");
    EXPECT_EQ(U8(s), "std");
    s = std::u16string(u"w\u00E4");
    EXPECT_EQ(U8(s), "w\xC3\xA4");
}

TEST(StringAppend, WideCountIsInCharactersAndStopsAtNul) {
    UtCString s(eUtEncodingTypeUtf16);
    s += u"x";
    s.Insert(1, u"");
    EXPECT_EQ(s.GetLength(), 1);
    // Through the public surface: a pair appended with the whole text counts two units.
    s += u"\U0001F600";
    EXPECT_EQ(s.GetLength(), 3);
    s.Append(u'\0');
    EXPECT_EQ(s.GetLength(), 3);
    UtCString a(eUtEncodingTypeAnsi1252);
    a += u"\U0001F600";
    EXPECT_EQ(RawBytes(a), std::string("?\0", 2)) << "one '?' for a character the page lacks";
}

TEST(StringConversion, ChangeEncodingAndRepresentability) {
    UtCString s(u"A\u0104", eUtEncodingTypeUtf16);  // A-ogonek: in 1250, not in 1252
    EXPECT_FALSE(s.ToAnsiIfRepresentable(eUtEncodingTypeAnsi1252));
    EXPECT_TRUE(s.isUtf16EncodingType()) << "refused: unchanged";
    EXPECT_TRUE(s.ToAnsiIfRepresentable(eUtEncodingTypeAnsi1250));
    EXPECT_EQ(s.encodingType(), eUtEncodingTypeAnsi1250);
    EXPECT_EQ(RawBytes(s), std::string("A\xA5\0", 3));
    UtCString t(u"\u00E4\u20AC", eUtEncodingTypeUtf16);
    EXPECT_TRUE(t.ToAnsiIfRepresentable(eUtEncodingTypeAnsi1252));
    EXPECT_EQ(RawBytes(t), std::string("\xE4\x80\0", 3));
    EXPECT_TRUE(t.ToUnicode(eUtEncodingTypeUtf8));
    EXPECT_EQ(RawBytes(t), std::string("\xEF\xBB\xBF\xC3\xA4\xE2\x82\xAC\0", 9));
    EXPECT_EQ(t.GetLength(), 2);
    EXPECT_FALSE(t.ToUnicode(eUtEncodingTypeAnsi1252));
    EXPECT_FALSE(t.ChangeEncodingType(static_cast<eUtEncodingType>(12345)));
    EXPECT_TRUE(t.isUtf8EncodingType());
    EXPECT_TRUE(t.ToAnsi(eUtEncodingTypeAnsi1252));
    EXPECT_EQ(t.GetUtf16String(), u"\u00E4\u20AC");

    char* out = nullptr;
    EXPECT_EQ(t.GetAnsiString(&out, eUtEncodingTypeUtf8), 5);
    EXPECT_STREQ(out, "\xC3\xA4\xE2\x82\xAC");
    UtFreeMemory(out);
    EXPECT_EQ(t.GetUtf8String(&out, 1), 8);
    UtFreeMemory(out);
    char small[3];
    EXPECT_FALSE(t.toCharArray(small, 3, eUtEncodingTypeUtf8));
    EXPECT_EQ(small[0], '\0');
    char big[8];
    EXPECT_TRUE(t.toCharArray(big, 8, eUtEncodingTypeUtf16));
    EXPECT_EQ(std::memcmp(big, "\xE4\x00\xAC\x20\0\0", 6), 0);
}

TEST(StringConversion, AllocationFailureLeavesTheStringAsItWas) {
    for (const auto e : kbase_test::kEncodings) {
        UtCString s = Make("Stra\xC3\x9F" "e", e);
        const std::string before = RawBytes(s);
        const int length = s.GetLength();
        const UtCString other(u"new", e);
        {
            kbase_test::FailAllocationsFrom fail(1);
            s = other;
            s += "x";
            s.Insert(1, u"yy");
            s.Prepend('z');
            s.ChangeEncodingType(e == eUtEncodingTypeUtf16 ? eUtEncodingTypeUtf8 : eUtEncodingTypeUtf16);
            s.SetToSubstr(1, 2);
            s.replace(Make("e", e), Make("E", e));
            s.SetToUpper();
            s.Enclose(Make("'", e));
            s.Expand(20, '.', 2);
            s.ExpandW(20, u'.', 2);
            s.Delete(0, 2);
            s.trim(Make("S", e));
            s.StandardizePath();
        }
        EXPECT_EQ(RawBytes(s), before) << e;
        EXPECT_EQ(s.GetLength(), length);
        EXPECT_EQ(s.encodingType(), e);
    }
}

TEST(StringCompare, OrdinalAcrossEncodings) {
    const struct {
        const char* a;
        const char* b;
        int expected;
    } cases[] = {
        {"abc", "abc", 0},   {"abc", "abd", -1}, {"abd", "abc", 1},       {"ab", "abc", -1},
        {"", "", 0},         {"", "a", -1},      {"\xC3\xA4", "z", 1},    {"Z", "a", -1},
        {"\xE2\x82\xAC", "\xC3\xBF", 1},  // U+20AC > U+00FF, though 0x80 < 0xFF in 1252
    };
    for (const auto& c : cases) {
        for (const auto ea : kbase_test::kEncodings) {
            for (const auto eb : kbase_test::kEncodings) {
                const UtCString a = Make(c.a, ea), b = Make(c.b, eb);
                int expected = c.expected;
                // Within one code page the bytes decide: the euro sign is 0x80 there.
                if (ea == eb && ea == eUtEncodingTypeAnsi1252 && std::strcmp(c.a, "\xE2\x82\xAC") == 0) expected = -1;
                EXPECT_EQ(a.CompareTo(b), expected) << c.a << " " << ea << " vs " << c.b << " " << eb;
            }
        }
    }
    const UtCString x = Make("abc", eUtEncodingTypeAnsi1252);
    EXPECT_TRUE(x == UtCString(u"abc", eUtEncodingTypeUtf16));
    EXPECT_NE(x.hash(), UtCString(u"abc", eUtEncodingTypeUtf16).hash());
    EXPECT_TRUE(x < "abd");
    EXPECT_TRUE(x >= u"abc");
    EXPECT_TRUE(x == std::string("abc"));
    EXPECT_EQ(x.CompareTo(static_cast<const char*>(nullptr)), 1);
    EXPECT_EQ(x.CompareTo("abc", static_cast<eUtEncodingType>(12345)), 1) << "failed conversion";
}

TEST(StringCompare, NoCaseFoldsLettersOfTheCodePage) {
    for (const auto ea : kbase_test::kEncodings) {
        for (const auto eb : kbase_test::kEncodings) {
            EXPECT_EQ(Make("\xC3\x84RGER", ea).CompareToNoCase(Make("\xC3\xA4rger", eb)), 0) << ea << eb;
            EXPECT_LT(Make("abc", ea).CompareToNoCase(Make("ABD", eb)), 0);
            EXPECT_TRUE(Make("Wall", ea).EqualNoCase(Make("wALL", eb)));
        }
    }
    EXPECT_EQ(UtCString(eUtEncodingTypeUtf16).CompareToNoCase(static_cast<const char16_t*>(nullptr)), 1);
}

TEST(StringHash, HandComputedValues) {
    const struct {
        UtCString s;
        uint64_t hash;
    } cases[] = {
        {Make("abc", eUtEncodingTypeAnsi1252), 291},
        {UtCString(u"abc", eUtEncodingTypeUtf16), 0x3fd7},
        {Make("abc", eUtEncodingTypeUtf8), 0xffc00ffffffff514ULL},  // mark and terminator count
        {Make("\xC3\xA4", eUtEncodingTypeAnsi1252), 0xffc00fffffffffe4ULL},  // 0xE4 sign-extended
        {Make("Stra\xC3\x9F" "e", eUtEncodingTypeAnsi1252), 0xffc00ffffffff0ecULL},
        {UtCString(eUtEncodingTypeAnsi1252), 0},
    };
    for (const auto& c : cases) EXPECT_EQ(c.s.hash(), c.hash) << U8(c.s);
}

TEST(StringHash, BlockwiseHashEqualsTheByteRecurrence) {
    std::mt19937 rng(7);
    for (int length = 0; length < 80; ++length) {
        std::string bytes(static_cast<size_t>(length), '\0');
        for (char& c : bytes) c = static_cast<char>(1 + rng() % 255);
        const UtCString s(bytes.c_str(), length, eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252);
        uint64_t h = 0;
        for (const char c : bytes) h = (h << 1) ^ static_cast<uint64_t>(static_cast<int64_t>(static_cast<signed char>(c)));
        const uint64_t t = h >> 10;
        EXPECT_EQ(s.hash(), (t >> 10) ^ t ^ h) << "length " << length;
    }
}

TEST(StringLength, Utf8CountsCodePointsWhateverTheSource) {
    const struct {
        std::u16string text;
        int length;
    } cases[] = {
        {u"x\U0001F600", 2}, {std::u16string(1, u'\xD800') + u"a", 2}, {u"\u00E4\u20AC", 2}, {u"", 0}, {u"abc", 3},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(UtCString(c.text, eUtEncodingTypeUtf8).GetLength(), c.length);
        const UtCString viaCodePage(UtCString(c.text, eUtEncodingTypeUtf16), eUtEncodingTypeUtf8);
        EXPECT_EQ(viaCodePage.GetLength(), c.length);
    }
    EXPECT_EQ(UtCString(u"x\U0001F600", eUtEncodingTypeUtf16).GetLength(), 3) << "UTF-16 counts units";
}

TEST(StringAccess, CharactersByIndexInEveryEncoding) {
    for (const auto e : kbase_test::kEncodings) {
        UtCString s = Make("a\xC3\xA4" "b", e);
        EXPECT_EQ(s.GetWcharAt(1), u'\u00E4') << e;
        EXPECT_EQ(s.GetCharAt(2), 'b');
        EXPECT_EQ(s.GetCharAt(3), 0);
        EXPECT_EQ(s.GetWcharAt(-1), 0);
        s.SetAt(1, u'\u00F6');
        s.SetAt(0, 'A');
        s.SetAt(9, 'Z');
        EXPECT_EQ(U8(s), "A\xC3\xB6" "b") << e;
        EXPECT_EQ(s.GetLength(), 3);
    }
    EXPECT_EQ(UtCString(u"x", eUtEncodingTypeUtf8).uptr(), nullptr);
}

TEST(StringScratchBuffer, OneBlockPerStringUntilReleased) {
    UtCString s(eUtEncodingTypeUtf16);
    char* b = s.GetBuffer(10);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b[0], '\0');
    EXPECT_EQ(s.GetBuffer(10), nullptr) << "second block before release";
    std::strcpy(b, "ab\xE4");
    s.ReleaseBuffer(eUtEncodingTypeAnsi1252);
    EXPECT_EQ(s.GetUtf16String(), u"ab\u00E4");
    char16_t* w = s.GetUBuffer(4);
    ASSERT_NE(w, nullptr);
    w[0] = u'\u20AC';
    w[1] = 0;
    s.ReleaseUBuffer();
    EXPECT_EQ(s.GetUtf16String(), u"\u20AC");
    // Several strings hold blocks at once; an outstanding one goes with its string.
    UtCString other;
    ASSERT_NE(other.GetBuffer(1), nullptr);
    {
        UtCString dying;
        ASSERT_NE(dying.GetBuffer(100), nullptr);
    }
    other.ReleaseBuffer();
    EXPECT_TRUE(other.IsEmpty());
    {
        kbase_test::FailNthAllocation fail(1);
        EXPECT_EQ(s.GetBuffer(3), nullptr);
    }
    EXPECT_NE(s.GetBuffer(3), nullptr) << "a refused request leaves no stale block";
    s.ReleaseBuffer();
}

}  // namespace
