// Conditions: the matrix of kind x watched type x operator, the list's joins, equality, cursor and
// ownership, and the condition operations on ObParam.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kbase/params/ObCondition.h"
#include "kbase/params/ObParamMaterial.h"
#include "kbase/params/ObParamOption.h"
#include "kbase/params/ObParamScalar.h"

namespace {

UtCString T(const char* s) {
    return UtCString(s, eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252);
}

// What the watched pointer parameter points to.
int gTarget[2] = {0, 0};

// The watched parameters, one per type code, with values the rows below refer to.
struct Watched {
    ObParamInt integer{1, T("int"), 5};
    ObParamBool flag{2, T("bool"), 1};
    ObParamOption option{3, T("option"), 1};
    ObParamPen pen{4, T("pen"), 7, 0};
    ObParamColor color{5, T("color"), 7};
    ObParamLt lt{6, T("lt"), 3, 0, 0};
    ObParamFloat real{7, T("float"), 2.5, T("m")};
    ObParamString text{8, T("string"), T("abc"), 0};
    ObParamPtr ptr{9, T("ptr"), &gTarget[0]};
    ObParamMaterial material{10, T("material"), MatDbKey(1, 5)};
    ObParamSection section{11, T("section")};
    ObParamButton button{12, T("button"), T("abc"), 3};
    Watched() {
        option.AddItem(100, T("abb"));
        option.AddItem(200, T("abc"));
        material.SetColor(20);
        material.SetTransparency(50);
        material.SetTranspValid(1);
    }
};

// Results for the operators equal, not equal, less, greater and an unknown one (9).
using Results = std::array<int, 5>;
constexpr Results kEq = {1, 0, 0, 0, 0};  // equal, or the desired value stood in
constexpr Results kAlways = {1, 1, 1, 1, 1};
constexpr Results kNever = {0, 0, 0, 0, 0};
constexpr Results kLess = {0, 1, 1, 0, 0};
constexpr Results kGreater = {0, 1, 0, 1, 0};

struct MatrixRow {
    const char* what;
    std::function<ObParam*(Watched&)> watched;
    std::function<ObCondition*(ObParam*, long)> make;
    Results expected;
};

std::function<ObCondition*(ObParam*, long)> Int(long v) {
    return [v](ObParam* p, long op) { return new ObConditionInt(p, op, v); };
}
std::function<ObCondition*(ObParam*, long)> Float(double v) {
    return [v](ObParam* p, long op) { return new ObConditionFloat(p, op, v); };
}
std::function<ObCondition*(ObParam*, long)> Str(const char* v) {
    return [v](ObParam* p, long op) { return new ObConditionString(p, op, T(v)); };
}
std::function<ObCondition*(ObParam*, long)> Ptr(void* v) {
    return [v](ObParam* p, long op) { return new ObConditionPtr(p, op, v); };
}
std::function<ObCondition*(ObParam*, long)> Mat(long color, long transparency, int valid,
                                                MatDbKey key, bool use) {
    return [=](ObParam* p, long op) {
        auto* c = new ObConditionMaterial(p, op);
        c->SetDesColor(color);
        c->SetDesTransparency(transparency);
        c->SetDesTranspValid(valid);
        c->SetDesMaterialKey(key);
        c->SetDesUseMaterial(use);
        return c;
    };
}

TEST(Condition, KindByWatchedTypeByOperator) {
    Watched w;
    auto get = [](ObParam* (*f)(Watched&)) { return std::function<ObParam*(Watched&)>(f); };
    auto integer = get([](Watched& x) -> ObParam* { return &x.integer; });
    auto flag = get([](Watched& x) -> ObParam* { return &x.flag; });
    auto option = get([](Watched& x) -> ObParam* { return &x.option; });
    auto pen = get([](Watched& x) -> ObParam* { return &x.pen; });
    auto color = get([](Watched& x) -> ObParam* { return &x.color; });
    auto lt = get([](Watched& x) -> ObParam* { return &x.lt; });
    auto real = get([](Watched& x) -> ObParam* { return &x.real; });
    auto text = get([](Watched& x) -> ObParam* { return &x.text; });
    auto ptr = get([](Watched& x) -> ObParam* { return &x.ptr; });
    auto material = get([](Watched& x) -> ObParam* { return &x.material; });
    auto section = get([](Watched& x) -> ObParam* { return &x.section; });
    auto button = get([](Watched& x) -> ObParam* { return &x.button; });
    auto none = get([](Watched&) -> ObParam* { return nullptr; });
    auto retyped = get([](Watched& x) -> ObParam* {  // a Float that claims to be an Int
        x.real.SetParamType(ObParam::kTypeInt);
        return &x.real;
    });

    const std::vector<MatrixRow> rows = {
        {"int = int", integer, Int(5), kEq},
        {"int < desired", integer, Int(6), kLess},
        {"bool", flag, Int(1), kEq},
        {"option selection", option, Int(0), kGreater},
        {"pen", pen, Int(8), kLess},
        {"color", color, Int(6), kGreater},
        {"lt", lt, Int(3), kEq},
        {"int on float: stands in", real, Int(99), kEq},
        {"int on string", text, Int(-1), kEq},
        {"int on ptr", ptr, Int(0), kEq},
        {"int on material", material, Int(0), kEq},
        {"int on section", section, Int(0), kEq},
        {"int on a float retyped as int", retyped, Int(4), kEq},
        {"int on null", none, Int(5), kNever},
        {"float equal", real, Float(2.5), kEq},
        {"float exactly", real, Float(2.5000000001), kLess},
        {"float greater", real, Float(2.0), kGreater},
        {"float on int", integer, Float(1.0), kEq},
        {"float on null", none, Float(2.5), kNever},
        {"string equal", text, Str("abc"), kEq},
        {"string shorter desired", text, Str("ab"), kGreater},
        {"string longer desired", text, Str("abcd"), kLess},
        {"string on option's selected text", option, Str("abb"), kGreater},  // "abc" selected
        {"string on int: always", integer, Str("x"), kAlways},
        {"string on button (type 17)", button, Str("zzz"), kAlways},
        {"string on material", material, Str("x"), kAlways},
        {"string on null", none, Str("abc"), kNever},
        {"ptr equal", ptr, Ptr(&gTarget[0]), kEq},
        {"ptr on int", integer, Ptr(nullptr), kEq},
        {"ptr on null", none, Ptr(nullptr), kNever},
        {"material equal, valid flag ignored",
         material,
         Mat(20, 50, 0, MatDbKey(1, 5), false),
         {1, 0, 0, 0, 0}},
        {"material colour orders without use", material, Mat(30, 50, 1, MatDbKey(1, 5), false),
         kLess},
        {"material other transparency",
         material,
         Mat(20, 51, 1, MatDbKey(1, 5), false),
         {0, 1, 0, 0, 0}},
        {"material use flags differ",
         material,
         Mat(10, 50, 1, MatDbKey(1, 5), true),
         {0, 1, 0, 0, 0}},
        {"material on string", text, Mat(0, 0, 0, MatDbKey(), false), kAlways},
        {"material on null", none, Mat(0, 0, 0, MatDbKey(), false), kNever},
    };
    const long ops[5] = {0, 1, 2, 3, 9};
    for (const MatrixRow& row : rows) {
        for (int i = 0; i < 5; ++i) {
            Watched fresh;
            std::unique_ptr<ObCondition> c(row.make(row.watched(fresh), ops[i]));
            EXPECT_EQ(c->ConditionFulfilled(), row.expected[i])
                << row.what << ", operator " << ops[i];
        }
    }

    // Pointer order, and the material key order that applies when the desired flag is set.
    // The watched pointer is &gTarget[0].
    EXPECT_EQ(ObConditionPtr(&w.ptr, 2, &gTarget[1]).ConditionFulfilled(), 1);
    EXPECT_EQ(ObConditionPtr(&w.ptr, 3, &gTarget[1]).ConditionFulfilled(), 0);
    w.ptr.SetValue(&gTarget[1]);
    EXPECT_EQ(ObConditionPtr(&w.ptr, 3, &gTarget[0]).ConditionFulfilled(), 1);
    // With the desired use-material flag set the keys are ordered, not the colours (20 here).
    w.material.SetUseMaterial(true);
    std::unique_ptr<ObCondition> keyLess(Mat(0, 0, 0, MatDbKey(1, 6), true)(&w.material, 2));
    std::unique_ptr<ObCondition> keyGreater(Mat(99, 0, 0, MatDbKey(1, 4), true)(&w.material, 3));
    std::unique_ptr<ObCondition> keyNotLess(Mat(99, 0, 0, MatDbKey(1, 5), true)(&w.material, 2));
    EXPECT_EQ(keyLess->ConditionFulfilled(), 1);
    EXPECT_EQ(keyGreater->ConditionFulfilled(), 1);
    EXPECT_EQ(keyNotLess->ConditionFulfilled(), 0);
    EXPECT_EQ(ObCondition(nullptr, 9).ConditionFulfilled(), 1);  // the base is always fulfilled
}

// A condition with a fixed result that counts its evaluations and its instances.
struct Fixed : ObCondition {
    static inline int live = 0;
    int result;
    mutable int evaluated = 0;
    Fixed(ObParam* p, int r) : ObCondition(p, 0), result(r) { ++live; }
    ~Fixed() override { --live; }
    int ConditionFulfilled() const override {
        ++evaluated;
        return result;
    }
};

TEST(CondList, JoinsStopEarlyAndUnknownJoinsAreFalse) {
    struct Row {
        long join;
        std::vector<int> results;
        int expected;
        std::vector<int> evaluated;
    };
    const std::vector<Row> rows = {
        {0, {}, 1, {}},
        {1, {}, 0, {}},
        {7, {}, 0, {}},
        {0, {1, 1}, 1, {1, 1}},
        {0, {1, 0, 1}, 0, {1, 1, 0}},
        {1, {0, 0}, 0, {1, 1}},
        {1, {0, 1, 0}, 1, {1, 1, 0}},
        {-1, {1, 1}, 0, {0, 0}},
    };
    ObParam p(1, T("p"));
    for (const Row& row : rows) {
        ObCondList list(row.join);
        std::vector<Fixed*> conds;
        for (size_t i = 0; i < row.results.size(); ++i) {
            // Distinct operators keep the conditions apart (same parameter, kind 0).
            conds.push_back(new Fixed(&p, row.results[i]));
            conds.back()->SetCondition(static_cast<long>(i));
            ASSERT_EQ(list.AddCond(conds.back()), kObParamOk);
        }
        EXPECT_EQ(list.ConditionsFulfilled(), row.expected) << "join " << row.join;
        for (size_t i = 0; i < conds.size(); ++i) EXPECT_EQ(conds[i]->evaluated, row.evaluated[i]);
    }
    EXPECT_EQ(Fixed::live, 0);
}

TEST(CondList, EqualityDuplicatesAndDeletion) {
    ObParamInt a(1, T("a"), 1), b(2, T("b"), 2);
    ObCondList list(ObCondList::kOr);
    EXPECT_EQ(list.AddCond(new ObConditionInt(&a, 0, 5)), kObParamOk);
    EXPECT_EQ(list.AddCond(new Fixed(&a, 1)), kObParamDuplicate);  // kind 0 matches on param and op
    EXPECT_EQ(Fixed::live, 0);                                     // the offered one is destroyed
    EXPECT_EQ(list.AddCond(new ObConditionInt(&a, 0, 5)), kObParamDuplicate);
    EXPECT_EQ(list.GetCondCount(), 1);
    EXPECT_EQ(list.AddCond(new ObConditionFloat(&a, 0, 5.0)), kObParamOk);  // other kind
    EXPECT_EQ(list.AddCond(new ObConditionInt(&a, 1, 5)), kObParamOk);      // other operator
    EXPECT_EQ(list.AddCond(new ObConditionInt(&b, 0, 5)), kObParamOk);      // other parameter
    EXPECT_EQ(list.AddCond(new ObConditionString(&a, 0, T("x"))), kObParamOk);
    // The same text in another encoding is another condition.
    EXPECT_EQ(list.AddCond(new ObConditionString(&a, 0, UtCString(u"x", eUtEncodingTypeUtf16))),
              kObParamOk);
    EXPECT_EQ(list.AddCond(new ObConditionString(&a, 0, T("x"))), kObParamDuplicate);
    auto* mat = new ObConditionMaterial(&a, 0);
    mat->SetDesTranspValid(1);
    EXPECT_EQ(list.AddCond(mat), kObParamOk);
    // The transparency-valid flag takes no part in equality.
    EXPECT_EQ(list.AddCond(new ObConditionMaterial(&a, 0)), kObParamDuplicate);
    EXPECT_EQ(list.AddCond(nullptr), kObParamNullArgument);
    EXPECT_EQ(list.GetCondCount(), 7);

    const ObConditionInt probe(&a, 0, 5);
    ObCondition* found = list.FindCond(&probe, 0);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->GetCondType(), ObCondition::kInt);
    EXPECT_EQ(list.GetCurCond(), nullptr);
    EXPECT_EQ(list.FindCond(&probe, 1), found);
    EXPECT_EQ(list.GetCurCond(), found);
    EXPECT_EQ(list.DelCond(&probe), kObParamOk);
    EXPECT_EQ(list.GetCurCond(), nullptr);  // the cursor was on it
    EXPECT_EQ(list.DelCond(&probe), kObParamNotFound);
    EXPECT_EQ(list.FindCond(&probe, 1), nullptr);
    EXPECT_EQ(list.DelCond(nullptr), kObParamNullArgument);
    EXPECT_EQ(list.GetCondCount(), 6);
    const ObCondition anyOnB(&b, 0);
    EXPECT_EQ(list.DelCond(&anyOnB), kObParamOk);
    list.ResetCondList();
    EXPECT_EQ(list.GetCondCount(), 0);
    EXPECT_EQ(list.GetFirstCond(1), nullptr);
    EXPECT_EQ(list.ConditionsFulfilled(), 0);
}

