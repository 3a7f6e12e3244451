// UtTableRow and UtTable: cursors and status results, Sort, RemoveDuplicate, SumColumn.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "kbase/tables/UtTable.h"
#include "test_support.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

UtCString S(const std::string& s) { return UtCString(s.c_str(), eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252); }

UtTable Make(const Rows& rows) {
    UtTable t;
    for (const auto& r : rows) {
        t.AddRow();
        for (const auto& c : r) t.AddElem(S(c));
    }
    return t;
}

Rows Dump(UtTable& t) {
    Rows out;
    for (uint64_t r = 0; r < t.GetRowCount(); ++r) {
        std::vector<std::string> row;
        UtTableRow& tr = t.GetTableRow(static_cast<unsigned long>(r));
        for (long c = 0; c < tr.GetElemCount(); ++c) row.push_back(UtCString(tr[c], eUtEncodingTypeAnsi1252).ptr());
        out.push_back(row);
    }
    return out;
}

TEST(TableRow, CursorsPrioritiesAndStatus) {
    UtTableRow row;
    EXPECT_EQ(row.GetActElem(), -1);
    EXPECT_EQ(row.AddElem(S("a")), 0);
    EXPECT_EQ(row.AddElem("b"), 1);
    EXPECT_EQ(row.GetActElem(), 1);
    EXPECT_EQ(row.priority(0), 0);
    EXPECT_EQ(row.priority(1), 0);
    row.priority(1, 7);
    EXPECT_EQ(row.ChgElem(2, S("x")), 1);
    EXPECT_EQ(row.ChgElem(-1, "x"), 1);
    EXPECT_EQ(row.ChgElem(0, "A"), 0);
    EXPECT_EQ(row.ChgElem(0, row[0].ptr()), 0);  // its own buffer: left as it is
    EXPECT_TRUE(row.IsElemEqualTo(0, "A"));
    EXPECT_FALSE(row.IsElemEqualTo(0, S("a")));
    EXPECT_FALSE(row.IsElemEqualTo(5, "A"));

    UtCString out = S("untouched");
    EXPECT_FALSE(row.GetElem(2, out));
    EXPECT_EQ(out.GetUtf8String(0), "untouched");
    EXPECT_TRUE(row.GetElem(out));  // current cell 1
    EXPECT_EQ(out.GetUtf8String(0), "b");
    EXPECT_TRUE(row.GetFirstElem(out));
    EXPECT_EQ(out.GetUtf8String(0), "A");
    EXPECT_TRUE(row.GetNextElem(out));
    EXPECT_FALSE(row.GetNextElem(out));
    EXPECT_EQ(row.GetActElem(), 1);  // restored

    UtTableRow copy(row);
    EXPECT_EQ(copy.priority(1), 7);
    EXPECT_EQ(copy.GetActElem(), 1);
    EXPECT_TRUE(copy == row);

    // Clear keeps the cursor and the priorities: the next GetNextElem starts from the old index.
    row.Clear();
    EXPECT_EQ(row.GetElemCount(), 0);
    EXPECT_EQ(row.GetActElem(), 1);
    row.AddElem("p");
    row.AddElem("q");
    row.AddElem("r");
    EXPECT_EQ(row.GetActElem(), 4);
    EXPECT_EQ(row.priority(1), 7);
    EXPECT_FALSE(row.GetNextElem(out));

    UtTableRow empty;
    EXPECT_FALSE(empty.GetFirstElem(out));
    EXPECT_EQ(empty.GetActElem(), 0);
}

