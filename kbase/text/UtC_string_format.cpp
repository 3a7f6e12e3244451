// UtCString: numbers to text, formatting, scanning, text to numbers.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "basert/locale.h"
#include "basert/memory.h"
#include "kbase/text/UtCString.h"
#include "kbase/text/internal/UtC_string_impl.h"

using namespace kbase_text_internal;

namespace {

constexpr size_t kFormattedNumberMax = 100;

template <typename T>
std::string PrintfValue(const char* format, T value) {
    char buf[kFormattedNumberMax + 1];
    const int n = std::snprintf(buf, sizeof buf, format, value);
    if (n < 0) return std::string();
    return std::string(buf, std::min<size_t>(static_cast<size_t>(n), kFormattedNumberMax));
}

std::string FixedPoint(double value, int digits) {
    char format[32];
    std::snprintf(format, sizeof format, "%%.%df", digits);
    const double rounded = UtRoundR(value, digits);
    const int n = std::snprintf(nullptr, 0, format, rounded);
    std::string text(static_cast<size_t>(std::max(n, 0)) + 1, '\0');
    std::snprintf(text.data(), text.size(), format, rounded);
    text.resize(static_cast<size_t>(std::max(n, 0)));
    return text;
}

// Only when there is a point: trailing zeros go, then a trailing point.
void StripZeros(std::string& text, char point) {
    if (text.find(point) == std::string::npos) return;
    while (!text.empty() && text.back() == '0') text.pop_back();
    if (!text.empty() && text.back() == point) text.pop_back();
}

// The 8-bit form used by the number conversions, with leading and trailing blanks (' ' only) cut.
std::string BlankTrimmed(const UtCString& s) {
    std::string t = s.GetAnsiString();
    const size_t first = t.find_first_not_of(' ');
    if (first == std::string::npos) return std::string();
    const size_t last = t.find_last_not_of(' ');
    return t.substr(first, last - first + 1);
}

bool ParseInt64(const UtCString& s, long long& value) {
    const std::string t = BlankTrimmed(s);
    value = 0;
    if (t.empty()) return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoll(t.c_str(), &end, 10);
    return end != t.c_str() && *end == '\0';
}

bool ParseUInt64(const UtCString& s, unsigned long long& value) {
    const std::string t = BlankTrimmed(s);
    value = 0;
    if (t.empty()) return false;
    char* end = nullptr;
    value = std::strtoull(t.c_str(), &end, 10);
    return end != t.c_str() && *end == '\0';
}

// ---- the wide printf ----------------------------------------------------------------------------

void Pad(std::u16string& out, const std::u16string& piece, int width, bool left) {
    const int fill = width - static_cast<int>(piece.size());
    if (fill > 0 && !left) out.append(static_cast<size_t>(fill), u' ');
    out += piece;
    if (fill > 0 && left) out.append(static_cast<size_t>(fill), u' ');
}

std::u16string Widen(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

// printf with a UTF-16 format: %s and %c take UTF-16, %hs and %hc 8-bit text in the system
// encoding; numbers go through the C library one conversion at a time.
std::u16string WideVFormat(const char16_t* format, va_list args) {
    std::u16string out;
    const char16_t* f = format;
    while (*f != 0) {
        if (*f != u'%') {
            out += *f++;
            continue;
        }
        const char16_t* directiveStart = f++;
        if (*f == u'%') {
            out += u'%';
            ++f;
            continue;
        }
        std::string directive = "%";
        bool left = false;
        while (*f == u'-' || *f == u'+' || *f == u' ' || *f == u'#' || *f == u'0') {
            left = left || *f == u'-';
            directive += static_cast<char>(*f++);
        }
        int width = 0;
        if (*f == u'*') {
            width = va_arg(args, int);
            if (width < 0) {
                left = true;
                width = -width;
                directive += '-';
            }
            directive += std::to_string(width);
            ++f;
        } else {
            while (*f >= u'0' && *f <= u'9') {
                width = width * 10 + (*f - u'0');
                directive += static_cast<char>(*f++);
            }
        }
        int precision = -1;
        if (*f == u'.') {
            directive += '.';
            ++f;
            precision = 0;
            if (*f == u'*') {
                precision = va_arg(args, int);
                directive += std::to_string(std::max(precision, 0));
                ++f;
            } else {
                while (*f >= u'0' && *f <= u'9') {
                    precision = precision * 10 + (*f - u'0');
                    directive += static_cast<char>(*f++);
                }
            }
        }
        std::string length;
        while (*f == u'h' || *f == u'l' || *f == u'L' || *f == u'j' || *f == u'z' || *f == u't') {
            length += static_cast<char>(*f++);
        }
        const char16_t conv = *f;
        if (conv == 0) {
            out.append(directiveStart, f);
            break;
        }
        ++f;
        switch (conv) {
            case u's': {
                std::u16string piece;
                if (length == "h") {
                    const char* s = va_arg(args, const char*);
                    piece = s == nullptr ? u"(null)" : UtCString(s, eUtEncodingTypeSystemDefault,
                                                                 eUtEncodingTypeUtf16).GetUtf16String();
                } else {
                    const char16_t* s = va_arg(args, const char16_t*);
                    piece = s == nullptr ? u"(null)" : std::u16string(s);
                }
                if (precision >= 0 && piece.size() > static_cast<size_t>(precision)) {
                    piece.resize(static_cast<size_t>(precision));
                }
                Pad(out, piece, width, left);
                break;
            }
            case u'c': {
                const int c = va_arg(args, int);
                std::u16string piece;
                if (length == "h") {
                    const char narrow = static_cast<char>(c);
                    piece = UtCString(&narrow, 1, eUtEncodingTypeSystemDefault, eUtEncodingTypeUtf16)
                                .GetUtf16String();
                } else {
                    piece = std::u16string(1, static_cast<char16_t>(c));
                }
                Pad(out, piece, width, left);
                break;
            }
            case u'd': case u'i': case u'u': case u'x': case u'X': case u'o': {
                directive += "ll";
                directive += static_cast<char>(conv);
                const bool isSigned = conv == u'd' || conv == u'i';
                long long sv = 0;
                unsigned long long uv = 0;
                if (length == "ll" || length == "j" || length == "L") {
                    sv = va_arg(args, long long);
                } else if (length == "l" || length == "z" || length == "t") {
                    sv = va_arg(args, long);
                } else {
                    sv = va_arg(args, int);
                    if (length == "h") sv = isSigned ? static_cast<short>(sv) : static_cast<unsigned short>(sv);
                    if (length == "hh") sv = isSigned ? static_cast<signed char>(sv) : static_cast<unsigned char>(sv);
                    if (!isSigned && length.empty()) sv = static_cast<unsigned int>(sv);
                }
                uv = static_cast<unsigned long long>(sv);
                out += Widen(isSigned ? PrintfValue(directive.c_str(), sv) : PrintfValue(directive.c_str(), uv));
                break;
            }
            case u'f': case u'F': case u'e': case u'E': case u'g': case u'G': case u'a': case u'A': {
                directive += static_cast<char>(conv);
                if (length == "L") {
                    const double v = static_cast<double>(va_arg(args, long double));
                    out += Widen(PrintfValue(directive.c_str(), v));
                } else {
                    out += Widen(PrintfValue(directive.c_str(), va_arg(args, double)));
                }
                break;
            }
            case u'p': {
                directive += 'p';
                out += Widen(PrintfValue(directive.c_str(), va_arg(args, void*)));
                break;
            }
            case u'n':
                (void)va_arg(args, void*);  // never written: a format must not write memory
                break;
            default:
                out.append(directiveStart, f);
                break;
        }
    }
    return out;
}

}  // namespace

// ---- number constructors and appends ------------------------------------------------------------

#define KBASE_INT_CONSTRUCTORS(T)                                                             \
    UtCString::UtCString(T v, eUtEncodingType e) {                                            \
        Init(e);                                                                              \
        SetEmpty();                                                                           \
        Append(v);                                                                            \
    }                                                                                         \
    UtCString::UtCString(T v, const char* format, unsigned short unused, eUtEncodingType e) { \
        Init(e);                                                                              \
        SetEmpty();                                                                           \
        Append(v, format, unused);                                                            \
    }                                                                                         \
    UtCString& UtCString::Append(T v, const char* format, unsigned short) {                  \
        if (format != nullptr) AppendFormattedText(PrintfValue(format, v).c_str());           \
        return *this;                                                                         \
    }

KBASE_INT_CONSTRUCTORS(short)
KBASE_INT_CONSTRUCTORS(unsigned short)
KBASE_INT_CONSTRUCTORS(int)
KBASE_INT_CONSTRUCTORS(unsigned int)
KBASE_INT_CONSTRUCTORS(long)
KBASE_INT_CONSTRUCTORS(unsigned long)
KBASE_INT_CONSTRUCTORS(long long)
KBASE_INT_CONSTRUCTORS(unsigned long long)
#undef KBASE_INT_CONSTRUCTORS

UtCString::UtCString(double v, eUtEncodingType e) {
    Init(e);
    SetEmpty();
    Append(v);
}
UtCString::UtCString(double v, int digits, eUtEncodingType e) {
    Init(e);
    SetEmpty();
    Append(v, digits);
}
UtCString::UtCString(double v, const char* format, unsigned short unused, eUtEncodingType e) {
    Init(e);
    SetEmpty();
    Append(v, format, unused);
}

UtCString::UtCString(const UtCString& prefix, long number, long digits, const UtCString& middle,
                     int index, const UtCString& suffix, eUtEncodingType e) {
    Init(e);
    SetEmpty();
    Append(prefix);
    std::string n = std::to_string(number < 0 ? -static_cast<long long>(number) : static_cast<long long>(number));
    if (digits > static_cast<long>(n.size()) && digits <= 64) n.insert(0, static_cast<size_t>(digits) - n.size(), '0');
    if (number < 0) n.insert(0, 1, '-');
    Add(n.c_str(), -1, eUtEncodingTypeAnsi1252);
    Append(middle);
    if (index >= 0) Append(index);
    Append(suffix);
}

void UtCString::AppendFormattedText(const char* text) {
    if (text == nullptr || *text == 0) return;
    const bool utf8 = UtCUtf8::HasBOM(text, static_cast<int64_t>(std::strlen(text))) ||
                      systemEncodingType() == eUtEncodingTypeUtf8;
    Add(text, -1, utf8 ? eUtEncodingTypeUtf8 : eUtEncodingTypeSystemDefault);
}

UtCString& UtCString::Append(short v) { return Append(static_cast<long long>(v)); }
UtCString& UtCString::Append(unsigned short v) { return Append(static_cast<unsigned long long>(v)); }
UtCString& UtCString::Append(int v) { return Append(static_cast<long long>(v)); }
UtCString& UtCString::Append(unsigned int v) { return Append(static_cast<unsigned long long>(v)); }
UtCString& UtCString::Append(long v) { return Append(static_cast<long long>(v)); }
UtCString& UtCString::Append(unsigned long v) { return Append(static_cast<unsigned long long>(v)); }
UtCString& UtCString::Append(long long v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%lld", v);
    Add(buf, -1, eUtEncodingTypeAnsi1252);  // digits and '-' are the same in every code page
    return *this;
}
UtCString& UtCString::Append(unsigned long long v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%llu", v);
    Add(buf, -1, eUtEncodingTypeAnsi1252);
    return *this;
}
UtCString& UtCString::Append(double v) { return Append(v, 6); }
UtCString& UtCString::Append(double v, int digits) {
    std::string text = FixedPoint(v, digits);
    StripZeros(text, '.');
    Add(text.c_str(), -1, eUtEncodingTypeAnsi1252);
    return *this;
}
UtCString& UtCString::Append(double v, const char* format, unsigned short) {
    if (format != nullptr) AppendFormattedText(PrintfValue(format, v).c_str());
    return *this;
}

// ---- formatting --------------------------------------------------------------------------------------

int UtCString::FormatV(const char* format, va_list args) {
    if (format == nullptr) return length_;
    size_t size = std::max<size_t>(1024, 2 * std::strlen(format)) + 1;
    std::vector<char> buf(size);
    va_list again;
    va_copy(again, args);
    const int needed = std::vsnprintf(buf.data(), size, format, args);
    if (needed >= 0 && static_cast<size_t>(needed) >= size) {
        buf.resize(static_cast<size_t>(needed) + 2);
        std::vsnprintf(buf.data(), static_cast<size_t>(needed) + 1, format, again);
    }
    va_end(again);
    if (needed < 0) return length_;
    Set(buf.data(), -1, eUtEncodingTypeSystemDefault);
    return length_;
}

int UtCString::Format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int n = FormatV(format, args);
    va_end(args);
    return n;
}

