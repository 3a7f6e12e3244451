// The number parsers of UtCString on arbitrary text, against the C library's own parsers. Byte 0
// picks the string's encoding and the decimal separator; the rest, up to a NUL, is the text.
// Properties:
//  - Convert of every integer type and of float and double: the verdict and value of strtoll /
//    strtoull / strtod on the 8-bit form cut of blanks (' ' only), the narrow types truncated
//    without a range check, and a plus-minus sign accepted only before a zero; the decimal text
//    of a value read converts back to the same value;
//  - Convert(bool): "true" or "false" in any case, nothing else;
//  - the prefix/number/suffix form splits at the last run of digits and its inverse gives the
//    text back;
//  - GuiStringToDoubleValueList: the count and values of the ';'-separated items, each a strtod
//    number after the separator is made a point; the list's own text reads back to its count;
//  - UnFormat: the count and values of sscanf over the 8-bit form;
//  - IsNumber on ASCII text: non-empty and only digits.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "basert/locale.h"
#include "fuzz_support.h"
#include "kbase/text/UtCString.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz_support::TreatReportsAsFindings();
    OsUserSetCodePageBySystemDflt(1252);  // the 8-bit form is then the Western code page
    return 0;
}

namespace {

std::string BlankCut(const std::string& text) {
    size_t b = 0, e = text.size();
    while (b < e && text[b] == ' ') ++b;
    while (e > b && text[e - 1] == ' ') --e;
    return text.substr(b, e - b);
}

template <typename T, typename Wide, typename Parse>
void CheckInteger(const UtCString& s, const std::string& cut, Parse parse) {
    T value{};
    const bool ok = s.Convert(value);
    Wide wide = 0;
    bool expected = false;
    if (!cut.empty()) {
        char* end = nullptr;
        wide = parse(cut.c_str(), &end);
        expected = end != cut.c_str() && *end == '\0';
    }
    if (ok != expected || value != static_cast<T>(wide)) std::abort();
    if (ok) {
        // The decimal text of the value reads back to it.
        T back{};
        const std::string text = std::to_string(value);
        if (!UtCString(text.c_str(), eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252)
                 .Convert(back) ||
            back != value) {
            std::abort();
        }
    }
}

bool SameDouble(double a, double b) {
    return (std::isnan(a) && std::isnan(b)) || a == b;
}

void CheckReal(const UtCString& s, const std::string& cut) {
    double value = -1;
    const bool ok = s.Convert(value);
    bool expected = false;
    double v = 0;
    if (!cut.empty()) {
        const bool plusMinus = static_cast<unsigned char>(cut[0]) == 0xB1;
        const char* start = cut.c_str() + (plusMinus ? 1 : 0);
        char* end = nullptr;
        v = std::strtod(start, &end);
        expected = end != start && *end == '\0' && (!plusMinus || v == 0.0);
    }
    if (ok != expected || (ok && !SameDouble(value, v))) std::abort();
    float f = -1;
    if (s.Convert(f) != ok || (ok && !SameDouble(f, static_cast<float>(v)))) std::abort();
    if (ok && std::isfinite(value)) {
        char text[64];
        std::snprintf(text, sizeof text, "%.17g", value);
        double back = 0;
        if (!UtCString(text, eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252).Convert(back) ||
            back != value)
            std::abort();
    }
}

void CheckBool(const UtCString& s, const std::string& ansi, bool ascii) {
    bool value = false;
    const bool ok = s.Convert(value);
    if (!ascii) return;
    const bool isTrue = ansi.size() == 4 && strncasecmp(ansi.c_str(), "true", 4) == 0;
    const bool isFalse = ansi.size() == 5 && strncasecmp(ansi.c_str(), "false", 5) == 0;
    if (ok != (isTrue || isFalse) || (ok && value != isTrue)) std::abort();
}

bool IsAsciiDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

void CheckSplit(const UtCString& s) {
    UtCString prefix("p", eUtEncodingTypeAnsi1252), suffix("s", eUtEncodingTypeAnsi1252);
    long number = -7, digits = -7;
    const bool ok = s.Convert(prefix, number, digits, suffix);
    const std::u16string w = s.GetUtf16String();
    size_t end = w.size();
    while (end > 0 && !IsAsciiDigit(w[end - 1])) --end;
    size_t begin = end;
    while (begin > 0 && IsAsciiDigit(w[begin - 1])) --begin;
    if (end == 0 || end - begin > 18) {
        if (ok || number != -7 || digits != -7 || prefix != UtCString("p", eUtEncodingTypeAnsi1252))
            std::abort();
        return;
    }
    if (!ok || digits != static_cast<long>(end - begin)) std::abort();
    const UtCString again(prefix, number, digits, UtCString(s.encodingType()), -1, suffix,
                          s.encodingType());
    if (again.GetUtf16String() != w) std::abort();
}

void CheckValueList(const UtCString& s, const std::string& ansi) {
    double values[8];
    const int n = s.GuiStringToDoubleValueList(values, 8);
    // The items, each blank-cut of spaces and tabs, with the separator made a point.
    const char sep = OsUserGetActDecimalSeparator();
    int expected = 0;
    std::vector<double> items;
    if (ansi.find_first_not_of(" \t") != std::string::npos) {
        for (size_t i = 0; expected >= 0 && i <= ansi.size();) {
            size_t j = ansi.find(';', i);
            if (j == std::string::npos) j = ansi.size();
            std::string item = ansi.substr(i, j - i);
            const size_t first = item.find_first_not_of(" \t");
            if (first == std::string::npos) {
                expected = -1;
                break;
            }
            item = item.substr(first, item.find_last_not_of(" \t") - first + 1);
            for (char& c : item) {
                if (c == sep) c = '.';
            }
            char* stop = nullptr;
            const double v = std::strtod(item.c_str(), &stop);
            if (stop == item.c_str() || *stop != '\0') {
                expected = -1;
                break;
            }
            items.push_back(v);
            ++expected;
            i = j + 1;
        }
    }
    if (n != expected) std::abort();
    for (int i = 0; i < n && i < 8; ++i) {
        if (!SameDouble(values[i], items[static_cast<size_t>(i)])) std::abort();
    }
    if (n > 0) {
        bool finite = true;
        for (int i = 0; i < n && i < 8; ++i)
            finite = finite && std::isfinite(values[i]) && std::fabs(values[i]) < 1e15;
        if (finite) {
            UtCString list;
            list.DoubleValueListToGuiString(values, n < 8 ? n : 8, 6);
            if (list.GuiStringToDoubleValueList(nullptr, 0) != (n < 8 ? n : 8)) std::abort();
        }
    }
}

// Wide strings are scanned in their UTF-8 form, so only ASCII text compares with the 8-bit form.
void CheckUnFormat(const UtCString& s, const std::string& ansi) {
    int a = 0, b = 0, ea = 0, eb = 0;
    char word[64] = "", eword[64] = "";
    double d = 0, ed = 0;
    const int n = s.UnFormat("%d %63s %lf %x", &a, word, &d, &b);
    const int expected = std::sscanf(ansi.c_str(), "%d %63s %lf %x", &ea, eword, &ed, &eb);
    if (n != expected || a != ea || std::strcmp(word, eword) != 0 || !SameDouble(d, ed) || b != eb)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint8_t control = data[0];
    OsUserSetDecimalType((control & 4) != 0 ? kOsDecimalComma : kOsDecimalPoint);
    const std::string raw(reinterpret_cast<const char*>(data + 1),
                          strnlen(reinterpret_cast<const char*>(data + 1), size - 1));
    static const eUtEncodingType kEncodings[] = {eUtEncodingTypeAnsi1252, eUtEncodingTypeUtf8,
                                                 eUtEncodingTypeUtf16, eUtEncodingTypeAnsi1252};
    const eUtEncodingType e = kEncodings[control & 3];
    const UtCString s(raw.c_str(), static_cast<int>(raw.size()), eUtEncodingTypeAnsi1252, e);
    const std::string ansi = s.GetAnsiString();
    if (e == eUtEncodingTypeAnsi1252 && ansi != raw)
        std::abort();  // the 8-bit form is the text itself
    const std::string cut = BlankCut(ansi);
    bool ascii = true;
    for (unsigned char c : ansi) ascii = ascii && c < 0x80;

    CheckInteger<short, long long>(
        s, cut, [](const char* p, char** end) { return std::strtoll(p, end, 10); });
    CheckInteger<int, long long>(
        s, cut, [](const char* p, char** end) { return std::strtoll(p, end, 10); });
    CheckInteger<long, long long>(
        s, cut, [](const char* p, char** end) { return std::strtoll(p, end, 10); });
    CheckInteger<long long, long long>(
        s, cut, [](const char* p, char** end) { return std::strtoll(p, end, 10); });
    CheckInteger<unsigned short, unsigned long long>(
        s, cut, [](const char* p, char** end) { return std::strtoull(p, end, 10); });
    CheckInteger<unsigned long, unsigned long long>(
        s, cut, [](const char* p, char** end) { return std::strtoull(p, end, 10); });
    CheckInteger<unsigned long long, unsigned long long>(
        s, cut, [](const char* p, char** end) { return std::strtoull(p, end, 10); });
    CheckReal(s, cut);
    CheckBool(s, ansi, ascii);
    CheckSplit(s);
    CheckValueList(s, ansi);
    if (ascii || e == eUtEncodingTypeAnsi1252) CheckUnFormat(s, ansi);
    if (ascii) {
        bool digits = !ansi.empty();
        for (char c : ansi) digits = digits && c >= '0' && c <= '9';
        if (s.IsNumber() != digits) std::abort();
    }
    return 0;
}
