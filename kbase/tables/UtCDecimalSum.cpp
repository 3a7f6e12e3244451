// UtCDecimalSum.
#include "kbase/tables/UtCDecimalSum.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kbase/tables/internal/numbers.h"
#include "kbase/text/UtCString.h"

namespace {

constexpr int kMaxDigits = 36;    // of a plain decimal's digits; 10^36 * 10 < 10^37
constexpr int kMaxScale = 36;     // fraction digits
constexpr int kBoundDigits = 37;  // the exact total stays below 10^37 units

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// A plain decimal: ±digits / 10^scale, digits below 10^36 without trailing zeros.
struct Plain {
    bool negative = false;
    uint64_t high = 0;  // digits as a 128-bit unsigned number
    uint64_t low = 0;
    int scale = 0;
};

#if defined(__SIZEOF_INT128__)
// __extension__: the type is the compiler's, not ISO C++ (-Wpedantic).
__extension__ typedef unsigned __int128 U128;
__extension__ typedef __int128 I128;

// 10^k for k up to 38 (the largest power below 2^128).
U128 Pow10(int k) {
    static const auto table = [] {
        std::array<U128, 39> t{};
        t[0] = 1;
        for (size_t i = 1; i < t.size(); ++i) t[i] = t[i - 1] * 10;
        return t;
    }();
    return table[static_cast<size_t>(k)];
}
U128 Join(uint64_t high, uint64_t low) {
    return (static_cast<U128>(high) << 64) | low;
}
#endif

// Reads [blanks][+-](digits[.digits]|.digits)[(e|E)[+-]digits] followed by nothing (trailing:
// only ' ', as Convert trims) or, with prefix, anything: the shapes strtod reads in full and
// whose value is a decimal. end: where the number ends. False for any other shape, or one that
// does not fit kMaxDigits and kMaxScale.
bool ReadPlain(const char* p, size_t n, bool prefix, Plain& out, size_t* end = nullptr) {
#if defined(__SIZEOF_INT128__)
    size_t i = 0;
    while (i < n && IsSpace(p[i])) ++i;
    if (i < n && (p[i] == '+' || p[i] == '-')) out.negative = p[i++] == '-';
    U128 digits = 0;
    int significant = 0;
    int zeros = 0;  // trailing zeros not yet multiplied in
    int fraction = 0;
    int seen = 0;
    auto take = [&](char c) {
        ++seen;
        if (c == '0') {
            if (significant > 0) ++zeros;
            return true;
        }
        significant += zeros + 1;
        if (significant > kMaxDigits) return false;
        digits = digits * Pow10(zeros + 1) + static_cast<unsigned>(c - '0');
        zeros = 0;
        return true;
    };
    for (; i < n && IsDigit(p[i]); ++i) {
        if (!take(p[i])) return false;
    }
    if (i < n && p[i] == '.') {
        ++i;
        for (; i < n && IsDigit(p[i]); ++i, ++fraction) {
            if (!take(p[i])) return false;
        }
    }
    if (seen == 0) return false;
    long exponent = 0;
    if (i < n && (p[i] == 'e' || p[i] == 'E')) {
        size_t j = i + 1;
        const bool minus = j < n && p[j] == '-';
        if (j < n && (p[j] == '+' || p[j] == '-')) ++j;
        const size_t first = j;
        while (j < n && IsDigit(p[j]) && j - first < 6) exponent = exponent * 10 + (p[j++] - '0');
        if (j < n && IsDigit(p[j])) return false;  // an exponent of 6 digits or more
        if (j > first) {
            i = j;
            if (minus) exponent = -exponent;
        } else if (!prefix) {
            return false;  // "1e" is no number for Convert
        }
    }
    if (end != nullptr) *end = i;
    if (!prefix) {
        while (i < n && p[i] == ' ') ++i;
        if (i != n) return false;
    }
    long scale = fraction - exponent - zeros;
    if (significant == 0) scale = 0;
    if (scale < 0) {
        if (significant - scale > kMaxDigits) return false;
        digits *= Pow10(static_cast<int>(-scale));
        scale = 0;
    }
    if (scale > kMaxScale) return false;
    out.high = static_cast<uint64_t>(digits >> 64);
    out.low = static_cast<uint64_t>(digits);
    out.scale = static_cast<int>(scale);
    return true;
#else
    (void)p;
    (void)n;
    (void)prefix;
    (void)out;
    (void)end;
    return false;
#endif
}

// Whether format is literal text around exactly one floating conversion (%f %F %e %E %g %G %a %A,
// with flags, width, precision and an optional 'l'); "%%" is literal.
bool IsSumFormat(const char* f) {
    int conversions = 0;
    for (const char* p = f; *p != '\0'; ++p) {
        if (*p != '%') continue;
        ++p;
        if (*p == '%') continue;
        while (*p != '\0' && std::strchr("-+ #0", *p) != nullptr) ++p;
        while (*p >= '0' && *p <= '9') ++p;
        if (*p == '.') {
            ++p;
            while (*p >= '0' && *p <= '9') ++p;
        }
        if (*p == 'l') ++p;
        if (*p == '\0' || std::strchr("fFeEgGaA", *p) == nullptr) return false;
        ++conversions;
    }
    return conversions == 1;
}

}  // namespace

