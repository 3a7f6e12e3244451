// Code pages by name: the names people type, the numbers they stand for, and the list.
#include "codepages.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using kbase_tool::CodePageAvailable;
using kbase_tool::CodePageNames;
using kbase_tool::ParseCodePage;

TEST(CodePages, NamesPeopleTypeGiveWindowsNumbers) {
    const struct {
        const char* text;
        int cp;
    } cases[] = {
        {"utf-8", 65001},      {"UTF8", 65001},      {"utf_8", 65001},
        {"65001", 65001},      {"latin1", 28591},    {"ISO-8859-1", 28591},
        {"iso8859_1", 28591},  {"L1", 28591},        {"windows-1252", 1252},
        {"Windows1252", 1252}, {"cp1252", 1252},     {"1252", 1252},
        {"utf-16", 1200},      {"UTF-16LE", 1200},   {"utf-16be", 1201},
        {"ucs-2", 1200},       {"utf-32", 12000},    {"utf-32le", 12000},
        {"UTF-32BE", 12001},   {"cp850", 850},       {"IBM850", 850},
        {"shift_jis", 932},    {"Shift-JIS", 932},   {"SJIS", 932},
        {"latin9", 28605},     {"ascii", 20127},     {"koi8-r", 20866},
        {"gb18030", 54936},    {"euc-jp", 51932},    {"ibm-037", 37},
        {"cp037", 37},         {"macintosh", 10000}, {"1", 1},
        {"65535", 65535},      {"00850", 850},       {"windows-874", 874},
    };
    for (const auto& c : cases) {
        int cp = -1;
        EXPECT_TRUE(ParseCodePage(c.text, cp)) << c.text;
        EXPECT_EQ(cp, c.cp) << c.text;
    }
    // Not a name, or a number no code page has: refused, and cp left alone.
    for (const char* text : {"", "latin99", "utf-9", "0", "65536", "66788", "-5", "+5", "1 252",
                             "12a", "cp", "cp65536", "windows-", "utf", "8-utf", "123456"}) {
        int cp = 7;
        EXPECT_FALSE(ParseCodePage(text, cp)) << "'" << text << "'";
        EXPECT_EQ(cp, 7) << text;
    }
}

TEST(CodePages, TheListHoldsWhatCanBeConvertedWithItsNames) {
    std::ostringstream out;
    kbase_tool::ListCodePages(out);
    std::istringstream lines(out.str());
    std::string line;
    int previous = 0, count = 0;
    while (std::getline(lines, line)) {
        const int cp = std::stoi(line);
        EXPECT_GT(cp, previous) << "ascending, each once: " << line;
        EXPECT_TRUE(CodePageAvailable(cp)) << line;
        // Every name shown is read back as this page.
        std::istringstream names(CodePageNames(cp));
        for (std::string name; std::getline(names >> std::ws, name, ',');) {
            int parsed = 0;
            EXPECT_TRUE(ParseCodePage(name, parsed) && parsed == cp) << name << " in " << line;
            EXPECT_NE(line.find(name), std::string::npos) << line;
        }
        previous = cp;
        ++count;
    }
    EXPECT_GT(count, 40);
    for (const char* expected :
         {"28591  latin1, iso-8859-1", " 1252  windows-1252", "65001  utf-8, utf8",
          " 1200  utf-16, utf-16le", " 1201  utf-16be", "12000  utf-32", "  932  shift_jis"}) {
        EXPECT_NE(out.str().find(expected), std::string::npos) << expected;
    }
    // The job takes numbers in 1..65535 only; the runtime's markers for "system" and "unknown"
    // are no code pages.
    for (const int cp : {0, -1, 256, 65535, 65536, 66788, 12345})
        EXPECT_FALSE(CodePageAvailable(cp)) << cp;
    for (const int cp : {1200, 1201, 1252, 12000, 12001, 65001})
        EXPECT_TRUE(CodePageAvailable(cp)) << cp;
}

}  // namespace
