// Reading GAEB text: back what Store writes, files in the manner of other writers, malformed
// input, the real bills of ../shared/data/gaeb, and the search helpers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "basert/files.h"
#include "kbase/gaeb/UtGAEB.h"
#include "support/temp_file.h"

namespace {

// The text in a temporary file, open for reading (binary: CR LF stays as written).
class TextFile {
  public:
    explicit TextFile(const std::string& text) : file_("gaeb_load.txt") {
        file_.WriteText(text);
        f_ = UtFileOpen(file_.c_str(), "rb");
    }
    ~TextFile() {
        if (f_ != nullptr) std::fclose(f_);
    }
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;
    FILE* get() const { return f_; }

  private:
    kbase_test::TempFile file_;
    FILE* f_ = nullptr;
};

int LoadText(UtGAEB& g, const std::string& text, UtGAEBLoadReport* report = nullptr) {
    TextFile f(text);
    return g.Load(f.get(), report);
}

std::string StoreText(UtGAEB& g) {
    kbase_test::TempFile file("gaeb_store.txt");
    FILE* f = UtFileOpen(file.c_str(), "wb");
    g.SetFlag(0);
    EXPECT_EQ(g.Store(f, 0), kGAEBOk);
    std::fclose(f);
    return file.Text();
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// Lines as a reader compares them: CR dropped, indentation dropped, tag and key names in lower
// case, a quantity's decimal comma as a point. Counted, so that a lost or doubled line shows.
std::map<std::string, int> Lines(const std::string& text) {
    std::map<std::string, int> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        line.erase(0, line.find_first_not_of(" \t") == std::string::npos
                          ? line.size()
                          : line.find_first_not_of(" \t"));
        size_t open = std::string::npos;
        if (line.rfind("#begin[", 0) == 0) open = 7;
        if (line.rfind("#end[", 0) == 0) open = 5;
        if (line.rfind("[", 0) == 0) open = 1;
        const size_t close = open == std::string::npos ? open : line.find(']', open);
        if (close != std::string::npos && line.find('[', open) >= close) {
            std::transform(
                line.begin() + static_cast<long>(open), line.begin() + static_cast<long>(close),
                line.begin() + static_cast<long>(open), [](char c) { return std::tolower(c); });
            if (line.rfind("[menge]", 0) == 0) std::replace(line.begin(), line.end(), ',', '.');
        }
        ++out[line];
    }
    return out;
}

// Every line of in is in out as often (what stored text adds is checked by the caller).
void ExpectNothingLost(const std::string& in, const std::string& out) {
    const auto a = Lines(in), b = Lines(out);
    int lost = 0;
    for (const auto& [line, n] : a) {
        const auto it = b.find(line);
        const int have = it == b.end() ? 0 : it->second;
        if (have < n) {
            ADD_FAILURE() << "lost " << (n - have) << "x: " << line.substr(0, 120);
            if (++lost > 5) return;
        }
    }
}

struct Counts {
    int positions = 0, ranges = 0, depth = 0;
    double quantity = 0;
};

void Count(UtGAEBLVEntity* e, int depth, Counts& c) {
    if (e->GetLVEntityType() == eGAEBLVEntityPosition) {
        ++c.positions;
        c.quantity += static_cast<UtGAEBPosition*>(e)->GetMenge();
        return;
    }
    auto* r = static_cast<UtGAEBLVBereich*>(e);
    ++c.ranges;
    c.depth = std::max(c.depth, depth);
    for (int i = 0; i < r->GetLVEntityCount(); ++i) Count(r->GetLVEntityPtr(i), depth + 1, c);
}

Counts CountBill(UtGAEB& g) {
    Counts c;
    if (g.GetVergabePtr() == nullptr) return c;
    UtGAEBLV* lv = g.GetVergabePtr()->GetLVPtr();
    for (int i = 0; i < lv->GetLVEntityCount(); ++i) Count(lv->GetLVEntityPtr(i), 1, c);
    return c;
}

// ---- what Store writes ----------------------------------------------------------------------

TEST(GaebLoad, StoreLoadStoreGivesTheSameBytes) {
    UtGAEB g(eGAEBTypeLV);
    g.GetInfoPtr()->GetDatumPtr()->SetDate(1, 2, 2026);
    UtGAEBLV* lv = g.GetVergabePtr()->GetLVPtr();
    lv->GetLVInfoPtr()->SetName("EFH");
    auto* level = new UtGAEBLVGlied;
    level->SetTyp("LVStufe");
    level->SetBez("Gewerk");
    level->SetLaenge(2);
    lv->GetLVInfoPtr()->AddLVGlied(level);
    auto* r = new UtGAEBLVBereich;
    r->SetOZ("01");
    r->SetBez(UtCString(u"Erdarbeiten, Gr\u00FCndung"));
    for (int i = 0; i < 3; ++i) {
        auto* p = new UtGAEBPosition;
        p->SetOZ(("01." + std::to_string(10 * (i + 1))).c_str());
        p->SetMenge(1.25 * i);
        p->SetME(i == 0 ? "m3" : "St");
        p->SetMengeFlag(i != 2);
        p->GetBeschreibungPtr()->SetKurztext(
            UtCString(u"Oberboden abtragen \u00C4\u00D6\u00DC\u00DF"));
        p->GetBeschreibungPtr()->SetLangtext(
            "{\\rtf1 [Normal] line\n\tsecond line\n\n[end of text]}");
        r->AddLVEntity(p);
    }
    lv->AddLVEntity(r);
    const std::string first = StoreText(g);

    UtGAEB back;
    UtGAEBLoadReport report;
    ASSERT_EQ(LoadText(back, first, &report), kGAEBOk) << report.message;
    EXPECT_EQ(report.keptItems, 0u);
    EXPECT_TRUE(report.notes.empty());
    EXPECT_EQ(StoreText(back), first);
    auto* p = static_cast<UtGAEBPosition*>(
        back.GetVergabePtr()->GetLVPtr()->FindLVBereich("01")->GetLVEntityPtr(1));
    EXPECT_DOUBLE_EQ(p->GetMenge(), 1.25);
    EXPECT_STREQ(p->GetBeschreibungPtr()->GetLangtext(),
                 "{\\rtf1 [Normal] line\n\tsecond line\n\n[end of text]}");
    EXPECT_STREQ(p->GetBeschreibungPtr()->GetKurztext(), "Oberboden abtragen \xC4\xD6\xDC\xDF");
}

// ---- a file in the manner of other writers --------------------------------------------------

// Written for this test: upper- and mixed-case names, tabs and no indentation, CRLF, blocks and
// keys the model lacks (also between modelled ones), multi-line values, decimal commas, the
// description before the quantity, a range titled by BEZTX, a level of another type with a title,
// a quantity with four decimals, text before the root and a trailer after it.
const char* const kForeign =
    "\xEF\xBB\xBFWritten by hand\r\n"
    "#begin[GAEB]\r\n"
    "#begin[GAEBINFO]\r\n"
    "[PROGSYSTEM]Handarbeit 1.0[end]\r\n"
    "[VERSION]1.2[end]\r\n"
    "[VERSMON]11[end]\r\n"
    "[VERSJAHR]2001[end]\r\n"
    "[DATUM]18.02.2026[end]\r\n"
    "[UHRZEIT]07:02[end]\r\n"
    "[ZEICHENSATZ]ANSI[end]\r\n"
    "#end[GAEBINFO]\r\n"
    "#begin[PrjInfo]\r\n"
    "\t[Name]P-1[end]\r\n"
    "\t[_VENDOR_Flag]2[end]\r\n"
    "#end[PrjInfo]\r\n"
    "#begin[Vergabe]\r\n"
    "\t[DP]83[end]\r\n"
    "\t#begin[AG]\r\n"
    "\t\t#begin[Adresse]\r\n"
    "\t\t\t[Name1]Gemeinde M\xFChlheim[end]\r\n"
    "\t\t#end[Adresse]\r\n"
    "\t#end[AG]\r\n"
    "\t#begin[LV]\r\n"
    "\t\t#begin[LVInfo]\r\n"
    "\t\t\t#begin[LVGlied]\r\n"
    "\t\t\t\t[Typ]LVStufe[end]\r\n"
    "\t\t\t\t[Laenge]2[end]\r\n"
    "\t\t\t#end[LVGlied]\r\n"
    "\t\t\t#begin[LVGlied]\r\n"
    "\t\t\t\t[Bez]Index[end]\r\n"
    "\t\t\t\t[Typ]Index[end]\r\n"
    "\t\t\t\t[Laenge]1[end]\r\n"
    "\t\t\t#end[LVGlied]\r\n"
    "\t\t\t[Name]Los 1[end]\r\n"
    "\t\t\t[Datum]18.02.2026[end]\r\n"
    "\t\t\t[Bez]Rohbau[end]\r\n"
    "\t\t#end[LVInfo]\r\n"
    "\t\t#begin[Hinweis]\r\n"
    "\t\t\t#begin[Beschreibung]\r\n"
    "\t\t\t\t[Langtext]Vorbemerkung, erste Zeile\r\n"
    "\t\t\t\tzweite Zeile mit [Normal] darin[end]\r\n"
    "\t\t\t#end[Beschreibung]\r\n"
    "\t\t#end[Hinweis]\r\n"
    "#begin[LVBEREICH]\r\n"
    "[OZ]01[end]\r\n"
    "[BEZTX]KG 300 Bauwerk[end]\r\n"
    "#begin[LVBereich]\r\n"
    "[OZ]01.01[end]\r\n"
    "[Bez]Mauerwerk[end]\r\n"
    "#begin[POSITION]\r\n"
    "[OZ]01.01.0010[end]\r\n"
    "#begin[BESCHREIBUNG]\r\n"
    "[LANGTEXTTA]1[end]\r\n"
    "[LANGTEXT]Mauerwerk der Au\xDF"
    "enw\xE4nde,\r\n"
    "  Kalksandstein 24 cm.[end]\r\n"
    "[KURZTEXT]Au\xDF"
    "enwand KS[end]\r\n"
    "#end[BESCHREIBUNG]\r\n"
    "[ME]m2[end]\r\n"
    "[MENGE]1.234,5[end]\r\n"
    "#end[POSITION]\r\n"
    "#begin[Position]\r\n"
    "  [OZ]01.01.0020[end]\r\n"
    "  [Menge]0,12345[end]\r\n"
    "  [ENTF]J[end]\r\n"
    "  [ME]t[end]\r\n"
    "  #begin[KATZUORD]\r\n"
    "    [KATBEZ]DIN 276[end]\r\n"
    "  #end[KATZUORD]\r\n"
    "#end[Position]\r\n"
    "#end[LVBereich]\r\n"
    "#begin[Position]\r\n"
    "[OZ]01.0030[end]\r\n"
    "[Menge]29,481[end]\r\n"
    "[ME]kg[end]\r\n"
    "#end[Position]\r\n"
    "#end[LVBEREICH]\r\n"
    "#begin[LVBereich]\r\n"
    "[OZ]02[end]\r\n"
    "[Bez]Dach[end]\r\n"
    "#begin[Position]\r\n"
    "[OZ]02.0010[end]\r\n"
    "#begin[Beschreibung]\r\n"
    "[Kurztext]Dachabdichtung[end]\r\n"
    "#end[Beschreibung]\r\n"
    "#end[Position]\r\n"
    "#end[LVBereich]\r\n"
    "\t#end[LV]\r\n"
    "#end[Vergabe]\r\n"
    "#end[GAEB]12|34\r\n"
    "trailer line";

TEST(GaebLoad, ForeignFileLoadsWhatTheModelHoldsAndStoresBackEverything) {
    UtGAEB g;
    UtGAEBLoadReport report;
    ASSERT_EQ(LoadText(g, kForeign, &report), kGAEBOk) << report.message;
    EXPECT_EQ(g.GetGAEBType(), eGAEBTypeLV);
    EXPECT_EQ(g.GetInfoPtr()->GetVersMon(), 11);
    EXPECT_EQ(g.GetInfoPtr()->GetDatumPtr()->GetYear(), 2026);
    EXPECT_EQ(g.GetVergabePtr()->GetDP(), 83);
    UtGAEBLV* lv = g.GetVergabePtr()->GetLVPtr();
    EXPECT_STREQ(lv->GetLVInfoPtr()->GetName(), "Los 1");
    EXPECT_STREQ(lv->GetLVInfoPtr()->GetBez(), "Rohbau");
    ASSERT_EQ(lv->GetLVInfoPtr()->GetLVGliedCount(), 2);
    EXPECT_EQ(lv->GetLVInfoPtr()->GetLVGliedPtr(1)->GetKeyType(), eGAEBLVKeyOther);

    const Counts c = CountBill(g);
    EXPECT_EQ(c.positions, 4);
    EXPECT_EQ(c.ranges, 3);
    EXPECT_EQ(c.depth, 2);
    UtGAEBLVBereich* bau = lv->FindLVBereich("01");
    ASSERT_NE(bau, nullptr);
    EXPECT_STREQ(bau->GetBez(), "KG 300 Bauwerk");  // from BEZTX
    UtGAEBLVBereich* wall = lv->FindLVBereich("01.01");
    ASSERT_NE(wall, nullptr);
    auto* p1 = static_cast<UtGAEBPosition*>(wall->GetLVEntityPtr(0));
    EXPECT_STREQ(p1->GetOZ(), "01.01.0010");
    EXPECT_STREQ(p1->GetME(), "m2");
    EXPECT_EQ(p1->GetMengeFlag(), 1);
    EXPECT_DOUBLE_EQ(p1->GetMenge(), 0) << "1.234,5 is no number this reader accepts";
    EXPECT_STREQ(p1->GetBeschreibungPtr()->GetLangtext(),
                 "Mauerwerk der Au\xDF"
                 "enw\xE4nde,\n  Kalksandstein 24 cm.");
    EXPECT_STREQ(p1->GetBeschreibungPtr()->GetKurztext(),
                 "Au\xDF"
                 "enwand KS");
    auto* p2 = static_cast<UtGAEBPosition*>(wall->GetLVEntityPtr(1));
    EXPECT_DOUBLE_EQ(p2->GetMenge(), 0.12345);
    EXPECT_EQ(p2->GetBeschreibungFlag(), 0);
    auto* p3 = static_cast<UtGAEBPosition*>(bau->GetLVEntityPtr(1));
    EXPECT_DOUBLE_EQ(p3->GetMenge(), 29.481);
    auto* p4 = static_cast<UtGAEBPosition*>(lv->FindLVBereich("02")->GetLVEntityPtr(0));
    EXPECT_EQ(p4->GetMengeFlag(), 0);
    EXPECT_STREQ(p4->GetBeschreibungPtr()->GetKurztext(), "Dachabdichtung");
    ASSERT_EQ(report.notes.size(), 2u);  // the two quantities kept as written
    EXPECT_NE(report.notes[0].find("line 59"), std::string::npos) << report.notes[0];
    EXPECT_NE(report.notes[1].find("more than three decimals"), std::string::npos)
        << report.notes[1];

    const std::string out = StoreText(g);
    ExpectNothingLost(kForeign, out);
    EXPECT_EQ(out.rfind("#end[GAEB]12|34\ntrailer line"), out.size() - 28);
    EXPECT_EQ(out.find("\xEF\xBB\xBFWritten by hand\n#begin[GAEB]\n"), 0u);
    EXPECT_EQ(out.find('\r'), std::string::npos);
    // Nothing is added either: the same number of lines, and stable from here on.
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'),
              std::count(kForeign, kForeign + std::strlen(kForeign), '\n'));
    UtGAEB again;
    ASSERT_EQ(LoadText(again, out), kGAEBOk);
    EXPECT_EQ(StoreText(again), out);
    ASSERT_EQ(LoadText(again, kForeign), kGAEBOk);  // a second load replaces the first
    EXPECT_EQ(StoreText(again), out);

