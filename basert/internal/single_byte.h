// The tables of a single-byte code page, built the same way by both back ends from what their
// converter says of each byte alone, so that the C1 fill and the reverse mapping cannot drift.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>

struct BrSingleByteTables {
    bool hasHoles = false;                      // some byte maps to U+FFFD
    std::array<char16_t, 256> toU{};            // byte -> unit
    std::unique_ptr<uint8_t[]> fromU;           // unit -> byte, 0 = none (except U+0000)
    std::array<uint8_t, 256> lower{}, upper{};  // case mapping within the page
};

// mapped[b] is the one unit byte b converts to alone, or -1 when the converter refuses it. lower
// and upper map one unit (simple case mapping).
template <typename Lower, typename Upper>
void BrBuildSingleByteTables(BrSingleByteTables& t, std::array<int32_t, 256> mapped, Lower lower,
                             Upper upper) {
    // A byte above 0x7F that the system maps onto the ASCII character a lower byte already stands
    // for is no character of its own when it is the byte's own low 7 bits (Windows folds the upper
    // half of 20127 onto ASCII) or U+001A (its fill for holes of EBCDIC pages).
    std::array<bool, 128> asciiTaken{};
    for (int b = 0; b < 0x80; ++b) {
        if (mapped[b] >= 0 && mapped[b] < 0x80) asciiTaken[mapped[b]] = true;
    }
    for (int b = 0x80; b < 256; ++b) {
        const bool folded = mapped[b] == b - 0x80 || mapped[b] == 0x1A;
        if (folded && asciiTaken[mapped[b]]) mapped[b] = -1;
    }
    std::array<bool, 256> c1Taken{};
    for (int b = 0; b < 256; ++b) {
        if (mapped[b] < 0) continue;
        t.toU[b] = static_cast<char16_t>(mapped[b]);
        if (mapped[b] >= 0x80 && mapped[b] <= 0x9F) c1Taken[mapped[b]] = true;
    }
    for (int b = 0; b < 256; ++b) {
        if (mapped[b] >= 0) continue;
        // Windows fills the holes of its single-byte pages with the C1 control of the same value.
        t.toU[b] = (b >= 0x80 && b <= 0x9F && !c1Taken[b]) ? static_cast<char16_t>(b) : u'\uFFFD';
        t.hasHoles = t.hasHoles || t.toU[b] == u'\uFFFD';
    }
    t.fromU = std::make_unique<uint8_t[]>(65536);
    std::memset(t.fromU.get(), 0, 65536);
    for (int b = 255; b >= 1; --b) {  // the lowest byte wins when two map to one character
        if (t.toU[b] != u'\uFFFD') t.fromU[t.toU[b]] = static_cast<uint8_t>(b);
    }
    for (int b = 0; b < 256; ++b) {
        const char16_t u = t.toU[b];
        const auto lo = static_cast<char16_t>(lower(u));
        const auto up = static_cast<char16_t>(upper(u));
        t.lower[b] = (lo == u || t.fromU[lo] == 0) ? static_cast<uint8_t>(b) : t.fromU[lo];
        t.upper[b] = (up == u || t.fromU[up] == 0) ? static_cast<uint8_t>(b) : t.fromU[up];
    }
}

// Conversions of a single-byte page through its tables, shared by both back ends. asciiSame: the
// bytes below 0x80 stand for themselves, so runs of ASCII go 16 at a time.
// n bytes to n units (dst has room for n); each byte that stands for no character counts in rep.
void BrSingleByteToUtf16(const BrSingleByteTables& t, bool asciiSame, const char* src, int64_t n,
                         char16_t* dst, int64_t& rep);
// n units to bytes: the count written, or kBrConvNoRoom. A character the page lacks becomes '?'
// and counts in rep; a surrogate pair is one character.
int64_t BrSingleByteFromUtf16(const BrSingleByteTables& t, bool asciiSame, const char16_t* src,
                              int64_t n, char* dst, int64_t cap, int64_t& rep);

// The tables of a single-byte code page of the back end in use, or null for any other page.
const BrSingleByteTables* BrSingleByteTablesOf(unsigned short codePage);