int UtCString::Format(const char16_t* format, ...) {
    if (format == nullptr) return length_;
    va_list args;
    va_start(args, format);
    const std::u16string text = WideVFormat(format, args);
    va_end(args);
    Set(text.data(), text.empty() ? 0 : static_cast<int64_t>(text.size()));
    return length_;
}

int UtCString::AppendFormat(const char* format, ...) {
    if (format == nullptr) return length_;
    va_list args;
    va_start(args, format);
    UtCString piece(encodingType());
    piece.FormatV(format, args);
    va_end(args);
    Append(piece);
    return length_;
}

int UtCString::AppendFormat(const char16_t* format, ...) {
    if (format == nullptr) return length_;
    va_list args;
    va_start(args, format);
    const std::u16string text = WideVFormat(format, args);
    va_end(args);
    if (!text.empty()) Add(text.data(), -1);
    return length_;
}

namespace {
int ScanText(const UtCString& s, const char* format, va_list args) {
    if (format == nullptr || s.ptr() == nullptr) return -1;
    if (s.isAnsiEncodingType()) return std::vsscanf(s.ptr(), format, args);
    if (s.isUtf8EncodingType()) return std::vsscanf(s.stringSkipBOM(), format, args);
    const std::string utf8 = s.GetUtf8String(0);
    return std::vsscanf(utf8.c_str(), format, args);
}
}  // namespace

