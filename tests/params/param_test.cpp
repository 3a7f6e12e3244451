// Parameters: type codes and defaults, change tracking, equality and copies, CompareTo, borders
// and their messages, kind-blind readers, command bits and the parameter list.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "kbase/params/ObCondition.h"
#include "kbase/params/ObParamList.h"
#include "kbase/params/ObParamMaterial.h"
#include "kbase/params/ObParamOption.h"
#include "kbase/params/ObParamRecords.h"
#include "kbase/params/ObParamScalar.h"

namespace {

UtCString T(const char* s) {
    return UtCString(s, eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252);
}

std::string Bytes(const UtCString& s) {
    return std::string(s.ptr(), static_cast<size_t>(s.GetLength()));
}

using Make = std::function<std::unique_ptr<ObParam>()>;

template <typename P, typename... A>
Make New(A... args) {
    return [=] { return std::unique_ptr<ObParam>(new P(args...)); };
}

// Every kind with id 7 and name "p" where the kind takes them.
std::vector<std::pair<Make, long>> AllKinds() {
    return {{New<ObParam>(7L, T("p")), 0},
            {New<ObParamInt>(7L, T("p"), 1L), 1},
            {New<ObParamFloat>(7L, T("p"), 1.0, T("cm")), 2},
            {New<ObParamString>(7L, T("p"), T("s"), 10L), 3},
            {New<ObParamBool>(7L, T("p"), 1), 4},
            {New<ObParamOption>(7L, T("p"), 0L), 5},
            {New<ObParamPtr>(7L, T("p"), nullptr), 6},
            {New<ObParamPen>(7L, T("p"), 1L, short{2}), 7},
            {New<ObParamColor>(7L, T("p"), 1L), 7},
            {New<ObParamLt>(7L, T("p"), 1L, 0, 0), 8},
            {New<ObParamMaterial>(7L, T("p"), MatDbKey(1, 2)), 9},
            {New<ObParamSection>(7L, T("p")), 10},
            {New<ObParamElemPar>(7L, T("p"), nullptr, 0, 0), 11},
            {New<ObParamHatchPar>(7L, T("p"), nullptr), 12},
            {New<ObParamButton>(7L, T("p"), T("OK"), 2L), 17},
            {New<ObParamBasePar>(7L, T("p"), nullptr), 0}};
}

TEST(Param, TypeCodesDefaultsAndClones) {
    for (const auto& [make, type] : AllKinds()) {
        auto p = make();
        const ObParam& original = *p;
        SCOPED_TRACE(typeid(original).name());
        EXPECT_EQ(p->GetParamType(), type);
        EXPECT_EQ(p->IsSection(), type == 10);
        EXPECT_EQ(p->GetState(), ObParam::kStateCreated);
        EXPECT_TRUE(p->IsCreated());
        EXPECT_EQ(p->GetValid(), 1);
        EXPECT_FALSE(p->IsDetailed() || p->IsLocked() || p->IsRepresentative() || p->IsLinkable());
        EXPECT_TRUE(p->GetChangeable() && p->GetMatch() && p->IsOnFilter());
        EXPECT_FALSE(p->IsMatchEnabled());
        EXPECT_TRUE(p->NeedsExactMatch());
        EXPECT_EQ(p->GetCondList(), nullptr);
        EXPECT_EQ(p->GetCondListType(), -1);
        EXPECT_FALSE(p->HasCommands() || p->HasSourceAttrName());
        std::unique_ptr<ObParam> c(p->Clone());
        const ObParam& clone = *c;
        EXPECT_EQ(typeid(clone), typeid(original));
        EXPECT_TRUE(*c == *p);
        EXPECT_EQ(c->CompareTo(*p), 0);
    }
    ObParamFloat f;
    EXPECT_EQ(f.GetFloatingLength(), 3);
    EXPECT_EQ(f.GetFillingZeros(), 1);
    ObParamLt fixed(1, T("lt"), 2, 0, 1), free(1, T("lt"), 2, 1, 0);
    EXPECT_FALSE(fixed.IsEnabledFreeLinetypes());
    EXPECT_TRUE(free.IsEnabledFreeLinetypes());
    EXPECT_EQ(fixed.IsEnabledLinetype0(), 1);
    EXPECT_TRUE(free.IsCreated());  // setting MaxValue for the flag is no change
    EXPECT_EQ(ObParamButton(1, T("b"), T("Los"), 12).GetMaxLength(), 12);
    EXPECT_EQ(ObParamPen(1, T("p"), 3, 4).ColorPaletteType(), 4);
}

// One row: a parameter made with its old value, put into a start state, one setter call.
struct ChangeRow {
    const char* setter;
    Make make;
    std::function<void(ObParam&)> set;
    unsigned short start;
    unsigned short expected;
    std::function<bool(const ObParam&)> stored;
};

template <typename P>
std::function<void(ObParam&)> On(std::function<void(P&)> f) {
    return [f](ObParam& p) { f(dynamic_cast<P&>(p)); };
}
template <typename P>
std::function<bool(const ObParam&)> Is(std::function<bool(const P&)> f) {
    return [f](const ObParam& p) { return f(dynamic_cast<const P&>(p)); };
}

TEST(Param, ChangeTrackingTable) {
    auto base = New<ObParam>(1L, T("a"));
    auto intOf5 = New<ObParamInt>(1L, T("a"), 5L);
    auto flt = New<ObParamFloat>(1L, T("a"), 2.5, T("m"));
    auto linkable = [] {
        auto p = std::make_unique<ObParam>(1, T("a"));
        p->SetLinkable(true);
        return std::unique_ptr<ObParam>(std::move(p));
    };
    using P = ObParam;
    const std::vector<ChangeRow> rows = {
        {"SetValid same", base, On<P>([](P& p) { p.SetValid(1); }), 0, 0,
         Is<P>([](const P& p) { return p.GetValid() == 1; })},
        {"SetValid other", base, On<P>([](P& p) { p.SetValid(0); }), 0, 1,
         Is<P>([](const P& p) { return p.GetValid() == 0; })},
        {"SetLocked same", base, On<P>([](P& p) { p.SetLocked(false); }), 0, 0,
         Is<P>([](const P& p) { return !p.IsLocked(); })},
        {"SetLocked other", base, On<P>([](P& p) { p.SetLocked(true); }), 2, 1,
         Is<P>([](const P& p) { return p.IsLocked(); })},
        {"SetRepresentative other", base, On<P>([](P& p) { p.SetRepresentative(true); }), 0, 1,
         Is<P>([](const P& p) { return p.IsRepresentative(); })},
        {"SetDetailed same", base, On<P>([](P& p) { p.SetDetailed(false); }), 2, 2,
         Is<P>([](const P& p) { return !p.IsDetailed(); })},
        {"SetDetailed other", base, On<P>([](P& p) { p.SetDetailed(true); }), 0, 1,
         Is<P>([](const P& p) { return p.IsDetailed(); })},
        {"SetOnFilter same", base, On<P>([](P& p) { p.SetOnFilter(true); }), 0, 0,
         Is<P>([](const P& p) { return p.IsOnFilter(); })},
        {"SetOnFilter other", base, On<P>([](P& p) { p.SetOnFilter(false); }), 0, 1,
         Is<P>([](const P& p) { return !p.IsOnFilter(); })},
        // SetMatch turns matching on even when the value stays.
        {"SetMatch same", base, On<P>([](P& p) { p.SetMatch(true); }), 2, 2, Is<P>([](const P& p) {
             return p.GetMatch() && p.IsMatchEnabled() && p.NeedsExactMatch();
         })},
        {"SetMatch other", base, On<P>([](P& p) { p.SetMatch(false); }), 0, 1,
         Is<P>([](const P& p) {
             return !p.GetMatch() && p.IsMatchEnabled() && !p.NeedsExactMatch();
         })},
        {"SetLinkable true again", linkable, On<P>([](P& p) { p.SetLinkable(true); }), 0, 1,
         Is<P>([](const P& p) { return p.IsLinkable(); })},
        {"SetLinkable false", linkable, On<P>([](P& p) { p.SetLinkable(false); }), 0, 0,
         Is<P>([](const P& p) { return !p.IsLinkable(); })},
        {"SetLinkable false again", base, On<P>([](P& p) { p.SetLinkable(false); }), 2, 2,
         Is<P>([](const P& p) { return !p.IsLinkable(); })},
        // Values and limits of Int and Float: always changed.
        {"Int SetValue same", intOf5, On<ObParamInt>([](ObParamInt& p) { p.SetValue(5); }), 0, 1,
         Is<ObParamInt>([](const ObParamInt& p) { return p.GetValue() == 5; })},
        {"Int SetMinValue same", intOf5, On<ObParamInt>([](ObParamInt& p) { p.SetMinValue(0); }), 0,
         1, Is<ObParamInt>([](const ObParamInt& p) { return p.GetMinValue() == 0; })},
        {"Int SetMaxValue", intOf5, On<ObParamInt>([](ObParamInt& p) { p.SetMaxValue(9); }), 2, 1,
         Is<ObParamInt>([](const ObParamInt& p) { return p.GetMaxValue() == 9; })},
        {"Pen SetValue same", New<ObParamPen>(1L, T("a"), 3L, short{0}),
         On<ObParamInt>([](ObParamInt& p) { p.SetValue(3); }), 0, 1,
         Is<ObParamInt>([](const ObParamInt& p) { return p.GetValue() == 3; })},
        {"Color SetValue same", New<ObParamColor>(1L, T("a"), 3L),
         On<ObParamInt>([](ObParamInt& p) { p.SetValue(3); }), 0, 1,
         Is<ObParamInt>([](const ObParamInt& p) { return p.GetValue() == 3; })},
        {"Lt SetMaxValue same", New<ObParamLt>(1L, T("a"), 3L, 0, 0),
         On<ObParamInt>([](ObParamInt& p) { p.SetMaxValue(9); }), 0, 1,
         Is<ObParamInt>([](const ObParamInt& p) { return p.GetMaxValue() == 9; })},
        {"Float SetValue same", flt, On<ObParamFloat>([](ObParamFloat& p) { p.SetValue(2.5); }), 0,
         1, Is<ObParamFloat>([](const ObParamFloat& p) { return p.GetValue() == 2.5; })},
        {"Float SetMinValue", flt, On<ObParamFloat>([](ObParamFloat& p) { p.SetMinValue(0.0); }), 0,
         1, Is<ObParamFloat>([](const ObParamFloat& p) { return p.GetMinValue() == 0.0; })},
        {"Float SetMaxValue", flt, On<ObParamFloat>([](ObParamFloat& p) { p.SetMaxValue(1.5); }), 0,
         1, Is<ObParamFloat>([](const ObParamFloat& p) { return p.GetMaxValue() == 1.5; })},
        // Store only.
        {"SetChangeable", base, On<P>([](P& p) { p.SetChangeable(false); }), 0, 0,
         Is<P>([](const P& p) { return !p.GetChangeable(); })},
        {"SetParamName", base, On<P>([](P& p) { p.SetParamName(T("b")); }), 0, 0,
         Is<P>([](const P& p) { return p.GetParamName() == T("b"); })},
        {"SetSourceAttrName", base, On<P>([](P& p) { p.SetSourceAttrName(T("src")); }), 0, 0,
         Is<P>([](const P& p) { return p.HasSourceAttrName(); })},
        {"Int SetValidBorders", intOf5, On<ObParamInt>([](ObParamInt& p) { p.SetValidBorders(3); }),
         0, 0, Is<ObParamInt>([](const ObParamInt& p) { return p.GetValidBorders() == 3; })},
        {"Int SetInputStyle", intOf5, On<ObParamInt>([](ObParamInt& p) { p.SetInputStyle(4); }), 0,
         0, Is<ObParamInt>([](const ObParamInt& p) { return p.GetInputStyle() == 4; })},
        {"Int SetUnit", intOf5, On<ObParamInt>([](ObParamInt& p) { p.SetUnit(T("St")); }), 0, 0,
         Is<ObParamInt>([](const ObParamInt& p) { return p.GetUnit() == T("St"); })},
        {"Float SetFloatingLength", flt,
         On<ObParamFloat>([](ObParamFloat& p) { p.SetFloatingLength(1); }), 0, 0,
         Is<ObParamFloat>([](const ObParamFloat& p) { return p.GetFloatingLength() == 1; })},
        {"Float SetFillingZeros", flt,
         On<ObParamFloat>([](ObParamFloat& p) { p.SetFillingZeros(0); }), 0, 0,
         Is<ObParamFloat>([](const ObParamFloat& p) { return p.GetFillingZeros() == 0; })},
        {"Float SetUnit", flt, On<ObParamFloat>([](ObParamFloat& p) { p.SetUnit(T("mm")); }), 2, 2,
         Is<ObParamFloat>([](const ObParamFloat& p) { return p.GetUnit() == T("mm"); })},
        {"Bool SetValue", New<ObParamBool>(1L, T("a"), 0),
         On<ObParamBool>([](ObParamBool& p) { p.SetValue(1); }), 0, 0,
         Is<ObParamBool>([](const ObParamBool& p) { return p.GetValue() == 1; })},
        {"Ptr SetValue", New<ObParamPtr>(1L, T("a"), nullptr),
         On<ObParamPtr>([](ObParamPtr& p) { p.SetValue(&p); }), 0, 0,
         Is<ObParamPtr>([](const ObParamPtr& p) { return p.GetValue() == &p; })},
        {"String SetValue", New<ObParamString>(1L, T("a"), T("x"), 5L),
         On<ObParamString>([](ObParamString& p) { p.SetValue(T("y")); }), 0, 0,
         Is<ObParamString>([](const ObParamString& p) { return p.GetValue() == T("y"); })},
        {"String SetMaxLength(-3)", New<ObParamString>(1L, T("a"), T("x"), 5L),
         On<ObParamString>([](ObParamString& p) { p.SetMaxLength(-3); }), 0, 0,
         Is<ObParamString>([](const ObParamString& p) { return p.GetMaxLength() == 0; })},
        // Option and material values compare first.
        {"Option SetValue same", New<ObParamOption>(1L, T("a"), 1L),
         On<ObParamOption>([](ObParamOption& p) { p.SetValue(1); }), 0, 0,
         Is<ObParamOption>([](const ObParamOption& p) { return p.GetValue() == 1; })},
        {"Option SetValue other", New<ObParamOption>(1L, T("a"), 1L),
         On<ObParamOption>([](ObParamOption& p) { p.SetValue(2); }), 0, 1,
         Is<ObParamOption>([](const ObParamOption& p) { return p.GetValue() == 2; })},
        {"Material SetColor same", New<ObParamMaterial>(1L, T("a"), MatDbKey()),
         On<ObParamMaterial>([](ObParamMaterial& p) { p.SetColor(0); }), 0, 0,
         Is<ObParamMaterial>([](const ObParamMaterial& p) { return p.GetColor() == 0; })},
        {"Material SetValue other", New<ObParamMaterial>(1L, T("a"), MatDbKey()),
         On<ObParamMaterial>([](ObParamMaterial& p) { p.SetValue(MatDbKey(1, 1)); }), 0, 1,
         Is<ObParamMaterial>(
             [](const ObParamMaterial& p) { return p.GetValue() == MatDbKey(1, 1); })},
    };
    for (const ChangeRow& row : rows) {
        auto p = row.make();
        p->SetState(row.start);
        row.set(*p);
        EXPECT_EQ(p->GetState(), row.expected) << row.setter;
        EXPECT_TRUE(row.stored(*p)) << row.setter;
    }
}

struct CompareRow {
    const char* what;
    Make a;
    Make b;
    int expected;
};

template <typename P>
Make With(Make make, std::function<void(P&)> change) {
    return [=] {
        auto p = make();
        change(dynamic_cast<P&>(*p));
        return p;
    };
}

TEST(Param, CompareToTable) {
    const long lo = INT32_MIN;
    int x[2] = {0, 0};
    void* low = &x[0];
    void* high = &x[1];
    auto noMatch = [](Make m) { return With<ObParam>(m, [](ObParam& p) { p.SetMatch(false); }); };
    auto str = [](const char* s) { return New<ObParamString>(1L, T("n"), T(s), 0L); };
    const std::vector<CompareRow> rows = {
        {"equal bases", New<ObParam>(1L, T("n")), New<ObParam>(1L, T("n")), 0},
        {"other id, same type", New<ObParam>(1L, T("n")), New<ObParam>(2L, T("n")), 129},
        {"other id, reversed", New<ObParam>(2L, T("n")), New<ObParam>(1L, T("n")), 129},
        {"smaller type", New<ObParamInt>(1L, T("n"), 1L), New<ObParamFloat>(1L, T("n"), 1.0, T("")),
         127},
        {"larger type", New<ObParamFloat>(1L, T("n"), 1.0, T("")), New<ObParamInt>(1L, T("n"), 1L),
         129},
        {"other name", New<ObParamInt>(1L, T("a"), 1L), New<ObParamInt>(1L, T("b"), 1L), 129},
        {"locked differs",
         With<ObParam>(New<ObParamInt>(1L, T("n"), 1L), [](ObParam& p) { p.SetLocked(true); }),
         New<ObParamInt>(1L, T("n"), 1L), 129},
        {"source name differs",
         With<ObParam>(New<ObParamInt>(1L, T("n"), 1L),
                       [](ObParam& p) { p.SetSourceAttrName(T("s")); }),
         New<ObParamInt>(1L, T("n"), 1L), 129},
        {"detailed, state and commands do not count",
         With<ObParam>(New<ObParamInt>(1L, T("n"), 1L),
                       [](ObParam& p) {
                           p.SetDetailed(true);
                           p.SetState(0);
                           p.CommandFlags().SetSave(true);
                       }),
         New<ObParamInt>(1L, T("n"), 1L), 0},
        {"other kind, same type code",
         With<ObParam>(New<ObParamInt>(1L, T("n"), 1L), [](ObParam& p) { p.SetParamType(2); }),
         New<ObParamFloat>(1L, T("n"), 5.0, T("")), 0},
        {"int less", New<ObParamInt>(1L, T("n"), 1L), New<ObParamInt>(1L, T("n"), 2L), -1},
        {"int greater", New<ObParamInt>(1L, T("n"), 2L), New<ObParamInt>(1L, T("n"), 1L), 1},
        {"int min against 1", New<ObParamInt>(1L, T("n"), lo), New<ObParamInt>(1L, T("n"), 1L), -1},
        {"int takes a pen of its type code", New<ObParamInt>(1L, T("n"), 1L),
         With<ObParam>(New<ObParamPen>(1L, T("n"), 2L, short{0}),
                       [](ObParam& p) { p.SetParamType(ObParam::kTypeInt); }),
         -1},
        {"pen refuses an int of its type code", New<ObParamPen>(1L, T("n"), 1L, short{0}),
         With<ObParam>(New<ObParamInt>(1L, T("n"), 2L),
                       [](ObParam& p) { p.SetParamType(ObParam::kTypePen); }),
         0},
        {"pen against colour", New<ObParamPen>(1L, T("n"), 1L, short{0}),
         New<ObParamColor>(1L, T("n"), 2L), 0},
        {"pen less", New<ObParamPen>(1L, T("n"), 1L, short{0}),
         New<ObParamPen>(1L, T("n"), 2L, short{0}), -1},
        {"pen wraps", New<ObParamPen>(1L, T("n"), lo, short{0}),
         New<ObParamPen>(1L, T("n"), 1L, short{0}), 1},
        {"colour wraps", New<ObParamColor>(1L, T("n"), lo), New<ObParamColor>(1L, T("n"), 1L), 1},
        {"lt wraps back", New<ObParamLt>(1L, T("n"), 1L, 0, 0),
         New<ObParamLt>(1L, T("n"), lo, 0, 0), -1},
        {"lt equal", New<ObParamLt>(1L, T("n"), 4L, 0, 0), New<ObParamLt>(1L, T("n"), 4L, 1, 0), 0},
        {"bool less", New<ObParamBool>(1L, T("n"), 0), New<ObParamBool>(1L, T("n"), 1), -1},
        {"bool greater", New<ObParamBool>(1L, T("n"), INT_MAX), New<ObParamBool>(1L, T("n"), -1),
         1},
        {"float within 1e-5", New<ObParamFloat>(1L, T("n"), 1.0, T("")),
         New<ObParamFloat>(1L, T("n"), 1.000009, T("")), 0},
        {"float at 1e-5", New<ObParamFloat>(1L, T("n"), 1.0, T("")),
         New<ObParamFloat>(1L, T("n"), 1.00001, T("")), -1},
        {"float above", New<ObParamFloat>(1L, T("n"), 1.00001, T("")),
         New<ObParamFloat>(1L, T("n"), 1.0, T("")), 1},
        {"string equal", str("abc"), str("abc"), 0},
        {"string less", str("abc"), str("abd"), -1},
        {"string greater", str("abd"), str("abc"), 1},
        {"string contained, matching off", noMatch(str("bc")), str("abcd"), 0},
        {"string not contained, orders after", noMatch(str("zz")), str("abc"), 1},
        {"string not contained, orders before", noMatch(str("aa")), str("abc"), -1},
        {"string contained, exact needed", str("bc"), str("abcd"), 1},
        {"button same caption", New<ObParamButton>(1L, T("n"), T("OK"), 2L),
         New<ObParamButton>(1L, T("n"), T("OK"), 9L), 0},
        {"button other caption", New<ObParamButton>(1L, T("n"), T("A"), 2L),
         New<ObParamButton>(1L, T("n"), T("B"), 2L), 1},
        {"button other caption, reversed", New<ObParamButton>(1L, T("n"), T("B"), 2L),
         New<ObParamButton>(1L, T("n"), T("A"), 2L), 1},
        {"ptr equal", New<ObParamPtr>(1L, T("n"), low), New<ObParamPtr>(1L, T("n"), low), 0},
        {"ptr lower", New<ObParamPtr>(1L, T("n"), low), New<ObParamPtr>(1L, T("n"), high), -1},
        {"ptr higher gives 0", New<ObParamPtr>(1L, T("n"), high), New<ObParamPtr>(1L, T("n"), low),
         0},
        {"section", New<ObParamSection>(1L, T("n")), New<ObParamSection>(1L, T("n")), 0},
        {"option selection", New<ObParamOption>(1L, T("n"), 1L), New<ObParamOption>(1L, T("n"), 2L),
         -1},
        {"material key first", New<ObParamMaterial>(1L, T("n"), MatDbKey(2, 1)),
         New<ObParamMaterial>(1L, T("n"), MatDbKey(1, 9)), 1},
        {"material colour next",
         With<ObParamMaterial>(New<ObParamMaterial>(1L, T("n"), MatDbKey(1, 1)),
                               [](ObParamMaterial& m) { m.SetColor(3); }),
         New<ObParamMaterial>(1L, T("n"), MatDbKey(1, 1)), 1},
    };
    for (const CompareRow& row : rows) {
        auto a = row.a();
        auto b = row.b();
        EXPECT_EQ(a->CompareTo(*b), row.expected) << row.what;
    }
}

struct BorderRow {
    long borders;
    double min, max, candidate;
    int expected;
    double safe;          // GetValueSafe with the candidate as value
    const char* message;  // expected bytes, or null for untouched
};

TEST(Param, BordersClampAndRefuseWithMessagesIn1252) {
    const std::vector<BorderRow> rows = {
        {1, 0, 0, 0, 1, 0, "Der Wert ist zu klein. Minimal m\xF6glicher Wert: 0"},
        {1, 0, 0, -7, 1, 0, "Der Wert ist zu klein. Minimal m\xF6glicher Wert: 0"},
        {1, 0, 0, 1, 0, 1, nullptr},
        {2, 0, 10, 10, 2, 10, "Der Wert ist zu gro\xDF. Maximal m\xF6glicher Wert: 10"},
        {2, 0, 10, -100, 0, -100, nullptr},  // the inactive minimum does not count
        {3, -5, 10, -5, 1, -5, "Der Wert ist zu klein. Minimal m\xF6glicher Wert: -5"},
        {3, -5, 10, 9, 0, 9, nullptr},
        {0, 5, 1, 100, 0, 100, nullptr},
    };
    for (const BorderRow& row : rows) {
        ObParamInt p(1, T("n"), static_cast<long>(row.candidate));
        p.SetValidBorders(row.borders);
        p.SetMinValue(static_cast<long>(row.min));
        p.SetMaxValue(static_cast<long>(row.max));
        UtCString message(u"untouched", eUtEncodingTypeUtf16);
        EXPECT_EQ(p.CheckValueBorders(static_cast<long>(row.candidate), message), row.expected);
        EXPECT_EQ(p.GetValueSafe(), static_cast<long>(row.safe));
        EXPECT_EQ(p.GetValueSafeInt(), static_cast<long>(row.safe));
        if (row.message == nullptr) {
            EXPECT_EQ(message.GetUtf8String(0), "untouched");
        } else {
            EXPECT_EQ(message.encodingType(), eUtEncodingTypeAnsi1252);
            EXPECT_EQ(Bytes(message), row.message);
        }
    }
    ObParamFloat f(1, T("d"), 0.25, T("m"));
    f.SetValidBorders(3);
    f.SetMinValue(0.5);
    f.SetMaxValue(2.5);
    UtCString message;
    EXPECT_EQ(f.GetValueSafe(), 0.5);
    EXPECT_EQ(f.GetValueSafeFloat(), 0.5);
    EXPECT_EQ(f.CheckValueBorders(0.5, message), 1);
    EXPECT_EQ(Bytes(message), "Der Wert ist zu klein. Minimal m\xF6glicher Wert: 0.500000");
    EXPECT_EQ(f.CheckValueBorders(2.5, message), 2);
    EXPECT_EQ(Bytes(message), "Der Wert ist zu gro\xDF. Maximal m\xF6glicher Wert: 2.500000");
    EXPECT_EQ(f.CheckValueBorders(1.0, message), 0);
    EXPECT_EQ(Bytes(message), "Der Wert ist zu gro\xDF. Maximal m\xF6glicher Wert: 2.500000");
    f.SetValue(7.0);
    EXPECT_EQ(f.GetValueSafe(), 2.5);
    EXPECT_EQ(f.GetValue(), 7.0);  // never refused by SetValue
}

TEST(Param, EqualityAssignmentAndOwnership) {
    ObParamInt watched(9, T("w"), 1);
    ObParamPen a(1, T("a"), 3, 2);
    a.SetLocked(true);
    a.SetDetailed(true);
    a.SetLinkable(true);
    a.SetMatch(false);
    a.SetSourceAttrName(T("src"));
    a.SetAttrSubType(5);
    a.SetFilled(1);
    a.SetEnabledNoColor(1);
    a.CommandFlags().SetLink(true);
    a.SetValidBorders(2);
    a.SetMaxValue(8);
    ASSERT_EQ(a.AddConditionInt(&watched, ObCondition::kEqual, 1), kObParamOk);
    EXPECT_TRUE(a.IsLinked());

    ObParamPen b(2, T("b"), 0, 0);
    ASSERT_EQ(b.AddConditionInt(&watched, ObCondition::kEqual, 1), kObParamOk);
    b.CommandFlags().SetSave(true);
    b = a;
    EXPECT_TRUE(b == a);
    EXPECT_EQ(b.GetCondList(), nullptr);  // the target's list destroyed, the source's not taken
    EXPECT_NE(a.GetCondList(), nullptr);
    EXPECT_EQ(b.CommandFlags().GetCommands(), +Commands::kSave);  // commands not copied
    EXPECT_FALSE(b.IsLinked());
    EXPECT_TRUE(b.IsDetailed() && b.IsLinkable() && b.IsMatchEnabled() && !b.GetMatch());
    EXPECT_EQ(b.GetState(), a.GetState());
    EXPECT_EQ(b.GetFilled(), 1);
    EXPECT_EQ(b.IsEnabledNoColor(), 1);
    EXPECT_EQ(b.ColorPaletteType(), 2);
    EXPECT_EQ(b.GetMaxValue(), 8);
    EXPECT_EQ(b.GetValueSafe(), 3);

    // Self-assignment keeps everything, the condition list included.
    ObCondList* list = a.GetCondList();
    const ObParamPen& same = a;
    a = same;
    EXPECT_EQ(a.GetCondList(), list);

    // A copy carries no conditions and no commands.
    ObParamPen c(a);
    EXPECT_TRUE(c == a);
    EXPECT_EQ(c.GetCondList(), nullptr);
    EXPECT_FALSE(c.HasCommands());

    // Equality fields one by one.
    const std::vector<std::function<void(ObParam&)>> differences = {
        [](ObParam& p) { p.SetParamID(3); },
        [](ObParam& p) { p.SetParamName(T("x")); },
        [](ObParam& p) { p.SetParamType(4); },
        [](ObParam& p) { p.SetAttrSubType(1); },
        [](ObParam& p) { p.SetValid(0); },
        [](ObParam& p) { p.SetLocked(true); },
        [](ObParam& p) { p.SetRepresentative(true); },
        [](ObParam& p) { p.SetSourceAttrName(T("s")); }};
    for (size_t i = 0; i < differences.size(); ++i) {
        ObParam x(1, T("n")), y(1, T("n"));
        differences[i](y);
        EXPECT_TRUE(x != y) << i;
    }
}

TEST(Param, TextsKeepTheirEncodingAndCodePageZeroIsTheUsers) {
    const UtCString utf16(u"Wärmedämmung", eUtEncodingTypeUtf16);
    ObParamString p(1, utf16, utf16, 0);
    EXPECT_TRUE(p.GetParamName().isUtf16EncodingType());
    EXPECT_EQ(p.GetValue().GetUtf16String(), u"Wärmedämmung");
    const UtCString noPage("Dicke", static_cast<eUtEncodingType>(0),
                           static_cast<eUtEncodingType>(0));
    ASSERT_EQ(noPage.encodingType(), 0);
    ObParamFloat f(2, noPage, 1.0, noPage);
    EXPECT_EQ(f.GetParamName().encodingType(), UtCString::systemEncodingType());
    EXPECT_EQ(f.GetUnit().encodingType(), UtCString::systemEncodingType());
    EXPECT_EQ(f.GetParamName().GetUtf8String(0), "Dicke");
    p.SetParamName(noPage);
    EXPECT_EQ(p.GetParamName().encodingType(), UtCString::systemEncodingType());
}

TEST(Param, KindBlindReaders) {
    ObParamOption option(1, T("o"), 1);
    option.AddItem(10, T("keine"));
    option.AddItem(20, T("Mineralwolle"));
    ObParamMaterial material(2, T("m"), MatDbKey(4, 5));
    material.SetColor(12);
    material.SetTransparency(30);
    material.SetTranspValid(1);
    material.SetUseMaterial(true);
    ObParamColor color(3, T("c"), 40);
    color.SetValidBorders(2);
    color.SetMaxValue(16);
    ObParamInt integer(4, T("i"), -3);
    integer.SetValidBorders(1);
    ObParamFloat real(5, T("f"), 2.5, T("m"));
    ObParamButton button(6, T("b"), T("Los"), 3);
    ObParamBool flag(7, T("x"), 2);
    ObParamPen pen(8, T("p"), 6, 0);
    ObParamLt lt(9, T("l"), 4, 0, 0);
    ObParamSection section(10, T("s"));

    EXPECT_EQ(option.GetValueSelection(), 1);
    EXPECT_EQ(option.GetValueSelectionId(), 20);
    EXPECT_EQ(Bytes(option.GetValueString()), "Mineralwolle");
    EXPECT_EQ(material.GetValueColor(), 12);
    EXPECT_EQ(material.GetValueTransparency(), 30);
    EXPECT_EQ(material.GetValueTranspValid(), 1);
    EXPECT_TRUE(material.GetValueUseMaterial());
    EXPECT_EQ(material.GetValueMaterialKey(), MatDbKey(4, 5));
    EXPECT_EQ(color.GetValueColor(), 16);  // bordered
    EXPECT_EQ(color.GetValueInt(), 40);
    EXPECT_EQ(integer.GetValueInt(), -3);
    EXPECT_EQ(integer.GetValueSafeInt(), 0);
    EXPECT_EQ(real.GetValueFloat(), 2.5);
    EXPECT_EQ(Bytes(button.GetValueString()), "Los");
    EXPECT_TRUE(flag.GetValueBool());
    EXPECT_EQ(pen.GetValuePen(), 6);
    EXPECT_EQ(pen.GetValueInt(), 6);
    EXPECT_EQ(lt.GetValueLt(), 4);

    // Every reader gives its neutral value on a kind it does not read.
    for (const ObParam* p : std::vector<const ObParam*>{&section, &real, &button}) {
        EXPECT_EQ(p->GetValueInt(), 0);
        EXPECT_EQ(p->GetValueSafeInt(), 0);
        EXPECT_EQ(p->GetValueSelection(), 0);
        EXPECT_EQ(p->GetValueSelectionId(), 0);
        EXPECT_EQ(p->GetValuePen(), 0);
        EXPECT_EQ(p->GetValueColor(), 0);
        EXPECT_EQ(p->GetValueLt(), 0);
        EXPECT_EQ(p->GetValueTransparency(), 0);
        EXPECT_EQ(p->GetValueTranspValid(), 0);
        EXPECT_FALSE(p->GetValueUseMaterial());
        EXPECT_FALSE(p->GetValueBool());
        EXPECT_TRUE(p->GetValueMaterialKey().IsEmpty());
    }
    EXPECT_EQ(section.GetValueFloat(), 0.0);
    EXPECT_EQ(button.GetValueSafeFloat(), 0.0);
    EXPECT_TRUE(section.GetValueString().IsEmpty());
    EXPECT_TRUE(pen.GetValueString().IsEmpty());
    EXPECT_EQ(color.GetValuePen(), 0);  // a colour is no pen, though both are type 7
    EXPECT_EQ(pen.GetValueColor(), 0);

    // An option selection outside its items reads as id 0 and the empty text.
    option.SetValue(5);
    EXPECT_EQ(option.GetValueSelectionId(), 0);
    EXPECT_TRUE(option.GetValueString().IsEmpty());
    EXPECT_TRUE(option.SetSelectedId(10));
    EXPECT_EQ(option.GetValue(), 0);
    EXPECT_FALSE(option.SetSelectedId(99));
    EXPECT_EQ(option.GetValue(), 0);
    ObParamOption copy(option);
    EXPECT_EQ(copy.GetItemCount(), 2);
    EXPECT_EQ(Bytes(copy.GetItemText(1)), "Mineralwolle");
}

TEST(Param, CommandBits) {
    struct Bit {
        void (Commands::*set)(bool);
        bool (Commands::*get)() const;
        unsigned long mask;
    };
    const std::vector<Bit> bits = {
        {&Commands::SetSave, &Commands::GetSave, 0x1},
        {&Commands::SetLoad, &Commands::GetLoad, 0x2},
        {&Commands::SetNoHatch, &Commands::GetNoHatch, 0x4},
        {&Commands::SetNoLine, &Commands::GetNoLine, 0x8},
        {&Commands::SetExtendedAttrMode, &Commands::GetExtendedAttrMode, 0x10},
        {&Commands::SetLink, &Commands::GetLink, 0x20},
        {&Commands::SetArbitrary, &Commands::GetArbitrary, 0x40},
        {&Commands::SetFilter, &Commands::GetFilter, 0x80},
        {&Commands::SetDelete, &Commands::GetDelete, 0x100},
        {&Commands::SetMeasureLength, &Commands::GetMeasureLength, 0x200},
        {&Commands::SetMeasureArea, &Commands::GetMeasureArea, 0x400},
        {&Commands::SetMeasureVolume, &Commands::GetMeasureVolume, 0x800},
        {&Commands::SetCalculate, &Commands::GetCalculate, 0x1000},
        {&Commands::SetAdd, &Commands::GetAdd, 0x2000},
    };
    Commands all;
    for (const Bit& b : bits) {
        Commands c;
        (c.*b.set)(true);
        EXPECT_EQ(c.GetCommands(), b.mask);
        EXPECT_TRUE((c.*b.get)());
        (all.*b.set)(true);
    }
    EXPECT_EQ(all.GetCommands(), 0x3FFFul);
    for (const Bit& b : bits) {
        Commands c = all;
        (c.*b.set)(false);
        EXPECT_EQ(c.GetCommands(), 0x3FFFul & ~b.mask);
        EXPECT_FALSE((c.*b.get)());
    }
    all.Clear();
    EXPECT_EQ(all.GetCommands(), 0ul);
}

// A record that counts its instances, to check the private copy of ObParamBasePar.
struct Record : CParam {
    static inline int live = 0;
    int payload = 0;
    Record() { ++live; }
    ~Record() override { --live; }
    CParam* NewInstance() const override { return new Record; }
    void Assign(const CParam& other) override {
        payload = dynamic_cast<const Record&>(other).payload;
    }
};

TEST(Param, RecordsAndTheParameterList) {
    {
        Record given;
        given.payload = 42;
        ObParamBasePar p(1, T("b"), &given);
        ASSERT_NE(p.basePar(), nullptr);
        EXPECT_NE(p.basePar(), &given);
        EXPECT_EQ(dynamic_cast<Record*>(p.basePar())->payload, 42);
        ObParamBasePar q(p);
        q = p;
        EXPECT_EQ(Record::live, 3);
        EXPECT_EQ(ObParamBasePar(nullptr).basePar(), nullptr);
    }
    EXPECT_EQ(Record::live, 0);

    ObParamList list;
    auto* option = new ObParamOption(1, T("Dämmung"), 0);
    auto* thickness = new ObParamFloat(2, T("Dämmdicke"), 0.1, T("m"));
    EXPECT_EQ(list.Add(option), 0);
    EXPECT_EQ(list.Add(thickness), 1);
    EXPECT_EQ(list.Add(nullptr), -1);
    EXPECT_EQ(list.GetCount(), 2);
    EXPECT_EQ(list.Find(2), thickness);
    EXPECT_EQ(list.Find(3), nullptr);
    EXPECT_EQ(list.Get(2), nullptr);
    ASSERT_EQ(thickness->AddConditionInt(option, ObCondition::kEqual, 2), kObParamOk);
    EXPECT_TRUE(list.IsEnabled(0L));
    EXPECT_FALSE(list.IsEnabled(1L));
    option->SetValue(2);
    EXPECT_TRUE(list.IsEnabled(1L));
    EXPECT_FALSE(list.IsEnabled(5L));
    list.SetAllStates(ObParam::kStateUpToDate);
    EXPECT_TRUE(option->IsUpToDate() && thickness->IsUpToDate());
}

}  // namespace
