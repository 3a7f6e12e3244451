// The store before and right after its first ObInit; a process of its own, since ObInit acts once.
#include <gtest/gtest.h>

#include "kbase/object_store/ObStore.h"

namespace {

int32_t Detail() {
    int32_t d = -1;
    ObGetUpdateDetail(&d);
    return d;
}

TEST(ObInitFresh, FirstCallSetsEverythingToOneAndLaterCallsChangeNothing) {
    EXPECT_EQ(ObGetPropagateUpdate(), 0) << "nothing is set before ObInit";
    // What is defined before the first ObInit is dropped by it.
    ASSERT_EQ(ObDefineClass(7, "Early", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr, nullptr, nullptr, nullptr),
              0);
    static int s_early;
    ASSERT_EQ(ObCallbackAdd([](void*, int32_t, uint32_t, void*) { ++s_early; }, nullptr, 0, 1), 0);
    ASSERT_EQ(ObInit(), 0);
    EXPECT_EQ(ObGetClassName(7), nullptr);
    EXPECT_EQ(ObGetPropagateUpdate(), 1);
    EXPECT_EQ(ObGetPropagateDestroy(), 1);
    EXPECT_EQ(ObGetPropagateUser(), 1);
    EXPECT_EQ(Detail(), 1);

    static int32_t s_inside;
    ASSERT_EQ(ObDefineClass(5, "Five", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr,
                            [](_ObObject*) {
                                ObGetUpdateDetail(&s_inside);
                                return OB_OK;
                            },
                            nullptr, nullptr, nullptr),
              0);
    _ObObject* five = ObCreate(5);
    ASSERT_NE(five, nullptr);
    // The detail 1 from ObInit has bit 0 set: the given bits are added to it, and afterwards it
    // is restored to 0, not to 1.
    EXPECT_EQ(ObUpdateWithDetail(five, 4), OB_OK);
    EXPECT_EQ(s_inside, 5);
    EXPECT_EQ(Detail(), 0);

    static int s_destroyed;
    ASSERT_EQ(ObCallbackAdd([](void*, int32_t, uint32_t, void*) { ++s_destroyed; }, nullptr, 0, 1),
              0);
    ObSetPropagateUpdate(0);
    ObSetUpdateDetail(8);
    EXPECT_EQ(ObInit(), 0);
    EXPECT_EQ(ObGetPropagateUpdate(), 0) << "a second ObInit changes nothing";
    EXPECT_EQ(Detail(), 8);
    EXPECT_STREQ(ObGetClassName(5), "Five");
    EXPECT_EQ(ObDestroy(five), OB_OK);
    EXPECT_EQ(s_destroyed, 1) << "the callback list was kept";
    EXPECT_EQ(s_early, 0);
}

}  // namespace
