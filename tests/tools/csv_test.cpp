#include "csv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>

#include "csv_numbers.h"
#include "csv_output.h"
#include "csv_sort.h"

namespace {

namespace fs = std::filesystem;
using kbase_tool::CsvOptions;

struct CsvRun {
    int rc;
    std::string out, err;
};

class CsvJob : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ =
            fs::temp_directory_path() /
            ("kbase_csv_test_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
             ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string File(const std::string& bytes) {
        const fs::path p = dir_ / ("in" + std::to_string(files_++) + ".csv");
        std::ofstream(p, std::ios::binary) << bytes;
        return p.string();
    }
    static CsvRun Run(CsvOptions o) {
        std::ostringstream out, err;
        const int rc = kbase_tool::Csv(o, out, err);
        return CsvRun{rc, out.str(), err.str()};
    }
    CsvRun Run(const std::string& bytes, CsvOptions o) {
        o.input = File(bytes);
        return Run(o);
    }
    static std::string Field(const std::string& description, const std::string& label) {
        const size_t at = description.find(label + ":");
        if (at == std::string::npos) return "";
        const size_t start = description.find_first_not_of(' ', at + label.size() + 1);
        return description.substr(start, description.find('\n', start) - start);
    }

    fs::path dir_;
    int files_ = 0;
};

CsvOptions Totals(std::vector<std::string> group, std::vector<std::string> sum) {
    CsvOptions o;
    o.group = std::move(group);
    o.sum = std::move(sum);
    return o;
}

CsvOptions Sorted(std::vector<std::string> keys) {
    CsvOptions o;
    o.sort = std::move(keys);
    return o;
}

TEST_F(CsvJob, KeepsRowsWithoutNumbersAtTheEndUnlessToldToDrop) {
    const std::string file = "Name;Wert\nA;1\nB;2\nC;n/a\n";
    CsvRun r = Run(file, CsvOptions{});
    EXPECT_EQ(Field(r.out, "rows"), "3") << r.out;
    EXPECT_NE(r.out.find("the last 1 rows hold no number"), std::string::npos) << r.out;
    r = Run(file, Totals({"Name"}, {"Wert"}));
    EXPECT_EQ(r.rc, 0) << r.err;
    EXPECT_EQ(r.out, "Name;Wert\nA;1.00\nB;2.00\nC;0.00\n");
    EXPECT_NE(r.err.find("--footer 1"), std::string::npos) << r.err;
    CsvOptions drop = Sorted({"Wert:desc"});
    drop.footer = 1;
    r = Run(file, drop);
    EXPECT_EQ(r.out, "Name;Wert\nB;2\nA;1\n");
}

TEST_F(CsvJob, ReadsQuotedFieldsAndWritesValidCsvBack) {
    const std::string file =
        "city,count,note\n"
        "\"Anytown, WW\",\"6,718\",plain\n"
        "Berlin,\"1,000\",\"two\nlines\"\n"
        "\"Anytown, WW\",2,\"say \"\"hi\"\"\"\n";
    CsvRun r = Run(file, Totals({"city"}, {"count"}));
    ASSERT_EQ(r.rc, 0) << r.err;
    // Quoted thousands in a comma file; the output quotes what holds the delimiter.
    EXPECT_EQ(r.out, "city,count\n\"Anytown, WW\",6720.00\nBerlin,1000.00\n");
    r = Run(file, Sorted({"count"}));
    ASSERT_EQ(r.rc, 0) << r.err;
    EXPECT_EQ(
        r.out,
        "city,count,note\n\"Anytown, WW\",2,\"say \"\"hi\"\"\"\nBerlin,\"1,000\",\"two\nlines\"\n"
        "\"Anytown, WW\",\"6,718\",plain\n");
    // The output reads back to the same rows.
    const CsvRun again = Run(r.out, Sorted({"count"}));
    EXPECT_EQ(again.out, r.out);
    CsvOptions raw = Sorted({"1"});
    raw.quotes = false;
    raw.delimiter = ",";
    r = Run("a,b\n\"x,y\",1\n", raw);
    EXPECT_EQ(r.out, "a,b,column 3\n\"\"\"x\",\"y\"\"\",1\n")
        << "without quoting the quote is text";
}

TEST_F(CsvJob, TotalsUseTheNotationThatCannotClash) {
    CsvRun r =
        Run("Bezirk;Betrag\nNord;72,50\nNord;71,50\nSued;1,25\n", Totals({"Bezirk"}, {"Betrag"}));
    EXPECT_EQ(r.out, "Bezirk;Betrag\nNord;144,00\nSued;1,25\n");
    CsvOptions comma = Totals({"Bezirk"}, {"Betrag"});
    comma.delimiter = ",";
    r = Run("Bezirk,Betrag\nNord,72.5\nNord,71.5\nSued,\"1,250\"\n", comma);
    EXPECT_EQ(r.out, "Bezirk,Betrag\nNord,144.00\nSued,1250.00\n")
        << "thousands in quotes, points in the output";
}

TEST_F(CsvJob, SumsOfMoneyAreExact) {
    std::string file = "k;v\n";
    for (int i = 0; i < 200000; ++i) file += "a;0.10\nb;19.99\n";
    const CsvRun r = Run(file, Totals({"k"}, {"v"}));
    EXPECT_EQ(r.out, "k;v\na;20000.00\nb;3998000.00\n");
}

TEST_F(CsvJob, RefusesMissingColumnsEverywhere) {
    const std::string file = "a;b\n1;2\n";
    const CsvOptions cases[] = {Totals({}, {"99"}), Totals({"99"}, {"b"}), Sorted({"99"}),
                                Sorted({"zz"}),     Totals({"a"}, {"0"}),  Totals({"a"}, {"3"})};
    for (const CsvOptions& o : cases) {
        const CsvRun r = Run(file, o);
        EXPECT_EQ(r.rc, 2) << r.out;
        EXPECT_NE(r.err.find("no column"), std::string::npos) << r.err;
        EXPECT_TRUE(r.out.empty());
    }
    const CsvRun r = Run("a;b\nx;y\n", Totals({"a"}, {"b"}));
    EXPECT_EQ(r.rc, 0);
    EXPECT_NE(r.err.find("column 'b' holds no number"), std::string::npos) << r.err;
}

TEST_F(CsvJob, RefusesBadOptionsAndUnreadableInput) {
    struct Case {
        CsvOptions o;
        int rc;
        const char* message;
    };
    CsvOptions longDelimiter, badMemory, tinyMemory, badFooter, badEncoding, folder, missing;
    longDelimiter.delimiter = ";;";
    badMemory.memory = "lots";
    tinyMemory.memory = "1K";
    badFooter.footer = -1;
    badEncoding.encoding = "klingon";
    const Case cases[] = {
        {longDelimiter, 2, "one character"},   {badMemory, 2, "--memory"},
        {tinyMemory, 2, "--memory"},           {badFooter, 2, "--footer"},
        {badEncoding, 2, "unknown code page"},
    };
    for (const Case& c : cases) {
        const CsvRun r = Run("a;b\n1;2\n", c.o);
        EXPECT_EQ(r.rc, c.rc) << c.message;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    }
    folder.input = dir_.string();
    CsvRun r = Run(folder);
    EXPECT_EQ(r.rc, 1);
    EXPECT_NE(r.err.find("is a directory"), std::string::npos) << r.err;
    missing.input = (dir_ / "missing.csv").string();
    r = Run(missing);
    EXPECT_EQ(r.rc, 1);
    EXPECT_NE(r.err.find("cannot open"), std::string::npos) << r.err;
}

TEST_F(CsvJob, ReportsWriteErrors) {
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    const std::string input = File("a;b\n1;2\n");
    for (CsvOptions o : {CsvOptions{}, Totals({"a"}, {"b"}), Sorted({"a"})}) {
        o.input = input;
        std::ofstream full("/dev/full");
        std::ostringstream err;
        EXPECT_EQ(kbase_tool::Csv(o, full, err), 1);
        EXPECT_NE(err.str().find("cannot write"), std::string::npos) << err.str();
    }
}

TEST_F(CsvJob, RejectsTextThatIsNotInTheFileEncoding) {
    CsvOptions o = Sorted({"1"});
    o.encoding = "65001";
    CsvRun r = Run("a;b\nK\xF6ln;1\n", o);
    EXPECT_EQ(r.rc, 3);
    EXPECT_NE(r.err.find("line 2"), std::string::npos) << r.err;
    r = Run("a;b\nK\xF6ln;1\n", Sorted({"1"}));
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "a;b\nK\xC3\xB6ln;1\n") << "not UTF-8, so Windows-1252";
}

