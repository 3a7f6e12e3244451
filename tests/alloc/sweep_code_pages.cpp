// Sweep scenarios of the code-page layer; alloc_sweep_test.cpp runs them. Where the code pages are
// ICU's, its heap joins the sweep (alloc_sweep.h).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <new>
#include <string>

#include "alloc_sweep.h"
#include "basert/codepage.h"
#include "kbase/text/UtCString.h"
#include "sweep_scenarios.h"

namespace {

using kbase_test::SweepPoint;
using kbase_test::Threw;

using kbase_test::kU8;
const eUtEncodingType kU16 = eUtEncodingTypeUtf16;
const auto kShiftJis = static_cast<eUtEncodingType>(932);

// Pages no other scenario opens, single- and multi-byte. An opened page is kept for the life of
// the process, so each run of the opening sweep takes the next one.
constexpr unsigned short kFreshPages[] = {
    437,   936,   737,   949,   775,   950,   850,   51932, 852,   51949, 855,   54936, 857,
    860,   861,   862,   863,   864,   865,   866,   869,   874,   1250,  1251,  1253,  1254,
    1255,  1256,  1257,  1258,  28591, 28592, 28593, 28594, 28595, 28596, 28597, 28598, 28599,
    28603, 28605, 20866, 21866, 10000, 37,    500,   875,   1026,  20127};

}  // namespace

// Run n opens two fresh pages in one window, the first through the code-page layer and the second
// through a string, so that its n-th allocation fails somewhere in one of the openings. A page
// whose opening ran out of memory exists all the same: the conversion says "no memory" (not
// "unknown page") or succeeds, the string keeps its text, and the next call opens the page.
void OpenCodePages(SweepPoint& p) {
    ASSERT_LE(2 * p.n(), std::size(kFreshPages)) << "more allocations per run than fresh pages";
    const unsigned short direct = kFreshPages[2 * p.n() - 2], viaString = kFreshPages[2 * p.n() - 1];
    ASSERT_TRUE(BrCodePageAvailable(1252));  // ICU's alias tables are loaded once, outside
    UtCString s = kbase_test::Text("vorher", kU8);
    char16_t out[8] = {};
    int64_t got = 0;
    bool set = false;
    const bool threw = Threw(p, [&] {
        got = BrMbToUtf16(direct, "Abc", 3, out, 8);
        set = s.SetMemCopy("Abc", 3, static_cast<eUtEncodingType>(viaString));
    });
    EXPECT_FALSE(threw);
    EXPECT_TRUE(got == 3 || got == kBrConvNoMemory) << direct << ": " << got;
    EXPECT_EQ(s.GetUtf8String(0), set ? "Abc" : "vorher") << viaString;
    for (const unsigned short page : {direct, viaString}) {
        EXPECT_TRUE(BrCodePageAvailable(page)) << page << " was forgotten";
        EXPECT_EQ(BrMbToUtf16(page, "Abc", 3, out, 8), 3) << page;
    }
    if (!p.Failed()) {
        EXPECT_EQ(got, 3);
        EXPECT_TRUE(set);
    }
}

// Text in a double-byte page read through a streaming decoder cut inside its characters, written
// back, and a decomposed text normalised: the allocations each call makes once a page is open.
void DecodeAndNormalise(SweepPoint& p) {
    const std::string sjis = "\x93\xFA\x96\x7B\x8C\xEA: \xB1\xB2";  // 日本語: ｱｲ
    const std::u16string wide = u"\u65E5\u672C\u8A9E: \uFF71\uFF72";
    ASSERT_TRUE(BrCodePageAvailable(932));
    // ICU makes its normalisers once per process and keeps a failure as well: made outside.
    UtCString warm(u"e\u0301", kU16);
    ASSERT_TRUE(warm.NormalizeForm('C'));

    std::u16string decoded;
    bool opened = false;
    int64_t status = 0;
    bool threw = Threw(p, [&] {
        BrDecoder* d = BrDecoderOpen(932);
        if (d == nullptr) return;
        opened = true;
        for (size_t at = 0; at < sjis.size() && status >= 0; at += 3) {
            const size_t piece = std::min<size_t>(3, sjis.size() - at);
            char16_t out[16];
            int64_t read = 0, bad = 0;
            status = BrDecode(d, sjis.data() + at, static_cast<int64_t>(piece),
                              at + piece == sjis.size(), out, 16, &read, &bad);
            if (status > 0) decoded.append(out, static_cast<size_t>(status));
        }
        BrDecoderClose(d);
    });
    EXPECT_FALSE(threw);
    if (opened && status >= 0) {
        EXPECT_TRUE(decoded == wide);
    } else if (opened) {
        EXPECT_EQ(status, kBrConvNoMemory);
    }

    UtCString text(wide.c_str(), kU16);
    bool written = false;
    threw = Threw(p, [&] { written = text.ToAnsi(kShiftJis); });
    EXPECT_FALSE(threw);
    EXPECT_EQ(text.encodingType(), written ? kShiftJis : kU16);
    if (written) {
        EXPECT_EQ(std::string(text.ptr()), sjis);
    } else {
        EXPECT_TRUE(text.GetUtf16String() == wide);
    }

    UtCString decomposed(u"Cafe\u0301 A\u030Angstr\u00F6m", kU16);
    bool normalised = false;
    threw = Threw(p, [&] { normalised = decomposed.NormalizeForm('C'); });
    EXPECT_FALSE(threw);
    EXPECT_TRUE(decomposed.GetUtf16String() ==
                (normalised ? u"Caf\u00E9 \u00C5ngstr\u00F6m" : u"Cafe\u0301 A\u030Angstr\u00F6m"));

    if (!p.Failed()) {
        EXPECT_TRUE(opened && written && normalised);
    }
}