    // Setting a value that was kept as written replaces the kept line.
    p2->SetMenge(2);
    const std::string changed = StoreText(g);
    EXPECT_EQ(changed.find("0,12345"), std::string::npos);
    EXPECT_NE(changed.find("[Menge]2.000[end]"), std::string::npos);
    g.GetVergabePtr()->ResetKept();
    EXPECT_EQ(StoreText(g).find("#begin[AG]"), std::string::npos);
}

TEST(GaebLoad, OverlongTextsAreCutInTheFieldAndKeptAsWritten) {
    const std::string kurz(kGAEBSizeKurztext + 100, 'k');
    const std::string text =
        "#begin[GAEB]\n #begin[Vergabe]\n  #begin[LV]\n   #begin[Position]\n    [OZ]1[end]\n"
        "    #begin[Beschreibung]\n     [Kurztext]" +
        kurz +
        "[end]\n    #end[Beschreibung]\n"
        "   #end[Position]\n  #end[LV]\n #end[Vergabe]\n#end[GAEB]";
    UtGAEB g;
    UtGAEBLoadReport report;
    ASSERT_EQ(LoadText(g, text, &report), kGAEBOk);
    ASSERT_EQ(report.notes.size(), 1u);
    EXPECT_NE(report.notes[0].find("line 7"), std::string::npos);
    auto* p = static_cast<UtGAEBPosition*>(g.GetVergabePtr()->GetLVPtr()->GetLVEntityPtr(0));
    EXPECT_EQ(std::strlen(p->GetBeschreibungPtr()->GetKurztext()), kGAEBSizeKurztext - 1);
    EXPECT_TRUE(StoreText(g) == text) << "the kept line is written in place of the cut field";
}

