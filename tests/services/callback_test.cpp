// Callbacks, handlers and arguments: execution order, suspension, registrations on both sides in
// every order of adding and destroying, changes made by a callback while its handler runs.
#include "kbase/services/Callback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

// Each call appends the callback's tag to the log handed in as user data of a Probe.
struct Probe {
    std::string* log;
    char tag;
    std::function<void(CallbackArgs*)> then;  // run after logging, if set
};

void Record(void* user, CallbackArgs* args) {
    auto* p = static_cast<Probe*>(user);
    *p->log += p->tag;
    if (p->then) p->then(args);
}

TEST(Callbacks, ExecutionFollowsRegistrationOrderAndSuspension) {
    std::string log;
    Probe pa{&log, 'a', {}}, pb{&log, 'b', {}}, pc{&log, 'c', {}};
    Callback a(&Record, &pa), b(&Record, &pb), c(&Record, &pc), unset;
    CallbackHandler h;
    CallbackArgs args(7);
    EXPECT_FALSE(h.HasCallbacks());
    h.ExecuteLast(&args);  // no callbacks: nothing
    h.Add(&a), h.Add(&b), h.Add(&c), h.Add(nullptr), h.Add(&a), h.Add(&unset);
    EXPECT_TRUE(h.HasCallbacks());
    EXPECT_EQ(h.Count(), 4) << "null is ignored, a second Add of a changes nothing";

    b.Suspended(1);
    args.Handled(1);
    h.ExecuteAll(&args);
    EXPECT_EQ(log, "ac") << "the suspended second is skipped; handled does not stop the walk";

    log.clear();
    h.Remove(&unset);
    c.Suspended(1);
    h.ExecuteLast(&args);
    EXPECT_EQ(log, "") << "the last callback is suspended";
    c.Suspended(0);
    h.ExecuteLast(&args);
    EXPECT_EQ(log, "c");

    log.clear();
    b.Suspended(0);
    h.Suspended(1);
    h.ExecuteAll(&args);
    h.ExecuteLast(&args);
    EXPECT_EQ(log, "") << "a suspended handler executes nothing";
    h.Suspended(0);
    a.Execute(&args);
    unset.Execute(&args);  // no function: nothing
    a.Suspended(5);
    a.Execute(&args);
    EXPECT_EQ(log, "a");

    // Set replaces function and data; Remove of what is not registered does nothing.
    a.Suspended(0);
    a.Set(&Record, &pc);
    CallbackHandler other;
    other.Remove(&a);
    a.Remove(&other);
    a.Remove(nullptr);
    log.clear();
    h.ExecuteAll(&args);
    EXPECT_EQ(log, "cbc");
}

TEST(Callbacks, RegistrationIsKnownOnBothSides) {
    Callback a, b;
    CallbackHandler h1, h2;
    h1.Add(&a), h2.Add(&a), h2.Add(&b);
    ASSERT_EQ(a.Handlers().Count(), 2);
    EXPECT_EQ(a.Handlers()[0], &h1);
    EXPECT_EQ(a.Handlers()[1], &h2);
    a.Remove(&h1);
    EXPECT_EQ(h1.Count(), 0);
    EXPECT_EQ(a.Handlers().Count(), 1);
    h2.Remove(&a);
    EXPECT_EQ(a.Handlers().Count(), 0);
    EXPECT_EQ(h2.Count(), 1);
    EXPECT_EQ(h2[0], &b);
    {
        kbase_test::DiagCapture diag;
        EXPECT_EQ(h2[1], nullptr) << "an index outside is reported and gives null";
        EXPECT_EQ(a.Handlers()[0], nullptr);
        EXPECT_EQ(diag.reports().size(), 2u);
    }
}

// Two handlers and three callbacks on the heap, every callback registered with every handler in
// a permuted order; then all five destroyed in every order. After each destruction the survivors
// agree on both sides and executing each handler calls exactly its live callbacks. The sanitizer
// build turns any touch of a destroyed object into a failure.
TEST(Callbacks, EveryOrderOfRegistrationAndDestruction) {
    std::array<int, 5> order = {0, 1, 2, 3, 4};  // 0, 1 handlers; 2, 3, 4 callbacks
    int runs = 0;
    do {
        std::string log;
        std::vector<Probe> probes = {{&log, 'x', {}}, {&log, 'y', {}}, {&log, 'z', {}}};
        std::unique_ptr<CallbackHandler> h[2] = {std::make_unique<CallbackHandler>(),
                                                 std::make_unique<CallbackHandler>()};
        std::unique_ptr<Callback> c[3];
        for (int i = 0; i < 3; ++i) c[i] = std::make_unique<Callback>(&Record, &probes[i]);
        // Registration order: the callbacks in the order they come in the permutation.
        std::string expected;
        for (int o : order) {
            if (o < 2) continue;
            h[0]->Add(c[o - 2].get());
            h[1]->Add(c[o - 2].get());
            expected += static_cast<char>('x' + o - 2);
        }
        for (int o : order) {
            if (o < 2) {
                h[o].reset();
            } else {
                c[o - 2].reset();
                expected.erase(expected.find(static_cast<char>('x' + o - 2)), 1);
            }
            for (const auto& handler : h) {
                if (!handler) continue;
                log.clear();
                CallbackArgs args(1);
                handler->ExecuteAll(&args);
                ASSERT_EQ(log, expected);
                ASSERT_EQ(handler->Count(), static_cast<long>(expected.size()));
            }
            for (const auto& cb : c) {
                if (cb) {
                    ASSERT_EQ(cb->Handlers().Count(), (h[0] ? 1 : 0) + (h[1] ? 1 : 0));
                }
            }
        }
        ++runs;
    } while (std::next_permutation(order.begin(), order.end()));
    EXPECT_EQ(runs, 120);
}

