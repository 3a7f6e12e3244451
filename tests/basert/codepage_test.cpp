// Conversions are checked against glibc's iconv, an implementation independent of ICU, where it
// exists; on Windows the agreement test holds the tables that both back ends must give.
#include <gtest/gtest.h>

#if __has_include(<iconv.h>)
#include <iconv.h>
#define KBASE_HAVE_ICONV 1
#endif

#include <string>
#include <vector>

#include "basert/codepage.h"

namespace {

#ifdef KBASE_HAVE_ICONV
// Decodes bytes with iconv into UTF-16; false when iconv rejects them.
bool IconvDecode(const char* charset, const std::string& in, std::u16string& out) {
    iconv_t cd = iconv_open("UTF-16LE", charset);
    if (cd == reinterpret_cast<iconv_t>(-1)) return false;
    std::vector<char> buf(in.size() * 4 + 16);
    char* src = const_cast<char*>(in.data());
    size_t srcLeft = in.size();
    char* dst = buf.data();
    size_t dstLeft = buf.size();
    const size_t rc = iconv(cd, &src, &srcLeft, &dst, &dstLeft);
    iconv_close(cd);
    if (rc == static_cast<size_t>(-1) || srcLeft != 0) return false;
    const size_t bytes = buf.size() - dstLeft;
    out.assign(reinterpret_cast<const char16_t*>(buf.data()), bytes / 2);
    return true;
}

#endif

std::u16string Decode(unsigned short cp, const std::string& in, int64_t* replaced = nullptr) {
    std::u16string out(in.size() + 1, u'\0');
    const int64_t n = BrMbToUtf16(cp, in.data(), static_cast<int64_t>(in.size()), out.data(),
                                  static_cast<int64_t>(out.size()), replaced);
    EXPECT_GE(n, 0);
    out.resize(n < 0 ? 0 : static_cast<size_t>(n));
    return out;
}

std::string Encode(unsigned short cp, const std::u16string& in, int64_t* replaced = nullptr) {
    std::string out(in.size() * 4 + 1, '\0');
    const int64_t n = BrUtf16ToMb(cp, in.data(), static_cast<int64_t>(in.size()), out.data(),
                                  static_cast<int64_t>(out.size()), replaced);
    EXPECT_GE(n, 0);
    out.resize(n < 0 ? 0 : static_cast<size_t>(n));
    return out;
}

#ifdef KBASE_HAVE_ICONV
class SingleByteTable : public ::testing::TestWithParam<std::pair<unsigned short, const char*>> {};

TEST_P(SingleByteTable, EveryByteMatchesIconvAndRoundTrips) {
    const auto [cp, charset] = GetParam();
    ASSERT_TRUE(BrCodePageIsSingleByte(cp));
    int holes = 0;
    for (int b = 1; b < 256; ++b) {
        const std::string byte(1, static_cast<char>(b));
        int64_t replaced = -1;
        const std::u16string ours = Decode(cp, byte, &replaced);
        ASSERT_EQ(ours.size(), 1u);
        std::u16string ref;
        if (IconvDecode(charset, byte, ref)) {
            EXPECT_EQ(ours, ref) << "byte " << b;
            EXPECT_EQ(replaced, 0);
        } else {
            ++holes;  // unassigned in the page: the C1 control of the same value
            EXPECT_EQ(static_cast<int>(ours[0]), b) << "byte " << b;
        }
        EXPECT_EQ(Encode(cp, ours), byte) << "byte " << b << " must round-trip";
    }
    EXPECT_LT(holes, 8);
}

INSTANTIATE_TEST_SUITE_P(WindowsPages, SingleByteTable,
                         ::testing::Values(std::make_pair<unsigned short, const char*>(1252, "CP1252"),
                                           std::make_pair<unsigned short, const char*>(1250, "CP1250")),
                         [](const auto& p) { return std::string(p.param.second); });

TEST(CodePage932, SingleAndDoubleBytesMatchIconv) {
    ASSERT_TRUE(BrCodePageAvailable(932));
    EXPECT_FALSE(BrCodePageIsSingleByte(932));
    int compared = 0, mismatches = 0;
    auto check = [&](const std::string& bytes) {
        std::u16string ref;
        if (!IconvDecode("CP932", bytes, ref)) return;
        ++compared;
        int64_t replaced = 0;
        if (Decode(932, bytes, &replaced) != ref || replaced != 0) ++mismatches;
    };
    for (int b = 1; b < 0x100; ++b) check(std::string(1, static_cast<char>(b)));
    for (int lead = 0x81; lead <= 0xFC; ++lead) {
        if (lead > 0x9F && lead < 0xE0) continue;
        for (int trail = 0x40; trail <= 0xFC; ++trail) {
            if (trail == 0x7F) continue;
            check(std::string{static_cast<char>(lead), static_cast<char>(trail)});
        }
    }
    EXPECT_GT(compared, 7000);
    // The two tables differ only in a handful of vendor-extension duplicates.
    EXPECT_LT(mismatches, compared / 200) << mismatches << " of " << compared;
    const std::u16string kanji = u"\u65E5\u672C\u8A9E abc";
    EXPECT_EQ(Decode(932, Encode(932, kanji)), kanji);
}
#endif

// An independent UTF-8 encoder for the round trips below.
std::string Utf8Of(char32_t c) {
    std::string s;
    if (c < 0x80) {
        s += static_cast<char>(c);
    } else if (c < 0x800) {
        s += static_cast<char>(0xC0 | (c >> 6));
        s += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        s += static_cast<char>(0xE0 | (c >> 12));
        s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        s += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        s += static_cast<char>(0xF0 | (c >> 18));
        s += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        s += static_cast<char>(0x80 | (c & 0x3F));
    }
    return s;
}

TEST(Utf8, EveryBmpAndSampledSupplementaryCharacterRoundTrips) {
    std::u16string all;
    std::string allUtf8;
    for (char32_t c = 1; c < 0x10000; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF) continue;
        all += static_cast<char16_t>(c);
        allUtf8 += Utf8Of(c);
    }
    for (char32_t c = 0x10000; c <= 0x10FFFF; c += 97) {
        all += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
        all += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        allUtf8 += Utf8Of(c);
    }
    int64_t replaced = -1;
    EXPECT_EQ(Encode(kBrCodePageUtf8, all, &replaced), allUtf8);
    EXPECT_EQ(replaced, 0);
    EXPECT_EQ(Decode(kBrCodePageUtf8, allUtf8, &replaced), all);
    EXPECT_EQ(replaced, 0);
}

