// Arbitrary bytes converted from each encoding family into each other. The first byte picks the
// pair; the invariants of the string (terminator, UTF-8 mark, length) must hold afterwards.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kbase/text/UtCString.h"

namespace {
const eUtEncodingType kFamilies[] = {eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1250,
                                     static_cast<eUtEncodingType>(932), eUtEncodingTypeUtf8,
                                     eUtEncodingTypeUtf16, static_cast<eUtEncodingType>(54936)};
constexpr size_t kCount = sizeof kFamilies / sizeof kFamilies[0];

void Check(const UtCString& s) {
    if (s.ptr() == nullptr || s.GetLength() < 0) std::abort();
    if (s.isUtf8EncodingType()) {
        if (std::memcmp(s.ptr(), "\xEF\xBB\xBF", 3) != 0) std::abort();
        if (s.GetLength() != static_cast<int>(UtCUtf8::CountCodePoints(s.ptr() + 3))) std::abort();
    } else if (s.isUtf16EncodingType()) {
        if (s.GetLength() != static_cast<int>(UtCUtf16::Length(s.uptr()))) std::abort();
    } else if (s.ptr()[s.GetLength()] != '\0') {
        std::abort();
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const eUtEncodingType from = kFamilies[data[0] % kCount];
    const eUtEncodingType to = kFamilies[(data[0] / kCount) % kCount];
    ++data;
    --size;
    UtCString s;
    if (from == eUtEncodingTypeUtf16) {
        std::u16string w(size / 2, u'\0');
        std::memcpy(w.data(), data, w.size() * 2);
        s = UtCString(w, to);
    } else {
        s = UtCString(reinterpret_cast<const char*>(data), static_cast<int>(size), from, to);
    }
    Check(s);
    UtCString back(s, from);
    Check(back);
    (void)s.CompareTo(back);
    (void)s.CompareToNoCase(back);
    s.SetToUpper();
    Check(s);
    s.trim();
    Check(s);
    (void)s.Search(0, UtCString(u"\u00E4", eUtEncodingTypeUtf16));
    return 0;
}
