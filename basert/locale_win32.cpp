// The user's locale on Windows: the ANSI code page and the user's decimal separator.
#include <windows.h>

#include "basert/internal/locale.h"

unsigned short BrLocaleCodePage() {
    const UINT acp = GetACP();
    return acp > 0 && acp < 65535 ? static_cast<unsigned short>(acp) : 1252;
}

char BrLocaleDecimalSeparator() {
    wchar_t sep[8] = {};
    const int n = GetLocaleInfoEx(LOCALE_NAME_USER_DEFAULT, LOCALE_SDECIMAL, sep, 8);
    // n counts the terminator; a separator of more than one character, or beyond ASCII, cannot be
    // one char of every code page, so the point stands in for it.
    if (n == 2 && sep[0] > 0x20 && sep[0] < 0x7F) return static_cast<char>(sep[0]);
    return '.';
}
