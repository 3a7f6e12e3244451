// Arbitrary bytes converted from each encoding family into each other. The first byte picks the
// pair; the invariants of the string (terminator, UTF-8 mark, length) must hold afterwards, and
// the lossless pairs give the input back: a single-byte page through UTF-8 or UTF-16, and valid
// UTF-8 and UTF-16 (without a leading mark) through each other.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "kbase/text/UtCString.h"

KBASE_FUZZ_STRICT_DIAGNOSTICS()

namespace {
const eUtEncodingType kFamilies[] = {eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1250,
                                     static_cast<eUtEncodingType>(932), eUtEncodingTypeUtf8,
                                     eUtEncodingTypeUtf16, static_cast<eUtEncodingType>(54936)};
constexpr size_t kCount = sizeof kFamilies / sizeof kFamilies[0];

bool SingleByte(eUtEncodingType e) {
    return e == eUtEncodingTypeAnsi1252 || e == eUtEncodingTypeAnsi1250;
}
bool Unicode(eUtEncodingType e) {
    return e == eUtEncodingTypeUtf8 || e == eUtEncodingTypeUtf16;
}

// Well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF) without a leading mark.
bool ValidUtf8(const uint8_t* p, size_t n) {
    if (n >= 3 && p[0] == 0xEF && p[1] == 0xBB && p[2] == 0xBF) return false;
    for (size_t i = 0; i < n;) {
        const uint8_t c = p[i];
        size_t len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
        if (len == 0 || i + len > n || c == 0) return false;
        uint32_t v = len == 1 ? c : c & (0x7F >> len);
        for (size_t k = 1; k < len; ++k) {
            if ((p[i + k] & 0xC0) != 0x80) return false;
            v = v << 6 | (p[i + k] & 0x3F);
        }
        static const uint32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
        if (v < kMin[len] || v > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF)) return false;
        i += len;
    }
    return true;
}

bool ValidUtf16(const std::u16string& w) {
    if (!w.empty() && (w[0] == 0xFEFF || w[0] == 0xFFFE)) return false;
    for (size_t i = 0; i < w.size(); ++i) {
        if (w[i] == 0) return false;
        if (w[i] >= 0xD800 && w[i] <= 0xDBFF) {
            if (i + 1 >= w.size() || w[i + 1] < 0xDC00 || w[i + 1] > 0xDFFF) return false;
            ++i;
        } else if (w[i] >= 0xDC00 && w[i] <= 0xDFFF) {
            return false;
        }
    }
    return true;
}

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
    bool lossless = false;
    std::u16string w;
    if (from == eUtEncodingTypeUtf16) {
        w.assign(size / 2, u'\0');
        std::memcpy(w.data(), data, w.size() * 2);
        s = UtCString(w, to);
        lossless = to == eUtEncodingTypeUtf8 && ValidUtf16(w);
    } else {
        s = UtCString(reinterpret_cast<const char*>(data), static_cast<int>(size), from, to);
        lossless =
            (SingleByte(from) && Unicode(to) && std::memchr(data, 0, size) == nullptr) ||
            (from == eUtEncodingTypeUtf8 && to == eUtEncodingTypeUtf16 && ValidUtf8(data, size));
    }
    Check(s);
    UtCString back(s, from);
    Check(back);
    if (lossless) {
        if (from == eUtEncodingTypeUtf16) {
            if (back.GetUtf16String() != w) std::abort();
        } else if (from == eUtEncodingTypeUtf8) {
            // The UTF-8 text follows its mark.
            if (back.GetUtf8String(0) != std::string(reinterpret_cast<const char*>(data), size))
                std::abort();
        } else if (static_cast<size_t>(back.GetLength()) != size ||
                   std::memcmp(back.ptr(), data, size) != 0) {
            std::abort();
        }
    }
    (void)s.CompareTo(back);
    (void)s.CompareToNoCase(back);
    s.SetToUpper();
    Check(s);
    s.trim();
    Check(s);
    (void)s.Search(0, UtCString(u"\u00E4", eUtEncodingTypeUtf16));
    return 0;
}
