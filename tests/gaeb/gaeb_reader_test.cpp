// Reading across the reader's blocks: line ends (LF, CRLF, a lone CR) and values over several
// lines at every offset around a block boundary, and the longest line allowed at its limit.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "kbase/gaeb/UtGAEB.h"
#include "kbase/gaeb/internal/reader.h"
#include "support/temp_file.h"

namespace {

using kbase_gaeb_internal::kBlock;
using kbase_gaeb_internal::kMaxLine;

// Through a named file: the Windows C runtime's tmpfile() could not always make one under Wine.
int Load(UtGAEB& g, const std::string& text, UtGAEBLoadReport* report) {
    const kbase_test::TempFile file("reader.X83");
    file.WriteText(text);
    FILE* f = UtFileOpen(file.c_str(), "rb");
    if (f == nullptr) return -1;
    const int status = g.Load(f, report);
    UtFileClose(f);
    return status;
}

std::string Store(UtGAEB& g) {
    const kbase_test::TempFile file("stored.X83");
    FILE* f = UtFileOpen(file.c_str(), "wb");
    if (f == nullptr) return "(no file)";
    g.SetFlag(0);
    const int status = g.Store(f, 0);
    UtFileClose(f);
    return status == kGAEBOk ? file.Text() : "(store failed)";
}

// A bill after lead bytes of text before the root, with its line ends as eol.
std::string Bill(size_t lead, const std::string& eol) {
    std::string s = std::string(lead, 'x') + eol + "#begin[GAEB]" + eol;
    s += "#begin[Vergabe]" + eol + "#begin[LV]" + eol;
    for (int i = 0; i < 3; ++i) {
        s += " #begin[Position]" + eol + "  [OZ]0" + std::to_string(i) + "[end]" + eol;
        s += "  [Menge]1,5[end]" + eol + "  #begin[Beschreibung]" + eol;
        s += "   [Langtext]first" + eol + "second" + eol + eol + "last[end]" + eol;
        s += "  #end[Beschreibung]" + eol + " #end[Position]" + eol;
    }
    return s + "#end[LV]" + eol + "#end[Vergabe]" + eol + "#end[GAEB]";
}

TEST(GaebReader, LineEndsAndValuesAcrossTheBlockBoundary) {
    for (const std::string eol : {"\n", "\r\n", "\r"}) {
        for (size_t lead = kBlock - 260; lead <= kBlock + 4; ++lead) {
            UtGAEB g;
            UtGAEBLoadReport report;
            ASSERT_EQ(Load(g, Bill(lead, eol), &report), kGAEBOk) << lead << report.message;
            UtGAEBLV* lv = g.GetVergabePtr()->GetLVPtr();
            ASSERT_EQ(lv->GetLVEntityCount(), 3) << lead;
            auto* p = static_cast<UtGAEBPosition*>(lv->GetLVEntityPtr(2));
            EXPECT_STREQ(p->GetOZ(), "02");
            EXPECT_EQ(p->GetMenge(), 1.5);
            EXPECT_STREQ(p->GetBeschreibungPtr()->GetLangtext(), "first\nsecond\n\nlast") << lead;
            // Any line end reads as LF: the stored form is that of the LF file.
            UtGAEB lf;
            ASSERT_EQ(Load(lf, Bill(lead, "\n"), &report), kGAEBOk);
            const std::string stored = Store(g);
            EXPECT_TRUE(stored == Store(lf)) << lead << " " << eol.size();
            EXPECT_EQ(stored.substr(0, lead + 1), std::string(lead, 'x') + "\n");
        }
    }
}

TEST(GaebReader, TheLongestLineIsReadAndOneByteMoreFails) {
    for (const std::string eol : {"\n", "\r\n", ""}) {
        const std::string root = "#begin[GAEB]\n#end[GAEB]";
        UtGAEB g;
        UtGAEBLoadReport report;
        EXPECT_EQ(Load(g, std::string(kMaxLine, 'a') + eol + "\n" + root, &report), kGAEBOk)
            << report.message;
        EXPECT_EQ(Load(g, std::string(kMaxLine + 1, 'a') + eol + "\n" + root, &report),
                  kGAEBTooLarge);
        EXPECT_EQ(report.line, 1u);
        // A binary byte past the limit is not looked at: the length ends the load first.
        EXPECT_EQ(Load(g, std::string(kMaxLine + 5, 'a') + '\0' + "\n" + root, &report),
                  kGAEBTooLarge);
        // Within it, it is.
        EXPECT_EQ(
            Load(g, "#begin[GAEB]\n" + std::string(kMaxLine - 5, 'a') + '\x01' + "\n", &report),
            kGAEBBinary);
        EXPECT_EQ(report.line, 2u);
    }
}

}  // namespace
