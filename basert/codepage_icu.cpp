// ICU back end of the code-page layer. Single-byte code pages are served from tables built once
// from ICU's mapping (faster than ICU's own per-call path, and it lets us fill the C1 holes);
// everything else goes through an ICU converter with counting callbacks.
#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <set>

#include "basert/codepage.h"
#include "basert/internal/codepage_cache.h"
#include "basert/internal/single_byte.h"
#include "basert/memory.h"

namespace {

struct CodePage : BrSingleByteTables {  // the tables serve single-byte pages only
    unsigned short number = 0;
    UConverter* cnv = nullptr;       // null for the table-driven single-byte pages
    bool singleByte = false;
    bool asciiCompatible = false;    // 0x00..0x7F are ASCII and never part of a longer sequence
    bool rotated = false;            // ICU's table rotates three controls (RotatesControls)
    int maxBytes = 0;

    ~CodePage() {
        if (cnv != nullptr) ucnv_close(cnv);
    }
};

// Windows numbers whose ICU name is not simply "windows-N", "cpN" or "ibm-N".
struct Alias {
    unsigned short number;
    const char* name;
};
constexpr Alias kAliases[] = {
    {65001, "UTF-8"},        {20127, "US-ASCII"},     {28591, "ISO-8859-1"},
    {28592, "ISO-8859-2"},   {28593, "ISO-8859-3"},   {28594, "ISO-8859-4"},
    {28595, "ISO-8859-5"},   {28596, "ISO-8859-6"},   {28597, "ISO-8859-7"},
    {28598, "ISO-8859-8"},   {28599, "ISO-8859-9"},   {28603, "ISO-8859-13"},
    {28605, "ISO-8859-15"},  {20866, "KOI8-R"},       {21866, "KOI8-U"},
    {932, "windows-31j"},    {936, "windows-936"},    {949, "windows-949"},
    {950, "windows-950"},    {51932, "EUC-JP"},       {51949, "EUC-KR"},
    {54936, "GB18030"},      {50220, "ISO-2022-JP"},  {10000, "macintosh"},
    {12000, "UTF-32LE"},     {12001, "UTF-32BE"},
};

// ICU's converter for a Windows number, or null when it has none. Throws std::bad_alloc when ICU
// ran out of memory: the page exists, and a later try may open it.
UConverter* OpenIcu(unsigned short number) {
    UErrorCode err = U_ZERO_ERROR;
    for (const Alias& a : kAliases) {
        if (a.number == number) {
            UConverter* c = ucnv_open(a.name, &err);
            if (err == U_MEMORY_ALLOCATION_ERROR) throw std::bad_alloc();
            return U_SUCCESS(err) ? c : nullptr;
        }
    }
    char name[32];
    for (const char* pattern : {"windows-%u", "cp%u", "ibm-%u"}) {
        std::snprintf(name, sizeof name, pattern, static_cast<unsigned>(number));
        err = U_ZERO_ERROR;
        UConverter* c = ucnv_open(name, &err);
        if (err == U_MEMORY_ALLOCATION_ERROR) throw std::bad_alloc();
        if (U_SUCCESS(err) && err != U_AMBIGUOUS_ALIAS_WARNING) return c;
        if (c != nullptr) ucnv_close(c);
    }
    return nullptr;
}

bool IsStateful(UConverter* c) {
    UErrorCode err = U_ZERO_ERROR;
    const UConverterType t = ucnv_getType(c);
    return t == UCNV_ISO_2022 || t == UCNV_HZ || t == UCNV_SCSU || t == UCNV_BOCU1 ||
           t == UCNV_EBCDIC_STATEFUL || t == UCNV_IMAP_MAILBOX || t == UCNV_UTF7 ||
           U_FAILURE(err);
}

// IBM's tables, which ICU has for the PC pages (437, 850, ...) and Shift-JIS, rotate three
// controls: byte 1A is U+001C, 1C is U+007F and 7F is U+001A. Windows keeps every control in
// place, and so do we, by turning ICU's units and bytes back. In those pages the three bytes are
// never part of a longer sequence, so the units and bytes can be turned wherever they stand.
bool RotatesControls(UConverter* c) {
    const char bytes[3] = {0x1A, 0x1C, 0x7F};
    UChar out[8];
    UErrorCode err = U_ZERO_ERROR;
    ucnv_resetToUnicode(c);
    const int32_t n = ucnv_toUChars(c, out, 8, bytes, 3, &err);
    ucnv_resetToUnicode(c);
    return U_SUCCESS(err) && n == 3 && out[0] == 0x1C && out[1] == 0x7F && out[2] == 0x1A;
}
char16_t UnrotateUnit(char16_t u) {
    return u == 0x1C ? u'\x1A' : u == 0x7F ? u'\x1C' : u == 0x1A ? u'\x7F' : u;
}
char UnrotateByte(char b) {
    return b == 0x7F ? '\x1A' : b == 0x1A ? '\x1C' : b == 0x1C ? '\x7F' : b;
}

bool MapsAsciiToItself(UConverter* c, bool rotated) {
    char bytes[128];
    for (int i = 0; i < 128; ++i) bytes[i] = static_cast<char>(i);
    UChar out[256];
    UErrorCode err = U_ZERO_ERROR;
    ucnv_resetToUnicode(c);
    const int32_t n = ucnv_toUChars(c, out, 256, bytes, 128, &err);
    ucnv_resetToUnicode(c);
    if (U_FAILURE(err) || n != 128) return false;
    for (int i = 0; i < 128; ++i) {
        if ((rotated ? UnrotateUnit(out[i]) : out[i]) != i) return false;
    }
    return true;
}

// Builds the tables of a single-byte page from ICU's mapping of each byte alone.
void BuildSingleByteTables(CodePage& cp, UConverter* c) {
    std::array<int32_t, 256> mapped{};
    for (int b = 0; b < 256; ++b) {
        const char byte = static_cast<char>(b);
        UChar out[4];
        UErrorCode err = U_ZERO_ERROR;
        ucnv_resetToUnicode(c);
        ucnv_setToUCallBack(c, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &err);
        const int32_t n = ucnv_toUChars(c, out, 4, &byte, 1, &err);
        mapped[b] = U_SUCCESS(err) && n == 1 ? out[0] : -1;
        if (cp.rotated && b < 0x80 && mapped[b] >= 0) mapped[b] = UnrotateUnit(out[0]);
    }
    BrBuildSingleByteTables(cp, mapped, u_tolower, u_toupper);
    ucnv_resetToUnicode(c);
}

// Windows writes '?' for a character the page lacks; ICU's default would be 0x1A. (This also makes
// ICU read an invalid single byte as U+FFFD rather than U+001A.)
void UseWindowsSubstitution(UConverter* c, const CodePage& cp) {
    UErrorCode err = U_ZERO_ERROR;
    if (cp.number != kBrCodePageUtf8 && cp.maxBytes <= 2) ucnv_setSubstChars(c, "?", 1, &err);
}

std::unique_ptr<CodePage> MakeCodePage(unsigned short number) {
    if (number == 1200 || number == 1201 || number == 256 || number == 65535) return nullptr;
    // The record first: when it cannot be had (std::bad_alloc) no converter is open yet; once
    // it holds the converter, its destructor closes it whatever fails.
    auto cp = std::make_unique<CodePage>();
    cp->cnv = OpenIcu(number);
    if (cp->cnv == nullptr) return nullptr;
    UConverter* c = cp->cnv;
    cp->number = number;
    cp->maxBytes = number == kBrCodePageUtf8 ? 3 : ucnv_getMaxCharSize(c);
    const bool stateful = IsStateful(c);
    cp->rotated = !stateful && RotatesControls(c);
    cp->asciiCompatible = !stateful && MapsAsciiToItself(c, cp->rotated);
    cp->singleByte = !stateful && ucnv_getMaxCharSize(c) == 1 && ucnv_getMinCharSize(c) == 1;
    if (cp->singleByte) {
        BuildSingleByteTables(*cp, c);
        ucnv_close(c);
        cp->cnv = nullptr;
    } else {
        UseWindowsSubstitution(c, *cp);
    }
    return cp;
}

CodePage* Find(unsigned short number, bool* noMemory = nullptr) {
    return BrFindCodePage<CodePage, MakeCodePage>(number, noMemory);
}

// Widens the leading ASCII bytes; returns how many were taken.
int64_t WidenAsciiPrefix(const char* src, int64_t n, char16_t* dst) {
    int64_t i = 0;
    constexpr int64_t kBlock = 16;
    while (i + kBlock <= n) {
        uint64_t a, b;
        std::memcpy(&a, src + i, 8);
        std::memcpy(&b, src + i + 8, 8);
        if (((a | b) & 0x8080808080808080ULL) != 0) break;
        for (int64_t k = 0; k < kBlock; ++k) dst[i + k] = static_cast<unsigned char>(src[i + k]);
        i += kBlock;
    }
    while (i < n && static_cast<unsigned char>(src[i]) < 0x80) {
        dst[i] = static_cast<unsigned char>(src[i]);
        ++i;
    }
    return i;
}

// Narrows the leading units below 0x80; returns how many were taken.
int64_t NarrowAsciiPrefix(const char16_t* src, int64_t n, char* dst) {
    int64_t i = 0;
    constexpr int64_t kBlock = 16;
    while (i + kBlock <= n) {
        char16_t any = 0;
        for (int64_t k = 0; k < kBlock; ++k) any |= src[i + k];
        if ((any & 0xFF80) != 0) break;
        for (int64_t k = 0; k < kBlock; ++k) dst[i + k] = static_cast<char>(src[i + k]);
        i += kBlock;
    }
    while (i < n && src[i] < 0x80) {
        dst[i] = static_cast<char>(src[i]);
        ++i;
    }
    return i;
}

struct CountingContext {
    int64_t replaced = 0;
};

void ToUCounting(const void* ctx, UConverterToUnicodeArgs* args, const char* bytes, int32_t length,
                 UConverterCallbackReason reason, UErrorCode* err) {
    if (reason <= UCNV_IRREGULAR) {
        ++static_cast<CountingContext*>(const_cast<void*>(ctx))->replaced;
    }
    UCNV_TO_U_CALLBACK_SUBSTITUTE(nullptr, args, bytes, length, reason, err);
}

void FromUCounting(const void* ctx, UConverterFromUnicodeArgs* args, const UChar* units,
                   int32_t length, UChar32 codePoint, UConverterCallbackReason reason,
                   UErrorCode* err) {
    if (reason <= UCNV_IRREGULAR) {
        ++static_cast<CountingContext*>(const_cast<void*>(ctx))->replaced;
    }
    UCNV_FROM_U_CALLBACK_SUBSTITUTE(nullptr, args, units, length, codePoint, reason, err);
}

int64_t TextLength(const char* s) { return static_cast<int64_t>(std::strlen(s)); }
int64_t TextLength(const char16_t* s) {
    int64_t n = 0;
    while (s[n] != 0) ++n;
    return n;
}

int64_t IcuToUtf16(CodePage& cp, const char* src, int64_t n, char16_t* dst, int64_t cap,
                   int64_t& replaced) {
    if (n > INT32_MAX || cap > INT32_MAX) return kBrConvNoRoom;  // ICU counts in 32 bits
    UErrorCode err = U_ZERO_ERROR;
    int32_t count = 0;
    if (cp.number == kBrCodePageUtf8) {
        int32_t subs = 0;
        u_strFromUTF8WithSub(reinterpret_cast<UChar*>(dst), static_cast<int32_t>(cap), &count,
                             src, static_cast<int32_t>(n), 0xFFFD, &subs, &err);
        replaced += subs;
    } else {
        CountingContext ctx;
        ucnv_resetToUnicode(cp.cnv);
        ucnv_setToUCallBack(cp.cnv, ToUCounting, &ctx, nullptr, nullptr, &err);
        count = ucnv_toUChars(cp.cnv, reinterpret_cast<UChar*>(dst), static_cast<int32_t>(cap),
                              src, static_cast<int32_t>(n), &err);
        replaced += ctx.replaced;
    }
    if (err == U_BUFFER_OVERFLOW_ERROR) return kBrConvNoRoom;
    if (U_FAILURE(err) && err != U_STRING_NOT_TERMINATED_WARNING) return kBrConvNoRoom;
    for (int32_t k = 0; cp.rotated && k < count; ++k) dst[k] = UnrotateUnit(dst[k]);
    return count;
}

int64_t IcuFromUtf16(CodePage& cp, const char16_t* src, int64_t n, char* dst, int64_t cap,
                     int64_t& replaced) {
    if (n > INT32_MAX || cap > INT32_MAX) return kBrConvNoRoom;
    UErrorCode err = U_ZERO_ERROR;
    int32_t count = 0;
    if (cp.number == kBrCodePageUtf8) {
        int32_t subs = 0;
        u_strToUTF8WithSub(dst, static_cast<int32_t>(cap), &count,
                           reinterpret_cast<const UChar*>(src), static_cast<int32_t>(n), 0xFFFD,
                           &subs, &err);
        replaced += subs;
    } else {
        CountingContext ctx;
        ucnv_resetFromUnicode(cp.cnv);
        ucnv_setFromUCallBack(cp.cnv, FromUCounting, &ctx, nullptr, nullptr, &err);
        count = ucnv_fromUChars(cp.cnv, dst, static_cast<int32_t>(cap),
                                reinterpret_cast<const UChar*>(src), static_cast<int32_t>(n), &err);
        replaced += ctx.replaced;
    }
    if (U_FAILURE(err) && err != U_STRING_NOT_TERMINATED_WARNING) return kBrConvNoRoom;
    for (int32_t k = 0; cp.rotated && k < count; ++k) dst[k] = UnrotateByte(dst[k]);
    return count;
}

// Whether every surrogate of the text is part of a pair.
bool IsWellFormed(const char16_t* s, int64_t n) {
    for (int64_t i = 0; i < n; ++i) {
        if (U16_IS_LEAD(s[i]) && i + 1 < n && U16_IS_TRAIL(s[i + 1])) {
            ++i;
        } else if (U16_IS_SURROGATE(s[i])) {
            return false;
        }
    }
    return true;
}

const UNormalizer2* NormalizerFor(int form) {
    UErrorCode err = U_ZERO_ERROR;
    const UNormalizer2* n = nullptr;
    switch (form) {
        case 1: n = unorm2_getNFCInstance(&err); break;
        case 2: n = unorm2_getNFDInstance(&err); break;
        case 5: n = unorm2_getNFKCInstance(&err); break;
        case 6: n = unorm2_getNFKDInstance(&err); break;
        default: return nullptr;
    }
    return U_SUCCESS(err) ? n : nullptr;
}

}  // namespace

