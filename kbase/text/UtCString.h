// UtCString: the library's string, which carries its own text encoding.
//
// Each value stores its characters in one encoding, chosen at construction and kept by every
// assignment: an 8-bit Windows code page, UTF-8 or UTF-16 (eUtEncodingType). Whenever two texts of
// different encodings meet (assignment, concatenation, comparison) the other text is converted.
//
// Invariants kept by every member:
//  - the buffer is always present, NUL-terminated and exactly sized: no spare capacity, so every
//    append reallocates (deliberately: minimal memory per string over fast repeated appends);
//  - a UTF-8 buffer always starts with the mark EF BB BF (the empty UTF-8 string is EF BB BF 00);
//    string() returns the buffer with the mark, stringSkipBOM() past it;
//  - a leading FEFF/FFFE of 16-bit input is dropped;
//  - the length counts bytes for a code page (also a multi-byte one), code points for UTF-8 (the mark
//    not counted) and 16-bit units for UTF-16 (a surrogate pair counts two). Positions are in the
//    same units; "not found" is -1.
// Allocation failures leave a string as it was. Conversions that cannot produce text give the empty
// string. Texts that cannot be represented in a code page get '?' per character (see
// ToAnsiIfRepresentable for a conversion that refuses instead).
//
// Not thread-safe: the system-encoding cache and the scratch-buffer map are process-wide.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "kbase/export.h"
#include "kbase/text/UtCUtf.h"

namespace kbase_text_internal {
class UtCStringAccess;
}

class KBASE_API UtCString {
public:
    // ---- construction ---------------------------------------------------------------------
    UtCString();
    explicit UtCString(eUtEncodingType e);
    // 8-bit text in encoding source, stored in encoding target; count -1 means "to the NUL".
    UtCString(const char* text, eUtEncodingType source = eUtEncodingTypeSystemDefault,
              eUtEncodingType target = eUtEncodingTypeSystemDefault);
    UtCString(const char* text, int count, eUtEncodingType source, eUtEncodingType target);
    // UTF-16 text stored in encoding e.
    UtCString(const char16_t* text, eUtEncodingType e = eUtEncodingTypeSystemDefault);
    UtCString(const char16_t* text, int count, eUtEncodingType e);
    UtCString(const UtCString& other);
    UtCString(const UtCString& other, eUtEncodingType e);
    UtCString(UtCString&& other) noexcept;
    UtCString(const std::string& text, eUtEncodingType source = eUtEncodingTypeSystemDefault,
              eUtEncodingType target = eUtEncodingTypeSystemDefault);
    UtCString(const std::u16string& text, eUtEncodingType e = eUtEncodingTypeSystemDefault);
    // Decimal text of an integer.
    UtCString(short v, eUtEncodingType e);
    UtCString(unsigned short v, eUtEncodingType e);
    UtCString(int v, eUtEncodingType e);
    UtCString(unsigned int v, eUtEncodingType e);
    UtCString(long v, eUtEncodingType e);
    UtCString(unsigned long v, eUtEncodingType e);
    UtCString(long long v, eUtEncodingType e);
    UtCString(unsigned long long v, eUtEncodingType e);
    // An integer through the caller's printf format (see Append(value, format, ...)). The
    // unsigned short argument is kept for compatibility and not used.
    UtCString(short v, const char* format, unsigned short unused, eUtEncodingType e);
    UtCString(unsigned short v, const char* format, unsigned short unused, eUtEncodingType e);
    UtCString(int v, const char* format, unsigned short unused, eUtEncodingType e);
    UtCString(unsigned int v, const char* format, unsigned short unused, eUtEncodingType e);
    UtCString(long v, const char* format, unsigned short unused, eUtEncodingType e);
    UtCString(unsigned long v, const char* format, unsigned short unused, eUtEncodingType e);
    UtCString(long long v, const char* format, unsigned short unused, eUtEncodingType e);
    UtCString(unsigned long long v, const char* format, unsigned short unused, eUtEncodingType e);
    // Text of a real: FormatDouble(v, 6), FormatDouble(v, digits), or the caller's format.
    UtCString(double v, eUtEncodingType e);
    UtCString(double v, int digits, eUtEncodingType e);
    UtCString(double v, const char* format, unsigned short unused, eUtEncodingType e);
    // prefix + number (zero-padded to at least digits digits) + middle + index (decimal, left out
    // when negative) + suffix: the inverse of Convert(prefix, number, digits, suffix).
    UtCString(const UtCString& prefix, long number, long digits, const UtCString& middle, int index,
              const UtCString& suffix, eUtEncodingType e);
    ~UtCString();

