// Text encodings: conversion between Windows code pages and UTF-16, Unicode normalisation,
// case-insensitive comparison, case mapping and character classes.
//
// A code page is named by its Windows number: 65001 is UTF-8, 1200/1201 are UTF-16 (handled by the
// caller, not here), every other number an 8-bit single- or multi-byte code page. Conversions never
// substitute silently: each returns how many input characters had no mapping (or were invalid) and
// were replaced, so that a caller can refuse lossy results.
//
// Replacement rules (fixed, so results are reproducible):
//  - bytes -> UTF-16: an invalid or unassigned sequence becomes U+FFFD; in a single-byte code page an
//    unassigned byte b in 0x80..0x9F becomes the control character U+00b instead (as Windows does for
//    1252's five holes), which is not counted as a replacement, so every byte string round-trips;
//  - UTF-16 -> bytes: a character without a mapping becomes '?' (one per character, a surrogate pair
//    being one character); a lone surrogate becomes '?' (UTF-8: EF BF BD).
//
// Two back ends, the same contract: ICU (POSIX) and the system's own calls (Windows). Both split a
// bad multi-byte text alike (a lead byte and a byte that may follow it, 40..7E or 80..FE (932:
// ..FC), are one sequence; otherwise the lead byte alone is), and both keep the controls 1A, 1C
// and 7F in place, which IBM's tables in ICU rotate. Where a user can see them differ
// (tests/basert/codepage_agreement_test.cpp finds each):
//  - which pages exist: each knows its own set (BrCodePageList). ICU also answers to IBM numbers
//    that are no Windows page (273, 277, 4517, 5346 among others, where Windows says 20273,
//    20277, ...); Windows converts UTF-32 (12000/12001) here, and a system may lack pages (Wine:
//    ISO-2022-JP 50220, GB 18030 54936, the EBCDIC pages 1047 and 1140..1149) and have pages ICU
//    lacks (Wine: 708, Mac pages 10004..10082);
//  - the mapping tables are each system's own: ICU's follow Windows' published tables, Wine's
//    differ in some bytes (it has no character for 936/949/950's byte FF, U+F8F5..F8F8 in ICU;
//    reads 932's byte 80 as U+0080; maps byte E6 of 437 and 860..865 to U+00B5, not U+03BC; and
//    differs in a few bytes of 852, 864, 869, 874 (F8C1..F8C8), 1026, 1253 (AA), 1255 (CA), 21866,
//    28597, 28598 and the Mac pages 10000..10081), and Shift-JIS vendor duplicates go back to
//    each system's choice of bytes;
//  - Windows: a decoder of a stateful page (UTF-7, ISO-2022) holds the whole text until the last
//    block; BrNormalizeBoundary finds boundaries only before characters known to start a segment
//    (below U+0300, Greek, Cyrillic, kana, CJK, Hangul, ligatures, emoji), so it returns 0 for
//    more texts; case mapping is that of the invariant locale (Wine's upper-cases U+00B5 MICRO
//    SIGN to itself, ICU to U+039C), character classes those of GetStringTypeW (superscript
//    digits are no digits on either).
#pragma once

#include <cstdint>

#include "basert/export.h"

constexpr unsigned short kBrCodePageUtf8 = 65001;

// Result codes of the conversion functions (a count >= 0 otherwise).
constexpr int64_t kBrConvUnknownCodePage = -1;  // no converter for that number
constexpr int64_t kBrConvNoRoom = -2;           // dst capacity too small; nothing usable written
constexpr int64_t kBrConvNoMemory = -3;         // the converter could not get memory

// Whether the code page can be converted (a converter exists for it and could be opened).
// 1200/1201 give false, and so does a page whose converter could not get memory.
BASERT_API bool BrCodePageAvailable(unsigned short codePage);
// Whether no converter exists for the number (1200/1201 included); false when one exists but
// could not get memory, so that a caller can tell a lasting answer from a passing one.
BASERT_API bool BrCodePageUnknown(unsigned short codePage);
// Most bytes one UTF-16 unit can need in that code page (UTF-8: 3), or 0 when unknown.
BASERT_API int BrCodePageMaxBytes(unsigned short codePage);
// Whether every byte of the code page is one character (Latin, Cyrillic, Greek, ... code pages).
BASERT_API bool BrCodePageIsSingleByte(unsigned short codePage);
// Whether bytes 0x00..0x7F are ASCII and never part of a longer sequence (so a pure ASCII text
// is the same in that code page, in UTF-8 and, widened, in UTF-16).
BASERT_API bool BrCodePageIsAsciiCompatible(unsigned short codePage);