bool BrCodePageAvailable(unsigned short codePage) { return Find(codePage) != nullptr; }
bool BrCodePageUnknown(unsigned short codePage) {
    bool noMemory = false;
    return Find(codePage, &noMemory) == nullptr && !noMemory;
}

namespace {

bool StartsWithIgnoringCase(const char* text, const char* prefix) {
    for (; *prefix != '\0'; ++text, ++prefix) {
        const auto lower = [](char c) {
            return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
        };
        if (lower(*text) != lower(*prefix)) return false;
    }
    return true;
}

// The Windows number an ICU converter alias names ("windows-1252", "cp850", "ibm-037"), or 0.
unsigned NumberInAlias(const char* alias) {
    for (const char* prefix : {"windows-", "cp", "ibm-"}) {
        if (!StartsWithIgnoringCase(alias, prefix)) continue;
        unsigned number = 0;
        const char* p = alias + std::strlen(prefix);
        if (*p == '\0') return 0;
        for (; *p != '\0'; ++p) {
            if (*p < '0' || *p > '9' || number > 65535) return 0;
            number = number * 10 + static_cast<unsigned>(*p - '0');
        }
        return number <= 65535 ? number : 0;
    }
    return 0;
}

}  // namespace

int64_t BrCodePageList(unsigned short* out, int64_t cap) {
    std::set<unsigned> candidates;
    for (const Alias& a : kAliases) candidates.insert(a.number);
    const int32_t converters = ucnv_countAvailable();
    for (int32_t i = 0; i < converters; ++i) {
        const char* name = ucnv_getAvailableName(i);
        UErrorCode err = U_ZERO_ERROR;
        const uint16_t aliases = ucnv_countAliases(name, &err);
        for (uint16_t k = 0; U_SUCCESS(err) && k < aliases; ++k) {
            const char* alias = ucnv_getAlias(name, k, &err);
            if (U_SUCCESS(err) && alias != nullptr) candidates.insert(NumberInAlias(alias));
        }
    }
    // A name is only a hint: the number counts when our own lookup finds a converter for it.
    int64_t count = 0;
    for (const unsigned number : candidates) {
        if (number == 0 || Find(static_cast<unsigned short>(number)) == nullptr) continue;
        if (count < cap && out != nullptr) out[count] = static_cast<unsigned short>(number);
        ++count;
    }
    return count;
}