    // Named initialisers, so that other modules can build strings in place (raw storage):
    // constructor(...) acts as the matching constructor on uninitialised memory, destructor()
    // as the destructor.
    void constructor(eUtEncodingType e = eUtEncodingTypeSystemDefault);
    void constructor(const char* text, eUtEncodingType source, eUtEncodingType target);
    void constructor(const char* text, int count, eUtEncodingType source, eUtEncodingType target);
    void constructor(const char16_t* text, eUtEncodingType e);
    void constructor(const char16_t* text, int count, eUtEncodingType e);
    void constructor(const UtCString& other);
    void constructor(const UtCString& other, eUtEncodingType e);
    void constructor(long long v, eUtEncodingType e);
    void constructor(double v, int digits, eUtEncodingType e);
    void destructor();

    // ---- assignment and concatenation ------------------------------------------------------
    // Every assignment, moving included, keeps this string's encoding and converts the source's
    // text into it (only ChangeEncodingType, ToAnsi, ToAnsiIfRepresentable and ToUnicode change it).
    UtCString& operator=(const UtCString& other);
    UtCString& operator=(UtCString&& other) noexcept;
    UtCString& operator=(const char* text);  // text in the system encoding
    UtCString& operator=(const char16_t* text);
    UtCString& operator=(const std::string& text);
    UtCString& operator=(const std::u16string& text);

    UtCString& operator+=(const UtCString& other);
    UtCString& operator+=(const char* text);
    UtCString& operator+=(const char16_t* text);
    UtCString& operator+=(char c);
    UtCString& operator+=(char16_t c);

    UtCString& Append(const UtCString& other);
    UtCString& Append(char c);
    UtCString& Append(char16_t c);
    UtCString& Append(short v);
    UtCString& Append(unsigned short v);
    UtCString& Append(int v);
    UtCString& Append(unsigned int v);
    UtCString& Append(long v);
    UtCString& Append(unsigned long v);
    UtCString& Append(long long v);
    UtCString& Append(unsigned long long v);
    UtCString& Append(double v);              // FormatDouble(v, 6)
    UtCString& Append(double v, int digits);  // FormatDouble(v, digits)
    // Appends the value through the caller's printf format (at most 100 bytes of text). A null
    // format does nothing. The text is taken as UTF-8 when it starts with the mark or the system
    // encoding is UTF-8, else in the system code page.
    UtCString& Append(short v, const char* format, unsigned short unused = 0);
    UtCString& Append(unsigned short v, const char* format, unsigned short unused = 0);
    UtCString& Append(int v, const char* format, unsigned short unused = 0);
    UtCString& Append(unsigned int v, const char* format, unsigned short unused = 0);
    UtCString& Append(long v, const char* format, unsigned short unused = 0);
    UtCString& Append(unsigned long v, const char* format, unsigned short unused = 0);
    UtCString& Append(long long v, const char* format, unsigned short unused = 0);
    UtCString& Append(unsigned long long v, const char* format, unsigned short unused = 0);
    UtCString& Append(double v, const char* format, unsigned short unused = 0);

