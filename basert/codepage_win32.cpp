// Win32 back end of the code-page layer: the system's own conversion tables, normalisation and
// case mapping. Single-byte code pages are served from tables built once from the system's mapping
// of each byte (as the ICU back end does), so the C1 fill and the lowest-byte rule are the same on
// both. Other pages convert the whole text in one call; only a text that holds an invalid or
// unmappable sequence is walked sequence by sequence, to count and place the replacements.
#include <windows.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "basert/codepage.h"
#include "basert/internal/codepage_cache.h"
#include "basert/internal/single_byte.h"
#include "basert/memory.h"

namespace {

enum class Kind { kSingleByte, kUtf8, kDoubleByte, kGb18030, kUtf32, kOther };

struct CodePage : BrSingleByteTables {  // the tables serve single-byte pages only
    unsigned short number = 0;
    Kind kind = Kind::kOther;
    bool asciiCompatible = false;
    int maxBytes = 0;
    // Whether MB_ERR_INVALID_CHARS and WC_NO_BEST_FIT_CHARS may be passed (not for the stateful
    // and the algorithmic pages, where Windows refuses every flag).
    bool flagsAllowed = true;
    std::array<bool, 256> lead{};  // double-byte pages: lead bytes
};

bool FlagsAllowed(unsigned short n) {
    return !((n >= 50220 && n <= 50229) || n == 52936 || n == 54936 || (n >= 57002 && n <= 57011) ||
             n == 65000 || n == 42);
}

// Simple (one unit to one unit) case mapping of the whole BMP, from the invariant locale, built
// once.
struct CaseTables {
    std::vector<char16_t> lower, upper;
    CaseTables() : lower(65536), upper(65536) {
        std::vector<wchar_t> all(65536);
        for (int u = 0; u < 65536; ++u)
            all[u] = (u >= 0xD800 && u <= 0xDFFF) ? L' ' : static_cast<wchar_t>(u);
        std::vector<wchar_t> out(65536);
        Map(LCMAP_LOWERCASE, all, out, lower);
        Map(LCMAP_UPPERCASE, all, out, upper);
    }
    static void Map(DWORD flags, const std::vector<wchar_t>& all, std::vector<wchar_t>& out,
                    std::vector<char16_t>& table) {
        const int n = LCMapStringEx(LOCALE_NAME_INVARIANT, flags, all.data(), 65536, out.data(),
                                    65536, nullptr, nullptr, 0);
        for (int u = 0; u < 65536; ++u) {
            const bool keep = n != 65536 || (u >= 0xD800 && u <= 0xDFFF);
            table[u] = keep ? static_cast<char16_t>(u) : static_cast<char16_t>(out[u]);
        }
    }
};

const CaseTables& Cases() {
    static const CaseTables tables;
    return tables;
}

char16_t LowerUnit(char16_t c) {
    return Cases().lower[c];
}
char16_t UpperUnit(char16_t c) {
    return Cases().upper[c];
}

void BuildSingleByteTables(CodePage& cp) {
    std::array<int32_t, 256> mapped{};
    for (int b = 0; b < 256; ++b) {
        const char byte = static_cast<char>(b);
        wchar_t out[4];
        const int n = MultiByteToWideChar(cp.number, MB_ERR_INVALID_CHARS, &byte, 1, out, 4);
        mapped[b] = n == 1 ? static_cast<int32_t>(out[0]) : -1;
    }
    BrBuildSingleByteTables(cp, mapped, LowerUnit, UpperUnit);
}

bool MapsAsciiToItself(unsigned short number) {
    char bytes[128];
    for (int i = 0; i < 128; ++i) bytes[i] = static_cast<char>(i);
    wchar_t out[256];
    if (MultiByteToWideChar(number, 0, bytes, 128, out, 256) != 128) return false;
    for (int i = 0; i < 128; ++i) {
        if (out[i] != i) return false;
    }
    return true;
}

std::unique_ptr<CodePage> MakeCodePage(unsigned short number) {
    // UTF-16 is the caller's; the symbol page has no MultiByteToWideChar form.
    if (number == 1200 || number == 1201 || number == 256 || number == 65535 || number == 42) {
        return nullptr;
    }
    // Windows knows UTF-32 (12000 little-endian, 12001 big-endian) by number but converts it only
    // in .NET, so it is done here.
    if (number == 12000 || number == 12001) {
        auto cp = std::make_unique<CodePage>();
        cp->number = number;
        cp->kind = Kind::kUtf32;
        cp->maxBytes = 4;
        return cp;
    }
    if (!IsValidCodePage(number)) return nullptr;
    CPINFOEXW info;
    if (!GetCPInfoExW(number, 0, &info)) return nullptr;
    auto cp = std::make_unique<CodePage>();
    cp->number = number;
    cp->flagsAllowed = FlagsAllowed(number);
    const bool stateful =
        (number >= 50220 && number <= 50229) || number == 65000 || number == 52936;
    if (number == kBrCodePageUtf8) {
        cp->kind = Kind::kUtf8;
        cp->maxBytes = 3;
    } else if (number == 54936) {
        cp->kind = Kind::kGb18030;
        cp->maxBytes = 4;
    } else if (!stateful && info.MaxCharSize == 1) {
        cp->kind = Kind::kSingleByte;
        cp->maxBytes = 1;
    } else if (!stateful && info.MaxCharSize == 2) {
        cp->kind = Kind::kDoubleByte;
        cp->maxBytes = 2;
        for (int i = 0; i + 1 < MAX_LEADBYTES && info.LeadByte[i] != 0; i += 2) {
            for (int b = info.LeadByte[i]; b <= info.LeadByte[i + 1]; ++b) cp->lead[b] = true;
        }
    } else {
        cp->kind = Kind::kOther;
        cp->maxBytes = info.MaxCharSize < 3 ? 3 : static_cast<int>(info.MaxCharSize);
    }
    bool leadBelow80 = false;
    for (int b = 0; b < 0x80; ++b) leadBelow80 = leadBelow80 || cp->lead[b];
    cp->asciiCompatible = !stateful && !leadBelow80 && MapsAsciiToItself(number);
    if (cp->kind == Kind::kSingleByte) BuildSingleByteTables(*cp);
    return cp;
}

CodePage* Find(unsigned short number, bool* noMemory = nullptr) {
    return BrFindCodePage<CodePage, MakeCodePage>(number, noMemory);
}

int64_t TextLength(const char* s) {
    return static_cast<int64_t>(std::strlen(s));
}
int64_t TextLength(const char16_t* s) {
    int64_t n = 0;
    while (s[n] != 0) ++n;
    return n;
}

inline bool InRange(unsigned char c, unsigned lo, unsigned hi) {
    return c >= lo && c <= hi;
}

// Length of the UTF-8 sequence at s (avail bytes there): the whole sequence when it is complete
// and valid, else its longest valid beginning (at least 1), which is one invalid sequence. 0 when
// a valid beginning runs into the end of the input.
int Utf8SequenceLength(const unsigned char* s, int64_t avail) {
    const unsigned char c = s[0];
    int need = 0;
    unsigned lo = 0x80, hi = 0xBF;
    if (c < 0x80) return 1;
    if (InRange(c, 0xC2, 0xDF)) {
        need = 1;
    } else if (InRange(c, 0xE0, 0xEF)) {
        need = 2;
        if (c == 0xE0) lo = 0xA0;
        if (c == 0xED) hi = 0x9F;
    } else if (InRange(c, 0xF0, 0xF4)) {
        need = 3;
        if (c == 0xF0) lo = 0x90;
        if (c == 0xF4) hi = 0x8F;
    } else {
        return 1;
    }
    for (int k = 1; k <= need; ++k) {
        if (k >= avail) return 0;
        if (!InRange(s[k], k == 1 ? lo : 0x80, k == 1 ? hi : 0xBF)) return k;
    }
    return need + 1;
}

// Length of the sequence at s in a page that is not single-byte, as above (0: cut by the end).
int SequenceLength(const CodePage& cp, const unsigned char* s, int64_t avail) {
    switch (cp.kind) {
        case Kind::kUtf8:
            return Utf8SequenceLength(s, avail);
        case Kind::kDoubleByte:
            if (!cp.lead[s[0]]) return 1;
            return avail < 2 ? 0 : 2;
        case Kind::kUtf32:
            return avail < 4 ? 0 : 4;
        case Kind::kGb18030:
            if (!InRange(s[0], 0x81, 0xFE)) return 1;
            if (avail < 2) return 0;
            if (!InRange(s[1], 0x30, 0x39)) return 2;
            return avail < 4 ? 0 : 4;
        default:
            return 1;
    }
}

// One UTF-32 character of len bytes (4, or fewer when cut by the end) into out; 0 when invalid.
int DecodeUtf32(bool bigEndian, const unsigned char* b, int len, wchar_t* out) {
    if (len != 4) return 0;
    const uint32_t c =
        bigEndian ? (uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3])
                  : (uint32_t{b[3]} << 24 | uint32_t{b[2]} << 16 | uint32_t{b[1]} << 8 | b[0]);
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
    if (c < 0x10000) {
        out[0] = static_cast<wchar_t>(c);
        return 1;
    }
    out[0] = static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
    out[1] = static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    return 2;
}