struct BrDecoder {
    CodePage* table = nullptr;  // single-byte pages convert statelessly through their table
    UConverter* cnv = nullptr;
    bool rotated = false;  // as CodePage::rotated
    int64_t offset = 0;    // bytes taken so far
    // Set up for each call of BrDecode, read by the callback.
    const char* base = nullptr;   // the block given
    const char* limit = nullptr;  // its end
    int64_t baseOffset = 0;
    int64_t firstBad = -1;
};

namespace {

void DecodeCallback(const void* ctx, UConverterToUnicodeArgs* args, const char* bytes,
                    int32_t length, UConverterCallbackReason reason, UErrorCode* err) {
    auto* d = static_cast<BrDecoder*>(const_cast<void*>(ctx));
    if (reason <= UCNV_IRREGULAR && d->firstBad < 0) {
        // The source already stands past the bad bytes, which may have begun in an earlier block.
        // When they did, and a longer sequence that began with them failed, ICU reads the bytes
        // after them again from a buffer of its own; the rest of that buffer ends where the
        // block begins.
        const auto at = reinterpret_cast<uintptr_t>(args->source);
        const bool inBlock = at >= reinterpret_cast<uintptr_t>(d->base) &&
                             at <= reinterpret_cast<uintptr_t>(d->limit);
        const int64_t end = inBlock ? d->baseOffset + (args->source - d->base)
                                    : d->baseOffset - (args->sourceLimit - args->source);
        d->firstBad = end - length > 0 ? end - length : 0;
    }
    UCNV_TO_U_CALLBACK_SUBSTITUTE(nullptr, args, bytes, length, reason, err);
}

}  // namespace

