// UtCCsvReader's records: the quoted mode, ReadRecord, reading a stream once, and guessing the
// delimiter and title lines from the first bytes.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kbase/tables/UtCCsvReader.h"
#include "kbase/tables/internal/line_source.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;

using Record = std::vector<std::string>;
using Records = std::vector<Record>;

class CsvFile {
public:
    explicit CsvFile(const std::string& bytes) {
        static const unsigned run = std::random_device{}();
        static int serial = 0;
        path_ = fs::temp_directory_path() / ("kbase_record_test_" + std::to_string(run) + "_" +
                                             std::to_string(serial++) + ".csv");
        std::ofstream(path_, std::ios::binary) << bytes;
    }
    ~CsvFile() { fs::remove(path_); }
    UtCString name() const {
        return UtCString(path_.string().c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
    }

private:
    fs::path path_;
};

// Restores the line source's block size and length bound however a test ends.
struct SmallBlocks {
    SmallBlocks(size_t block, size_t maxLine) {
        kbase_tables_internal::SetLineSourceLimitsForTesting(block, maxLine);
    }
    ~SmallBlocks() { kbase_tables_internal::SetLineSourceLimitsForTesting(0, 0); }
};

struct Read {
    Records records;
    std::vector<uint64_t> lines;  // GetRecordNumber of each
    UtCCsvReader::TReadState state;
};

Read ReadAll(UtCCsvReader& r) {
    Read out;
    for (int n; (n = r.ReadRecord()) >= 0;) {
        EXPECT_EQ(n, r.GetFieldCount());
        Record rec;
        for (int i = 0; i < n; ++i) rec.emplace_back(r.GetFieldPtr(i), r.GetFieldLength(i));
        EXPECT_STREQ(r.GetFieldPtr(n), "");
        EXPECT_EQ(r.GetFieldLength(-1), 0u);
        out.records.push_back(rec);
        out.lines.push_back(r.GetRecordNumber());
    }
    out.state = r.GetReadState();
    return out;
}

Read ReadFile(const std::string& bytes, bool quoted, char delimiter = ',') {
    CsvFile f(bytes);
    UtCCsvReader r(f.name());
    r.SetQuoted(quoted);
    r.SetColDelimiter(delimiter);
    return ReadAll(r);
}

struct RecordCase {
    const char* name;
    std::string bytes;
    bool quoted;
    Records records;
    std::vector<uint64_t> lines;
    UtCCsvReader::TReadState end;
};

void PrintTo(const RecordCase& c, std::ostream* os) {
    *os << c.name;
}

class CsvRecords : public ::testing::TestWithParam<RecordCase> {};

TEST_P(CsvRecords, CutsAndUnquotesAsTheModeSays) {
    const RecordCase& c = GetParam();
    const Read got = ReadFile(c.bytes, c.quoted);
    EXPECT_EQ(got.records, c.records);
    EXPECT_EQ(got.lines, c.lines);
    EXPECT_EQ(got.state, c.end);
}

const UtCCsvReader::TReadState kEnd = UtCCsvReader::eReadEnd;
using namespace std::string_literals;

INSTANTIATE_TEST_SUITE_P(
    Quoting, CsvRecords,
    ::testing::Values(
        RecordCase{
            "plain", "a,b,c\n1,2,3\n", true, {{"a", "b", "c"}, {"1", "2", "3"}}, {1, 2}, kEnd},
        RecordCase{"delimiter_in_quotes", "\"a,b\",c\n", true, {{"a,b", "c"}}, {1}, kEnd},
        RecordCase{"doubled_quotes",
                   "\"say \"\"hi\"\"\",\"\"\"\"\n",
                   true,
                   {{"say \"hi\"", "\""}},
                   {1},
                   kEnd},
        RecordCase{"lf_in_quotes",
                   "\"l1\nl2\",z\nnext\n",
                   true,
                   {{"l1\nl2", "z"}, {"next"}},
                   {1, 3},
                   kEnd},
        RecordCase{"crlf_in_quotes_kept",
                   "\"l1\r\nl2\r\"\r\nb\r\n",
                   true,
                   {{"l1\r\nl2\r"}, {"b"}},
                   {1, 4},
                   kEnd},
        RecordCase{"lone_cr_ends_records",
                   "a,b\rc,d\r\"e\r\"\r",
                   true,
                   {{"a", "b"}, {"c", "d"}, {"e\r"}},
                   {1, 2, 3},
                   kEnd},
        RecordCase{"text_after_closing_quote",
                   "\"ab\"cd,\"x\"\"y\"z\"w\n",
                   true,
                   {{"abcd", "x\"yz\"w"}},
                   {1},
                   kEnd},
        RecordCase{
            "quote_inside_plain_field", "a\"b,c\"\"\n", true, {{"a\"b", "c\"\""}}, {1}, kEnd},
        RecordCase{"unclosed_quote_runs_to_the_end",
                   "a,b\nc,\"de\nf,g\r\n",
                   true,
                   {{"a", "b"}, {"c", "de\nf,g\r\n"}},
                   {1, 2},
                   UtCCsvReader::eReadUnclosedQuote},
        RecordCase{"unclosed_after_doubled_quote",
                   "\"a\"\"",
                   true,
                   {{"a\""}},
                   {1},
                   UtCCsvReader::eReadUnclosedQuote},
        RecordCase{
            "empty_fields_kept", ",a,,\n,\n", true, {{"", "a", "", ""}, {"", ""}}, {1, 2}, kEnd},
        RecordCase{"empty_lines_skipped", "\n\r\n\ra\n\n\"\"\n", true, {{"a"}, {""}}, {4, 6}, kEnd},
        RecordCase{"mark_then_quote", "\xEF\xBB\xBF\"a\",b\n", true, {{"a", "b"}}, {1}, kEnd},
        RecordCase{"no_final_line_end", "a,\"b\"", true, {{"a", "b"}}, {1}, kEnd},
        RecordCase{"delimiter_before_the_end", "a,", true, {{"a", ""}}, {1}, kEnd},
        RecordCase{"nul_in_a_field", "a\0b,\"c\0\"\n"s, true, {{"a\0b"s, "c\0"s}}, {1}, kEnd},
        RecordCase{"ctrl_z_ends_the_data", "a\n\x1A\nb\n", true, {{"a"}}, {1}, kEnd},
        RecordCase{"raw_quotes_are_ordinary",
                   "\"a,b\",\"\"\rd\r\n",
                   false,
                   {{"\"a", "b\"", "\"\""}, {"d"}},
                   {1, 2},
                   kEnd},
        RecordCase{"raw_every_delimiter", ";a,,b\n", false, {{";a", "", "b"}}, {1}, kEnd},
        RecordCase{"raw_empty_lines_skipped", "\r\r\nx\n", false, {{"x"}}, {3}, kEnd}),
    [](const ::testing::TestParamInfo<RecordCase>& p) { return std::string(p.param.name); });

// The documented rules one byte at a time, independent of the reader's block scanning.
// lines: the 1-based line of each record's start (LF, CRLF and a lone CR each end a line).
Records ReferenceCut(const std::string& s, bool quoted, char d, bool& unclosed,
                     std::vector<uint64_t>& lines) {
    auto lineOf = [&](size_t at) {
        uint64_t line = 1;
        for (size_t k = 0; k < at; ++k)
            line += s[k] == '\n' || (s[k] == '\r' && (k + 1 == s.size() || s[k + 1] != '\n'));
        return line;
    };
    Records out;
    Record rec;
    std::string field;
    size_t i = 0;
    unclosed = false;
    const size_t n = s.size();
    while (i < n) {
        // A record starts here; an empty line is skipped.
        if (s[i] == '\n' || s[i] == '\r') {
            i += (s[i] == '\r' && i + 1 < n && s[i + 1] == '\n') ? 2 : 1;
            continue;
        }
        lines.push_back(lineOf(i));
        for (;;) {  // one field
            field.clear();
            if (quoted && i < n && s[i] == '"') {
                ++i;
                for (;;) {
                    if (i >= n) {
                        unclosed = true;
                        break;
                    }
                    if (s[i] == '"') {
                        if (i + 1 < n && s[i + 1] == '"') {
                            field += '"';
                            i += 2;
                            continue;
                        }
                        ++i;
                        break;
                    }
                    field += s[i++];
                }
            }
            while (i < n && s[i] != d && s[i] != '\n' && s[i] != '\r') field += s[i++];
            rec.push_back(field);
            if (i < n && s[i] == d) {
                ++i;
                if (i == n) rec.push_back("");
                if (i < n) continue;
            }
            break;
        }
        if (i < n) i += (s[i] == '\r' && i + 1 < n && s[i + 1] == '\n') ? 2 : 1;
        out.push_back(rec);
        rec.clear();
    }
    return out;
}

// Random bytes from the characters that matter, read through blocks of every small size, so that
// block and buffer ends fall on every kind of byte (inside quotes, between CR and LF, between two
// quotes of a pair, right after a closing quote).
TEST(CsvRecords, RandomTextReadsLikeTheByteByByteRulesWhateverTheBlockSize) {
    std::mt19937 rng(5);
    const char alphabet[] = {'a', 'b', ',', ',', '"', '"', '\r', '\n', ' ', ';'};
    for (int round = 0; round < 60; ++round) {
        std::string text;
        const size_t length = 1 + rng() % 400;
        for (size_t k = 0; k < length; ++k) text += alphabet[rng() % sizeof alphabet];
        for (bool quoted : {true, false}) {
            bool unclosed = false;
            std::vector<uint64_t> lines;
            const Records expected = ReferenceCut(text, quoted, ',', unclosed, lines);
            for (size_t block :
                 {size_t{1}, size_t{2}, size_t{3}, size_t{7}, size_t{64}, size_t{65}, size_t{0}}) {
                SmallBlocks limits(block, 0);
                const Read got = ReadFile(text, quoted);
                ASSERT_EQ(got.records, expected)
                    << "round " << round << " block " << block << " quoted " << quoted;
                EXPECT_EQ(got.lines, lines);
                EXPECT_EQ(got.state,
                          unclosed ? UtCCsvReader::eReadUnclosedQuote : UtCCsvReader::eReadEnd);
            }
        }
    }
}

TEST(CsvRecords, LongRecordsAcrossBlocksAndTheLengthBound) {
    // A quoted field of 300 bytes with doubled quotes and line breaks, read in blocks of 16.
    std::string big;
    for (int i = 0; i < 50; ++i) big += "ab\"\"\r\n";
    std::string unquoted;
    for (int i = 0; i < 50; ++i) unquoted += "ab\"\r\n";
    {
        SmallBlocks limits(16, 0);
        const Read got = ReadFile("x,\"" + big + "\",y\nlast\n", true);
        EXPECT_EQ(got.records, (Records{{"x", unquoted, "y"}, {"last"}}));
        EXPECT_EQ(got.lines, (std::vector<uint64_t>{1, 52}));
    }
    // Records longer than the bound stop the reader; shorter ones before it are delivered.
    {
        SmallBlocks limits(16, 100);
        const Read quoted = ReadFile("a,b\n\"" + big + "\"\n", true);
        EXPECT_EQ(quoted.records, (Records{{"a", "b"}}));
        EXPECT_EQ(quoted.state, UtCCsvReader::eReadLineTooLong);
        const Read raw = ReadFile("a,b\n" + std::string(300, 'x') + "\n", false);
        EXPECT_EQ(raw.records, (Records{{"a", "b"}}));
        EXPECT_EQ(raw.state, UtCCsvReader::eReadLineTooLong);
    }
}

TEST(CsvRecords, MissingFileAndFieldAccessOutOfRange) {
    UtCCsvReader r(UtCString("/nonexistent/kbase/none.csv"));
    r.SetQuoted(true);
    EXPECT_EQ(r.ReadRecord(), -1);
    EXPECT_EQ(r.GetReadState(), UtCCsvReader::eReadNotOpen);
    EXPECT_EQ(r.GetFieldCount(), 0);
    EXPECT_STREQ(r.GetFieldPtr(0), "");
    EXPECT_FALSE(r.DetectFromHead(true));

    CsvFile empty("");
    UtCCsvReader e(empty.name());
    EXPECT_FALSE(e.DetectFromHead(true));
    EXPECT_EQ(e.ReadRecord(), -1);
    EXPECT_EQ(e.GetReadState(), UtCCsvReader::eReadEnd);
}

// The older calls in quoted mode: rows are records with unquoted fields, and Reset guesses the
// delimiter from field counts (the ';' inside the quoted notes would win a vote of lines).
TEST(CsvRecords, ParseNextRowAndResetInQuotedMode) {
    CsvFile f(
        "Name,\"Note; with; semicolons\",Price\r\n"
        "Wand,\"2 m; \"\"long\"\"\",\"1,5\"\r\n"
        "\r\n"
        "Dach,\"first line\nsecond; line\",300\r\n"
        "Tuer,,-1\r\n");
    UtCCsvReader r(f.name());
    r.SetQuoted(true);
    ASSERT_TRUE(r.Reset(true));
    EXPECT_EQ(r.GetColDelimiter(), ',');
    EXPECT_EQ(r.GetTitleLineCount(), 1u);
    EXPECT_EQ(r.GetColCount(), 3);
    EXPECT_EQ(r.GetDataRowCount(), 3u);
    EXPECT_TRUE(r.GetDecimalComma());
    const auto& m = r.GetMColumnTypeMasks();
    EXPECT_EQ(m[0].implicitMask, 4u);
    EXPECT_EQ(m[2].implicitMask, 2u | 1u | 1u);
    ASSERT_TRUE(r.ParseNextRow(true));
    EXPECT_EQ(r.GetToken(1).GetUtf8String(0), "2 m; \"long\"");
    EXPECT_EQ(std::string(r.GetTokenPtr(2)), "1,5");
    double v = 0;
    EXPECT_TRUE(r.GetTokenDouble(2, v));
    EXPECT_DOUBLE_EQ(v, 1.5);
    ASSERT_TRUE(r.ParseNextRow(true));
    EXPECT_EQ(std::string(r.GetTokenPtr(1)), "first line\nsecond; line");
    EXPECT_EQ(r.GetRecordNumber(), 4u);
    ASSERT_TRUE(r.ParseNextRow(true));
    EXPECT_EQ(std::string(r.GetTokenPtr(1)), "");  // an empty field is kept
    EXPECT_EQ(std::string(r.GetTokenPtr(2)), "-1");
    EXPECT_FALSE(r.ParseNextRow(true));

    // Two of three columns: true, the rest of the record is not recorded.
    ASSERT_TRUE(r.SetToFirstRow(true));
    r.SetMaxParseIndex(2);
    ASSERT_TRUE(r.ParseNextRow(false));
    EXPECT_EQ(std::string(r.GetTokenPtr(0)), "Wand");
    EXPECT_EQ(std::string(r.GetTokenPtr(2)), "");
    EXPECT_TRUE(r.SkipNextRow());
    EXPECT_EQ(std::string(r.GetFieldPtr(0)), "Dach");  // the fields of the skipped record

    // AutoColDel does not count what is inside quotes.
    r.SetColDelimiter(',');
    EXPECT_EQ(r.AutoColDel(UtCString("a;\"b,c,d\";e")), ';');
}

struct GuessCase {
    const char* name;
    std::string sample;
    bool quoted;
    char expected;
};

void PrintTo(const GuessCase& c, std::ostream* os) {
    *os << c.name;
}

class CsvGuess : public ::testing::TestWithParam<GuessCase> {};

TEST_P(CsvGuess, PrefersTheMostConsistentFieldCount) {
    const GuessCase& c = GetParam();
    EXPECT_EQ(UtCCsvReader::GuessDelimiter(c.sample.data(), c.sample.size(), c.quoted), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Samples, CsvGuess,
    ::testing::Values(
        GuessCase{"comma", "a,b,c\n1,2,3\n", false, ','},
        GuessCase{"tab_beside_commas_in_text", "name\tnote\nx\tsome text, with a comma\ny\tz\n",
                  false, '\t'},
        GuessCase{"pipe", "a|b|c\n1|2|3\n", false, '|'},
        GuessCase{"semicolon_outside_quotes", "x;\"1,2,3\"\ny;\"4,5,6\"\n", true, ';'},
        GuessCase{"quoted_decimal_commas", "\"Wand\";\"1,5\"\n\"Dach\";\"2,25\"\n", true, ';'},
        GuessCase{"raw_counts_commas_in_quotes", "x;\"1,2,3\"\ny;\"4,5,6\"\n", false, ','},
        GuessCase{"line_breaks_in_quotes", "a,b\n\"one\ntwo; three\",c\nd,e\n", true, ','},
        GuessCase{"header_with_fewer_fields", "Table: costs\na;b;c\n1;2,5;3\n4;5;6\n", false, ';'},
        GuessCase{"tie_goes_to_the_earlier", "a,b;c\n", false, ','},
        GuessCase{"tie_goes_to_more_fields", "a,b\nc;d;e\n", false, ';'},
        GuessCase{"space_last", "one two\nthree four\n", false, ' '},
        GuessCase{"cut_short_last_line_left_out", "a;b\nc,d,e", false, ';'},
        GuessCase{"lone_record_kept", "a,b", false, ','},
        GuessCase{"nothing_splits", "plain\nwords\n", false, '\0'},
        GuessCase{"empty", "", true, '\0'}),
    [](const ::testing::TestParamInfo<GuessCase>& p) { return std::string(p.param.name); });

// A pipe written by another thread: the head is looked at without losing it, the stream is read
// once, and it cannot be rewound.
TEST(CsvStream, PipeIsReadOnceAfterDetectFromHead) {
    int fds[2];
    ASSERT_EQ(kbase_test::MakePipe(fds), 0);
    std::string text = "Bauteil;\"Notiz, lang\";Menge\n";
    for (int i = 0; i < 60000; ++i)
        text += "W" + std::to_string(i) + ";\"a, b\n c\";" + std::to_string(i % 97) + "\n";
    std::thread writer([&] {
        FILE* out = fdopen(fds[1], "wb");
        std::fwrite(text.data(), 1, text.size(), out);
        std::fclose(out);
    });
    FILE* in = fdopen(fds[0], "rb");
    ASSERT_NE(in, nullptr);
    {
        UtCCsvReader r(in, UtCString("-"));
        r.SetQuoted(true);
        EXPECT_EQ(r.GetFileSize(), 0u);
        ASSERT_TRUE(r.DetectFromHead(true));
        EXPECT_EQ(r.GetColDelimiter(), ';');
        EXPECT_EQ(r.GetTitleLineCount(), 1u);
        EXPECT_FALSE(r.Reset(false));
        EXPECT_FALSE(r.SetToFirstRow(true));
        ASSERT_EQ(r.ReadRecord(), 3);
        EXPECT_EQ(std::string(r.GetFieldPtr(1)), "Notiz, lang");
        int rows = 0;
        while (r.ReadRecord() == 3) {
            if (std::string(r.GetFieldPtr(0)) != "W" + std::to_string(rows)) break;
            EXPECT_EQ(r.GetRecordNumber(), 2u + 2u * static_cast<unsigned>(rows));
            ++rows;
        }
        EXPECT_EQ(rows, 60000);
        EXPECT_EQ(r.GetReadState(), UtCCsvReader::eReadEnd);
        EXPECT_EQ(r.GetFilePosition(), text.size());
    }
    writer.join();
    std::fclose(in);  // not closed by the reader
}

// A stream that can seek is rewound to where it stood when the reader took it.
TEST(CsvStream, SeekableStreamRewindsToWhereItStood) {
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    const std::string text = "skip me\na;b\n1;2\n";
    std::fwrite(text.data(), 1, text.size(), f);
    std::fseek(f, 8, SEEK_SET);
    UtCCsvReader r(f, UtCString("tmp"));
    EXPECT_EQ(r.GetFileSize(), text.size() - 8);
    ASSERT_TRUE(r.Reset(true));
    EXPECT_EQ(r.GetTitleLineCount(), 1u);
    EXPECT_EQ(r.GetDataRowCount(), 1u);
    ASSERT_TRUE(r.SetToFirstRow(false));
    ASSERT_EQ(r.ReadRecord(), 2);
    EXPECT_EQ(std::string(r.GetFieldPtr(0)), "a");
    std::fclose(f);

    UtCCsvReader none(static_cast<FILE*>(nullptr), UtCString("none"));
    EXPECT_EQ(none.GetReadState(), UtCCsvReader::eReadNotOpen);
    EXPECT_EQ(none.ReadRecord(), -1);
}

// ---- real files ---------------------------------------------------------------------------------

// ../shared/data/csv-real beside the source tree or one of its parents (worktrees sit deeper).
std::string RealFile(const char* name) {
    const char* root = std::getenv("KBASE_SOURCE_DIR");
    if (root == nullptr) return std::string();
    for (fs::path dir = fs::absolute(root); !dir.empty(); dir = dir.parent_path()) {
        const fs::path p = dir / "shared" / "data" / "csv-real" / name;
        if (fs::exists(p)) return p.string();
        if (dir == dir.parent_path()) break;
    }
    return std::string();
}

uint64_t Fnv1a(uint64_t h, const char* p, size_t n) {
    for (size_t i = 0; i < n; ++i) h = (h ^ static_cast<unsigned char>(p[i])) * 0x100000001b3ULL;
    return h;
}

// What Python's csv module reads (the delimiter given, empty rows left out): records, the count
// of records per field count, and FNV-1a over the fields joined by 0x1F and records by 0x1E.
struct RealCase {
    const char* file;
    char delimiter;
    int records;
    std::map<int, int> fieldCounts;
    uint64_t hash;
    int titles;  // -1: not asserted
};

void PrintTo(const RealCase& c, std::ostream* os) {
    *os << c.file;
}

class RealCsv : public ::testing::TestWithParam<RealCase> {};

TEST_P(RealCsv, QuotedReadingGivesWhatAnRfc4180ReaderGives) {
    const RealCase& c = GetParam();
    const std::string path = RealFile(c.file);
    if (path.empty())
        GTEST_SKIP() << c.file << " not found (shared/data/csv-real beside the source tree)";
    UtCCsvReader r(UtCString(path.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8));
    r.SetQuoted(true);
    ASSERT_TRUE(r.DetectFromHead(true));
    EXPECT_EQ(r.GetColDelimiter(), c.delimiter);
    if (c.titles >= 0) {
        EXPECT_EQ(r.GetTitleLineCount(), static_cast<uint64_t>(c.titles));
    }
    int records = 0;
    std::map<int, int> counts;
    uint64_t h = 0xcbf29ce484222325ULL;
    for (int n; (n = r.ReadRecord()) >= 0; ++records) {
        ++counts[n];
        if (records > 0) h = Fnv1a(h, "\x1e", 1);
        for (int i = 0; i < n; ++i) {
            if (i > 0) h = Fnv1a(h, "\x1f", 1);
            h = Fnv1a(h, r.GetFieldPtr(i), r.GetFieldLength(i));
        }
    }
    EXPECT_EQ(r.GetReadState(), UtCCsvReader::eReadEnd);
    EXPECT_EQ(records, c.records);
    EXPECT_EQ(counts, c.fieldCounts);
    EXPECT_EQ(h, c.hash);
}

INSTANTIATE_TEST_SUITE_P(
    Files, RealCsv,
    ::testing::Values(
        RealCase{"cm_example-tweets-1.csv", ';', 76, {{7, 76}}, 0x9d94e574d4dbca50ULL, 1},
        RealCase{"cm_example-tweets-2.csv", ',', 76, {{7, 76}}, 0x4c417765ae4e4c36ULL, 1},
        RealCase{"cm_example-tweets-3.csv", '\t', 76, {{7, 76}}, 0x9d94e574d4dbca50ULL, 1},
        RealCase{"csvkit_Datagov_FY10_EDU_recp_by_State.csv",
                 ',',
                 58,
                 {{9, 58}},
                 0xb1c55f178ba0be79ULL,
                 -1},
        RealCase{"csvkit_FY09_EDU_Recipients_by_State.csv",
                 ',',
                 54,
                 {{10, 54}},
                 0x203d59d54d40ff2fULL,
                 1},
        RealCase{"csvkit_dummy.tsv", '\t', 2, {{3, 2}}, 0x6992e333ccc5fb11ULL, 1},
        RealCase{"csvkit_iris.csv", ',', 151, {{5, 151}}, 0xdc1341085950789cULL, 1},
        RealCase{"csvkit_mac_newlines.csv", ',', 3, {{3, 3}}, 0x762353d9213a7e8eULL, 1},
        RealCase{"csvkit_sort_ints_nulls.csv", ',', 4, {{3, 4}}, 0x19530d8179a325beULL, 1},
        RealCase{
            "csvkit_test_empty_columns.csv", ',', 4, {{4, 1}, {5, 3}}, 0x32971b14e5a7eb58ULL, -1},
        RealCase{"csvkit_test_skip_lines.csv", ',', 2, {{3, 2}}, 0x6992e333ccc5fb11ULL, 1},
        RealCase{"csvkit_test_utf8_bom.csv", ',', 3, {{3, 3}}, 0x61543a7312fd69eeULL, 1},
        RealCase{"spectrum_comma_in_quotes.csv", ',', 2, {{5, 2}}, 0x93a6ede25a740634ULL, 1},
        RealCase{"spectrum_empty.csv", ',', 3, {{3, 3}}, 0x79554b6bbbd89429ULL, 1},
        RealCase{"spectrum_escaped_quotes.csv", ',', 3, {{2, 3}}, 0x6333613d83e30d0aULL, 1},
        RealCase{"spectrum_json.csv", ',', 2, {{2, 2}}, 0x46bdf6e0fcecb98bULL, 1},
        RealCase{"spectrum_newlines.csv", ',', 4, {{3, 4}}, 0x81a1c0089edf3cefULL, 1},
        RealCase{"spectrum_newlines_crlf.csv", ',', 4, {{3, 4}}, 0x9e7e3bafb2962f6aULL, 1},
        RealCase{"spectrum_quotes_and_newlines.csv", ',', 3, {{2, 3}}, 0xf917cebe2026f588ULL, 1},
        RealCase{"spectrum_utf8.csv", ',', 3, {{3, 3}}, 0x211417b54777ed2ULL, 1}),
    [](const ::testing::TestParamInfo<RealCase>& p) {
        std::string name = p.param.file;
        for (char& ch : name) {
            if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
        }
        return name;
    });

}  // namespace
