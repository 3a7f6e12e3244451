// Association types, associations, the propagation walk, switches, delayed destruction and the
// store's callback list.
#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include "store_fixture.h"

namespace {

using namespace obtest;
using kbase_test::DiagCapture;

TEST_F(StoreTest, AssociationTypesRefuseBadDefinitions) {
    const int t = FreshTypeNumber();
    const struct {
        int type;
        const char* name;
        int result;
    } cases[] = {
        {2000, "x", -1}, {-1, "x", -1}, {t, "name-of-twenty-chars", -3}, {t, nullptr, -3},
        {t, "Hosts", 0}, {t, "Again", -2},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ObDefineAssociationType(c.type, c.name, 0x20), c.result) << c.type;
    }
    EXPECT_STREQ(ObGetAssociationName(t), "Hosts");
    EXPECT_EQ(ObGetPropagations(t), 0x20);
    EXPECT_EQ(ObGetPropagations(2000), 0);
    EXPECT_EQ(ObGetPropagations(FreshTypeNumber()), 0) << "undefined reads record 0";
    EXPECT_STREQ(ObGetAssociationName(FreshTypeNumber()), "");
    EXPECT_EQ(ObGetAssociationName(2000), nullptr);
}

TEST_F(StoreTest, AddAssociationTestsItsArgumentsInOrder) {
    _ObObject* a = Make("A");
    _ObObject* b = Make("B");
    _ObObject* dead = Make("Dead");
    ObSetStateFlag(dead, OB_STATE_DESTROYED);
    _ObObject* bare = ObAllocObject();
    const int exemplarOnly = FreshClassNumber();
    ObObject::InstallClass(exemplarOnly, &TrackedObject::Exemplar());
    _ObObject* noRecord = ObObject::Allocate(exemplarOnly)->Handle();
    const struct {
        _ObObject* active;
        _ObObject* passive;
        int type;
        int result;
    } cases[] = {
        {nullptr, b, all_, -1},   {dead, b, all_, -1},      {bare, b, all_, -1},
        {noRecord, b, all_, -1},  {nullptr, nullptr, -7, -1}, {a, nullptr, all_, -2},
        {a, dead, all_, -2},      {a, b, 2000, -3},         {a, b, -1, -3},
        {a, b, FreshTypeNumber(), -4},
    };
    for (const auto& c : cases) EXPECT_EQ(ObAddAssociation(c.active, c.passive, c.type), c.result);
    EXPECT_TRUE(Partners(b, OB_ASSOC_PASSIVE).empty());

    // Memory: the passive record, then the active one (which takes the passive one out again).
    for (size_t freeRecords : {0, 1}) {
        DrainedRecordPool drained(freeRecords);
        kbase_test::FailNthAllocation fail(1);
        EXPECT_EQ(ObAddAssociation(a, b, all_), -5) << freeRecords;
    }
    EXPECT_TRUE(Partners(b, OB_ASSOC_PASSIVE).empty());
    EXPECT_TRUE(Partners(a, OB_ASSOC_ACTIVE).empty());
    ObFreeObject(bare);
    ObFreeObject(noRecord);
    ObObject::InstallClass(exemplarOnly, nullptr);
}

TEST_F(StoreTest, UniqueAddsOnceAndSearchesBeforeTesting) {
    _ObObject* a = Make("A");
    _ObObject* b = Make("B");
    EXPECT_EQ(ObAddAssociationUnique(a, b, all_), 0);
    EXPECT_EQ(ObAddAssociationUnique(a, b, all_), 0);
    EXPECT_EQ(Partners(a, OB_ASSOC_ACTIVE), Strings{"B"});
    EXPECT_EQ(Partners(b, OB_ASSOC_PASSIVE), Strings{"A"});
    ObSetStateFlag(a, OB_STATE_DESTROYED);
    EXPECT_EQ(ObAddAssociationUnique(a, b, all_), 0) << "found before the object is tested";
    EXPECT_EQ(ObAddAssociationUnique(a, b, kObAnyAssocType), -1) << "2000 is no wildcard here";
    EXPECT_EQ(ObAddAssociation(a, b, all_), -1);
    // Removing does not test DESTROYED.
    EXPECT_EQ(ObRemoveAssociation(a, b, all_), 0);
    EXPECT_TRUE(Partners(a, OB_ASSOC_ACTIVE).empty());
    EXPECT_TRUE(Partners(b, OB_ASSOC_PASSIVE).empty());
    EXPECT_EQ(ObRemoveAssociation(a, b, all_), OB_FAILED) << "no such association";
    EXPECT_EQ(ObRemoveAssociation(nullptr, b, all_), -1);
    EXPECT_EQ(ObRemoveAssociation(a, nullptr, all_), -2);
    EXPECT_EQ(ObRemoveAssociation(a, b, 2000), -3);
    EXPECT_EQ(ObRemoveAssociation(a, b, FreshTypeNumber()), -4);
    ObResetStateFlag(a, OB_STATE_DESTROYED);
}