// A callback changes the handler that is executing it.
TEST(Callbacks, ChangesDuringExecuteAllSkipNothingAndRepeatNothing) {
    std::string log;
    std::vector<Probe> probes(5);
    for (int i = 0; i < 5; ++i)
        probes[static_cast<size_t>(i)] = {&log, static_cast<char>('a' + i), {}};
    // Five callbacks a..e registered in that order with a handler of their own.
    struct Scene {
        std::unique_ptr<CallbackHandler> h = std::make_unique<CallbackHandler>();
        std::vector<std::unique_ptr<Callback>> cbs;
    };
    auto make = [&] {
        auto scene = std::make_unique<Scene>();
        for (auto& p : probes) {
            p.then = nullptr;
            scene->cbs.push_back(std::make_unique<Callback>(&Record, &p));
            scene->h->Add(scene->cbs.back().get());
        }
        return scene;
    };
    CallbackArgs args(1);
    // The tags of the callbacks one ExecuteAll calls.
    auto run = [&](CallbackHandler& h) {
        log.clear();
        h.ExecuteAll(&args);
        return log;
    };
    Callback late;  // added while the handler runs

    // b removes c (not reached yet): c is not called.
    {
        auto s = make();
        probes[1].then = [&](CallbackArgs*) { s->h->Remove(s->cbs[2].get()); };
        EXPECT_EQ(run(*s->h), "abde");
    }
    // c removes a and b (already called): d and e still come, once each.
    {
        auto s = make();
        probes[2].then = [&](CallbackArgs*) {
            s->h->Remove(s->cbs[0].get()), s->h->Remove(s->cbs[1].get());
        };
        EXPECT_EQ(run(*s->h), "abcde");
        EXPECT_EQ(run(*s->h), "cde");
    }
    // c removes and destroys itself, and destroys d.
    {
        auto s = make();
        probes[2].then = [&](CallbackArgs*) { s->cbs[2].reset(), s->cbs[3].reset(); };
        EXPECT_EQ(run(*s->h), "abce");
        EXPECT_EQ(s->h->Count(), 3);
    }
    // b adds a callback: first called by the next ExecuteAll.
    {
        auto s = make();
        Probe lateProbe{&log, 'L', {}};
        late.Set(&Record, &lateProbe);
        probes[1].then = [&](CallbackArgs*) { s->h->Add(&late); };
        EXPECT_EQ(run(*s->h), "abcde");
        probes[1].then = nullptr;
        EXPECT_EQ(run(*s->h), "abcdeL");
        s->h->Remove(&late);
    }
    // c runs the handler again (nested) and removes d there: both walks skip d, none repeats.
    {
        auto s = make();
        bool nested = false;
        probes[2].then = [&](CallbackArgs* a) {
            if (nested) return;
            nested = true;
            log += '(';
            s->h->Remove(s->cbs[3].get());
            s->h->ExecuteAll(a);
            log += ')';
        };
        EXPECT_EQ(run(*s->h), "abc(abce)e");
    }
    // b destroys the handler: the walk stops and the callbacks no longer know it.
    {
        auto s = make();
        CallbackHandler* h = s->h.get();
        probes[1].then = [&](CallbackArgs*) { s->h.reset(); };
        EXPECT_EQ(run(*h), "ab");
        for (const auto& cb : s->cbs) EXPECT_EQ(cb->Handlers().Count(), 0);
    }
    // a suspends the handler: the walk stops before b.
    {
        auto s = make();
        probes[0].then = [&](CallbackArgs*) { s->h->Suspended(1); };
        EXPECT_EQ(run(*s->h), "a");
    }
}