BrDecoder* BrDecoderOpen(unsigned short codePage) {
    CodePage* cp = Find(codePage);
    if (cp == nullptr) return nullptr;
    void* block = UtCcalloc(1, sizeof(BrDecoder));
    if (block == nullptr) return nullptr;
    auto* d = new (block) BrDecoder();
    if (cp->singleByte) {
        d->table = cp;
        return d;
    }
    try {
        d->cnv = OpenIcu(codePage);
    } catch (const std::bad_alloc&) {
        d->cnv = nullptr;
    }
    d->rotated = cp->rotated;
    UErrorCode err = U_ZERO_ERROR;
    if (d->cnv != nullptr) {
        UseWindowsSubstitution(d->cnv, *cp);  // so that pieces give what the whole text gives
        ucnv_setToUCallBack(d->cnv, DecodeCallback, d, nullptr, nullptr, &err);
    }
    if (d->cnv == nullptr || U_FAILURE(err)) {
        BrDecoderClose(d);
        return nullptr;
    }
    return d;
}

void BrDecoderClose(BrDecoder* decoder) {
    if (decoder == nullptr) return;
    if (decoder->cnv != nullptr) ucnv_close(decoder->cnv);
    decoder->~BrDecoder();
    UtCfree(decoder);
}

int64_t BrDecode(BrDecoder* d, const char* src, int64_t n, bool last, char16_t* dst, int64_t cap,
                 int64_t* read, int64_t* firstBad) {
    *read = 0;
    *firstBad = -1;
    if (n <= 0 && d->table != nullptr) return 0;
    if (d->table != nullptr) {
        const int64_t m = n < cap ? n : cap;
        int64_t replaced = 0;
        const int64_t got = BrMbToUtf16(d->table->number, src, m, dst, m, &replaced);
        if (got < 0) return kBrConvNoMemory;
        for (int64_t k = 0; replaced != 0 && k < got; ++k) {
            if (dst[k] == u'\uFFFD') {
                *firstBad = d->offset + k;
                break;
            }
        }
        d->offset += m;
        *read = m;
        return got;
    }
    if (n > INT32_MAX || cap > INT32_MAX)
        return kBrConvNoRoom;  // ICU's pointers are fine, its counts are not
    d->base = src;
    d->limit = src + n;
    d->baseOffset = d->offset;
    d->firstBad = -1;
    const char* s = src;
    UChar* t = reinterpret_cast<UChar*>(dst);
    UErrorCode err = U_ZERO_ERROR;
    ucnv_toUnicode(d->cnv, &t, reinterpret_cast<UChar*>(dst) + cap, &s, src + n, nullptr, last,
                   &err);
    *read = s - src;
    d->offset += *read;
    *firstBad = d->firstBad;
    if (U_FAILURE(err) && err != U_BUFFER_OVERFLOW_ERROR) return kBrConvNoMemory;
    const int64_t written = t - reinterpret_cast<UChar*>(dst);
    for (int64_t k = 0; d->rotated && k < written; ++k) dst[k] = UnrotateUnit(dst[k]);
    return written;
}

