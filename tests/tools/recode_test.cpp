#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "recode.h"

namespace {

namespace fs = std::filesystem;
using kbase_tool::RecodeOptions;

struct RecodeRun {
    int rc;
    std::string out, err;
};

RecodeRun Recode(const RecodeOptions& o, const std::string& input = "") {
    std::istringstream in(input);
    std::ostringstream out, err;
    const int rc = kbase_tool::Recode(o, in, out, err);
    return RecodeRun{rc, out.str(), err.str()};
}

RecodeOptions Pipe(int from, int to) {
    RecodeOptions o;
    o.from = from;
    o.to = to;
    return o;
}

std::string ReadFile(const fs::path& p) {
    std::ifstream f(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

TEST(Recode, ConvertsBetweenEncodingsThroughPipes) {
    const struct {
        int from, to;
        bool mark;
        std::string in, out;
    } cases[] = {
        {1252, 65001, false, "K\xF6ln \x80", "K\xC3\xB6ln \xE2\x82\xAC"},
        {1252, 65001, true, "\xDF", "\xEF\xBB\xBF\xC3\x9F"},
        {65001, 1252, false, "\xEF\xBB\xBF\xC3\xA4", "\xE4"},
        {0, 1252, false, "\xEF\xBB\xBF\xC3\xA4", "\xE4"},  // the mark decides
        {1252, 1200, true, "A\xE4", std::string("\xFF\xFE" "A\0\xE4\0", 6)},
        {1252, 1201, false, "A", std::string("\0A", 2)},
        {0, 65001, false, std::string("\xFE\xFF\0\xE4", 4), "\xC3\xA4"},
        {1250, 65001, false, "\xA5", "\xC4\x84"},
        {932, 65001, false, "\x93\xFA\x96\x7B", "\xE6\x97\xA5\xE6\x9C\xAC"},
        {65001, 65001, false, "", ""},
    };
    for (const auto& c : cases) {
        RecodeOptions o = Pipe(c.from, c.to);
        o.mark = c.mark;
        const RecodeRun r = Recode(o, c.in);
        EXPECT_EQ(r.rc, kbase_tool::kExitOk) << r.err;
        EXPECT_EQ(r.out, c.out) << c.from << " -> " << c.to;
    }
}

TEST(Recode, NormalisesOnRequest) {
    RecodeOptions o = Pipe(65001, 65001);
    o.normalize = "D";
    EXPECT_EQ(Recode(o, "\xC3\xA9").out, "e\xCC\x81");
    o.normalize = "C";
    EXPECT_EQ(Recode(o, "e\xCC\x81").out, "\xC3\xA9");
    o.normalize = "KC";
    EXPECT_EQ(Recode(o, "\xEF\xAC\x81").out, "fi");
    o.normalize = "X";
    EXPECT_EQ(Recode(o, "a").rc, kbase_tool::kExitUsage);
}

TEST(Recode, RefusesWhatItCannotDoWithAClearMessage) {
    RecodeRun r = Recode(Pipe(65001, 1252), "ok\n\xC4\x80");
    EXPECT_EQ(r.rc, kbase_tool::kExitContent);
    EXPECT_NE(r.err.find("line 2, column 1: U+0100"), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "ok\n") << "a stream gets the text before the error, as from iconv";
    RecodeOptions lenient = Pipe(65001, 1252);
    lenient.replace = true;
    EXPECT_EQ(Recode(lenient, "a\xC4\x80").out, "a?");
    r = Recode(Pipe(65001, 1252), "a\xFF");
    EXPECT_EQ(r.rc, kbase_tool::kExitContent);
    EXPECT_NE(r.err.find("not valid text in code page 65001"), std::string::npos);
    r = Recode(Pipe(12345, 65001), "a");
    EXPECT_EQ(r.rc, kbase_tool::kExitUsage);
    EXPECT_NE(r.err.find("unknown code page 12345"), std::string::npos);
    r = Recode(Pipe(1200, 65001), "abc");
    EXPECT_EQ(r.rc, kbase_tool::kExitContent) << "odd byte count";
}

TEST(Recode, UsageErrorsLeaveTheOutputAlone) {
    const fs::path dir = fs::temp_directory_path() / "kbase_recode_usage_test";
    fs::remove_all(dir);
    fs::create_directories(dir);
    const fs::path in = dir / "in.txt", out = dir / "out.txt";
    std::ofstream(in, std::ios::binary) << "text";
    const struct {
        int from, to;
        std::string input, output, normalize, message;
    } cases[] = {
        {66788, 65001, in.string(), out.string(), "",
         "unknown code page 66788"},  // not 66788 - 65536
        {1252, 0, in.string(), out.string(), "", "unknown code page 0"},
        {-1, 65001, in.string(), out.string(), "", "unknown code page -1"},
        {256, 65001, in.string(), out.string(), "", "unknown code page 256"},
        {1252, 65535, in.string(), out.string(), "", "unknown code page 65535"},
        {1252, 65001, in.string(), out.string(), "X", "unknown normalisation form 'X'"},
        {1252, 65001, "", out.string(), "", "the input path is empty"},
        {1252, 65001, in.string(), "", "", "the output path is empty"},
    };
    for (const auto& c : cases) {
        std::ofstream(out, std::ios::binary) << "previous";
        RecodeOptions o = Pipe(c.from, c.to);
        o.input = c.input;
        o.output = c.output;
        o.normalize = c.normalize;
        const RecodeRun r = Recode(o);
        EXPECT_EQ(r.rc, kbase_tool::kExitUsage) << c.message;
        EXPECT_EQ(r.err.rfind("kbase recode: " + c.message, 0), 0u) << r.err;
        EXPECT_EQ(ReadFile(out), "previous");
    }
    fs::remove_all(dir);
}

TEST(Recode, FilesAreReplacedOnlyOnSuccess) {
    const fs::path dir = fs::temp_directory_path() / "kbase_recode_test";
    fs::remove_all(dir);
    fs::create_directories(dir);
    const fs::path in = dir / "in.txt", out = dir / "out.txt";
    std::ofstream(in, std::ios::binary) << "Stra\xDF" "e";
    std::ofstream(out, std::ios::binary) << "previous";

    RecodeOptions o = Pipe(1252, 932);
    o.input = in.string();
    o.output = out.string();
    // 932 has no sharp s: the old output must survive untouched and no temporary may remain.
    EXPECT_EQ(Recode(o).rc, kbase_tool::kExitContent);
    EXPECT_EQ(ReadFile(out), "previous");
    o.to = 65001;
    EXPECT_EQ(Recode(o).rc, kbase_tool::kExitOk);
    EXPECT_EQ(ReadFile(out), "Stra\xC3\x9F" "e");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 2);

    o.input = (dir / "missing.txt").string();
    const RecodeRun r = Recode(o);
    EXPECT_EQ(r.rc, kbase_tool::kExitIo);
    EXPECT_NE(r.err.find("cannot open"), std::string::npos);
    o.input = in.string();
    o.output = (dir / "no" / "such" / "dir.txt").string();
    EXPECT_EQ(Recode(o).rc, kbase_tool::kExitIo);
    if (fs::exists("/dev/full")) {
        o.output = "/dev/full";
        EXPECT_EQ(Recode(o).rc, kbase_tool::kExitIo);
        EXPECT_TRUE(fs::is_character_file("/dev/full")) << "a device is written, never replaced";
    }
    fs::remove_all(dir);
}

}  // namespace
