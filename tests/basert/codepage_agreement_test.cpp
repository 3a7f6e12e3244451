// The two back ends of the code-page layer give the same results: every byte of every single-byte
// code page, a sample of the double-byte pages, the normalisation forms of a corpus and the case
// mapping of the Windows Latin pages are held in codepage_reference.txt, recorded from the ICU back
// end. On POSIX the ICU back end must still give exactly the reference (so it never goes stale);
// on Windows the Win32 back end is compared with it, and every difference found is printed, the
// known ones with the header that documents them; an unknown difference fails.
//
// Regenerate the reference after a deliberate change (ICU back end only):
//   KBASE_REGENERATE_REFERENCE=1 KBASE_SOURCE_DIR=$PWD build/dev/tests/basert/basert_tests
//   --gtest_filter='CodePageAgreement.*'   (then review the diff of codepage_reference.txt)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "basert/codepage.h"

namespace {

// Double-byte pages: every single byte and every trail byte after these lead bytes (kana, kanji
// levels 1 and 2, the vendor rows of Shift-JIS; hanzi, hangul and hanja rows of the others).
struct Sample {
    unsigned short page;
    std::vector<int> leads;
};
const std::vector<Sample> kDoubleByteSamples = {
    {932, {0x81, 0x82, 0x83, 0x88, 0x98, 0xEA, 0x87, 0xED, 0xFA, 0xFC}},
    {936, {0x81, 0xA1, 0xA4, 0xB0, 0xD7, 0xF7, 0xFE}},
    {949, {0x81, 0xA1, 0xA4, 0xB0, 0xC8, 0xCA, 0xFD}},
    {950, {0xA1, 0xA4, 0xC6, 0xC9, 0xF9}},
};
// Case mapping and comparison are recorded for the pages whose letters users compare most.
const std::vector<unsigned short> kCasePages = {1250, 1251, 1252};

// Text to normalise: German, French, Polish, Czech and Japanese, decomposed and precomposed, with
// marks out of canonical order, compatibility characters, and one ill-formed text (a lone
// surrogate), which both must refuse.
const std::vector<std::u16string> kCorpus = {
    u"Stra\u00DFe, M\u00FCller, \u00C4rger, \u00D6l, gr\u00FC\u00DFen",
    u"Mu\u0308ller A\u0308rger O\u0308l u\u0308ber",
    u"\u00E9t\u00E9 \u00E0 l'h\u00F4pital, No\u00EBl, na\u00EFve, gar\u00E7on, \u0152uvre",
    u"e\u0301te\u0301 a\u0300 l'ho\u0302pital, c\u0327a, \u0153uvre",
    u"Za\u017C\u00F3\u0142\u0107 g\u0119\u015Bl\u0105 ja\u017A\u0144, \u0141\u00F3d\u017A",
    u"Z\u0307o\u0301\u0142c\u0301 e\u0328 s\u0301 a\u0328 z\u0301 n\u0301",
    u"P\u0159\u00EDli\u0161 \u017Elu\u0165ou\u010Dk\u00FD k\u016F\u0148 \u00FAp\u011Bl "
    u"\u010F\u00E1belsk\u00E9 \u00F3dy",
    u"r\u030Ce\u030C u\u030A d\u030C",
    u"\u65E5\u672C\u8A9E\u306E\u30C6\u30AD\u30B9\u30C8\u3002\u304C\u304E\u3050\u30D1\u30D4",
    u"\u304B\u3099\u304D\u3099\u30CF\u309A\u30D2\u309A",
    u"\uFF76\uFF9E\uFF8A\uFF9F\uFF71\uFF72 \uFF21\uFF22\uFF23\uFF11\uFF12\uFF13 "
    u"\u3000\u2460\u3231\u3300",
    u"a\u0323\u0307 a\u0307\u0323 q\u0307\u0323 \u1E0B\u0323 \u1E0D\u0307",
    u"\u212B \u212A \u2126 A\u030A \u00C5 \uFB01 \uFB03 x\u00B2 H\u2082O \u2153 \u00BD",
    u"\u0041\u0301\u0302\u0303\u0304 \u01D5 U\u0308\u0304 \u1EA0\u0306 \u1EB6",
    u"\U0001D400 \U0002F800 \u0958 \u2000\u2001",
    std::u16string{u'A', char16_t{0xD800}, u'B'},
};
constexpr int kForms[] = {1, 2, 5, 6};

std::string Hex(unsigned v, int width) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%0*X", width, v);
    return buf;
}

