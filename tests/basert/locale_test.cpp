#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "basert/locale.h"

namespace {

struct RoundCase {
    double value;
    int digits;
    double expected;
};

TEST(UtRoundR, RoundsHalvesAwayFromZero) {
    const RoundCase cases[] = {
        {2.5, 0, 3.0},      {-2.5, 0, -3.0},     {0.125, 2, 0.13},  {1.005, 2, 1.01},
        {2.675, 2, 2.68},   {-1.005, 2, -1.01},  {0.1, 3, 0.1},     {1234.5, -1, 1230.0},
        {1235.0, -1, 1240.0}, {1e300, 3, 1e300}, {3.0, 0, 3.0},     {0.0, 5, 0.0},
        {123456789.123456789, 4, 123456789.1235},
    };
    for (const auto& c : cases) {
        EXPECT_DOUBLE_EQ(UtRoundR(c.value, c.digits), c.expected) << c.value << " @" << c.digits;
    }
    EXPECT_TRUE(std::isnan(UtRoundR(NAN, 2)));
    EXPECT_TRUE(std::isinf(UtRoundR(INFINITY, 2)));
}

TEST(Locale, DecimalTypeSelectsTheSeparator) {
    EXPECT_EQ(OsUserGetDecimalType(), kOsDecimalSystem);
    OsUserSetDecimalType(kOsDecimalComma);
    EXPECT_EQ(OsUserGetActDecimalSeparator(), ',');
    OsUserSetDecimalType(kOsDecimalPoint);
    EXPECT_EQ(OsUserGetActDecimalSeparator(), '.');
    OsUserSetDecimalType(42);
    EXPECT_EQ(OsUserGetDecimalType(), kOsDecimalSystem);
    const char* env = std::getenv("KBASE_DECIMAL_SEPARATOR");
    if (env != nullptr && *env != '\0') {
        EXPECT_EQ(OsUserGetActDecimalSeparator(), env[0]);
    }
}

TEST(Locale, CodePageFollowsEnvironmentAndHostOverride) {
    const char* env = std::getenv("KBASE_CODEPAGE");
    if (env != nullptr) {
        EXPECT_EQ(OsUserCodePageBySystemDflt(), std::atoi(env));
    }
    OsUserSetCodePageBySystemDflt(1250);
    EXPECT_EQ(OsUserCodePageBySystemDflt(), 1250);
    OsUserSetCodePageBySystemDflt(0);
    if (env != nullptr) {
        EXPECT_EQ(OsUserCodePageBySystemDflt(), std::atoi(env));
    }
    EXPECT_NE(OsUserCodePageBySystemDflt(), 0);
}

}  // namespace
