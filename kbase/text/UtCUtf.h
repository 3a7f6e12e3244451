// Encoding classes: the one place in kbase that converts text between encodings.
//
// UtCUtf converts a counted text from one encoding to another into a newly allocated block
// (UtAllocMemoryBlock; release with UtFreeMemory). UtCUtf8 and UtCUtf16 hold the small rules of
// their encodings: the UTF-8 mark (EF BB BF), code-point counting, the UTF-16 mark (FEFF/FFFE).
#pragma once

#include <cstdint>

#include "kbase/export.h"

// A Windows code-page number; any value of 0..65535 is valid (see the named ones below).
enum eUtEncodingType : unsigned short {
    eUtEncodingTypeAnsi1250 = 1250,
    eUtEncodingTypeAnsi1252 = 1252,
    eUtEncodingTypeSystemDefault = 256,  // resolved to the system code page on construction
    eUtEncodingTypeUtf16 = 1200,         // UTF-16, little-endian units
    eUtEncodingTypeUtf16BE = 1201,       // treated exactly like 1200
    eUtEncodingTypeUtf8 = 65001,
    eUtEncodingTypeUnknown = 65535,      // only the initial value of the system-encoding cache
};

// Converts between any two encodings.
class KBASE_API UtCUtf {
public:
    // The outcome of Convert.
    struct Result {
        void* text = nullptr;   // NUL-terminated block (1- or 2-byte elements), null on failure
        int64_t units = 0;      // elements written, terminator excluded (bytes or 16-bit units)
        int64_t replaced = 0;   // characters that had no mapping in the target (or were invalid)
        int64_t codePoints = -1;  // code points of the text when known cheaply, else -1
        bool ok = false;        // false: unknown code page or no memory; text is null then
    };

    // Converts count elements of text (count < 0: up to the terminator; a terminator within count
    // ends the text there too) from one encoding to the
    // other into a new exactly sized block plus terminator. A UTF-8 result carries no mark and a
    // UTF-8 source's leading mark is skipped; a leading FEFF/FFFE of a UTF-16 source is skipped.
    // Converting an encoding into itself copies. With utf8Mark a UTF-8 result starts with the mark
    // (counted in units). Cost: one pass (two through UTF-16 between two code pages).
    static Result Convert(const void* text, int64_t count, unsigned short from, unsigned short to,
                          bool utf8Mark = false);

    // Whether the encoding is UTF-16 (1200 or 1201).
    static bool IsUtf16(unsigned short e) { return e == 1200 || e == 1201; }
    static bool IsUtf8(unsigned short e) { return e == 65001; }
    // Whether conversions to and from the encoding are possible (false also while its converter
    // cannot get memory).
    static bool IsAvailable(unsigned short e);
    // Whether the encoding does not exist at all: no text can ever be had in it.
    static bool IsUnknown(unsigned short e);
};

class KBASE_API UtCUtf8 {
public:
    static constexpr unsigned char kBom[3] = {0xEF, 0xBB, 0xBF};

    // Whether the first three bytes (of at least n) are the mark.
    static bool HasBOM(const char* text, int64_t n = 3);
    // text past a leading mark, or text itself.
    static const char* SkipBOM(const char* text);
    // Writes the mark into the first three bytes of a block of at least three bytes.
    static void SetToBOM(char* block);
    // Code points in n bytes (n < 0: to the NUL): every byte that is not a continuation byte
    // (10xxxxxx) starts one; so a malformed text still counts each stray byte once.
    static int64_t CountCodePoints(const char* text, int64_t n = -1);
    // Byte offset of code point index i within n bytes (n when i is past the end).
    static int64_t OffsetOfCodePoint(const char* text, int64_t n, int64_t i);
};

class KBASE_API UtCUtf16 {
public:
    // Whether unit is a byte-order mark in either order.
    static bool IsBOM(char16_t unit) { return unit == 0xFEFF || unit == 0xFFFE; }
    // text past one leading FEFF/FFFE, or text itself. Null stays null.
    static const char16_t* SkipBOM(const char16_t* text);
    // Units before the terminator.
    static int64_t Length(const char16_t* text);
};