TEST(Conversion, ReplacementsAreCountedNeverSilent) {
    int64_t replaced = 0;
    EXPECT_EQ(Encode(1252, u"A\u0100B\u20AC", &replaced), "A?B\x80");
    EXPECT_EQ(replaced, 1);
    EXPECT_EQ(Encode(1252, u"x\U0001F600y", &replaced), "x?y") << "a pair is one character";
    EXPECT_EQ(replaced, 1);
    EXPECT_EQ(Encode(932, u"\u00C4", &replaced), "?");
    EXPECT_EQ(replaced, 1);
    EXPECT_EQ(Decode(kBrCodePageUtf8, "a\xFF" "b\xE2\x82", &replaced), u"a\uFFFDb\uFFFD");
    EXPECT_EQ(replaced, 2);
    EXPECT_EQ(Encode(kBrCodePageUtf8, std::u16string(1, u'\xD800') + u"z", &replaced), "\xEF\xBF\xBDz");
    EXPECT_EQ(replaced, 1);
}

TEST(Conversion, UnknownPagesAndShortBuffersAreRefused) {
    char16_t w[4];
    char b[4];
    EXPECT_FALSE(BrCodePageAvailable(12345));
    EXPECT_FALSE(BrCodePageAvailable(1200));
    EXPECT_TRUE(BrCodePageUnknown(12345));
    EXPECT_TRUE(BrCodePageUnknown(1200));
    EXPECT_FALSE(BrCodePageUnknown(1252));
    EXPECT_EQ(BrMbToUtf16(12345, "a", 1, w, 4), kBrConvUnknownCodePage);
    EXPECT_EQ(BrUtf16ToMb(12345, u"a", 1, b, 4), kBrConvUnknownCodePage);
    EXPECT_EQ(BrMbToUtf16(1252, "abcdef", 6, w, 4), kBrConvNoRoom);
    EXPECT_EQ(BrUtf16ToMb(1252, u"\u00E4\u00E4\u00E4\u00E4\u00E4", 5, b, 4), kBrConvNoRoom);
    EXPECT_EQ(BrUtf16ToMb(kBrCodePageUtf8, u"\u00E4\u00E4\u00E4", 3, b, 4), kBrConvNoRoom);
    EXPECT_EQ(BrCodePageMaxBytes(kBrCodePageUtf8), 3);
    EXPECT_EQ(BrCodePageMaxBytes(1252), 1);
    EXPECT_EQ(BrCodePageMaxBytes(932), 2);
    EXPECT_EQ(BrMbToUtf16(1252, "ab\0cd", -1, w, 4), 2) << "n < 0 stops at the NUL";
}