TEST(GaebLoad, SecondValuesOfASlotStayBehindTheFirstThroughRoundTrips) {
    // The second Laenge comes before the slot of the first in stored order unless kept behind it.
    const std::string text =
        "#begin[GAEB]\n#begin[Vergabe]\n#begin[LV]\n#begin[LVInfo]\n#begin[LVGlied]\n[Typ]LVStufe["
        "end]\n"
        "[Laenge]2[end]\n[Bez]Titel[end]\n[Typ]Index[end]\n[Laenge]1[end]\n#end[LVGlied]\n#end["
        "LVInfo]\n"
        "#begin[LVInfo]\n#end[LVInfo]\n#begin[Position]\n#begin[Beschreibung]\n#end[Beschreibung]"
        "\n[ME]" +
        std::string(kGAEBSizeME, 'u') +
        "[end]\n[ME]m[end]\n#end[Position]\n#end[LV]\n#end[Vergabe]\n#end[GAEB]";
    UtGAEB g;
    ASSERT_EQ(LoadText(g, text), kGAEBOk);
    UtGAEBLVGlied* level = g.GetVergabePtr()->GetLVPtr()->GetLVInfoPtr()->GetLVGliedPtr(0);
    EXPECT_EQ(level->GetLaenge(), 2);
    EXPECT_EQ(level->GetKeyType(), eGAEBLVKeyLVStufe);
    const std::string once = StoreText(g);
    ExpectNothingLost(text, once);
    UtGAEB again;
    ASSERT_EQ(LoadText(again, once), kGAEBOk);
    EXPECT_EQ(again.GetVergabePtr()->GetLVPtr()->GetLVInfoPtr()->GetLVGliedPtr(0)->GetLaenge(), 2);
    auto* p = static_cast<UtGAEBPosition*>(again.GetVergabePtr()->GetLVPtr()->GetLVEntityPtr(0));
    EXPECT_EQ(std::string(p->GetME()), std::string(kGAEBSizeME - 1, 'u'))
        << "the kept long unit, not the second";
    EXPECT_EQ(StoreText(again), once);
}

