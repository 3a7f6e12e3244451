// Conversion of text that arrives in pieces, where to cut text for normalisation, and the list of
// code pages. The oracle is the one-shot conversion of the whole text.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "basert/codepage.h"
#include "test_support.h"

namespace {

struct Decoded {
    std::u16string text;
    int64_t firstBad = -1;
};

// Feeds bytes to a decoder in pieces of `piece` bytes, with room for `cap` units a call.
Decoded DecodeInPieces(unsigned short cp, const std::string& bytes, size_t piece, int64_t cap) {
    Decoded d;
    BrDecoder* decoder = BrDecoderOpen(cp);
    EXPECT_NE(decoder, nullptr) << cp;
    if (decoder == nullptr) return d;
    std::vector<char16_t> room(static_cast<size_t>(cap));
    for (size_t at = 0;;) {
        const size_t n = std::min(piece, bytes.size() - at);
        const bool last = at + n == bytes.size();
        for (size_t done = 0;;) {  // until a call leaves room: then nothing is held back
            int64_t read = 0, bad = -1;
            const int64_t got =
                BrDecode(decoder, bytes.data() + at + done, static_cast<int64_t>(n - done), last,
                         room.data(), cap, &read, &bad);
            EXPECT_GE(got, 0);
            if (got < 0) break;
            d.text.append(room.data(), static_cast<size_t>(got));
            if (d.firstBad < 0) d.firstBad = bad;
            done += static_cast<size_t>(read);
            if (done == n && got < cap) break;
        }
        at += n;
        if (last) break;
    }
    BrDecoderClose(decoder);
    return d;
}

std::u16string Whole(unsigned short cp, const std::string& bytes) {
    std::u16string out(bytes.size() + 8, u'\0');
    const int64_t n = BrMbToUtf16(cp, bytes.data(), static_cast<int64_t>(bytes.size()), out.data(),
                                  static_cast<int64_t>(out.size()));
    out.resize(n < 0 ? 0 : static_cast<size_t>(n));
    return out;
}

TEST(Decoder, PiecesGiveWhatTheWholeTextGives) {
    const struct {
        unsigned short cp;
        std::string bytes;
    } cases[] = {
        {932,
         "a\x93\xFA\x96\x7B\x8C\xEA"
         "b\x82\xA0"},  // Shift-JIS pairs
        {54936,
         "\x81\x30\x81\x30"
         "x\xB0\xA1\x95\x32\x82\x36"},                  // GB 18030: 4-byte forms
        {50220, "a\x1B$B$\"$$\x1B(Bb\x1B$B%\"\x1B(B"},  // stateful ISO-2022-JP
        {65000, "a+AOQA9g-b+2D3eAA-"},                  // stateful UTF-7
        {65001,
         "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"
         "z"},
        {12000, std::string("a\0\0\0\0\xF6\x01\0\xE4\0\0\0", 12)},
        {1252, std::string("\x80\x81\0\xFF"
                           "a",
                           5)},  // holes become C1 controls
    };
    for (const auto& c : cases) {
        if (kbase_test::SystemLacksCodePage(c.cp)) continue;
        const std::u16string whole = Whole(c.cp, c.bytes);
        ASSERT_FALSE(whole.empty()) << c.cp;
        for (size_t piece = 1; piece <= 6; ++piece) {
            for (const int64_t cap : {1, 2, 64}) {
                const Decoded d = DecodeInPieces(c.cp, c.bytes, piece, cap);
                EXPECT_EQ(d.text, whole) << c.cp << " in pieces of " << piece << ", room " << cap;
                EXPECT_EQ(d.firstBad, -1) << c.cp;
            }
        }
    }
}

TEST(Decoder, TheFirstBadSequenceIsNamedByItsOffsetFromTheFirstByte) {
    const struct {
        unsigned short cp;
        std::string bytes;
        int64_t offset;
    } cases[] = {
        {65001,
         "ab\xFF"
         "c\xFF",
         2},
        {65001, "ab\xE2\x82", 2},  // cut off by the end of the text
        {932, "ab\x81", 2},
        {932, "abc\x85\x40", 3},  // a pair no character has
        {1253, "ab\xD2", 2},
        {12000, std::string("a\0\0\0\0\0\x11\0", 8), 4},
        {54936, "xy\x81\x30", 2},
        // A four-byte form that fails at its last byte: the bytes after the lead are read again.
        {54936, std::string("\xA8\x36\xA8\xA8\xA8\xA8\0", 7), 0},
        {54936, "xyz\x81\x30\x81\xFF", 3},
    };
    for (const auto& c : cases) {
        if (kbase_test::SystemLacksCodePage(c.cp)) continue;
        for (size_t piece = 1; piece <= 4; ++piece) {
            const Decoded d = DecodeInPieces(c.cp, c.bytes, piece, 64);
            EXPECT_EQ(d.firstBad, c.offset) << c.cp << " in pieces of " << piece;
            EXPECT_EQ(d.text, Whole(c.cp, c.bytes)) << "replaced as in one piece";
        }
    }
}

TEST(Decoder, NoDecoderForUnknownPagesOrWithoutMemory) {
    EXPECT_EQ(BrDecoderOpen(12345), nullptr);
    EXPECT_EQ(BrDecoderOpen(1200), nullptr) << "UTF-16 is the caller's";
    BrDecoderClose(nullptr);
    for (const unsigned short cp : {1252, 932}) {
        EXPECT_TRUE(BrCodePageAvailable(cp));  // opened once, so only the decoder itself allocates
        kbase_test::FailNthAllocation fail(1);
        EXPECT_EQ(BrDecoderOpen(cp), nullptr) << cp;
    }
}

std::u16string Normalized(int form, const std::u16string& s) {
    std::u16string out(static_cast<size_t>(
                           BrNormalize(form, s.data(), static_cast<int64_t>(s.size()), nullptr, 0)),
                       u'\0');
    const int64_t n = BrNormalize(form, s.data(), static_cast<int64_t>(s.size()), out.data(),
                                  static_cast<int64_t>(out.size()));
    out.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return out;
}

TEST(Normalisation, ABoundarySplitsTextThatNormalisesApart) {
    const struct {
        int form;
        std::u16string text;
        int64_t boundary;
    } cases[] = {
        {1, u"ab\u0301", 1},  // the mark belongs to b
        {1, u"e\u0301", 0},   // none after the start
        {2, u"e\u0301\u0323", 0},
        {1, u"a\U0001F600", 1},    // before the pair, never inside it
        {1, u"x\u1100\u1161", 1},  // C joins the jamo into a syllable
        {2, u"x\u1100\u1161", 2},  // D leaves them apart
        {5, u"a\uFB01\u0301", 1},
        {3, u"abc", 0},  // no such form
        {1, u"", 0},
    };
    for (const auto& c : cases) {
        const int64_t n = static_cast<int64_t>(c.text.size());
        const int64_t k = BrNormalizeBoundary(c.form, c.text.data(), n);
        EXPECT_EQ(k, c.boundary) << "form " << c.form << " case " << (&c - cases);
        if (k > 0) {
            const auto k2 = static_cast<size_t>(k);
            EXPECT_EQ(
                Normalized(c.form, c.text.substr(0, k2)) + Normalized(c.form, c.text.substr(k2)),
                Normalized(c.form, c.text));
        }
    }
}

TEST(CodePageList, HoldsEveryConvertiblePageOnceInOrder) {
    const int64_t count = BrCodePageList(nullptr, 0);
#ifdef _WIN32
    ASSERT_GT(count, 50);  // the system's installed pages
#else
    ASSERT_GT(count, 100);
#endif
    std::vector<unsigned short> pages(static_cast<size_t>(count));
    EXPECT_EQ(BrCodePageList(pages.data(), count), count);
    for (size_t i = 0; i < pages.size(); ++i) {
        EXPECT_TRUE(BrCodePageAvailable(pages[i])) << pages[i];
        if (i > 0) {
            EXPECT_LT(pages[i - 1], pages[i]);
        }
    }
    const auto has = [&](unsigned short cp) {
        return std::find(pages.begin(), pages.end(), cp) != pages.end();
    };
    for (const unsigned short cp :
         {37, 437, 850, 932, 1250, 1252, 12000, 12001, 20127, 28591, 50220, 54936, 65001}) {
        if (kbase_test::SystemLacksCodePage(cp)) continue;
        EXPECT_TRUE(has(cp)) << cp;
    }
    EXPECT_FALSE(has(1200));
    EXPECT_FALSE(has(1201));
    unsigned short few[3] = {0, 0, 0};
    EXPECT_EQ(BrCodePageList(few, 2), count) << "the count, even when only cap were written";
    EXPECT_EQ(few[0], pages[0]);
    EXPECT_EQ(few[2], 0);
}

}  // namespace
