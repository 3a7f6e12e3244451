// Reading cells and tokens as numbers, with exactly the results of UtCString::Convert but without
// its copies for the common case of ASCII text. Not part of the exported interface.
#pragma once

#include <array>
#include <atomic>
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

// The length of p[0..n) up to its first NUL: where a string made of it ends.
size_t UpToNul(const char* p, size_t n);
// UtCString(p, n, e, e).Convert(double&) / (long long&), without the string for ASCII text (a
// text with a NUL goes to the string, which ends there).
bool TextToDouble(const char* p, size_t n, eUtEncodingType e, double& value);
bool TextToInt64(const char* p, size_t n, eUtEncodingType e, long long& value);

// Whether the system code page maps every ASCII byte to itself, so that the 8-bit form of an
// ASCII text is the text itself. Read once, like the system encoding; asked for every field, so
// the answer is kept where an inline test finds it.
extern std::atomic<int> systemKeepsAscii;  // -1 until read
bool ReadSystemKeepsAscii();
inline bool SystemKeepsAscii() {
    const int keeps = systemKeepsAscii.load(std::memory_order_relaxed);
    return keeps >= 0 ? keeps != 0 : ReadSystemKeepsAscii();
}

// The characters strtod can take first: white space, a sign, a digit, a point, "inf", "nan".
inline constexpr std::array<bool, 256> kStartsNumber = [] {
    std::array<bool, 256> t{};
    for (const char* p = "0123456789+-. \t\n\v\f\riInN"; *p != '\0'; ++p) t[static_cast<unsigned char>(*p)] = true;
    return t;
}();

// The shapes of most fields, told in one pass: kWhole, -?digits (at most 18), with its value;
// kReal, -?digits.digits; kWord, a text that begins with an ASCII character no number begins
// with (neither AsciiToInt64 nor AsciiToDouble reads it); kOther, anything else (ask those, also
// for a system code page that does not keep ASCII).
enum class Shape { kWhole, kReal, kWord, kOther };
inline Shape QuickShape(const char* p, size_t n, long long& whole) {
    if (n == 0 || !SystemKeepsAscii()) return Shape::kOther;
    const unsigned char c = static_cast<unsigned char>(p[0]);
    if (c < 0x80 && c != 0 && !kStartsNumber[c]) return Shape::kWord;
    if ((c | 0x20) == 'i' || (c | 0x20) == 'n') {  // only "inf" and "nan" are numbers
        if (n < 3) return Shape::kWord;
        const char word[3] = {static_cast<char>(c | 0x20), static_cast<char>(p[1] | 0x20), static_cast<char>(p[2] | 0x20)};
        const bool special = (word[0] == 'i' && word[1] == 'n' && word[2] == 'f') || (word[0] == 'n' && word[1] == 'a' && word[2] == 'n');
        return special ? Shape::kOther : Shape::kWord;
    }
    const size_t digits = c == '-' ? 1 : 0;
    size_t i = digits;
    long long v = 0;
    while (i < n && static_cast<unsigned>(p[i] - '0') < 10 && i - digits < 18) v = v * 10 + (p[i++] - '0');
    if (i == digits) return Shape::kOther;
    if (i == n) {
        whole = c == '-' ? -v : v;
        return Shape::kWhole;
    }
    while (i < n && static_cast<unsigned>(p[i] - '0') < 10) ++i;
    if (i == n || p[i] != '.' || i + 1 == n) return Shape::kOther;
    for (++i; i < n; ++i) {
        if (static_cast<unsigned>(p[i] - '0') >= 10) return Shape::kOther;
    }
    return Shape::kReal;
}


// UtCString::Convert(double&), fast for ASCII text.
bool CellToDouble(const UtCString& s, double& value);
// atof over the 8-bit form of s: the longest leading number, 0 when there is none.
double CellToDoubleLenient(const UtCString& s);

// The text's bytes past a UTF-8 mark and their count (for any encoding but UTF-16).
const char* Bytes(const UtCString& s, size_t& n);

}  // namespace kbase_tables_internal