// ---- malformed input ------------------------------------------------------------------------

struct BadCase {
    const char* name;
    std::string text;
    int status;
    uint64_t line;
    const char* message;
    // Large inputs are made when the case runs, not when every test program starts.
    std::string (*make)();
};

void PrintTo(const BadCase& c, std::ostream* os) {
    *os << c.name;
}

class GaebMalformed : public ::testing::TestWithParam<BadCase> {};

TEST_P(GaebMalformed, EndsWithAStatusAndTheLine) {
    const BadCase& c = GetParam();
    UtGAEB g;
    UtGAEBLoadReport report;
    EXPECT_EQ(LoadText(g, c.make != nullptr ? c.make() : c.text, &report), c.status);
    EXPECT_EQ(report.status, c.status);
    EXPECT_EQ(report.line, c.line);
    EXPECT_NE(report.message.find(c.message), std::string::npos) << report.message;
    EXPECT_EQ(report.message.rfind("line " + std::to_string(c.line) + ": ", 0), 0u)
        << report.message;
}

std::string Nested() {
    std::string s = "#begin[GAEB]\n";
    for (int i = 0; i < 5000; ++i) s += "#begin[X]\n";
    return s;
}

std::string LongLine() {
    return "#begin[GAEB]\n[X]" + std::string(3u << 20, 'a');
}

