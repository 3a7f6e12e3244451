// The stored form of the GAEB classes: exact bytes per class and flag, failing writes, setters.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "basert/files.h"
#include "kbase/gaeb/UtGAEB.h"
#include "support/temp_file.h"

namespace {

// What obj->Store(file, indent) writes, through a temporary file (binary: no CR added).
std::string Stored(UtGAEBObject& obj, int indent, int* status = nullptr) {
    kbase_test::TempFile file("gaeb_stored.txt");
    FILE* f = UtFileOpen(file.c_str(), "wb");
    if (auto* root = dynamic_cast<UtGAEB*>(&obj)) root->SetFlag(0);  // closed here, not by Store
    const int st = obj.Store(f, indent);
    std::fclose(f);
    if (status != nullptr) *status = st;
    return file.Text();
}

UtGAEBPosition* MakePosition(const char* oz, double menge, const char* me, const char* kurz,
                             const char* lang) {
    auto* p = new UtGAEBPosition;
    EXPECT_EQ(p->SetOZ(oz), kGAEBOk);
    p->SetMenge(menge);
    EXPECT_EQ(p->SetME(me), kGAEBOk);
    EXPECT_EQ(p->GetBeschreibungPtr()->SetKurztext(kurz), kGAEBOk);
    if (lang != nullptr) p->GetBeschreibungPtr()->SetLangtext(lang);
    return p;
}

// A whole bill: info with a fixed date, two outline levels, a range holding a nested range with
// a position, and a position directly in the bill.
std::unique_ptr<UtGAEB> MakeBill() {
    auto g = std::make_unique<UtGAEB>(eGAEBTypeLV);
    g->GetInfoPtr()->GetDatumPtr()->SetDate(7, 3, 2026);
    UtGAEBVergabe* v = g->GetVergabePtr();
    v->SetDP(83);
    UtGAEBLVInfo* info = v->GetLVPtr()->GetLVInfoPtr();
    info->SetName("Haus");
    info->SetBez("Rohbau");
    info->SetKurzLang(1);
    auto* stufe = new UtGAEBLVGlied;
    stufe->SetTyp("LVStufe");
    stufe->SetBez("Titel");
    stufe->SetLaenge(2);
    info->AddLVGlied(stufe);
    auto* pos = new UtGAEBLVGlied;
    pos->SetTyp("Position");
    pos->SetBez("never written");
    pos->SetLaenge(4);
    info->AddLVGlied(pos);
    auto* range = new UtGAEBLVBereich;
    range->SetOZ("01");
    range->SetBez("Erdarbeiten");
    auto* inner = new UtGAEBLVBereich;
    inner->SetOZ("01.02");
    inner->SetBez("Aushub");
    inner->AddLVEntity(MakePosition("01.02.0010", 12.5, "m3", "Baugrube", "Zeile 1\nZeile 2"));
    range->AddLVEntity(inner);
    v->GetLVPtr()->AddLVEntity(range);
    v->GetLVPtr()->AddLVEntity(MakePosition("0020", 1, "psch", "Baustelle", nullptr));
    return g;
}

const char* const kBill =
    "#begin[GAEB]\n"
    " #begin[GAEBInfo]\n"
    "  [Version]1.2[end]\n"
    "  [VersMon]3[end]\n"
    "  [VersJahr]2002[end]\n"
    "  [Datum]07.03.2026[end]\n"
    "  [Zeichensatz]ANSI[end]\n"
    " #end[GAEBInfo]\n"
    " #begin[Vergabe]\n"
    "  [DP]83[end]\n"
    "  #begin[LV]\n"
    "   #begin[LVInfo]\n"
    "    [Name]Haus[end]\n"
    "    [Bez]Rohbau[end]\n"
    "    [KurzLang]1[end]\n"
    "    #begin[LVGlied]\n"
    "     [Typ]LVStufe[end]\n"
    "     [Bez]Titel[end]\n"
    "     [Laenge]2[end]\n"
    "    #end[LVGlied]\n"
    "    #begin[LVGlied]\n"
    "     [Typ]Position[end]\n"
    "     [Laenge]4[end]\n"
    "    #end[LVGlied]\n"
    "   #end[LVInfo]\n"
    "   #begin[LVBereich]\n"
    "    [OZ]01[end]\n"
    "    [Bez]Erdarbeiten[end]\n"
    "    #begin[LVBereich]\n"
    "     [OZ]01.02[end]\n"
    "     [Bez]Aushub[end]\n"
    "     #begin[Position]\n"
    "      [OZ]01.02.0010[end]\n"
    "      [Menge]12.500[end]\n"
    "      [ME]m3[end]\n"
    "      #begin[Beschreibung]\n"
    "       [Langtext]Zeile 1\nZeile 2[end]\n"
    "       [Kurztext]Baugrube[end]\n"
    "      #end[Beschreibung]\n"
    "     #end[Position]\n"
    "    #end[LVBereich]\n"
    "   #end[LVBereich]\n"
    "   #begin[Position]\n"
    "    [OZ]0020[end]\n"
    "    [Menge]1.000[end]\n"
    "    [ME]psch[end]\n"
    "    #begin[Beschreibung]\n"
    "     [Langtext][end]\n"
    "     [Kurztext]Baustelle[end]\n"
    "    #end[Beschreibung]\n"
    "   #end[Position]\n"
    "  #end[LV]\n"
    " #end[Vergabe]\n"
    "#end[GAEB]";

TEST(GaebStore, WholeBillHasTheBlockFormAndNoFinalLineFeed) {
    auto g = MakeBill();
    int status = -1;
    EXPECT_EQ(Stored(*g, 0, &status), kBill);
    EXPECT_EQ(status, kGAEBOk);
}

// One object per row, stored alone with the given indent.
struct StoreCase {
    const char* name;
    std::function<std::unique_ptr<UtGAEBObject>()> make;
    int indent;
    const char* expected;
};

void PrintTo(const StoreCase& c, std::ostream* os) {
    *os << c.name;
}

class GaebStoreRow : public ::testing::TestWithParam<StoreCase> {};

TEST_P(GaebStoreRow, WritesExactlyTheseBytes) {
    auto obj = GetParam().make();
    int status = -1;
    EXPECT_EQ(Stored(*obj, GetParam().indent, &status), GetParam().expected);
    EXPECT_EQ(status, kGAEBOk);
}

template <class T>
std::unique_ptr<UtGAEBObject> Own(T* p) {
    return std::unique_ptr<UtGAEBObject>(p);
}

UtGAEBLVGlied* Glied(const char* typ, const char* bez, short laenge, int flag) {
    auto* g = new UtGAEBLVGlied;
    g->SetTyp(typ);
    g->SetBez(bez);
    g->SetLaenge(laenge);
    g->SetFlag(flag);
    return g;
}

UtGAEBPosition* FlaggedPosition(int menge, int me, int beschreibung) {
    UtGAEBPosition* p = MakePosition("1", 2.0006, "m", "k", "l");
    p->SetMengeFlag(menge);
    p->SetMEFlag(me);
    p->SetBeschreibungFlag(beschreibung);
    return p;
}

INSTANTIATE_TEST_SUITE_P(
    Rows, GaebStoreRow,
    ::testing::Values(
        StoreCase{"RootOfAnotherTypeHoldsOnlyTheInfo",
                  [] {
                      auto* g = new UtGAEB(eGAEBTypeInfo);
                      g->GetInfoPtr()->GetDatumPtr()->SetDate(1, 12, 1999);
                      return Own(g);
                  },
                  0,
                  "#begin[GAEB]\n #begin[GAEBInfo]\n  [Version]1.2[end]\n  [VersMon]3[end]\n"
                  "  [VersJahr]2002[end]\n  [Datum]01.12.1999[end]\n  [Zeichensatz]ANSI[end]\n"
                  " #end[GAEBInfo]\n#end[GAEB]"},
        StoreCase{"RootOfType1EmptyBillIndented",
                  [] {
                      auto* g = new UtGAEB(eGAEBTypeLV);
                      g->GetInfoPtr()->GetDatumPtr()->SetDate(2, 1, 2003);
                      g->GetInfoPtr()->SetVersion("1.3");
                      g->GetInfoPtr()->SetVersMon(11);
                      g->GetInfoPtr()->SetVersJahr(-1);
                      return Own(g);
                  },
                  1,
                  " #begin[GAEB]\n  #begin[GAEBInfo]\n   [Version]1.3[end]\n   [VersMon]11[end]\n"
                  "   [VersJahr]-1[end]\n   [Datum]02.01.2003[end]\n   [Zeichensatz]ANSI[end]\n"
                  "  #end[GAEBInfo]\n  #begin[Vergabe]\n   [DP]0[end]\n   #begin[LV]\n"
                  "    #begin[LVInfo]\n     [Name][end]\n     [Bez][end]\n     [KurzLang]0[end]\n"
                  "    #end[LVInfo]\n   #end[LV]\n  #end[Vergabe]\n #end[GAEB]"},
        StoreCase{"DatumIsOnlyItsLine",
                  [] {
                      auto* d = new UtGAEBDatum;
                      d->SetDate(31, 12, 2025);
                      return Own(d);
                  },
                  3, "   [Datum]31.12.2025[end]\n"},
        StoreCase{"RangeLevelWritesItsBez", [] { return Own(Glied("LVStufe", "Los", 2, 1)); }, 0,
                  "#begin[LVGlied]\n [Typ]LVStufe[end]\n [Bez]Los[end]\n "
                  "[Laenge]2[end]\n#end[LVGlied]\n"},
        StoreCase{"RangeLevelWithItsFlagClearedWritesNoBez",
                  [] { return Own(Glied("LVStufe", "Los", 2, 0)); }, 0,
                  "#begin[LVGlied]\n [Typ]LVStufe[end]\n [Laenge]2[end]\n#end[LVGlied]\n"},
        StoreCase{"PositionLevelWritesNoBez", [] { return Own(Glied("Position", "Pos", 4, 1)); }, 2,
                  "  #begin[LVGlied]\n   [Typ]Position[end]\n   [Laenge]4[end]\n  #end[LVGlied]\n"},
        StoreCase{"OtherLevelWritesNoBez", [] { return Own(Glied("Index", "Idx", 1, 1)); }, 0,
                  "#begin[LVGlied]\n [Typ]Index[end]\n [Laenge]1[end]\n#end[LVGlied]\n"},
        StoreCase{"QuantityHasThreeDecimalsRounded", [] { return Own(FlaggedPosition(1, 1, 1)); },
                  0,
                  "#begin[Position]\n [OZ]1[end]\n [Menge]2.001[end]\n [ME]m[end]\n"
                  " #begin[Beschreibung]\n  [Langtext]l[end]\n  [Kurztext]k[end]\n"
                  " #end[Beschreibung]\n#end[Position]\n"},
        StoreCase{"QuantityFlagCleared", [] { return Own(FlaggedPosition(0, 1, 0)); }, 0,
                  "#begin[Position]\n [OZ]1[end]\n [ME]m[end]\n#end[Position]\n"},
        StoreCase{"UnitAndDescriptionFlagsCleared", [] { return Own(FlaggedPosition(1, 0, 0)); }, 0,
                  "#begin[Position]\n [OZ]1[end]\n [Menge]2.001[end]\n#end[Position]\n"},
        StoreCase{
            "NegativeAndLargeQuantities",
            [] {
                auto* l = new UtGAEBLV;
                l->AddLVEntity(MakePosition("a", -0.0005, "kg", "", nullptr));
                l->AddLVEntity(MakePosition("b", 1234567.8916, "kg", "", nullptr));
                for (int i = 0; i < 2; ++i) {
                    static_cast<UtGAEBPosition*>(l->GetLVEntityPtr(i))->SetMEFlag(0);
                    static_cast<UtGAEBPosition*>(l->GetLVEntityPtr(i))->SetBeschreibungFlag(0);
                }
                return Own(l);
            },
            0,
            "#begin[LV]\n #begin[LVInfo]\n  [Name][end]\n  [Bez][end]\n  [KurzLang]0[end]\n"
            " #end[LVInfo]\n #begin[Position]\n  [OZ]a[end]\n  [Menge]-0.001[end]\n"
            " #end[Position]\n #begin[Position]\n  [OZ]b[end]\n  [Menge]1234567.892[end]\n"
            " #end[Position]\n#end[LV]\n"},
        StoreCase{
            "DescriptionWithoutLongText", [] { return Own(new UtGAEBBeschreibung); }, 1,
            " #begin[Beschreibung]\n  [Langtext][end]\n  [Kurztext][end]\n #end[Beschreibung]\n"},
        StoreCase{"RangeWithoutEntities",
                  [] {
                      auto* r = new UtGAEBLVBereich;
                      r->SetOZ(" 1");
                      r->SetBez(
                          "Stra\xDF"
                          "e");
                      return Own(r);
                  },
                  0,
                  "#begin[LVBereich]\n [OZ] 1[end]\n [Bez]Stra\xDF"
                  "e[end]\n#end[LVBereich]\n"},
        StoreCase{"MainObjectWritesNothing", [] { return Own(new UtGAEBHauptobjekt); }, 0, ""}));

TEST(GaebStore, NullFileGives3011ForEveryClass) {
    std::vector<std::unique_ptr<UtGAEBObject>> all;
    all.push_back(std::make_unique<UtGAEB>(eGAEBTypeLV));
    all.push_back(std::make_unique<UtGAEBInfo>());
    all.push_back(std::make_unique<UtGAEBDatum>());
    all.push_back(std::make_unique<UtGAEBVergabe>());
    all.push_back(std::make_unique<UtGAEBLV>());
    all.push_back(std::make_unique<UtGAEBLVInfo>());
    all.push_back(std::make_unique<UtGAEBLVGlied>());
    all.push_back(std::make_unique<UtGAEBLVBereich>());
    all.push_back(std::make_unique<UtGAEBPosition>());
    all.push_back(std::make_unique<UtGAEBBeschreibung>());
    all.push_back(std::make_unique<UtGAEBHauptobjekt>());
    for (auto& o : all) EXPECT_EQ(o->Store(nullptr, 0), kGAEBNullFile) << typeid(*o).name();
    EXPECT_EQ(UtGAEBObject::StoreLineStart(nullptr, 2), kGAEBNullFile);
    EXPECT_EQ(all[0]->Load(nullptr), kGAEBNullFile);
}

TEST(GaebStore, FullDeviceGives1007AfterCloseAndAfterABufferfulOfWrites) {
#ifdef _WIN32
    GTEST_SKIP() << "no full device: under Wine, writes to /dev/full do not fail";
#endif
    // A small bill fits in the stream's buffer: the failure shows when the root closes the file.
    auto g = MakeBill();
    FILE* f = std::fopen("/dev/full", "w");
    if (f == nullptr) GTEST_SKIP() << "no /dev/full here";
    EXPECT_EQ(g->Store(f, 0), kGAEBWriteFailed);  // closed by Store (flag 1)

    // A large one fails in the middle of writing, before any close.
    auto big = MakeBill();
    std::string lang(5000, 'x');
    for (int i = 0; i < 50; ++i) {
        big->GetVergabePtr()->GetLVPtr()->AddLVEntity(MakePosition("9", 1, "m", "k", lang.c_str()));
    }
    big->SetFlag(0);
    f = std::fopen("/dev/full", "w");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(big->Store(f, 0), kGAEBWriteFailed);
    std::fclose(f);
}

// A stream with room for a few bytes is a POSIX memory stream; Windows has none.
#ifndef _WIN32
TEST(GaebStore, FailedWriteKeepsWhatWasWrittenAndStopsTheBlock) {
    auto g = MakeBill();
    const std::string full = Stored(*g, 0);
    for (size_t room : {size_t{1}, size_t{5}, size_t{100}, full.size() / 2, full.size() - 2}) {
        std::vector<char> buf(room + 1, '\0');
        FILE* f = fmemopen(buf.data(), room, "w");
        ASSERT_NE(f, nullptr);
        std::setvbuf(f, nullptr, _IONBF, 0);
        g->SetFlag(0);
        EXPECT_EQ(g->Store(f, 0), kGAEBWriteFailed) << room;
        std::fclose(f);
        EXPECT_EQ(std::string(buf.data(), std::strlen(buf.data())),
                  full.substr(0, std::strlen(buf.data())));
        EXPECT_GE(std::strlen(buf.data()) + 64, room) << "most of the room is used";
    }
}
#endif

TEST(GaebStore, OpenByPathStoresAndClosesThenLoadsBack) {
    const std::string path = ::testing::TempDir() + "kbase_gaeb_open_\xC3\xA4.X83";  // a UTF-8 name
    const UtCString name(path.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
    auto g = MakeBill();
    FILE* f = UtGAEB::Open(name, 1);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(g->Store(f, 0), kGAEBOk);  // and closes it (flag 1)
    f = UtGAEB::Open(name, 0);
    ASSERT_NE(f, nullptr);
    UtGAEB back;
    EXPECT_EQ(back.Load(f), kGAEBOk);
    std::fclose(f);
    back.SetFlag(0);
    EXPECT_EQ(Stored(back, 0), kBill);
    std::remove(path.c_str());
    EXPECT_EQ(UtGAEB::Open(UtCString("/no/such/dir/x.X83"), 0), nullptr);
}

TEST(GaebStore, SettersCutLongTextAndReportCharactersThatCp1252Lacks) {
    UtGAEBPosition p;
    const std::string longOz(kGAEBSizeOZ + 10, '1');
    EXPECT_EQ(p.SetOZ(longOz.c_str()), kGAEBTextCut);
    EXPECT_EQ(std::string(p.GetOZ()), longOz.substr(0, kGAEBSizeOZ - 1));
    EXPECT_EQ(p.SetOZ(std::string(kGAEBSizeOZ - 1, '2').c_str()), kGAEBOk);

    // UTF-8 "Fläche €" becomes 1252 bytes; a Greek letter has no place in 1252.
    EXPECT_EQ(p.SetME(UtCString("Fl\xC3\xA4"
                                "che \xE2\x82\xAC",
                                eUtEncodingTypeUtf8, eUtEncodingTypeUtf8)),
              kGAEBOk);
    EXPECT_STREQ(p.GetME(),
                 "Fl\xE4"
                 "che \x80");
    // Texts kept in UTF-16, whatever the system's code page.
    EXPECT_EQ(p.SetME(UtCString(u"m\u00B2 \u03A9", eUtEncodingTypeUtf16)), kGAEBTextReplaced);
    EXPECT_STREQ(p.GetME(), "m\xB2 ?");
    EXPECT_EQ(p.SetME(UtCString(std::u16string(40, u'\u03A9'), eUtEncodingTypeUtf16)),
              kGAEBTextReplaced | kGAEBTextCut);
    EXPECT_EQ(std::strlen(p.GetME()), kGAEBSizeME - 1);

    UtGAEBBeschreibung* b = p.GetBeschreibungPtr();
    const std::string huge(100000, 'a');
    EXPECT_EQ(b->SetLangtext(huge.c_str()), kGAEBOk);  // allocated: no limit
    EXPECT_EQ(b->GetLangtextLength(), huge.size());
    char small[4];
    EXPECT_EQ(b->GetLangtext(small, sizeof small), kGAEBTextCut);
    EXPECT_STREQ(small, "aaa");
    EXPECT_EQ(b->GetLangtext(nullptr, 10), kGAEBNullFile);
}

TEST(GaebModel, KeyTypesDatesListsAndNestedRangeSearch) {
    struct {
        const char* typ;
        GAEB_LV_KEY_TYPE type;
    } const types[] = {{"LVStufe", eGAEBLVKeyLVStufe}, {"Position", eGAEBLVKeyPosition},
                       {"Index", eGAEBLVKeyOther},     {"lvstufe", eGAEBLVKeyOther},
                       {"", eGAEBLVKeyOther},          {"Position ", eGAEBLVKeyOther}};
    for (const auto& t : types) {
        UtGAEBLVGlied g;
        g.SetTyp(t.typ);
        EXPECT_EQ(g.GetKeyType(), t.type) << t.typ;
    }

    UtGAEBDatum d;
    EXPECT_GT(d.GetYear(), 2000);  // today
    d.SetDate(5, 11, 2026);
    EXPECT_EQ(d.GetDay(), 5);
    EXPECT_EQ(d.GetMonth(), 11);
    EXPECT_EQ(d.GetYear(), 2026);
    d.SetDatum("17.04");
    EXPECT_EQ(d.GetMonth(), 4);
    EXPECT_EQ(d.GetYear(), 0);

    UtGAEB root(eGAEBTypeInfo);
    EXPECT_EQ(root.GetVergabePtr(), nullptr);
    EXPECT_EQ(root.GetFlag(), 1);
    root.SetGAEBType(eGAEBTypeLV);
    ASSERT_NE(root.GetVergabePtr(), nullptr);
    auto g = MakeBill();
    UtGAEBLV* lv = g->GetVergabePtr()->GetLVPtr();
    EXPECT_EQ(lv->GetLVEntityCount(), 2);
    EXPECT_EQ(lv->GetLVEntityPtr(2), nullptr);
    EXPECT_EQ(lv->GetLVEntityPtr(-1), nullptr);
    ASSERT_NE(lv->FindLVBereich("01.02"), nullptr);
    EXPECT_STREQ(lv->FindLVBereich(" 01.02 ")->GetBez(), "Aushub");
    EXPECT_STREQ(lv->FindLVBereich("01")->GetBez(), "Erdarbeiten");
    EXPECT_EQ(lv->FindLVBereich("0020"), nullptr);  // a position, not a range
    EXPECT_EQ(lv->FindLVBereich(nullptr), nullptr);
    EXPECT_EQ(lv->FindLVBereich("01")->FindLVBereich("01"), nullptr);
    EXPECT_EQ(lv->GetLVInfoPtr()->GetLVGliedPtr(1)->GetKeyType(), eGAEBLVKeyPosition);
    lv->GetLVInfoPtr()->ResetLVGliedList();
    lv->ResetLVEntityList();
    EXPECT_EQ(lv->GetLVInfoPtr()->GetLVGliedCount(), 0);
    EXPECT_EQ(lv->FindLVBereich("01"), nullptr);
}

}  // namespace