int UtCString::UnFormat(const char* format, ...) const {
    va_list args;
    va_start(args, format);
    const int n = ScanText(*this, format, args);
    va_end(args);
    return n;
}

int UtCString::UnFormat(const char16_t* format, ...) const {
    if (format == nullptr) return -1;
    const std::string narrow = UtCString(format, eUtEncodingTypeUtf8).GetUtf8String(0);
    va_list args;
    va_start(args, format);
    const int n = ScanText(*this, narrow.c_str(), args);
    va_end(args);
    return n;
}

UtCString& UtCString::FormatDouble(double value, int digits) {
    std::string text = FixedPoint(value, digits);
    StripZeros(text, '.');
    Set(text.c_str(), -1, eUtEncodingTypeAnsi1252);
    return *this;
}

UtCString& UtCString::FormatDoubleLocale(double value, int digits) {
    std::string text = FixedPoint(value, digits);
    const char sep = OsUserGetActDecimalSeparator();
    if (sep != '.') std::replace(text.begin(), text.end(), '.', sep);
    Set(text.c_str(), -1, eUtEncodingTypeSystemDefault);
    return *this;
}

UtCString& UtCString::FormatFloat(float value, int digits) { return FormatDouble(static_cast<double>(value), digits); }

UtCString& UtCString::DoubleValueListToGuiString(const double* values, int count, int digits) {
    SetEmpty();
    if (values == nullptr || count <= 0) return *this;
    const char sep = OsUserGetActDecimalSeparator();
    std::string text;
    for (int i = 0; i < count; ++i) {
        std::string item = FixedPoint(values[i], digits);
        StripZeros(item, '.');
        if (sep != '.') std::replace(item.begin(), item.end(), '.', sep);
        if (i != 0) text += "; ";
        text += item;
    }
    Set(text.c_str(), -1, eUtEncodingTypeSystemDefault);
    return *this;
}