int BrCodePageMaxBytes(unsigned short codePage) {
    const CodePage* cp = Find(codePage);
    return cp != nullptr ? cp->maxBytes : 0;
}

bool BrCodePageIsAsciiCompatible(unsigned short codePage) {
    const CodePage* cp = Find(codePage);
    return cp != nullptr && cp->asciiCompatible;
}

bool BrCodePageIsSingleByte(unsigned short codePage) {
    const CodePage* cp = Find(codePage);
    return cp != nullptr && cp->singleByte;
}

int64_t BrMbToUtf16(unsigned short codePage, const char* src, int64_t n, char16_t* dst, int64_t cap,
                    int64_t* replaced) {
    int64_t dummy = 0;
    int64_t& rep = replaced != nullptr ? *replaced : dummy;
    rep = 0;
    bool noMemory = false;
    CodePage* cp = Find(codePage, &noMemory);
    if (cp == nullptr) return noMemory ? kBrConvNoMemory : kBrConvUnknownCodePage;
    if (src == nullptr) return 0;
    if (n < 0) n = TextLength(src);
    if (cap < n && (cp->singleByte || cp->asciiCompatible)) {
        // A smaller buffer can still suffice for a multi-byte text; let the slow path decide.
        if (cp->singleByte) return kBrConvNoRoom;
    }
    int64_t i = 0;
    if (cp->asciiCompatible && cap >= n) i = WidenAsciiPrefix(src, n, dst);
    if (i == n) return n;
    if (cp->singleByte) {
        BrSingleByteToUtf16(*cp, cp->asciiCompatible, src + i, n - i, dst + i, rep);
        return n;
    }
    const int64_t rest = IcuToUtf16(*cp, src + i, n - i, dst + i, cap - i, rep);
    return rest < 0 ? rest : i + rest;
}

