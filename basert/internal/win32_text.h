// UTF-8 <-> UTF-16 for the Win32 back end's own calls (paths, environment, shell).
#pragma once

#include <string>

// The UTF-16 form of a NUL-terminated UTF-8 text; false when it is not valid UTF-8.
bool BrWin32Widen(const char* utf8, std::wstring* out);
// The UTF-8 form of n UTF-16 units (n < 0: up to the NUL). A lone surrogate becomes U+FFFD.
std::string BrWin32Narrow(const wchar_t* text, int n = -1);
