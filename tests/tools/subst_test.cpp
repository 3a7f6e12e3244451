// The subst job in process: typed values, block boundaries anywhere, the pass and length limits,
// usage errors, and the protocol and output files replaced only on success.
#include "subst.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tool_test_support.h"

namespace {

using kbase_tool::SubstOptions;
using kbase_tool_test::ReadFile;
using kbase_tool_test::ScratchDir;
using kbase_tool_test::WriteFile;

struct SubstRun {
    int rc;
    std::string out, err;
};

SubstRun Fill(SubstOptions o, const std::string& input) {
    std::istringstream in(input);
    std::ostringstream out, err;
    const int rc = kbase_tool::Subst(o, in, out, err);
    return {rc, out.str(), err.str()};
}

SubstOptions With(std::initializer_list<const char*> vars) {
    SubstOptions o;
    for (const char* v : vars) o.definitions.push_back({false, v});
    return o;
}

TEST(Subst, ValuesAreTypedByTheirForm) {
    struct Case {
        const char* var;
        const char* printed;
    } cases[] = {
        {"v=42", "42"},
        {"v=-2147483648", "-2147483648"},
        {"v=2147483648", "2147483648"},
        {"v=+7", "7"},
        {"v=2.5", "2.500000"},
        {"v=1e3", "1000.000000"},
        {"v=.5", "0.500000"},
        {"v=true", "true"},
        {"v=false", "false"},
        {"v=True", "True"},
        {"v=inf", "inf"},
        {"v=1e999", "1e999"},
        {"v=0x10", "0x10"},
        {"v=", ""},
        {"v=a=b", "a=b"},
        {"v=12abc", "12abc"},
        {"v=1.2.3", "1.2.3"},
    };
    for (const Case& c : cases) {
        const SubstRun r = Fill(With({c.var}), "[$v]\n");
        EXPECT_EQ(r.rc, 0) << c.var << r.err;
        EXPECT_EQ(r.out, std::string("[") + c.printed + "]\n") << c.var;
    }
}

TEST(Subst, LinesSurviveEveryBlockBoundary) {
    const std::string input = "a $x b\nplain line\n$y$x\n\n$$ no key $\nlast $x";
    const std::string want = "a X b\nplain line\nXX\n\n$$ no key $\nlast X";
    for (int64_t block = 1; block <= static_cast<int64_t>(input.size()) + 1; ++block) {
        SubstOptions o = With({"x=X", "y=$x"});
        o.blockSize = block;
        const SubstRun r = Fill(o, input);
        ASSERT_EQ(r.rc, 0) << block << r.err;
        ASSERT_EQ(r.out, want) << "block " << block;
    }
    EXPECT_EQ(Fill(With({"x=1"}), "").out, "");
    EXPECT_EQ(Fill(With({}), "keep $all\r\n").out, "keep $all\r\n");
    // The first variable given wins where names are prefixes of each other.
    EXPECT_EQ(Fill(With({"a=A", "ab=AB"}), "$ab\n").out, "Ab\n");
    EXPECT_EQ(Fill(With({"ab=AB", "a=A"}), "$ab\n").out, "AB\n");
    EXPECT_EQ(Fill(With({"a=1", "a=2"}), "$a\n").out, "2\n") << "the later value of the same type";
}

TEST(Subst, SelfReferenceEndsWithExitThree) {
    SubstOptions o = With({"ok=fine", "loop=<$loop>"});
    o.maxPasses = 7;
    SubstRun r = Fill(o, "$ok\n$ok $loop\n");
    EXPECT_EQ(r.rc, kbase_tool::kExitContent);
    EXPECT_NE(r.err.find("kbase subst: line 2: '$loop' is still replaced after 7 passes"),
              std::string::npos)
        << r.err;

    // A chain of exactly max-passes steps is fine; one more is not.
    o = With({"a=done", "b=$a", "c=$b"});  // in list order each pass takes one step
    o.maxPasses = 3;
    EXPECT_EQ(Fill(o, "$c\n").out, "done\n");
    o.maxPasses = 2;
    EXPECT_EQ(Fill(o, "$c\n").rc, kbase_tool::kExitContent);

    // A line longer than the limit is refused rather than held.
    r = Fill(With({}), std::string(static_cast<size_t>(kbase_tool::kMaxLineBytes) + 1, 'x'));
    EXPECT_EQ(r.rc, kbase_tool::kExitContent);
    EXPECT_NE(r.err.find("line 1 is longer than 16 MiB"), std::string::npos) << r.err;

    r = Fill(With({"d=$d$d"}), "$d\n");
    EXPECT_EQ(r.rc, kbase_tool::kExitContent);
    EXPECT_NE(r.err.find("replacing '$d' makes it longer than 16 MiB"), std::string::npos) << r.err;
}

TEST(Subst, UsageErrors) {
    const char* bad[] = {"novalue", "=x", "a$b=1", "a\nb=1"};
    for (const char* v : bad) {
        const SubstRun r = Fill(With({v}), "x\n");
        EXPECT_EQ(r.rc, kbase_tool::kExitUsage) << v;
        EXPECT_EQ(r.out, "") << v;
    }
    const SubstRun r = Fill(With({"n=1", "n=one"}), "x\n");
    EXPECT_EQ(r.rc, kbase_tool::kExitUsage);
    EXPECT_NE(r.err.find("'n' was given before with a value of another type"), std::string::npos);
    SubstOptions o = With({});
    o.definitions.push_back({true, "n=1"});  // an environment variable after a long
    o.definitions.insert(o.definitions.begin(), {false, "n=1"});
    EXPECT_EQ(Fill(o, "").rc, kbase_tool::kExitUsage);
    o = With({});
    o.maxPasses = 0;
    EXPECT_EQ(Fill(o, "").rc, kbase_tool::kExitUsage);
}

TEST(Subst, FilesAreReplacedOnlyOnSuccess) {
    ScratchDir dir;
    const auto in = dir.path() / "t.txt";
    const auto out = dir.path() / "out.txt";
    const auto protocol = dir.path() / "p.txt";
    WriteFile(in, "x=$x\n");
    WriteFile(out, "previous");
    WriteFile(protocol, "previous");
    SubstOptions o = With({"x=1", "loop=$loop"});
    o.definitions.push_back({true, "KBASE_SUBST_TEST_UNSET=dflt"});
    o.input = in.string();
    o.output = out.string();
    o.protocol = protocol.string();
    o.protocolSubstitutions = true;
    std::ostringstream err;
    EXPECT_EQ(kbase_tool::Subst(o, err), 0) << err.str();
    EXPECT_EQ(ReadFile(out), "x=1\n");
    EXPECT_EQ(ReadFile(protocol),
              "Variables: set '$x' to '1'\n"
              "Variables: set '$loop' to '$loop'\n"
              "Variables: No Envrionment value for 'KBASE_SUBST_TEST_UNSET', use default 'dflt'\n"
              "Variables: substitute 'x=$x' to 'x=1'\n");

    WriteFile(in, "fine\n$loop\n");
    WriteFile(out, "previous");
    WriteFile(protocol, "previous");
    EXPECT_EQ(kbase_tool::Subst(o, err), kbase_tool::kExitContent);
    EXPECT_EQ(ReadFile(out), "previous");
    EXPECT_EQ(ReadFile(protocol), "previous");

    o.input = (dir.path() / "missing.txt").string();
    EXPECT_EQ(kbase_tool::Subst(o, err), kbase_tool::kExitIo);
}

}  // namespace
