// Numbers in tokens: every shape must read as strtod reads it, to the bit, whichever way the
// reader takes (short decimal, from_chars, strtod).
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "kbase/tables/UtCCsvReader.h"

namespace {

namespace fs = std::filesystem;

// Reads every line of a one-column file as a number; false entries for tokens that are none.
std::vector<std::pair<bool, double>> ReadNumbers(const std::vector<std::string>& lines) {
    static int serial = 0;
    const fs::path path = fs::temp_directory_path() /
                          ("kbase_numbers_test_" + std::to_string(std::random_device{}()) + "_" + std::to_string(serial++) + ".csv");
    {
        std::ofstream out(path, std::ios::binary);
        for (const std::string& line : lines) out << line << "\n";
    }
    std::vector<std::pair<bool, double>> values;
    {
        UtCCsvReader r(UtCString(path.string().c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8));
        r.SetMColumnTypeMasks(std::vector<UtCCsvReader::TColumnMasks>(1));
        while (r.ParseNextRow(true)) {
            double v = 0.0;
            const bool ok = r.GetTokenDouble(0, v);
            values.emplace_back(ok, v);
        }
    }
    fs::remove(path);
    return values;
}

void ExpectStrtod(const std::vector<std::string>& lines) {
    const auto values = ReadNumbers(lines);
    ASSERT_EQ(values.size(), lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        const double want = std::strtod(lines[i].c_str(), nullptr);
        ASSERT_TRUE(values[i].first) << lines[i];
        ASSERT_EQ(std::memcmp(&values[i].second, &want, sizeof want), 0)
            << lines[i] << ": " << values[i].second << " vs " << want;
    }
}

TEST(Numbers, ShapesReadLikeStrtod) {
    ExpectStrtod({"0", "-0", "-0.0", "12.50", "0.1", "0.3", "-7.25", "123456789012345", "1234567890123456",
                  "999999999999999.9", "0.0000000000000000000001", "1.00000000000000000000001", "00000000000000012.5",
                  "2.5e3", "1e-400", "1e400"});
    const auto none = ReadNumbers({"-", ".", "1.2.3", "12a", "abc"});
    for (const auto& v : none) EXPECT_FALSE(v.first);
}

TEST(Numbers, RandomDecimalsReadLikeStrtod) {
    std::mt19937_64 rng(3);
    std::vector<std::string> lines;
    for (int i = 0; i < 100000; ++i) {
        std::string text = rng() % 4 == 0 ? "-" : "";
        const int whole = 1 + static_cast<int>(rng() % 17);
        const int fraction = static_cast<int>(rng() % 24);
        for (int d = 0; d < whole; ++d) text += static_cast<char>('0' + rng() % 10);
        if (fraction > 0) {
            text += '.';
            for (int d = 0; d < fraction; ++d) text += static_cast<char>('0' + rng() % 10);
        }
        lines.push_back(text);
    }
    ExpectStrtod(lines);
}

// FieldToDouble and ClassifyField give what the string class's conversion and ClassifyToken give
// on UtCString(p, n, e, e), in every encoding a file may have, for the bytes that make numbers
// hard: blanks, signs, exponents, hexadecimal, "inf", a decimal comma, a NUL, a mark, the
// plus-minus sign, non-ASCII letters.
void ExpectLikeTheString(UtCCsvReader& r, const std::string& text) {
    for (eUtEncodingType e : {eUtEncodingTypeAnsi1252, eUtEncodingTypeUtf8, eUtEncodingTypeSystemDefault}) {
        const UtCString s(text.data(), static_cast<int>(text.size()), e, e);
        double want = 0.0;
        double got = 0.0;
        const bool ok = s.Convert(want);
        ASSERT_EQ(UtCCsvReader::FieldToDouble(text.data(), text.size(), e, got), ok) << text << " in " << e;
        if (ok) {
            ASSERT_EQ(std::memcmp(&got, &want, sizeof got), 0) << text << " in " << e;
        }
        r.SetDecimalComma(false);
        const UtCCsvReader::TColumnMasks m = r.ClassifyToken(s);
        bool comma = false;
        const UtCCsvReader::TColumnMasks f = UtCCsvReader::ClassifyField(text.data(), text.size(), e, &comma);
        ASSERT_EQ(f.implicitMask, m.implicitMask) << text << " in " << e;
        ASSERT_EQ(f.explicitMask, m.explicitMask) << text << " in " << e;
        ASSERT_EQ(comma, r.GetDecimalComma()) << text << " in " << e;
    }
}

TEST(Numbers, FieldsReadLikeTheStringConversions) {
    UtCCsvReader r(UtCString("/nonexistent/kbase/none.csv"));
    using namespace std::string_literals;
    const std::string table[] = {"0", "-0", "12.50", " 7 ", "1e5", "0x1p3", "inf", "-nan", "1,5", "a,b", "", " ", "\t5",
                                 "5\t", "+3", ".5", "5.", "\xB1" "0", "\xC2\xB1" "0", "\xB1" "1", "12\0" "3"s, "\0"s,
                                 "\xEF\xBB\xBF" "5", "1e400", "-1e-400", "300", "255", "-1", "4294967297",
                                 "99999999999999999999", "abc", "1.2.3", "T\xFCr", "T\xC3\xBCr", "1,2,3", "12,5\xE2\x82\xAC",
                                 std::string(70, '1') + ".5", "  -0012.5000  ", "1" + std::string(40, '0') + ",5",
                                 "Innenstadt", "nano", "-Inf", " NaN(1)", "infinity", "+nan", "info", "In", "\t-7",
                                 "+12", "1 2", "123456789012345678901234"};
    for (const std::string& text : table) ExpectLikeTheString(r, text);

    std::mt19937 rng(9);
    const std::string alphabet = "0123456789.,-+eE x\t\xB1\xC2\xFC\xEFnNiIaAfF"s + '\0';
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        const size_t length = rng() % 8;
        for (size_t k = 0; k < length; ++k) text += alphabet[rng() % alphabet.size()];
        ExpectLikeTheString(r, text);
    }
}

}  // namespace