// Whether b can follow a lead byte of a double-byte page: 40..7E and 80..FE (Shift-JIS: ..FC), the
// ranges the ICU back end's tables give these pages, so that both split a bad text alike.
bool IsTrailByte(const CodePage& cp, unsigned char b) {
    return InRange(b, 0x40, 0x7E) || InRange(b, 0x80, cp.number == 932 ? 0xFC : 0xFE);
}

// Converts the text sequence by sequence: an invalid or unassigned sequence becomes U+FFFD. A
// double-byte pair that does not convert is one bad sequence when its second byte can follow a
// lead byte; otherwise the lead byte alone is, and the next byte starts afresh. Returns the units written or kBrConvNoRoom; *firstBad
// receives the offset of the first replaced sequence (or stays).
int64_t WalkToUtf16(const CodePage& cp, const unsigned char* s, int64_t n, char16_t* dst,
                    int64_t cap, int64_t& rep, int64_t* firstBad) {
    int64_t i = 0, o = 0;
    while (i < n) {
        int len = SequenceLength(cp, s + i, n - i);
        if (len == 0) len = static_cast<int>(n - i);  // cut by the end of the text: invalid
        wchar_t out[4];
        int got = cp.kind == Kind::kUtf32
                      ? DecodeUtf32(cp.number == 12001, s + i, len, out)
                      : MultiByteToWideChar(cp.number, cp.flagsAllowed ? MB_ERR_INVALID_CHARS : 0,
                                            reinterpret_cast<const char*>(s + i), len, out, 4);
        if (got <= 0 && cp.kind == Kind::kDoubleByte && len == 2 && !IsTrailByte(cp, s[i + 1])) {
            len = 1;
        }
        if (got <= 0 || (cp.kind == Kind::kOther && got == 1 && out[0] == 0xFFFD)) {
            if (firstBad != nullptr && *firstBad < 0) *firstBad = i;
            ++rep;
            out[0] = 0xFFFD;
            got = 1;
        }
        if (o + got > cap) return kBrConvNoRoom;
        for (int k = 0; k < got; ++k) dst[o++] = static_cast<char16_t>(out[k]);
        i += len;
    }
    return o;
}

