#include "kbase/tables/internal/numbers.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace kbase_tables_internal {

namespace {

// Whether strtod can take c (ASCII, not NUL) first.
bool CanStartNumber(unsigned char c) { return kStartsNumber[c]; }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

// Bounds of the text without leading and trailing ' ' (the blanks Convert cuts); false when
// the text holds a byte above 0x7F or a NUL (Convert would stop reading there).
bool AsciiTrim(const char* p, size_t n, size_t& first, size_t& last) {
    for (size_t i = 0; i < n; ++i) {
        const unsigned char c = static_cast<unsigned char>(p[i]);
        if (c > 0x7F || c == 0) return false;
    }
    first = 0;
    while (first < n && p[first] == ' ') ++first;
    last = n;
    while (last > first && p[last - 1] == ' ') --last;
    return true;
}

// Whether a text whose number starts with a letter (after white space and a sign) starts with
// "inf" or "nan", in any case: the only words strtod reads. Texts such as "Innenstadt" are not
// handed to it.
bool MayBeInfOrNan(const char* p, const char* end) {
    while (p < end && IsSpace(*p)) ++p;
    if (p < end && (*p == '+' || *p == '-')) ++p;
    if (p == end || !((*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z'))) return true;
    if (end - p < 3) return false;
    char word[3];
    for (int i = 0; i < 3; ++i) word[i] = static_cast<char>(p[i] | 0x20);
    return std::memcmp(word, "inf", 3) == 0 || std::memcmp(word, "nan", 3) == 0;
}

// -?digits(.digits)?([eE][+-]?digits)? : the shape on which from_chars and strtod agree.
bool PlainDecimal(const char* p, const char* end) {
    if (p < end && *p == '-') ++p;
    const char* digits = p;
    while (p < end && IsDigit(*p)) ++p;
    if (p == digits) return false;
    if (p < end && *p == '.') {
        const char* fraction = ++p;
        while (p < end && IsDigit(*p)) ++p;
        if (p == fraction) return false;
    }
    if (p < end && (*p == 'e' || *p == 'E')) {
        ++p;
        if (p < end && (*p == '+' || *p == '-')) ++p;
        const char* exponent = p;
        while (p < end && IsDigit(*p)) ++p;
        if (p == exponent) return false;
    }
    return p == end;
}

// -?digits(.digits)? with at most 15 significant digits and 22 fraction digits: the value is
// the integer of its digits divided by a power of ten, both exact doubles, so one division
// gives the correctly rounded result (that of strtod). False for any other shape.
bool ShortDecimal(const char* p, const char* end, double& value) {
    static constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const bool negative = p < end && *p == '-';
    if (negative) ++p;
    uint64_t digits = 0;
    int count = 0;
    int fraction = 0;
    const char* start = p;
    while (p < end && IsDigit(*p)) {
        digits = digits * 10 + static_cast<uint64_t>(*p++ - '0');
        if (++count > 15) return false;
    }
    if (p == start) return false;
    if (p < end && *p == '.') {
        const char* fractionStart = ++p;
        while (p < end && IsDigit(*p)) {
            digits = digits * 10 + static_cast<uint64_t>(*p++ - '0');
            if (++count > 15) return false;
        }
        fraction = static_cast<int>(p - fractionStart);
        if (fraction == 0 || fraction > 22) return false;
    }
    if (p != end) return false;
    const double v = static_cast<double>(digits) / kPow10[fraction];
    value = negative ? -v : v;
    return true;
}

// A copy of p[0..n) with a NUL behind it, for strtod and strtoll (which read up to a character
// that cannot continue the number): on the stack for short texts.
class Terminated {
public:
    Terminated(const char* p, size_t n) {
        if (n < sizeof small_) {
            std::memcpy(small_, p, n);
            small_[n] = '\0';
            text_ = small_;
        } else {
            large_.assign(p, n);
            text_ = large_.c_str();
        }
    }
    const char* c_str() const { return text_; }

private:
    char small_[64];
    std::string large_;
    const char* text_;
};

}  // namespace

std::atomic<int> systemKeepsAscii{-1};

bool ReadSystemKeepsAscii() {
    const unsigned e = UtCString::systemEncodingType();
    const bool keeps = e == 65001 || e == 20127 || e == 874 || e == 932 || e == 936 || e == 949 || e == 950 ||
                       (e >= 1250 && e <= 1258) || (e >= 28591 && e <= 28605);
    systemKeepsAscii.store(keeps ? 1 : 0, std::memory_order_relaxed);
    return keeps;
}

Parse AsciiToDouble(const char* p, size_t n, double& value) {
    value = 0.0;
    size_t first = 0;
    size_t last = 0;
    if (!SystemKeepsAscii()) return Parse::kUndecided;
    // Text keys are common: one that starts with an ASCII character no number starts with is no
    // number, whatever bytes follow (that character stays itself in the system code page).
    while (first < n && p[first] == ' ') ++first;
    const unsigned char c = first < n ? static_cast<unsigned char>(p[first]) : 0x80;
    if (c < 0x80 && c != 0 && !CanStartNumber(c)) return Parse::kNo;
    if (!AsciiTrim(p, n, first, last)) return Parse::kUndecided;
    if (first == last) return Parse::kNo;
    const char* begin = p + first;
    const char* end = p + last;
    if (ShortDecimal(begin, end, value)) return Parse::kYes;
    if (PlainDecimal(begin, end)) {
        const auto r = std::from_chars(begin, end, value);
        if (r.ec == std::errc() && r.ptr == end) return Parse::kYes;
        // Out of range: strtod decides (it gives HUGE_VAL or 0 and succeeds).
    }
    // strtod takes white space, a sign, a digit, a point, "inf" or "nan" first; any other first
    // character is no number, and text keys are common, so strtod is not asked.
    if (!CanStartNumber(static_cast<unsigned char>(*begin)) || !MayBeInfOrNan(begin, end)) return Parse::kNo;
    // strtod stops exactly at the trimmed end for a number; the copy keeps it inside the text.
    const Terminated text(begin, static_cast<size_t>(end - begin));
    char* stop = nullptr;
    const double v = std::strtod(text.c_str(), &stop);
    if (stop == text.c_str() || stop != text.c_str() + (end - begin)) return Parse::kNo;
    value = v;
    return Parse::kYes;
}

Parse AsciiToInt64(const char* p, size_t n, long long& value) {
    value = 0;
    size_t first = 0;
    size_t last = 0;
    if (!SystemKeepsAscii()) return Parse::kUndecided;
    // An ASCII character that strtoll cannot start with (after the blanks) decides at once.
    while (first < n && p[first] == ' ') ++first;
    const unsigned char c = first < n ? static_cast<unsigned char>(p[first]) : 0x80;
    if (c < 0x80 && c != 0 && !IsDigit(static_cast<char>(c)) && !IsSpace(static_cast<char>(c)) && c != '-' && c != '+') {
        return Parse::kNo;
    }
    if (!AsciiTrim(p, n, first, last)) return Parse::kUndecided;
    // strtoll reads [white space][sign]digits; the text must end there.
    const char* begin = p + first;
    const char* end = p + last;
    const char* q = begin;
    while (q < end && IsSpace(*q)) ++q;
    const bool negative = q < end && *q == '-';
    if (q < end && (*q == '-' || *q == '+')) ++q;
    const char* digits = q;
    while (q < end && IsDigit(*q)) ++q;
    if (q == digits || q != end) return Parse::kNo;
    if (end - digits <= 18) {
        long long v = 0;
        for (const char* d = digits; d < end; ++d) v = v * 10 + (*d - '0');
        value = negative ? -v : v;
        return Parse::kYes;
    }
    // Longer: strtoll gives the value, clamped at the ends of the range (still a success).
    const Terminated text(begin, static_cast<size_t>(end - begin));
    errno = 0;
    value = std::strtoll(text.c_str(), nullptr, 10);
    return Parse::kYes;
}

// The string class ends a text at its first NUL: so do the conversions of byte ranges.
size_t UpToNul(const char* p, size_t n) {
    const void* nul = std::memchr(p, 0, n);
    return nul != nullptr ? static_cast<size_t>(static_cast<const char*>(nul) - p) : n;
}

bool TextToDouble(const char* p, size_t n, eUtEncodingType e, double& value) {
    const Parse r = AsciiToDouble(p, n, value);
    if (r != Parse::kUndecided) return r == Parse::kYes;
    return UtCString(p, static_cast<int>(n), e, e).Convert(value);
}

bool TextToInt64(const char* p, size_t n, eUtEncodingType e, long long& value) {
    const Parse r = AsciiToInt64(p, n, value);
    if (r != Parse::kUndecided) return r == Parse::kYes;
    return UtCString(p, static_cast<int>(n), e, e).Convert(value);
}

const char* Bytes(const UtCString& s, size_t& n) {
    const char* p = s.isUtf8EncodingType() ? s.stringSkipBOM() : s.ptr();
    n = s.isAnsiEncodingType() ? static_cast<size_t>(s.GetLength()) : std::strlen(p);
    return p;
}

bool CellToDouble(const UtCString& s, double& value) {
    if (!s.isUtf16EncodingType()) {
        size_t n = 0;
        const char* p = Bytes(s, n);
        if (p[n] == '\0') {
            const Parse r = AsciiToDouble(p, n, value);
            if (r != Parse::kUndecided) return r == Parse::kYes;
        }
    }
    return s.Convert(value);
}

double CellToDoubleLenient(const UtCString& s) {
    if (!s.isUtf16EncodingType() && SystemKeepsAscii()) {
        size_t n = 0;
        const char* p = Bytes(s, n);
        bool ascii = p[n] == '\0';
        for (size_t i = 0; ascii && i < n; ++i) ascii = static_cast<unsigned char>(p[i]) <= 0x7F;
        if (ascii) return std::atof(p);
    }
    return std::atof(s.GetAnsiString().c_str());
}

}  // namespace kbase_tables_internal