// One conversion result as the reference writes it: the units in hex joined by '.', and "!n"
// when n sequences were replaced ("-" for no output).
std::string Entry(const std::u16string& units, int64_t replaced) {
    std::string s;
    for (const char16_t u : units) s += (s.empty() ? "" : ".") + Hex(u, 4);
    if (s.empty()) s = "-";
    if (replaced != 0) s += "!" + std::to_string(replaced);
    return s;
}

std::string DecodeEntry(unsigned short page, const std::string& bytes) {
    std::u16string out(bytes.size() * 2 + 4, u'\0');
    int64_t replaced = 0;
    const int64_t n = BrMbToUtf16(page, bytes.data(), static_cast<int64_t>(bytes.size()),
                                  out.data(), static_cast<int64_t>(out.size()), &replaced);
    if (n < 0) return "error" + std::to_string(n);
    out.resize(static_cast<size_t>(n));
    return Entry(out, replaced);
}

std::string NormalizeEntry(int form, const std::u16string& text) {
    const auto n = static_cast<int64_t>(text.size());
    const int64_t need = BrNormalize(form, text.data(), n, nullptr, 0);
    std::u16string out(static_cast<size_t>(need > 0 ? need : 1), u'\0');
    const int64_t got = BrNormalize(form, text.data(), n, out.data(), need);
    if (got < 0) return "short" + std::to_string(got);
    out.resize(static_cast<size_t>(got));
    return Entry(out, 0);
}

// What the back end in use says, in the reference's lines, keyed by their first words.
using Lines = std::map<std::string, std::string>;

std::vector<unsigned short> SingleBytePages() {
    std::vector<unsigned short> all(static_cast<size_t>(BrCodePageList(nullptr, 0)));
    BrCodePageList(all.data(), static_cast<int64_t>(all.size()));
    std::vector<unsigned short> single;
    for (const unsigned short page : all) {
        if (BrCodePageIsSingleByte(page)) single.push_back(page);
    }
    return single;
}

// Rows where every byte stands for the unit of the same number are left out.
void DescribeBytes(unsigned short page, const std::string& key, Lines& lines) {
    lines[key + "page"] = "present";
    for (int row = 0; row < 256; row += 16) {
        std::string line, identity;
        for (int b = row; b < row + 16; ++b) {
            line += (b == row ? "" : " ") + DecodeEntry(page, std::string(1, static_cast<char>(b)));
            identity += (b == row ? "" : " ") + Hex(static_cast<unsigned>(b), 4);
        }
        if (line != identity) lines[key + Hex(static_cast<unsigned>(row), 2)] = line;
    }
}

void DescribeSingleBytePage(unsigned short page, Lines& lines) {
    DescribeBytes(page, "sb " + std::to_string(page) + " ", lines);
}

void DescribeDoubleBytePage(const Sample& s, Lines& lines) {
    const std::string key = "db " + std::to_string(s.page) + " ";
    DescribeBytes(s.page, key, lines);
    for (const int lead : s.leads) {
        for (int row = 0x40; row < 0x100; row += 16) {
            std::string line;
            for (int t = row; t < row + 16; ++t) {
                const std::string bytes{static_cast<char>(lead), static_cast<char>(t)};
                line += (t == row ? "" : " ") + DecodeEntry(s.page, bytes);
            }
            lines[key + Hex(static_cast<unsigned>(lead), 2) + Hex(static_cast<unsigned>(row), 2)] =
                line;
        }
    }
}

// For each byte whose case differs: the lowered and uppered byte, and the lowered and uppered
// unit of the character it stands for.
void DescribeCase(unsigned short page, Lines& lines) {
    for (int b = 1; b < 256; ++b) {
        char lo = static_cast<char>(b), up = static_cast<char>(b);
        BrToLowerCp(page, &lo, 1);
        BrToUpperCp(page, &up, 1);
        char16_t u = 0;
        const char byte = static_cast<char>(b);
        BrMbToUtf16(page, &byte, 1, &u, 1);
        char16_t ulo = u, uup = u;
        BrToLowerW(&ulo, 1);
        BrToUpperW(&uup, 1);
        if (lo == byte && up == byte && ulo == u && uup == u) continue;
        lines["case " + std::to_string(page) + " " + Hex(static_cast<unsigned>(b), 2)] =
            Hex(static_cast<unsigned char>(lo), 2) + " " + Hex(static_cast<unsigned char>(up), 2) +
            " " + Hex(ulo, 4) + " " + Hex(uup, 4);
    }
}

