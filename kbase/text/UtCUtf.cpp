#include "kbase/text/UtCUtf.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "basert/codepage.h"
#include "basert/memory.h"
#include "kbase/text/internal/UtC_string_impl.h"

namespace kbase_text_internal {

namespace {
uint64_t g_textAllocFailures = 0;
}

int TextAlloc(void** block, uint64_t count, uint64_t elemSize) {
    const int rc = UtAllocMemoryBlock(block, count, elemSize);
    if (rc != kUtMemOk) ++g_textAllocFailures;
    return rc;
}

uint64_t TextAllocFailures() { return g_textAllocFailures; }

}  // namespace kbase_text_internal

using kbase_text_internal::TextAlloc;

namespace {

constexpr unsigned short kUtf8 = 65001;

// Allocates count + 1 elements of elemSize; null when refused.
void* AllocUnits(int64_t count, int elemSize) {
    void* p = nullptr;
    if (count < 0 || TextAlloc(&p, static_cast<uint64_t>(count) + 1, elemSize) != kUtMemOk) {
        return nullptr;
    }
    return p;
}

// Shrinks a block to exactly units + 1 elements and terminates it. A refused shrink keeps the
// larger block, which is still correct (only the exact-size promise is lost for that block).
void* FitAndTerminate(void* block, int64_t units, int elemSize) {
    void* p = block;
    if (UtAllocMemoryBlock(&p, static_cast<uint64_t>(units) + 1, elemSize) != kUtMemOk) p = block;
    if (elemSize == 2) {
        static_cast<char16_t*>(p)[units] = 0;
    } else {
        static_cast<char*>(p)[units] = 0;
    }
    return p;
}

UtCUtf::Result Fail() { return UtCUtf::Result{}; }

// One pass over UTF-16 text: its length up to the first NUL (at most n), whether all of that is
// ASCII, the bytes its UTF-8 form needs at most (exact without surrogates) and whether it holds
// surrogates. Chunks of 256 units without an exit inside keep the inner loop vectorised.
struct Scan16 {
    int64_t length;
    bool ascii;
    int64_t utf8Bytes;
    bool surrogates;
};
Scan16 ScanUtf16(const char16_t* s, int64_t n) {
    constexpr int64_t kChunk = 256;  // 16-bit lane sums: at most 2 * 256 per chunk
    int64_t i = 0, extra = 0;
    unsigned any = 0, surrogates = 0;
    for (; i + kChunk <= n; i += kChunk) {
        uint16_t zeros = 0, more = 0, surr = 0, bits = 0;
        for (int64_t k = 0; k < kChunk; ++k) {
            const char16_t u = s[i + k];
            zeros = static_cast<uint16_t>(zeros + (u == 0));
            more = static_cast<uint16_t>(more + (u >= 0x80) + (u >= 0x800));
            surr = static_cast<uint16_t>(surr + ((u & 0xF800) == 0xD800));
            bits = static_cast<uint16_t>(bits | u);
        }
        if (zeros != 0) break;
        any |= bits;
        extra += more;
        surrogates += surr;
    }
    for (; i < n && s[i] != 0; ++i) {
        const char16_t u = s[i];
        any |= u;
        extra += (u >= 0x80) + (u >= 0x800);
        surrogates += (u & 0xF800) == 0xD800;
    }
    return Scan16{i, any < 0x80, i + extra, surrogates != 0};
}

// Length of the leading run of ASCII units. Chunks without an exit inside keep the inner loop
// vectorised; the chunk that holds the first other unit is walked unit by unit.
template <typename Unit>
int64_t AsciiRun(const Unit* s, int64_t n) {
    using U = std::make_unsigned_t<Unit>;
    constexpr int64_t kChunk = 256;
    int64_t i = 0;
    for (; i + kChunk <= n; i += kChunk) {
        U bits = 0;
        for (int64_t k = 0; k < kChunk; ++k) bits = static_cast<U>(bits | static_cast<U>(s[i + k]));
        if (bits >= 0x80) break;
    }
    while (i < n && static_cast<U>(s[i]) < 0x80) ++i;
    return i;
}

// Pure ASCII text is the same in every ASCII-compatible encoding: one copy, no converter.
template <typename From, typename To>
UtCUtf::Result CopyAscii(const From* src, int64_t n, int prefix) {
    auto* out = static_cast<To*>(AllocUnits(n + prefix, sizeof(To)));
    if (out == nullptr) return Fail();
    if (prefix != 0) UtCUtf8::SetToBOM(reinterpret_cast<char*>(out));
    To* d = out + prefix;
    for (int64_t i = 0; i < n; ++i) d[i] = static_cast<To>(src[i]);
    d[n] = 0;
    UtCUtf::Result r;
    r.text = out;
    r.units = n + prefix;
    r.codePoints = n;
    r.ok = true;
    return r;
}

UtCUtf::Result Done(void* block, int64_t units, int elemSize, int64_t replaced) {
    UtCUtf::Result r;
    r.text = FitAndTerminate(block, units, elemSize);
    r.units = units;
    r.replaced = replaced;
    r.ok = true;
    return r;
}

// Bytes into UTF-16 (source already past any mark).
UtCUtf::Result BytesToUtf16(const char* src, int64_t n, unsigned short from) {
    if (BrCodePageIsAsciiCompatible(from) && AsciiRun(src, n) == n) return CopyAscii<char, char16_t>(src, n, 0);
    auto* out = static_cast<char16_t*>(AllocUnits(n, 2));
    if (out == nullptr) return Fail();
    int64_t replaced = 0;
    const int64_t got = BrMbToUtf16(from, src, n, out, n, &replaced);
    if (got < 0) {
        UtFreeMemory(out);
        return Fail();
    }
    return Done(out, got, 2, replaced);
}

// UTF-16 into bytes (source already past any mark and scanned); prefix bytes are reserved for the
// UTF-8 mark.
UtCUtf::Result Utf16ToBytes(const char16_t* src, const Scan16& scan, unsigned short to, int prefix) {
    const int maxBytes = BrCodePageMaxBytes(to);
    if (maxBytes <= 0) return Fail();
    const int64_t n = scan.length;
    // For UTF-8 the scan's bound keeps large blocks from being allocated three times too big and
    // shrunk again; without surrogates every unit is one code point, which spares the string a
    // counting pass.
    const int64_t cap = to == kUtf8 ? scan.utf8Bytes : n * maxBytes;
    auto* out = static_cast<char*>(AllocUnits(cap + prefix, 1));
    if (out == nullptr) return Fail();
    int64_t replaced = 0;
    const int64_t got = BrUtf16ToMb(to, src, n, out + prefix, cap, &replaced);
    if (got < 0) {
        UtFreeMemory(out);
        return Fail();
    }
    if (prefix != 0) UtCUtf8::SetToBOM(out);
    UtCUtf::Result r = Done(out, got + prefix, 1, replaced);
    if (to == kUtf8 && !scan.surrogates) r.codePoints = n;
    return r;
}

UtCUtf::Result CopyUnits(const void* src, int64_t n, int elemSize, int prefix) {
    auto* out = static_cast<char*>(AllocUnits(n + prefix, elemSize));
    if (out == nullptr) return Fail();
    if (prefix != 0) UtCUtf8::SetToBOM(out);
    if (n > 0) std::memcpy(out + prefix * elemSize, src, static_cast<size_t>(n) * elemSize);
    return Done(out, n + prefix, elemSize, 0);
}

}  // namespace

