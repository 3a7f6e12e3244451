// Every allocation of a representative scenario per subsystem fails in turn (see alloc_sweep.h).
// Each run must give the documented result of a refused allocation (a status, an unchanged
// object, std::bad_alloc from a standard container), leave what it touched consistent, and leak
// nothing (checked once per scenario by the leak checker of the sanitizer build).
#include "alloc_sweep.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "basert/memory.h"
#include "kbase/object_store/ObObject.h"
#include "kbase/object_store/ObStore.h"
#include "kbase/params/ObCondition.h"
#include "kbase/params/ObParamList.h"
#include "kbase/params/ObParamScalar.h"
#include "kbase/streams/ExMain.h"
#include "kbase/streams/XdStream.h"
#include "kbase/tables/CSVTableWithHeader.h"
#include "kbase/tables/UtCCsvReader.h"
#include "kbase/tables/UtTable.h"
#include "kbase/tables/internal/line_source.h"
#include "kbase/text/UtCStringList.h"
#include "kbase/text/UtCUtf.h"
#include "sweep_scenarios.h"

namespace {

using kbase_test::SweepPoint;
using Armed = SweepPoint::Armed;

using kbase_test::kCp;
using kbase_test::kU8;
using kbase_test::Text;

// A string's own invariants: terminated, and its length agrees with its text.
void ExpectWellFormed(const UtCString& s) {
    ASSERT_NE(s.ptr(), nullptr);
    if (s.isUtf8EncodingType()) {
        EXPECT_EQ(std::string(s.ptr(), 3), "\xEF\xBB\xBF");
        EXPECT_EQ(s.GetLength(), static_cast<int>(UtCUtf8::CountCodePoints(s.ptr() + 3)));
    } else if (!s.isUtf16EncodingType()) {
        EXPECT_EQ(s.ptr()[s.GetLength()], '\0');
    }
}

// `actual` is one of the values an operation may leave: its result or what was there before.
void ExpectOneOf(const UtCString& actual, const UtCString& after, const UtCString& before) {
    ExpectWellFormed(actual);
    EXPECT_TRUE(actual == after || actual == before)
        << actual.GetUtf8String(0) << " is neither " << after.GetUtf8String(0) << " nor "
        << before.GetUtf8String(0);
}

// Runs one operation with allocations counted; a std::bad_alloc it lets through is recorded.
// Checks run outside, where nothing fails.
template <typename F>
void Step(SweepPoint& p, bool& threw, F operation) {
    try {
        Armed armed(p);
        operation();
    } catch (const std::bad_alloc&) {
        threw = true;
    }
}

// Strings: built with conversions, edited, written to and read from a memory record, and kept in
// a sorted list and its copy.
void BuildAndEditStrings(SweepPoint& p) {
    bool threw = false;
    UtCString s(kU8);
    Step(p, threw, [&] {
        s = Text(
            "Ma\xDF"
            "e und Gewichte",
            kU8);
    });
    ExpectOneOf(s,
                Text("Ma\xDF"
                     "e und Gewichte",
                     kU8),
                UtCString(kU8));
    // Arguments are made outside the windows: an argument that could not be made would be
    // another, valid, operation.
    const UtCString tail = Text(" 12,5 m\xB2"), what = Text("Gewichte"), with = Text("Preise");
    UtCString previous = s;
    Step(p, threw, [&] { s += tail; });
    ExpectOneOf(s, previous + tail, previous);
    previous = s;
    Step(p, threw, [&] { s.replace(what, with); });
    UtCString replaced = previous;
    replaced.replace(what, with);
    ExpectOneOf(s, replaced, previous);
    previous = s;
    Step(p, threw, [&] { s.SetToUpper(); });
    ExpectOneOf(s, previous.toUpper(), previous);

    unsigned char* block = nullptr;
    uint64_t size = 0;
    bool saved = false, readOk = false;
    UtCString read(kCp);
    uint64_t offset = 0;
    Step(p, threw, [&] { saved = s.SaveToMem(&block, size); });
    EXPECT_EQ(saved, block != nullptr);
    if (saved) Step(p, threw, [&] { readOk = read.ReadFromMem(block, size, offset); });
    if (readOk) {
        EXPECT_EQ(read, s);
        EXPECT_EQ(offset, size);
    } else {
        EXPECT_EQ(read, UtCString(kCp));  // unchanged
        EXPECT_EQ(offset, 0u);
    }
    UtFreeMemory(block);

    UtCStringList list;
    std::vector<UtCString> added;
    for (const char* t :
         {"Ziegel", "M\xF6rtel", "Sand", "Kies", "Zement", "Beton", "Stahl", "Holz"}) {
        const long before = list.count();
        const UtCString item = Text(t, before % 2 == 0 ? kCp : kU8);
        Step(p, threw, [&] { list.Add(item); });
        ASSERT_LE(list.count(), before + 1);
        if (list.count() == before + 1) added.push_back(Text(t));
    }
    Step(p, threw, [&] { list.Sort(); });
    Step(p, threw, [&] {
        const UtCStringList copy(list);
        if (copy.count() == list.count() && copy.CompareTo(list) != 0)
            ADD_FAILURE() << "a copy differs";
    });
    // The list holds exactly the strings that were added, whatever failed.
    EXPECT_EQ(list.count(), static_cast<long>(added.size()));
    for (long i = 0; i < list.count(); ++i) {
        ExpectWellFormed(list[i]);
        EXPECT_NE(std::find(added.begin(), added.end(), list[i]), added.end())
            << list[i].GetUtf8String(0) << " " << list[i].encodingType() << " n=" << p.n();
    }
    if (!p.Failed()) {
        EXPECT_FALSE(threw);
        EXPECT_EQ(s, Text("MA\xDF"
                          "E UND PREISE 12,5 M\xB2",
                          kU8)
                         .toUpper());
        EXPECT_EQ(list.count(), 8);
    }
}

// A table: filled, sorted by two keys, de-duplicated and grouped with a sum.
std::vector<std::string> Rows(const UtTable& t) {
    std::vector<std::string> rows;
    for (const UtTableRow& row : t.GetRowList()) {
        std::string r;
        for (long c = 0; c < row.GetElemCount(); ++c) {
            UtCString cell;
            EXPECT_TRUE(row.GetElem(c, cell));
            r += cell.GetAnsiString() + "|";
        }
        rows.push_back(r);
    }
    return rows;
}

std::vector<std::string> Sorted(std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
}

void FillAndSortTable(SweepPoint& p) {
    UtTable t;
    bool threw = false;
    // Each row gets its cells unless memory runs out; a refused cell is not added.
    std::vector<std::string> added;
    for (int r = 0; r < 12; ++r) {
        const std::string cells[] = {std::to_string(r % 4),
                                     r % 3 == 0 ? "Nord"
                                                : "S\xFC"
                                                  "d",
                                     std::to_string(r * 7 % 5)};
        const uint64_t rowsBefore = t.GetRowCount();
        Step(p, threw, [&] { t.AddRow(); });
        if (t.GetRowCount() == rowsBefore) continue;
        std::string row;
        for (const std::string& c : cells) {
            const unsigned long before = t.GetElemCount();
            Step(p, threw, [&] { t.AddElem(c.c_str()); });
            if (t.GetElemCount() == before + 1) row += c + "|";
        }
        added.push_back(row);
    }
    const std::vector<std::string> filled = Rows(t);
    EXPECT_EQ(filled, added);
    const long cols[] = {1, 0};
    const short dirs[] = {0, 1};
    Step(p, threw, [&] { t.Sort(2, cols, dirs); });
    const std::vector<std::string> sorted = Rows(t);
    EXPECT_EQ(Sorted(sorted), Sorted(filled));  // sorted, or left as it was
    Step(p, threw, [&] { t.RemoveDuplicate(); });
    std::vector<std::string> unique = Sorted(sorted);
    unique.erase(std::unique(unique.begin(), unique.end()), unique.end());
    const std::vector<std::string> rows = Rows(t);
    EXPECT_TRUE(Sorted(rows) == unique || rows == sorted);  // one of each, or left as it was
    if (!p.Failed()) {
        EXPECT_FALSE(threw);
        EXPECT_EQ(rows.size(), 12u);  // 12 distinct rows
    }
}

// A CSV file read three ways: cut lines after a detecting scan, RFC 4180 records, and a table.
std::string SampleCsv() {
    const char* root = std::getenv("KBASE_SOURCE_DIR");
    return root != nullptr
               ? (std::filesystem::path(root) / "examples" / "bestellungen.csv").string()
               : std::string();
}

struct CsvRead {
    std::vector<std::string> tokens;   // token 0 of each row
    std::vector<std::string> records;  // fields of each record joined by '|'
    UtCCsvReader::TReadState rowState = UtCCsvReader::eReadOk;
    UtCCsvReader::TReadState recordState = UtCCsvReader::eReadOk;
    CSVTableWithHeader::Table table;
    bool loaded = false;
};

void ReadCsv(const UtCString& path, CsvRead& out) {
    {
        UtCCsvReader r(path);
        if (r.Reset(true)) {
            while (r.ParseNextRow(true)) out.tokens.push_back(r.GetTokenPtr(0));
        }
        out.rowState = r.GetReadState();
    }
    {
        UtCCsvReader r(path);
        r.SetQuoted(true);
        for (int n; (n = r.ReadRecord()) >= 0;) {
            std::string joined;
            for (int i = 0; i < n; ++i)
                joined += std::string(r.GetFieldPtr(i), r.GetFieldLength(i)) + "|";
            out.records.push_back(joined);
        }
        out.recordState = r.GetReadState();
    }
    CSVTableWithHeader t(path, ';', true);
    out.loaded = t.IsLoaded();
    out.table = t.GetTable();
}

template <typename T>
bool IsPrefix(const std::vector<T>& part, const std::vector<T>& whole) {
    return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

void ReadCsvFile(SweepPoint& p) {
    const std::string file = SampleCsv();
    ASSERT_FALSE(file.empty()) << "KBASE_SOURCE_DIR is not set";
    const UtCString path(file.c_str(), kU8, kU8);
    kbase_tables_internal::SetLineSourceLimitsForTesting(16, 0);  // lines grow the buffer
    CsvRead expected;
    ReadCsv(path, expected);
    ASSERT_GT(expected.records.size(), 3u);
    CsvRead got;
    bool threw = false;
    try {
        Armed armed(p);
        ReadCsv(path, got);
    } catch (const std::bad_alloc&) {
        threw = true;
    }
    kbase_tables_internal::SetLineSourceLimitsForTesting(0, 0);
    // What was read is what the file holds, up to where memory ran out, and the reader says so.
    EXPECT_TRUE(IsPrefix(got.tokens, expected.tokens));
    EXPECT_TRUE(IsPrefix(got.records, expected.records));
    // A reader that ran out of memory says so (or, when opening took it, that it is not open).
    if (!threw && got.records.size() < expected.records.size()) {
        EXPECT_TRUE(got.recordState == UtCCsvReader::eReadNoMemory ||
                    got.recordState == UtCCsvReader::eReadNotOpen)
            << got.recordState;
    }
    if (!threw && got.loaded) {
        EXPECT_EQ(got.table, expected.table);
    }
    if (!p.Failed()) {
        EXPECT_FALSE(threw);
        EXPECT_EQ(got.tokens, expected.tokens);
        EXPECT_EQ(got.records, expected.records);
        EXPECT_EQ(got.rowState, expected.rowState);
        EXPECT_TRUE(got.loaded);
    }
}

// Runs an operation with allocations counted; true when it failed as the checked streams say
// they fail (an ExMain exception) or with std::bad_alloc.
template <typename F>
bool FailsAsDocumented(SweepPoint& p, F operation) {
    try {
        Armed armed(p);
        operation();
        return false;
    } catch (const kbase::ExMain&) {
        return true;
    } catch (const std::bad_alloc&) {
        return true;
    }
}

// A checked XDR file written and read back by name.
void WriteAndReadXdrFile(SweepPoint& p) {
    const std::string file = (std::filesystem::temp_directory_path() /
                              ("kbase_sweep_" + std::to_string(getpid()) + ".xd"))
                                 .string();
    const UtCString path(file.c_str(), kU8, kU8), writeMode = Text("w"), readMode = Text("r");
    std::remove(file.c_str());
    int written = 0;
    const bool writeFailed = FailsAsDocumented(p, [&] {
        XdStdio out(path, writeMode);
        for (int i = 0; i < 40; ++i) {
            out << i << static_cast<double>(i) / 4 << (i % 5 == 0 ? "Bezirk Nord" : "");
            ++written;
        }
        if (!out.Flush()) throw kbase::ExWrite("flush", 0);
    });
    if (!p.Failed()) {
        EXPECT_FALSE(writeFailed);
    }
    // Reading: the items come back in order, as far as they were written and memory lasts.
    int readBack = 0;
    const bool readFailed = FailsAsDocumented(p, [&] {
        XdStdio in(path, readMode);
        for (int i = 0; i < written; ++i) {
            int n = -1;
            double d = -1;
            char* text = nullptr;
            in >> n >> d >> &text;
            const std::string t = text != nullptr ? text : "?";
            UtFreeMemory(text);
            EXPECT_EQ(n, i);
            EXPECT_EQ(d, static_cast<double>(i) / 4);
            EXPECT_EQ(t, i % 5 == 0 ? "Bezirk Nord" : "");
            ++readBack;
        }
    });
    if (!p.Failed()) {
        EXPECT_FALSE(readFailed);
        EXPECT_EQ(readBack, 40);
    }
    std::remove(file.c_str());
}

// The object store: objects made, linked into a chain and a fan, an update walked along the
// associations, then destroyed.
OB_STATUS Quiet(_ObObject*) {
    return OB_OK;
}
OB_STATUS PassOn(_ObObject*, const AssociationInfo*, _ObObject*, OB_METHOD_ID, OB_METHOD_PARAM) {
    return OB_OK;
}

int SweepClass() {
    static const int cls = [] {
        ObInit();
        const int c = 1990;
        EXPECT_EQ(ObDefineClass(c, "SweepNode", nullptr, Quiet, nullptr, nullptr, nullptr, nullptr,
                                nullptr, Quiet, PassOn, nullptr, nullptr),
                  0);
        EXPECT_EQ(ObDefineAssociationType(1990, "SweepLink", 0xFFFF), 0);
        return c;
    }();
    return cls;
}

// Every record on an object's lists has its mirror on the partner's opposite list.
void ExpectMirrored(_ObObject* h) {
    for (ObAssociation* r = ObGetFirstAssociation(h, OB_ASSOC_ACTIVE); r != nullptr;
         r = ObGetNextAssociationFast(r)) {
        EXPECT_NE(ObFindPassiveAssociationFast(ObGetAssocPartner(r), h, 1990), nullptr);
    }
    for (ObAssociation* r = ObGetFirstAssociation(h, OB_ASSOC_PASSIVE); r != nullptr;
         r = ObGetNextAssociationFast(r)) {
        EXPECT_NE(ObFindActiveAssociationFast(ObGetAssocPartner(r), h, 1990), nullptr);
    }
}

void LinkAndWalkObjects(SweepPoint& p) {
    const int cls = SweepClass();
    std::vector<_ObObject*> objects;
    OB_STATUS update = OB_OK;
    int links = 0;
    objects.reserve(6);
    for (int i = 0; i < 6; ++i) {
        _ObObject* h = nullptr;
        {
            Armed armed(p);
            h = ObCreate(cls);  // null when memory is exhausted
        }
        if (h != nullptr) objects.push_back(h);
    }
    for (size_t i = 1; i < objects.size(); ++i) {
        int chain, fan;
        {
            Armed armed(p);
            chain = ObAddAssociation(objects[i], objects[i - 1], 1990);
            fan = ObAddAssociation(objects[i], objects[0], 1990);
        }
        EXPECT_TRUE(chain == 0 || chain == -5) << chain;  // -5: memory exhausted
        EXPECT_TRUE(fan == 0 || fan == -5) << fan;
        links += (chain == 0) + (fan == 0);
    }
    for (_ObObject* h : objects) ExpectMirrored(h);
    {
        Armed armed(p);
        if (!objects.empty()) update = ObUpdate(objects[0]);
    }
    EXPECT_TRUE(update == OB_OK || update == OB_FAILED) << update;
    for (size_t i = objects.size(); i-- > 0;) {
        OB_STATUS rc;
        {
            Armed armed(p);
            rc = ObDestroy(objects[i]);
        }
        EXPECT_TRUE(rc == OB_OK || rc == OB_FAILED) << rc;
    }
    if (!p.Failed()) {
        EXPECT_EQ(objects.size(), 6u);
        EXPECT_EQ(links, 10);
        EXPECT_EQ(update, OB_OK);
    }
    ObDestroyDelayedList();
}

// Parameters: a dialog's list filled with parameters of each kind, with conditions between them.
void FillParameterList(SweepPoint& p) {
    bool threw = false;
    ObParamList list;
    const UtCString names[] = {Text("Breite"), Text("H\xF6he"), Text("Name"), Text("Tragend")};
    const UtCString unit = Text("m"), value = Text("Wand 1");
    ObParam* made[4] = {};
    for (int i = 0; i < 4; ++i) {
        long at = -1;
        Step(p, threw, [&] {
            ObParam* param = nullptr;
            switch (i) {
                case 0:
                    param = new ObParamInt(1, names[0], 240);
                    break;
                case 1:
                    param = new ObParamFloat(2, names[1], 2.5, unit);
                    break;
                case 2:
                    param = new ObParamString(3, names[2], value, 40);
                    break;
                default:
                    param = new ObParamBool(4, names[3], 1);
                    break;
            }
            at = list.Add(param);  // a refused one is destroyed by the list
        });
        if (at >= 0) made[i] = list.Get(at);
    }
    for (long i = 0; i < list.GetCount(); ++i) ASSERT_NE(list.Get(i), nullptr);
    if (made[0] != nullptr && made[3] != nullptr) {
        Step(p, threw, [&] { (void)made[3]->AddConditionInt(made[0], 2, 100); });
        // Refused or not, no empty condition list is left behind: it would disable the flag.
        const ObCondList* conditions = made[3]->GetCondList();
        EXPECT_TRUE(conditions == nullptr || conditions->GetCondCount() == 1);
    }
    if (!p.Failed()) {
        EXPECT_FALSE(threw);
        EXPECT_EQ(list.GetCount(), 4);
        ASSERT_NE(made[3], nullptr);
        EXPECT_NE(made[3]->GetCondList(), nullptr);
    }
}

struct Scenario {
    const char* name;
    std::function<void(SweepPoint&)> run;
    uint64_t minimumPoints;  // the sweep must reach at least this many (it really fails things)
};

class AllocationSweep : public ::testing::TestWithParam<Scenario> {};

TEST_P(AllocationSweep, EveryAllocationFailsInTurn) {
    const Scenario& s = GetParam();
    const uint64_t points = kbase_test::SweepAllocations(s.run);
    RecordProperty("failure_points", std::to_string(points));
    std::printf("[ sweep    ] %s: %llu failure points\n", s.name,
                static_cast<unsigned long long>(points));
    EXPECT_GE(points, s.minimumPoints);
    EXPECT_FALSE(kbase_test::LeaksFound());
}

INSTANTIATE_TEST_SUITE_P(Subsystems, AllocationSweep,
                         ::testing::Values(Scenario{"strings", BuildAndEditStrings, 10},
                                           Scenario{"table", FillAndSortTable, 10},
                                           Scenario{"csv", ReadCsvFile, 10},
                                           Scenario{"xdr_file", WriteAndReadXdrFile, 5},
                                           Scenario{"object_store", LinkAndWalkObjects, 5},
                                           Scenario{"parameters", FillParameterList, 5},
                                           Scenario{"logging", LogToFile, 5},
                                           Scenario{"callbacks", RegisterAndFireCallbacks, 5},
                                           Scenario{"variables", SubstituteVariables, 5},
                                           Scenario{"gaeb", StoreAndLoadBill, 5},
                                           Scenario{"code_page_opening", OpenCodePages, 10},
                                           Scenario{"code_page_calls", DecodeAndNormalise, 3}),
                         [](const ::testing::TestParamInfo<Scenario>& param) {
                             return std::string(param.param.name);
                         });

}  // namespace