int64_t SystemToUtf16(const CodePage& cp, const char* src, int64_t n, char16_t* dst, int64_t cap,
                      int64_t& rep, int64_t* firstBad) {
    if (n > INT_MAX || cap > INT_MAX) return kBrConvNoRoom;  // Win32 counts in 32 bits
    if (n == 0) return 0;
    if (cp.kind == Kind::kUtf32) {
        return WalkToUtf16(cp, reinterpret_cast<const unsigned char*>(src), n, dst, cap, rep,
                           firstBad);
    }
    auto* w = reinterpret_cast<wchar_t*>(dst);
    const int got = MultiByteToWideChar(cp.number, cp.flagsAllowed ? MB_ERR_INVALID_CHARS : 0, src,
                                        static_cast<int>(n), w, static_cast<int>(cap));
    if (got > 0 && cp.flagsAllowed) return got;
    if (got <= 0 && GetLastError() == ERROR_INSUFFICIENT_BUFFER) return kBrConvNoRoom;
    if (got > 0) {  // no validation flag: only a U+FFFD in the result tells of a bad sequence
        bool clean = true;
        for (int k = 0; k < got && clean; ++k) clean = w[k] != 0xFFFD;
        if (clean) return got;
    }
    return WalkToUtf16(cp, reinterpret_cast<const unsigned char*>(src), n, dst, cap, rep, firstBad);
}