// A narrow text whose copy is refused its memory is not stored as an empty cell: adding adds
// nothing and changing keeps the old text, in a row and through the table.
TEST(TableRow, NarrowTextsThatCannotBeCopiedLeaveTheRowAsItWas) {
    UtTable t;
    t.AddRow();
    ASSERT_EQ(t.AddElem("Ziegel"), 0);
    UtTableRow& row = t.GetTableRow(0);
    {
        kbase_test::FailNthAllocation refused(1);
        EXPECT_EQ(row.AddElem("M\xF6rtel"), 0);
        EXPECT_EQ(row.count(), 1);
    }
    {
        kbase_test::FailNthAllocation refused(1);
        EXPECT_EQ(t.AddElem("Sand"), 0);
        EXPECT_EQ(row.count(), 1);
    }
    for (int viaTable = 0; viaTable < 2; ++viaTable) {
        kbase_test::FailNthAllocation refused(1);
        EXPECT_EQ(viaTable ? t.ChgElem(0, 0, "Kies") : row.ChgElem(0, "Kies"), 0);
        EXPECT_TRUE(t.IsElemEqualTo(0, 0, "Ziegel"));
    }
    EXPECT_EQ(row.AddElem(""), 1);  // an empty text is a cell like any other
    EXPECT_EQ(row.ChgElem(0, "Kies"), 0);
    EXPECT_TRUE(t.IsElemEqualTo(0, 0, "Kies"));
}

TEST(Table, NewTableAndCursors) {
    UtTable t;
    EXPECT_EQ(t.GetActRow(), +UtTable::kNoRow);
    EXPECT_EQ(t.GetElemCount(), 0u);
    EXPECT_EQ(t.AddElem("x"), 1);
    EXPECT_EQ(t.GetFirstRow(), 1);
    EXPECT_EQ(t.GetActRow(), 0u);
    EXPECT_EQ(t.GetRowCount(), 0u);

    UtTable u;
    u.AddRow();
    EXPECT_EQ(u.GetActRow(), 0u);
    EXPECT_EQ(u.AddElem("a"), 0);
    EXPECT_EQ(u.AddElem(S("b")), 0);
    EXPECT_EQ(u.GetTableRow(0).GetActElem(), 1);
    EXPECT_EQ(u.GetElemCount(), 2u);
    u.AddRow();
    u.AddRow();
    EXPECT_EQ(u.GetActRow(), 2u);
    EXPECT_EQ(u.SetRow(0), 0);
    u.AddRow();  // increments from the positioned row: the cursor goes to 1, not to the new row
    EXPECT_EQ(u.GetActRow(), 1u);
    EXPECT_EQ(u.SetRow(9), 1);
    EXPECT_EQ(u.GetActRow(), 1u);
    EXPECT_EQ(u.AddElem(3, "d"), 0);
    EXPECT_EQ(u.AddElem(4, "d"), 1);
    EXPECT_EQ(u.GetElemCount(3), 1u);
    EXPECT_EQ(u.GetElemCount(-1), 0u);
    EXPECT_EQ(u.GetElemCount(4), 0u);
    EXPECT_EQ(u.GetFirstRow(), 0);
    EXPECT_EQ(u.GetNextRow(), 0);
    EXPECT_EQ(u.GetNextRow(), 0);
    EXPECT_EQ(u.GetNextRow(), 0);
    EXPECT_EQ(u.GetNextRow(), 1);
    EXPECT_EQ(u.GetActRow(), 3u);
    u.Clear();
    EXPECT_EQ(u.GetActRow(), +UtTable::kNoRow);
    EXPECT_EQ(u.GetRowCount(), 0u);
}

TEST(Table, GetElemIsFalseForABadRowButTrueForABadColumn) {
    UtTable t = Make({{"only"}});
    UtCString s = S("kept");
    EXPECT_TRUE(t.GetElem(0, 5, s));
    EXPECT_EQ(s.GetUtf8String(0), "kept");
    EXPECT_FALSE(t.GetElem(1, 0, s));
    EXPECT_TRUE(t.GetElem(0, 0, s));
    EXPECT_EQ(s.GetUtf8String(0), "only");
    EXPECT_EQ(t.ChgElem(0, 0, "new"), 0);
    EXPECT_EQ(t.ChgElem(0, 1, "new"), 1);
    EXPECT_EQ(t.ChgElem(1, 0, S("new")), 1);
    EXPECT_TRUE(t.IsElemEqualTo(0, 0, "new"));
    EXPECT_FALSE(t.IsElemEqualTo(3, 0, "new"));
    const long list[] = {4, 8, 15};
    EXPECT_EQ(UtTable::ItemInList(3, list, 15), 1);
    EXPECT_EQ(UtTable::ItemInList(2, list, 15), 0);
}