int UtCString::GuiStringToDoubleValueList(double* values, int maxCount) const {
    const std::string text = GetAnsiString();
    const char sep = OsUserGetActDecimalSeparator();
    if (text.find_first_not_of(" \t") == std::string::npos) return 0;
    int count = 0;
    size_t i = 0;
    while (i <= text.size()) {
        const size_t j = std::min(text.find(';', i), text.size());
        std::string item = text.substr(i, j - i);
        const size_t first = item.find_first_not_of(" \t");
        if (first == std::string::npos) return -1;
        item = item.substr(first, item.find_last_not_of(" \t") - first + 1);
        if (sep != '.') std::replace(item.begin(), item.end(), sep, '.');
        char* end = nullptr;
        const double v = std::strtod(item.c_str(), &end);
        if (end == item.c_str() || *end != '\0') return -1;
        if (values != nullptr && count < maxCount) values[count] = v;
        ++count;
        i = j + 1;
    }
    return count;
}

// ---- text to number -----------------------------------------------------------------------------------

bool UtCString::Convert(bool& value) const {
    if (length_ == 5 && EqualNoCase("false", eUtEncodingTypeAnsi1252)) {
        value = false;
        return true;
    }
    if (length_ == 4 && EqualNoCase("true", eUtEncodingTypeAnsi1252)) {
        value = true;
        return true;
    }
    return false;
}