// Every real file reads as an RFC 4180 reader reads it, given its preface and footer lines.
TEST_F(CsvJob, ReadsRealFiles) {
    const char* source = std::getenv("KBASE_SOURCE_DIR");
    const fs::path data =
        source != nullptr ? fs::path(source) / ".." / "shared" / "data" : fs::path();
    if (data.empty() || !fs::exists(data / "csv-real"))
        GTEST_SKIP() << "no shared data beside the source";
    const struct {
        const char* file;
        int titles, footer;
        const char* delimiter;
        int titleLines, rows, columns;
    } cases[] = {
        {"cm_example-tweets-1.csv", -1, 0, "';'", 1, 75, 7},
        {"cm_example-tweets-2.csv", -1, 0, "','", 1, 75, 7},
        {"cm_example-tweets-3.csv", -1, 0, "TAB", 1, 75, 7},
        {"csvkit_Datagov_FY10_EDU_recp_by_State.csv", 3, 2, "','", 3, 53, 9},
        {"csvkit_FY09_EDU_Recipients_by_State.csv", -1, 0, "','", 1, 53, 10},
        {"csvkit_dummy.tsv", -1, 0, "TAB", 1, 1, 3},
        {"csvkit_iris.csv", -1, 0, "','", 1, 150, 5},
        {"csvkit_mac_newlines.csv", -1, 0, "','", 1, 2, 3},
        {"csvkit_sort_ints_nulls.csv", -1, 0, "','", 1, 3, 3},
        {"csvkit_test_empty_columns.csv", 1, 0, "','", 1, 3, 5},  // every line is text
        {"csvkit_test_skip_lines.csv", -1, 0, "','", 1, 1, 3},
        {"csvkit_test_utf8_bom.csv", -1, 0, "','", 1, 2, 3},
        {"spectrum_comma_in_quotes.csv", -1, 0, "','", 1, 1, 5},
        {"spectrum_empty.csv", -1, 0, "','", 1, 2, 3},
        {"spectrum_escaped_quotes.csv", -1, 0, "','", 1, 2, 2},
        {"spectrum_json.csv", -1, 0, "','", 1, 1, 2},
        {"spectrum_newlines.csv", -1, 0, "','", 1, 3, 3},
        {"spectrum_newlines_crlf.csv", -1, 0, "','", 1, 3, 3},
        {"spectrum_quotes_and_newlines.csv", -1, 0, "','", 1, 2, 2},
        {"spectrum_utf8.csv", -1, 0, "','", 1, 2, 3},
    };
    for (const auto& c : cases) {
        CsvOptions o;
        o.input = (data / "csv-real" / c.file).string();
        o.titles = c.titles;
        o.footer = c.footer;
        const CsvRun r = Run(o);
        ASSERT_EQ(r.rc, 0) << c.file << ": " << r.err;
        EXPECT_EQ(Field(r.out, "delimiter"), c.delimiter) << c.file;
        EXPECT_EQ(Field(r.out, "title lines"), std::to_string(c.titleLines)) << c.file;
        EXPECT_EQ(Field(r.out, "rows"), std::to_string(c.rows)) << c.file;
        EXPECT_EQ(Field(r.out, "columns"), std::to_string(c.columns)) << c.file;
    }
}

