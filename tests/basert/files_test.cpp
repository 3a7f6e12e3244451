#include "basert/files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "basert/fileio.h"
#include "test_support.h"

namespace {

#ifdef _WIN32
constexpr char kSeparator = '\\';
constexpr const char* kNullDevice = "NUL";
#else
constexpr char kSeparator = '/';
constexpr const char* kNullDevice = "/dev/null";
#endif

TEST(Files, SplitFileExtensionFindsTheLastDotOfTheLastComponent) {
    const struct {
        const char* path;
        int64_t dot;
    } cases[] = {
        {"a.txt", 1},     {"dir.d/file", -1}, {"dir/f.tar.gz", 9}, {".profile", -1},
        {"dir\\x.y", 5},  {"noext", -1},      {"", -1},            {"a/.b.c", 4},
        {"trail.", 5},
    };
    for (const auto& c : cases) EXPECT_EQ(UtSplitFileExtension(c.path), c.dot) << c.path;
    EXPECT_EQ(UtSplitFileExtension(nullptr), -1);
}

TEST(Files, TempDirAndEnvironmentFollowTheirBufferContracts) {
    char buf[512];
    const size_t n = UtGetTempDir(buf, sizeof buf);
    ASSERT_GT(n, 0u);
    EXPECT_EQ(buf[n - 1], kSeparator);
    char tiny[2];
    EXPECT_EQ(UtGetTempDir(tiny, sizeof tiny), n) << "too small: needed size, nothing written";

    kbase_test::SetEnv("KBASE_FILES_TEST", "value");
    EXPECT_EQ(OsGetEnv("KBASE_FILES_TEST", buf, sizeof buf), 5);
    EXPECT_STREQ(buf, "value");
    EXPECT_EQ(OsGetEnv("KBASE_FILES_TEST", tiny, sizeof tiny), 5);
    EXPECT_EQ(OsGetEnv("KBASE_FILES_TEST_UNSET", buf, sizeof buf), -1);
}

TEST(Files, OpenWriteReadCloseAndRemoveByUtf8Path) {
    char dir[512];
    ASSERT_GT(UtGetTempDir(dir, sizeof dir), 0u);
    const std::string path = std::string(dir) + "kbase_fil\xC3\xA9_test.txt";
    FILE* f = UtFileOpen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fputs("x", f);
    EXPECT_EQ(UtFileClose(f), 0);
    f = UtFileOpen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(std::fgetc(f), 'x');
    EXPECT_EQ(UtFileClose(f), 0);
    EXPECT_EQ(UtFileRemove(path.c_str()), 0);
    EXPECT_EQ(UtFileOpen(path.c_str(), "rb"), nullptr) << "removed";
    EXPECT_EQ(UtFileRemove(path.c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(UtFileRemove(nullptr), -1);
    EXPECT_EQ(UtFileOpen((std::string(dir) + "no/such/dir/x").c_str(), "rb"), nullptr);
    EXPECT_EQ(UtFileClose(nullptr), EOF);
    kbase_test::SetEnv("KBASE_NO_SHELL", "1");
    EXPECT_NE(UtSystem("/nonexistent"), 0) << "KBASE_NO_SHELL=1 must keep it from running";
}

TEST(Files, KindTellsWhatAStreamIsConnectedTo) {
    char dir[512];
    ASSERT_GT(UtGetTempDir(dir, sizeof dir), 0u);
    const std::string path = std::string(dir) + "kbase_kind_test.txt";
    FILE* regular = UtFileOpen(path.c_str(), "wb");
    ASSERT_NE(regular, nullptr);
    EXPECT_EQ(UtFileKind(regular), kUtFileRegular);
    EXPECT_EQ(UtFileClose(regular), 0);
    std::remove(path.c_str());
    FILE* folder = UtFileOpen(dir, "r");
#ifdef _WIN32
    EXPECT_EQ(folder, nullptr) << "Windows opens no folder as a file";
#else
    ASSERT_NE(folder, nullptr) << "a folder opens for reading here; reading it fails";
    EXPECT_EQ(UtFileKind(folder), kUtFileDirectory);
    UtFileClose(folder);
#endif
    FILE* device = UtFileOpen(kNullDevice, "r");
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(UtFileKind(device), kUtFileDevice);
    int fds[2];
    ASSERT_EQ(kbase_test::MakePipe(fds), 0);
    FILE* pipe = ::fdopen(fds[0], "rb");
    ASSERT_NE(pipe, nullptr);
    EXPECT_EQ(UtFileKind(pipe), kUtFilePipe);
    std::fclose(pipe);
    ::close(fds[1]);
    // A stream whose descriptor was closed under it, as a standard stream closed by the shell.
    FILE* orphan = ::fdopen(::dup(::fileno(device)), "r");
    UtFileClose(device);
    ASSERT_NE(orphan, nullptr);
    ::close(::fileno(orphan));
    EXPECT_EQ(UtFileKind(orphan), kUtFileClosed);
    std::fclose(orphan);
    EXPECT_EQ(UtFileKind(nullptr), kUtFileClosed);
}

}  // namespace