bool UtCUtf::IsAvailable(unsigned short e) { return IsUtf16(e) || BrCodePageAvailable(e); }
bool UtCUtf::IsUnknown(unsigned short e) { return !IsUtf16(e) && BrCodePageUnknown(e); }

UtCUtf::Result UtCUtf::Convert(const void* text, int64_t count, unsigned short from,
                               unsigned short to, bool utf8Mark) {
    if (text == nullptr) count = 0;
    const int prefix = (utf8Mark && IsUtf8(to)) ? 3 : 0;
    if (IsUtf16(from)) {
        const char16_t* src = UtCUtf16::SkipBOM(static_cast<const char16_t*>(text));
        if (count < 0) {
            count = UtCUtf16::Length(src);  // the block scan below must not read past the terminator
        } else if (count > 0 && src != text) {
            --count;
        }
        // Text ends at its terminator even when the count runs further.
        const Scan16 scan = src != nullptr ? ScanUtf16(src, count) : Scan16{0, true};
        if (IsUtf16(to)) return CopyUnits(src, scan.length, 2, 0);
        if (scan.ascii && BrCodePageIsAsciiCompatible(to)) return CopyAscii<char16_t, char>(src, scan.length, prefix);
        return Utf16ToBytes(src, scan, to, prefix);
    }
    const char* src = static_cast<const char*>(text);
    if (count < 0) {
        count = src != nullptr ? static_cast<int64_t>(std::strlen(src)) : 0;
    } else if (const void* nul = std::memchr(src, 0, static_cast<size_t>(count)); nul != nullptr) {
        count = static_cast<const char*>(nul) - src;  // text ends at its terminator
    }
    if (IsUtf8(from) && UtCUtf8::HasBOM(src, count)) {
        src += 3;
        count -= 3;
    }
    // Same encoding: a copy, even for a code page without converter (its bytes are kept as they are).
    if (from == to) return CopyUnits(src, count, 1, prefix);
    if (IsUtf16(to)) return BytesToUtf16(src, count, from);
    // Between two 8-bit encodings: through UTF-16.
    Result wide = BytesToUtf16(src, count, from);
    if (!wide.ok) return wide;
    const auto* w = static_cast<const char16_t*>(wide.text);
    Result r = Utf16ToBytes(w, ScanUtf16(w, wide.units), to, prefix);
    r.replaced += wide.replaced;
    UtFreeMemory(wide.text);
    return r;
}