TEST_F(StoreTest, PropagationRunsThePassiveListNewestFirstThenTheClassAssociations) {
    _ObObject* o = Make("O");
    for (const char* name : {"A", "B", "C"}) Depend(Make(name), o);
    _ObObject* x = Make("X");
    _ObObject* y = Make("Y");
    ASSERT_EQ(ObAddClassAssociation(x, cls_, all_), 0);
    ASSERT_EQ(ObAddClassAssociation(y, cls_, all_), 0);
    int checked = 0;
    for (Node& n : nodes_) {
        n.onFromAssoc = [&](_ObObject* self, const AssociationInfo* info, _ObObject* origin,
                            OB_METHOD_ID, OB_METHOD_PARAM) {
            ++checked;
            EXPECT_EQ(origin, o);
            EXPECT_EQ(info->origin, o);
            EXPECT_EQ(info->direction, 1);
            EXPECT_EQ(info->assoc->partner, self);
            EXPECT_EQ(ObGetActiveObject(info), self);
            EXPECT_EQ(ObGetPassiveObject(info), o);
            EXPECT_EQ(ObGetAssocPartner2(info, self), o);
            EXPECT_EQ(ObGetAssocPartner2(info, o), self);
            return OB_OK;
        };
    }
    TakeTrace();
    EXPECT_EQ(ObUpdate(o), OB_OK);
    EXPECT_EQ(TakeTrace(), (Strings{"O:mark", "C<-O:7", "B<-O:7", "A<-O:7", "Y<-O:7", "X<-O:7"}));
    EXPECT_EQ(checked, 5);
    for (Node& n : nodes_) n.onFromAssoc = nullptr;
    // X depends on every object of the class, itself included: its own update reaches it busy.
    EXPECT_EQ(ObUpdate(x), OB_OK);
    EXPECT_EQ(TakeTrace(), (Strings{"X:mark", "Y<-X:7"}));
    EXPECT_EQ(ObRemoveClassAssociation(y, cls_, all_), 0);
    EXPECT_EQ(ObRemoveClassAssociation(y, cls_, all_), OB_FAILED);
    EXPECT_EQ(ObDestroy(x), OB_OK) << "its class association goes with it";
    TakeTrace();
    ObUpdate(o);
    EXPECT_EQ(TakeTrace(), (Strings{"O:mark", "C<-O:7", "B<-O:7", "A<-O:7"}));
}

TEST_F(StoreTest, ClassAssociationsTestTheirArguments) {
    _ObObject* a = Make("A");
    _ObObject* dead = Make("Dead");
    ObSetStateFlag(dead, OB_STATE_DESTROYED);
    EXPECT_EQ(ObAddClassAssociation(nullptr, cls_, all_), -1);
    EXPECT_EQ(ObAddClassAssociation(dead, cls_, all_), -1);
    EXPECT_EQ(ObAddClassAssociation(a, 2000, all_), -2);
    EXPECT_EQ(ObAddClassAssociation(a, FreshClassNumber(), all_), -2);
    EXPECT_EQ(ObAddClassAssociation(a, cls_, 2000), -3);
    EXPECT_EQ(ObAddClassAssociation(a, cls_, FreshTypeNumber()), -4);
    {
        DrainedRecordPool drained;
        kbase_test::FailNthAllocation fail(1);
        EXPECT_EQ(ObAddClassAssociation(a, cls_, all_), -5);
    }
    EXPECT_EQ(ObRemoveClassAssociation(a, cls_, kObAnyAssocType), OB_FAILED);
    ObResetStateFlag(dead, OB_STATE_DESTROYED);
}

TEST_F(StoreTest, EachMethodTravelsWithItsNumberAndParameter) {
    _ObObject* o = Make("O");
    _ObObject* d = Make("D");
    Depend(d, o);
    OB_METHOD_PARAM seen{};
    N(d).onFromAssoc = [&](_ObObject*, const AssociationInfo*, _ObObject*, OB_METHOD_ID,
                           OB_METHOD_PARAM param) {
        seen = param;
        return OB_OK;
    };
    int payload = 0;
    TakeTrace();
    EXPECT_EQ(ObCheck(o), OB_OK);
    EXPECT_EQ(ObDoUpdate(o), OB_OK);
    EXPECT_EQ(ObUser(o, 42, &payload), OB_OK);
    EXPECT_EQ(seen.command, 42);
    EXPECT_EQ(seen.param, &payload);
    EXPECT_EQ(TakeTrace(), (Strings{"D<-O:6", "D<-O:9", "O:user42", "D<-O:10"}));

    // Create reaches objects that depend on the whole class, with the creation parameter.
    const int watched = DefineNodeClass("Watched");
    ASSERT_EQ(ObAddClassAssociation(d, watched, all_), 0);
    _ObObject* w = Make("W", watched);
    EXPECT_EQ(TakeTrace(), (Strings{"W:create", "D<-W:0"}));
    EXPECT_EQ(seen.param, &N(w));
    EXPECT_EQ(ObDestroy(w), OB_OK);
    EXPECT_EQ(TakeTrace(), (Strings{"D<-W:1", "W:destroy"}));
}

