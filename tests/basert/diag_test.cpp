#include <gtest/gtest.h>

#include "basert/diag.h"
#include "test_support.h"

namespace {

TEST(Diagnostics, HandlerReceivesEveryFieldAndIsRestored) {
    const uint64_t before = DebugReportCount();
    {
        kbase_test::DiagCapture capture;
        DebugAssert("OB_method", 439, "ObCreateParam", 31, "error by create", "(Self == NULL)");
        DebugAssertInv("ObObject", 12, "ObObject::Create", 7, "unknown objectclass", "Class", 2000);
        ASSERT_EQ(capture.reports().size(), 2u);
        const auto& a = capture.reports()[0];
        EXPECT_EQ(a.module, "OB_method");
        EXPECT_EQ(a.line, 439);
        EXPECT_EQ(a.function, "ObCreateParam");
        EXPECT_EQ(a.level, 31);
        EXPECT_EQ(a.message, "error by create");
        EXPECT_EQ(a.expression, "(Self == NULL)");
        EXPECT_FALSE(a.hasValue);
        const auto& b = capture.reports()[1];
        EXPECT_TRUE(b.hasValue);
        EXPECT_EQ(b.value, 2000);
        EXPECT_EQ(b.expression, "Class");
    }
    EXPECT_EQ(DebugReportCount(), before + 2);
    // Nested captures: the inner one sees its report, the outer one is handed back intact.
    kbase_test::DiagCapture outer;
    {
        kbase_test::DiagCapture inner;
        DebugAssert(nullptr, 1, nullptr, 0, nullptr, nullptr);
        ASSERT_EQ(inner.reports().size(), 1u);
        EXPECT_EQ(inner.reports()[0].module, "");
    }
    DebugAssert("m", 2, "f", 1, "x", "y");
    EXPECT_EQ(outer.reports().size(), 1u);
}

}  // namespace