// Converts n bytes (n < 0: up to the first NUL) of text in codePage into UTF-16 at dst, which has
// room for cap units; n units always suffice. No terminator is written. Returns the number of units
// written or a kBrConv* code. *replaced, when given, receives the count of replaced sequences.
BASERT_API int64_t BrMbToUtf16(unsigned short codePage, const char* src, int64_t n, char16_t* dst,
                               int64_t cap, int64_t* replaced = nullptr);

// Converts n UTF-16 units (n < 0: up to the first NUL) into codePage at dst, which has room for cap
// bytes; n * BrCodePageMaxBytes(codePage) bytes always suffice. No terminator is written. Returns the
// number of bytes written or a kBrConv* code; *replaced as above.
BASERT_API int64_t BrUtf16ToMb(unsigned short codePage, const char16_t* src, int64_t n, char* dst,
                               int64_t cap, int64_t* replaced = nullptr);

// Writes the numbers of every code page that can be converted into out (room for cap numbers), in
// ascending order, and returns how many there are (more than cap: only cap were written). 1200 and
// 1201 are not among them. Cost: opens every converter the back end has, once per process.
BASERT_API int64_t BrCodePageList(unsigned short* out, int64_t cap);

// Streaming conversion of a text that arrives block by block: a sequence cut by the end of a block,
// and the shift state of a stateful code page (ISO-2022, UTF-7), carry over to the next call, so
// the result is the same as converting the whole text at once. Replacement rules as above.
struct BrDecoder;
// A decoder for the code page, or null when it is unknown (or 1200/1201) or memory ran out.
[[nodiscard]] BASERT_API BrDecoder* BrDecoderOpen(unsigned short codePage);
BASERT_API void BrDecoderClose(BrDecoder* decoder);
// Converts bytes src[0..n) into UTF-16 at dst (room for cap units); last marks the end of the text
// (a sequence cut there is then invalid). Returns the units written, or kBrConvNoMemory. *read
// receives the bytes taken: fewer than n, and possibly units held back, only when dst filled up, so
// call again with the rest (even none) until a call leaves room in dst. *firstBad receives the
// offset, counted from the first byte ever given to the decoder, of the first invalid or unassigned
// sequence of this call, or -1.
BASERT_API int64_t BrDecode(BrDecoder* decoder, const char* src, int64_t n, bool last,
                            char16_t* dst, int64_t cap, int64_t* read, int64_t* firstBad);

// Unicode normalisation, forms as Windows numbers them: 1 C, 2 D, 5 KC, 6 KD.
// With cap 0 (dst may be null) returns an estimate of the units needed, never less than needed.
// Otherwise normalises n units (n < 0: to the NUL) into dst and returns the count written, 0 when
// the input is not well-formed UTF-16, or -(needed) when cap is too small. An unknown form gives 0.
BASERT_API int64_t BrNormalize(int form, const char16_t* src, int64_t n, char16_t* dst, int64_t cap);
// Where a text read in pieces may be cut for normalisation: the index of the last character of
// src[0..n) before which the form has a boundary whatever precedes it, so that src[0..k) and
// src[k..) normalise independently. 0 when there is none after index 0 (or the form is unknown).
BASERT_API int64_t BrNormalizeBoundary(int form, const char16_t* src, int64_t n);

// Case-insensitive comparison of NUL-terminated texts by the simple lower-case mapping of each
// unit: < 0, 0 or > 0 as the first differing lowered unit of a is smaller or larger.
BASERT_API int BrWcsICmp(const char16_t* a, const char16_t* b);
// The same for texts in an 8-bit code page: bytes are lowered through the code page's characters
// in a single-byte code page, and only A-Z otherwise.
BASERT_API int BrStrICmp(unsigned short codePage, const char* a, const char* b);

// In-place case mapping of n units (one unit to one unit; characters whose mapping would change the
// length are left alone).
BASERT_API void BrToLowerW(char16_t* text, int64_t n);
BASERT_API void BrToUpperW(char16_t* text, int64_t n);
// In-place case mapping of n bytes in codePage (single-byte code pages through their characters,
// others A-Z only; a byte is replaced only when the mapped character exists in the code page).
BASERT_API void BrToLowerCp(unsigned short codePage, char* text, int64_t n);
BASERT_API void BrToUpperCp(unsigned short codePage, char* text, int64_t n);

// Character classes of a UTF-16 unit: decimal digit (any script), white space, letter.
BASERT_API bool BrIsDigitW(char16_t c);
BASERT_API bool BrIsSpaceW(char16_t c);
BASERT_API bool BrIsLetterW(char16_t c);
// Character classes of one byte of a code page: the character the byte stands for alone (a lead
// byte of a multi-byte code page stands for none and gives false).
BASERT_API bool BrIsDigitCp(unsigned short codePage, unsigned char byte);
BASERT_API bool BrIsSpaceCp(unsigned short codePage, unsigned char byte);
BASERT_API bool BrIsLetterCp(unsigned short codePage, unsigned char byte);