// The narrower forms truncate the 64-bit value without a range check: "4294967297" gives the
// int 1 and success. Callers rely on that; do not add a check.
bool UtCString::Convert(short& value) const {
    long long v = 0;
    const bool ok = ParseInt64(*this, v);
    value = static_cast<short>(v);
    return ok;
}
bool UtCString::Convert(unsigned short& value) const {
    unsigned long long v = 0;
    const bool ok = ParseUInt64(*this, v);
    value = static_cast<unsigned short>(v);
    return ok;
}
bool UtCString::Convert(int& value) const {
    long long v = 0;
    const bool ok = ParseInt64(*this, v);
    value = static_cast<int>(v);
    return ok;
}
bool UtCString::Convert(long& value) const {
    long long v = 0;
    const bool ok = ParseInt64(*this, v);
    value = static_cast<long>(v);
    return ok;
}
bool UtCString::Convert(unsigned long& value) const {
    unsigned long long v = 0;
    const bool ok = ParseUInt64(*this, v);
    value = static_cast<unsigned long>(v);
    return ok;
}
bool UtCString::Convert(long long& value) const { return ParseInt64(*this, value); }
bool UtCString::Convert(unsigned long long& value) const { return ParseUInt64(*this, value); }

bool UtCString::Convert(double& value) const {
    const std::string t = BlankTrimmed(*this);
    value = 0.0;
    if (t.empty()) return false;
    const char* start = t.c_str();
    // A leading plus-minus sign (0xB1 in 1252; C2 B1 when the 8-bit form is UTF-8) is accepted only
    // before a zero: tolerances are written "±0" and mean 0. Any other value after it fails.
    size_t signBytes = 0;
    if (static_cast<unsigned char>(t[0]) == 0xB1) {
        signBytes = 1;
    } else if (systemEncodingType() == eUtEncodingTypeUtf8 && t.size() >= 2 &&
               static_cast<unsigned char>(t[0]) == 0xC2 && static_cast<unsigned char>(t[1]) == 0xB1) {
        signBytes = 2;
    }
    char* end = nullptr;
    if (signBytes != 0) {
        const double v = std::strtod(start + signBytes, &end);
        if (end == start + signBytes || *end != '\0' || v != 0.0) return false;
        value = 0.0;
        return true;
    }
    value = std::strtod(start, &end);
    return end != start && *end == '\0';
}

bool UtCString::Convert(float& value) const {
    double v = 0.0;
    const bool ok = Convert(v);
    value = static_cast<float>(v);
    return ok;
}

bool UtCString::Convert(UtCString& prefix, long& number, long& digits, UtCString& suffix) const {
    // The last run of digits, in character positions [begin, end).
    int end = length_;
    int begin = 0;
    if (isUtf8EncodingType()) {
        // A digit is a code point of one byte: walk back over the lead bytes (GetWcharAt would
        // count from the start for every character).
        const char* t = stringSkipBOM();
        const char* p = t + std::strlen(t);
        const auto digitBefore = [t](const char*& q) {
            if (q == t) return false;
            do {
                --q;
            } while (q > t && (static_cast<unsigned char>(*q) & 0xC0) == 0x80);
            return *q >= '0' && *q <= '9';
        };
        while (end > 0 && !digitBefore(p)) --end;
        if (end == 0) return false;
        begin = end - 1;
        while (begin > 0 && digitBefore(p)) --begin;
    } else {
        const auto digitAt = [this](int i) {
            const char16_t c = GetWcharAt(i);
            return c >= u'0' && c <= u'9';
        };
        while (end > 0 && !digitAt(end - 1)) --end;
        if (end == 0) return false;
        begin = end;
        while (begin > 0 && digitAt(begin - 1)) --begin;
    }
    long long v = 0;
    const UtCString run = substr(begin, end - begin);
    if (end - begin > 18 || !run.Convert(v)) return false;
    prefix = left(begin);
    suffix = substr(end);
    number = static_cast<long>(v);
    digits = end - begin;
    return true;
}