Lines DescribeBackEnd() {
    Lines lines;
    for (const unsigned short page : SingleBytePages()) DescribeSingleBytePage(page, lines);
    for (const Sample& s : kDoubleByteSamples) {
        if (BrCodePageAvailable(s.page)) DescribeDoubleBytePage(s, lines);
    }
    for (const unsigned short page : kCasePages) DescribeCase(page, lines);
    for (size_t i = 0; i < kCorpus.size(); ++i) {
        for (const int form : kForms) {
            lines["norm " + std::to_string(form) + " " + std::to_string(i)] =
                NormalizeEntry(form, kCorpus[i]);
        }
    }
    return lines;
}

std::string ReferencePath() {
    const char* dir = std::getenv("KBASE_SOURCE_DIR");
    return std::string(dir != nullptr ? dir : ".") + "/tests/basert/codepage_reference.txt";
}

// A line is "<kind> <page or form> <where> <value...>"; the first three words are its key.
Lines ReadReference() {
    Lines lines;
    std::ifstream in(ReferencePath(), std::ios::binary);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        size_t cut = 0;
        for (int words = 0; words < 3 && cut != std::string::npos; ++words) {
            cut = line.find(' ', cut + (words == 0 ? 0 : 1));
        }
        if (cut == std::string::npos) continue;
        lines[line.substr(0, cut)] = line.substr(cut + 1);
    }
    return lines;
}

#ifndef _WIN32  // the reference is what ICU gives
void WriteReference(const Lines& lines) {
    std::ofstream out(ReferencePath(), std::ios::binary | std::ios::trunc);
    out << "# What the ICU back end gives, written by codepage_agreement_test.cpp "
           "(KBASE_REGENERATE_REFERENCE=1).\n"
           "# sb PAGE ROW: bytes ROW..ROW+15 alone; db PAGE [LEAD]ROW: likewise, after LEAD;\n"
           "# each entry is the UTF-16 units ('.' between), '!n' when n were replaced.\n"
           "# case PAGE BYTE: lowered and uppered byte, lowered and uppered unit.\n"
           "# norm FORM TEXT: the corpus text normalised.\n";
    for (const auto& [key, value] : lines) out << key << ' ' << value << '\n';
}
#endif

// A difference the Win32 back end is known to have, and the header that tells users of it. A key
// may hold '*', which stands for any run of characters.
struct Known {
    const char* key;
    const char* documented;
};
#ifdef _WIN32
constexpr const char* kPages = "basert/codepage.h: which pages exist";
constexpr const char* kTables = "basert/codepage.h: the mapping tables are each system's own";
constexpr const char* kCase = "basert/codepage.h: case mapping is that of the invariant locale";
const std::vector<Known> kKnown = {
    {"sb * page", kPages},    {"db * page", kPages},    {"case * B5", kCase},
    {"db 932 80", kTables},   {"db 936 *F0", kTables},  {"db 949 *F0", kTables},
    {"db 950 *F0", kTables},  {"sb 437 E0", kTables},   {"sb 852 A0", kTables},
    {"sb 860 E0", kTables},   {"sb 861 E0", kTables},   {"sb 862 E0", kTables},
    {"sb 863 E0", kTables},   {"sb 865 E0", kTables},   {"sb 864 90", kTables},
    {"sb 864 D0", kTables},   {"sb 864 F0", kTables},   {"sb 869 80", kTables},
    {"sb 869 E0", kTables},   {"sb 874 D0", kTables},   {"sb 874 F0", kTables},
    {"sb 1026 90", kTables},  {"sb 1253 A0", kTables},  {"sb 1255 C0", kTables},
    {"sb 10000 B0", kTables}, {"sb 10000 F0", kTables}, {"sb 10006 90", kTables},
    {"sb 10006 A0", kTables}, {"sb 10006 F0", kTables}, {"sb 10007 A0", kTables},
    {"sb 10007 B0", kTables}, {"sb 10007 F0", kTables}, {"sb 10081 B0", kTables},
    {"sb 10081 F0", kTables}, {"sb 21866 A0", kTables}, {"sb 21866 B0", kTables},
    {"sb 28597 A0", kTables}, {"sb 28598 A0", kTables}, {"sb 28598 F0", kTables},
};
#else
const std::vector<Known> kKnown = {};  // the ICU back end is the reference: no difference at all
#endif

bool Matches(const char* pattern, const char* text) {
    if (*pattern == '\0') return *text == '\0';
    if (*pattern == '*')
        return Matches(pattern + 1, text) || (*text != '\0' && Matches(pattern, text + 1));
    return *pattern == *text && Matches(pattern + 1, text + 1);
}

const Known* FindKnown(const std::string& key) {
    for (const Known& k : kKnown) {
        if (Matches(k.key, key.c_str())) return &k;
    }
    return nullptr;
}

