// The recode job streams: these tests cut the text at every place a block can end and hold the
// result against a conversion of the whole text at once (the conversion layer and the string
// class being the oracles).
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>

#include "basert/codepage.h"
#include "kbase/text/UtCString.h"
#include "test_support.h"
#include "tool_test_support.h"

namespace {

using kbase_tool::kExitContent;
using kbase_tool::kExitOk;
using kbase_tool::RecodeOptions;
using kbase_tool_test::Pipe;
using kbase_tool_test::RunRecode;

constexpr int64_t kWhole = int64_t{1} << 20;  // more than any text here
// Block sizes that put a boundary inside every sequence: 1..5 bytes, an odd and a round size.
constexpr int64_t kBlockSizes[] = {1, 2, 3, 4, 5, 7, 64, kWhole};

std::string Utf8(const std::u16string& text) {
    std::string out(text.size() * 3, '\0');
    const int64_t n = BrUtf16ToMb(65001, text.data(), static_cast<int64_t>(text.size()), out.data(),
                                  static_cast<int64_t>(out.size()));
    out.resize(static_cast<size_t>(n));
    return out;
}

// The whole text at once through the conversion layer: normalised (form as Windows numbers it, 0
// none), then encoded, '?' for what the page lacks.
std::string Oracle(const std::u16string& text, int to, int form) {
    std::u16string t = text;
    if (form != 0) {
        t.resize(static_cast<size_t>(
            BrNormalize(form, text.data(), static_cast<int64_t>(text.size()), nullptr, 0)));
        t.resize(
            static_cast<size_t>(BrNormalize(form, text.data(), static_cast<int64_t>(text.size()),
                                            t.data(), static_cast<int64_t>(t.size()))));
    }
    if (to == 1200 || to == 1201) {
        std::string b;
        for (const char16_t u : t) {
            const char hi = static_cast<char>(u >> 8), lo = static_cast<char>(u & 0xFF);
            b += to == 1200 ? std::string{lo, hi} : std::string{hi, lo};
        }
        return b;
    }
    std::string out(t.size() * 4 + 1, '\0');
    const int64_t n =
        BrUtf16ToMb(static_cast<unsigned short>(to), t.data(), static_cast<int64_t>(t.size()),
                    out.data(), static_cast<int64_t>(out.size()));
    out.resize(static_cast<size_t>(n));
    return out;
}

// Random text with what makes cutting hard: multi-byte sequences, surrogate pairs, combining marks
// (also several in a row, and before a starter that composes), Hangul, NUL, line ends.
std::u16string RandomText(size_t characters, unsigned seed) {
    static constexpr std::u16string_view kPieces[] = {u"a",
                                                      u"Z",
                                                      u" ",
                                                      u"\n",
                                                      u"\r\n",
                                                      u"\u00E4",
                                                      u"\u00DF",
                                                      u"\u20AC",
                                                      u"\u201C",
                                                      u"e\u0301",
                                                      u"o\u0308\u0323",
                                                      u"\u0301",
                                                      u"\u1E9B\u0323",
                                                      u"\uFB01",
                                                      u"\u65E5\u672C",
                                                      u"\uAC00",
                                                      u"\u1100\u1161",
                                                      u"\U0001F600",
                                                      u"\U00020000",
                                                      {u"\0", 1},
                                                      u"\u00C5",
                                                      u"A\u030A",
                                                      u"\u212B",
                                                      u"\uFF76\uFF9E"};
    std::mt19937 random(seed);
    std::uniform_int_distribution<size_t> pick(0, std::size(kPieces) - 1);
    std::u16string text;
    for (size_t i = 0; i < characters; ++i) text += kPieces[pick(random)];
    return text;
}

TEST(RecodeStream, NulIsTextInEveryEncoding) {
    const std::string nul(1, '\0');
    const struct {
        int from, to;
        std::string in, out;
    } cases[] = {
        {1252, 65001, "abc" + nul + "def\x80", "abc" + nul + "def\xE2\x82\xAC"},
        {65001, 1252, "a" + nul + "\xC3\xA4" + nul, "a" + nul + "\xE4" + nul},
        {65001, 65001, nul + nul, nul + nul},
        {1200, 65001, std::string("a\0\0\0b\0", 6), "a" + nul + "b"},
        {1201, 1252, std::string("\0\0\0\xE4", 4), nul + "\xE4"},
        {1252, 1200, nul, nul + nul},
        {1252, 12000, "a" + nul, std::string("a\0\0\0\0\0\0\0", 8)},
        {12001, 65001, std::string("\0\0\0a\0\0\0\0\0\x01\xF6\x00", 12),
         "a" + nul + "\xF0\x9F\x98\x80"},
        {1252, 932, "x" + nul + "y", "x" + nul + "y"},
    };
    for (const auto& c : cases) {
        for (const int64_t block : kBlockSizes) {
            const kbase_tool_test::RecodeRun r = RunRecode(Pipe(c.from, c.to, block), c.in);
            EXPECT_EQ(r.rc, kExitOk) << r.err;
            EXPECT_EQ(r.out, c.out) << c.from << " -> " << c.to << ", blocks of " << block;
        }
    }
}

TEST(RecodeStream, AMegabyteOfRandom1252BytesRoundTripsWhole) {
    std::mt19937 random(1252);
    std::string bytes(1 << 20, '\0');
    for (char& b : bytes) b = static_cast<char>(random() & 0xFF);
    const kbase_tool_test::RecodeRun there = RunRecode(Pipe(1252, 65001), bytes);
    ASSERT_EQ(there.rc, kExitOk) << there.err;
    std::u16string wide(bytes.size(), u'\0');
    ASSERT_EQ(BrMbToUtf16(1252, bytes.data(), static_cast<int64_t>(bytes.size()), wide.data(),
                          static_cast<int64_t>(wide.size())),
              static_cast<int64_t>(bytes.size()));
    EXPECT_EQ(there.out, Utf8(wide));
    const kbase_tool_test::RecodeRun back = RunRecode(Pipe(65001, 1252), there.out);
    ASSERT_EQ(back.rc, kExitOk) << back.err;
    EXPECT_TRUE(back.out == bytes) << "the round trip changed the bytes";
    // Through UTF-16 (another path) the result is the same.
    const kbase_tool_test::RecodeRun viaUtf16 = RunRecode(Pipe(1200, 1252), Oracle(wide, 1200, 0));
    EXPECT_TRUE(viaUtf16.out == bytes);
}

// The direct paths between 1252 and UTF-8 skip UTF-16; they must give the string class's bytes.
TEST(RecodeStream, DirectPathsGiveTheStringClassBytes) {
    for (int b = 1; b < 256; ++b) {
        const std::string byte(1, static_cast<char>(b));
        const UtCString s(byte.c_str(), eUtEncodingTypeAnsi1252, eUtEncodingTypeUtf8);
        const std::string utf8 = s.stringSkipBOM();
        EXPECT_EQ(RunRecode(Pipe(1252, 65001), byte).out, utf8) << "byte " << b;
        EXPECT_EQ(RunRecode(Pipe(65001, 1252), utf8).out, byte) << "byte " << b;
    }
    // Random text with characters 1252 lacks, with --replace: the string class writes '?' too.
    const std::u16string text = RandomText(20000, 7);
    std::u16string noNul = text;
    std::erase(noNul, u'\0');
    UtCString ansi(noNul, eUtEncodingTypeUtf16);
    ASSERT_TRUE(ansi.ToAnsi(eUtEncodingTypeAnsi1252));
    for (const int64_t block : kBlockSizes) {
        RecodeOptions o = Pipe(65001, 1252, block);
        o.replace = true;
        EXPECT_TRUE(RunRecode(o, Utf8(noNul)).out == ansi.ptr()) << "blocks of " << block;
        const UtCString utf8(ansi.ptr(), eUtEncodingTypeAnsi1252, eUtEncodingTypeUtf8);
        EXPECT_TRUE(RunRecode(Pipe(1252, 65001, block), ansi.ptr()).out == utf8.stringSkipBOM());
    }
}

TEST(RecodeStream, WhereABlockEndsNeverChangesTheResult) {
    const std::u16string text = RandomText(3000, 42);
    const std::string source = Utf8(text);
    const struct {
        int to;
        const char* form;
        int formNumber;
    } targets[] = {
        {65001, "", 0},  {65001, "C", 1}, {65001, "D", 2}, {65001, "KC", 5},
        {1200, "KD", 6}, {1201, "", 0},   {12000, "", 0},  {12001, "C", 1},
        {932, "C", 1},   {1252, "", 0},   {1252, "C", 1},  {54936, "", 0},
    };
    for (const auto& t : targets) {
        if (kbase_test::SystemLacksCodePage(t.to)) continue;
        const std::string expected = Oracle(text, t.to, t.formNumber);
        for (const int64_t block : kBlockSizes) {
            RecodeOptions o = Pipe(65001, t.to, block);
            o.normalize = t.form;
            o.replace = true;
            const kbase_tool_test::RecodeRun r = RunRecode(o, source);
            EXPECT_EQ(r.rc, kExitOk) << r.err;
            EXPECT_TRUE(r.out == expected)
                << "to " << t.to << " form '" << t.form << "' blocks of " << block;
        }
    }
    // Sources that need a decoder which keeps a cut sequence (or a shift state) between blocks.
    for (const int from : {1200, 1201, 12000, 12001, 932, 54936, 50220}) {
        if (kbase_test::SystemLacksCodePage(from)) continue;
        const std::string encoded = Oracle(text, from, 0);
        std::string whole;
        for (const int64_t block : kBlockSizes) {
            const kbase_tool_test::RecodeRun r = RunRecode(Pipe(from, 65001, block), encoded);
            EXPECT_EQ(r.rc, kExitOk) << from << ": " << r.err;
            if (block == 1) whole = r.out;
            EXPECT_TRUE(r.out == whole) << "from " << from << " blocks of " << block;
        }
        // The Unicode encodings and GB 18030 hold every character; the Japanese pages got '?'s.
        if (from != 932 && from != 50220) {
            EXPECT_TRUE(whole == source) << from << " is lossless";
        }
    }
}

TEST(RecodeStream, MalformedInputIsNamedWithItsByteOffset) {
    const struct {
        int from;
        std::string in;
        int64_t offset;
        const char* what;
    } cases[] = {
        {65001, "ab\xC3(", 2, "malformed UTF-8"},
        {65001,
         "\xEF\xBB\xBF"
         "a\xFF",
         4, "malformed UTF-8"},                             // the mark counts
        {65001, "a\xE2\x82", 1, "malformed UTF-8"},         // cut off at the end
        {65001, "\xED\xA0\x80", 0, "malformed UTF-8"},      // an encoded surrogate
        {65001, "\xC0\xAF", 0, "malformed UTF-8"},          // overlong
        {65001, "\xF4\x90\x80\x80", 0, "malformed UTF-8"},  // above U+10FFFF
        {65001, std::string(63, 'a') + "\xC3\xA4" + std::string(70, 'b') + "\xC3", 135,
         "malformed UTF-8"},
        {65001,
         std::string(63, 'a') + "\xC3\xA4" + std::string(10, 'b') + "\xFF" + std::string(99, 'c'),
         75, "malformed UTF-8"},
        {1200,
         std::string("a\0\x00\xD8"
                     "b\0",
                     6),
         2, "unpaired surrogate"},
        {1200, std::string("a\0b\0\x00\xDC", 6), 4, "unpaired surrogate"},
        {1201, std::string("\xD8\x00", 2), 0, "unpaired surrogate"},  // cut off at the end
        {1200,
         std::string("\xFF\xFE"
                     "a\0\x00\xD8",
                     6),
         4, "unpaired surrogate"},
        {1200, "abc", 2, "odd number of bytes"},
        {12000, std::string("a\0\0\0\0\0\x11\0", 8), 4, "malformed or unassigned"},
        {12001, std::string("\0\0\xD8\0", 4), 0, "malformed or unassigned"},
        {932, "ab\x81", 2, "malformed or unassigned"},
        {1253, "a\xD2", 1, "does not assign"},
    };
    for (const auto& c : cases) {
        for (const int64_t block : kBlockSizes) {
            const kbase_tool_test::RecodeRun r =
                RunRecode(Pipe(c.from, c.from == 1253 ? 65001 : 1200, block), c.in);
            EXPECT_EQ(r.rc, kExitContent) << c.from << ", blocks of " << block;
            const std::string where = "at byte offset " + std::to_string(c.offset) + "\n";
            EXPECT_NE(r.err.find(where), std::string::npos) << r.err << " (wanted " << where << ")";
            EXPECT_NE(r.err.find(c.what), std::string::npos) << r.err;
            EXPECT_NE(r.err.find("not valid text in code page " + std::to_string(c.from)),
                      std::string::npos);
        }
    }
    // Random bytes as UTF-16 are malformed input, not characters a target lacks.
    std::mt19937 random(16);
    std::string noise(4096, '\0');
    for (char& b : noise) b = static_cast<char>(random());
    for (const int from : {1200, 1201}) {
        const kbase_tool_test::RecodeRun r = RunRecode(Pipe(from, 1252), noise);
        EXPECT_EQ(r.rc, kExitContent);
        EXPECT_NE(r.err.find("unpaired surrogate at byte offset"), std::string::npos) << r.err;
    }
}

TEST(RecodeStream, CharactersTheTargetLacksAreNamedWithLineAndColumn) {
    const struct {
        int from, to;
        std::string in;
        const char* where;
    } cases[] = {
        {65001, 1252, "ok\n\xC4\x80", "line 2, column 1: U+0100 '\xC4\x80'"},
        {65001, 1252, "\xEF\xBF\xBE", "line 1, column 1: U+FFFE"},
        {65001, 1252, "a\xF0\x9F\x98\x80", "line 1, column 2: U+1F600"},
        {65001, 932, "x\n\n\xE6\x97\xA5\xC3\xA4", "line 3, column 2: U+00E4"},
        {1200, 1252, std::string("\n\0\xAC\x20\x01\x01", 6), "line 2, column 2: U+0101"},
        {65001, 20127, "\x7F\xC3\xA4", "line 1, column 2: U+00E4"},
        {65001, 1252,
         std::string(5000, 'x') + "\n" + std::string(3000, 'y') + "\xE2\x82\xAC\xC5\x81",
         "line 2, column 3002: U+0141"},
    };
    for (const auto& c : cases) {
        for (const int64_t block : kBlockSizes) {
            const kbase_tool_test::RecodeRun r = RunRecode(Pipe(c.from, c.to, block), c.in);
            EXPECT_EQ(r.rc, kExitContent) << r.err;
            EXPECT_NE(r.err.find(c.where), std::string::npos)
                << r.err << " (wanted " << c.where << ")";
            EXPECT_NE(r.err.find("cannot be represented in code page " + std::to_string(c.to)),
                      std::string::npos);
        }
    }
    RecodeOptions o = Pipe(65001, 1252, 1);
    o.replace = true;
    EXPECT_EQ(RunRecode(o, "\xEF\xBF\xBE|\xF0\x9F\x98\x80|\xC3\xA4").out, "?|?|\xE4")
        << "one '?' a character";
}

TEST(RecodeStream, MarksDecideTheSourceAndAreNoText) {
    const std::string le = "\xFF\xFE", be = "\xFE\xFF";
    const struct {
        int from, to;
        bool mark;
        std::string in, out;
    } cases[] = {
        {0, 1252, false, "\xEF\xBB\xBF\xC3\xA4", "\xE4"},
        {0, 65001, false, le + std::string("\xE4\0", 2), "\xC3\xA4"},
        {0, 65001, false, be + std::string("\0\xE4", 2), "\xC3\xA4"},
        {0, 65001, false, "\xE4", "\xC3\xA4"},  // no mark: the system's 1252
        {65001, 65001, false,
         "\xEF\xBB\xBF"
         "a",
         "a"},
        {65001, 65001, true,
         "\xEF\xBB\xBF"
         "a",
         "\xEF\xBB\xBF"
         "a"},
        {1252, 65001, false, "\xEF\xBB\xBF", "\xC3\xAF\xC2\xBB\xC2\xBF"},  // not a mark in 1252
        {1200, 65001, false, be + std::string("\0a", 2), "a"},             // the mark's order wins
        {1201, 65001, false, le + std::string("a\0", 2), "a"},
        {1200, 65001, false, le + le, "\xEF\xBB\xBF"},  // only the first is a mark
        {12000, 65001, false, std::string("\0\0\xFE\xFF\0\0\0a", 8), "a"},
        {12001, 65001, false, std::string("\0\0\xFE\xFF\0\0\0a", 8), "a"},
        {1252, 1200, true, "a", le + std::string("a\0", 2)},
        {1252, 1201, true, "a", be + std::string("\0a", 2)},
        {1252, 12000, true, "", std::string("\xFF\xFE\0\0", 4)},
        {1252, 12001, true, "a", std::string("\0\0\xFE\xFF\0\0\0a", 8)},
        {1252, 28591, true, "a", "a"},  // no mark in a code page
    };
    for (const auto& c : cases) {
        for (const int64_t block : {int64_t{1}, int64_t{3}, kWhole}) {
            RecodeOptions o = Pipe(c.from, c.to, block);
            o.mark = c.mark;
            const kbase_tool_test::RecodeRun r = RunRecode(o, c.in);
            EXPECT_EQ(r.rc, kExitOk) << r.err;
            EXPECT_TRUE(r.out == c.out) << c.from << " -> " << c.to << " blocks of " << block;
        }
    }
}

}  // namespace