int64_t BrUtf16ToMb(unsigned short codePage, const char16_t* src, int64_t n, char* dst, int64_t cap,
                    int64_t* replaced) {
    int64_t dummy = 0;
    int64_t& rep = replaced != nullptr ? *replaced : dummy;
    rep = 0;
    bool noMemory = false;
    CodePage* cp = Find(codePage, &noMemory);
    if (cp == nullptr) return noMemory ? kBrConvNoMemory : kBrConvUnknownCodePage;
    if (src == nullptr) return 0;
    if (n < 0) n = TextLength(src);
    int64_t i = 0;
    if (cp->asciiCompatible && cap >= n) i = NarrowAsciiPrefix(src, n, dst);
    if (i == n) return n;
    if (cp->singleByte) {
        const int64_t o =
            BrSingleByteFromUtf16(*cp, cp->asciiCompatible, src + i, n - i, dst + i, cap - i, rep);
        return o < 0 ? o : i + o;
    }
    const int64_t rest = IcuFromUtf16(*cp, src + i, n - i, dst + i, cap - i, rep);
    return rest < 0 ? rest : i + rest;
}

int64_t BrNormalize(int form, const char16_t* src, int64_t n, char16_t* dst, int64_t cap) {
    const UNormalizer2* norm = NormalizerFor(form);
    if (norm == nullptr || src == nullptr) return 0;
    if (n < 0) n = TextLength(src);
    if (n > INT32_MAX / 4) return 0;
    if (cap == 0) {
        // Decomposition can grow a text; 3x (plus slack) covers the canonical and compatibility
        // expansions of single characters in practice; the exact size comes from the real call.
        return n * 3 + 16;
    }
    if (!IsWellFormed(src, n)) return 0;  // ICU would pass a lone surrogate through; Windows refuses
    UErrorCode err = U_ZERO_ERROR;
    const int32_t count = unorm2_normalize(norm, reinterpret_cast<const UChar*>(src),
                                           static_cast<int32_t>(n), reinterpret_cast<UChar*>(dst),
                                           static_cast<int32_t>(cap > INT32_MAX ? INT32_MAX : cap), &err);
    if (err == U_BUFFER_OVERFLOW_ERROR) return -static_cast<int64_t>(count);
    if (U_FAILURE(err)) return 0;
    return count;
}