// The page a line belongs to ("sb 1252 "), or the line's key.
std::string PageOf(const std::string& key) {
    return key.compare(0, 3, "sb ") == 0 || key.compare(0, 3, "db ") == 0
               ? key.substr(0, key.find(' ', 3) + 1)
               : key;
}

// Every line where the back end in use and the reference differ, one per difference; a page that
// only one side has is one difference.
std::vector<std::string> Compare(const Lines& reference, const Lines& here) {
    std::vector<std::string> out;
    const auto absent = [](const Lines& lines, const std::string& key) {
        const std::string page = PageOf(key);
        return page != key && lines.count(page + "page") == 0;
    };
    for (const auto& [key, value] : reference) {
        const auto it = here.find(key);
        if (absent(here, key)) {
            if (key == PageOf(key) + "page") out.push_back(key + ": missing here");
        } else if (it == here.end()) {
            out.push_back(key + ": missing here (reference " + value + ")");
        } else if (it->second != value) {
            out.push_back(key + ": " + it->second + " here, " + value + " in the reference");
        }
    }
    for (const auto& [key, value] : here) {
        if (absent(reference, key)) {
            if (key == PageOf(key) + "page") out.push_back(key + ": only here");
        } else if (reference.count(key) == 0) {
            out.push_back(key + ": only here (" + value + ")");
        }
    }
    return out;
}

TEST(CodePageAgreement, BackEndGivesTheRecordedReference) {
    const Lines here = DescribeBackEnd();
#ifndef _WIN32
    if (std::getenv("KBASE_REGENERATE_REFERENCE") != nullptr) {
        WriteReference(here);
        GTEST_SKIP() << "reference written to " << ReferencePath();
    }
#endif
    const Lines reference = ReadReference();
    ASSERT_GT(reference.size(), 1000u) << "cannot read " << ReferencePath();
    std::string report, unknown;
    for (const std::string& difference : Compare(reference, here)) {
        const Known* known = FindKnown(difference.substr(0, difference.find(':')));
        report += difference + " [" + (known != nullptr ? known->documented : "UNKNOWN") + "]\n";
        if (known == nullptr) unknown += difference + "\n";
    }
    std::cout << (report.empty() ? "no difference from the reference\n" : report);
    ::testing::Test::RecordProperty("differences", report);
    EXPECT_EQ(unknown, "") << "differences that no header tells of";
}

// Unicode -> page, on the back end in use: every BMP character goes to the lowest byte that
// stands for it, unreplaced, and every other one to '?', counted once; a surrogate pair is one
// character, a lone surrogate one '?'.
TEST(CodePageAgreement, EveryCharacterGoesToItsByteOrToAQuestionMark) {
    std::u16string bmp;
    for (unsigned u = 1; u < 0x10000; ++u) {
        if (u < 0xD800 || u > 0xDFFF) bmp += static_cast<char16_t>(u);
    }
    for (const unsigned short page : SingleBytePages()) {
        SCOPED_TRACE(page);
        std::u16string forward(256, u'\0');
        std::string all;
        for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
        ASSERT_EQ(BrMbToUtf16(page, all.data(), 256, forward.data(), 256), 256);
        std::vector<int> lowest(65536, -1);
        for (int b = 255; b >= 0; --b) {
            if (forward[static_cast<size_t>(b)] != u'\uFFFD')
                lowest[forward[static_cast<size_t>(b)]] = b;
        }
        std::string out(bmp.size(), '\0');
        int64_t replaced = 0;
        ASSERT_EQ(BrUtf16ToMb(page, bmp.data(), static_cast<int64_t>(bmp.size()), out.data(),
                              static_cast<int64_t>(out.size()), &replaced),
                  static_cast<int64_t>(bmp.size()));
        int64_t unmapped = 0;
        int wrong = 0;
        for (size_t i = 0; i < bmp.size(); ++i) {
            const int byte = lowest[bmp[i]];
            const int expected = byte >= 0 ? byte : '?';
            unmapped += byte < 0;
            if (static_cast<unsigned char>(out[i]) != expected && ++wrong <= 3) {
                ADD_FAILURE() << "U+" << Hex(bmp[i], 4) << " gave "
                              << Hex(static_cast<unsigned char>(out[i]), 2) << ", expected "
                              << Hex(static_cast<unsigned>(expected), 2);
            }
        }
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(replaced, unmapped);
        // Lone surrogates and a pair between bars: one '?' each.
        const std::u16string odd{char16_t{0xD800}, u'|', char16_t{0xDC00}, u'|', char16_t{0xD83D},
                                 char16_t{0xDE00}};
        const int bar = lowest[u'|'];
        const char barByte = bar >= 0 ? static_cast<char>(bar) : '?';
        char oddOut[8];
        ASSERT_EQ(BrUtf16ToMb(page, odd.data(), 6, oddOut, 8, &replaced), 5);
        EXPECT_EQ(std::string(oddOut, 5), (std::string{'?', barByte, '?', barByte, '?'}));
        EXPECT_EQ(replaced, bar >= 0 ? 3 : 5);
    }
}