TEST(CondList, CursorWalks) {
    ObParam p(1, T("p"));
    ObCondList list;
    EXPECT_EQ(list.GetFirstCond(1), nullptr);
    EXPECT_EQ(list.GetLastCond(1), nullptr);
    EXPECT_EQ(list.GetNextCond(1), nullptr);  // no current element: guarded
    EXPECT_EQ(list.GetPrevCond(1), nullptr);
    std::vector<ObCondition*> c;
    for (long op = 0; op < 3; ++op) {
        c.push_back(new ObConditionInt(&p, op, 0));
        list.AddCond(c.back());
    }
    EXPECT_EQ(list.GetCurCond(), nullptr);  // adding does not move the cursor
    EXPECT_EQ(list.GetFirstCond(0), c[0]);
    EXPECT_EQ(list.GetCurCond(), nullptr);
    EXPECT_EQ(list.GetFirstCond(1), c[0]);
    EXPECT_EQ(list.GetNextCond(0), c[1]);  // peek
    EXPECT_EQ(list.GetCurCond(), c[0]);
    EXPECT_EQ(list.GetNextCond(1), c[1]);
    EXPECT_EQ(list.GetNextCond(1), c[2]);
    EXPECT_EQ(list.GetPrevCond(1), c[1]);
    EXPECT_EQ(list.GetLastCond(1), c[2]);
    EXPECT_EQ(list.GetNextCond(1), nullptr);  // past the end: no current element
    EXPECT_EQ(list.GetCurCond(), nullptr);
    EXPECT_EQ(list.GetPrevCond(1), nullptr);
    // Deleting the middle element keeps the chain intact both ways.
    const ObConditionInt middle(&p, 1, 0);
    EXPECT_EQ(list.DelCond(&middle), kObParamOk);
    EXPECT_EQ(list.GetFirstCond(1), c[0]);
    EXPECT_EQ(list.GetNextCond(1), c[2]);
    EXPECT_EQ(list.GetPrevCond(1), c[0]);
    EXPECT_EQ(list.GetPrevCond(1), nullptr);
}