struct SortCase {
    const char* name;
    Rows rows;
    std::vector<long> cols;
    std::vector<short> dirs;
    Rows expected;
};

// GoogleTest prints a parameter it cannot print as its bytes, padding included.
void PrintTo(const SortCase& c, std::ostream* os) { *os << c.name; }

class TableSort : public ::testing::TestWithParam<SortCase> {};

TEST_P(TableSort, OrdersAsTheKeyRulesSay) {
    const SortCase& c = GetParam();
    UtTable t = Make(c.rows);
    t.SetRow(1);
    t.Sort(static_cast<unsigned short>(c.cols.size()), c.cols.data(), c.dirs.data());
    EXPECT_EQ(Dump(t), c.expected);
    EXPECT_EQ(t.GetActRow(), 1u);  // cursors stay
}

INSTANTIATE_TEST_SUITE_P(
    Keys, TableSort,
    ::testing::Values(
        SortCase{"numbers_before_text", {{"10"}, {"9"}, {"abc"}}, {0}, {0}, {{"9"}, {"10"}, {"abc"}}},
        SortCase{"equal_numbers_end_the_comparison", {{"1", "b"}, {"1", "a"}}, {0, 1}, {0, 0}, {{"1", "b"}, {"1", "a"}}},
        SortCase{"equal_texts_go_to_the_next_key", {{"x", "b"}, {"x", "a"}}, {0, 1}, {0, 0}, {{"x", "a"}, {"x", "b"}}},
        SortCase{"descending", {{"b"}, {"c"}, {"a"}}, {0}, {1}, {{"c"}, {"b"}, {"a"}}},
        SortCase{"descending_numbers", {{"2"}, {"10"}, {"-1"}}, {0}, {1}, {{"10"}, {"2"}, {"-1"}}},
        SortCase{"other_direction_orders_nothing", {{"b"}, {"a"}}, {0}, {2}, {{"b"}, {"a"}}},
        SortCase{"missing_cell_is_empty_text", {{"b", "2"}, {"a"}, {"c", "1"}}, {1}, {0}, {{"a"}, {"c", "1"}, {"b", "2"}}},
        SortCase{"stable_on_ties", {{"x", "1"}, {"x", "2"}, {"x", "3"}}, {0}, {0}, {{"x", "1"}, {"x", "2"}, {"x", "3"}}},
        SortCase{"mixed_column_compares_pairwise", {{"b"}, {"10"}, {"9"}, {"a"}}, {0}, {0}, {{"9"}, {"10"}, {"a"}, {"b"}}},
        SortCase{"blank_padded_numbers", {{" 5"}, {"40 "}, {"7"}}, {0}, {0}, {{" 5"}, {"7"}, {"40 "}}},
        SortCase{"text_then_number_key", {{"b", "2"}, {"a", "9"}, {"b", "10"}, {"a", "1"}}, {0, 1}, {0, 1},
                 {{"a", "9"}, {"a", "1"}, {"b", "10"}, {"b", "2"}}}),
    [](const ::testing::TestParamInfo<SortCase>& p) { return std::string(p.param.name); });