// The double-byte samples back: a character that a sequence stands for converts to a sequence
// that stands for it again, unreplaced.
TEST(CodePageAgreement, SampledDoubleByteCharactersRoundTrip) {
    for (const Sample& s : kDoubleByteSamples) {
        if (!BrCodePageAvailable(s.page)) continue;
        SCOPED_TRACE(s.page);
        for (const int lead : s.leads) {
            for (int t = 0x40; t < 0x100; ++t) {
                const char bytes[2] = {static_cast<char>(lead), static_cast<char>(t)};
                char16_t u[4];
                int64_t replaced = 0;
                if (BrMbToUtf16(s.page, bytes, 2, u, 4, &replaced) != 1 || replaced != 0) continue;
                char back[8];
                const int64_t n = BrUtf16ToMb(s.page, u, 1, back, 8, &replaced);
                ASSERT_GT(n, 0);
                EXPECT_EQ(replaced, 0)
                    << Hex(static_cast<unsigned>(lead), 2) << Hex(static_cast<unsigned>(t), 2);
                char16_t again[4];
                EXPECT_EQ(BrMbToUtf16(s.page, back, n, again, 4), 1);
                EXPECT_EQ(again[0], u[0])
                    << Hex(static_cast<unsigned>(lead), 2) << Hex(static_cast<unsigned>(t), 2);
            }
        }
    }
}

// Case-insensitive comparison of the letters of the Latin pages follows the recorded lowered
// bytes and units, pair by pair, on both back ends.
TEST(CodePageAgreement, CaseInsensitiveComparisonFollowsTheRecordedCase) {
    const Lines reference = ReadReference();
    ASSERT_FALSE(reference.empty()) << "cannot read " << ReferencePath();
    for (const unsigned short page : kCasePages) {
        SCOPED_TRACE(page);
        std::vector<int> lowByte(256);
        std::vector<unsigned> lowUnit(256);
        for (int b = 0; b < 256; ++b) {
            const char byte = static_cast<char>(b);
            char16_t u = 0;
            BrMbToUtf16(page, &byte, 1, &u, 1);
            lowByte[static_cast<size_t>(b)] = b;
            lowUnit[static_cast<size_t>(b)] = u;
            const auto it = reference.find("case " + std::to_string(page) + " " +
                                           Hex(static_cast<unsigned>(b), 2));
            if (it == reference.end()) continue;
            std::istringstream fields(it->second);
            std::string lo, up, ulo;
            fields >> lo >> up >> ulo;
            lowByte[static_cast<size_t>(b)] = std::stoi(lo, nullptr, 16);
            lowUnit[static_cast<size_t>(b)] = static_cast<unsigned>(std::stoul(ulo, nullptr, 16));
        }
        const auto sign = [](long v) { return v < 0 ? -1 : v > 0 ? 1 : 0; };
        int wrong = 0;
        for (int a = 1; a < 256; ++a) {
            for (int b = 1; b < 256; ++b) {
                const char ta[2] = {static_cast<char>(a), 0}, tb[2] = {static_cast<char>(b), 0};
                const int bytes = sign(BrStrICmp(page, ta, tb));
                char16_t wa[2] = {0, 0}, wb[2] = {0, 0};
                BrMbToUtf16(page, ta, 1, wa, 1);
                BrMbToUtf16(page, tb, 1, wb, 1);
                const int units = sign(BrWcsICmp(wa, wb));
                const int wantBytes =
                    sign(lowByte[static_cast<size_t>(a)] - lowByte[static_cast<size_t>(b)]);
                const int wantUnits = sign(static_cast<long>(lowUnit[static_cast<size_t>(a)]) -
                                           static_cast<long>(lowUnit[static_cast<size_t>(b)]));
                if ((bytes != wantBytes || units != wantUnits) && ++wrong <= 5) {
                    ADD_FAILURE() << Hex(static_cast<unsigned>(a), 2) << " vs "
                                  << Hex(static_cast<unsigned>(b), 2) << ": " << bytes << "/"
                                  << units << ", recorded " << wantBytes << "/" << wantUnits;
                }
            }
        }
        EXPECT_EQ(wrong, 0);
    }
}

}  // namespace