TEST(ParamConditions, AddAndDeleteOnTheParameter) {
    ObParamOption option(1, T("o"), 2);
    ObParamFloat real(2, T("f"), 0.5, T("m"));
    ObParamString text(3, T("s"), T("x"), 0);
    ObParamPtr ptr(4, T("p"), nullptr);
    ObParamMaterial material(5, T("m"), MatDbKey(1, 1));
    ObParamFloat target(6, T("t"), 1.0, T("m"));

    EXPECT_EQ(target.AddConditionInt(nullptr, 0, 2), kObParamNullArgument);
    EXPECT_EQ(target.GetCondList(), nullptr);  // nothing created for a refused add
    EXPECT_EQ(target.DelConditionInt(&option, 0, 2), kObParamNotFound);  // no list at all
    target.SetCondListType(0);                                           // no list: no effect
    EXPECT_EQ(target.GetCondListType(), -1);

    EXPECT_EQ(target.AddConditionInt(&option, 0, 2), kObParamOk);
    EXPECT_EQ(target.GetCondListType(), ObCondList::kOr);  // the first add makes an OR list
    EXPECT_EQ(target.GetCondList()->ConditionsFulfilled(), 1);
    option.SetValue(1);
    EXPECT_EQ(target.GetCondList()->ConditionsFulfilled(), 0);
    EXPECT_EQ(target.AddConditionInt(&option, 0, 2), kObParamDuplicate);
    EXPECT_EQ(target.GetCondList()->GetCondCount(), 1);

    EXPECT_EQ(target.AddConditionFloat(&real, 3, 0.25), kObParamOk);
    EXPECT_EQ(target.AddConditionString(&text, 1, T("y"), 0), kObParamOk);
    EXPECT_EQ(target.AddConditionPtr(&ptr, 0, nullptr), kObParamOk);
    EXPECT_EQ(target.AddConditionMaterial(&material, 0, 3, 4, 1, MatDbKey(1, 1), true), kObParamOk);
    EXPECT_EQ(target.AddConditionMaterial(&material, 0, 3, 4, 0, MatDbKey(1, 1), true),
              kObParamDuplicate);
    EXPECT_EQ(target.GetCondList()->GetCondCount(), 5);
    target.SetCondListType(ObCondList::kAnd);
    EXPECT_EQ(target.GetCondListType(), ObCondList::kAnd);

    EXPECT_EQ(target.DelConditionFloat(&real, 3, 0.25000001), kObParamNotFound);
    EXPECT_EQ(target.DelConditionFloat(&real, 3, 0.25), kObParamOk);
    EXPECT_EQ(target.DelConditionString(&text, 1, T("y")), kObParamOk);
    EXPECT_EQ(target.DelConditionPtr(&ptr, 0, nullptr), kObParamOk);
    EXPECT_EQ(target.DelConditionPtr(nullptr, 0, nullptr), kObParamNullArgument);
    EXPECT_EQ(target.DelConditionMaterial(&material, 0, 3, 4, 0, MatDbKey(1, 2), true),
              kObParamNotFound);
    EXPECT_EQ(target.DelConditionMaterial(&material, 0, 3, 4, 0, MatDbKey(1, 1), true), kObParamOk);
    EXPECT_EQ(target.DelConditionInt(&option, 0, 2), kObParamOk);
    ASSERT_NE(target.GetCondList(), nullptr);  // an emptied list stays attached
    EXPECT_EQ(target.GetCondList()->GetCondCount(), 0);

    // SetCondList destroys the list held before; the parameter destroys the last one.
    auto* replacement = new ObCondList(ObCondList::kAnd);
    replacement->AddCond(new Fixed(&option, 0));
    target.SetCondList(replacement);
    target.SetCondList(replacement);  // the same list again is kept
    EXPECT_EQ(target.GetCondList(), replacement);
    EXPECT_EQ(Fixed::live, 1);
    {
        ObParamInt holder(7, T("h"), 0);
        holder.SetCondList(new ObCondList(ObCondList::kOr));
        holder.GetCondList()->AddCond(new Fixed(&option, 1));
        EXPECT_EQ(Fixed::live, 2);
    }
    EXPECT_EQ(Fixed::live, 1);
    target.SetCondList(nullptr);
    EXPECT_EQ(Fixed::live, 0);
}

}  // namespace