bool UtCDecimalSum::AddExact(bool negative, uint64_t high, uint64_t low, int scale) {
#if defined(__SIZEOF_INT128__)
    I128 total = static_cast<I128>(Join(high_, low_));
    U128 digits = Join(high, low);
    const U128 magnitude = total < 0 ? -static_cast<U128>(total) : static_cast<U128>(total);
    if (magnitude >= Pow10(kBoundDigits)) return false;
    int newScale = scale_;
    if (scale > scale_) {
        const int k = scale - scale_;
        if (magnitude >= Pow10(kBoundDigits - k))
            return false;  // the total cannot take the finer unit
        total *= static_cast<I128>(Pow10(k));
        newScale = scale;
    } else if (scale < scale_) {
        const int k = scale_ - scale;
        if (digits >= Pow10(kBoundDigits - k)) return false;
        digits *= Pow10(k);
    }
    // Both below 10^37: the sum stays far inside 128 bits.
    total += negative ? -static_cast<I128>(digits) : static_cast<I128>(digits);
    high_ = static_cast<uint64_t>(static_cast<U128>(total) >> 64);
    low_ = static_cast<uint64_t>(static_cast<U128>(total));
    scale_ = newScale;
    any_ = true;
    if (!(negative && digits == 0)) negativeZero_ = false;
    return true;
#else
    (void)negative;
    (void)high;
    (void)low;
    (void)scale;
    return false;
#endif
}

bool UtCDecimalSum::Add(const char* p, size_t n) {
    if (p == nullptr) return false;
    n = kbase_tables_internal::UpToNul(p, n);
    Plain d;
    if (kbase_tables_internal::SystemKeepsAscii() && ReadPlain(p, n, false, d) &&
        AddExact(d.negative, d.high, d.low, d.scale)) {
        return true;
    }
    double v = 0.0;
    if (!kbase_tables_internal::TextToDouble(p, n, UtCString::systemEncodingType(), v))
        return false;
    AddDouble(v);
    return true;
}

void UtCDecimalSum::AddLenient(const char* p, size_t n) {
    if (p == nullptr) {
        AddDouble(0.0);
        return;
    }
    const std::string text(p, kbase_tables_internal::UpToNul(p, n));
    char* stop = nullptr;
    const double v = std::strtod(text.c_str(), &stop);  // what atof reads
    const size_t used = static_cast<size_t>(stop - text.c_str());
    Plain d;
    size_t end = 0;
    if (used > 0 && ReadPlain(text.c_str(), used, true, d, &end) && end == used &&
        AddExact(d.negative, d.high, d.low, d.scale)) {
        return;
    }
    AddDouble(v);
}

void UtCDecimalSum::AddDouble(double value) {
    any_ = true;
    inexact_ = true;
    if (!(value == 0.0 && std::signbit(value))) negativeZero_ = false;
    const double t = sum_ + value;
    if (std::isfinite(t)) {
        // Neumaier: the part of the smaller addend that the rounding of t lost.
        compensation_ +=
            std::fabs(sum_) >= std::fabs(value) ? (sum_ - t) + value : (value - t) + sum_;
    }
    sum_ = t;
}

void UtCDecimalSum::Merge(const UtCDecimalSum& other) {
    if (!other.any_) return;
    const bool negativeZero = (!any_ || negativeZero_) && other.negativeZero_;
#if defined(__SIZEOF_INT128__)
    const I128 total = static_cast<I128>(Join(other.high_, other.low_));
    if (total != 0) {
        const U128 magnitude = total < 0 ? -static_cast<U128>(total) : static_cast<U128>(total);
        if (!AddExact(total < 0, static_cast<uint64_t>(magnitude >> 64),
                      static_cast<uint64_t>(magnitude), other.scale_)) {
            AddDouble(other.ExactValue());
        }
    }
#endif
    if (other.inexact_) {
        AddDouble(other.sum_);
        compensation_ += other.compensation_;
    }
    any_ = true;
    negativeZero_ = negativeZero;
}

double UtCDecimalSum::ExactValue() const {
#if defined(__SIZEOF_INT128__)
    const I128 total = static_cast<I128>(Join(high_, low_));
    if (total == 0) return 0.0;
    U128 magnitude = total < 0 ? -static_cast<U128>(total) : static_cast<U128>(total);
    // Digits grow leftwards from the exponent: at most 38 of them and a sign.
    char text[64];
    char* const exponent = text + 40;
    std::snprintf(exponent, sizeof text - 40, "e-%d", static_cast<int>(scale_));
    char* at = exponent;
    while (magnitude != 0) {
        *--at = static_cast<char>('0' + static_cast<int>(magnitude % 10));
        magnitude /= 10;
    }
    if (total < 0) *--at = '-';
    // strtod rounds correctly: the double nearest to the exact decimal.
    return std::strtod(at, nullptr);
#else
    return 0.0;
#endif
}

double UtCDecimalSum::Value() const {
    double v = ExactValue();
    if (inexact_) v += std::isfinite(sum_) ? sum_ + compensation_ : sum_;
    if (v == 0.0 && any_ && negativeZero_) return -0.0;
    return v;
}

std::string UtCDecimalSum::Format(const char* printfFormat) const {
    const char* format =
        printfFormat != nullptr && IsSumFormat(printfFormat) ? printfFormat : "%.2f";
    char text[51];
    std::snprintf(text, sizeof text, format, Value());
    return std::string(text);
}
