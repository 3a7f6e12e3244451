// VaVars: types, protocol lines, substitution with its kept quirks, the size bound, environment
// values, push/pop; VaList's positions and walks; UtSubstSubStr.
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "basert/memory.h"
#include "basert/strings.h"
#include "test_support.h"
#include "kbase/services/VaVars.h"

namespace {

// ReplaceAll on a copy of text in a buffer of size bytes.
std::string Replace(VaVars& vars, const std::string& text, short size = 256) {
    std::vector<char> buf(static_cast<size_t>(size), '\0');
    std::memcpy(buf.data(), text.c_str(), std::min(text.size() + 1, buf.size()));
    EXPECT_TRUE(vars.ReplaceAll(buf.data(), size));
    return buf.data();
}

// ReplaceAll with text variables set in the order given.
std::string Replace(std::initializer_list<std::pair<const char*, const char*>> values,
                    const std::string& text) {
    VaVars vars;
    for (const auto& [name, value] : values) vars.Set(name, value);
    return Replace(vars, text);
}

std::string TakeText(char* block) {
    std::string s = block != nullptr ? block : "<null>";
    UtFreeMemory(block);
    return s;
}

TEST(Variables, TypesAreFixedByTheFirstSet) {
    VaVars vars;
    EXPECT_TRUE(vars.Set("n", 3L));
    EXPECT_FALSE(vars.Set("n", true)) << "a long does not become a boolean";
    long n = 0;
    EXPECT_TRUE(vars.Get("n", n));
    EXPECT_EQ(n, 3);
    EXPECT_TRUE(vars.Set("n", 4L));
    EXPECT_TRUE(vars.Get("n", n));
    EXPECT_EQ(n, 4);
    short s = 0;
    EXPECT_FALSE(vars.Get("n", s)) << "Get asks for the exact type";
    EXPECT_FALSE(vars.Get("missing", n));
    EXPECT_FALSE(vars.Set("t", static_cast<const char*>(nullptr)));
    EXPECT_FALSE(vars.Set("", 1L)) << "a variable needs a name";
    EXPECT_FALSE(vars.Set(nullptr, 1L));

    // Every type: its value back, and the text a substitution prints.
    struct Case {
        const char* name;
        short type;
        const char* printed;
    } cases[] = {{"b", eVaBool, "false"},       {"s", eVaShort, "-32768"},
                 {"l", eVaLong, "2147483647"},  {"f", eVaFloat, "0.100000"},
                 {"d", eVaDouble, "-2.500000"}, {"t", eVaText, "K\xF6ln"}};
    EXPECT_TRUE(vars.Set("b", false, "a flag"));
    EXPECT_TRUE(vars.Set("s", static_cast<short>(-32768)));
    EXPECT_TRUE(vars.Set("l", 2147483647L));
    EXPECT_TRUE(vars.Set("f", 0.1f));
    EXPECT_TRUE(vars.Set("d", -2.5));
    EXPECT_TRUE(vars.Set("t", "K\xF6ln"));
    for (const Case& c : cases) {
        ASSERT_NE(vars.Find(c.name), nullptr) << c.name;
        EXPECT_EQ(vars.Find(c.name)->Type(), c.type) << c.name;
        char* text = nullptr;
        EXPECT_TRUE(vars.Get(c.name, text));
        EXPECT_EQ(TakeText(text), c.printed) << c.name;
    }
    bool b = true;
    float f = 0;
    double d = 0;
    EXPECT_TRUE(vars.Get("b", b));
    EXPECT_FALSE(b);
    EXPECT_TRUE(vars.Get("s", s));
    EXPECT_EQ(s, -32768);
    EXPECT_TRUE(vars.Get("f", f));
    EXPECT_EQ(f, 0.1f);
    EXPECT_TRUE(vars.Get("d", d));
    EXPECT_EQ(d, -2.5);

    // Comments: given by the first Set, replaced by Comment, handed out as copies.
    char* comment = nullptr;
    EXPECT_TRUE(vars.Comment("b", comment));
    EXPECT_EQ(TakeText(comment), "a flag");
    EXPECT_TRUE(vars.Set("b", true, "ignored: b exists"));
    char newComment[] = "new";
    comment = newComment;
    EXPECT_TRUE(vars.Comment("b", comment));
    comment = nullptr;
    EXPECT_TRUE(vars.Comment("b", comment));
    EXPECT_EQ(TakeText(comment), "new");
    EXPECT_FALSE(vars.Comment("missing", comment));

    // Unset: not set, the type free again, the place in the list kept.
    EXPECT_TRUE(vars.Unset("n"));
    EXPECT_FALSE(vars.Get("n", n));
    char* text = nullptr;
    EXPECT_FALSE(vars.Get("n", text));
    EXPECT_EQ(Replace(vars, "[$n]"), "[]");
    EXPECT_TRUE(vars.Set("n", true));
    EXPECT_EQ(vars.List().Index(vars.Find("n")), 0);
    EXPECT_FALSE(vars.Unset("missing"));
}

TEST(Variables, ReplaceAllFillsTextsWithItsKeptRules) {
    VaVars vars;
    vars.Set("n", 3L);
    vars.Set("x", true);
    EXPECT_EQ(Replace(vars, "a$n b"), "a3 b");
    EXPECT_EQ(Replace(vars, "$x"), "true");
    EXPECT_EQ(Replace(vars, "no dollar"), "no dollar");
    EXPECT_EQ(Replace(vars, "$$n$"), "$3$") << "a lone dollar stays";
    EXPECT_EQ(Replace(vars, "$nn $N"), "3n $N")
        << "keys have no terminator; names are case-sensitive";

    // A prefix name matches inside longer keys; the first variable in the list wins.
    EXPECT_EQ(Replace({{"a", "A"}, {"ab", "AB"}}, "$ab"), "Ab");
    EXPECT_EQ(Replace({{"ab", "AB"}, {"a", "A"}}, "$ab $a"), "AB A");
    // Values with keys are expanded by the next passes, in any list order.
    EXPECT_EQ(
        Replace({{"first", "<$second>"}, {"second", "$third$third"}, {"third", "3"}}, "$first"),
        "<33>");
    EXPECT_EQ(
        Replace({{"third", "3"}, {"second", "$third$third"}, {"first", "<$second>"}}, "$first"),
        "<33>");
    EXPECT_EQ(Replace({{"dollar", "$"}, {"name", "dollar"}}, "$$name"), "$")
        << "'$' + 'dollar' made by a pass is a key of the next";
    EXPECT_EQ(Replace({{"a", "$"}, {"b", "a"}}, "$$b"), "$")
        << "the key made in pass one is filled in pass two";

    EXPECT_FALSE(vars.ReplaceAll(nullptr, 10));
    char one[1] = {'\0'};
    EXPECT_TRUE(vars.ReplaceAll(one, 1));
    char buf[8] = "$n";
    EXPECT_FALSE(vars.ReplaceAll(buf, 0));
}

TEST(Variables, ReplacementsThatWouldOverflowTheSizeAreNotMade) {
    VaVars vars;
    vars.Set("v", "12345");
    // Room for 9 characters: "$v $v" (5) grows by 4 per key: the first fits (9), the second not.
    EXPECT_EQ(Replace(vars, "$v $v", 10), "12345 $v");
    EXPECT_EQ(Replace(vars, "$v $v", 14), "12345 12345");
    EXPECT_EQ(Replace(vars, "$v", 6), "12345") << "exactly full";
    EXPECT_EQ(Replace(vars, "$v", 5), "$v");
    vars.Set("short", "s");
    EXPECT_EQ(Replace(vars, "$short$short", 13), "ss") << "shrinking always fits";

    // The runtime's routine itself: counts, the bound, and values that hold the key.
    struct Case {
        const char* text;
        const char* key;
        const char* value;
        int size;
        int count;
        const char* result;
    } cases[] = {
        {"aXbXc", "X", "YY", 100, 2, "aYYbYYc"},
        {"aXbXc", "X", "YY", 7, 1, "aYYbXc"},
        {"aXbXc", "X", "YY", 8, 2, "aYYbYYc"},
        {"XX", "X", "XX", 100, 2, "XXXX"},
        {"XXX", "XX", "", 100, 1, "X"},
        {"abc", "X", "Y", 100, 0, "abc"},
        {"", "X", "Y", 100, 0, ""},
        {"abc", "", "Y", 100, 0, "abc"},
        {"abc", "b", "", 1, 1, "ac"},
    };
    for (const Case& c : cases) {
        char buf[128];
        std::strcpy(buf, c.text);
        EXPECT_EQ(UtSubstSubStr(buf, c.key, c.value, c.size), c.count) << c.text << " " << c.key;
        EXPECT_STREQ(buf, c.result) << c.text << " " << c.key;
    }
    EXPECT_EQ(UtSubstSubStr(nullptr, "a", "b", 10), 0);
    char buf[4] = "a";
    EXPECT_EQ(UtSubstSubStr(buf, "a", nullptr, 10), 0);
    EXPECT_EQ(UtSubstSubStr(buf, "a", "b", 0), 0);
}

TEST(Variables, ProtocolLinesAreExact) {
    PrMemoryProtocol p;
    VaVars vars;
    EXPECT_TRUE(vars.SetProtocol(&p));
    vars.Set("n", 3L);
    vars.Set("x", true);
    vars.Set("d", 0.5);
    vars.Set("x", 2L);  // refused: no line
    long n = 0;
    vars.Get("n", n);
    vars.Get("missing", n);  // no line
    char c[] = "why";
    char* comment = c;
    vars.Comment("n", comment);
    vars.Push("n");
    vars.Pop("n");
    vars.Pop("n");  // nothing to pop: no line
    vars.Unset("x");
    EXPECT_EQ(p.Contents(),
              "Variables: set '$n' to '3'\n"
              "Variables: set '$x' to 'true'\n"
              "Variables: set '$d' to '0.500000'\n"
              "Variables: 'n' is '3'\n"
              "Variables: variable's 'n' new comment: 'why'\n"
              "Variables: push 'n'\n"
              "Variables: pop 'n'\n"
              "Variables: Undefine 'x'\n");

    p.Clear();
    EXPECT_EQ(Replace(vars, "plain"), "plain");
    EXPECT_EQ(p.Contents(), "") << "a text without '$' writes no line";
    EXPECT_EQ(Replace(vars, "a$n b"), "a3 b");
    EXPECT_EQ(p.Contents(), "Variables: substitute 'a$n b' to 'a3 b'\n");
    p.Clear();
    VaSetProtocolSubstitutions(false);
    EXPECT_EQ(Replace(vars, "$n"), "3");
    vars.Set("n", 4L);
    VaSetProtocolSubstitutions(true);
    EXPECT_EQ(p.Contents(), "Variables: set '$n' to '4'\n")
        << "the switch silences substitutions only";

    p.Clear();
    vars.SetProtocol(nullptr);
    vars.Set("n", 5L);
    EXPECT_EQ(p.Contents(), "");
}

// The test registration sets KBASE_SERVICES_ENV_SET=from environment and leaves
// KBASE_SERVICES_ENV_UNSET alone.
TEST(Variables, EnvironmentValuesAndDefaults) {
    ASSERT_EQ(std::getenv("KBASE_SERVICES_ENV_UNSET"), nullptr);
    ASSERT_NE(std::getenv("KBASE_SERVICES_ENV_SET"), nullptr) << "run through ctest";
    PrMemoryProtocol p;
    VaVars vars;
    vars.SetProtocol(&p);
    EXPECT_TRUE(vars.SetEnv("KBASE_SERVICES_ENV_SET", "default"));
    EXPECT_TRUE(vars.SetEnv("KBASE_SERVICES_ENV_UNSET", "fallback"));
    EXPECT_EQ(
        p.Contents(),
        "Variables: Environment 'KBASE_SERVICES_ENV_SET' has value 'from environment'\n"
        "Variables: No Envrionment value for 'KBASE_SERVICES_ENV_UNSET', use default 'fallback'\n");
    bool isEnv = false;
    EXPECT_TRUE(vars.IsEnv("KBASE_SERVICES_ENV_SET", isEnv));
    EXPECT_TRUE(isEnv);
    EXPECT_EQ(vars.Find("KBASE_SERVICES_ENV_SET")->Type(), eVaEnv);
    EXPECT_EQ(Replace(vars, "$KBASE_SERVICES_ENV_SET/$KBASE_SERVICES_ENV_UNSET"),
              "from environment/fallback");

    // The environment is read at each use; a default stays a default.
    kbase_test::SetEnv("KBASE_SERVICES_ENV_SET", "changed");
    kbase_test::SetEnv("KBASE_SERVICES_ENV_UNSET", "now set");
    char* text = nullptr;
    EXPECT_TRUE(vars.Get("KBASE_SERVICES_ENV_SET", text));
    EXPECT_EQ(TakeText(text), "changed");
    EXPECT_TRUE(vars.Get("KBASE_SERVICES_ENV_UNSET", text));
    EXPECT_EQ(TakeText(text), "fallback");
    kbase_test::SetEnv("KBASE_SERVICES_ENV_SET", "from environment");
    kbase_test::UnsetEnv("KBASE_SERVICES_ENV_UNSET");

    // An environment variable is type 7: not a text, and other variables are not environment ones.
    EXPECT_FALSE(vars.Set("KBASE_SERVICES_ENV_SET", "text"));
    vars.Set("plain", "x");
    EXPECT_FALSE(vars.SetEnv("plain", "y"));
    EXPECT_TRUE(vars.IsEnv("plain", isEnv));
    EXPECT_FALSE(isEnv);
    EXPECT_FALSE(vars.IsEnv("missing", isEnv));
}

TEST(Variables, PushAndPopKeepAStackPerVariable) {
    VaVars vars;
    vars.Set("a", 1L);
    vars.Set("t", "one");
    EXPECT_TRUE(vars.Push("a"));
    vars.Set("a", 2L);
    EXPECT_TRUE(vars.Push("a"));
    vars.Unset("a");
    EXPECT_TRUE(vars.PushAll());  // a (unset) and t
    vars.Set("a", true);          // free type after Unset
    vars.Set("t", "two");
    EXPECT_EQ(Replace(vars, "$a $t"), "true two");
    EXPECT_TRUE(vars.PopAll());
    EXPECT_EQ(Replace(vars, "[$a] $t"), "[] one") << "a back to unset, t back to one";
    EXPECT_FALSE(vars.PopAll()) << "t has nothing left";
    EXPECT_EQ(Replace(vars, "$a"), "2");
    EXPECT_TRUE(vars.Pop("a"));
    long a = 0;
    EXPECT_TRUE(vars.Get("a", a));
    EXPECT_EQ(a, 1);
    EXPECT_FALSE(vars.Pop("a"));
    EXPECT_FALSE(vars.Push("missing"));
    EXPECT_FALSE(vars.Pop("missing"));
}

TEST(Variables, LimitedReplacementStopsSelfReference) {
    VaVars vars;
    vars.Set("a", "x$b");
    vars.Set("b", "y$a");
    vars.Set("ok", "fine");
    std::string culprit;
    std::string text = "$ok";
    EXPECT_EQ(vars.ReplaceAllLimited(text, 1, 100, &culprit), VaReplaceResult::kDone);
    EXPECT_EQ(text, "fine");
    text = "[$a]";
    EXPECT_EQ(vars.ReplaceAllLimited(text, 10, 1000, &culprit), VaReplaceResult::kPassLimit);
    EXPECT_EQ(culprit, "a");
    VaVars doubling;
    doubling.Set("d", "$d$d");
    text = "$d";
    EXPECT_EQ(doubling.ReplaceAllLimited(text, 100, 1000, &culprit), VaReplaceResult::kTooLong);
    EXPECT_EQ(culprit, "d");
    EXPECT_LE(text.size(), 1000u);

    // One replacing pass within a limit of one.
    VaVars chain;
    chain.Set("x", "$y");
    chain.Set("y", "1");
    text = "$x";
    EXPECT_EQ(chain.ReplaceAllLimited(text, 1, 100), VaReplaceResult::kDone)
        << "x then y in one pass";
    EXPECT_EQ(text, "1");
    VaVars reverse;
    reverse.Set("y", "1");
    reverse.Set("x", "$y");
    text = "$x";
    EXPECT_EQ(reverse.ReplaceAllLimited(text, 1, 100), VaReplaceResult::kPassLimit);
    text = "$x";
    EXPECT_EQ(reverse.ReplaceAllLimited(text, 2, 100), VaReplaceResult::kDone);
    EXPECT_EQ(text, "1");
}

TEST(VariableList, PositionsWalksAndOwnership) {
    VaList list;
    auto* a = new VaVariable("a");
    auto* b = new VaVariable("b");
    auto* c = new VaVariable("c");
    auto* d = new VaVariable("d");
    EXPECT_EQ(list.Add(b), 0);
    EXPECT_EQ(list.Append(c), 1);
    EXPECT_EQ(list.Prepend(a), 0);
    list += d;
    EXPECT_EQ(list.No(), 4);
    auto names = [&list] {
        std::string s;
        short i = 0;
        for (VaVariable* v = list.First(i); v != nullptr; v = list.Next(i)) s += v->Name();
        return s;
    };
    EXPECT_EQ(names(), "abcd");
    short i = 0;
    std::string back;
    for (VaVariable* v = list.Last(i); v != nullptr; v = list.Prev(i)) back += v->Name();
    EXPECT_EQ(back, "dcba");
    EXPECT_EQ(list.Next(i), list.First()) << "Prev past the front leaves -1; Next comes back";
    EXPECT_EQ(list.Elem(4), nullptr);
    EXPECT_EQ(list[-1], nullptr);
    EXPECT_EQ(list[3], d);
    EXPECT_EQ(list.Last(), d);
    EXPECT_EQ(list.Index(c), 2);
    EXPECT_TRUE(list.Member(c));

    EXPECT_TRUE(list.Remove(c));
    EXPECT_FALSE(list.Member(c));
    EXPECT_EQ(list.Insert(c, 1), 1);
    EXPECT_EQ(list.Insert(c, 9), -1);
    EXPECT_EQ(names(), "acbd");
    list.Sort(
        [](const VaVariable* x, const VaVariable* y) { return std::strcmp(y->Name(), x->Name()); });
    EXPECT_EQ(names(), "dcba");
    EXPECT_EQ(list.Search([](const VaVariable* v) { return v->Name()[0] == 'b' ? 1 : 0; }), b);
    EXPECT_EQ(list.Search([](const VaVariable*) { return 0; }), nullptr);
    EXPECT_TRUE(list.Set(0, a));  // d unlinked, a twice
    EXPECT_FALSE(list.Set(4, a));
    list -= a;  // the first a only
    EXPECT_EQ(names(), "cba");
    EXPECT_TRUE(list.RemovePos(2));
    EXPECT_FALSE(list.RemovePos(2));
    EXPECT_TRUE(list.DeletePos(0));  // c destroyed
    EXPECT_TRUE(list.Delete(b));
    EXPECT_FALSE(list.Delete(b)) << "b is gone from the list (and destroyed)";
    EXPECT_EQ(list.No(), 0);
    list.Add(a);
    list.Add(d);
    list.DeleteAll();
    EXPECT_EQ(list.No(), 0);
    list.RemoveAll();
}

}  // namespace