TEST(CallbackArgs, ParametersByIndexNameAndKind) {
    CallbackArgs args(42);
    EXPECT_EQ(args.UniqueType(), 42);
    EXPECT_EQ(args.ParamCount(), 0);
    EXPECT_EQ(args.GetParamByName(UtCString("x")), nullptr) << "no list yet";
    EXPECT_EQ(args.GetErrTypeParam(), nullptr);

    UtCStringList list;
    list.Add(UtCString("one")).Add(UtCString("two"));
    UtCStringMap map{{UtCString("k"), UtCString("v")}};
    int target = 0;
    args.AddBoolParam(UtCString("flag"), 1);
    args.AddInt32Param(UtCString("n"), -2147483647 - 1);
    args.AddRealParam(UtCString("r"), 2.5);
    args.AddStringParam(UtCString("s"), UtCString("text"));
    args.AddStringListParam(UtCString("list"), list);
    args.AddStringMapParam(UtCString("map"), map);
    args.AddVoidPtrParam(UtCString("p"), &target);
    args.AddRPT3Param(UtCString("pt"), RPT3{1, 2, 3});
    args.AddErrTypeParam(17);
    args.AddInt32Param(UtCString("n"), 5);  // same name: the first wins
    args.AddStringParam(UtCString("N"), UtCString("upper"));
    ASSERT_EQ(args.ParamCount(), 11);

    const eCallbackArgsParamType kinds[] = {
        eCallbackArgsParamBool,    eCallbackArgsParamInt32,      eCallbackArgsParamReal,
        eCallbackArgsParamString,  eCallbackArgsParamStringList, eCallbackArgsParamStringMap,
        eCallbackArgsParamVoidPtr, eCallbackArgsParamRPT3,       eCallbackArgsParamErrType,
        eCallbackArgsParamInt32,   eCallbackArgsParamString};
    for (long i = 0; i < 11; ++i) EXPECT_EQ(args.GetParam(i)->GetTypeId(), kinds[i]) << i;
    EXPECT_EQ(args.GetParam(8)->Name().GetLength(), 0) << "the error type has no name";

    EXPECT_EQ(args.GetBoolParamByName(UtCString("flag"))->Value(), 1);
    EXPECT_EQ(args.GetInt32ParamByName(UtCString("n"))->Value(), -2147483647 - 1);
    EXPECT_EQ(args.GetRealParamByName(UtCString("r"))->Value(), 2.5);
    EXPECT_EQ(args.GetStringParamByName(UtCString("s"))->Value(), "text");
    EXPECT_EQ(args.GetStringListParamByName(UtCString("list"))->Value().count(), 2);
    EXPECT_EQ(args.GetStringMapParamByName(UtCString("map"))->Value().at(UtCString("k")), "v");
    EXPECT_EQ(args.GetVoidPtrParamByName(UtCString("p"))->Value(), &target);
    EXPECT_EQ(args.GetRPT3ParamByName(UtCString("pt"))->Value().z, 3);
    EXPECT_EQ(args.GetErrTypeParam()->Value(), 17);
    EXPECT_EQ(args.GetStringParamByName(UtCString("N"))->Value(), "upper")
        << "names are case-sensitive";
    EXPECT_EQ(args.GetParamByName(UtCString("FLAG")), nullptr);
    EXPECT_EQ(args.GetParamByName(UtCString("fla")), nullptr) << "a prefix is no match";
    EXPECT_EQ(args.GetParamByName(UtCString("flags")), nullptr);
    // Typed finders check the kind of the parameter the name finds.
    EXPECT_EQ(args.GetRealParamByName(UtCString("n")), nullptr);
    EXPECT_EQ(args.GetStringParamByName(UtCString("flag")), nullptr);
    EXPECT_EQ(args.GetBoolParamByName(UtCString("missing")), nullptr);

    {
        kbase_test::DiagCapture diag;
        EXPECT_EQ(args.GetParam(11), nullptr);
        EXPECT_EQ(args.GetParam(-1), nullptr);
        EXPECT_EQ(diag.reports().size(), 2u) << "the pointer list's invalid-index path reports";
    }
    args.Handled(1);
    args.Clear();
    EXPECT_EQ(args.Handled(), 0);
    EXPECT_EQ(args.ParamCount(), 0);
    EXPECT_EQ(args.GetParamByName(UtCString("flag")), nullptr);
    args.AddRealParam(UtCString("again"), 1);  // a new list after Clear
    EXPECT_EQ(args.ParamCount(), 1);
}

TEST(CallbackArgs, RunTimeTypes) {
    CallbackArgs plain(1);
    int node = 0;
    ExpandTreeNodeCallbackArgs expand(&node, true);
    CallbackArgs* asBase = &expand;
    EXPECT_EQ(plain.GetTypeId(), CallbackArgs::TypeId());
    EXPECT_EQ(asBase->GetTypeId(), ExpandTreeNodeCallbackArgs::TypeId());
    EXPECT_NE(CallbackArgs::TypeId(), ExpandTreeNodeCallbackArgs::TypeId());
    EXPECT_TRUE(CallbackArgs::IsTypeOf(asBase));
    EXPECT_TRUE(ExpandTreeNodeCallbackArgs::IsTypeOf(asBase));
    EXPECT_FALSE(ExpandTreeNodeCallbackArgs::IsTypeOf(&plain));
    EXPECT_FALSE(CallbackArgs::IsTypeOf(nullptr));
    EXPECT_EQ(expand.Node(), &node);
    EXPECT_TRUE(expand.IsDetailedParent());
    EXPECT_FALSE(ExpandTreeNodeCallbackArgs(nullptr, false).IsDetailedParent());
    Callback cb;
    EXPECT_EQ(cb.GetTypeId(), Callback::TypeId());
    EXPECT_TRUE(Callback::IsTypeOf(&cb));
    EXPECT_FALSE(Callback::IsTypeOf(nullptr));
}

}  // namespace
