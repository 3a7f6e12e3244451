// The user's locale on POSIX: code page from LC_CTYPE's character set, separator from LC_NUMERIC.
#include <langinfo.h>
#include <locale.h>
#include <strings.h>

#include "basert/internal/locale.h"

namespace {

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

}  // namespace

unsigned short BrLocaleCodePage() {
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

char BrLocaleDecimalSeparator() {
    char sep = '.';
    if (locale_t loc = UserLocale(LC_NUMERIC_MASK); loc != static_cast<locale_t>(nullptr)) {
        const char* r = nl_langinfo_l(RADIXCHAR, loc);
        // A multibyte separator (rare) cannot be one char; keep the point then.
        if (r != nullptr && r[0] != '\0' && r[1] == '\0') sep = r[0];
        freelocale(loc);
    }
    return sep;
}
