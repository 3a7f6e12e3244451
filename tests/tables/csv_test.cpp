// UtCCsvReader and CSVTableWithHeader on files written by the tests.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "kbase/tables/CSVTableWithHeader.h"
#include "kbase/tables/UtCCsvReader.h"

namespace {

namespace fs = std::filesystem;

class CsvFile {
public:
    explicit CsvFile(const std::string& bytes) {
        static const unsigned run = std::random_device{}();  // tests of other processes may run beside
        static int serial = 0;
        path_ = fs::temp_directory_path() / ("kbase_csv_test_" + std::to_string(run) + "_" + std::to_string(serial++) + ".csv");
        std::ofstream(path_, std::ios::binary) << bytes;
    }
    ~CsvFile() { fs::remove(path_); }
    UtCString name() const { return UtCString(path_.string().c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8); }

private:
    fs::path path_;
};

std::vector<std::string> Tokens(UtCCsvReader& r, int n) {
    std::vector<std::string> v;
    for (int i = 0; i < n; ++i) v.push_back(r.GetTokenPtr(i));
    return v;
}

using V = std::vector<std::string>;

TEST(CsvReader, MissingFileGivesNoRows) {
    UtCCsvReader r(UtCString("/nonexistent/kbase/none.csv"));
    EXPECT_FALSE(r.IsOpen());
    EXPECT_EQ(r.GetReadState(), UtCCsvReader::eReadNotOpen);
    r.SetMColumnTypeMasks(std::vector<UtCCsvReader::TColumnMasks>(2));
    EXPECT_FALSE(r.ParseNextRow(true));
    EXPECT_FALSE(r.SkipNextRow());
    EXPECT_FALSE(r.Reset(true));
    EXPECT_EQ(r.GetToken(0).GetLength(), 0);
}

struct CutCase {
    const char* name;
    const char* line;
    int columns;
    bool all;
    int maxParse;
    bool expected;
    V tokens;
};

// GoogleTest prints a parameter it cannot print as its bytes, padding included.
void PrintTo(const CutCase& c, std::ostream* os) { *os << c.name; }

class CsvCut : public ::testing::TestWithParam<CutCase> {};

TEST_P(CsvCut, CutsAsTheFormatSays) {
    const CutCase& c = GetParam();
    CsvFile f(std::string(c.line) + "\n");
    UtCCsvReader r(f.name());
    r.SetMColumnTypeMasks(std::vector<UtCCsvReader::TColumnMasks>(static_cast<size_t>(c.columns)));
    r.SetMaxParseIndex(c.maxParse);
    EXPECT_EQ(r.ParseNextRow(c.all), c.expected);
    EXPECT_EQ(Tokens(r, static_cast<int>(c.tokens.size())), c.tokens);
    EXPECT_FALSE(r.ParseNextRow(c.all));  // one line only
}

INSTANTIATE_TEST_SUITE_P(
    Lines, CsvCut,
    ::testing::Values(CutCase{"fewer_tokens_than_columns", "1;2", 3, true, 0, false, {"1", "2", ""}},
                      CutCase{"rest_of_line_ignored", "1;2;3", 2, true, 0, true, {"1", "2", ""}},
                      CutCase{"run_separates_once", "a;;b", 2, true, 0, true, {"a;", "b"}},
                      CutCase{"leading_delimiters_stay", ";a;b", 2, true, 0, true, {";a", "b"}},
                      CutCase{"trailing_delimiter_dropped", "a;b;", 2, true, 0, true, {"a", "b"}},
                      CutCase{"only_delimiters", ";;;", 2, true, 0, false, {";;", ""}},
                      CutCase{"max_parse_index_one", "1;2;3", 3, false, 1, true, {"1;2;3", ""}},
                      CutCase{"max_parse_index_two", "1;2;3", 3, false, 2, true, {"1", "2", ""}},
                      CutCase{"quotes_are_ordinary", "\"a;b\";c", 3, true, 0, true, {"\"a", "b\"", "c"}},
                      CutCase{"one_column", "x;y", 1, true, 0, true, {"x;y"}}),
    [](const ::testing::TestParamInfo<CutCase>& p) { return std::string(p.param.name); });

// The cutting rule one byte at a time: tokens of the line as GetTokenPtr gives them, and whether
// `columns` tokens were found.
V CutByteByByte(std::string line, int columns, bool& complete) {
    const size_t n = line.size();
    std::vector<size_t> starts{0};
    complete = columns < 2;
    if (complete) return {line};  // one token wanted: the line stays as it is
    size_t i0 = 0;
    while (i0 < n && line[i0] == ';') ++i0;
    if (i0 == n) i0 = 0;
    for (size_t j = i0 + 1; j < n;) {
        size_t q = j;
        while (q < n && line[q] != ';') ++q;
        if (q == n) break;
        size_t m = q + 1;
        while (m < n && line[m] == ';') ++m;
        if (m >= n) break;
        line[m - 1] = '\0';
        if (starts.size() >= static_cast<size_t>(columns)) break;
        starts.push_back(m);
        j = m + 1;
    }
    if (n > 0 && line[n - 1] == ';') line[n - 1] = '\0';
    complete = starts.size() >= static_cast<size_t>(columns);
    V tokens;
    for (int i = 0; i < columns; ++i) {
        tokens.push_back(static_cast<size_t>(i) < starts.size() ? std::string(line.c_str() + starts[static_cast<size_t>(i)]) : "");
    }
    return tokens;
}

// Long lines with delimiter runs of every length, also across the reader's 64-byte blocks.
TEST(CsvReader, RandomLinesCutLikeTheByteByByteRule) {
    std::mt19937 rng(17);
    std::vector<std::string> lines;
    std::string bytes;
    for (int i = 0; i < 400; ++i) {
        std::string line;
        const size_t length = 1 + rng() % 300;
        const unsigned delimiterShare = 1 + rng() % 9;  // tenths
        while (line.size() < length) {
            const bool run = rng() % 10 < delimiterShare;
            line.append(1 + rng() % (rng() % 4 == 0 ? 70 : 3), run ? ';' : static_cast<char>('a' + rng() % 3));
        }
        lines.push_back(line);
        bytes += line + "\n";
    }
    CsvFile f(bytes);
    for (int columns : {1, 2, 7, 40}) {
        UtCCsvReader r(f.name());
        r.SetMColumnTypeMasks(std::vector<UtCCsvReader::TColumnMasks>(static_cast<size_t>(columns)));
        for (const std::string& line : lines) {
            bool complete = false;
            const V expected = CutByteByByte(line, columns, complete);
            EXPECT_EQ(r.ParseNextRow(true), complete) << line;
            ASSERT_EQ(Tokens(r, columns), expected) << columns << " columns: " << line;
        }
    }
}

TEST(CsvReader, TypeMasksOfTokensAndTheCommaGap) {
    CsvFile f("x\n");
    UtCCsvReader r(f.name());
    struct Case {
        const char* token;
        uint32_t implicitMask, explicitMask;
        bool comma;
    };
    const Case cases[] = {{"200", 8, 15, false},  {"255", 8, 15, false}, {"256", 1, 7, false},  {"300", 1, 7, false},
                          {"-1", 1, 7, false},    {"0", 8, 15, false},   {"1.5", 2, 6, false},  {"abc", 4, 4, false},
                          {"", 4, 4, false},      {" 7 ", 8, 15, false}, {"1,5", 2, 6, true},   {"a,b", 0, 0, false},
                          {"1,2,3", 0, 0, false}, {"4294967297", 8, 15, false}};
    for (const Case& c : cases) {
        r.SetDecimalComma(false);
        const UtCCsvReader::TColumnMasks m = r.ClassifyToken(UtCString(c.token));
        EXPECT_EQ(m.implicitMask, c.implicitMask) << c.token;
        EXPECT_EQ(m.explicitMask, c.explicitMask) << c.token;
        EXPECT_EQ(r.GetDecimalComma(), c.comma) << c.token;
    }
}

TEST(CsvReader, AutoColDelCountsRunsOfBlanksOnceAndTiesKeepTheEarlier) {
    CsvFile f("x\n");
    UtCCsvReader r(f.name());
    struct Case {
        const char* line;
        char before, expected;
    };
    const Case cases[] = {{"a,b;c,d", ';', ','},   {"word  word", ';', ' '}, {"a,b;c", ';', ','},
                          {"a\tb c", ';', '\t'},   {"a  b;c;d", ',', ';'},   {"plain", '|', '|'},
                          {"a\t\t\tb  c d", ';', ' '}, {"", ',', ','}};
    for (const Case& c : cases) {
        r.SetColDelimiter(c.before);
        EXPECT_EQ(r.AutoColDel(UtCString(c.line)), c.expected) << c.line;
        EXPECT_EQ(r.GetColDelimiter(), c.expected) << c.line;
    }
    EXPECT_EQ(r.AutoColDel(UtCString(u"a,b,c;d", eUtEncodingTypeUtf16)), ',');
}

TEST(CsvReader, ResetFindsTitlesColumnsMasksAndRows) {
    // A mark, CRLF line ends, an empty line, a title line, a decimal comma, a last line without
    // a line feed.
    CsvFile f("\xEF\xBB\xBFName;Count;Price\r\nWand;3;1,5\r\n\r\nDach;300;2\r\nT\xC3\xBCr;-1;abc");
    UtCCsvReader r(f.name());
    r.SetColDelimiter(',');
    ASSERT_TRUE(r.Reset(true));
    EXPECT_EQ(r.GetColDelimiter(), ';');
    EXPECT_EQ(r.GetTitleLineCount(), 1u);
    EXPECT_EQ(r.GetColCount(), 3);
    EXPECT_EQ(r.GetDataRowCount(), 3u);
    EXPECT_TRUE(r.GetDecimalComma());
    EXPECT_EQ(r.GetFileEncoding(), eUtEncodingTypeUtf8);
    const auto& m = r.GetMColumnTypeMasks();
    EXPECT_EQ(m[0].implicitMask, 4u);
    EXPECT_EQ(m[1].implicitMask, 8u | 1u);
    EXPECT_EQ(m[2].implicitMask, 2u | 8u | 4u);
    EXPECT_EQ(r.GetIndicesImplicitFor(UtCCsvReader::eTypeText), (std::vector<int>{0, 2}));
    EXPECT_EQ(r.GetIndicesImplicitFor(UtCCsvReader::eTypeText, true), (std::vector<int>{0}));
    EXPECT_EQ(r.GetIndicesExplicitFor(UtCCsvReader::eTypeLargeInteger), (std::vector<int>{1, 2}));

    // Positioned at the first data row.
    ASSERT_TRUE(r.ParseNextRow(true));
    EXPECT_EQ(Tokens(r, 3), (V{"Wand", "3", "1,5"}));
    double v = 0;
    EXPECT_TRUE(r.GetTokenDouble(2, v));
    EXPECT_DOUBLE_EQ(v, 1.5);
    EXPECT_FALSE(r.GetTokenDouble(0, v));
    ASSERT_TRUE(r.ParseNextRow(true));
    ASSERT_TRUE(r.ParseNextRow(true));
    EXPECT_EQ(r.GetToken(0).GetUtf8String(0), "T\xC3\xBCr");
    EXPECT_EQ(r.GetToken(0).encodingType(), eUtEncodingTypeUtf8);
    EXPECT_FALSE(r.ParseNextRow(true));
    EXPECT_EQ(r.GetReadState(), UtCCsvReader::eReadEnd);
    EXPECT_EQ(r.GetFilePosition(), r.GetFileSize());

    // The title line itself, read from the very start, carries no mark.
    ASSERT_TRUE(r.SetToFirstRow(false));
    ASSERT_TRUE(r.ParseNextRow(true));
    EXPECT_EQ(r.GetToken(0).GetUtf8String(0), "Name");
}

TEST(CsvReader, TitleLinesOfAllTextFilesAndAFileOfDelimiters) {
    CsvFile text("alpha;beta\ngamma;delta\n");
    UtCCsvReader a(text.name());
    ASSERT_TRUE(a.Reset(true));
    EXPECT_EQ(a.GetTitleLineCount(), 1u);
    EXPECT_EQ(a.GetDataRowCount(), 1u);

    CsvFile delims(";;;;\n;;\n");
    UtCCsvReader d(delims.name());
    ASSERT_TRUE(d.Reset(true));
    EXPECT_EQ(d.GetColCount(), 1);
    ASSERT_TRUE(d.SetToFirstRow(false));
    EXPECT_TRUE(d.ParseNextRow(true));
    EXPECT_EQ(d.GetToken(0).GetUtf8String(0), ";;;;");  // one column: the line is not cut

    CsvFile empty("");
    UtCCsvReader e(empty.name());
    EXPECT_TRUE(e.Reset(true));
    EXPECT_EQ(e.GetColCount(), 0);
    EXPECT_FALSE(e.ParseNextRow(true));  // no columns: false at once
}

TEST(CsvReader, IsTitleLine) {
    CsvFile f("x\n");
    UtCCsvReader r(f.name());
    EXPECT_TRUE(r.IsTitleLine(UtCStringList{UtCString("Name"), UtCString("Plan 2012")}));
    EXPECT_FALSE(r.IsTitleLine(UtCStringList{UtCString("Name"), UtCString("2012")}));
    EXPECT_FALSE(r.IsTitleLine(UtCStringList{UtCString("76,70")}));
    EXPECT_FALSE(r.IsTitleLine(UtCStringList{UtCString("")}));
    EXPECT_FALSE(r.IsTitleLine(UtCStringList()));
}

TEST(CsvReader, CtrlZEndsTheDataUnlessDisabled) {
    CsvFile f("a;1\n\x1A\nb;2\n");
    for (bool disable : {false, true}) {
        UtCCsvReader r(f.name());
        r.SetDisableZ(disable);
        r.SetTitleLineCount(0);
        ASSERT_TRUE(r.Reset(false));
        EXPECT_EQ(r.GetDataRowCount(), disable ? 3u : 1u);
    }
}

TEST(CsvReader, LinesLongerThanOneMebibyte) {
    const std::string longField(3u << 20, 'x');
    CsvFile f("h1;h2\n" + longField + ";5\nshort;6");
    UtCCsvReader r(f.name());
    ASSERT_TRUE(r.Reset(true));
    EXPECT_EQ(r.GetDataRowCount(), 2u);
    ASSERT_TRUE(r.ParseNextRow(true));
    EXPECT_EQ(r.GetToken(0).GetLength(), static_cast<int>(longField.size()));
    EXPECT_EQ(std::string(r.GetTokenPtr(1)), "5");
    ASSERT_TRUE(r.ParseNextRow(true));
    EXPECT_EQ(std::string(r.GetTokenPtr(0)), "short");
}

TEST(CsvReader, ScanReportsProgress) {
    struct Watching : UtCCsvReader {
        using UtCCsvReader::UtCCsvReader;
        std::vector<uint64_t> seen;
        void ScanProgress(uint64_t position, uint64_t size) override {
            EXPECT_LE(position, size);
            seen.push_back(position);
        }
    };
    std::string body = "a;b\n";
    for (int i = 0; i < 20000; ++i) body += std::to_string(i) + ";" + std::to_string(i * 7) + "\n";
    CsvFile f(body);
    Watching r(f.name());
    ASSERT_TRUE(r.Reset(true));
    ASSERT_GE(r.seen.size(), 2u);
    EXPECT_EQ(r.seen.back(), body.size());
    EXPECT_EQ(r.GetDataRowCount(), 20000u);
}

TEST(CsvReader, SetMLineAndTokenStartsStayInsideTheLine) {
    CsvFile f("x\n");
    UtCCsvReader r(f.name());
    r.SetMLine("abc");
    r.SetMTokenStartIndex({0, 2, 99, -5});
    EXPECT_EQ(r.GetMTokenStartIndex(), (std::vector<int>{0, 2, -1, -1}));
    EXPECT_EQ(std::string(r.GetTokenPtr(1)), "c");
    EXPECT_EQ(std::string(r.GetTokenPtr(2)), "");
    EXPECT_EQ(std::string(r.GetTokenPtr(7)), "");
}

// ---- CSVTableWithHeader ---------------------------------------------------------------------------

TEST(CsvTable, LoadsFieldsHeaderAndIdentifiers) {
    CsvFile f("\xEF\xBB\xBFid;name;name\r\n7;a;b\r\n\r\n8;;c;extra\r\n7;x;y");
    CSVTableWithHeader t(f.name(), ';', true);
    ASSERT_TRUE(t.IsLoaded());
    EXPECT_EQ(t.GetRowCount(), 5u);
    EXPECT_EQ(t.GetColCount(), 4u);
    EXPECT_EQ(t.GetHeader(), (V{"id", "name", "name"}));  // no mark in the first name
    EXPECT_EQ(t.GetRow(2), (V{""}));
    EXPECT_EQ(t.GetRow(3), (V{"8", "", "c", "extra"}));
    EXPECT_EQ(t.GetIDs(), (V{"7", "", "8", "7"}));
    EXPECT_EQ(t.GetCol(2), (V{"name", "b", "", "c", "y"}));
    EXPECT_EQ(t.GetData("name", "name"), "");          // no such identifier
    EXPECT_EQ(t.GetData("8", "name"), "c");            // repeated header: its last column
    EXPECT_EQ(t.GetData("7", "id"), "7");              // repeated identifier: its last row
    EXPECT_EQ(t.GetData("7", "name"), "y");
    EXPECT_EQ(t.GetData(3, 3), "extra");
    EXPECT_EQ(t.GetData(1, 3), "");

    EXPECT_TRUE(t.SetData(0, 1, "first"));
    EXPECT_EQ(t.GetData("8", "first"), "");  // the field of row 3, column 1 is empty
    EXPECT_TRUE(t.SetData(3, 1, "filled"));
    EXPECT_EQ(t.GetData("8", "first"), "filled");
    EXPECT_TRUE(t.SetData(3, 0, "nine"));
    EXPECT_EQ(t.GetData("nine", "first"), "filled");
    EXPECT_TRUE(t.SetData("nine", "name", "z"));
    EXPECT_EQ(t.GetData(3, 2), "z");
    EXPECT_FALSE(t.SetData(1, 9, "x"));
    EXPECT_FALSE(t.SetData("none", "name", "x"));

    CSVTableWithHeader copy(t);
    t.Init();
    EXPECT_FALSE(t.IsLoaded());
    EXPECT_EQ(t.GetRowCount(), 0u);
    EXPECT_EQ(copy.GetData("nine", "name"), "z");
    CSVTableWithHeader moved(std::move(copy));
    EXPECT_EQ(moved.GetTable().size(), 5u);
}

// Many rows with repeated identifiers: the identifier map grows past its first size, keeps the
// last row of each identifier, and follows edits of the identifier column.
TEST(CsvTable, IdentifierMapAtScale) {
    std::string text = "id;value\n";
    for (int r = 1; r <= 5000; ++r) text += "k" + std::to_string(r % 1250) + ";" + std::to_string(r) + "\n";
    CsvFile f(text);
    CSVTableWithHeader t(f.name(), ';', true);
    ASSERT_EQ(t.GetRowCount(), 5001u);
    for (int k = 0; k < 1250; ++k) {
        const int last = k == 0 ? 5000 : 3750 + k;
        ASSERT_EQ(t.GetData("k" + std::to_string(k), "value"), std::to_string(last)) << k;
    }
    EXPECT_EQ(t.GetFieldCount(1), 2u);
    EXPECT_EQ(t.GetFieldCount(5001), 0u);
    EXPECT_EQ(t.Field(2, 1), "2");
    EXPECT_EQ(t.Field(2, 2), "");
    EXPECT_TRUE(t.SetData(5000, 0, "moved"));
    EXPECT_EQ(t.GetData("moved", "value"), "5000");
    EXPECT_EQ(t.GetData("k0", "value"), "3750");  // the last row left for k0
    EXPECT_EQ(t.Field(5000, 0), "moved");
}

TEST(CsvTable, MissingFileAndDelimitersOnly) {
    CSVTableWithHeader missing(UtCString("/nonexistent/kbase/none.csv"), ';', true);
    EXPECT_FALSE(missing.IsLoaded());
    EXPECT_FALSE(missing.Load(UtCString("/nonexistent/kbase/none.csv"), ';'));

    CsvFile f(";;;\n");
    CSVTableWithHeader t(f.name(), ';', false);
    EXPECT_FALSE(t.IsLoaded());
    ASSERT_TRUE(t.Load(f.name(), ';'));
    EXPECT_EQ(t.GetRow(0), (V{"", "", "", ""}));
    EXPECT_TRUE(t.GetIDs().empty());
}

}  // namespace
