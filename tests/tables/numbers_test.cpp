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

}  // namespace
