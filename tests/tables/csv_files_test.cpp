// The four real CSV files of ../shared/data/csv (see SOURCES.md there) through `kbase csv` and the
// readers: what a person would check first.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

#include "csv.h"
#include "kbase/tables/CSVTableWithHeader.h"
#include "kbase/tables/UtCCsvReader.h"

namespace {

std::string DataFile(const char* name) {
    const char* root = std::getenv("KBASE_SOURCE_DIR");
    if (root == nullptr) return std::string();
    const std::filesystem::path p = std::filesystem::path(root) / ".." / "shared" / "data" / "csv" / name;
    return std::filesystem::exists(p) ? p.string() : std::string();
}

#define REQUIRE_DATA(path, name)                                                          \
    const std::string path = DataFile(name);                                              \
    if (path.empty()) GTEST_SKIP() << name << " not found beside the source tree (KBASE_SOURCE_DIR/../shared/data/csv)"

struct Outcome {
    int code;
    std::string out, err;
};

Outcome Kbase(kbase_tool::CsvOptions o) {
    std::ostringstream out, err;
    const int code = kbase_tool::Csv(o, out, err);
    return {code, out.str(), err.str()};
}

Outcome Describe(const std::string& path) {
    kbase_tool::CsvOptions o;
    o.input = path;
    return Kbase(o);
}

bool Has(const std::string& text, const std::string& piece) { return text.find(piece) != std::string::npos; }

UtCString Name(const std::string& path) { return UtCString(path.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8); }

TEST(RealCsv, KoelnBudgetUtf8WithMarkAndCrlf) {
    REQUIRE_DATA(path, "koeln_bezirke_einzeldarstellung_utf8bom_crlf.csv");
    const Outcome r = Describe(path);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(Has(r.out, "encoding:       UTF-8 (byte-order mark)")) << r.out;
    EXPECT_TRUE(Has(r.out, "delimiter:      ';'"));
    EXPECT_TRUE(Has(r.out, "title lines:    1"));
    EXPECT_TRUE(Has(r.out, "columns:        10"));
    EXPECT_TRUE(Has(r.out, "rows:           252"));
    EXPECT_TRUE(Has(r.out, "     1  whole number                Bezirk\n"));  // no mark before the name
    EXPECT_TRUE(Has(r.out, "    10  whole number, real, text    Plan 2017\n"));

    CSVTableWithHeader t(Name(path), ';', true);
    ASSERT_TRUE(t.IsLoaded());
    EXPECT_EQ(t.GetRowCount(), 253u);
    EXPECT_EQ(t.GetHeader().front(), "Bezirk");
    EXPECT_EQ(t.GetData(2, 3), "9.577.207");
    EXPECT_EQ(t.GetRow(252).at(1), "M\xC3\xBChlheim");
}

TEST(RealCsv, KoelnElectionDecimalCommaAndEmptyFirstColumn) {
    REQUIRE_DATA(path, "koeln_btw2013_result_stadtteil_utf8_decimalcomma.csv");
    const Outcome r = Describe(path);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(Has(r.out, "encoding:       UTF-8\n"));
    EXPECT_TRUE(Has(r.out, "rows:           86"));
    EXPECT_TRUE(Has(r.out, "decimal commas: yes"));
    EXPECT_TRUE(Has(r.out, "     1  (no values)                 Nr\n"));
    EXPECT_TRUE(Has(r.out, "     7  real                        Wahlbeteiligung\n"));

    kbase_tool::CsvOptions o;
    o.input = path;
    o.sum = {"Wahlberechtigte"};
    const Outcome total = Kbase(o);
    ASSERT_EQ(total.code, 0) << total.err;
    // Whole numbers only in that column: its total needs no decimal comma.
    EXPECT_EQ(total.out, "Wahlberechtigte\n722435.00\n");

    // The reader keeps the format: the empty first field stays in token 0.
    UtCCsvReader reader(Name(path));
    ASSERT_TRUE(reader.Reset(true));
    // Runs of delimiters yield no empty fields, so the row has fewer tokens than the header.
    EXPECT_FALSE(reader.ParseNextRow(true));
    EXPECT_EQ(std::string(reader.GetTokenPtr(0)), ";Altstadt/Nord");
    EXPECT_EQ(std::string(reader.GetTokenPtr(5)), "76,70;");
    CSVTableWithHeader t(Name(path), ';', true);
    EXPECT_EQ(t.GetData(1, 6), "76,70");
}

TEST(RealCsv, ItNrwLatin1WithTitleBlockRaggedRowsAndFooter) {
    REQUIRE_DATA(path, "itnrw_genesis_33111-02ir_latin1_crlf.csv");
    const Outcome r = Describe(path);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(Has(r.out, "encoding:       Windows-1252 (not valid UTF-8)"));
    EXPECT_TRUE(Has(r.out, "delimiter:      ';'"));  // although the first line has a blank and no ';'
    EXPECT_TRUE(Has(r.out, "title lines:    9"));
    EXPECT_TRUE(Has(r.out, "columns:        22"));
    // The notes under the table are reported, and stay rows until --footer drops them.
    EXPECT_TRUE(Has(r.out, "rows:           34"));
    EXPECT_TRUE(Has(r.out, "the last 15 rows hold no number"));
    EXPECT_TRUE(Has(r.out, "    15  whole number, text          Moor\n"));  // '-' marks missing values

    kbase_tool::CsvOptions o;
    o.input = path;
    o.sort = {"22:desc"};
    o.footer = 15;
    const Outcome sorted = Kbase(o);
    ASSERT_EQ(sorted.code, 0) << sorted.err;
    const std::string second = sorted.out.substr(sorted.out.find('\n') + 1);
    EXPECT_EQ(second.substr(0, second.find('\n')).substr(0, 19), "31.12.2010;4051667;");

    CSVTableWithHeader t(Name(path), ';', true);
    EXPECT_EQ(t.GetRowCount(), 43u);
    EXPECT_EQ(t.GetData(9, 0), "31.12.2012");
    EXPECT_EQ(t.GetData(9, 21), "2464403");
    EXPECT_EQ(t.GetData(5, 0), "K\xF6ln, krfr. Stadt");
}

TEST(RealCsv, ParisFirstNamesLatin1) {
    REQUIRE_DATA(path, "leaguecsv_prenoms_latin1_semicolon.csv");
    const Outcome r = Describe(path);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(Has(r.out, "rows:           10121"));
    EXPECT_TRUE(Has(r.out, "     1  text                        prenoms\n"));
    EXPECT_TRUE(Has(r.out, "     2  whole number                nombre\n"));
    EXPECT_TRUE(Has(r.out, "     3  text                        sexe\n"));
    EXPECT_TRUE(Has(r.out, "     4  whole number                annee\n"));

    kbase_tool::CsvOptions o;
    o.input = path;
    o.group = {"annee"};
    o.sum = {"nombre"};
    const Outcome totals = Kbase(o);
    ASSERT_EQ(totals.code, 0) << totals.err;
    EXPECT_EQ(totals.out.substr(0, 48), "annee;nombre\n2004;30780.00\n2005;30356.00\n2006;31");

    o.group.clear();
    o.sum.clear();
    o.sort = {"nombre:desc"};
    const Outcome sorted = Kbase(o);
    ASSERT_EQ(sorted.code, 0) << sorted.err;
    EXPECT_EQ(sorted.out.substr(0, 45), "prenoms;nombre;sexe;annee\nGabriel;398;M;2010\n");

    CSVTableWithHeader t(Name(path), ';', true);
    EXPECT_EQ(t.GetData("Aaron", "nombre"), "92");  // the last row of Aaron wins
    EXPECT_EQ(t.GetData(1, 1), "55");
}

TEST(RealCsv, ClearErrors) {
    kbase_tool::CsvOptions o;
    o.input = "/nonexistent/kbase/none.csv";
    Outcome r = Kbase(o);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "kbase csv: cannot open '/nonexistent/kbase/none.csv': No such file or directory\n");
    REQUIRE_DATA(path, "leaguecsv_prenoms_latin1_semicolon.csv");
    o.input = path;
    o.sum = {"nothing"};
    r = Kbase(o);
    EXPECT_EQ(r.code, 2);
    EXPECT_EQ(r.err, "kbase csv: no column 'nothing' to sum (the file has 4 columns; give a header name or a number from 1)\n");
    o.sum.clear();
    o.delimiter = ";;";
    EXPECT_EQ(Kbase(o).code, 2);
}

}  // namespace
