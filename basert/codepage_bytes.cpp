// Case and character classes of code-page bytes, the same on both back ends: single-byte pages go
// through their tables, every other page knows A-Z and ASCII only.
#include <cstring>

#include "basert/codepage.h"
#include "basert/internal/single_byte.h"

namespace {

inline unsigned char AsciiLower(unsigned char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c + 32) : c;
}
inline unsigned char AsciiUpper(unsigned char c) {
    return (c >= 'a' && c <= 'z') ? static_cast<unsigned char>(c - 32) : c;
}

// The character one byte stands for alone, or U+FFFF when it stands for none.
char16_t ByteAsCharacter(unsigned short codePage, unsigned char byte) {
    if (const BrSingleByteTables* t = BrSingleByteTablesOf(codePage)) return t->toU[byte];
    if (byte < 0x80) return byte;
    return u'\uFFFF';
}

}  // namespace

void BrSingleByteToUtf16(const BrSingleByteTables& t, bool asciiSame, const char* src, int64_t n,
                         char16_t* dst, int64_t& rep) {
    const auto* s = reinterpret_cast<const unsigned char*>(src);
    int64_t i = 0;
    while (i < n) {
        if (i + 16 <= n) {
            uint64_t a, b;
            std::memcpy(&a, s + i, 8);
            std::memcpy(&b, s + i + 8, 8);
            if (asciiSame && ((a | b) & 0x8080808080808080ULL) == 0) {
                for (int k = 0; k < 16; ++k) dst[i + k] = s[i + k];
            } else {
                for (int k = 0; k < 16; ++k) dst[i + k] = t.toU[s[i + k]];
            }
            i += 16;
            continue;
        }
        dst[i] = t.toU[s[i]];
        ++i;
    }
    if (t.hasHoles) {
        for (int64_t k = 0; k < n; ++k) rep += dst[k] == u'\uFFFD';
    }
}

int64_t BrSingleByteFromUtf16(const BrSingleByteTables& t, bool asciiSame, const char16_t* src,
                              int64_t n, char* dst, int64_t cap, int64_t& rep) {
    int64_t i = 0, o = 0;
    while (i < n) {
        // Blocks of ASCII are narrowed at once; others go unit by unit through the table.
        if (i + 16 <= n && o + 16 <= cap) {
            char16_t any = 0;
            for (int k = 0; k < 16; ++k) any |= src[i + k];
            if ((any & 0xFF80) == 0 && asciiSame) {
                for (int k = 0; k < 16; ++k) dst[o + k] = static_cast<char>(src[i + k]);
                i += 16;
                o += 16;
                continue;
            }
            bool allMapped = true;
            for (int k = 0; k < 16; ++k) {
                const uint8_t b = t.fromU[src[i + k]];
                allMapped = allMapped && (b != 0 || src[i + k] == 0);
                dst[o + k] = static_cast<char>(b);
            }
            if (allMapped) {
                i += 16;
                o += 16;
                continue;
            }
        }
        if (o >= cap) return kBrConvNoRoom;
        const char16_t u = src[i++];
        uint8_t b = t.fromU[u];
        if (b == 0 && u != 0) {
            ++rep;
            b = '?';
            if (u >= 0xD800 && u <= 0xDBFF && i < n && src[i] >= 0xDC00 && src[i] <= 0xDFFF) ++i;
        }
        dst[o++] = static_cast<char>(b);
    }
    return o;
}

int BrStrICmp(unsigned short codePage, const char* a, const char* b) {
    const BrSingleByteTables* t = BrSingleByteTablesOf(codePage);
    for (;; ++a, ++b) {
        const auto ua = static_cast<unsigned char>(*a);
        const auto ub = static_cast<unsigned char>(*b);
        const unsigned char ca = t != nullptr ? t->lower[ua] : AsciiLower(ua);
        const unsigned char cb = t != nullptr ? t->lower[ub] : AsciiLower(ub);
        if (ca != cb) return ca < cb ? -1 : 1;
        if (ca == 0) return 0;
    }
}

void BrToLowerCp(unsigned short codePage, char* text, int64_t n) {
    const BrSingleByteTables* t = BrSingleByteTablesOf(codePage);
    for (int64_t i = 0; i < n; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        text[i] = static_cast<char>(t != nullptr ? t->lower[c] : AsciiLower(c));
    }
}

void BrToUpperCp(unsigned short codePage, char* text, int64_t n) {
    const BrSingleByteTables* t = BrSingleByteTablesOf(codePage);
    for (int64_t i = 0; i < n; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        text[i] = static_cast<char>(t != nullptr ? t->upper[c] : AsciiUpper(c));
    }
}

bool BrIsDigitCp(unsigned short codePage, unsigned char byte) {
    return BrIsDigitW(ByteAsCharacter(codePage, byte));
}
bool BrIsSpaceCp(unsigned short codePage, unsigned char byte) {
    return BrIsSpaceW(ByteAsCharacter(codePage, byte));
}
bool BrIsLetterCp(unsigned short codePage, unsigned char byte) {
    return BrIsLetterW(ByteAsCharacter(codePage, byte));
}