// Both ways of sorting (ranked columns, and row by row for a column that mixes numbers and text)
// must give what a plain stable insertion sort with the documented comparison gives, for tables
// of many rows and of a few rows with many possible keys (ordered without the radix buckets).
TEST(Table, SortMatchesABruteForceStableSort) {
    std::mt19937 rng(7);
    const char* words[] = {"Wand", "Dach", "T\xFCr", "", "10", "9", "1.5", "Fenster"};
    const std::vector<std::vector<long>> keySets = {{1, 2, 0}, {0, 1, 2}};
    const short dirs[] = {0, 1, 0};
    for (const auto& cols : keySets) {
        for (int round = 0; round < 20; ++round) {
            Rows rows;
            for (int r = 0; r < (round % 2 == 0 ? 60 : 4 + round % 5); ++r) rows.push_back({words[rng() % 8], words[rng() % 3], std::to_string(rng() % 5)});
            UtTable t = Make(rows);
            t.Sort(3, cols.data(), dirs);
            auto before = [&](const std::vector<std::string>& a, const std::vector<std::string>& b) {
                for (size_t k = 0; k < 3; ++k) {
                    const std::string& x = a[static_cast<size_t>(cols[k])];
                    const std::string& y = b[static_cast<size_t>(cols[k])];
                    double dx = 0, dy = 0;
                    if (S(x).Convert(dx) && S(y).Convert(dy)) return dirs[k] == 0 ? dx < dy : dx > dy;
                    if (x != y) return dirs[k] == 0 ? x < y : x > y;
                }
                return false;
            };
            Rows expected = rows;
            for (size_t i = 1; i < expected.size(); ++i) {
                for (size_t j = i; j > 0 && before(expected[j], expected[j - 1]); --j) std::swap(expected[j], expected[j - 1]);
            }
            EXPECT_EQ(Dump(t), expected) << cols[0] << " round " << round;
        }
    }
}

// Keys with far more distinct values than one counting pass covers (several radix digits): the
// orders must still be the stable ones, and duplicates found across the whole table.
TEST(Table, ManyDistinctKeysSortAndDeduplicateLikeTheStandardAlgorithms) {
    std::mt19937 rng(11);
    Rows rows;
    for (int r = 0; r < 20000; ++r) {
        rows.push_back({"k" + std::to_string(rng() % 300), "m" + std::to_string(rng() % 300), std::to_string(rng() % 4)});
    }
    const long cols[] = {0, 1};
    const short dirs[] = {1, 0};
    UtTable sorted = Make(rows);
    sorted.Sort(2, cols, dirs);
    Rows expected = rows;
    std::stable_sort(expected.begin(), expected.end(), [](const auto& a, const auto& b) {
        return a[0] != b[0] ? a[0] > b[0] : a[1] < b[1];
    });
    EXPECT_EQ(Dump(sorted), expected);

    UtTable unique = Make(rows);
    unique.RemoveDuplicate();
    expected = rows;
    std::sort(expected.begin(), expected.end());
    expected.erase(std::unique(expected.begin(), expected.end()), expected.end());
    EXPECT_EQ(Dump(unique), expected);
}

// Texts of every short length that differ in one byte only, at every position: none of them may
// be taken for another when rows are grouped, ranked or deduplicated.
TEST(Table, TextsDifferingInOneByteStayApart) {
    Rows rows;
    for (size_t length = 1; length <= 20; ++length) {
        for (size_t at = 0; at <= length; ++at) {
            std::string text(length, 'a');
            if (at < length) text[at] = 'b';
            rows.push_back({text, "1"});
            rows.push_back({text, "2"});
        }
    }
    UtTable unique = Make(rows);
    unique.RemoveDuplicate();
    Rows expected = rows;
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(Dump(unique), expected);

    UtTable grouped = Make(rows);
    const long sums[] = {1};
    grouped.SumColumn(1, sums, nullptr, 0, nullptr);
    Rows totals;
    for (const auto& r : expected) {
        if (r[1] == "1") totals.push_back({r[0], "3.00"});
    }
    EXPECT_EQ(Dump(grouped), totals);
}

TEST(Table, RemoveDuplicateSortsKeepsFirstAndResetsTheCursor) {
    UtTable t = Make({{"a"}, {"b"}, {"a"}});
    t.RemoveDuplicate();
    EXPECT_EQ(Dump(t), (Rows{{"a"}, {"b"}}));
    EXPECT_EQ(t.GetActRow(), 0u);

    // A shorter row is smaller; an empty cell is not a missing one.
    UtTable u = Make({{"x", ""}, {"x"}, {"w", "1"}, {"x"}, {"x", ""}, {}});
    u.RemoveDuplicate();
    EXPECT_EQ(Dump(u), (Rows{{}, {"w", "1"}, {"x"}, {"x", ""}}));

    UtTable empty;
    empty.RemoveDuplicate();
    EXPECT_EQ(empty.GetActRow(), 0u);

    // Rows of another encoding take the row-by-row path and give the same answer.
    UtTable mixed = Make({{"b"}, {"a"}});
    mixed.AddRow();
    mixed.AddElem(UtCString(u"a", eUtEncodingTypeUtf16));
    mixed.RemoveDuplicate();
    EXPECT_EQ(Dump(mixed), (Rows{{"a"}, {"b"}}));
}