std::string LongValue() {
    std::string s = "#begin[GAEB]\n[X]\n";
    for (int i = 0; i < 20000; ++i) s += std::string(1000, 'v') + "\n";
    return s;
}

std::string NestedRanges() {
    std::string s = "#begin[GAEB]\n#begin[Vergabe]\n#begin[LV]\n";
    for (int i = 0; i < 100; ++i) s += "#begin[LVBereich]\n";
    return s;
}

INSTANTIATE_TEST_SUITE_P(
    Table, GaebMalformed,
    ::testing::Values(
        BadCase{"Empty", "", kGAEBNotFound, 0, "no #begin[GAEB]"},
        BadCase{"NoRoot", "[Version]1.2[end]\nhello\n", kGAEBNotFound, 2, "no #begin[GAEB]"},
        BadCase{"BlockNeverEnds", "#begin[GAEB]\n#begin[GAEBInfo]\n[Version]1[end]\n",
                kGAEBMalformed, 2, "#begin[GAEBInfo] never ends"},
        BadCase{"KeptBlockNeverEnds", "#begin[GAEB]\n#begin[PrjInfo]\n#begin[X]\n#end[X]\n",
                kGAEBMalformed, 2, "#begin[PrjInfo] never ends"},
        BadCase{"WrongEnd", "#begin[GAEB]\n#begin[Vergabe]\n#begin[LV]\n#end[Vergabe]\n",
                kGAEBMalformed, 4, "#end[Vergabe] does not close #begin[LV] of line 3"},
        BadCase{"WrongEndInKeptBlock",
                "#begin[GAEB]\n#begin[AG]\n#begin[Adresse]\n#end[AG]\n#end[GAEB]", kGAEBMalformed,
                4, "does not close #begin[Adresse] of line 3"},
        BadCase{"ValueWithoutEnd",
                "#begin[GAEB]\n#begin[GAEBInfo]\n[Version]1.2\n#end[GAEBInfo]\n#end[GAEB]",
                kGAEBMalformed, 3, "[Version] has no [end]"},
        BadCase{"LineOfMegabytes", "", kGAEBTooLarge, 2, "longer than", LongLine},
        BadCase{"ValueOfManyLines", "", kGAEBTooLarge, 2, "[X] runs over", LongValue},
        BadCase{"NestedThousandsDeep", "", kGAEBTooLarge, 2, "nested deeper than 64", Nested},
        BadCase{"NestedKnownBlocksDeep", "", kGAEBTooLarge, 65, "nested deeper than 64",
                NestedRanges},
        BadCase{"NulByte", std::string("#begin[GAEB]\n[Version]1\0.2[end]\n", 32), kGAEBBinary, 2,
                "binary byte 0x00"},
        BadCase{"EscapeByte", "#begin[GAEB]\n#begin[GAEBInfo]\n\x1B[1m\n", kGAEBBinary, 3,
                "0x1B"}));

