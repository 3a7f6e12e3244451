// Files as the program reads and writes them: refusals with their exit codes, the output that
// replaces its target only on Commit, links written through, permissions kept.
#include "io.h"

#include <gtest/gtest.h>

#include <sstream>
#include <streambuf>

#include "tool_test_support.h"

namespace {

namespace fs = std::filesystem;
using kbase_tool::InputFile;
using kbase_tool::kExitIo;
using kbase_tool::kExitOk;
using kbase_tool::kExitUsage;
using kbase_tool::OutputFile;
using kbase_tool_test::ReadFile;
using kbase_tool_test::ScratchDir;
using kbase_tool_test::WriteFile;

// A path that Open refuses, with its exit code and the start of its message.
struct Refusal {
    std::string path;
    int rc;
    std::string message;
};

template <typename File>
void ExpectRefused(const Refusal& c) {
    std::ostringstream err;
    File file;
    EXPECT_EQ(file.Open(c.path, "job", err), c.rc) << c.path;
    EXPECT_EQ(err.str().rfind(c.message, 0), 0u) << err.str();
}

TEST(InputFile, RefusesWhatIsNoReadableFileWithItsExitCode) {
    ScratchDir dir;
    const Refusal cases[] = {
        {"", kExitUsage, "job: the input path is empty"},
        {(dir / "missing").string(), kExitIo,
         "job: cannot open '" + (dir / "missing").string() + "': No such file"},
        {dir.path().string(), kExitIo,
         "job: cannot read '" + dir.path().string() + "': it is a directory"},
    };
    for (const Refusal& c : cases) ExpectRefused<InputFile>(c);
}

TEST(InputFile, ReadsBlocksUntilTheEnd) {
    ScratchDir dir;
    WriteFile(dir / "ten", std::string("0123456\0"
                                       "89",
                                       10));
    std::ostringstream err;
    InputFile in;
    ASSERT_EQ(in.Open((dir / "ten").string(), "job", err), kExitOk);
    EXPECT_EQ(in.Name(), "'" + (dir / "ten").string() + "'");
    char buf[4];
    std::string got;
    for (const int64_t want : {4, 4, 2, 0}) {
        const int64_t n = in.Read(buf, 4);
        EXPECT_EQ(n, want);
        got.append(buf, static_cast<size_t>(n < 0 ? 0 : n));
    }
    EXPECT_EQ(got, std::string("0123456\0"
                               "89",
                               10));
    std::istringstream text("abc");
    InputFile piped;
    ASSERT_EQ(piped.Open("-", "job", err, text), kExitOk);
    EXPECT_EQ(piped.Name(), "standard input");
    EXPECT_EQ(piped.Read(buf, 4), 3);
    EXPECT_TRUE(err.str().empty()) << err.str();
}

TEST(OutputFile, ReplacesTheTargetOnlyOnCommit) {
    ScratchDir dir;
    const fs::path target = dir / "out.txt";
    WriteFile(target, "previous");
    std::ostringstream err;
    {
        OutputFile out;
        ASSERT_EQ(out.Open(target.string(), "job", err), kExitOk);
        EXPECT_TRUE(out.Write("new", 3));
        EXPECT_EQ(dir.Entries(), 2) << "the text goes to a temporary file beside the target";
        EXPECT_EQ(ReadFile(target), "previous");
    }  // no Commit: a failed run
    EXPECT_EQ(ReadFile(target), "previous");
    EXPECT_EQ(dir.Entries(), 1) << "the temporary file is removed";
    {
        OutputFile out;
        ASSERT_EQ(out.Open(target.string(), "job", err), kExitOk);
        EXPECT_TRUE(out.Write("new", 3));
        EXPECT_TRUE(out.Write("", 0));
        EXPECT_TRUE(out.Commit());
    }
    EXPECT_EQ(ReadFile(target), "new");
    EXPECT_EQ(dir.Entries(), 1);
    OutputFile fresh;
    ASSERT_EQ(fresh.Open((dir / "fresh.txt").string(), "job", err), kExitOk);
    EXPECT_TRUE(fresh.Commit());
    EXPECT_TRUE(fs::is_regular_file(dir / "fresh.txt")) << "an empty text makes an empty file";
    EXPECT_TRUE(err.str().empty()) << err.str();
}

TEST(OutputFile, WritesThroughLinksAndKeepsPermissions) {
    ScratchDir dir;
    const fs::path real = dir / "real.txt";
    fs::create_directories(dir / "sub");
    // Windows gives symbolic links to administrators only (and Wine's C++ runtime none at all);
    // there only the plain file is replaced, which must still keep its read-only attribute.
    std::error_code noLinks;
    fs::create_symlink("real.txt", dir / "link.txt", noLinks);
#ifndef _WIN32
    ASSERT_FALSE(noLinks) << noLinks.message();
#endif
    if (!noLinks) {
        fs::create_symlink("../link.txt", dir / "sub" / "chain.txt");  // relative to the link's folder
        fs::create_symlink(real, dir / "absolute.txt");
        fs::create_symlink("later.txt", dir / "dangling.txt");
    }
    const struct {
        fs::path path;
        fs::perms mode;
    } cases[] = {
        {dir / "link.txt", fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read},
        {dir / "sub" / "chain.txt",
         fs::perms::owner_all | fs::perms::group_read | fs::perms::others_exec},
        {dir / "absolute.txt", fs::perms::owner_read | fs::perms::owner_write},
        {real, fs::perms::owner_read},  // read-only: replaced all the same, still read-only
    };
    for (const auto& c : cases) {
        if (noLinks && c.path != real) continue;
        WriteFile(real, "previous");
        fs::permissions(real, c.mode);
        std::ostringstream err;
        OutputFile out;
        ASSERT_EQ(out.Open(c.path.string(), "job", err), kExitOk) << err.str();
        ASSERT_TRUE(out.Write("new", 3));
        ASSERT_TRUE(out.Commit()) << err.str();
        EXPECT_EQ(ReadFile(real), "new") << c.path;
#ifdef _WIN32
        // Windows keeps one bit of them: read-only or not.
        EXPECT_EQ(fs::status(real).permissions() & fs::perms::owner_write, c.mode & fs::perms::owner_write)
            << c.path;
#else
        EXPECT_EQ(fs::status(real).permissions(), c.mode) << c.path;
#endif
        EXPECT_TRUE(noLinks || (fs::is_symlink(dir / "link.txt") && fs::is_symlink(dir / "sub" / "chain.txt")));
        fs::permissions(real, fs::perms::owner_read | fs::perms::owner_write);
    }
    if (noLinks) return;
    std::ostringstream err;
    OutputFile out;
    ASSERT_EQ(out.Open((dir / "dangling.txt").string(), "job", err), kExitOk);
    ASSERT_TRUE(out.Write("made", 4));
    ASSERT_TRUE(out.Commit());
    EXPECT_TRUE(fs::is_symlink(dir / "dangling.txt"));
    EXPECT_EQ(ReadFile(dir / "later.txt"), "made");
}

TEST(OutputFile, RefusesEmptyPathsFoldersAndMissingFolders) {
    ScratchDir dir;
    const Refusal cases[] = {
        {"", kExitUsage, "job: the output path is empty"},
        {dir.path().string(), kExitIo,
         "job: cannot write '" + dir.path().string() + "': it is a directory"},
        {(dir / "no" / "x").string(), kExitIo,
         "job: cannot write '" + (dir / "no" / "x").string() + "': No such file"},
    };
    for (const Refusal& c : cases) ExpectRefused<OutputFile>(c);
    std::ostringstream err;
    OutputFile out;
    EXPECT_EQ(out.Open(cases[1].path, "job", err), kExitIo);
    EXPECT_FALSE(out.Write("x", 1)) << "an output that did not open takes nothing";
    EXPECT_FALSE(out.Commit());
    EXPECT_EQ(dir.Entries(), 0);
}

TEST(OutputFile, WritesDevicesDirectlyAndReportsTheirErrors) {
    if (!fs::exists("/dev/null") || !fs::exists("/dev/full"))
        GTEST_SKIP() << "no /dev/null, /dev/full";
    std::ostringstream err;
    OutputFile null;
    ASSERT_EQ(null.Open("/dev/null", "job", err), kExitOk);
    EXPECT_TRUE(null.Write("x", 1));
    EXPECT_TRUE(null.Commit());
    // A full device: the buffered byte fails at the flush, a large write at once; later writes
    // fail quietly, and the device is still a device.
    for (const size_t size : {size_t{1}, size_t{1} << 20}) {
        const std::string data(size, 'x');
        std::ostringstream full;
        OutputFile out;
        ASSERT_EQ(out.Open("/dev/full", "job", full), kExitOk);
        const bool wrote = out.Write(data.data(), data.size());
        EXPECT_EQ(wrote, size == 1);
        EXPECT_FALSE(out.Commit());
        EXPECT_FALSE(out.Write("x", 1));
        EXPECT_EQ(full.str(), "job: cannot write '/dev/full': No space left on device\n");
        EXPECT_TRUE(fs::is_character_file("/dev/full"));
    }
}

// A stream buffer that refuses every byte.
class Refusing : public std::streambuf {
protected:
    int_type overflow(int_type) override { return traits_type::eof(); }
};

TEST(OutputFile, AStreamThatFailsIsReportedOnce) {
    Refusing refusing;
    std::ostream broken(&refusing);
    std::ostringstream err;
    OutputFile out;
    ASSERT_EQ(out.Open("-", "job", err, broken), kExitOk);
    EXPECT_FALSE(out.Write("abc", 3));
    EXPECT_FALSE(out.Write("abc", 3));
    EXPECT_FALSE(out.Commit());
    EXPECT_EQ(err.str(), "job: cannot write standard output\n");
}

}  // namespace
