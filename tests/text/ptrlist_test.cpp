// UtCPtrList: growth table, gap-buffer invariants against a std::vector model, the invalid-index
// report, failed growth, sorting and searching, the iterator.
#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <random>
#include <set>
#include <vector>

#include "kbase/text/UtCPtrList.h"
#include "test_support.h"

namespace {
// When set, the list's array allocations (nothrow new[]) fail.
bool g_refuseArrays = false;
}  // namespace

// Replaces the global nothrow array allocation for this program, so that growth can be refused.
// A memory checker may put its own in place of this one (valgrind does unless it runs with
// --soname-synonyms=somalloc=nouseroverride, as scripts/valgrind.sh runs it); RefusalWorks tells.
__attribute__((visibility("default"))) void* operator new[](std::size_t n,
                                                            const std::nothrow_t&) noexcept {
    if (g_refuseArrays) return nullptr;
    try {
        return ::operator new[](n);
    } catch (...) {
        return nullptr;
    }
}

namespace {

class RefuseArrays {
  public:
    RefuseArrays() { g_refuseArrays = true; }
    ~RefuseArrays() { g_refuseArrays = false; }
    RefuseArrays(const RefuseArrays&) = delete;
    RefuseArrays& operator=(const RefuseArrays&) = delete;
};

// Whether the replacement above is the allocation the library reaches.
bool RefusalWorks() {
    RefuseArrays refuse;
    void* probe = ::operator new[](sizeof(void*), std::nothrow);
    ::operator delete[](probe);
    return probe == nullptr;
}

void* P(uintptr_t n) {
    return reinterpret_cast<void*>(n);
}

// Capacities (in pointers) of the 21 blocks: (2^k - 16) / 8 for k = 6..26.
const long kCapacities[] = {6,      14,     30,     62,      126,     254,     510,
                            1022,   2046,   4094,   8190,    16382,   32766,   65534,
                            131070, 262142, 524286, 1048574, 2097150, 4194302, 8388606};

TEST(PtrList, BestNewSizeFollowsTheBlockTable) {
    const size_t n = std::size(kCapacities);
    for (size_t i = 0; i < n; ++i) {
        const long c = kCapacities[i];
        EXPECT_EQ(UtCPtrListBestNewSize(c - 1, 8), c) << "strictly below the block";
        EXPECT_EQ(UtCPtrListBestNewSize(c, 8), i + 1 < n ? kCapacities[i + 1] : 2 * c)
            << "a full block";
    }
    // Past the largest block: steps of 67108848 bytes.
    EXPECT_EQ(UtCPtrListBestNewSize(10000000, 8), 10000000 + 8388606);
    // Other element sizes use the same byte table.
    EXPECT_EQ(UtCPtrListBestNewSize(0, 1), 48);
    EXPECT_EQ(UtCPtrListBestNewSize(47, 1), 48);
    EXPECT_EQ(UtCPtrListBestNewSize(48, 1), 112);
    EXPECT_EQ(UtCPtrListBestNewSize(15, 3), 16);
    EXPECT_EQ(UtCPtrListBestNewSize(16, 3), 37);
    // The product is taken in 32 bits: 2^29 pointers wrap to 0 bytes.
    EXPECT_EQ(UtCPtrListBestNewSize(1L << 29, 8), 6);

    const struct {
        long size, capacity;
    } constructed[] = {{-3, 0}, {0, 0}, {1, 6}, {5, 6}, {6, 14}, {14, 30}};
    for (const auto& c : constructed) {
        UtCPtrList list(c.size);
        EXPECT_EQ(list.capacity(), c.capacity) << c.size;
        EXPECT_EQ(list.count(), 0);
        EXPECT_EQ(list.gap(), 0);
    }
}

TEST(PtrList, AppendingGrowsAlongTheTable) {
    UtCPtrList list;
    std::vector<long> seen;
    for (uintptr_t i = 0; i < 70000; ++i) {
        list.Append(P(i + 1));
        if (seen.empty() || seen.back() != list.capacity()) seen.push_back(list.capacity());
    }
    EXPECT_EQ(seen, std::vector<long>(kCapacities, kCapacities + seen.size()));
    for (long i = 0; i < list.count(); i += 997)
        ASSERT_EQ(list[i], P(static_cast<uintptr_t>(i) + 1));
}

void ExpectSameAs(const UtCPtrList& list, const std::vector<void*>& model) {
    ASSERT_EQ(list.count(), static_cast<long>(model.size()));
    ASSERT_GE(list.gap(), 0);
    ASSERT_LE(list.gap(), list.count());
    ASSERT_GE(list.capacity(), list.count());
    size_t i = 0;
    while (i < model.size() && list[static_cast<long>(i)] == model[i]) ++i;
    ASSERT_EQ(i, model.size()) << "first difference at " << i;
}

// Random edits, each checked against a std::vector doing the same.
TEST(PtrList, RandomEditsMatchAVectorModel) {
    std::mt19937 rng(2024);
    UtCPtrList list;
    std::vector<void*> model;
    uintptr_t next = 1;
    std::set<long> capacities(std::begin(kCapacities), std::end(kCapacities));
    capacities.insert(0);  // before the first insert
    for (int step = 0; step < 20000; ++step) {
        const long n = static_cast<long>(model.size());
        // Indices near the ends and a little outside them, to hit the ignored cases.
        const long i = static_cast<long>(rng() % (n + 5)) - 2;
        void* p = rng() % 8 == 0 ? nullptr : P(next++);
        // Lists of a few hundred items: long enough for several growth steps and far gap moves.
        const unsigned op = n > 600 ? 3 + rng() % 2 : rng() % 10;
        switch (op) {
            case 0:
            case 1:
            case 2:
                list.Insert(i, p);
                if (i >= 0 && i <= n) {
                    model.insert(model.begin() + i, p);
                    ASSERT_EQ(list.gap(), i + 1);
                }
                break;
            case 3:
            case 4:
                list.Remove(i);
                if (i >= 0 && i < n) {
                    model.erase(model.begin() + i);
                    ASSERT_EQ(list.gap(), i);
                }
                break;
            case 5:
                list.Append(p);
                model.push_back(p);
                break;
            case 6:
                list.Prepend(p);
                model.insert(model.begin(), p);
                break;
            case 7: {
                const long got = list.Add(p);
                if (p == nullptr) {
                    ASSERT_EQ(got, -1);
                } else {
                    auto hole = std::find(model.begin(), model.end(), nullptr);
                    if (hole != model.end()) {
                        *hole = p;
                    } else {
                        model.push_back(p);
                    }
                    ASSERT_EQ(got, std::find(model.begin(), model.end(), p) - model.begin());
                }
                break;
            }
            case 8: {
                const long start = n == 0 ? 0 : static_cast<long>(rng() % n);
                const long len = static_cast<long>(rng() % (n - start + 1));
                void** slots = list.array(start, len);
                ASSERT_NE(slots, nullptr);
                for (long k = 0; k < len; ++k) ASSERT_EQ(slots[k], model[start + k]);
                break;
            }
            default:
                if (n >= 2) {
                    const long a = static_cast<long>(rng() % n), b = static_cast<long>(rng() % n);
                    list.Swap(a, b);
                    std::swap(model[a], model[b]);
                }
                if (rng() % 50 == 0) {
                    list.Compress();
                    ASSERT_EQ(list.gap(), list.count());
                }
        }
        ExpectSameAs(list, model);
        ASSERT_EQ(capacities.count(list.capacity()), 1u) << list.capacity();
        if (step % 97 == 0 && !model.empty()) {
            void* probe = model[rng() % model.size()];
            ASSERT_EQ(list.IndexOf(probe),
                      std::find(model.begin(), model.end(), probe) - model.begin());
        }
    }
}

TEST(PtrList, EdgeCasesOfInsertAndRemove) {
    // A full list grows for an insert at count + 1, which is then ignored.
    UtCPtrList full(5);
    for (uintptr_t i = 1; i <= 6; ++i) full.Append(P(i));
    ASSERT_EQ(full.capacity(), 6);
    full.Insert(7, P(99));
    EXPECT_EQ(full.capacity(), 14);
    EXPECT_EQ(full.count(), 6);
    EXPECT_EQ(full.IndexOf(P(99)), -1);

    UtCPtrList one;
    one.Append(P(1));
    one.Remove(0);
    EXPECT_EQ(one.count(), 0);
    EXPECT_EQ(one.gap(), 0);
    one.Remove(0);
    EXPECT_EQ(one.count(), 0);

    // array() across the gap closes it over the range; past the list it refuses.
    UtCPtrList list;
    for (uintptr_t i = 0; i < 10; ++i) list.Append(P(i + 1));
    list.Insert(3, P(100));  // gap at 4
    void** range = list.array(2, 5);
    ASSERT_NE(range, nullptr);
    EXPECT_EQ(list.gap(), 7);
    EXPECT_EQ(range[1], P(100));
    EXPECT_EQ(range[4], P(6));
    EXPECT_EQ(list.array(8, 4), nullptr);
    EXPECT_EQ(list.array(-1, 1), nullptr);
    EXPECT_EQ(*list.array(10, 1), P(10)) << "behind the gap: the slot in the back part";

    // Add reuses the first null item; AddUnique finds what is there.
    UtCPtrList holes;
    holes.Append(P(1));
    holes.Append(nullptr);
    holes.Append(nullptr);
    EXPECT_EQ(holes.Add(P(2)), 1);
    EXPECT_EQ(holes.AddUnique(P(1)), 0);
    EXPECT_EQ(holes.AddUnique(P(3)), 2);
    EXPECT_EQ(holes.AddUnique(P(4)), 3);
    EXPECT_EQ(holes.Add(nullptr), -1);
    EXPECT_TRUE(holes.Contains(P(4)));
    EXPECT_FALSE(holes.Contains(P(5)));
}

TEST(PtrList, InvalidIndexReadsNullAndIsReported) {
    UtCPtrList list;
    for (uintptr_t i = 1; i <= 3; ++i) list.Append(P(i));
    kbase_test::DiagCapture capture;
    EXPECT_EQ(list.item(3), nullptr);
    list[-1] = P(77);  // writes the dummy slot only
    EXPECT_EQ(list[-1], nullptr) << "the dummy slot is cleared on every use";
    const UtCPtrList& constant = list;
    EXPECT_EQ(constant.item(1000), nullptr);
    ASSERT_EQ(capture.reports().size(), 4u);
    const auto& r = capture.reports()[0];
    EXPECT_EQ(r.module, "UtC_ptrlst");
    EXPECT_EQ(r.line, 619);
    EXPECT_EQ(r.function, "UtCPtrList::itemInvalid_");
    EXPECT_EQ(r.level, 2);
    EXPECT_EQ(r.message, "invalid index=3 count=3");
    EXPECT_EQ(capture.reports()[1].message, "invalid index=-1 count=3");
    EXPECT_EQ(capture.reports()[3].message, "invalid index=1000 count=3");
    EXPECT_EQ(list.count(), 3);
    EXPECT_EQ(list.IndexOf(P(77)), -1);
}

TEST(PtrList, RefusedGrowthLeavesTheListAndSaysSoOnStandardError) {
#ifdef _WIN32
    GTEST_SKIP() << "a program's own operator new[] does not reach into a DLL on Windows";
#endif
    if (!RefusalWorks()) {
        GTEST_SKIP() << "operator new[] (nothrow) is replaced by a memory checker; under valgrind "
                        "run with --soname-synonyms=somalloc=nouseroverride";
    }
    UtCPtrList list(1);
    for (uintptr_t i = 1; i <= 6; ++i) list.Append(P(i));
    testing::internal::CaptureStderr();
    {
        RefuseArrays refuse;
        list.Insert(2, P(9));
        list.Append(P(10));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "no memory for realloc in UtCPtrList::Insert\nInsert at index 2 not possible.\n"
              "no memory for realloc in UtCPtrList::Insert\nInsert at index 6 not possible.\n");
    EXPECT_EQ(list.count(), 6);
    EXPECT_EQ(list.capacity(), 6);
    for (long i = 0; i < 6; ++i) EXPECT_EQ(list[i], P(static_cast<uintptr_t>(i) + 1));

    UtCPtrList target;
    target.Append(P(5));
    {
        RefuseArrays refuse;
        UtCPtrList empty(5);
        EXPECT_EQ(empty.capacity(), 0);
        UtCPtrList copy(list);
        EXPECT_EQ(copy.count(), 0);
        target = list;
        EXPECT_EQ(target.count(), 1) << "a refused assignment keeps the old contents";
    }
    UtCPtrList copy(list);
    list[0] = P(42);
    EXPECT_EQ(copy[0], P(1)) << "copies do not share the array";
    const UtCPtrList& same = copy;
    copy = same;
    EXPECT_EQ(copy.count(), 6);
}

TEST(PtrListDeathTest, RangeErrorAborts) {
    EXPECT_DEATH(UtCPtrListRangeError(42), "internal error: list index 42 out of range");
}

struct Keyed {
    int key;
    int order;
};
int ByKey(const void* a, const void* b) {
    return static_cast<const Keyed*>(a)->key - static_cast<const Keyed*>(b)->key;
}
class ByKeyComparer : public UtCPtrListComparer {
  public:
    int Compare(const void* a, const void* b) const override { return ByKey(a, b); }
};

// A comparison that answers differently from call to call (as one whose text conversion runs
// out of memory now and then) or asymmetrically must not make Sort leave the list's slots: the
// list keeps exactly its items. Sizes below the merge's run length (insertion only, as without
// memory for the merge buffer) and above it.
int Flaky(const void*, const void*) {
    static unsigned calls = 0;
    ++calls;
    return (calls * 2654435761u >> 7) % 3 == 0 ? -1 : 1;
}
int AlwaysLess(const void*, const void*) {
    return -1;
}

TEST(PtrList, SortStaysInsideTheListWhateverTheComparisonAnswers) {
    for (const long n : {2L, 15L, 17L, 100L, 1000L}) {
        std::vector<Keyed> items(static_cast<size_t>(n));
        UtCPtrList list;
        for (long i = 0; i < n; ++i) {
            items[static_cast<size_t>(i)] = {static_cast<int>(i), static_cast<int>(i)};
            list.Append(&items[static_cast<size_t>(i)]);
        }
        for (UtCPtrListCompareFunc compare : {Flaky, AlwaysLess}) {
            list.Sort(compare);
            std::vector<int> keys;
            for (long i = 0; i < list.count(); ++i)
                keys.push_back(static_cast<const Keyed*>(list[i])->key);
            std::sort(keys.begin(), keys.end());
            ASSERT_EQ(static_cast<long>(keys.size()), n);
            for (long i = 0; i < n; ++i) ASSERT_EQ(keys[static_cast<size_t>(i)], i) << n;
        }
    }
}

TEST(PtrList, SortIsStableAndBSearchFindsTheFirstOfEqualItems) {
    std::mt19937 rng(5);
    std::vector<Keyed> items(500);
    for (int i = 0; i < 500; ++i) items[i] = {static_cast<int>(rng() % 40) * 2, i};
    for (int pass = 0; pass < 2; ++pass) {
        UtCPtrList list;
        for (Keyed& k : items) list.Insert(list.count() / 2, &k);  // leaves the gap in the middle
        std::vector<void*> expected;
        for (long i = 0; i < list.count(); ++i) expected.push_back(list[i]);
        std::stable_sort(expected.begin(), expected.end(),
                         [](const void* a, const void* b) { return ByKey(a, b) < 0; });
        if (pass == 0) {
            list.Sort(ByKey);
        } else {
            list.Sort(ByKeyComparer());
        }
        ExpectSameAs(list, expected);
        list.Insert(250, list[250]);  // move the gap into the sorted list before searching
        list.Remove(250);
        for (int key = -1; key <= 81; ++key) {
            Keyed probe{key, 0};
            const long at =
                pass == 0 ? list.bSearch(&probe, ByKey) : list.bSearch(&probe, ByKeyComparer());
            long first = -1;
            for (long i = 0; i < list.count() && first < 0; ++i) {
                if (static_cast<const Keyed*>(list[i])->key == key) first = i;
            }
            ASSERT_EQ(at, first) << key;
        }
    }
}

TEST(PtrList, WholeListOperations) {
    UtCPtrList a;
    for (uintptr_t i = 1; i <= 5; ++i) a.Append(P(i));
    a.Insert(2, P(10));  // gap inside
    a.Turn();
    const std::vector<void*> turned = {P(5), P(4), P(3), P(10), P(2), P(1)};
    ExpectSameAs(a, turned);
    a.AppendList(a);
    ASSERT_EQ(a.count(), 12);
    EXPECT_EQ(a[6], P(5));
    EXPECT_EQ(a[11], P(1));
    UtCPtrList b;
    b.Append(P(7));
    a.SwapList(b);
    EXPECT_EQ(a.count(), 1);
    EXPECT_EQ(b.count(), 12);
    a.Swap(0, 5);  // outside: ignored
    EXPECT_EQ(a[0], P(7));
    b.RemoveAll();
    EXPECT_EQ(b.count(), 0);
    EXPECT_EQ(b.capacity(), 14) << "the array stays";
}

TEST(PtrList, IteratorWalksRemovesAndWrites) {
    UtCPtrList list;
    for (uintptr_t i = 0; i < 10; ++i) list.Append(P(i));
    UtCPtrListIter it(list);
    for (it.reset(); it.more(); ++it) {
        if (reinterpret_cast<uintptr_t>(it.cur()) % 2 == 0) it.RemoveCur();
    }
    ExpectSameAs(list, {P(1), P(3), P(5), P(7), P(9)});
    EXPECT_TRUE(it.end());
    EXPECT_EQ(it.first(), P(1));
    EXPECT_EQ(it.next(), P(3));
    EXPECT_EQ(it.refCounter(), 1);
    it.curRef() = P(33);
    EXPECT_EQ(list[1], P(33));
    EXPECT_EQ(it.last(), P(9));
    EXPECT_EQ(it.next(), nullptr);
    EXPECT_FALSE(it.more());
    it.resetEnd();
    EXPECT_EQ(it.cur(), P(9));
    it.first();
    it.RemoveCur();  // the first item: the next step reaches the new first
    EXPECT_EQ(it.next(), P(33));
}

}  // namespace