TEST(PointForm, ReadsSeparatorsByTheFilesRule) {
    using kbase_tool::CommaRule;
    const struct {
        const char* text;
        CommaRule rule;
        const char* point;  // nullptr: no number of that form
    } cases[] = {
        {"1,5", CommaRule::kDecimal, "1.5"},
        {"-2.940,00", CommaRule::kDecimal, "-2940.00"},
        {"1.234.567,8", CommaRule::kDecimal, "1234567.8"},
        {"12.34,5", CommaRule::kDecimal, nullptr},
        {"1,2,3", CommaRule::kDecimal, nullptr},
        {",5", CommaRule::kDecimal, nullptr},
        {"1,", CommaRule::kDecimal, nullptr},
        {"6,718", CommaRule::kThousands, "6718"},
        {"1,234,567.25", CommaRule::kThousands, "1234567.25"},
        {"72,50", CommaRule::kThousands, nullptr},
        {"1234,567", CommaRule::kThousands, nullptr},
        {"1,2345", CommaRule::kThousands, nullptr},
        {"1.5", CommaRule::kDecimal, nullptr},
        {"a,b", CommaRule::kDecimal, nullptr},
    };
    for (const auto& c : cases) {
        std::string out;
        const bool ok = kbase_tool::PointForm(c.text, c.rule, out);
        EXPECT_EQ(ok, c.point != nullptr) << c.text;
        if (ok && c.point != nullptr) {
            EXPECT_EQ(out, c.point) << c.text;
        }
    }
}

TEST(CsvOut, QuotesOnlyWhatMust) {
    const struct {
        std::vector<std::string> fields;
        char delimiter;
        std::string line;
    } cases[] = {
        {{"a", "b"}, ';', "a;b\n"},
        {{"a;b", "c"}, ';', "\"a;b\";c\n"},
        {{"a,b", "c"}, ';', "a,b;c\n"},
        {{"say \"x\""}, ',', "\"say \"\"x\"\"\"\n"},
        {{"two\nlines", "cr\r"}, '\t', "\"two\nlines\"\t\"cr\r\"\n"},
        {{""}, ',', "\"\"\n"},
        {{"", ""}, ',', ",\n"},
    };
    for (const auto& c : cases) {
        std::ostringstream s;
        kbase_tool::CsvOut out(s, c.delimiter);
        for (const std::string& f : c.fields) out.Field(f);
        out.EndRow();
        EXPECT_TRUE(out.Flush());
        EXPECT_EQ(s.str(), c.line);
    }
}