// One character (1 unit, or a surrogate pair) into the page; '?' when it has no mapping there.
int EncodeOne(const CodePage& cp, const char16_t* u, int units, char* out, int64_t& rep) {
    const bool lone = units == 1 && u[0] >= 0xD800 && u[0] <= 0xDFFF;
    if (cp.kind == Kind::kUtf8) {
        if (lone) {
            ++rep;
            std::memcpy(out, "\xEF\xBF\xBD", 3);
            return 3;
        }
        return WideCharToMultiByte(CP_UTF8, 0, reinterpret_cast<const wchar_t*>(u), units, out, 8,
                                   nullptr, nullptr);
    }
    if (cp.kind == Kind::kUtf32) {
        uint32_t c = u[0];
        if (lone) {
            ++rep;
            c = 0xFFFD;
        } else if (units == 2) {
            c = 0x10000 + ((uint32_t{u[0]} - 0xD800) << 10) + (uint32_t{u[1]} - 0xDC00);
        }
        for (int k = 0; k < 4; ++k) {
            const int shift = cp.number == 12001 ? 24 - 8 * k : 8 * k;
            out[k] = static_cast<char>((c >> shift) & 0xFF);
        }
        return 4;
    }
    BOOL used = FALSE;
    int got = 0;
    if (!lone) {
        got =
            WideCharToMultiByte(cp.number, cp.flagsAllowed ? WC_NO_BEST_FIT_CHARS : 0,
                                reinterpret_cast<const wchar_t*>(u), units, out, 8,
                                cp.flagsAllowed ? "?" : nullptr, cp.flagsAllowed ? &used : nullptr);
    }
    // A '?' for another character is a replacement even when the used-default flag stays clear
    // (Wine leaves it clear for some characters).
    if (lone || got <= 0 || used || (got == 1 && out[0] == '?' && u[0] != u'?')) {
        ++rep;
        out[0] = '?';
        return 1;
    }
    return got;
}

int64_t SystemFromUtf16(const CodePage& cp, const char16_t* src, int64_t n, char* dst, int64_t cap,
                        int64_t& rep) {
    if (n > INT_MAX || cap > INT_MAX) return kBrConvNoRoom;
    if (n == 0) return 0;
    const auto* w = reinterpret_cast<const wchar_t*>(src);
    BOOL used = FALSE;
    int got = 0;
    if (cp.kind == Kind::kUtf8) {
        got = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, w, static_cast<int>(n), dst,
                                  static_cast<int>(cap), nullptr, nullptr);
    } else if (cp.flagsAllowed && cp.kind != Kind::kUtf32) {
        got = WideCharToMultiByte(cp.number, WC_NO_BEST_FIT_CHARS, w, static_cast<int>(n), dst,
                                  static_cast<int>(cap), "?", &used);
    } else {
        SetLastError(NO_ERROR);  // converted below, character by character
    }
    if (got > 0 && !used) {
        // More '?' out than in means a character was replaced without the flag saying so; the
        // walk below counts and places each one. ('?' is never a trail byte of a double-byte page.)
        int64_t asked = 0, written = 0;
        for (int64_t k = 0; k < n; ++k) asked += src[k] == u'?';
        for (int k = 0; k < got; ++k) written += dst[k] == '?';
        if (written == asked) return got;
    }
    if (got <= 0 && GetLastError() == ERROR_INSUFFICIENT_BUFFER) return kBrConvNoRoom;
    int64_t i = 0, o = 0;
    while (i < n) {
        const bool pair = src[i] >= 0xD800 && src[i] <= 0xDBFF && i + 1 < n &&
                          src[i + 1] >= 0xDC00 && src[i + 1] <= 0xDFFF;
        const int units = pair ? 2 : 1;
        char out[8];
        const int len = EncodeOne(cp, src + i, units, out, rep);
        if (o + len > cap) return kBrConvNoRoom;
        std::memcpy(dst + o, out, static_cast<size_t>(len));
        o += len;
        i += units;
    }
    return o;
}