TEST_F(StoreTest, SwitchesAndMasksDecideWhatTravels) {
    _ObObject* o = Make("O");
    _ObObject* none = Make("None");
    _ObObject* upd = Make("Upd");
    Depend(none, o, DefineType(0));
    Depend(upd, o, DefineType(OB_PROPAGATE_MARK_UPDATE));
    _ObObject* userDep = Make("Usr");
    Depend(userDep, o, DefineType(OB_PROPAGATE_USER));
    TakeTrace();
    ObCheck(o);
    ObDoUpdate(o);
    EXPECT_TRUE(TakeTrace().empty()) << "mask 0 never propagates; check and do update not in masks";
    ObUpdate(o);
    ObUser(o, 3, nullptr);
    EXPECT_EQ(TakeTrace(), (Strings{"O:mark", "Upd<-O:7", "O:user3", "Usr<-O:10"}));

    ObSetPropagateUpdate(0);
    ObSetPropagateUser(0);
    EXPECT_EQ(ObGetPropagateUpdate(), 0);
    EXPECT_EQ(ObGetPropagateUser(), 0);
    ObUpdate(o);
    ObUser(o, 3, nullptr);
    EXPECT_EQ(TakeTrace(), (Strings{"O:mark", "O:user3"}));
    ObSetPropagateUpdate(1);
    ObSetPropagateUser(1);

    // Destroy switched off: no dependent is told and no callback runs.
    static int s_calls;
    s_calls = 0;
    auto count = [](void*, int32_t, uint32_t, void*) { ++s_calls; };
    ASSERT_EQ(ObCallbackAdd(count, nullptr, 0, 1), 0);
    _ObObject* victim = Make("V");
    Depend(Make("VD"), victim);
    TakeTrace();
    ObSetPropagateDestroy(0);
    EXPECT_EQ(ObGetPropagateDestroy(), 0);
    EXPECT_EQ(ObDestroy(victim), OB_OK);
    EXPECT_EQ(TakeTrace(), Strings{"V:destroy"});
    EXPECT_EQ(s_calls, 0);
    ObSetPropagateDestroy(1);
    EXPECT_EQ(ObCallbackRemove(count, nullptr), 0);
}

TEST_F(StoreTest, AFailingPartnerMakesTheResultThreeButTheWalkGoesOn) {
    _ObObject* o = Make("O");
    _ObObject* a = Make("A");
    _ObObject* b = Make("B");
    _ObObject* c = Make("C");
    Depend(a, o);
    Depend(b, o);
    Depend(c, o);
    N(c).fromAssocResult = OB_REFUSED;
    TakeTrace();
    EXPECT_EQ(ObUpdate(o), OB_OK) << "2 is ignored";
    N(b).fromAssocResult = OB_FAILED;
    EXPECT_EQ(ObUpdate(o), OB_FAILED);
    EXPECT_EQ(ObCheck(o), OB_OK) << "check returns its own result";
    EXPECT_EQ(ObUser(o, 1, nullptr), OB_OK) << "so does a user command";
    Strings trace = TakeTrace();
    EXPECT_EQ(std::count(trace.begin(), trace.end(), "A<-O:7"), 2) << "A is after B";

    // A partner that is no longer valid is reported and counts as a failure.
    N(b).fromAssocResult = OB_OK;
    ObSetStateFlag(b, OB_STATE_DESTROYED);
    DiagCapture capture;
    EXPECT_EQ(ObUpdate(o), OB_FAILED);
    ASSERT_EQ(capture.reports().size(), 1u);
    EXPECT_EQ(capture.reports()[0].module, "OB_method");
    EXPECT_EQ(capture.reports()[0].line, 241);
    EXPECT_EQ(capture.reports()[0].function, "ObUpdateFromAssociation");
    EXPECT_EQ(capture.reports()[0].message, "illegal objekt");
    EXPECT_EQ(TakeTrace(), (Strings{"O:mark", "C<-O:7", "A<-O:7"}));
    ObResetStateFlag(b, OB_STATE_DESTROYED);
}