// ---- the real bills -------------------------------------------------------------------------

std::string DataFile(const char* name) {
    const char* root = std::getenv("KBASE_SOURCE_DIR");
    if (root == nullptr) return std::string();
    for (std::filesystem::path dir = std::filesystem::absolute(root); !dir.empty();
         dir = dir.parent_path()) {
        const auto p = dir / "shared" / "data" / "gaeb" / name;
        if (std::filesystem::exists(p)) return p.string();
        if (dir == dir.parent_path()) break;
    }
    return std::string();
}

struct RealBill {
    const char* file;
    int positions, ranges, depth;
    const char* firstOZ;  // of the first position, as written
    const char* rangeOZ;  // a range FindLVBereich finds
};

void PrintTo(const RealBill& c, std::ostream* os) {
    *os << c.file;
}

class GaebRealBill : public ::testing::TestWithParam<RealBill> {};

TEST_P(GaebRealBill, LoadsEveryPositionAndStoresBackWithoutLosingALine) {
    const RealBill& c = GetParam();
    const std::string path = DataFile(c.file);
    if (path.empty())
        GTEST_SKIP() << c.file << " not found (shared/data/gaeb beside the source tree)";
    const std::string in = ReadFile(path);
    UtGAEB g;
    UtGAEBLoadReport report;
    ASSERT_EQ(LoadText(g, in, &report), kGAEBOk) << report.message;
    EXPECT_TRUE(report.notes.empty()) << report.notes.front();
    const Counts counts = CountBill(g);
    EXPECT_EQ(counts.positions, c.positions);
    EXPECT_EQ(counts.ranges, c.ranges);
    EXPECT_EQ(counts.depth, c.depth);
    EXPECT_GT(counts.quantity, 0);
    UtGAEBLV* lv = g.GetVergabePtr()->GetLVPtr();
    ASSERT_NE(lv->FindLVBereich(c.rangeOZ), nullptr);
    UtGAEBLVEntity* e = lv->GetLVEntityPtr(0);
    while (e != nullptr && e->GetLVEntityType() == eGAEBLVEntityBereich) {
        e = static_cast<UtGAEBLVBereich*>(e)->GetLVEntityPtr(0);
    }
    ASSERT_NE(e, nullptr);
    auto* first = static_cast<UtGAEBPosition*>(e);
    EXPECT_STREQ(first->GetOZ(), c.firstOZ);
    EXPECT_GT(first->GetBeschreibungPtr()->GetLangtextLength(), 10u);
    EXPECT_GT(std::strlen(first->GetBeschreibungPtr()->GetKurztext()), 3u);

    const std::string out = StoreText(g);
    ExpectNothingLost(in, out);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), std::count(in.begin(), in.end(), '\n'));
    UtGAEB again;
    ASSERT_EQ(LoadText(again, out), kGAEBOk);
    EXPECT_EQ(StoreText(again), out);
}

