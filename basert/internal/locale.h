// What each back end reads from the user's locale; locale.cpp adds the environment overrides,
// the host overrides and the cache.
#pragma once

// The Windows code-page number of the user's character set (1252 when it is not known).
unsigned short BrLocaleCodePage();
// The user's decimal separator, one byte ('.' when the locale's is longer).
char BrLocaleDecimalSeparator();
