// UtCLogging and UtLogging with a fixed clock: record bytes, dump files, protocol formats.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>

#include "kbase/services/UtCLogging.h"
#include "services_test_util.h"
#include "test_support.h"

namespace {

using services_test::FixedClock;
using services_test::ReadFile;
using services_test::TempDir;

UtCString U8(const std::string& s) {
    return UtCString(s.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
}

TEST(Logging, RecordsHaveTheExactFormatForEveryLevel) {
    FixedClock clock;
    UtCLogging log(U8("/nonexistent/log.txt"));
    struct Case {
        int level;
        const char* record;
    } cases[] = {
        {UtCLogging::eLogInfo, "[ 2024-05-17 14:03:59 INFO    ] message"},
        {UtCLogging::eLogWarning, "[ 2024-05-17 14:03:59 WARNING ] message"},
        {UtCLogging::eLogError, "[ 2024-05-17 14:03:59 ERROR   ] message"},
        {7, "[ 2024-05-17 14:03:59 INFO    ] message"},
        {-1, "[ 2024-05-17 14:03:59 INFO    ] message"},
    };
    for (const Case& c : cases)
        log.LogOnly(U8("message"), static_cast<UtCLogging::eLogLevel>(c.level));
    ASSERT_EQ(log.GetLogSize(), 5);
    for (long i = 0; i < 5; ++i) EXPECT_EQ(log.GetRecord(i).GetUtf8String(), cases[i].record) << i;

    // The time follows the clock, also within one logging object; texts keep '%' and their
    // encoding.
    FixedClock::Set(services_test::kFixedTime + 3601);
    log.LogOnly(U8("100% K\xC3\xB6ln %s"), UtCLogging::eLogInfo);
    EXPECT_EQ(log.GetRecord(5).GetUtf8String(),
              "[ 2024-05-17 15:04:00 INFO    ] 100% K\xC3\xB6ln %s");
    EXPECT_TRUE(log.GetRecord(5).isUtf8EncodingType());
    log.LogOnly(UtCString(u"\u20AC 16", eUtEncodingTypeUtf16), UtCLogging::eLogWarning);
    EXPECT_TRUE(log.GetRecord(6).isUtf16EncodingType());
    EXPECT_EQ(log.GetRecord(6).GetUtf8String(), "[ 2024-05-17 15:04:00 WARNING ] \xE2\x82\xAC 16");
    log.LogOnly(UtCString("\xE4", eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252),
                UtCLogging::eLogInfo);
    EXPECT_EQ(log.GetRecord(7).GetUtf8String(), "[ 2024-05-17 15:04:00 INFO    ] \xC3\xA4");
    log.LogOnly(U8(""), UtCLogging::eLogInfo);
    EXPECT_EQ(log.GetRecord(8).GetUtf8String(), "[ 2024-05-17 15:04:00 INFO    ] ");

    // Three records and a Clear leave none.
    UtCLogging other(U8("x.txt"));
    for (int i = 0; i < 3; ++i) other.LogOnly(U8("r"), UtCLogging::eLogInfo);
    other.Clear();
    EXPECT_EQ(other.GetLogSize(), 0);
}

TEST(Logging, DumpFileNameFollowsThePathAndTheClock) {
    FixedClock clock;
    struct Case {
        const char* path;
        const char* dump;
    } cases[] = {
        {"/var/x/log.txt", "/var/x/log_2024-05-17 14-03-59.txt"},
        {"rel/a.b.txt", "rel/a.b_2024-05-17 14-03-59.txt"},
        {"C:\\logs\\LOG.TXT", "C:\\logs\\LOG_2024-05-17 14-03-59.txt"},
        {"/var/x/log.log", ""},
        {"/var/x.txt/log", ""},
        {"/var/x/.txt", ""},
        {"/var/x/log.txt.gz", ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(UtCLogging(U8(c.path)).GetDumpFileName().GetUtf8String(), c.dump) << c.path;

    // An empty path means log.txt in the temporary folder.
    char dir[512];
    ASSERT_GT(UtGetTempDir(dir, sizeof dir), 0u);
    UtCLogging byDefault{UtCString()};
    EXPECT_EQ(byDefault.GetPath().GetUtf8String(), std::string(dir) + "log.txt");
    EXPECT_EQ(byDefault.GetDumpFileName().GetUtf8String(),
              std::string(dir) + "log_2024-05-17 14-03-59.txt");
}

TEST(Logging, LogDumpsOnErrorsOnlyAndRepeatsEarlierRecords) {
    FixedClock clock;
    TempDir dir("log_dump");
    UtCLogging log(U8(dir.File("log.txt")));
    const std::string dump = dir.File("log_2024-05-17 14-03-59.txt");

    log.Log(U8("careful"), UtCLogging::eLogWarning);
    EXPECT_EQ(log.GetLogSize(), 1);
    EXPECT_FALSE(std::filesystem::exists(dump)) << "a warning writes no file";
    EXPECT_FALSE(std::filesystem::exists(dir.File("log.txt")))
        << "the log path itself is never written";

    kbase_test::DiagCapture diag;
    log.Log(U8("broken"), UtCLogging::eLogError);
    EXPECT_EQ(log.GetLogSize(), 2);
    EXPECT_EQ(ReadFile(dump),
              "[ 2024-05-17 14:03:59 WARNING ] careful\n"
              "[ 2024-05-17 14:03:59 ERROR   ] broken\n");
    ASSERT_EQ(diag.reports().size(), 1u) << "the message is shown once";
    EXPECT_EQ(diag.reports()[0].message, "broken");
    EXPECT_EQ(diag.reports()[0].expression, dump);

    // Dumping keeps the records: the next dump repeats them.
    FixedClock::Set(services_test::kFixedTime + 1);
    log.LogOnly(U8("more"), UtCLogging::eLogInfo);
    EXPECT_TRUE(log.DumpAndShow(U8(""), true));
    EXPECT_EQ(diag.reports().size(), 1u) << "an empty message shows nothing";
    EXPECT_EQ(ReadFile(dir.File("log_2024-05-17 14-04-00.txt")),
              "[ 2024-05-17 14:03:59 WARNING ] careful\n"
              "[ 2024-05-17 14:03:59 ERROR   ] broken\n"
              "[ 2024-05-17 14:04:00 INFO    ] more\n");

    // Records of every encoding dump as UTF-8.
    UtCLogging mixed(U8(dir.File("m.txt")));
    mixed.LogOnly(UtCString("K\xF6ln", eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252),
                  UtCLogging::eLogInfo);
    mixed.LogOnly(UtCString(u"\u20AC", eUtEncodingTypeUtf16), UtCLogging::eLogInfo);
    mixed.LogOnly(U8("\xE2\x82\xAC"), UtCLogging::eLogInfo);
    EXPECT_TRUE(mixed.DumpAndShow(U8(""), false));
    EXPECT_EQ(ReadFile(dir.File("m_2024-05-17 14-04-00.txt")),
              "[ 2024-05-17 14:04:00 INFO    ] K\xC3\xB6ln\n"
              "[ 2024-05-17 14:04:00 INFO    ] \xE2\x82\xAC\n"
              "[ 2024-05-17 14:04:00 INFO    ] \xE2\x82\xAC\n");
    std::filesystem::remove(dir.File("m_2024-05-17 14-04-00.txt"));

    // An empty log dumps an empty file; a path that is not .txt dumps nothing.
    UtCLogging empty(U8(dir.File("e.txt")));
    EXPECT_TRUE(empty.DumpAndShow(U8("x"), false));
    EXPECT_EQ(ReadFile(dir.File("e_2024-05-17 14-04-00.txt")), "");
    UtCLogging noTxt(U8(dir.File("n.log")));
    noTxt.LogOnly(U8("r"), UtCLogging::eLogInfo);
    EXPECT_FALSE(noTxt.DumpAndShow(U8("x"), true));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 3);
}

TEST(Logging, UnwritableDumpIsFalseAndKeepsTheRecords) {
    FixedClock clock;
    TempDir dir("log_readonly");
    // A folder that is a file cannot be written to, whoever runs the test.
    {
        std::ofstream(dir.File("file")) << "x";
        kbase_test::DiagCapture diag;
        UtCLogging log(U8(dir.File("file/log.txt")));
        log.LogOnly(U8("kept"), UtCLogging::eLogInfo);
        log.Log(U8("error"), UtCLogging::eLogError);
        EXPECT_FALSE(log.DumpAndShow(U8("x"), true));
        EXPECT_EQ(log.GetLogSize(), 2);
        EXPECT_EQ(log.GetRecord(1).GetUtf8String(), "[ 2024-05-17 14:03:59 ERROR   ] error");
        EXPECT_TRUE(diag.reports().empty()) << "nothing is shown when the dump failed";
    }
    // A read-only folder; root writes anywhere, so only other users can check it.
    std::filesystem::create_directory(dir.path() / "ro");
    std::filesystem::permissions(
        dir.path() / "ro", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    if (::access((dir.path() / "ro").string().c_str(), W_OK) != 0) {
        kbase_test::DiagCapture diag;
        UtCLogging log(U8(dir.File("ro/log.txt")));
        log.LogOnly(U8("kept"), UtCLogging::eLogInfo);
        EXPECT_FALSE(log.DumpAndShow(U8("shown?"), true));
        log.Log(U8("error"), UtCLogging::eLogError);
        EXPECT_EQ(log.GetLogSize(), 2);
        EXPECT_EQ(log.GetRecord(0).GetUtf8String(), "[ 2024-05-17 14:03:59 INFO    ] kept");
        EXPECT_TRUE(diag.reports().empty()) << "nothing is shown when the dump failed";
    }
    UtCLogging missingDir(U8(dir.File("no/such/log.txt")));
    EXPECT_FALSE(missingDir.DumpAndShow(U8(""), false));
}

TEST(Logging, CopiesAndMovesCarryRecordsAndPath) {
    FixedClock clock;
    UtCLogging a(U8("a.txt"));
    a.LogOnly(U8("one"), UtCLogging::eLogInfo);
    UtCLogging b(a);
    b.LogOnly(U8("two"), UtCLogging::eLogInfo);
    EXPECT_EQ(a.GetLogSize(), 1);
    EXPECT_EQ(b.GetLogSize(), 2);
    EXPECT_EQ(b.GetPath().GetUtf8String(), "a.txt");
    UtCLogging c(U8("c.txt"));
    c = b;
    EXPECT_EQ(c.GetLogSize(), 2);
    EXPECT_EQ(c.GetPath().GetUtf8String(), "a.txt");
    UtCLogging d(std::move(c));
    EXPECT_EQ(d.GetLogSize(), 2);
    EXPECT_EQ(d.GetRecord(1).GetUtf8String(), "[ 2024-05-17 14:03:59 INFO    ] two");
    UtCLogging e(U8("e.txt"));
    e = std::move(d);
    EXPECT_EQ(e.GetLogSize(), 2);
    EXPECT_EQ(e.GetPath().GetUtf8String(), "a.txt");
    e = e;  // self-assignment keeps everything
    EXPECT_EQ(e.GetLogSize(), 2);
}

TEST(ProtocolFile, WritesNumbersPointsAndTimesInFixedForms) {
    FixedClock clock;
    TempDir dir("protocol");
    const std::string path = dir.File("p.txt");
    UtLogging p;
    EXPECT_EQ(p.Str("before open"), -1);
    ASSERT_EQ(p.Open(U8(path)), 0);
    const RPT3 pt{1.5, -2.25, 1e6};
    EXPECT_EQ(p.Str("a"), 0);
    EXPECT_EQ(p.Str(U8(" K\xC3\xB6ln ")), 0);
    EXPECT_EQ(p.Int(-42), 0);
    EXPECT_EQ(p.Ln(), 0);
    p.Real(3.14159, 2), p.Str(" "), p.Real(2.5, 0), p.Str(" "), p.Real(-0.125, 20), p.Ln();
    p.Point2D(pt, 1), p.Str(" "), p.Point3D(pt, 0), p.Ln();
    p.CurDate(), p.Str("|"), p.CurTime(), p.Str("|"), p.CurDateTime();
    EXPECT_EQ(p.Close(), 0);
    EXPECT_EQ(p.Close(), -1) << "nothing open";
    EXPECT_EQ(ReadFile(path),
              "a K\xC3\xB6ln -42\n"
              "3.14 2 -0.125000000000000\n"
              "(1.5, -2.2) (2, -2, 1000000)\n"
              "2024-05-17|14:03:59|2024-05-17 14:03:59");

    // Append keeps what is there; Open truncates.
    ASSERT_EQ(p.Append(U8(path)), 0);
    p.Ln(), p.Str("x");
    EXPECT_EQ(p.Close(), 0);
    EXPECT_EQ(ReadFile(path).substr(ReadFile(path).size() - 3), "9\nx");
    ASSERT_EQ(p.Open(U8(path)), 0);
    EXPECT_EQ(p.Close(), 0);
    EXPECT_EQ(ReadFile(path), "");

    EXPECT_EQ(UtLogging::RealToStr(1.0 / 3, 3).GetUtf8String(), "0.333");
    EXPECT_EQ(UtLogging::RealToStr(-1e-9, 2).GetUtf8String(), "-0.00");
    EXPECT_EQ(UtLogging::RealToStr(INFINITY, 2).GetUtf8String(), "inf");
    EXPECT_EQ(UtLogging::Point2DToStr(pt, 2).GetUtf8String(), "(1.50, -2.25)");

    EXPECT_EQ(p.Open(U8(dir.File("no/such/p.txt"))), -1);
    if (std::filesystem::exists("/dev/full")) {
        ASSERT_EQ(p.Open(U8("/dev/full")), 0);
        for (int i = 0; i < 10000; ++i) p.Str("0123456789");
        EXPECT_EQ(p.Close(), -1) << "a full disk shows at Close";
    }
}

}  // namespace