    UtCString& Prepend(const UtCString& other);
    UtCString& Prepend(const char* text, eUtEncodingType e = eUtEncodingTypeSystemDefault);
    UtCString& Prepend(const char16_t* text);
    UtCString& Prepend(char c);
    UtCString& Prepend(char16_t c);
    // Inserts before character position (clamped to 0..length).
    UtCString& Insert(int position, const UtCString& other);
    UtCString& Insert(int position, const char* text, eUtEncodingType e = eUtEncodingTypeSystemDefault);
    UtCString& Insert(int position, const char16_t* text);
    UtCString& Insert(int position, char c);
    UtCString& Insert(int position, char16_t c);

    // ---- access -------------------------------------------------------------------------------
    int GetLength() const { return length_; }
    int length() const { return length_; }
    bool IsEmpty() const { return length_ == 0; }
    bool IsAny() const { return length_ != 0; }
    // The character at index i as one byte: a code page's byte; the first byte of a UTF-8 code
    // point; a UTF-16 unit below 0x80, '?' above. 0 for an index outside the string.
    char GetCharAt(int i) const;
    // The character at index i as a UTF-16 unit (a code page's byte converted; a UTF-8 code point
    // outside the BMP gives its high surrogate). 0 for an index outside the string.
    char16_t GetWcharAt(int i) const;
    // Replaces the character at i (an index outside the string does nothing; a character that the
    // encoding cannot hold becomes '?').
    void SetAt(int i, char c);
    void SetAt(int i, char16_t c);

    // The raw buffer as bytes (for UTF-8 with its mark). Meant for 8-bit strings.
    const char* ptr() const { return static_cast<const char*>(text_); }
    const char* string() const { return ptr(); }
    const char* GetString() const { return ptr(); }
    operator const char*() const { return ptr(); }
    // The buffer as UTF-16 units for a UTF-16 string; null for any other encoding (see
    // GetUtf16String for a converted copy).
    const char16_t* uptr() const;
    const char16_t* ustring() const { return uptr(); }
    const char16_t* GetUString() const { return uptr(); }
    operator const char16_t*() const { return uptr(); }
    // The buffer past a leading UTF-8 mark.
    const char* stringSkipBOM() const;

    eUtEncodingType encodingType() const { return static_cast<eUtEncodingType>(encoding_); }
    bool isAnsiEncodingType() const { return !isUtf8EncodingType() && !isUtf16EncodingType(); }
    bool isUtf8EncodingType() const { return encoding_ == eUtEncodingTypeUtf8; }
    bool isUtf16EncodingType() const { return UtCUtf::IsUtf16(encoding_); }
    // The process's system encoding (read once through OsUserCodePageBySystemDflt).
    static eUtEncodingType systemEncodingType();

    // 64-bit hash of the stored bytes (the same text hashes differently in other encodings).
    uint64_t hash() const;

    // ---- conversion between encodings -----------------------------------------------------------
    // Re-encodes the string in place. False (string unchanged) when the encoding is unavailable or
    // memory is short.
    bool ChangeEncodingType(eUtEncodingType e);
    // Re-encodes into the 8-bit code page e (256: the system code page; UTF-8 allowed).
    bool ToAnsi(eUtEncodingType e = eUtEncodingTypeSystemDefault);
    // Like ToAnsi, but only when every character exists in e; otherwise false and unchanged.
    bool ToAnsiIfRepresentable(eUtEncodingType e = eUtEncodingTypeSystemDefault);
    // Re-encodes into UTF-16 (e = 1200 or 1201) or UTF-8 (e = 65001).
    bool ToUnicode(eUtEncodingType e = eUtEncodingTypeUtf16);
    // A new NUL-terminated copy in the 8-bit encoding e in *out (free with UtFreeMemory); returns
    // its byte count, or -1 (and *out null) on failure.
    int GetAnsiString(char** out, eUtEncodingType e = eUtEncodingTypeSystemDefault) const;
    // The text in the system code page.
    std::string GetAnsiString() const;
    // A new UTF-8 copy in *out (free with UtFreeMemory), with the mark when withBom is non-zero;
    // returns its byte count or -1.
    int GetUtf8String(char** out, int withBom = 0) const;
    std::string GetUtf8String(int withBom = 0) const;
    // A new UTF-16 copy in *out (free with UtFreeMemory); returns its unit count or -1.
    int GetUtf16String(char16_t** out) const;
    std::u16string GetUtf16String() const;
    // Writes the text in encoding e into out (size bytes, terminator included; UTF-16 needs two
    // bytes per unit). False when it does not fit (out then holds an empty text if size > 1).
    bool toCharArray(char* out, const uint64_t& size, const eUtEncodingType& e) const;
    // Raw bytes of the buffer (terminator included) and the encoding: a copy in *out (free with
    // UtFreeMemory); returns the byte count or -1.
    int64_t GetMemCopy(void** out, eUtEncodingType* e) const;
    // Takes bytes as produced by GetMemCopy (bytes of text in encoding e, terminator optional).
    bool SetMemCopy(const void* bytes, int64_t byteCount, eUtEncodingType e);