// Sorting with spilled runs gives what one stable in-memory sort gives: numbers (the radix path,
// with negatives and both zeros), texts (the comparison path), two keys, and enough runs to be
// merged level by level.
TEST(ExternalSort, SpilledRunsMergeToTheStableOrder) {
    using Keys = std::vector<kbase_tool::SortKey>;
    const struct {
        int rows;
        std::function<std::string(std::mt19937&)> first;
        Keys keys;
        size_t minRuns;
        unsigned pad = 40;  // longest filler of a row
    } cases[] = {
        {60000,
         [](std::mt19937& r) {
             return std::to_string(static_cast<int>(r() % 500) - 250) + (r() % 3 == 0 ? ".5" : "");
         },
         {{0, false}},
         3},
        {60000,
         [](std::mt19937& r) { return r() % 2 == 0 ? std::string("-0") : std::string("0"); },
         {{0, true}},
         3},
        {60000,
         [](std::mt19937& r) { return std::string(1 + r() % 3, static_cast<char>('a' + r() % 4)); },
         {{0, true}, {2, false}},
         3},
        {70000, [](std::mt19937& r) { return std::to_string(r() % 5000); }, {{0, false}}, 64, 1000},
    };
    // Per key: two numbers compare by value and decide, else the texts compare and a tie moves on.
    auto before = [](const std::vector<std::string>& a, const std::vector<std::string>& b,
                     const Keys& keys) {
        for (const auto& k : keys) {
            const std::string &x = a[k.column], &y = b[k.column];
            char *ex, *ey;
            const double dx = std::strtod(x.c_str(), &ex), dy = std::strtod(y.c_str(), &ey);
            if (*ex == '\0' && *ey == '\0') return k.descending ? dx > dy : dx < dy;
            if (x != y) return k.descending ? x > y : x < y;
        }
        return false;
    };
    for (const auto& c : cases) {
        std::mt19937 rng(7);
        std::vector<std::vector<std::string>> rows;
        for (int i = 0; i < c.rows; ++i)
            rows.push_back(
                {c.first(rng), "row " + std::to_string(i), std::string(rng() % c.pad, 'x')});
        kbase_tool::ExternalSort sort(c.keys, 1 << 20, kbase_tool::CommaRule::kDecimal);
        for (const auto& row : rows) ASSERT_TRUE(sort.Add({row[0], row[1], row[2]}));
        EXPECT_GE(sort.SpilledRuns(), c.minRuns);
        std::vector<std::string> got;
        ASSERT_TRUE(sort.Finish([&](const std::vector<std::string_view>& f) {
            got.emplace_back(f[1]);
            return f.size() == 3;
        }));
        std::vector<size_t> order(rows.size());
        for (size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::stable_sort(order.begin(), order.end(),
                         [&](size_t a, size_t b) { return before(rows[a], rows[b], c.keys); });
        ASSERT_EQ(got.size(), rows.size());
        for (size_t i = 0; i < order.size(); ++i)
            ASSERT_EQ(got[i], rows[order[i]][1]) << "case of " << c.rows << " rows, at " << i;
    }
}

TEST(ExternalSort, OrdersLikeTheTable) {
    // Numbers by value (ending the comparison), texts ordinally, a missing cell as the empty text.
    const struct {
        std::vector<std::string> a, b;
        std::vector<kbase_tool::SortKey> keys;
        bool before;
    } cases[] = {
        {{"9"}, {"10"}, {{0, false}}, true},
        {{"10"}, {"9"}, {{0, true}}, true},
        {{"1", "b"}, {"1", "a"}, {{0, false}, {1, false}}, false},
        {{"x", "a"}, {"x", "b"}, {{0, false}, {1, false}}, true},
        {{"abc"}, {"10"}, {{0, false}}, false},
        {{}, {"a"}, {{0, false}}, true},
        {{"1,5"}, {"1,25"}, {{0, false}}, false},
    };
    for (const auto& c : cases) {
        kbase_tool::ExternalSort sort(c.keys, 1 << 20, kbase_tool::CommaRule::kDecimal);
        std::vector<std::string_view> a(c.a.begin(), c.a.end()), b(c.b.begin(), c.b.end());
        ASSERT_TRUE(sort.Add(b));
        ASSERT_TRUE(sort.Add(a));
        // b went in first: a comes out first only when it goes before b.
        std::vector<std::vector<std::string_view>> out;
        ASSERT_TRUE(sort.Finish([&](const std::vector<std::string_view>& f) {
            out.push_back(f);
            return true;
        }));
        ASSERT_EQ(out.size(), 2u);
        EXPECT_EQ(out[0] == a, c.before) << (c.a.empty() ? "" : c.a[0]) << " vs " << c.b[0];
    }
}

}  // namespace
