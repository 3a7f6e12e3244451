#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "basert/callbacks.h"
#include "test_support.h"

namespace {

// Each call is written as "<id>:<mask>:<record>".
struct Log {
    std::vector<std::string> calls;
    CbCallbackList* list = nullptr;
};

void Record(void* user, int32_t id, uint32_t mask, void* record) {
    static_cast<Log*>(user)->calls.push_back(std::to_string(id) + ":" + std::to_string(mask) + ":" +
                                             (record ? static_cast<const char*>(record) : "-"));
}
void Other(void* user, int32_t id, uint32_t mask, void* record) {
    Record(user, id + 100, mask, record);
}

class CallbackList : public ::testing::Test {
protected:
    void SetUp() override { CbCallbacksInit(&list_); }
    void TearDown() override { CbCallbacksFree(&list_); }
    CbCallbackList list_{};
    Log log_;
};

TEST_F(CallbackList, PerformCallsSwitchedOnListenersInRegistrationOrder) {
    Log second;
    ASSERT_EQ(CbCallbackAdd(&list_, Record, &log_, 1, 0, 1, 0x1), kCbOk);
    ASSERT_EQ(CbCallbackAdd(&list_, Record, &second, 2, 0, 1, 0x3), kCbOk);
    ASSERT_EQ(CbCallbackAdd(&list_, Other, &log_, 3, 0, 0, 0xFFFF), kCbOk);  // added switched off
    ASSERT_EQ(CbCallbackAdd(&list_, Record, &log_, 4, 0, 1, 0x800), kCbOk);
    char rec[] = "r";
    EXPECT_EQ(CbCallbackPerformByMask(&list_, 0x1, rec), 2);
    EXPECT_EQ(CbCallbackPerformByMask(&list_, 0x802, nullptr), 2);
    EXPECT_EQ(CbCallbackPerformByMask(&list_, 0x4, nullptr), 0);
    EXPECT_EQ(log_.calls, (std::vector<std::string>{"1:1:r", "4:2050:-"}));
    EXPECT_EQ(second.calls, (std::vector<std::string>{"2:1:r", "2:2050:-"}));

    const struct {
        uint32_t mask;
        bool any;
    } any[] = {{0x1, true}, {0x800, true}, {0x4, false}, {0x1000, false}, {0, false}};
    for (const auto& a : any) EXPECT_EQ(CbCallbackAny(&list_, a.mask), a.any) << a.mask;
    ASSERT_EQ(CbCallbackOnOff(&list_, Other, &log_, 1), kCbOk);
    EXPECT_TRUE(CbCallbackAny(&list_, 0x1000));
    ASSERT_EQ(CbCallbackOnOff(&list_, Record, &log_, 0), kCbOk) << "the first match: id 1";
    log_.calls.clear();
    CbCallbackPerformByMask(&list_, 0xFFFF, nullptr);
    EXPECT_EQ(log_.calls, (std::vector<std::string>{"103:65535:-", "4:65535:-"}));
}

TEST_F(CallbackList, RemoveFindsTheFirstMatchAndBadArgumentsAreRefused) {
    ASSERT_EQ(CbCallbackAdd(&list_, Record, &log_, 1, 0, 1, 1), kCbOk);
    ASSERT_EQ(CbCallbackAdd(&list_, Record, &log_, 2, 0, 1, 1), kCbOk);
    EXPECT_EQ(CbCallbackRemove(&list_, Record, &log_), kCbOk);
    CbCallbackPerformByMask(&list_, 1, nullptr);
    EXPECT_EQ(log_.calls, (std::vector<std::string>{"2:1:-"}));
    EXPECT_EQ(CbCallbackRemove(&list_, Record, nullptr), kCbNotFound) << "user data must match";
    EXPECT_EQ(CbCallbackRemove(&list_, Other, &log_), kCbNotFound);
    EXPECT_EQ(CbCallbackOnOff(&list_, Other, &log_, 1), kCbNotFound);
    EXPECT_EQ(CbCallbackAdd(&list_, nullptr, &log_, 0, 0, 1, 1), kCbBadArgument);
    EXPECT_EQ(CbCallbackAdd(nullptr, Record, &log_, 0, 0, 1, 1), kCbBadArgument);
    EXPECT_EQ(CbCallbackAdd(&list_, Record, &log_, 0, 0x2, 1, 1), kCbBadArgument) << "unknown flag";
    EXPECT_EQ(CbCallbackRemove(nullptr, Record, &log_), kCbNotFound);
    EXPECT_FALSE(CbCallbackAny(nullptr, 1));
    EXPECT_EQ(CbCallbackPerformByMask(nullptr, 1, nullptr), 0);
}

// Callbacks that change the list they are called from.
Log* g_log;
Log g_added;
void RemovesOther(void* user, int32_t id, uint32_t mask, void* record) {
    Record(user, id, mask, record);
    CbCallbackRemove(g_log->list, Other, g_log);
}
void AddsOne(void* user, int32_t id, uint32_t mask, void* record) {
    Record(user, id, mask, record);
    ASSERT_EQ(CbCallbackAdd(g_log->list, Record, &g_added, 99, 0, 1, 1), kCbOk);
}
void Nests(void* user, int32_t id, uint32_t mask, void* record) {
    Record(user, id, mask, record);
    if (mask == 1) CbCallbackPerformByMask(g_log->list, 2, nullptr);
}

TEST_F(CallbackList, CallbacksMayChangeTheListWhilePerforming) {
    g_log = &log_;
    log_.list = &list_;
    ASSERT_EQ(CbCallbackAdd(&list_, Nests, &log_, 1, 0, 1, 0x3), kCbOk);
    ASSERT_EQ(CbCallbackAdd(&list_, Record, &log_, 2, kCbOnce, 1, 0x3), kCbOk);
    ASSERT_EQ(CbCallbackAdd(&list_, RemovesOther, &log_, 3, 0, 1, 0x1), kCbOk);
    ASSERT_EQ(CbCallbackAdd(&list_, AddsOne, &log_, 4, kCbOnce, 1, 0x1), kCbOk);
    ASSERT_EQ(CbCallbackAdd(&list_, Other, &log_, 5, 0, 1, 0x1), kCbOk);
    // 1 nests a perform of mask 2, which calls 1 again and the one-shot 2; the outer perform then
    // skips 2 (gone), 3 removes Other before its turn, 4 adds an entry that waits for next time.
    EXPECT_EQ(CbCallbackPerformByMask(&list_, 1, nullptr), 3);
    EXPECT_EQ(log_.calls, (std::vector<std::string>{"1:1:-", "1:2:-", "2:2:-", "3:1:-", "4:1:-"}));
    log_.calls.clear();
    EXPECT_EQ(CbCallbackPerformByMask(&list_, 1, nullptr), 3) << "1, 3 and the added entry";
    EXPECT_EQ(log_.calls, (std::vector<std::string>{"1:1:-", "1:2:-", "3:1:-"}));
    EXPECT_EQ(g_added.calls, (std::vector<std::string>{"99:1:-"}));
    EXPECT_EQ(CbCallbackRemove(&list_, Record, &g_added), kCbOk);
}

TEST_F(CallbackList, RefusedGrowthAddsNothing) {
    for (int i = 0; i < 4; ++i) ASSERT_EQ(CbCallbackAdd(&list_, Record, &log_, i, 0, 1, 1), kCbOk);
    {
        kbase_test::FailNthAllocation fail(1);
        EXPECT_EQ(CbCallbackAdd(&list_, Record, &log_, 9, 0, 1, 1), kUtMemNoMemory);
    }
    EXPECT_EQ(CbCallbackPerformByMask(&list_, 1, nullptr), 4);
    EXPECT_EQ(CbCallbackAdd(&list_, Record, &log_, 9, 0, 1, 1), kCbOk);
    EXPECT_EQ(CbCallbackPerformByMask(&list_, 1, nullptr), 5);
}

}  // namespace
