// UtCStringList and the comparators: ordering rules, kept quirks, reports, the memory record.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "basert/memory.h"
#include "kbase/text/UtCStringList.h"
#include "test_support.h"

namespace {

UtCString S(const char* s) { return UtCString(s, eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252); }

std::vector<std::string> Texts(const UtCStringList& l) {
    std::vector<std::string> v;
    for (long i = 0; i < l.count(); ++i) v.push_back(l[i].GetUtf8String(0));
    return v;
}

using V = std::vector<std::string>;

TEST(StringList, AddingMembersKeepOrderEncodingAndUniqueness) {
    UtCStringList l;
    l.Add(S("b")).Add(UtCString(u"\u00E4", eUtEncodingTypeUtf16)).Insert(0, S("a")).Insert(9, S("never"));
    EXPECT_EQ(Texts(l), (V{"a", "b", "\xC3\xA4"}));
    EXPECT_EQ(l[2].encodingType(), eUtEncodingTypeUtf16);  // the copy keeps the source's encoding
    l.AddUnique(S("b")).AddUnique(S("c"));
    EXPECT_EQ(Texts(l), (V{"a", "b", "\xC3\xA4", "c"}));

    UtCStringList unique;
    unique.AddListUnique(UtCStringList{S("x"), S("x"), S("y")});
    EXPECT_EQ(Texts(unique), (V{"x", "y"}));
    unique.AddList(unique);  // a list appended to itself doubles once
    EXPECT_EQ(Texts(unique), (V{"x", "y", "x", "y"}));
}

TEST(StringList, AddSortedIsOrdinalAndGoesBeforeEqualElements) {
    UtCStringList l{S("a"), S("c")};
    l.AddSorted(S("b"));
    EXPECT_EQ(Texts(l), (V{"a", "b", "c"}));
    l.AddSorted(S("z")).AddSorted(S(""));
    EXPECT_EQ(Texts(l), (V{"", "a", "b", "c", "z"}));
    // Before the equal element: visible through which object is at the found index.
    UtCString* before = &l[1];
    l.AddSorted(S("a"));
    EXPECT_NE(&l[1], before);
    EXPECT_EQ(&l[2], before);
    // Ordinal even with another comparator: "a10" < "a9" by bytes.
    UtCStringList n(new UtCStringMultiNumberComparator());
    n.AddSorted(S("a9")).AddSorted(S("a10"));
    EXPECT_EQ(Texts(n), (V{"a10", "a9"}));
}

TEST(StringList, SearchingWithTheListsAndAGivenComparator) {
    UtCStringList l{S("x"), S("y"), S("x"), S("z")};
    EXPECT_TRUE(l.Contains(S("y")));
    EXPECT_FALSE(l.Contains(S("q")));
    EXPECT_EQ(l.Search(S("x")), 0);
    EXPECT_EQ(l.Search(S("x"), 1), 2);
    EXPECT_EQ(l.Search(S("x"), 3), -1);
    EXPECT_EQ(l.RemoveAll(S("x")), 2);
    EXPECT_EQ(Texts(l), (V{"y", "z"}));
    EXPECT_TRUE(l.Remove(S("z"), nullptr));
    EXPECT_FALSE(l.Remove(S("z"), nullptr));

    UtCStringList none(nullptr);  // no comparator: Contains is false, Search is ordinal
    none.Add(S("k"));
    EXPECT_FALSE(none.Contains(S("k")));
    EXPECT_EQ(none.Search(S("k")), 0);
    UtCStringComparator ordinal;
    EXPECT_EQ(none.Search(S("k"), 0, &ordinal), 0);
    none.Sort();  // does nothing, does not crash
    EXPECT_EQ(Texts(none), (V{"k"}));
}

TEST(StringList, SortAndBinarySearch) {
    UtCStringList l{S("d"), S("b"), S("a"), S("c"), S("b")};
    l.Sort();
    EXPECT_EQ(Texts(l), (V{"a", "b", "b", "c", "d"}));
    for (const char* s : {"a", "c", "d"}) EXPECT_EQ(l[l.SearchSorted(S(s))].GetUtf8String(0), s);
    EXPECT_GE(l.SearchSorted(S("b")), 1);
    EXPECT_EQ(l.SearchSorted(S("bb")), -1);
    EXPECT_EQ(l.SearchSorted(S("0")), -1);
    EXPECT_EQ(l.SearchSorted(S("e")), -1);
    UtCStringList empty;
    EXPECT_EQ(empty.SearchSorted(S("a")), -1);

    kbase_test::DiagCapture diag;
    UtCStringList none(nullptr);
    none.Add(S("a"));
    EXPECT_EQ(none.SearchSorted(S("a")), -1);
    ASSERT_EQ(diag.reports().size(), 1u);
    EXPECT_EQ(diag.reports()[0].module, "UtC_string");
    EXPECT_EQ(diag.reports()[0].line, 6627);
    EXPECT_EQ(diag.reports()[0].function, "UtCStringList::BinarySearch");
    EXPECT_EQ(diag.reports()[0].message, "invalid index");
}

TEST(StringList, BadIndexIsReportedAndGivesAnEmptySharedString) {
    kbase_test::DiagCapture diag;
    UtCStringList l{S("a")};
    UtCString& bad = l[5];
    EXPECT_TRUE(bad.IsEmpty());
    bad = S("scribbled");
    EXPECT_TRUE(l.item(-1).IsEmpty());  // emptied again for the next caller
    ASSERT_EQ(diag.reports().size(), 2u);
    const auto& r = diag.reports()[0];
    EXPECT_EQ(r.module, "UtC_string");
    EXPECT_EQ(r.line, 6374);
    EXPECT_EQ(r.function, "UtCStringList::item");
    EXPECT_EQ(r.level, 2);
    EXPECT_EQ(r.message, "invalid index = 5, count = 1");
    EXPECT_EQ(diag.reports()[1].message, "invalid index = -1, count = 1");
    EXPECT_EQ(l.count(), 1);
}

TEST(StringList, CompareToAndEquality) {
    struct Case {
        V a, b;
        int expected;
    };
    const Case cases[] = {{{}, {}, 0},           {{"a"}, {"a", "b"}, -1}, {{"a", "b"}, {"a"}, 1},
                          {{"a", "c"}, {"a", "b"}, 1}, {{"a", "b"}, {"b"}, -1}, {{"x", "y"}, {"x", "y"}, 0}};
    for (const Case& c : cases) {
        UtCStringList a, b;
        for (const auto& s : c.a) a.Add(S(s.c_str()));
        for (const auto& s : c.b) b.Add(S(s.c_str()));
        EXPECT_EQ(a.CompareTo(b), c.expected) << c.a.size() << " vs " << c.b.size();
        EXPECT_EQ(a == b, c.expected == 0);
    }
}

TEST(StringList, CopiesAreDeepAndCloneTheComparator) {
    UtCStringList a(new UtCStringMultiNumberComparator());
    a.Add(S("one"));
    UtCStringList b(a);
    b[0] = S("changed");
    EXPECT_EQ(a[0].GetUtf8String(0), "one");
    ASSERT_NE(b.GetComparator(), nullptr);
    EXPECT_NE(b.GetComparator(), a.GetComparator());
    EXPECT_NE(dynamic_cast<const UtCStringMultiNumberComparator*>(b.GetComparator()), nullptr);
    a = b;
    EXPECT_EQ(Texts(a), (V{"changed"}));
    UtCStringList moved(std::move(a));
    EXPECT_EQ(Texts(moved), (V{"changed"}));
    EXPECT_EQ(a.count(), 0);  // NOLINT(bugprone-use-after-move): moved-from lists are empty

    moved.SetComparator(nullptr);  // ignored
    EXPECT_NE(moved.GetComparator(), nullptr);
}

TEST(StringList, EditsAndConcatenation) {
    UtCStringList l{S("  A "), S("Bb"), S("c ")};
    l.Trim();
    l.SetToLower();
    EXPECT_EQ(Texts(l), (V{"a", "bb", "c"}));
    EXPECT_EQ(l.Concatenate(S(", ")).GetUtf8String(0), "a, bb, c");
    UtCString out(eUtEncodingTypeUtf16);
    l.Concatenate(S("-"), out, 1, 99);
    EXPECT_EQ(out.GetUtf8String(0), "bb-c");
    EXPECT_EQ(out.encodingType(), eUtEncodingTypeUtf16);
    l.Concatenate(S("-"), out, 2, 1);
    EXPECT_TRUE(out.IsEmpty());
    l.Swap(0, 2);
    l.Remove(1);
    l.Remove(7);
    EXPECT_EQ(Texts(l), (V{"c", "a"}));
    l.Clear();
    EXPECT_TRUE(l.IsEmpty());
    EXPECT_NE(l.GetComparator(), nullptr);
}

TEST(StringList, AllocationFailureLeavesTheListUnchanged) {
    UtCStringList l{S("a")};
    const UtCString added = S("longer text");
    for (int n = 1; n <= 3; ++n) {
        kbase_test::FailNthAllocation fail(n);
        l.Add(added);
    }
    // The string object (1) and its text (2) failing drop the addition; the third one succeeds.
    EXPECT_EQ(Texts(l), (V{"a", "longer text"}));
}

// ---- the multi-number comparator ------------------------------------------------------------------

TEST(MultiNumberComparator, ValuesComeFromTheFirstStringAndKeepTheirAsymmetry) {
    UtCStringMultiNumberComparator c;
    struct Case {
        const char* a;
        const char* b;
        int expected;
    };
    const Case cases[] = {
        {"a10", "a9", 1},        // 10 against "a1" = 1
        {"a9", "a10", 1},        // both values from "a9": equal, so the bytes decide
        {"x2", "x3", -1},        // equal values from "x2": ordinal
        {"12", "3", 1},          // 12 against "1"
        {"3", "12", 1},          // both 3 from "3": ordinal "3" > "12"
        {"v1.5", "v1.5", 0},     // a run with a point is one number
        {"1,5x", "1,5y", -1},    // "1,5" is no number: value 0, so ordinal
        {"b", "a", 1},           // no runs at all: ordinal
        {"2a3", "2a", 1},        // two runs 2*100000+3 against one run 2 (times 100000)
    };
    for (const Case& k : cases) {
        EXPECT_EQ(c.Compare(S(k.a), S(k.b)), k.expected) << k.a << " vs " << k.b;
    }
    // Only 8-bit strings have digits: in UTF-16 the ordinal order decides.
    const UtCString w10(u"a10", eUtEncodingTypeUtf16), w9(u"a9", eUtEncodingTypeUtf16);
    EXPECT_EQ(c.Compare(w10, w9), -1);
    EXPECT_EQ(c.ComparePtr(nullptr, &w9), 1);
    EXPECT_EQ(c.ComparePtr(&w9, &w9), 0);
    EXPECT_TRUE(c.IsEqual(S("q"), S("q")));
}

TEST(MultiNumberComparator, LongStringsEndAtTheSixteenBitIndex) {
    std::string a(70000, 'x');
    a += "5";
    std::string b(70000, 'x');
    b += "7";
    UtCStringMultiNumberComparator c;
    // The digits lie past the scanned range: no values, so the ordinal order decides.
    EXPECT_EQ(c.Compare(S(a.c_str()), S(b.c_str())), -1);
}

TEST(TokenizeNumeric, NaturalOrderWithTheComparatorsRules) {
    struct Case {
        const char* a;
        const char* b;
        bool ignoreCase;
        int sign;
    };
    const Case cases[] = {
        {"file10", "file9", true, 1},   // 10 > 9 as numbers
        {"file9", "file10", true, 1},   // the kept asymmetry: "9" against "1" of itself
        {"File2", "file2", true, 0},    // case folded
        {"File2", "file2", false, -1},  // 'F' < 'f'
        {"a1b2", "a1b3", true, -1},
        {"", "a", true, -1},
    };
    for (const Case& k : cases) {
        const int r = S(k.a).CompareToNoCaseTokenizeNumeric(S(k.b), k.ignoreCase);
        EXPECT_EQ((r > 0) - (r < 0), k.sign) << k.a << " vs " << k.b;
    }
    // Digits of UTF-16 text are compared as numbers too (digit runs are made 8-bit).
    EXPECT_GT(UtCString(u"x10", eUtEncodingTypeUtf16).CompareToNoCaseTokenizeNumeric(UtCString(u"x9", eUtEncodingTypeUtf16), true), 0);
}

// ---- memory record --------------------------------------------------------------------------------

std::vector<unsigned char> Record(const UtCStringList& l) {
    unsigned char* block = nullptr;
    uint64_t size = 0;
    EXPECT_TRUE(l.SaveToMem(&block, size));
    std::vector<unsigned char> v(block, block + size);
    UtFreeMemory(block);
    return v;
}

TEST(StringListRecord, HeaderBytesAndRoundTripInBothReaders) {
    EXPECT_EQ(Record(UtCStringList()), (std::vector<unsigned char>{1, 0, 0, 0, 0, 0}));
    UtCStringList l{S("ab"), UtCString(u"\u20AC", eUtEncodingTypeUtf16), UtCString("\xC3\xA4", eUtEncodingTypeUtf8, eUtEncodingTypeUtf8),
                    S("")};
    const std::vector<unsigned char> rec = Record(l);
    ASSERT_GE(rec.size(), 6u);
    EXPECT_EQ(std::vector<unsigned char>(rec.begin(), rec.begin() + 6), (std::vector<unsigned char>{1, 0, 4, 0, 0, 0}));
    EXPECT_EQ(rec.size(), 6u + 4 * 24 + 3 + 4 + 6 + 1);
    for (int bounded = 0; bounded < 2; ++bounded) {
        UtCStringList back{S("old")};
        uint64_t offset = 0;
        ASSERT_TRUE(bounded ? back.ReadFromMem(rec.data(), rec.size(), offset) : back.ReadFromMem(rec.data(), offset));
        EXPECT_EQ(offset, rec.size());
        ASSERT_EQ(back.count(), 4);
        EXPECT_EQ(back, l);
        for (long i = 0; i < 4; ++i) EXPECT_EQ(back[i].encodingType(), l[i].encodingType());
    }
}

TEST(StringListRecord, BoundedReaderRefusesHostileRecords) {
    const std::vector<unsigned char> good = Record(UtCStringList{S("abc"), S("de")});
    auto refuses = [](std::vector<unsigned char> rec, const char* why) {
        UtCStringList l{S("keep")};
        uint64_t offset = 0;
        EXPECT_FALSE(l.ReadFromMem(rec.data(), rec.size(), offset)) << why;
        EXPECT_EQ(offset, 0u) << why;
        EXPECT_EQ(Texts(l), (V{"keep"})) << why;
    };
    refuses(std::vector<unsigned char>(good.begin(), good.end() - 1), "last string cut short");
    refuses(std::vector<unsigned char>(good.begin(), good.begin() + 4), "header cut short");
    auto count = good;
    count[5] = 0x7F;  // two billion strings in a few bytes
    refuses(count, "count past the block");
    auto three = good;
    three[2] = 3;
    refuses(three, "one string more than recorded");
    auto version = good;
    version[0] = 2;
    refuses(version, "unknown version");
    uint64_t offset = 0;
    UtCStringList l;
    EXPECT_FALSE(l.ReadFromMem(nullptr, 10, offset));
    offset = good.size() + 1;
    EXPECT_FALSE(l.ReadFromMem(good.data(), good.size(), offset));
}

TEST(StringListRecord, SaveFailsCleanlyWhenMemoryRunsOut) {
    UtCStringList l{S("a"), S("b")};
    for (int n = 1; n <= 3; ++n) {
        unsigned char* block = nullptr;
        uint64_t size = 0;
        {
            kbase_test::FailNthAllocation fail(n);
            EXPECT_FALSE(l.SaveToMem(&block, size)) << n;
        }
        // What was written stays readable up to the failure.
        EXPECT_EQ(size, n == 1 ? 0u : 6u + (n - 2) * 26u) << n;
        UtFreeMemory(block);
    }
}

}  // namespace