bool UtCUtf8::HasBOM(const char* text, int64_t n) {
    return text != nullptr && n >= 3 && static_cast<unsigned char>(text[0]) == kBom[0] &&
           static_cast<unsigned char>(text[1]) == kBom[1] &&
           static_cast<unsigned char>(text[2]) == kBom[2];
}

const char* UtCUtf8::SkipBOM(const char* text) {
    if (text == nullptr) return text;
    // Reading three bytes is safe only up to the terminator: check byte by byte.
    if (static_cast<unsigned char>(text[0]) == kBom[0] &&
        static_cast<unsigned char>(text[1]) == kBom[1] &&
        static_cast<unsigned char>(text[2]) == kBom[2]) {
        return text + 3;
    }
    return text;
}

void UtCUtf8::SetToBOM(char* block) { std::memcpy(block, kBom, 3); }

int64_t UtCUtf8::CountCodePoints(const char* text, int64_t n) {
    if (text == nullptr) return 0;
    if (n < 0) n = static_cast<int64_t>(std::strlen(text));
    int64_t continuation = 0;
    for (int64_t i = 0; i < n; ++i) {
        continuation += (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80;
    }
    return n - continuation;
}

int64_t UtCUtf8::OffsetOfCodePoint(const char* text, int64_t n, int64_t i) {
    if (i <= 0) return 0;
    int64_t seen = 0;
    for (int64_t b = 0; b < n; ++b) {
        if ((static_cast<unsigned char>(text[b]) & 0xC0) != 0x80) {
            if (seen == i) return b;
            ++seen;
        }
    }
    return n;
}

const char16_t* UtCUtf16::SkipBOM(const char16_t* text) {
    return (text != nullptr && IsBOM(text[0])) ? text + 1 : text;
}

int64_t UtCUtf16::Length(const char16_t* text) {
    if (text == nullptr) return 0;
    int64_t n = 0;
    while (text[n] != 0) ++n;
    return n;
}