// Objects of classes without an exemplar are plain ObObjects, which the walk serves without
// virtual calls; mixed with derived ones, a walk must treat both alike.
TEST_F(StoreTest, PlainAndDerivedPartnersAreServedAlike) {
    const int plain = FreshClassNumber();
    ASSERT_EQ(ObDefineClass(plain, "Plain", NodeCreate, NodeDestroy, nullptr, nullptr, nullptr,
                            nullptr, nullptr, NodeMark, NodeFromAssoc, nullptr, NodeUser),
              0);
    const int plainDefaults = FreshClassNumber();  // the default entry point clears UPTOD
    ASSERT_EQ(ObDefineClass(plainDefaults, "Defaults", NodeCreate, nullptr, nullptr, nullptr,
                            nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              0);
    _ObObject* o = Make("O");
    _ObObject* p1 = Make("P1", plain);
    _ObObject* p2 = Make("P2", plain);
    _ObObject* t = Make("T");
    _ObObject* p3 = Make("P3", plain);
    _ObObject* q = Make("Q", plainDefaults);
    _ObObject* gone = Make("Gone", plain);
    ASSERT_TRUE(typeid(*ObObject::FromHandle(p1)) == typeid(ObObject));
    ASSERT_FALSE(typeid(*ObObject::FromHandle(t)) == typeid(ObObject));
    for (_ObObject* d : {gone, q, p3, t, p2, p1}) Depend(d, o);  // list: P1 P2 T P3 Q Gone
    ObSetStateFlag(q, OB_STATE_UPTOD);

    // What each receiver sees: busy set, the record it is reached by, origin and direction.
    std::vector<const ObAssociation*> records;
    auto look = [&](_ObObject* self, const AssociationInfo* info, _ObObject* origin, OB_METHOD_ID,
                    OB_METHOD_PARAM) {
        EXPECT_EQ(ObGetStateFlag(self, OB_STATE_BUSY), 1) << NameOf(self);
        EXPECT_EQ(info->origin, o);
        EXPECT_EQ(info->direction, 1);
        EXPECT_EQ(origin, o);
        records.push_back(info->assoc);
        return N(self).fromAssocResult;
    };
    for (_ObObject* d : {p1, p2, t, p3}) N(d).onFromAssoc = look;
    N(p2).fromAssocResult = OB_FAILED;
    ObSetStateFlag(p3, OB_STATE_BUSY);  // refuses with 2, which the walk ignores
    ObSetStateFlag(gone, OB_STATE_DESTROYED);
    TakeTrace();
    {
        DiagCapture capture;
        EXPECT_EQ(ObUpdate(o), OB_FAILED) << "P2 failed and Gone is invalid";
        ASSERT_EQ(capture.reports().size(), 1u);
        EXPECT_EQ(capture.reports()[0].line, 241);
        EXPECT_EQ(capture.reports()[0].function, "ObUpdateFromAssociation");
    }
    EXPECT_EQ(TakeTrace(), (Strings{"O:mark", "P1<-O:7", "P2<-O:7", "T<-O:7"}));
    EXPECT_EQ(records, (std::vector<const ObAssociation*>{o->obPassive, o->obPassive->next,
                                                          o->obPassive->next->next}));
    for (_ObObject* d : {p1, p2, t}) EXPECT_EQ(ObGetStateFlag(d, OB_STATE_BUSY), 0) << NameOf(d);
    EXPECT_EQ(ObGetStateFlag(p3, OB_STATE_BUSY), 1) << "a refusing partner is left as it was";
    EXPECT_EQ(ObGetStateFlag(q, OB_STATE_UPTOD), 0) << "default entry point ran";
    EXPECT_EQ(ObGetStateFlag(q, OB_STATE_BUSY), 0);

    ObResetStateFlag(p3, OB_STATE_BUSY);
    ObResetStateFlag(gone, OB_STATE_DESTROYED);
    N(p2).fromAssocResult = OB_OK;
    records.clear();
    EXPECT_EQ(ObUpdate(o), OB_OK);
    EXPECT_EQ(TakeTrace(), (Strings{"O:mark", "P1<-O:7", "P2<-O:7", "T<-O:7", "P3<-O:7",
                                    "Gone<-O:7"}));
    for (_ObObject* d : {p1, p2, p3, q, gone}) EXPECT_EQ(ObDestroy(d), OB_OK);
}

TEST_F(StoreTest, PartnersMayChangeTheListsWhileTheWalkRuns) {
    _ObObject* o = Make("O");
    _ObObject* late = Make("Late");
    _ObObject* removed = Make("Removed");
    _ObObject* doomed = Make("Doomed");
    _ObObject* first = Make("First");
    Depend(late, o);
    Depend(removed, o);
    Depend(doomed, o);
    Depend(first, o);  // newest: called first
    _ObObject* added = Make("Added");
    N(first).onFromAssoc = [&](_ObObject*, const AssociationInfo*, _ObObject*, OB_METHOD_ID,
                               OB_METHOD_PARAM) {
        EXPECT_EQ(ObRemoveAssociation(removed, o, all_), 0);
        EXPECT_EQ(ObAddAssociation(added, o, all_), 0);
        EXPECT_EQ(ObDestroy(doomed), OB_OK);
        EXPECT_EQ(ObDestroy(o), OB_REFUSED) << "the walking object is busy";
        return OB_OK;
    };
    N(late).onFromAssoc = [&](_ObObject*, const AssociationInfo* info, _ObObject*, OB_METHOD_ID,
                              OB_METHOD_PARAM) {
        EXPECT_EQ(info->assoc->partner, late);
        ObFreeObject(o);  // deleting the walking object itself is held back until it returns
        return OB_OK;
    };
    TakeTrace();
    DiagCapture capture;
    EXPECT_EQ(ObUpdate(o), OB_FAILED) << "the destroyed partner is met as invalid";
    EXPECT_EQ(TakeTrace(), (Strings{"O:mark", "First<-O:7", "Doomed:destroy", "Removed<-O:7",
                                    "Late<-O:7"}));
    ASSERT_EQ(capture.reports().size(), 1u);
    EXPECT_EQ(capture.reports()[0].line, 241);
    EXPECT_FALSE(Exists(doomed));
    EXPECT_FALSE(Exists(o));
    EXPECT_TRUE(Partners(added, OB_ASSOC_ACTIVE).empty()) << "o's records went with it";
    EXPECT_TRUE(Partners(late, OB_ASSOC_ACTIVE).empty());
}

TEST_F(StoreTest, CyclesStopAtTheBusyObject) {
    for (int length : {1, 2, 3}) {
        std::vector<_ObObject*> ring;
        for (int i = 0; i < length; ++i) ring.push_back(Make(Numbered("R", i)));
        for (int i = 0; i < length; ++i) Depend(ring[(i + 1) % length], ring[i]);
        std::vector<OB_STATUS> selfUpdates, forwards;
        for (_ObObject* r : ring) {
            N(r).onFromAssoc = [&](_ObObject* self, const AssociationInfo*, _ObObject* origin,
                                   OB_METHOD_ID method, OB_METHOD_PARAM param) {
                selfUpdates.push_back(ObUpdate(self));  // a receiver is busy
                forwards.push_back(ObDoAssociations(self, OB_PROPAGATE_MARK_UPDATE, origin,
                                                    method, param));
                return OB_OK;
            };
        }
        TakeTrace();
        EXPECT_EQ(ObUpdate(ring[0]), OB_OK);
        Strings expected{"R0:mark"};
        for (int i = 1; i < length; ++i) {
            expected.push_back(Numbered("R", i) + "<-R0:7");
        }
        EXPECT_EQ(TakeTrace(), expected) << "the walk of the last one reaches R0 busy";
        EXPECT_EQ(selfUpdates, std::vector<OB_STATUS>(length - 1, OB_REFUSED));
        EXPECT_EQ(forwards, std::vector<OB_STATUS>(length - 1, OB_OK)) << "2 is not a failure";
        for (_ObObject* r : ring) EXPECT_EQ(ObGetStateFlag(r, OB_STATE_BUSY), 0);
        for (_ObObject* r : ring) N(r).onFromAssoc = nullptr;
        for (_ObObject* r : ring) EXPECT_EQ(ObDestroy(r), OB_OK);
    }
}

TEST_F(StoreTest, Command81ReentersABusyObject) {
    _ObObject* a = Make("A");
    _ObObject* d = Make("D");
    Depend(d, a);
    std::vector<OB_STATUS> inner;
    int busyAfterInner = -1;
    N(d).onFromAssoc = [&](_ObObject*, const AssociationInfo*, _ObObject* origin, OB_METHOD_ID,
                           OB_METHOD_PARAM param) {
        if (param.command == 5) {
            inner.push_back(ObUser(origin, 6, nullptr));
            inner.push_back(ObUser(origin, 81, nullptr));
            busyAfterInner = ObGetStateFlag(origin, OB_STATE_BUSY);
        }
        return OB_OK;
    };
    TakeTrace();
    EXPECT_EQ(ObUser(a, 5, nullptr), OB_OK);
    EXPECT_EQ(inner, (std::vector<OB_STATUS>{OB_REFUSED, OB_OK}));
    EXPECT_EQ(busyAfterInner, 1) << "the outer call owns the busy bit";
    EXPECT_EQ(ObGetStateFlag(a, OB_STATE_BUSY), 0);
    // The re-entered command propagates too, but D is busy in its own entry point.
    EXPECT_EQ(TakeTrace(), (Strings{"A:user5", "D<-A:10", "A:user81"}));
    EXPECT_EQ(ObUser(a, 81, nullptr), OB_OK) << "not busy: an ordinary command";
    EXPECT_EQ(ObGetStateFlag(a, OB_STATE_BUSY), 0);
}

TEST_F(StoreTest, DestroyRaisesTheCallbackWithTheObjectStillWhole) {
    struct Seen {
        std::vector<std::string> names;
        std::vector<int> classes;
        std::vector<uint32_t> events;
    } seen;
    auto cb = [](void* user, int32_t id, uint32_t mask, void* record) {
        auto* s = static_cast<Seen*>(user);
        auto* r = static_cast<ObCallbackRecord*>(record);
        EXPECT_EQ(id, 77);
        EXPECT_EQ(mask, OB_EVENT_DESTROYED);
        s->names.push_back(NameOf(r->object));
        s->classes.push_back(ObGetClass(r->object));
        s->events.push_back(r->event);
    };
    ASSERT_EQ(ObCallbackAdd(cb, &seen, 77, 1), 0);
    _ObObject* a = Make("A");
    _ObObject* d = Make("D");
    Depend(d, a);
    // D goes with what it needs, later: while it receives it is busy and cannot be destroyed.
    N(d).onFromAssoc = [](_ObObject* self, const AssociationInfo*, _ObObject*, OB_METHOD_ID method,
                          OB_METHOD_PARAM) {
        EXPECT_EQ(ObDestroy(self), OB_REFUSED);
        return method == OB_METHOD_DESTROY ? ObDestroyDelayed(self) : OB_OK;
    };
    EXPECT_EQ(ObDestroy(a), OB_OK);
    ObDestroyDelayedList();
    EXPECT_EQ(seen.names, (Strings{"A", "D"}));
    EXPECT_EQ(seen.classes, (std::vector<int>{cls_, cls_}));
    EXPECT_EQ(seen.events, (std::vector<uint32_t>{OB_EVENT_DESTROYED, OB_EVENT_DESTROYED}));
    EXPECT_FALSE(Exists(d));

    ASSERT_EQ(ObCallbackOnOff(cb, &seen, 0), 0);
    ObDestroy(Make("Off"));
    ASSERT_EQ(ObCallbackOnOff(cb, &seen, 1), 0);
    ObFreeObject(Make("Freed"));
    EXPECT_EQ(seen.names.size(), 2u) << "switched off, and freeing is no destruction";
    ASSERT_EQ(ObCallbackRemove(cb, &seen), 0);
    EXPECT_EQ(ObCallbackRemove(cb, &seen), kCbNotFound);
    ObDestroy(Make("Removed"));
    EXPECT_EQ(seen.names.size(), 2u);
}

TEST_F(StoreTest, DelayedDestructionRunsOnceInOrderAndSurvivesChanges) {
    _ObObject* a = Make("A");
    _ObObject* b = Make("B");
    _ObObject* c = Make("C");
    _ObObject* gone = Make("Gone");
    _ObObject* kept = Make("Kept");
    _ObObject* flagged = Make("Flagged");
    static _ObObject* s_later;
    s_later = Make("Later");
    // A's destruction takes C with it (through X, which depends on A) before C's turn comes.
    static _ObObject* s_c;
    s_c = c;
    _ObObject* x = Make("X");
    Depend(x, a);
    N(x).onFromAssoc = [](_ObObject*, const AssociationInfo*, _ObObject*, OB_METHOD_ID m,
                          OB_METHOD_PARAM) { return m == OB_METHOD_DESTROY ? ObDestroy(s_c) : 0; };
    N(kept).destroyResult = OB_REFUSED;
    // B's destruction puts Later on the list: it waits for the next run.
    auto onB = [](void*, int32_t, uint32_t, void* record) {
        if (NameOf(static_cast<ObCallbackRecord*>(record)->object) == "B") {
            ObDestroyDelayed(s_later);
        }
    };
    ASSERT_EQ(ObCallbackAdd(onB, nullptr, 0, 1), 0);

    const ObObjectList& list = ObObject::GetDelayedDeleteList();
    ASSERT_EQ(list.count, 0u);
    _ObObject* null = nullptr;
    for (_ObObject* h : {a, b, a, c, gone, kept, flagged, null, b, null}) {
        EXPECT_EQ(ObDestroyDelayed(h), OB_OK);
    }
    EXPECT_EQ(list.count, 7u) << "each handle once";
    EXPECT_EQ(ObDestroy(gone), OB_OK);
    EXPECT_EQ(list.count, 6u) << "a deleted object leaves the list";
    ObSetStateFlag(flagged, OB_STATE_DESTROYED);
    TakeTrace();
    DiagCapture capture;
    ObDestroyDelayedList();
    EXPECT_EQ(TakeTrace(), (Strings{"X<-A:1", "C:destroy", "A:destroy", "B:destroy",
                                    "Kept:destroy"}));
    ASSERT_EQ(capture.reports().size(), 2u) << "the flagged object and the null handle";
    for (const auto& r : capture.reports()) {
        EXPECT_EQ(r.line, 394);
        EXPECT_EQ(r.function, "ObDestroy");
        EXPECT_EQ(r.message, "illegal objekt");
    }
    EXPECT_FALSE(Exists(a));
    EXPECT_FALSE(Exists(b));
    EXPECT_FALSE(Exists(c));
    EXPECT_TRUE(Exists(kept));
    EXPECT_TRUE(Exists(flagged));
    ASSERT_EQ(list.count, 1u);
    EXPECT_EQ(list.items[0], ObObject::FromHandle(s_later));
    ObDestroyDelayedList();
    EXPECT_FALSE(Exists(s_later));
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(ObCallbackRemove(onB, nullptr), 0);
    ObResetStateFlag(flagged, OB_STATE_DESTROYED);

    // The list cannot grow: the handle is refused, not lost silently.
    {
        kbase_test::FailAllocationsFrom fail(1);
        EXPECT_EQ(ObDestroyDelayed(kept), OB_FAILED);
    }
    EXPECT_EQ(list.count, 0u);
}

TEST_F(StoreTest, WalkArrayAllocationFailureCallsNobody) {
    _ObObject* o = Make("O");
    Depend(Make("A"), o);
    Depend(Make("B"), o);
    TakeTrace();
    {
        kbase_test::FailNthAllocation fail(1);
        EXPECT_EQ(ObUpdate(o), OB_FAILED);
    }
    {
        kbase_test::FailNthAllocation fail(1);
        EXPECT_EQ(ObCheck(o), OB_OK) << "check returns its own result";
    }
    EXPECT_EQ(TakeTrace(), (Strings{"O:mark"}));
    EXPECT_EQ(ObGetStateFlag(o, OB_STATE_BUSY), 0);
    EXPECT_EQ(ObUpdate(o), OB_OK);
    EXPECT_EQ(TakeTrace(), (Strings{"O:mark", "B<-O:7", "A<-O:7"}));
    EXPECT_EQ(ObDoAssociations(nullptr, 0xFFFF, nullptr, OB_METHOD_USER, {}), OB_OK);
}

// A partner that refuses to let go of its dependents.
class Stubborn : public TrackedObject {
public:
    Stubborn() = default;
    explicit Stubborn(ExemplarTag tag) : TrackedObject(tag) {}
    ObObject* Make() const override { return new (std::nothrow) Stubborn(); }
    int RemoveDependent(ObObject*, int) override { return 5; }
};

TEST_F(StoreTest, DestroyReportsAssociationsItCannotDetachAndStillLeavesNoDanglingRecord) {
    static Stubborn exemplar{ObObject::ExemplarTag{}};
    const int cls = DefineNodeClass("Stubborn");
    ObObject::InstallClass(cls, &exemplar);
    const struct {
        bool stubbornIsPassive;
        const char* message;
    } cases[] = {{true, "active association cant be destroyed"},
                 {false, "passive association cant be destroyed"}};
    for (const auto& c : cases) {
        _ObObject* plain = Make("Plain");
        _ObObject* stubborn = Make("Stubborn", cls);
        // The stubborn partner refuses as the passive partner of the plain victim, or as the
        // victim itself when it takes its own dependent out.
        Depend(plain, stubborn);
        _ObObject* victim = c.stubbornIsPassive ? plain : stubborn;
        DiagCapture capture;
        EXPECT_EQ(ObDestroy(victim), OB_OK);
        ASSERT_EQ(capture.reports().size(), 1u);
        EXPECT_EQ(capture.reports()[0].module, "ObObject");
        EXPECT_EQ(capture.reports()[0].function, "ObObject::Destroy");
        EXPECT_EQ(capture.reports()[0].level, 31);
        EXPECT_EQ(capture.reports()[0].message, c.message);
        EXPECT_EQ(capture.reports()[0].expression, "FALSE");
        _ObObject* survivor = c.stubbornIsPassive ? stubborn : plain;
        EXPECT_TRUE(Partners(survivor, OB_ASSOC_ACTIVE).empty());
        EXPECT_TRUE(Partners(survivor, OB_ASSOC_PASSIVE).empty());
        ObFreeObject(survivor);
    }
}

TEST_F(StoreTest, ListsReadInListOrder) {
    _ObObject* o = Make("O");
    _ObObject* a = Make("A");
    _ObObject* b = Make("B");
    const int other = DefineType(0);
    Depend(a, o);
    Depend(b, o, other);
    Depend(o, a, other);
    EXPECT_EQ(Partners(o, OB_ASSOC_PASSIVE), (Strings{"B", "A"}));
    ObAssociation* first = ObGetFirstAssociation(o, OB_ASSOC_PASSIVE);
    EXPECT_EQ(ObGetAssociationType(first), other);
    EXPECT_EQ(ObGetNextAssociation(o, OB_ASSOC_PASSIVE, first), ObGetNextAssociationFast(first));
    EXPECT_EQ(ObGetNextAssociation(o, OB_ASSOC_ACTIVE, first), nullptr) << "not in that list";
    EXPECT_EQ(ObGetNextAssociation(o, OB_ASSOC_PASSIVE, nullptr), nullptr);
    EXPECT_EQ(ObGetAssocPartner(ObGetFirstAssociationType(o, OB_ASSOC_PASSIVE, all_)), a);
    EXPECT_EQ(ObGetFirstAssociationType(o, OB_ASSOC_ACTIVE, all_), nullptr);
    EXPECT_EQ(ObGetActivePartner(o, kObAnyAssocType), b);
    EXPECT_EQ(ObGetActivePartner(o, all_), a);
    EXPECT_EQ(ObGetPassivePartner(o, other), a);
    EXPECT_EQ(ObGetPassivePartner(o, all_), nullptr);
    EXPECT_NE(ObFindAssociation(a, o, all_), nullptr);
    EXPECT_EQ(ObFindAssociation(a, o, other), nullptr);
    EXPECT_EQ(ObFindActiveAssociationFast(b, o, kObAnyAssocType),
              ObGetFirstAssociation(b, OB_ASSOC_ACTIVE));
    EXPECT_EQ(ObFindPassiveAssociationFast(o, b, other), first);
    EXPECT_EQ(ObFindAssociation(nullptr, o, all_), nullptr);
    EXPECT_EQ(ObGetAssociationType(nullptr), -1);
    ObAssociation* loose = ObAllocAssociation();
    ASSERT_NE(loose, nullptr);
    EXPECT_EQ(loose->type, 0);
    EXPECT_EQ(loose->partner, nullptr);
    ObFreeAssociation(loose);
}

TEST_F(StoreTest, CopyMoveSplitAndCleanupKeepBothSidesInStep) {
    _ObObject* from = Make("From");
    _ObObject* to = Make("To");
    _ObObject* p1 = Make("P1");
    _ObObject* p2 = Make("P2");
    _ObObject* d1 = Make("D1");
    _ObObject* d2 = Make("D2");
    Depend(from, p1);
    Depend(from, p2);
    Depend(d1, from);
    Depend(d2, from);
    Depend(to, Make("Own"));
    ASSERT_EQ(ObCopyAssociations(from, to), 0);
    EXPECT_EQ(Partners(to, OB_ASSOC_ACTIVE), (Strings{"P2", "P1", "Own"}))
        << "order kept, in front";
    EXPECT_EQ(Partners(to, OB_ASSOC_PASSIVE), (Strings{"D2", "D1"}));
    EXPECT_EQ(Partners(p1, OB_ASSOC_PASSIVE), (Strings{"To", "From"}));
    EXPECT_EQ(Partners(d2, OB_ASSOC_ACTIVE), (Strings{"To", "From"}));

    _ObObject* moved = Make("Moved");
    ASSERT_EQ(ObMoveAssociations(from, moved, OB_ASSOC_PASSIVE), 0);
    EXPECT_TRUE(Partners(from, OB_ASSOC_PASSIVE).empty());
    EXPECT_EQ(Partners(moved, OB_ASSOC_PASSIVE), (Strings{"D2", "D1"}));
    EXPECT_EQ(Partners(d1, OB_ASSOC_ACTIVE), (Strings{"Moved", "To"}));

    DiagCapture capture;
    ObAssociation* foreign = ObGetFirstAssociation(to, OB_ASSOC_ACTIVE);
    EXPECT_EQ(ObCopyAssociation(from, moved, foreign, OB_ASSOC_ACTIVE), OB_FAILED);
    EXPECT_EQ(ObCopyAssociation(from, nullptr, ObGetFirstAssociation(from, OB_ASSOC_ACTIVE),
                                OB_ASSOC_ACTIVE),
              -1);
    ASSERT_EQ(capture.reports().size(), 2u);
    EXPECT_EQ(capture.reports()[0].message, "association cant be copied");
    EXPECT_EQ(ObMoveAssociation(from, moved, ObGetFirstAssociation(from, OB_ASSOC_ACTIVE),
                                OB_ASSOC_ACTIVE),
              0);
    EXPECT_EQ(Partners(from, OB_ASSOC_ACTIVE), Strings{"P1"});
    EXPECT_EQ(Partners(p2, OB_ASSOC_PASSIVE), (Strings{"Moved", "To"}));

    // Split From -> P1 through S, refused first when memory runs out.
    _ObObject* s = Make("S");
    for (size_t freeRecords : {2, 3}) {  // the second association's records
        DrainedRecordPool drained(freeRecords);
        kbase_test::FailNthAllocation fail(1);
        EXPECT_EQ(ObSplitAssoc(from, p1, all_, s), -5) << freeRecords;
    }
    EXPECT_EQ(Partners(from, OB_ASSOC_ACTIVE), Strings{"P1"}) << "nothing changed";
    EXPECT_TRUE(Partners(s, OB_ASSOC_ACTIVE).empty());
    EXPECT_TRUE(Partners(s, OB_ASSOC_PASSIVE).empty());
    EXPECT_EQ(ObSplitAssoc(from, p2, all_, s), OB_FAILED) << "no such association";
    ASSERT_EQ(ObSplitAssoc(from, p1, all_, s), 0);
    EXPECT_EQ(Partners(from, OB_ASSOC_ACTIVE), Strings{"S"});
    EXPECT_EQ(Partners(s, OB_ASSOC_ACTIVE), Strings{"P1"});
    EXPECT_EQ(Partners(p1, OB_ASSOC_PASSIVE), (Strings{"S", "To"}));
    EXPECT_EQ(ObGetStateFlag(s, OB_STATE_SPLITTED), 1);

    // Internal copies need no valid objects; cleanup takes out records of invalid partners.
    _ObObject* bare = ObAllocObject();
    ASSERT_EQ(ObCopyAssociationInternal(to, bare, ObGetFirstAssociation(to, OB_ASSOC_PASSIVE),
                                        OB_ASSOC_PASSIVE),
              0);
    EXPECT_EQ(Partners(bare, OB_ASSOC_PASSIVE), Strings{"D2"});
    EXPECT_EQ(Partners(d2, OB_ASSOC_ACTIVE).front(), "?") << "names the bare object";
    EXPECT_EQ(ObCleanupAssocList(d2), 1);
    EXPECT_EQ(Partners(d2, OB_ASSOC_ACTIVE), (Strings{"Moved", "To"}));
    EXPECT_TRUE(Partners(bare, OB_ASSOC_PASSIVE).empty());
    ObFreeObject(bare);

    ASSERT_EQ(ObRemoveAssociations(to, OB_ASSOC_ACTIVE), 0);
    EXPECT_TRUE(Partners(to, OB_ASSOC_ACTIVE).empty());
    EXPECT_EQ(Partners(p1, OB_ASSOC_PASSIVE), Strings{"S"});
}

}  // namespace
