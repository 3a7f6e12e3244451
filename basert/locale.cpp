#include "basert/locale.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "basert/internal/locale.h"

namespace {

constexpr unsigned short kUnknown = 0;

unsigned short g_hostCodePage = kUnknown;
unsigned short g_localeCodePage = kUnknown;
int g_decimalType = kOsDecimalSystem;
char g_localeSeparator = 0;

unsigned short CodePageFromEnvironment() {
    if (const char* v = std::getenv("KBASE_CODEPAGE"); v != nullptr && *v != '\0') {
        char* end = nullptr;
        const long n = std::strtol(v, &end, 10);
        if (*end == '\0' && n > 0 && n < 65535 && n != 256) return static_cast<unsigned short>(n);
    }
    return BrLocaleCodePage();
}

char SeparatorFromEnvironment() {
    if (const char* v = std::getenv("KBASE_DECIMAL_SEPARATOR"); v != nullptr && v[0] != '\0') {
        return v[0];
    }
    return BrLocaleDecimalSeparator();
}

}  // namespace

unsigned short OsUserCodePageBySystemDflt() {
    if (g_hostCodePage != kUnknown) return g_hostCodePage;
    if (g_localeCodePage == kUnknown) g_localeCodePage = CodePageFromEnvironment();
    return g_localeCodePage;
}

void OsUserSetCodePageBySystemDflt(unsigned short codePage) {
    g_hostCodePage = (codePage == 256 || codePage == 65535) ? kUnknown : codePage;
}

int OsUserGetDecimalType() { return g_decimalType; }

void OsUserSetDecimalType(int type) {
    g_decimalType = (type == kOsDecimalPoint || type == kOsDecimalComma) ? type : kOsDecimalSystem;
}

char OsUserGetActDecimalSeparator() {
    switch (g_decimalType) {
        case kOsDecimalPoint: return '.';
        case kOsDecimalComma: return ',';
        default: break;
    }
    if (g_localeSeparator == 0) g_localeSeparator = SeparatorFromEnvironment();
    return g_localeSeparator;
}

double UtRoundR(double value, int digits) {
    if (!std::isfinite(value)) return value;
    if (digits > 15) digits = 15;
    if (digits < -15) digits = -15;
    const double scale = std::pow(10.0, std::abs(digits));
    const double scaled = digits >= 0 ? value * scale : value / scale;
    // Past 2^52 a double has no fraction left to round.
    if (std::fabs(scaled) >= 4503599627370496.0) return value;
    // The nudge of a few ulps lets 1.005 (stored as 1.00499999...) round up as a person expects.
    const double nudged = scaled + std::copysign(std::fabs(scaled) * 4.0 * 2.220446049250313e-16, scaled);
    const double r = std::round(nudged);
    return digits >= 0 ? r / scale : r * scale;
}
