// Case and character classes of code-page bytes, the same on both back ends: single-byte pages go
// through their tables, every other page knows A-Z and ASCII only.
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
