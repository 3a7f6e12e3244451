// Classes, objects, dispatch and reports.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "store_fixture.h"

namespace {

using namespace obtest;
using kbase_test::CapturedReport;
using kbase_test::DiagCapture;

// line -1: any line.
void ExpectReport(const CapturedReport& r, const char* module, int line, const char* function,
                  int level, const char* message, const char* expression) {
    EXPECT_EQ(r.module, module);
    if (line >= 0) {
        EXPECT_EQ(r.line, line);
    }
    EXPECT_EQ(r.function, function);
    EXPECT_EQ(r.level, level);
    EXPECT_EQ(r.message, message);
    EXPECT_EQ(r.expression, expression);
}

int DefinePlain(int cls, const char* name) {
    return ObDefineClass(cls, name, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                         nullptr, nullptr, nullptr, nullptr);
}

TEST(ObClasses, DefinitionRefusesInTheStatedOrderAndKeepsTheFirst) {
    ObInit();
    const int cls = FreshClassNumber();
    const struct {
        int classNo;
        const char* name;
        int result;
    } cases[] = {
        {2000, "x", -1},
        {2000, "name-of-twenty-chars", -1},  // the number is tested before the name
        {0, "x", -1},
        {-3, "x", -1},
        {cls, "name-of-twenty-chars", -3},
        {cls, nullptr, -3},
        {cls, "nineteen-characters", 0},
        {cls, "second", -2},
        {cls, "name-of-twenty-chars", -2},  // defined is tested before the name
    };
    for (const auto& c : cases) {
        EXPECT_EQ(DefinePlain(c.classNo, c.name), c.result)
            << c.classNo << " " << (c.name ? c.name : "null");
    }
    EXPECT_STREQ(ObGetClassName(cls), "nineteen-characters");
    const int last = DefinePlain(1999, "Last");
    EXPECT_TRUE(last == 0 || last == -2) << "defined by an earlier repetition";
    EXPECT_STREQ(ObGetClassName(1999), "Last");
    EXPECT_EQ(ObDefineStraightUserMethod(2000, nullptr), -1);
    EXPECT_EQ(ObDefineStraightUserMethod(FreshClassNumber(), nullptr), -1) << "undefined class";
}

// The record arrays of classes and of association types grow by injection-visible steps.
void ExpectGrowthEveryTwenty(const std::function<int(int)>& defineNext,
                             const std::function<bool(int)>& isDefined) {
    std::vector<int> failedAt;
    std::vector<int> numbers;
    for (int i = 0; i < 45; ++i) {
        const int number = static_cast<int>(numbers.size());
        int rc;
        {
            kbase_test::FailNthAllocation fail(1);
            rc = defineNext(number);
        }
        if (rc != 0) {
            EXPECT_EQ(rc, kUtMemNoMemory);
            EXPECT_FALSE(isDefined(number)) << "a refused growth defines nothing";
            failedAt.push_back(i);
            ASSERT_EQ(defineNext(number), 0) << "the retry grows the array";
        }
        numbers.push_back(number);
    }
    ASSERT_GE(failedAt.size(), 2u);
    for (size_t i = 1; i < failedAt.size(); ++i) {
        EXPECT_EQ(failedAt[i] - failedAt[i - 1], 20) << "growth every 20 definitions";
    }
    for (int n : numbers) EXPECT_TRUE(isDefined(n)) << "records keep their numbers";
}

TEST(ObClasses, ClassRecordsGrowEveryTwentyDefinitions) {
    ObInit();
    std::vector<int> classes;
    auto define = [&](int index) {
        if (index == static_cast<int>(classes.size())) classes.push_back(FreshClassNumber());
        const std::string name = Numbered("C", classes[index]);
        return DefinePlain(classes[index], name.c_str());
    };
    auto defined = [&](int index) {
        const char* name = ObGetClassName(classes[index]);
        return name != nullptr && name == Numbered("C", classes[index]);
    };
    ExpectGrowthEveryTwenty(define, defined);
    _ObObject* first = ObCreate(classes.front());
    ASSERT_NE(first, nullptr);
    EXPECT_STREQ(ObDescribe(first), Numbered("C", classes.front()).c_str());
    EXPECT_EQ(ObDestroy(first), OB_OK);
}

TEST(ObClasses, AssociationTypeRecordsGrowEveryTwentyDefinitions) {
    ObInit();
    std::vector<int> types;
    auto define = [&](int index) {
        if (index == static_cast<int>(types.size())) types.push_back(FreshTypeNumber());
        return ObDefineAssociationType(types[index], "T", static_cast<uint16_t>(index + 1));
    };
    auto defined = [&](int index) { return ObGetPropagations(types[index]) == index + 1; };
    ExpectGrowthEveryTwenty(define, defined);
}

TEST(ObClasses, FixedClassNamesWinOverDefinitions) {
    ObInit();
    const struct {
        int classNo;
        const char* name;
    } fixed[] = {{266, "DsMaterial"}, {269, "DsMatAssign"}, {270, "DsCoordSys"},
                 {272, "DsMapping"},  {273, "DsHatch3d"},   {274, "DsLinetype"},
                 {275, "DsAssembly"}};
    const int rc = DefinePlain(266, "Other");
    EXPECT_TRUE(rc == 0 || rc == -2) << "defined by an earlier repetition";
    for (const auto& f : fixed) EXPECT_STREQ(ObGetClassName(f.classNo), f.name);
    EXPECT_EQ(ObGetClassName(267), nullptr);
    EXPECT_EQ(ObGetClassName(2000), nullptr);
    EXPECT_EQ(ObGetClassName(-1), nullptr);
}

TEST_F(StoreTest, CreateOfAnUnknownClassReportsTwiceAndGivesNull) {
    const int exemplarOnly = FreshClassNumber();
    ObObject::InstallClass(exemplarOnly, &TrackedObject::Exemplar());
    for (int cls : {FreshClassNumber(), 2000, exemplarOnly}) {
        DiagCapture capture;
        EXPECT_EQ(ObCreate(cls), nullptr);
        ASSERT_EQ(capture.reports().size(), 2u) << cls;
        ExpectReport(capture.reports()[0], "ObObject", -1,
                     "ObObject::Create", 7, "unknown objectclass", "Class");
        EXPECT_EQ(capture.reports()[0].value, cls);
        ExpectReport(capture.reports()[1], "OB_method", 439, "ObCreateParam", 31, "error by create",
                     "(Self == NULL)");
    }
    ObObject::InstallClass(exemplarOnly, nullptr);
    EXPECT_TRUE(TrackedObject::Live().empty());
}

TEST_F(StoreTest, OnlyACreateResultOfZeroGivesAnObjectAndAFailureLeavesNothing) {
    _ObObject* partner = Make("P");
    for (OB_STATUS result : {OB_ACCEPTED, OB_REFUSED, OB_FAILED}) {
        nodes_.push_back(Node{"X"});
        nodes_.back().createResult = result;
        TrackedObject::Deleted().clear();
        DiagCapture capture;
        EXPECT_EQ(ObCreateParam(cls_, &nodes_.back()), nullptr) << result;
        ASSERT_EQ(TrackedObject::Deleted().size(), 1u);
        EXPECT_EQ(TrackedObject::Deleted()[0].state, OB_STATE_DESTROYED | OB_STATE_INVALID);
        EXPECT_EQ(TrackedObject::Deleted()[0].classNo, cls_);
        ASSERT_EQ(capture.reports().size(), 1u);
        EXPECT_EQ(capture.reports()[0].message, "error by create");
    }
    // A create entry point that tied the object to a partner before failing leaves no record.
    static int s_type;
    s_type = all_;
    const int tying = FreshClassNumber();
    ASSERT_EQ(ObDefineClass(
                  tying, "Tying",
                  [](_ObObject* self, void* p) {
                      EXPECT_EQ(ObAddAssociation(self, static_cast<_ObObject*>(p), s_type), 0);
                      return OB_FAILED;
                  },
                  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                  nullptr),
              0);
    ObObject::InstallClass(tying, &TrackedObject::Exemplar());
    DiagCapture capture;
    const size_t before = TrackedObject::Live().size();
    EXPECT_EQ(ObCreateParam(tying, partner), nullptr);
    EXPECT_EQ(TrackedObject::Live().size(), before) << "the failed object is deleted";
    EXPECT_EQ(ObGetFirstAssociation(partner, OB_ASSOC_PASSIVE), nullptr);
}

TEST_F(StoreTest, InvalidHandlesAreReportedByEveryDispatchingFunction) {
    _ObObject* destroyedFlag = Make("D");
    ObSetStateFlag(destroyedFlag, OB_STATE_DESTROYED);
    _ObObject* bare = ObAllocObject();  // class 0
    const AssociationInfo info{nullptr, 1, nullptr};
    const struct {
        const char* function;
        int line;
        std::function<OB_STATUS(_ObObject*)> call;
    } cases[] = {
        {"ObDescribe", 100, [](_ObObject* h) { return ObDescribe(h) == nullptr ? 3 : 0; }},
        {"ObCheck", 136, [](_ObObject* h) { return ObCheck(h); }},
        {"ObUpdate", 173, [](_ObObject* h) { return ObUpdate(h); }},
        {"ObUpdate", 173, [](_ObObject* h) { return ObUpdateWithDetail(h, 4); }},
        {"ObUpdateFromAssociation", 241,
         [&](_ObObject* h) { return ObUpdateFromAssociation(&info, h, OB_METHOD_USER, {}); }},
        {"ObDoUpdate", 278, [](_ObObject* h) { return ObDoUpdate(h); }},
        {"ObUser", 319, [](_ObObject* h) { return ObUser(h, 1, nullptr); }},
        {"ObUserStraight", 357, [](_ObObject* h) { return ObUserStraight(h, 1, nullptr); }},
        {"ObDestroy", 394, [](_ObObject* h) { return ObDestroy(h); }},
    };
    for (const auto& c : cases) {
        for (_ObObject* h : {static_cast<_ObObject*>(nullptr), destroyedFlag, bare}) {
            DiagCapture capture;
            EXPECT_EQ(c.call(h), OB_FAILED) << c.function;
            ASSERT_EQ(capture.reports().size(), 1u) << c.function;
            ExpectReport(capture.reports()[0], "OB_method", c.line, c.function, 31,
                         "illegal objekt", "(Self != NULL)");
            EXPECT_EQ(capture.reports()[0].value, h != nullptr ? 1 : 0);
        }
    }
    EXPECT_TRUE(Exists(destroyedFlag)) << "ObDestroy of an invalid handle deletes nothing";
    EXPECT_TRUE(TakeTrace() == Strings{"D:create"}) << "no entry point ran";
    ObFreeObject(bare);
}

TEST_F(StoreTest, AccessorsTolerateNullAndResetBypassesTheVirtualSetter) {
    EXPECT_EQ(ObGetClass(nullptr), 0);
    EXPECT_EQ(ObGetState(nullptr), 0);
    EXPECT_EQ(ObGetStateFlag(nullptr, 0xFFFF), 0);
    EXPECT_EQ(ObGetData(nullptr), nullptr);
    EXPECT_EQ(ObGetUpdtData(nullptr), nullptr);
    EXPECT_EQ(ObGetGuid(nullptr), nullptr);
    EXPECT_EQ(ObSetGuid(nullptr, nullptr), OB_FAILED);
    ObSetState(nullptr, 1);
    ObSetStateFlag(nullptr, 1);
    ObResetStateFlag(nullptr, 1);
    ObSetData(nullptr, nullptr);

    struct Counting : ObObject {
        int sets = 0;
        void SetState(uint16_t mask) override {
            ++sets;
            ObObject::SetState(mask);
        }
    } counting;
    _ObObject* h = counting.Handle();
    ObSetState(h, OB_STATE_SAVED | OB_STATE_RULE);
    EXPECT_EQ(ObGetState(h), OB_STATE_SAVED | OB_STATE_RULE);
    ObSetState(h, OB_STATE_MARKED);
    EXPECT_EQ(ObGetState(h), OB_STATE_MARKED) << "SetState replaces the word";
    ObSetStateFlag(h, OB_STATE_TRANS);
    EXPECT_EQ(counting.sets, 1);
    ObResetStateFlag(h, OB_STATE_MARKED);
    EXPECT_EQ(counting.sets, 1) << "clearing goes directly to the state word";
    EXPECT_EQ(ObGetState(h), OB_STATE_TRANS);
    EXPECT_EQ(ObGetStateFlag(h, OB_STATE_TRANS | OB_STATE_RULE), 1);
    EXPECT_EQ(ObGetStateFlag(h, OB_STATE_RULE), 0);
}

TEST_F(StoreTest, DataOfExternObjectsIsHiddenAndGetUpdtDataUpdatesFirst) {
    _ObObject* a = Make("A");
    EXPECT_EQ(ObGetData(a), &N(a));
    EXPECT_EQ(ObGetStateFlag(a, OB_STATE_UPTOD), 0);
    EXPECT_EQ(ObGetUpdtData(a), &N(a));
    EXPECT_EQ(ObGetStateFlag(a, OB_STATE_UPTOD), 1) << "the default do update sets UPTOD";

    static OB_STATUS s_doUpdate;
    const int cls = FreshClassNumber();
    ASSERT_EQ(ObDefineClass(
                  cls, "Refusing", NodeCreate, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                  nullptr, nullptr, [](_ObObject*) { return s_doUpdate; }, nullptr),
              0);
    ObObject::InstallClass(cls, &TrackedObject::Exemplar());
    _ObObject* b = Make("B", cls);
    for (OB_STATUS r : {OB_OK, OB_ACCEPTED, OB_REFUSED, OB_FAILED}) {
        s_doUpdate = r;
        EXPECT_EQ(ObGetUpdtData(b), r < OB_REFUSED ? &N(b) : nullptr) << r;
    }

    void* record = nullptr;
    ASSERT_EQ(UtAllocMemoryBlock(&record, 1, 16), kUtMemOk);
    _ObObject* ext = ObAllocObject();
    ObSetData(ext, record);
    ObSetStateFlag(ext, OB_STATE_EXTERN);
    EXPECT_EQ(ObGetData(ext), nullptr);
    EXPECT_EQ(ObGetUpdtData(ext), nullptr);
    ObObject* extObject = ObObject::FromHandle(ext);
    EXPECT_EQ(extObject->data(), record);
    EXPECT_EQ(extObject->Check(), OB_OK) << "an extern object checks as 0";
    ObSetStateFlag(ext, OB_STATE_INVALID);
    EXPECT_EQ(extObject->Check(), OB_FAILED);
    ObResetStateFlag(ext, OB_STATE_INVALID);
    EXPECT_EQ(extObject->Destroy(), OB_OK) << "releases the external-object record";
    EXPECT_EQ(extObject->data(), nullptr);
    ObFreeObject(ext);
}

TEST(ObClasses, PrintFlagsAppendsWordsInTheFixedOrder) {
    ObObject o;
    _ObObject* h = o.Handle();
    char buf[256] = "x:";
    ObSetState(h, 0xFFFF);
    const std::string all =
        "x: EXTERN ORIGINAL MARKED TRANS CHG_ELEM UPDATING SPLITTED RULE DESTROYED INVALID UPTOD "
        "SAVED REALIZED SELECTED";
    EXPECT_EQ(ObPrintFlags(h, buf, sizeof buf), all.size());
    EXPECT_EQ(buf, all);

    const struct {
        int state;
        const char* text;
    } cases[] = {{0, ""},
                 {OB_STATE_BUSY | OB_STATE_RESERVED, ""},
                 {OB_STATE_SELECTED | OB_STATE_EXTERN, " EXTERN SELECTED"},
                 {OB_STATE_DESTROYED | OB_STATE_INVALID, " DESTROYED INVALID"}};
    for (const auto& c : cases) {
        ObSetState(h, c.state);
        buf[0] = '\0';
        EXPECT_EQ(ObPrintFlags(h, buf, sizeof buf), std::strlen(c.text));
        EXPECT_STREQ(buf, c.text);
    }
    std::strcpy(buf, "y");
    EXPECT_EQ(ObPrintFlags(nullptr, buf, sizeof buf), 1u);
    EXPECT_STREQ(buf, "y");
    char small[10] = "ab";
    ObSetState(h, OB_STATE_DESTROYED | OB_STATE_INVALID);
    EXPECT_EQ(ObPrintFlags(h, small, sizeof small), 20u) << "the length needed";
    EXPECT_STREQ(small, "ab") << "nothing appended when it does not fit";
}

TEST_F(StoreTest, DescribeDefaultsToTheClassName) {
    _ObObject* a = Make("A");
    EXPECT_STREQ(ObDescribe(a), "Node");
    const int cls = FreshClassNumber();
    ASSERT_EQ(ObDefineClass(cls, "Described", NodeCreate, nullptr,
                            [](_ObObject* self) { return NodeOf(self)->name.c_str(); }, nullptr,
                            nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              0);
    ObObject::InstallClass(cls, &TrackedObject::Exemplar());
    _ObObject* b = Make("B-text", cls);
    EXPECT_STREQ(ObDescribe(b), "B-text");
}

TEST_F(StoreTest, DestroyResultsDecideWhatHappensToTheObject) {
    for (OB_STATUS result : {OB_OK, OB_ACCEPTED, OB_REFUSED, OB_FAILED}) {
        _ObObject* a = Make("A");
        _ObObject* on = Make("On");
        _ObObject* dep = Make("Dep");
        Depend(a, on);
        Depend(dep, a);
        N(a).destroyResult = result;
        ObSetStateFlag(a, OB_STATE_SELECTED | OB_STATE_UPTOD);
        TakeTrace();
        TrackedObject::Deleted().clear();
        DiagCapture capture;
        EXPECT_EQ(ObDestroy(a), result);
        EXPECT_EQ(TakeTrace(), (Strings{"Dep<-A:1", "A:destroy"})) << "dependents hear first";
        if (result == OB_REFUSED) {
            EXPECT_TRUE(capture.reports().empty());
            EXPECT_TRUE(Exists(a)) << "2 keeps the object fully usable";
            EXPECT_EQ(ObGetState(a), OB_STATE_SELECTED | OB_STATE_UPTOD);
            EXPECT_EQ(Partners(a, OB_ASSOC_ACTIVE), Strings{"On"});
            EXPECT_EQ(ObUpdate(a), OB_OK);
            EXPECT_EQ(TakeTrace(), (Strings{"A:mark", "Dep<-A:7"}));
            continue;
        }
        EXPECT_FALSE(Exists(a)) << result;
        // 3 deletes the object as it stands; 0 and 1 mark it destroyed first.
        const DestructorView seen =
            result == OB_FAILED ? DestructorView{a, OB_STATE_SELECTED | OB_STATE_UPTOD, cls_}
                                : DestructorView{a, OB_STATE_DESTROYED | OB_STATE_INVALID, 0};
        EXPECT_EQ(TrackedObject::Deleted(), std::vector<DestructorView>{seen}) << result;
        EXPECT_TRUE(Partners(on, OB_ASSOC_PASSIVE).empty()) << "no record names the deleted object";
        EXPECT_TRUE(Partners(dep, OB_ASSOC_ACTIVE).empty());
        if (result == OB_FAILED) {
            ASSERT_EQ(capture.reports().size(), 1u);
            EXPECT_EQ(capture.reports()[0].module, "ObObject");
            EXPECT_EQ(capture.reports()[0].function, "ObObject::Destroy");
            EXPECT_EQ(capture.reports()[0].level, 7);
            EXPECT_EQ(capture.reports()[0].message, "DestroyData returns OB_FAILED!");
        } else {
            EXPECT_TRUE(capture.reports().empty());
        }
    }
}

TEST_F(StoreTest, ABusyObjectRefusesItsOwnDestroy) {
    _ObObject* a = Make("A");
    OB_STATUS inner = -1;
    N(a).onMark = [&](_ObObject* self) {
        inner = ObDestroy(self);
        return OB_OK;
    };
    EXPECT_EQ(ObUpdate(a), OB_OK);
    EXPECT_EQ(inner, OB_REFUSED);
    EXPECT_TRUE(Exists(a));
    EXPECT_EQ(ObGetStateFlag(a, OB_STATE_BUSY), 0);
}

TEST_F(StoreTest, AnObjectDestroyedInsideAMethodIsDeletedAfterItAsItWasLeft) {
    for (OB_STATUS result : {OB_OK, OB_FAILED}) {
        _ObObject* a = Make("A");
        _ObObject* b = Make("B");
        N(b).destroyResult = result;
        ObSetStateFlag(b, OB_STATE_MARKED);
        int stateInside = -1;
        N(a).onMark = [&](_ObObject*) {
            EXPECT_EQ(ObDestroy(b), result);
            stateInside = ObGetState(b);
            return OB_OK;
        };
        TrackedObject::Deleted().clear();
        DiagCapture capture;
        EXPECT_EQ(ObUpdate(a), OB_OK);
        // Until the running method returns, the object reads as destroyed, so that a walk that
        // still names it leaves it alone; its destructor sees the state it was deleted in.
        EXPECT_EQ(stateInside, OB_STATE_DESTROYED | OB_STATE_INVALID) << result;
        const DestructorView seen =
            result == OB_FAILED ? DestructorView{b, OB_STATE_MARKED, cls_}
                                : DestructorView{b, OB_STATE_DESTROYED | OB_STATE_INVALID, 0};
        EXPECT_EQ(TrackedObject::Deleted(), std::vector<DestructorView>{seen}) << result;
        EXPECT_FALSE(Exists(b));
        ObDestroy(a);
    }
}

TEST_F(StoreTest, UpdateWithDetailAppliesAndRestoresTheDetail) {
    _ObObject* a = Make("A");
    int32_t inside = -1;
    N(a).onMark = [&](_ObObject*) {
        ObGetUpdateDetail(&inside);
        return OB_OK;
    };
    const struct {
        int32_t before, given, inside, after;
    } cases[] = {{4, 2, 6, 4}, {4, 1, 0, 4}, {4, 3, 0, 4}, {0, 8, 8, 0}, {6, 2, 6, 6}};
    for (const auto& c : cases) {
        ObSetUpdateDetail(c.before);
        EXPECT_EQ(ObUpdateWithDetail(a, c.given), OB_OK);
        int32_t after = -1;
        ObGetUpdateDetail(&after);
        EXPECT_EQ(inside, c.inside) << c.before << "+" << c.given;
        EXPECT_EQ(after, c.after);
    }
    ObSetUpdateDetail(12);
    DiagCapture capture;
    EXPECT_EQ(ObUpdateWithDetail(nullptr, 2), OB_FAILED);
    int32_t after = -1;
    ObGetUpdateDetail(&after);
    EXPECT_EQ(after, 12) << "restored on the invalid-handle path too";

    const struct {
        bool add;
        int32_t value, result;
    } setters[] = {{false, 6, 6}, {true, 8, 14}, {true, 1, 0}, {true, 2, 2}, {false, 5, 0}};
    for (const auto& s : setters) {
        if (s.add) ObAddUpdateDetail(s.value); else ObSetUpdateDetail(s.value);
        int32_t d = -1;
        ObGetUpdateDetail(&d);
        EXPECT_EQ(d, s.result) << (s.add ? "add " : "set ") << s.value;
    }
    ObGetUpdateDetail(nullptr);
}

TEST_F(StoreTest, ExtendedDataHearsTheEventsWithTheDetailInForce) {
    ObSetPropagateUser(1);
    _ObObject* a = Make("A");
    _ObObject* dep = Make("Dep");
    Depend(dep, a);
    ObObjectExtendedData* ex = ObObject::FromHandle(a)->GetExData();
    ASSERT_NE(ex, nullptr);
    ObSetUpdateDetail(2);
    ObCheck(a);
    ObUpdateWithDetail(a, 4);
    ObDoUpdate(a);
    ObUser(a, 5, nullptr);
    N(a).destroyResult = OB_REFUSED;
    ObDestroy(a);
    const struct {
        int32_t event, detail;
    } expected[] = {{3, 2}, {7, 2}, {6, 2}, {5, 6}, {4, 2}, {1, ex->DetailAt(5).detail}};
    ASSERT_EQ(ex->DetailCount(), 6);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(ex->DetailAt(i).event, expected[i].event) << i;
        EXPECT_EQ(ex->DetailAt(i).detail, expected[i].detail) << i;
    }
    ObObjectExtendedData::DetailEntry top{};
    ASSERT_TRUE(ex->PopUpdateDetail(&top));
    EXPECT_EQ(top.event, 3);
    for (int i = 0; i < 20; ++i) ex->PushUpdateDetail(100 + i);
    EXPECT_EQ(ex->DetailCount(), +ObObjectExtendedData::kDetailDepth) << "the oldest drop out";
    EXPECT_EQ(ex->DetailAt(0).event, 119);
    EXPECT_EQ(ex->DetailAt(ObObjectExtendedData::kDetailDepth - 1).event, 112);
    EXPECT_EQ(ex->DetailAt(ObObjectExtendedData::kDetailDepth).event, 0);
    ex->ClearUpdateDetails();
    EXPECT_FALSE(ex->PopUpdateDetail(nullptr));
    N(a).destroyResult = OB_OK;
}

TEST_F(StoreTest, GuidsAreCheckedStoredAndCleared) {
    _ObObject* a = Make("A");
    EXPECT_EQ(ObGetGuid(a), nullptr);
    const char* good = "0123abcd-EF45-6789-abcd-0123456789AB";
    EXPECT_EQ(ObSetGuid(a, good), OB_OK);
    EXPECT_STREQ(ObGetGuid(a), good);
    for (const char* bad :
         {"", "0123abcd-EF45-6789-abcd-0123456789A", "0123abcd-EF45-6789-abcd-0123456789ABC",
          "0123abcd_EF45-6789-abcd-0123456789AB", "0123abcg-EF45-6789-abcd-0123456789AB"}) {
        EXPECT_EQ(ObSetGuid(a, bad), OB_FAILED) << bad;
    }
    EXPECT_STREQ(ObGetGuid(a), good) << "a refused text keeps the GUID";
    EXPECT_EQ(ObSetGuid(a, nullptr), OB_OK);
    EXPECT_EQ(ObGetGuid(a), nullptr);
}

TEST(ObClasses, TheHandleIsTheDataJustBehindThePolymorphicPart) {
    ObObject o;
    _ObObject* h = o.Handle();
    EXPECT_EQ(reinterpret_cast<char*>(h), reinterpret_cast<char*>(&o) + sizeof(void*));
    EXPECT_EQ(ObObject::FromHandle(h), &o);
    EXPECT_EQ(ObObject::FromHandle(static_cast<_ObObject*>(nullptr)), nullptr);
    EXPECT_EQ(h->obSpare, -1);
    EXPECT_EQ(h->obClass, 0);
    EXPECT_EQ(h->obState, 0);
    EXPECT_NE(h->obExData, nullptr);
}

TEST_F(StoreTest, ExhaustedMemoryGivesNoObject) {
    for (int nth : {1, 2}) {  // the object, then its extended data
        DrainedExDataPool drained;
        kbase_test::FailNthAllocation fail(nth);
        EXPECT_EQ(ObAllocObject(), nullptr) << nth;
    }
    for (int nth : {1, 2}) {
        nodes_.push_back(Node{"X"});
        DiagCapture capture;
        {
            DrainedExDataPool drained;
            kbase_test::FailNthAllocation fail(nth);
            EXPECT_EQ(ObCreateParam(cls_, &nodes_.back()), nullptr);
        }
        ASSERT_EQ(capture.reports().size(), 1u);
        EXPECT_EQ(capture.reports()[0].message, "error by create");
    }
    EXPECT_TRUE(TakeTrace().empty()) << "no create entry point ran";
}

// A class that overrides the data operations instead of registering entry points.
class Counter : public ObObject {
public:
    Counter() = default;
    explicit Counter(ExemplarTag tag) : ObObject(tag) {}
    ObObject* Make() const override { return new (std::nothrow) Counter(); }
    OB_STATUS DataMarkUpdate() override {
        ++marks;
        return OB_OK;
    }
    OB_STATUS CreateData(void*) override { return OB_OK; }
    int marks = 0;
};

TEST(ObClasses, ExemplarsMakeDerivedObjectsAndDataOperationsNeedARecord) {
    ObInit();
    static Counter exemplar{ObObject::ExemplarTag{}};
    const int cls = FreshClassNumber();
    EXPECT_EQ(ObObject::InstallClass(2000, &exemplar), -1);
    EXPECT_EQ(ObObject::InstallClass(0, &exemplar), -1);
    ASSERT_EQ(ObObject::InstallClass(cls, &exemplar), 0);
    EXPECT_TRUE(ObObject::ClassValid(cls));
    EXPECT_FALSE(ObObject::ClassValid(FreshClassNumber()));

    // Exemplar without record: allocated objects are valid, the base data operations find no
    // class record.
    _ObObject* bare = ObObject::Allocate(cls)->Handle();
    ASSERT_NE(dynamic_cast<Counter*>(ObObject::FromHandle(bare)), nullptr);
    EXPECT_EQ(ObDescribe(bare), nullptr);
    EXPECT_EQ(ObCheck(bare), OB_OK);
    EXPECT_EQ(ObDoUpdate(bare), OB_FAILED);
    EXPECT_EQ(ObUser(bare, 1, nullptr), OB_FAILED);
    EXPECT_EQ(ObUserStraight(bare, 1, nullptr), OB_FAILED);
    EXPECT_EQ(ObUpdate(bare), OB_OK) << "overridden";
    EXPECT_EQ(ObDestroy(bare), OB_OK) << "no record: nothing to destroy";

    ASSERT_EQ(DefinePlain(cls, "Counted"), 0);
    _ObObject* h = ObCreate(cls);
    auto* counter = dynamic_cast<Counter*>(ObObject::FromHandle(h));
    ASSERT_NE(counter, nullptr);
    EXPECT_EQ(ObUpdate(h), OB_OK);
    EXPECT_EQ(counter->marks, 1);
    EXPECT_EQ(ObDestroy(h), OB_OK);
    ObObject::InstallClass(cls, nullptr);
}

TEST_F(StoreTest, CreateCopyCopiesClassAndStateButNotAssociations) {
    const int cls = FreshClassNumber();
    ASSERT_EQ(ObDefineClass(
                  cls, "Copyable",
                  [](_ObObject* self, void* param) {
                      self->obData = param;  // for a copy: the source's handle
                      return OB_OK;
                  },
                  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                  nullptr),
              0);
    ObObject::InstallClass(cls, &TrackedObject::Exemplar());
    _ObObject* source = ObCreate(cls);
    _ObObject* on = Make("On");
    Depend(source, on);
    ObSetStateFlag(source, OB_STATE_RULE);
    _ObObject* copy = ObCreateCopy(source);
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(Exists(copy));
    EXPECT_NE(ObObject::FromHandle(copy)->GetExData(), ObObject::FromHandle(source)->GetExData());
    EXPECT_EQ(ObGetClass(copy), cls);
    EXPECT_EQ(ObGetStateFlag(copy, OB_STATE_RULE), 1);
    EXPECT_EQ(ObGetStateFlag(copy, OB_STATE_BUSY), 0);
    EXPECT_EQ(ObGetData(copy), source) << "the create entry point received the source";
    EXPECT_EQ(ObGetFirstAssociation(copy, OB_ASSOC_ACTIVE), nullptr);

    DiagCapture capture;
    EXPECT_EQ(ObCreateCopy(nullptr), nullptr);
    ASSERT_EQ(capture.reports().size(), 1u);
    ExpectReport(capture.reports()[0], "OB_method", -1, "ObCreateCopy", 31,
                 "error by create copy", "(Self == NULL)");
}

TEST_F(StoreTest, StraightUserNeitherGuardsNorPropagates) {
    _ObObject* a = Make("A");
    _ObObject* dep = Make("Dep");
    Depend(dep, a);
    static int s_busyInside;
    ASSERT_EQ(ObDefineStraightUserMethod(cls_,
                                         [](_ObObject* self, int32_t command, void*) {
                                             s_busyInside = ObGetStateFlag(self, OB_STATE_BUSY);
                                             return command;
                                         }),
              0);
    TakeTrace();
    ObSetStateFlag(a, OB_STATE_BUSY);
    EXPECT_EQ(ObUserStraight(a, 1, nullptr), 1) << "runs although busy";
    ObResetStateFlag(a, OB_STATE_BUSY);
    EXPECT_EQ(ObUserStraight(a, 0, nullptr), 0);
    EXPECT_EQ(s_busyInside, 0);
    EXPECT_TRUE(TakeTrace().empty()) << "no propagation";
    ASSERT_EQ(ObDefineStraightUserMethod(cls_, nullptr), 0);
    EXPECT_EQ(ObUserStraight(a, 7, nullptr), OB_OK);
}

TEST_F(StoreTest, CheckRefusesWhenBusyAndPropagatesOnlyOnZero) {
    static OB_STATUS s_check;
    const int cls = FreshClassNumber();
    ASSERT_EQ(ObDefineClass(cls, "Checked", NodeCreate, NodeDestroy, nullptr, nullptr, nullptr,
                            nullptr, [](_ObObject*) { return s_check; }, nullptr, NodeFromAssoc,
                            nullptr, nullptr),
              0);
    ObObject::InstallClass(cls, &TrackedObject::Exemplar());
    _ObObject* a = Make("A", cls);
    _ObObject* dep = Make("Dep");
    Depend(dep, a);
    TakeTrace();
    for (OB_STATUS r : {OB_OK, OB_ACCEPTED, OB_FAILED}) {
        s_check = r;
        EXPECT_EQ(ObCheck(a), r);
        EXPECT_EQ(TakeTrace(), r == OB_OK ? Strings{"Dep<-A:6"} : Strings{});
    }
    ObSetStateFlag(a, OB_STATE_BUSY);
    EXPECT_EQ(ObCheck(a), OB_REFUSED);
    ObResetStateFlag(a, OB_STATE_BUSY);
}

}  // namespace
