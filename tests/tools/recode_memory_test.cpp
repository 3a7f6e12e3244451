// A refused allocation anywhere in a run ends it with "out of memory" (exit 1), and the output file
// is as it was: every allocation of each path is made to fail in turn.
#include <gtest/gtest.h>

#include <new>
#include <sstream>
#include <streambuf>

#include "test_support.h"
#include "tool_test_support.h"

namespace {

using kbase_tool::kExitIo;
using kbase_tool::kExitOk;
using kbase_tool::RecodeOptions;
using kbase_tool_test::Pipe;
using kbase_tool_test::ReadFile;
using kbase_tool_test::RunRecode;
using kbase_tool_test::ScratchDir;
using kbase_tool_test::WriteFile;

TEST(RecodeMemory, EveryRefusedAllocationEndsTheRunAndKeepsTheTarget) {
    ScratchDir dir;
    // ASCII first, Hangul later: decomposed, the later blocks need larger buffers, so some
    // allocations come after the first blocks are written.
    std::string utf8 = std::string(2000, 'a');
    for (int i = 0; i < 300; ++i) utf8 += "\xEA\xB0\x80";  // U+AC00
    const struct {
        int from, to;
        const char* form;
        std::string input;
    } cases[] = {
        {1252, 65001, "", "K\xF6ln " + std::string(3000, 'x')},
        {65001, 1252, "", "K\xC3\xB6ln " + std::string(3000, 'x')},
        {65001, 65001, "", utf8},
        {65001, 65001, "D", utf8},
        {65001, 1200, "C", utf8},
        {932, 65001, "", std::string(1000, 'x') + "\x93\xFA\x96\x7B"},
        {1200, 1252, "", std::string("a\0\xE4\0", 4)},
    };
    for (const auto& c : cases) {
        const auto in = dir / "in.txt", out = dir / "out.txt";
        WriteFile(in, c.input);
        RecodeOptions o = Pipe(c.from, c.to, 64);
        o.normalize = c.form;
        o.input = in.string();
        o.output = out.string();
        int refused = 0;
        for (int n = 1; n < 200; ++n) {
            WriteFile(out, "previous");
            kbase_tool_test::RecodeRun r;
            {
                kbase_test::FailNthAllocation fail(n);
                r = RunRecode(o);
            }
            if (r.rc == kExitOk) break;
            ++refused;
            EXPECT_EQ(r.rc, kExitIo)
                << c.from << " -> " << c.to << ", allocation " << n << ": " << r.err;
            EXPECT_EQ(r.err, "kbase recode: out of memory\n");
            EXPECT_EQ(ReadFile(out), "previous");
            EXPECT_EQ(dir.Entries(), 2) << "no temporary file is left";
        }
        EXPECT_GT(refused, 0) << c.from << " -> " << c.to << " allocates through the runtime";
        EXPECT_NE(ReadFile(out), "previous") << "the run without failures replaced the file";
    }
}

// A stream buffer that throws as an allocation does.
class Throwing : public std::streambuf {
protected:
    int_type overflow(int_type) override { throw std::bad_alloc(); }
    int_type underflow() override { throw std::bad_alloc(); }
};

TEST(RecodeMemory, AnAllocationThatThrowsIsOutOfMemoryToo) {
    Throwing throwing;
    std::istream in(&throwing);
    std::ostream out(&throwing);
    in.exceptions(std::ios::badbit);
    out.exceptions(std::ios::badbit);
    std::istringstream text("abc");
    std::ostringstream err1, err2, sink;
    EXPECT_EQ(kbase_tool::Recode(Pipe(1252, 65001), in, sink, err1), kExitIo);
    EXPECT_EQ(err1.str(), "kbase recode: out of memory\n");
    EXPECT_EQ(kbase_tool::Recode(Pipe(1252, 65001), text, out, err2), kExitIo);
    EXPECT_EQ(err2.str(), "kbase recode: out of memory\n");
}

}  // namespace