NORM_FORM FormOf(int form, bool* ok) {
    *ok = true;
    switch (form) {
        case 1:
            return NormalizationC;
        case 2:
            return NormalizationD;
        case 5:
            return NormalizationKC;
        case 6:
            return NormalizationKD;
        default:
            *ok = false;
            return NormalizationOther;
    }
}

}  // namespace

bool BrCodePageAvailable(unsigned short codePage) {
    return Find(codePage) != nullptr;
}
bool BrCodePageUnknown(unsigned short codePage) {
    bool noMemory = false;
    return Find(codePage, &noMemory) == nullptr && !noMemory;
}

namespace {
std::vector<unsigned short>* g_enumerated = nullptr;

BOOL CALLBACK CollectCodePage(LPWSTR text) {
    unsigned number = 0;
    for (const wchar_t* p = text; *p >= L'0' && *p <= L'9'; ++p) number = number * 10 + (*p - L'0');
    if (number > 0 && number < 65535) g_enumerated->push_back(static_cast<unsigned short>(number));
    return TRUE;
}
}  // namespace

int64_t BrCodePageList(unsigned short* out, int64_t cap) {
    std::vector<unsigned short> numbers;
    g_enumerated = &numbers;
    EnumSystemCodePagesW(CollectCodePage, CP_INSTALLED);
    g_enumerated = nullptr;
    numbers.push_back(12000);  // converted here, not by the system
    numbers.push_back(12001);
    numbers.push_back(kBrCodePageUtf8);  // not among the enumerated ones on every system
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    int64_t count = 0;
    for (const unsigned short number : numbers) {
        if (Find(number) == nullptr) continue;
        if (count < cap && out != nullptr) out[count] = number;
        ++count;
    }
    return count;
}

struct BrDecoder {
    CodePage* cp = nullptr;
    int64_t offset = 0;       // bytes taken so far, held ones included
    unsigned char held[4]{};  // the beginning of a sequence cut by the end of the last block
    int heldCount = 0;
    char16_t pending = 0;  // the second unit of a pair that did not fit into the last dst
    bool hasPending = false;
    // Stateful pages (UTF-7, ISO-2022): Windows keeps no state between calls, so the text is
    // gathered and converted whole when the last block comes, then handed out as room allows.
    std::vector<char> whole;
    std::u16string converted;
    size_t handedOut = 0;
    int64_t wholeFirstBad = -1;
};

namespace {

int64_t DecodeWhole(BrDecoder* d, const char* src, int64_t n, bool last, char16_t* dst, int64_t cap,
                    int64_t* read, int64_t* firstBad) {
    d->whole.insert(d->whole.end(), src, src + n);
    *read = n;
    d->offset += n;
    if (!last && d->converted.empty()) return 0;
    if (d->converted.empty() && !d->whole.empty()) {
        d->converted.resize(d->whole.size() * 2 + 8);
        int64_t rep = 0;
        const int64_t got = SystemToUtf16(
            *d->cp, d->whole.data(), static_cast<int64_t>(d->whole.size()), d->converted.data(),
            static_cast<int64_t>(d->converted.size()), rep, &d->wholeFirstBad);
        if (got < 0) return kBrConvNoMemory;
        d->converted.resize(static_cast<size_t>(got));
        *firstBad = d->wholeFirstBad;
    }
    const size_t left = d->converted.size() - d->handedOut;
    const size_t m = left < static_cast<size_t>(cap) ? left : static_cast<size_t>(cap);
    std::memcpy(dst, d->converted.data() + d->handedOut, m * sizeof(char16_t));
    d->handedOut += m;
    return static_cast<int64_t>(m);
}

}  // namespace

