// Substrings, search, edits, trimming, case, padding, normalisation and paths of UtCString.
#include <gtest/gtest.h>

#include <cstdlib>

#include "kbase/text/UtCString.h"
#include "string_test_util.h"
#include "test_support.h"

namespace {

using kbase_test::Make;
using kbase_test::U8;

class StringEdit : public ::testing::TestWithParam<eUtEncodingType> {
protected:
    UtCString S(const char* utf8) const { return Make(utf8, GetParam()); }
};

TEST_P(StringEdit, Substr) {
    const struct {
        const char* text;
        int start, count;
        const char* expected;
    } cases[] = {
        {"abcdef", -2, -1, "ef"}, {"abcdef", 6, 1, ""},     {"abcdef", 0, 100, "abcdef"},
        {"abcdef", -7, 2, ""},    {"abcdef", -6, 2, "ab"},  {"abcdef", 2, 0, ""},
        {"abcdef", 1, -1, "bcdef"}, {"abcdef", 4, 10, "ef"}, {"\xC3\xA4\xC3\xB6\xC3\xBC\xE2\x82\xAC" "x", 1, 2, "\xC3\xB6\xC3\xBC"},
        {"\xC3\xA4\xC3\xB6\xC3\xBC\xE2\x82\xAC" "x", -2, 1, "\xE2\x82\xAC"},
    };
    for (const auto& c : cases) {
        const UtCString sub = S(c.text).substr(c.start, c.count);
        EXPECT_EQ(U8(sub), c.expected) << c.text << " " << c.start << "," << c.count;
        EXPECT_EQ(sub.encodingType(), GetParam());
    }
    EXPECT_EQ(U8(S("abcdef").left(2)), "ab");
    EXPECT_EQ(U8(S("abcdef").right(2)), "ef");
    EXPECT_EQ(U8(S("abcdef").right(20)), "abcdef");
    EXPECT_EQ(U8(S("abcdef").left(-1)), "");
    UtCString s = S("abcdef");
    s.SetToSubstr(1, 3);
    EXPECT_EQ(U8(s), "bcd");
    s.SetToRight(1);
    EXPECT_EQ(U8(s), "d");
}

TEST_P(StringEdit, SearchAndCount) {
    const UtCString s = S("Stra\xC3\x9F" "e und Stra\xC3\x9F" "e");  // "Straße und Straße"
    EXPECT_EQ(s.Search(0, S("\xC3\x9F" "e")), 4);
    EXPECT_EQ(s.Search(5, S("\xC3\x9F" "e")), 15);
    EXPECT_EQ(s.Search(16, S("\xC3\x9F" "e")), -1);
    EXPECT_EQ(s.Search(0, S("")), -1);
    EXPECT_EQ(s.Search(0, u'\u00DF'), 4);
    EXPECT_EQ(s.Index('u'), 7);
    EXPECT_EQ(s.RIndex('S'), 11);
    EXPECT_EQ(s.RIndex(u'q'), -1);
    EXPECT_EQ(s.CountOccurrences(S("Stra")), 2);
    EXPECT_EQ(S("aaaa").CountOccurrences(S("aa")), 2) << "occurrences do not overlap";
    EXPECT_TRUE(s.Contains(S("und")));
    EXPECT_EQ(s.FindOneOf(S(" \xC3\x9F"), 0), 4);
    EXPECT_EQ(s.FindOneNotOf(S("Sta r"), 0), 4);
    EXPECT_TRUE(S("1.5").ConsistOnlyOf(S("0123456789.")));
    EXPECT_FALSE(S("1,5").ConsistOnlyOf(S("0123456789.")));
    EXPECT_EQ(U8(s.SpanIncluding(S("Stra"))), "Stra");
    EXPECT_EQ(U8(s.SpanExluding(S(" "))), "Stra\xC3\x9F" "e");
    EXPECT_TRUE(s.StartsWith(S("STRA"), true));
    EXPECT_FALSE(s.StartsWith(S("STRA"), false));
    EXPECT_TRUE(s.EndsWith(S("\xC3\x9F" "E"), true));
    EXPECT_TRUE(s.StartsWithAscii('s', true));
    EXPECT_FALSE(s.StartsWithAscii('s', false));
}

TEST_P(StringEdit, ReplaceRemoveDelete) {
    UtCString s = S("a-b-c-d");
    EXPECT_EQ(s.replace(S("-"), S("\xE2\x82\xAC\xE2\x82\xAC"), false, 2), 2);
    EXPECT_EQ(U8(s), "a\xE2\x82\xAC\xE2\x82\xAC" "b\xE2\x82\xAC\xE2\x82\xAC" "c-d");
    EXPECT_EQ(s.GetLength(), 9);
    EXPECT_EQ(s.replace('-', '+'), 1);
    EXPECT_EQ(s.Remove(S("\xE2\x82\xAC")), 4);
    EXPECT_EQ(U8(s), "abc+d");
    EXPECT_EQ(s.replace(S("ABC"), S("x"), true), 1);
    EXPECT_EQ(U8(s), "x+d");
    EXPECT_EQ(s.replace(S("zz"), S("y")), 0);
    EXPECT_EQ(s.Delete(1, 1), 2);
    EXPECT_EQ(U8(s), "xd");
    EXPECT_EQ(s.Delete(5, 1), 2);
    EXPECT_EQ(s.Delete(1, 100), 1);
    UtCString t = S("[[x]]");
    EXPECT_TRUE(t.RemoveAtStart(S("[")));
    EXPECT_TRUE(t.RemoveAtEnd(S("]")));
    EXPECT_FALSE(t.RemoveAtEnd(S("x")));
    EXPECT_EQ(U8(t), "[x]");
    t.Insert(1, S("\xC3\xA4"));
    t.Prepend(S(">"));
    EXPECT_EQ(U8(t), ">[\xC3\xA4x]");
    t.Enclose(S("\""));
    EXPECT_EQ(U8(t), "\">[\xC3\xA4x]\"");
}

TEST_P(StringEdit, TrimCaseExpand) {
    UtCString s = S("  a b \t\n");
    s.trim();
    EXPECT_EQ(U8(s), "a b");
    UtCString l = S(" x ");
    l.trimLeft();
    EXPECT_EQ(U8(l), "x ");
    UtCString set = S("--x-y--");
    set.trim(S("-"));
    EXPECT_EQ(U8(set), "x-y");
    UtCString all = S("   ");
    all.trim();
    EXPECT_TRUE(all.IsEmpty());

    EXPECT_EQ(U8(S("Gr\xC3\xBC\xC3\x9F" "e").toUpper()), "GR\xC3\x9C\xC3\x9F" "E");
    EXPECT_EQ(U8(S("\xC3\x84Z").toLower()), "\xC3\xA4z");
    UtCString m = S("MiXeD");
    m.SetToLower();
    EXPECT_EQ(U8(m), "mixed");

    UtCString e = S("ab");
    e.Expand(5, '*', 1);
    EXPECT_EQ(U8(e), "a***b");
    e.Expand(3, '*', 0);
    EXPECT_EQ(U8(e), "a***b") << "already wide enough";
    UtCString w = S("7");
    w.ExpandW(3, u'\u00B7', 0);
    EXPECT_EQ(U8(w), "\xC2\xB7\xC2\xB7" "7");
}

TEST_P(StringEdit, CharacterClassesAndIsNumber) {
    const UtCString s = S("a1 \xC3\xA4");
    EXPECT_TRUE(s.IsLetter(0));
    EXPECT_TRUE(s.IsDigit(1));
    EXPECT_TRUE(s.IsSpace(2));
    EXPECT_TRUE(s.IsLetter(3));
    EXPECT_FALSE(s.IsDigit(4)) << "past the end";
    const struct {
        const char* text;
        bool number;
    } cases[] = {{"123", true}, {"-1", false}, {"1.5", false}, {"", false}, {" 1", false}, {"007", true}};
    for (const auto& c : cases) EXPECT_EQ(S(c.text).IsNumber(), c.number) << c.text;
}

TEST_P(StringEdit, Paths) {
    const UtCString p = S("/home/user/plan.v2.dwg");
    EXPECT_EQ(U8(p.SplitPath()), "/home/user/");
    UtCString rest;
    EXPECT_EQ(U8(p.SplitFileName(rest)), "plan.v2.dwg");
    EXPECT_EQ(U8(rest), "/home/user/");
    EXPECT_EQ(U8(p.SplitFileExtension(rest)), "dwg");
    EXPECT_EQ(U8(rest), "/home/user/plan.v2");
    EXPECT_EQ(U8(S("dir.d\\noext").SplitFileExtension()), "");
    EXPECT_EQ(U8(S(".profile").SplitFileExtension()), "");
    EXPECT_TRUE(p.HasFileExtension(S(".DWG")));
    EXPECT_TRUE(p.HasFileExtension(S("dwg")));
    EXPECT_FALSE(p.HasFileExtension(S("dw")));
    EXPECT_EQ(U8(UtCString::JoinFilePath(S("a/"), S("/b"))), "a/b");
    EXPECT_EQ(U8(UtCString::JoinFilePath(S("a"), S("b"))), "a/b");
    EXPECT_EQ(U8(UtCString::JoinFilePath(S(""), S("b"))), "b");
    const struct {
        const char* in;
        const char* out;
    } std_cases[] = {
        {"a\\b\\\\c", "a/b/c"}, {"/a/./b/../c/", "/a/c/"}, {"../x/../../y", "../../y"},
        {"/..", "/"},           {"./", "."},               {"a/b/..", "a"},
    };
    for (const auto& c : std_cases) {
        UtCString s = S(c.in);
        EXPECT_EQ(U8(s.StandardizePath()), c.out) << c.in;
    }
}

TEST_P(StringEdit, EnvironmentPaths) {
    kbase_test::SetEnv("KBASE_TEST_ROOT", "/srv/proj");
    kbase_test::SetEnv("KBASE_PATH_VARIABLES", "KBASE_TEST_ROOT");
    UtCString s = S("/srv/proj/plans/a.dwg");
    EXPECT_EQ(U8(s.PathAbsToEnv()), "$KBASE_TEST_ROOT/plans/a.dwg");
    EXPECT_EQ(U8(s.PathEnvToAbs()), "/srv/proj/plans/a.dwg");
    UtCString other = S("/srv/project/x");
    EXPECT_EQ(U8(other.PathAbsToEnv()), "/srv/project/x") << "only at a component boundary";
    UtCString braces = S("${KBASE_TEST_ROOT}/x");
    EXPECT_EQ(U8(braces.PathEnvToAbs()), "/srv/proj/x");
    UtCString percent = S("%KBASE_TEST_ROOT%/y");
    EXPECT_EQ(U8(percent.PathEnvToAbs()), "/srv/proj/y");
    UtCString unset = S("$KBASE_TEST_UNSET_VAR/z");
    EXPECT_EQ(U8(unset.PathEnvToAbs()), "$KBASE_TEST_UNSET_VAR/z");
}

TEST(StringNormalize, OnlyUtf16AndOnlyFormsCAndD) {
    UtCString s(u"e\u0301", eUtEncodingTypeUtf16);
    EXPECT_TRUE(s.NormalizeForm('C'));
    EXPECT_EQ(s.GetUtf16String(), u"\u00E9");
    EXPECT_EQ(s.GetLength(), 1);
    EXPECT_TRUE(s.NormalizeForm('D'));
    EXPECT_EQ(s.GetUtf16String(), u"e\u0301");
    UtCString k(u"\uFB01", eUtEncodingTypeUtf16);
    EXPECT_TRUE(k.NormalizeForm('C', true));
    EXPECT_EQ(k.GetUtf16String(), u"fi");
    EXPECT_FALSE(k.NormalizeForm('X'));
    UtCString u8(u"e\u0301", eUtEncodingTypeUtf8);
    EXPECT_FALSE(u8.NormalizeForm('C'));
    EXPECT_EQ(u8.GetLength(), 2) << "other encodings stay as they are";
}

INSTANTIATE_TEST_SUITE_P(Encodings, StringEdit, ::testing::ValuesIn(kbase_test::kEncodings),
                         [](const auto& p) { return kbase_test::EncodingName(p.param); });

}  // namespace
