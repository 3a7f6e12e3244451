// The user's locale as the library sees it: system code page, decimal separator, rounding.
//
// Both values are read from the environment once and then cached for the process:
//   KBASE_CODEPAGE=<number>            overrides the system code page (e.g. 1252 or 65001);
//   KBASE_DECIMAL_SEPARATOR=<char>     overrides the locale's decimal separator.
// Otherwise the code page comes from the locale's character set (LC_CTYPE) and the separator from
// LC_NUMERIC of the user's environment (not from the process's current C locale).
#pragma once

#include "basert/export.h"

// The user's system code page as a Windows code-page number: 65001 for a UTF-8 locale, 1252 for
// the plain C/POSIX locale and for Latin-1 locales, the matching Windows number otherwise.
BASERT_API unsigned short OsUserCodePageBySystemDflt();
// Host override of the system code page; 0 returns to the locale's value. Strings cache the value
// they saw first, so a host sets this before it creates any string.
BASERT_API void OsUserSetCodePageBySystemDflt(unsigned short codePage);

// Decimal-separator policy.
constexpr int kOsDecimalSystem = 0;  // follow the user's locale (or KBASE_DECIMAL_SEPARATOR)
constexpr int kOsDecimalPoint = 1;   // always '.'
constexpr int kOsDecimalComma = 2;   // always ','

// The policy in force (kOsDecimalSystem until set).
BASERT_API int OsUserGetDecimalType();
// Sets the policy; an unknown value is treated as kOsDecimalSystem.
BASERT_API void OsUserSetDecimalType(int type);
// The separator that the current policy gives: '.' or ',' (or the locale's own character).
BASERT_API char OsUserGetActDecimalSeparator();

// value rounded to digits decimals, halves away from zero (digits < 0 rounds to tens, hundreds...).
// Values too large to carry a fraction at that precision are returned unchanged.
BASERT_API double UtRoundR(double value, int digits);