    // ---- memory record -----------------------------------------------------------------------
    // Appends this string's record (24-byte header + text bytes) at the end of *block, which holds
    // size bytes, and sets size to the new end. False when memory is short (block unchanged).
    bool SaveToMem(unsigned char** block, uint64_t& size) const;
    // Reads a record at offset and advances offset past it. The unbounded form trusts the record;
    // the bounded form refuses (false, string and offset unchanged) a record that runs past
    // blockSize, whose text is not terminated, whose length disagrees with its text or whose
    // encoding is 256 or 65535 (never stored; the unbounded form reads them as the system
    // encoding). A null block gives false.
    bool ReadFromMem(const unsigned char* block, uint64_t& offset);
    bool ReadFromMem(const unsigned char* block, uint64_t blockSize, uint64_t& offset);

    // ---- comparison ---------------------------------------------------------------------------
    // -1, 0 or 1: ordinal comparison of units (bytes or 16-bit units); across encodings through
    // UTF-16. 1 when a conversion fails.
    int CompareTo(const UtCString& other) const {
        // Same code page: a byte comparison through the shorter text's terminator (inline, as
        // this is the hot path of sorting and searching).
        if (other.encoding_ == encoding_ && isAnsiEncodingType() && text_ != nullptr && other.text_ != nullptr) {
            const size_t n = static_cast<size_t>(length_ < other.length_ ? length_ : other.length_) + 1;
            const int r = __builtin_memcmp(text_, other.text_, n);
            return (r > 0) - (r < 0);
        }
        return CompareToOther(other);
    }
    int CompareTo(const char* text, eUtEncodingType e = eUtEncodingTypeSystemDefault) const;
    int CompareTo(const char16_t* text) const;
    // Case-insensitive: < 0, 0, > 0 (1 when a conversion fails).
    int CompareToNoCase(const UtCString& other) const;
    int CompareToNoCase(const char* text, eUtEncodingType e = eUtEncodingTypeSystemDefault) const;
    int CompareToNoCase(const char16_t* text) const;
    // Natural order: both texts are split into runs of decimal digits and runs of other
    // characters, and the two lists are compared with UtCStringMultiNumberComparator (with its
    // asymmetry); with ignoreCase the runs are lower-cased first. < 0, 0 or > 0.
    int CompareToNoCaseTokenizeNumeric(const UtCString& other, bool ignoreCase = true) const;
    bool EqualNoCase(const UtCString& other) const { return CompareToNoCase(other) == 0; }
    bool EqualNoCase(const char* text, eUtEncodingType e = eUtEncodingTypeSystemDefault) const {
        return CompareToNoCase(text, e) == 0;
    }
    bool EqualNoCase(const char16_t* text) const { return CompareToNoCase(text) == 0; }