TEST(Table, SumColumnGroupsTotalsAndFormats) {
    UtTable t = Make({{"x", "1.5"}, {"x", "2"}, {"y", "3"}});
    const long sum[] = {1};
    t.SumColumn(1, sum, nullptr, 0, nullptr);
    EXPECT_EQ(Dump(t), (Rows{{"x", "3.50"}, {"y", "3.00"}}));
    EXPECT_EQ(t.GetActRow(), 0u);

    // Groups in ascending order; carried columns take the last row's cell; cells that are no
    // number are skipped, but the first row's cell is read like atof.
    UtTable u = Make({{"b", "12kg", "first", "1"},
                      {"a", "1", "a1", "x"},
                      {"b", "3", "second", "2"},
                      {"b", "abc", "third", "4"},
                      {"a", "2", "a2", "5"}});
    const long sums[] = {1, 3};
    const long carry[] = {2};
    UtCStringList formats{S("%.1f kg"), S("%s")};  // the second is no floating conversion
    u.SumColumn(2, sums, &formats, 1, carry);
    EXPECT_EQ(Dump(u), (Rows{{"a", "3.0 kg", "a2", "5.00"}, {"b", "15.0 kg", "third", "7.00"}}));
}

// The grouping (in one pass by hash, or by a stable sort when the grouping cells mix
// encodings) must give what the plain algorithm gives: stable sort by the grouping columns, the
// group's first row, carried cells of the last row that has them, totals in row order.
TEST(Table, SumColumnMatchesTheSortAndWalkAlgorithm) {
    std::mt19937 rng(11);
    const char* keys[] = {"Wand", "Dach", "T\xFCr", "", "10", "9"};
    const char* values[] = {"1.5", "2", "abc", "-3", "", "0.25", "7kg"};
    for (int round = 0; round < 40; ++round) {
        const bool mixed = round % 4 >= 2;  // with and without a carried column
        Rows rows;
        for (int r = 0; r < 80; ++r) {
            std::vector<std::string> row = {keys[rng() % 6], values[rng() % 7], keys[rng() % 3], values[rng() % 7]};
            if (rng() % 4 == 0) row.resize(2);  // some short rows
            rows.push_back(row);
        }
        UtTable t = Make(rows);
        if (mixed) {  // one grouping cell in UTF-16 sends the table down the sorting path
            t.AddRow();
            t.AddElem(UtCString(u"Dach", eUtEncodingTypeUtf16));
            t.AddElem(S("4"));
            t.AddElem(S("Dach"));
            t.AddElem(S("1"));
            rows.push_back({"Dach", "4", "Dach", "1"});
        }
        const long sums[] = {1};
        const long carry[] = {3};
        const bool withCarry = round % 2 == 0;
        t.SumColumn(1, sums, nullptr, withCarry ? 1 : 0, carry);

        // The plain algorithm on std::strings: the grouping columns are those of the first row
        // that are neither summed nor carried.
        std::vector<size_t> groupCols;
        for (size_t c = 0; c < rows[0].size(); ++c) {
            if (c != 1 && !(withCarry && c == 3)) groupCols.push_back(c);
        }
        auto cell = [](const std::vector<std::string>& r, size_t c) { return c < r.size() ? r[c] : std::string(); };
        auto less = [&](const std::vector<std::string>& a, const std::vector<std::string>& b) {
            for (size_t c : groupCols) {
                if (cell(a, c) != cell(b, c)) return cell(a, c) < cell(b, c);
            }
            return false;
        };
        Rows sorted = rows;
        std::stable_sort(sorted.begin(), sorted.end(), less);
        Rows expected;
        for (size_t start = 0; start < sorted.size();) {
            size_t end = start + 1;
            while (end < sorted.size() && !less(sorted[start], sorted[end])) ++end;
            std::vector<std::string> rep = sorted[start];
            double total = std::atof(cell(rep, 1).c_str());
            for (size_t i = start + 1; i < end; ++i) {
                if (withCarry && sorted[i].size() > 3) {
                    rep.resize(std::max<size_t>(rep.size(), 4));
                    rep[3] = sorted[i][3];
                }
                double v = 0;
                if (sorted[i].size() > 1 && S(sorted[i][1]).Convert(v)) total += v;
            }
            char text[64];
            std::snprintf(text, sizeof text, "%.2f", total);
            rep.resize(std::max<size_t>(rep.size(), 2));
            rep[1] = text;
            expected.push_back(rep);
            start = end;
        }
        EXPECT_EQ(Dump(t), expected) << "round " << round;
    }
}