int64_t BrNormalizeBoundary(int form, const char16_t* src, int64_t n) {
    const UNormalizer2* norm = NormalizerFor(form);
    if (norm == nullptr || src == nullptr) return 0;
    for (int64_t end = n; end > 0;) {
        int64_t start = end - 1;
        UChar32 c = src[start];
        if (U16_IS_TRAIL(c) && start > 0 && U16_IS_LEAD(src[start - 1])) {
            --start;
            c = U16_GET_SUPPLEMENTARY(src[start], src[start + 1]);
        }
        if (start == 0) return 0;
        if (unorm2_hasBoundaryBefore(norm, c)) return start;
        end = start;
    }
    return 0;
}

int BrWcsICmp(const char16_t* a, const char16_t* b) {
    for (;; ++a, ++b) {
        const auto ca = static_cast<char16_t>(u_tolower(*a));
        const auto cb = static_cast<char16_t>(u_tolower(*b));
        if (ca != cb) return ca < cb ? -1 : 1;
        if (ca == 0) return 0;
    }
}

void BrToLowerW(char16_t* text, int64_t n) {
    for (int64_t i = 0; i < n; ++i) {
        const UChar32 m = u_tolower(text[i]);
        if (m <= 0xFFFF) text[i] = static_cast<char16_t>(m);
    }
}

void BrToUpperW(char16_t* text, int64_t n) {
    for (int64_t i = 0; i < n; ++i) {
        const UChar32 m = u_toupper(text[i]);
        if (m <= 0xFFFF) text[i] = static_cast<char16_t>(m);
    }
}

bool BrIsDigitW(char16_t c) { return u_isdigit(c) != 0; }
bool BrIsSpaceW(char16_t c) { return u_isspace(c) != 0; }
bool BrIsLetterW(char16_t c) { return u_isalpha(c) != 0; }

const BrSingleByteTables* BrSingleByteTablesOf(unsigned short codePage) {
    const CodePage* cp = Find(codePage);
    return cp != nullptr && cp->singleByte ? cp : nullptr;
}