    bool operator==(const UtCString& o) const { return CompareTo(o) == 0; }
    bool operator!=(const UtCString& o) const { return CompareTo(o) != 0; }
    bool operator<(const UtCString& o) const { return CompareTo(o) < 0; }
    bool operator<=(const UtCString& o) const { return CompareTo(o) <= 0; }
    bool operator>(const UtCString& o) const { return CompareTo(o) > 0; }
    bool operator>=(const UtCString& o) const { return CompareTo(o) >= 0; }
    bool operator==(const char* t) const { return CompareTo(t) == 0; }
    bool operator!=(const char* t) const { return CompareTo(t) != 0; }
    bool operator<(const char* t) const { return CompareTo(t) < 0; }
    bool operator<=(const char* t) const { return CompareTo(t) <= 0; }
    bool operator>(const char* t) const { return CompareTo(t) > 0; }
    bool operator>=(const char* t) const { return CompareTo(t) >= 0; }
    bool operator==(const char16_t* t) const { return CompareTo(t) == 0; }
    bool operator!=(const char16_t* t) const { return CompareTo(t) != 0; }
    bool operator<(const char16_t* t) const { return CompareTo(t) < 0; }
    bool operator<=(const char16_t* t) const { return CompareTo(t) <= 0; }
    bool operator>(const char16_t* t) const { return CompareTo(t) > 0; }
    bool operator>=(const char16_t* t) const { return CompareTo(t) >= 0; }
    bool operator==(const std::string& t) const { return CompareTo(t.c_str()) == 0; }
    bool operator!=(const std::string& t) const { return CompareTo(t.c_str()) != 0; }
    bool operator==(const std::u16string& t) const { return CompareTo(t.c_str()) == 0; }
    bool operator!=(const std::u16string& t) const { return CompareTo(t.c_str()) != 0; }

    // ---- search and tests --------------------------------------------------------------------
    // First position >= start where the text occurs, or -1.
    int Search(int start, const UtCString& text) const;
    int Search(int start, char c, eUtEncodingType e = eUtEncodingTypeSystemDefault) const;
    int Search(int start, char16_t c) const;
    int Index(char c) const;
    int Index(char16_t c) const;
    int RIndex(char c) const;
    int RIndex(char16_t c) const;
    // First position >= start of a character that is (not) in set, or -1.
    int FindOneOf(const UtCString& set, int start = 0) const;
    int FindOneNotOf(const UtCString& set, int start = 0) const;
    bool Contains(const UtCString& text) const { return Search(0, text) >= 0; }
    // Non-overlapping occurrences of text (0 for an empty text).
    int CountOccurrences(const UtCString& text) const;
    bool StartsWith(const UtCString& prefix, bool noCase = false) const;
    bool StartsWithAscii(char c, bool noCase = false) const;
    bool EndsWith(const UtCString& suffix, bool noCase = false) const;
    // True when every character is in set (true for the empty string).
    bool ConsistOnlyOf(const UtCString& set) const;
    int IsDigit(int i) const;
    int IsLetter(int i) const;
    int IsSpace(int i) const;
    bool IsNumber() const;