INSTANTIATE_TEST_SUITE_P(
    SharedData, GaebRealBill,
    ::testing::Values(RealBill{"ddrews_LV_Los01.P83", 13, 3, 1, "010010", "02"},
                      RealBill{"ddrews_LV_Los02.P83", 121, 24, 2, "01010010", "0101"},
                      RealBill{"ddrews_Flechtingen_GS_AA.p83", 585, 41, 2, " 1 1   1", "1 1"},
                      RealBill{"ddrews_3726_LV_Photovoltaikanlage_GAEB_2000.p83", 106, 13, 2,
                               "11 1", "11"}));

// ---- the search helpers ---------------------------------------------------------------------

TEST(GaebHelpers, FindInFileAndReadFromFile) {
    const std::string text =
        "#begin[GAEB]\n [VersMon]11[end]\n [Menge]12,5[end]\n [Langtext]a [en\nb[end]\n "
        "[DP]x[end]\n";
    TextFile file(text);
    FILE* f = file.get();
    EXPECT_EQ(UtGAEBObject::FindInFile(f, "#begin[GAEB]"), kGAEBOk);
    short s = 0;
    EXPECT_EQ(UtGAEBObject::ReadFromFile(f, "VersMon", s), kGAEBOk);
    EXPECT_EQ(s, 11);
    double d = 0;
    EXPECT_EQ(UtGAEBObject::ReadFromFile(f, "Menge", d), kGAEBOk);
    EXPECT_DOUBLE_EQ(d, 12.5);
    char buf[8];
    EXPECT_EQ(UtGAEBObject::ReadFromFile(f, "Langtext", buf, sizeof buf), kGAEBOk);
    EXPECT_STREQ(buf, "a [en\nb");
    EXPECT_EQ(UtGAEBObject::ReadFromFile(f, "DP", s), kGAEBMalformed);
    EXPECT_EQ(UtGAEBObject::FindInFile(f, "#end[GAEB]"), kGAEBNotFound);
    EXPECT_EQ(UtGAEBObject::ReadFromFile(f, "DP", buf, sizeof buf), kGAEBNotFound);
    EXPECT_EQ(UtGAEBObject::FindInFile(nullptr, "x"), kGAEBNullFile);
    EXPECT_EQ(UtGAEBObject::ReadFromFile(f, "DP", nullptr, 4), kGAEBNullFile);

    // A child loads from the file on its own: its begin tag is searched.
    UtGAEBPosition p;
    TextFile child("junk\n#begin[Position]\n[OZ]7[end]\n[Menge]3[end]\n#end[Position]\n");
    EXPECT_EQ(p.Load(child.get()), kGAEBOk);
    EXPECT_STREQ(p.GetOZ(), "7");
    EXPECT_DOUBLE_EQ(p.GetMenge(), 3);
    EXPECT_EQ(p.GetMEFlag(), 0);

    // Text before the root is searched line by line: an open "[" there does not hide the root.
    UtGAEB g;
    ASSERT_EQ(LoadText(g, "[Note] no end here\n#begin[GAEB]\n#end[GAEB]"), kGAEBOk);
    EXPECT_EQ(StoreText(g), "[Note] no end here\n#begin[GAEB]\n#end[GAEB]");
    EXPECT_EQ(g.GetGAEBType(), eGAEBTypeInfo);

    // Text behind an inner end tag stays on that tag's line (as a line of its own, "[Datum]" would
    // open a value when read back).
    const std::string tail =
        "#begin[GAEB]\n #begin[GAEBInfo]\n  [Version]1[end]\n #end[GAEBInfo][Datum]\n#end[GAEB]";
    UtGAEB t;
    ASSERT_EQ(LoadText(t, tail), kGAEBOk);
    EXPECT_EQ(StoreText(t), tail);
}

}  // namespace
