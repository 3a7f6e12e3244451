#include "basert/locale.h"

#include <langinfo.h>
#include <locale.h>
#include <strings.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned short kUnknown = 0;

unsigned short g_hostCodePage = kUnknown;
unsigned short g_localeCodePage = kUnknown;
int g_decimalType = kOsDecimalSystem;
char g_localeSeparator = 0;

struct CharsetName {
    const char* name;
    unsigned short codePage;
};

// Character sets that glibc reports, by the Windows code page with the same repertoire.
constexpr CharsetName kCharsets[] = {
    {"UTF-8", 65001},        {"ANSI_X3.4-1968", 1252}, {"ISO-8859-1", 1252},
    {"ISO-8859-15", 28605},  {"ISO-8859-2", 28592},    {"ISO-8859-5", 28595},
    {"ISO-8859-7", 28597},   {"ISO-8859-9", 28599},    {"KOI8-R", 20866},
    {"EUC-JP", 51932},       {"SHIFT_JIS", 932},       {"EUC-KR", 51949},
    {"GB2312", 936},         {"GBK", 936},             {"GB18030", 54936},
    {"BIG5", 950},           {"CP1252", 1252},         {"CP1251", 1251},
    {"CP1250", 1250},
};

// Reads a locale category of the user's environment without touching the process's C locale.
locale_t UserLocale(int mask) {
    locale_t loc = newlocale(mask, "", static_cast<locale_t>(nullptr));
    if (loc == static_cast<locale_t>(nullptr)) loc = newlocale(mask, "C", static_cast<locale_t>(nullptr));
    return loc;
}

unsigned short CodePageFromEnvironment() {
    if (const char* v = std::getenv("KBASE_CODEPAGE"); v != nullptr && *v != '\0') {
        char* end = nullptr;
        const long n = std::strtol(v, &end, 10);
        if (*end == '\0' && n > 0 && n < 65535 && n != 256) return static_cast<unsigned short>(n);
    }
    unsigned short result = 1252;
    if (locale_t loc = UserLocale(LC_CTYPE_MASK); loc != static_cast<locale_t>(nullptr)) {
        const char* cs = nl_langinfo_l(CODESET, loc);
        for (const CharsetName& c : kCharsets) {
            if (cs != nullptr && strcasecmp(cs, c.name) == 0) {
                result = c.codePage;
                break;
            }
        }
        freelocale(loc);
    }
    return result;
}

char SeparatorFromEnvironment() {
    if (const char* v = std::getenv("KBASE_DECIMAL_SEPARATOR"); v != nullptr && v[0] != '\0') {
        return v[0];
    }
    char sep = '.';
    if (locale_t loc = UserLocale(LC_NUMERIC_MASK); loc != static_cast<locale_t>(nullptr)) {
        const char* r = nl_langinfo_l(RADIXCHAR, loc);
        // A multibyte separator (rare) cannot be one char; keep the point then.
        if (r != nullptr && r[0] != '\0' && r[1] == '\0') sep = r[0];
        freelocale(loc);
    }
    return sep;
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