BrDecoder* BrDecoderOpen(unsigned short codePage) {
    CodePage* cp = Find(codePage);
    if (cp == nullptr) return nullptr;
    void* block = UtCcalloc(1, sizeof(BrDecoder));
    if (block == nullptr) return nullptr;
    auto* d = new (block) BrDecoder();
    d->cp = cp;
    return d;
}

void BrDecoderClose(BrDecoder* decoder) {
    if (decoder == nullptr) return;
    decoder->~BrDecoder();
    UtCfree(decoder);
}

int64_t BrDecode(BrDecoder* d, const char* src, int64_t n, bool last, char16_t* dst, int64_t cap,
                 int64_t* read, int64_t* firstBad) {
    *read = 0;
    *firstBad = -1;
    if (n < 0) n = 0;
    const CodePage& cp = *d->cp;
    if (cp.kind == Kind::kSingleByte) {
        if (n == 0) return 0;
        const int64_t m = n < cap ? n : cap;
        int64_t replaced = 0;
        const int64_t got = BrMbToUtf16(cp.number, src, m, dst, m, &replaced);
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
    if (cp.kind == Kind::kOther) return DecodeWhole(d, src, n, last, dst, cap, read, firstBad);
    int64_t o = 0;
    if (d->hasPending) {
        if (cap < 1) return 0;
        dst[o++] = d->pending;
        d->hasPending = false;
    }
    // The held bytes and the new ones are one text; a sequence cut at its end waits for the next
    // call unless this is the last. Output is produced sequence by sequence so that a full dst
    // stops at a sequence boundary.
    const int64_t heldStart = d->offset - d->heldCount;  // offset of held[0] in the whole text
    std::vector<unsigned char> text(d->held, d->held + d->heldCount);
    text.insert(text.end(), src, src + n);
    const auto total = static_cast<int64_t>(text.size());
    int64_t i = 0;
    while (i < total) {
        int len = SequenceLength(cp, text.data() + i, total - i);
        if (len == 0) {
            if (!last) break;
            len = static_cast<int>(total - i);
        }
        char16_t out[4];
        int64_t rep = 0;
        int64_t bad = -1;
        const int64_t got = WalkToUtf16(cp, text.data() + i, len, out, 4, rep, &bad);
        if (got < 0) return kBrConvNoMemory;
        if (o >= cap) break;
        // A pair with room for one unit: its second unit waits for the next call.
        if (o + got > cap) {
            dst[o++] = out[0];
            d->pending = out[1];
            d->hasPending = true;
        } else {
            std::memcpy(dst + o, out, static_cast<size_t>(got) * sizeof(char16_t));
            o += got;
        }
        if (bad >= 0 && *firstBad < 0) *firstBad = heldStart + i;
        i += len;
    }
    // Bytes not converted: those still held stay held; new ones are given back to the caller,
    // except a cut sequence at the very end, which is held.
    int64_t keep = total - i;
    if (o < cap && keep > 0 && keep <= 4 && !last) {
        std::memcpy(d->held, text.data() + i, static_cast<size_t>(keep));
        d->heldCount = static_cast<int>(keep);
        *read = n;
        d->offset += n;
        return o;
    }
    // dst filled up: give back what was not used, held bytes first.
    const int64_t used = i - d->heldCount;
    if (used < 0) {
        std::memmove(d->held, d->held + i, static_cast<size_t>(d->heldCount - i));
        d->heldCount -= static_cast<int>(i);
        *read = 0;
        return o;
    }
    d->heldCount = 0;
    *read = used;
    d->offset += used;
    return o;
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
    return cp != nullptr && cp->kind == Kind::kSingleByte;
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
    if (cp->kind == Kind::kSingleByte) {
        if (cap < n) return kBrConvNoRoom;
        BrSingleByteToUtf16(*cp, cp->asciiCompatible, src, n, dst, rep);
        return n;
    }
    return SystemToUtf16(*cp, src, n, dst, cap, rep, nullptr);
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
    if (cp->kind != Kind::kSingleByte) return SystemFromUtf16(*cp, src, n, dst, cap, rep);
    return BrSingleByteFromUtf16(*cp, cp->asciiCompatible, src, n, dst, cap, rep);
}

int64_t BrNormalize(int form, const char16_t* src, int64_t n, char16_t* dst, int64_t cap) {
    bool ok = false;
    const NORM_FORM f = FormOf(form, &ok);
    if (!ok || src == nullptr) return 0;
    if (n < 0) n = TextLength(src);
    if (n > INT_MAX / 4) return 0;
    if (n == 0) return 0;
    const auto* w = reinterpret_cast<const wchar_t*>(src);
    if (cap == 0) {
        // The system's figure is an estimate; the fixed bound keeps the promise of never less.
        const int est = NormalizeString(f, w, static_cast<int>(n), nullptr, 0);
        const int64_t bound = n * 3 + 16;
        return est > bound ? est : bound;
    }
    const int got = NormalizeString(f, w, static_cast<int>(n), reinterpret_cast<wchar_t*>(dst),
                                    static_cast<int>(cap > INT_MAX ? INT_MAX : cap));
    if (got > 0) return got;
    if (GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        const int need = NormalizeString(f, w, static_cast<int>(n), nullptr, 0);
        return -static_cast<int64_t>(need > cap ? need : cap + 1);
    }
    return 0;
}

int64_t BrNormalizeBoundary(int form, const char16_t* src, int64_t n) {
    bool ok = false;
    FormOf(form, &ok);
    if (!ok || src == nullptr) return 0;
    // Windows has no query for boundaries, so only characters known to start a segment that
    // nothing before them joins count: below U+0300, Greek and Cyrillic letters, leading Hangul
    // jamo (and in the decomposed forms every jamo), kana, CJK ideographs, Hangul syllables, the
    // Latin ligatures and emoji.
    const bool decomposed = form == 2 || form == 6;
    for (int64_t k = n - 1; k > 0; --k) {
        const char16_t c = src[k];
        if (c >= 0xDC00 && c <= 0xDFFF) continue;  // never inside a surrogate pair
        const bool starter =
            c < 0x300 || (c >= 0x370 && c <= 0x482) || (c >= 0x1100 && c <= 0x1112) ||
            (decomposed && c >= 0x1100 && c <= 0x11FF) || (c >= 0x3041 && c <= 0x3096) ||
            (c >= 0x30A1 && c <= 0x30FA) || (c >= 0x4E00 && c <= 0x9FFF) ||
            (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xFB00 && c <= 0xFB06) ||
            (c >= 0xD83C && c <= 0xD83E);  // U+1F000..U+1FBFF
        if (starter) return k;
    }
    return 0;
}

int BrWcsICmp(const char16_t* a, const char16_t* b) {
    for (;; ++a, ++b) {
        const char16_t ca = LowerUnit(*a);
        const char16_t cb = LowerUnit(*b);
        if (ca != cb) return ca < cb ? -1 : 1;
        if (ca == 0) return 0;
    }
}

void BrToLowerW(char16_t* text, int64_t n) {
    for (int64_t i = 0; i < n; ++i) text[i] = LowerUnit(text[i]);
}

void BrToUpperW(char16_t* text, int64_t n) {
    for (int64_t i = 0; i < n; ++i) text[i] = UpperUnit(text[i]);
}

namespace {
WORD TypeOf(char16_t c) {
    WORD type = 0;
    const wchar_t w = static_cast<wchar_t>(c);
    return GetStringTypeW(CT_CTYPE1, &w, 1, &type) ? type : 0;
}
}  // namespace

// Windows counts superscript and subscript digits as digits; only decimal digits count here, as
// on the other back end.
bool BrIsDigitW(char16_t c) {
    if (c == 0xB2 || c == 0xB3 || c == 0xB9 || (c >= 0x2070 && c <= 0x2089)) return false;
    return (TypeOf(c) & C1_DIGIT) != 0;
}
bool BrIsSpaceW(char16_t c) {
    return (TypeOf(c) & C1_SPACE) != 0;
}
bool BrIsLetterW(char16_t c) {
    return (TypeOf(c) & C1_ALPHA) != 0;
}

const BrSingleByteTables* BrSingleByteTablesOf(unsigned short codePage) {
    const CodePage* cp = Find(codePage);
    return cp != nullptr && cp->kind == Kind::kSingleByte ? cp : nullptr;
}