    // ---- pieces and edits ----------------------------------------------------------------------
    UtCString substr(int start, int count = -1) const;
    UtCString left(int n) const;
    UtCString right(int n) const;
    // The leading run (from start) of characters in set / not in set.
    UtCString SpanIncluding(const UtCString& set, int start = 0) const;
    UtCString SpanExluding(const UtCString& set, int start = 0) const;
    UtCString& SetToSubstr(int start, int count = -1);
    UtCString& SetToLeft(int n);
    UtCString& SetToRight(int n);
    // Deletes count characters from position (clamped); returns the new length.
    int Delete(int position, int count = 1);
    // Removes every occurrence of text; returns how many were removed.
    int Remove(const UtCString& text);
    // Removes text once at the start / end when it is there; returns whether it was.
    bool RemoveAtStart(const UtCString& text, bool noCase = false);
    bool RemoveAtEnd(const UtCString& text, bool noCase = false);
    // Replaces occurrences of what by with, left to right, at most limit times (limit < 0: all);
    // returns the count of replacements.
    int replace(const UtCString& what, const UtCString& with, bool noCase = false, int limit = -1);
    int replace(char what, char with);
    int replace(char16_t what, char16_t with);
    int replace(const UtCString& what, char with);
    UtCString& trim();
    UtCString& trimLeft();
    UtCString& trimRight();
    UtCString& trim(const UtCString& set);
    UtCString& trimLeft(const UtCString& set);
    UtCString& trimRight(const UtCString& set);
    UtCString toLower() const;
    UtCString toUpper() const;
    UtCString& SetToLower();
    UtCString& SetToUpper();
    UtCString& Enclose(const UtCString& around);
    UtCString& Enclose(const UtCString& before, const UtCString& after);
    // Pads to width characters by inserting copies of c at position.
    UtCString& Expand(int width, char c = ' ', int position = 0);
    UtCString& ExpandW(int width, char16_t c = u' ', int position = 0);
    // Unicode normalisation of a UTF-16 string: form 'C' or 'D', compatibility forms KC/KD with
    // the flag. Other forms and other encodings leave the string as it is.
    bool NormalizeForm(char form, bool compatibility = false);
    UtCString& SetEmpty();
    UtCString& Empty() { return SetEmpty(); }

    // ---- formatting ------------------------------------------------------------------------------
    // printf into the string (the result is text in the system code page). Returns the length.
    int Format(const char* format, ...);
    // The wide form: %s and %c take UTF-16 (const char16_t*, char16_t); %hs takes 8-bit text in
    // the system encoding. The result keeps the string's encoding.
    int Format(const char16_t* format, ...);
    int AppendFormat(const char* format, ...);
    int AppendFormat(const char16_t* format, ...);
    int FormatV(const char* format, va_list args);
    // sscanf over the text (8-bit form; a UTF-8 or UTF-16 string is scanned as UTF-8): the count of
    // assigned fields, or -1 when the format or text is null or the input ends first.
    int UnFormat(const char* format, ...) const;
    int UnFormat(const char16_t* format, ...) const;
    // Fixed-point text with trailing zeros (and a trailing point) removed; the separator is '.'.
    UtCString& FormatDouble(double value, int digits);
    // Fixed-point text with all digits, using the user's decimal separator.
    UtCString& FormatDoubleLocale(double value, int digits);
    UtCString& FormatFloat(float value, int digits);
    // Sets the string to the values with the user's decimal separator (as FormatDoubleLocale,
    // trailing zeros removed), separated by "; ". count <= 0 gives the empty string.
    UtCString& DoubleValueListToGuiString(const double* values, int count, int digits = 6);
    // Parses a list written by DoubleValueListToGuiString (';' separates; '.' and the user's
    // separator are both accepted as decimal point). Writes at most maxCount values and returns
    // how many the text holds, or -1 when an item is not a number.
    int GuiStringToDoubleValueList(double* values, int maxCount) const;

    // ---- text to number ----------------------------------------------------------------------------
    bool Convert(bool& value) const;
    bool Convert(short& value) const;
    bool Convert(unsigned short& value) const;
    bool Convert(int& value) const;
    bool Convert(long& value) const;
    bool Convert(unsigned long& value) const;
    bool Convert(long long& value) const;
    bool Convert(unsigned long long& value) const;
    bool Convert(float& value) const;
    bool Convert(double& value) const;
    // Splits at the last run of decimal digits: "plan_007.dwg" gives "plan_", 7, 3, ".dwg". False
    // (outputs untouched) when there is no digit or the run is too long for a long.
    bool Convert(UtCString& prefix, long& number, long& digits, UtCString& suffix) const;

