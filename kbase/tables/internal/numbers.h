// Reading cells and tokens as numbers, with exactly the results of UtCString::Convert but without
// its copies for the common case of ASCII text. Not part of the exported interface.
#pragma once

#include <cstddef>

#include "kbase/text/UtCString.h"

namespace kbase_tables_internal {

enum class Parse { kNo, kYes, kUndecided };

// p[0..n) is the 8-bit form of a text (no terminator needed). For ASCII text (and a system code
// page that keeps ASCII as it is) the result is that of UtCString::Convert(double&) /
// (long long&) on that text; kUndecided when the text holds other bytes or a NUL (the caller
// falls back to Convert).
Parse AsciiToDouble(const char* p, size_t n, double& value);
Parse AsciiToInt64(const char* p, size_t n, long long& value);

// UtCString(p, n, e, e).Convert(double&) / (long long&), without the string for ASCII text. Like
// the string, the text ends at a NUL.
size_t UpToNul(const char* p, size_t n);
bool TextToDouble(const char* p, size_t n, eUtEncodingType e, double& value);
bool TextToInt64(const char* p, size_t n, eUtEncodingType e, long long& value);

// Whether the system code page maps every ASCII byte to itself, so that the 8-bit form of an
// ASCII text is the text itself. Read once, like the system encoding.
bool SystemKeepsAscii();

// UtCString::Convert(double&), fast for ASCII text.
bool CellToDouble(const UtCString& s, double& value);
// atof over the 8-bit form of s: the longest leading number, 0 when there is none.
double CellToDoubleLenient(const UtCString& s);

// The text's bytes past a UTF-8 mark and their count (for any encoding but UTF-16).
const char* Bytes(const UtCString& s, size_t& n);

}  // namespace kbase_tables_internal