TEST(Table, SumColumnLimitsTheTextAndKeepsTotalsOfShortRows) {
    UtTable t = Make({{"g", "1e300"}, {"g", "1"}});
    const long sum[] = {1};
    t.SumColumn(1, sum, nullptr, 0, nullptr);
    ASSERT_EQ(t.GetRowCount(), 1u);
    EXPECT_EQ(t.GetTableRow(0)[1].GetLength(), 50);

    // The first row lacks the summed column: it is padded so that the total is kept.
    UtTable u = Make({{"g"}, {"g", "4"}, {"h", "1", "z"}});
    u.SumColumn(1, sum, nullptr, 0, nullptr);
    EXPECT_EQ(Dump(u), (Rows{{"g", "4.00"}, {"h", "1.00", "z"}}));
}

// Totals of decimal texts are exact: a double sum of these drifts by cents or in the last digits.
TEST(Table, SumColumnTotalsDecimalTextsExactly) {
    Rows rows;
    for (int i = 0; i < 10000; ++i) rows.push_back({"money", "7654321.09"});
    for (int i = 0; i < 3; ++i) rows.push_back({"tenths", i % 2 == 0 ? "0.1" : "0.2"});
    rows.push_back({"mixed", " 12kg"});  // the first cell, read like atof
    rows.push_back({"mixed", "0.70"});
    rows.push_back({"mixed", "kg"});  // no number: skipped
    rows.push_back({"mixed", "0x1p-2"});  // a number, though not a decimal
    UtTable t = Make(rows);
    const long sum[] = {1};
    UtCStringList formats{S("%.17g")};
    t.SumColumn(1, sum, &formats, 0, nullptr);
    EXPECT_EQ(Dump(t), (Rows{{"mixed", "12.949999999999999"}, {"money", "76543210900"}, {"tenths", "0.40000000000000002"}}));

    UtTable u = Make(rows);
    u.SumColumn(1, sum, nullptr, 0, nullptr);
    EXPECT_EQ(Dump(u), (Rows{{"mixed", "12.95"}, {"money", "76543210900.00"}, {"tenths", "0.40"}}));
}

TEST(Table, SumColumnWithoutGroupColumnsTotalsEverything) {
    UtTable t = Make({{"1", "2"}, {"3", "4"}, {"5", "x"}});
    const long sums[] = {0, 1};
    UtCStringList formats{S("%.0f")};
    t.SumColumn(2, sums, &formats, 0, nullptr);
    EXPECT_EQ(Dump(t), (Rows{{"9", "6.00"}}));
}

TEST(Table, CopiesAreDeep) {
    UtTable a = Make({{"a", "b"}});
    UtTable b(a);
    b.ChgElem(0, 0, "z");
    UtCString s;
    a.GetElem(0, 0, s);
    EXPECT_EQ(s.GetUtf8String(0), "a");
    a = b;
    a.GetElem(0, 0, s);
    EXPECT_EQ(s.GetUtf8String(0), "z");
}

}  // namespace