    // ---- paths (both '/' and '\' separate; results keep the string's encoding) ----------------
    // The folder part including its final separator ("a/b/c.txt" -> "a/b/"); empty when none.
    UtCString SplitPath() const;
    // The last component ("a/b/c.txt" -> "c.txt"); rest receives the folder part.
    UtCString SplitFileName() const;
    UtCString SplitFileName(UtCString& rest) const;
    // The extension without its dot ("c.tar.gz" -> "gz"; none for ".profile"); rest receives the
    // path without the extension and its dot.
    UtCString SplitFileExtension() const;
    UtCString SplitFileExtension(UtCString& rest) const;
    // Case-insensitive test of the extension; ext may start with a dot.
    bool HasFileExtension(const UtCString& ext) const;
    // a and b joined by exactly one '/' (either may be empty).
    static UtCString JoinFilePath(const UtCString& a, const UtCString& b);
    // '\' becomes '/', repeated separators collapse, "." components go and "x/.." pairs cancel
    // (a leading ".." that cannot cancel stays).
    UtCString& StandardizePath();
    // Writes a path that starts with the value of HOME, TMPDIR or a variable named in
    // KBASE_PATH_VARIABLES (comma-separated) as "$NAME" + rest; the longest value wins.
    UtCString& PathAbsToEnv();
    // Replaces a leading "$NAME", "${NAME}" or "%NAME%" by the variable's value when it is set.
    UtCString& PathEnvToAbs();

    // ---- raw buffers ------------------------------------------------------------------------------
    // A separate writable block of n + 4 bytes (first byte 0), one per string at a time: null when
    // one is already out or memory is short. ReleaseBuffer assigns its NUL-terminated text in
    // encoding e and frees it.
    char* GetBuffer(int n);
    void ReleaseBuffer(eUtEncodingType e = eUtEncodingTypeSystemDefault);
    // The same for UTF-16 (n + 4 units).
    char16_t* GetUBuffer(int n);
    void ReleaseUBuffer();

protected:
    // Byte size of the text including its terminator (see the memory record).
    uint64_t BufferSize() const;
    // Assignment and concatenation primitives: a pointer and a count (-1: to the terminator).
    bool Set(const UtCString* other);
    bool Set(const char* text, int64_t count, unsigned short source);
    bool Set(const char16_t* text, int64_t count);
    bool Add(const char* text, int64_t count, unsigned short source);
    bool Add(const char16_t* text, int64_t count);
    // Builds a + b (each already in this string's encoding terms: pointer, count, encoding).
    bool Add(const void* a, int64_t countA, unsigned short encA, const void* b, int64_t countB,
             unsigned short encB);

private:
    friend class kbase_text_internal::UtCStringAccess;
    void Init(unsigned short e);
    void EnsureBuffer();
    void Free();
    void Swap(UtCString& other, bool withBufferIndex);
    static unsigned short MapEncodingType(unsigned short e);
    // Replaces the buffer by a converted copy of the text; false leaves the string unchanged.
    bool Assign(const void* text, int64_t count, unsigned short source);
    bool AppendText(const void* text, int64_t count, unsigned short source);
    // Takes ownership of a NUL-terminated block in this string's encoding (UTF-8 without mark).
    bool Adopt(void* block, int64_t units, int64_t codePoints = -1);
    int64_t ByteOffset(int index) const;  // UTF-8: buffer offset of code point index (mark counted)
    int FindText(int start, const UtCString& text, bool noCase) const;
    int CompareToOther(const UtCString& other) const;
    void AppendFormattedText(const char* text);
    void ReleaseBufferImpl(bool assign, unsigned short e, bool wide);

    void* text_;
    uint16_t encoding_;
    uint16_t bufferIndex_;
    int32_t length_;
};

KBASE_API UtCString operator+(const UtCString& a, const UtCString& b);
KBASE_API UtCString operator+(const UtCString& a, const char* b);
KBASE_API UtCString operator+(const char* a, const UtCString& b);
KBASE_API UtCString operator+(const UtCString& a, const char16_t* b);
KBASE_API UtCString operator+(const char16_t* a, const UtCString& b);
KBASE_API UtCString operator+(const UtCString& a, char b);
KBASE_API UtCString operator+(const UtCString& a, char16_t b);