TEST(Normalisation, FormsComposeAndDecompose) {
    auto norm = [](int form, const std::u16string& s) {
        const int64_t cap = BrNormalize(form, s.data(), static_cast<int64_t>(s.size()), nullptr, 0);
        std::u16string out(static_cast<size_t>(cap), u'\0');
        const int64_t n = BrNormalize(form, s.data(), static_cast<int64_t>(s.size()), out.data(), cap);
        out.resize(n > 0 ? static_cast<size_t>(n) : 0);
        return out;
    };
    EXPECT_EQ(norm(1, u"e\u0301"), u"\u00E9");
    EXPECT_EQ(norm(2, u"\u00E9"), u"e\u0301");
    EXPECT_EQ(norm(5, u"\uFB01"), u"fi");
    EXPECT_EQ(norm(6, u"\u01C4"), u"DZ\u030C");
    EXPECT_EQ(norm(1, u"\uFB01"), u"\uFB01") << "C keeps compatibility characters";
    EXPECT_EQ(norm(3, u"abc"), u"");
    char16_t small[1];
    EXPECT_LT(BrNormalize(2, u"\u00E9", 1, small, 1), 0) << "too small: minus the size needed";
}

TEST(CaseAndClasses, FoldingAndClassesFollowTheCharacters) {
    EXPECT_EQ(BrWcsICmp(u"\u00C4rger", u"\u00E4RGER"), 0);
    EXPECT_LT(BrWcsICmp(u"abc", u"ABD"), 0);
    EXPECT_GT(BrWcsICmp(u"abcd", u"ABC"), 0);
    EXPECT_EQ(BrStrICmp(1252, "\xC4rger", "\xE4RGER"), 0);
    EXPECT_NE(BrStrICmp(932, "\x82\xA0", "\x82\xC0"), 0);
    EXPECT_EQ(BrStrICmp(932, "Abc", "aBC"), 0);

    std::u16string w = u"\u00C4b\u00DF";
    BrToUpperW(w.data(), 3);
    EXPECT_EQ(w, u"\u00C4B\u00DF") << "one unit to one unit: sharp s stays";
    char t[] = "\xE4x\xFF";
    BrToUpperCp(1252, t, 3);
    EXPECT_STREQ(t, "\xC4X\x9F") << "y-diaeresis has its capital at 0x9F in 1252";
    BrToLowerCp(1252, t, 3);
    EXPECT_STREQ(t, "\xE4x\xFF");

    EXPECT_TRUE(BrIsDigitW(u'7'));
    EXPECT_TRUE(BrIsDigitW(u'\u0663'));  // Arabic-Indic three
    EXPECT_FALSE(BrIsDigitW(u'\u00B2'));
    EXPECT_TRUE(BrIsSpaceW(u'\u3000'));
    EXPECT_TRUE(BrIsLetterW(u'\u00DF'));
    EXPECT_TRUE(BrIsLetterCp(1252, 0xDF));
    EXPECT_TRUE(BrIsSpaceCp(1252, '\t'));
    EXPECT_FALSE(BrIsDigitCp(932, 0x82)) << "a lead byte alone is no character";
    EXPECT_TRUE(BrIsDigitCp(932, '5'));
}

}  // namespace
