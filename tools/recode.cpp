#include "recode.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <new>

#include "basert/codepage.h"
#include "basert/memory.h"
#include "codepages.h"
#include "kbase/text/UtCString.h"

namespace kbase_tool {

namespace {

const char* const kWho = "kbase recode";

// Units kept back waiting for a normalisation boundary before the text is normalised in pieces
// anyway (only a made-up text has a million combining marks in a row).
constexpr int64_t kMaxNormalizationCarry = int64_t{1} << 22;

constexpr int kUtf8 = 65001;
bool IsUtf16(int cp) {
    return cp == 1200 || cp == 1201;
}
bool IsUtf32(int cp) {
    return cp == 12000 || cp == 12001;
}
bool IsHighSurrogate(char32_t u) {
    return u >= 0xD800 && u <= 0xDBFF;
}
bool IsLowSurrogate(char32_t u) {
    return u >= 0xDC00 && u <= 0xDFFF;
}

// A growable array in a block of the runtime, so that a test can make its allocation fail.
template <typename T>
class Buffer {
public:
    Buffer() = default;
    ~Buffer() { UtFreeMemory(data_); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    // Makes room for n elements, keeping the content; false when memory is refused.
    [[nodiscard]] bool Reserve(int64_t n) {
        if (n <= capacity_) return true;
        T* p = data_;
        if (UtAllocMemoryBlockT(&p, static_cast<uint64_t>(n)) != kUtMemOk) return false;
        data_ = p;
        capacity_ = n;
        return true;
    }
    T* data() { return data_; }
    int64_t capacity() const { return capacity_; }

private:
    T* data_ = nullptr;
    int64_t capacity_ = 0;
};

// "U+00E4 'ä'"; controls and noncharacters are shown by number only.
std::string Describe(char32_t c) {
    char number[16];
    std::snprintf(number, sizeof number, "U+%04X", static_cast<unsigned>(c));
    std::string s = number;
    const bool control = c < 0x20 || (c >= 0x7F && c <= 0x9F);
    const bool noncharacter = (c >= 0xFDD0 && c <= 0xFDEF) || (c & 0xFFFE) == 0xFFFE;
    if (!control && !noncharacter) {
        const char16_t units[2] = {static_cast<char16_t>(c < 0x10000 ? c : 0xD7C0 + (c >> 10)),
                                   static_cast<char16_t>(0xDC00 | (c & 0x3FF))};
        char utf8[4];
        const int64_t n = BrUtf16ToMb(kUtf8, units, c < 0x10000 ? 1 : 2, utf8, sizeof utf8);
        if (n > 0) s += " '" + std::string(utf8, static_cast<size_t>(n)) + "'";
    }
    return s;
}

// Line and column (from 1; columns in characters) of the next character of a text seen in pieces.
class TextPosition {
public:
    // Moves past n units: UTF-8 bytes or UTF-16 units of well-formed text.
    template <typename Unit>
    void Advance(const Unit* s, int64_t n) {
        int64_t lines = 0;
        for (int64_t i = 0; i < n; ++i) lines += s[i] == Unit('\n');
        int64_t from = 0;
        if (lines != 0) {
            line_ += lines;
            column_ = 1;
            from = n;
            while (s[from - 1] != Unit('\n')) --from;
        }
        for (int64_t i = from; i < n; ++i) column_ += !IsContinuation(s[i]);
    }
    std::string Text() const {
        return "line " + std::to_string(line_) + ", column " + std::to_string(column_);
    }

private:
    static bool IsContinuation(char b) { return (static_cast<unsigned char>(b) & 0xC0) == 0x80; }
    static bool IsContinuation(char16_t u) { return IsLowSurrogate(u); }

    int64_t line_ = 1, column_ = 1;
};

// Why a walk over UTF-8 stopped before the end of its bytes.
enum class Utf8Stop { kEnd, kCut, kMalformed, kSink };

constexpr uint64_t kHighBits = 0x8080808080808080ULL;

// The high bits of the 64 bytes at p: bit j set when byte j is not ASCII.
uint64_t HighBits64(const unsigned char* p) {
    uint64_t mask = 0;
    for (int k = 0; k < 8; ++k) {
        uint64_t w;
        std::memcpy(&w, p + 8 * k, 8);
        if constexpr (std::endian::native == std::endian::little) {
            // The multiplication moves the high bit of byte j to bit 56 + j.
            mask |= ((w & kHighBits) * 0x0002040810204081ULL >> 56) << (8 * k);
        } else {
            for (int j = 0; j < 8; ++j)
                mask |= static_cast<uint64_t>(p[8 * k + j] >> 7) << (8 * k + j);
        }
    }
    return mask;
}

// Walks UTF-8 bytes src[0..n). ASCII goes to the sink as sink.Ascii(p, k): 64 bytes are readable
// at p, the first k of them ASCII and taken; the sink may write output for all 64 but keeps k. In
// the last 63 bytes, sink.Ascii1(byte) takes ASCII one byte at a time. Every other character goes
// to sink.Char(codePoint), which returns false to stop before it. Stops before a sequence that the
// end cuts off (unless last: then it is malformed) and at the first malformed sequence (overlong,
// surrogate, above U+10FFFF, stray byte). Returns the bytes walked.
template <typename Sink>
int64_t WalkUtf8(const char* src, int64_t n, bool last, Sink& sink, Utf8Stop& stop) {
    const auto* s = reinterpret_cast<const unsigned char*>(src);
    // The high bits of the 64 bytes from `block` on, found once for all the characters in them, so
    // a step takes a whole run of ASCII and the character after it.
    int64_t block = -64;
    uint64_t nonAscii = 0;
    int64_t i = 0;
    while (i < n) {
        if (i + 64 <= n) {
            if (i >= block + 64) {
                block = i;
                nonAscii = HighBits64(s + i);
            }
            const int64_t ascii =
                std::min<int64_t>(std::countr_zero(nonAscii >> (i - block)), block + 64 - i);
            if (ascii != 0) {
                sink.Ascii(src + i, static_cast<int>(ascii));
                i += ascii;
                continue;
            }
        } else if (s[i] < 0x80) {
            sink.Ascii1(src[i]);
            ++i;
            continue;
        }
        const unsigned char lead = s[i];
        // The common two- and three-byte characters first, without the general loop's branches.
        if (lead >= 0xC2 && lead <= 0xDF && i + 1 < n && (s[i + 1] & 0xC0) == 0x80) {
            if (!sink.Char(static_cast<char32_t>((lead & 0x1F) << 6 | (s[i + 1] & 0x3F)))) break;
            i += 2;
            continue;
        }
        if (lead >= 0xE1 && lead <= 0xEC && i + 2 < n && (s[i + 1] & 0xC0) == 0x80 &&
            (s[i + 2] & 0xC0) == 0x80) {
            if (!sink.Char(static_cast<char32_t>((lead & 0x0F) << 12 | (s[i + 1] & 0x3F) << 6 |
                                                 (s[i + 2] & 0x3F))))
                break;
            i += 3;
            continue;
        }
        int length = 0;
        char32_t c = 0;
        unsigned char low = 0x80, high = 0xBF;  // range of the second byte
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            c = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            c = lead & 0x0F;
            if (lead == 0xE0) low = 0xA0;   // overlong
            if (lead == 0xED) high = 0x9F;  // surrogates
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            c = lead & 0x07;
            if (lead == 0xF0) low = 0x90;   // overlong
            if (lead == 0xF4) high = 0x8F;  // above U+10FFFF
        } else {
            stop = Utf8Stop::kMalformed;
            return i;
        }
        for (int k = 1; k < length; ++k) {
            if (i + k >= n) {
                stop = last ? Utf8Stop::kMalformed : Utf8Stop::kCut;
                return i;
            }
            const unsigned char b = s[i + k];
            if (b < (k == 1 ? low : 0x80) || b > (k == 1 ? high : 0xBF)) {
                stop = Utf8Stop::kMalformed;
                return i;
            }
            c = (c << 6) | (b & 0x3F);
        }
        if (!sink.Char(c)) break;
        i += length;
    }
    stop = i < n ? Utf8Stop::kSink : Utf8Stop::kEnd;
    return i;
}

// A sink that only validates.
struct Utf8Check {
    void Ascii(const char*, int) {}
    void Ascii1(char) {}
    bool Char(char32_t) { return true; }
};

// A sink that writes UTF-16: room for as many units as bytes, and 64 more.
struct Utf8ToUtf16 {
    char16_t* out;
    void Ascii(const char* p, int k) {
        for (int j = 0; j < 64; ++j) out[j] = static_cast<unsigned char>(p[j]);
        out += k;
    }
    void Ascii1(char b) { *out++ = static_cast<unsigned char>(b); }
    bool Char(char32_t c) {
        if (c < 0x10000) {
            *out++ = static_cast<char16_t>(c);
        } else {
            *out++ = static_cast<char16_t>(0xD7C0 + (c >> 10));
            *out++ = static_cast<char16_t>(0xDC00 | (c & 0x3FF));
        }
        return true;
    }
};

// The tables of an ASCII-compatible single-byte code page, read from the conversion layer so that
// the direct paths give the same bytes as converting through UTF-16.
class SingleByteTables {
public:
    // Builds them for cp; false when memory is refused.
    [[nodiscard]] bool Build(int cp, bool withReverse) {
        for (int b = 0; b < 256; ++b) {
            const char byte = static_cast<char>(b);
            char16_t u = 0;
            int64_t replaced = 0;
            if (BrMbToUtf16(static_cast<unsigned short>(cp), &byte, 1, &u, 1, &replaced) != 1)
                return false;
            toUnicode_[b] = replaced == 0 ? u : u'\uFFFD';
            const int64_t n = BrUtf16ToMb(kUtf8, &u, 1, utf8_[b].bytes, 3);
            if (n <= 0) return false;
            utf8_[b].length = replaced == 0 ? static_cast<uint8_t>(n) : 0;
        }
        if (!withReverse) return true;
        if (!fromUnicode_.Reserve(65536)) return false;
        std::memset(fromUnicode_.data(), 0, 65536);
        for (int b = 255; b >= 1; --b) {  // the lowest byte wins when two stand for one character
            if (toUnicode_[b] != u'\uFFFD')
                fromUnicode_.data()[toUnicode_[b]] = static_cast<uint8_t>(b);
        }
        return true;
    }
    // Copied four bytes at a time: the length rides in the fourth.
    struct Utf8 {
        char bytes[3];
        uint8_t length;  // 0: the byte is no character of the page
    };
    const Utf8& ToUtf8(unsigned char b) const { return utf8_[b]; }
    // The byte of a character (not U+0000), or 0 when the page lacks it.
    uint8_t FromUnicode(char32_t c) { return c < 0x10000 ? fromUnicode_.data()[c] : 0; }

private:
    char16_t toUnicode_[256] = {};
    Utf8 utf8_[256] = {};
    Buffer<uint8_t> fromUnicode_;
};

// A sink that maps UTF-8 onto a single-byte page (room for as many bytes as it gets, and 64
// more); a character the page lacks stops it or, with replace, becomes '?'.
struct Utf8ToSingleByte {
    SingleByteTables& tables;
    bool replace;
    char* out;
    char32_t missing = 0;
    void Ascii(const char* p, int k) {
        std::memcpy(out, p, 64);
        out += k;
    }
    void Ascii1(char b) { *out++ = b; }
    bool Char(char32_t c) {
        uint8_t b = tables.FromUnicode(c);
        if (b == 0) {
            if (!replace) {
                missing = c;
                return false;
            }
            b = '?';
        }
        *out++ = static_cast<char>(b);
        return true;
    }
};

// The mark a UTF encoding writes first.
std::string MarkOf(int cp) {
    switch (cp) {
        case kUtf8:
            return "\xEF\xBB\xBF";
        case 1200:
            return "\xFF\xFE";
        case 1201:
            return "\xFE\xFF";
        case 12000:
            return std::string("\xFF\xFE\0\0", 4);
        case 12001:
            return std::string("\0\0\xFE\xFF", 4);
        default:
            return "";
    }
}

bool StartsWith(const char* bytes, int64_t n, const std::string& prefix) {
    return !prefix.empty() && n >= static_cast<int64_t>(prefix.size()) &&
           std::memcmp(bytes, prefix.data(), prefix.size()) == 0;
}

// Windows' numbers of the normalisation forms, or 0.
int NormalizationForm(const std::string& name) {
    if (name == "C") return 1;
    if (name == "D") return 2;
    if (name == "KC") return 5;
    if (name == "KD") return 6;
    return 0;
}

class Recoder {
public:
    Recoder(const RecodeOptions& o, InputFile& in, OutputFile& out, std::ostream& err)
        : o_(o), in_(in), out_(out), err_(err) {}
    ~Recoder() { BrDecoderClose(decoder_); }
    Recoder(const Recoder&) = delete;
    Recoder& operator=(const Recoder&) = delete;

    int Run();

private:
    int Fill();
    void Consume(int64_t n);
    bool Next(int64_t converted, int& rc);
    int ResolveSource();
    int OutOfMemory();
    int Malformed(int64_t offset, const char* what);
    int Unrepresentable(char32_t c);
    bool Write(const char* data, int64_t n) { return out_.Write(data, static_cast<size_t>(n)); }

    int CopyUtf8();
    int SingleByteToUtf8();
    int Utf8ToSingleByteDirect();
    int ThroughUtf16();
    int Decode(int64_t& units);
    int DecodeUtf16(char16_t* dst, int64_t& units);
    int Normalize(const char16_t* text, int64_t n, int64_t& written);
    int Encode(const char16_t* text, int64_t n);
    int64_t FirstUnrepresentable(const char16_t* text, int64_t n);

    const RecodeOptions& o_;
    InputFile& in_;
    OutputFile& out_;
    std::ostream& err_;
    int from_ = 0, to_ = 0, form_ = 0;

    // Bytes read and not yet converted: bytes_[0..have_) stands at offset start_ of the input.
    Buffer<char> bytes_;
    int64_t have_ = 0, start_ = 0;
    bool end_ = false;  // the input has no more bytes than those in bytes_

    BrDecoder* decoder_ = nullptr;
    int64_t decoderStart_ = 0;  // offset of the first byte given to the decoder
    Buffer<char16_t> units_, normalized_;
    int64_t carry_ = 0;  // units_[0..carry_) wait for a normalisation boundary
    Buffer<char> encoded_;
    TextPosition position_;  // of the next character given to the encoder
};

int Recoder::OutOfMemory() {
    err_ << kWho << ": out of memory\n";
    return kExitIo;
}

int Recoder::Malformed(int64_t offset, const char* what) {
    err_ << kWho << ": the input is not valid text in code page " << from_ << ": " << what
         << " at byte offset " << offset << "\n";
    return kExitContent;
}

int Recoder::Unrepresentable(char32_t c) {
    err_ << kWho << ": " << position_.Text() << ": " << Describe(c)
         << " cannot be represented in code page " << to_ << " (use --replace to write '?')\n";
    return kExitContent;
}

// Reads the next block after the bytes still waiting.
int Recoder::Fill() {
    const int64_t block = o_.blockSize > 0 ? o_.blockSize : 1;
    if (!bytes_.Reserve(have_ + block)) return OutOfMemory();
    const int64_t got = in_.Read(bytes_.data() + have_, block);
    if (got < 0) return kExitIo;
    have_ += got;
    end_ = got < block;
    return kExitOk;
}

void Recoder::Consume(int64_t n) {
    std::memmove(bytes_.data(), bytes_.data() + n, static_cast<size_t>(have_ - n));
    have_ -= n;
    start_ += n;
}

// Drops the bytes converted and reads the next block. False when there is none: at the end of the
// input (rc kExitOk) or after an error (rc says which).
bool Recoder::Next(int64_t converted, int& rc) {
    Consume(converted);
    if (end_) {
        rc = kExitOk;
        return false;
    }
    rc = Fill();
    return rc == kExitOk;
}

// Settles the source code page from the options and the mark, and drops a mark that is no text.
int Recoder::ResolveSource() {
    const char* b = bytes_.data();
    from_ = o_.from;
    if (from_ == 0) {
        for (const int cp : {kUtf8, 1200, 1201}) {
            if (StartsWith(b, have_, MarkOf(cp))) from_ = cp;
        }
        if (from_ == 0) from_ = UtCString::systemEncodingType();
        if (!CodePageAvailable(from_)) {
            err_ << kWho << ": the system code page " << from_ << " is unknown; give --from\n";
            return kExitUsage;
        }
    }
    // A UTF-16 or UTF-32 text marked in the other byte order is in that order.
    if (IsUtf16(from_) || IsUtf32(from_)) {
        const int other = from_ ^ 1;
        if (StartsWith(b, have_, MarkOf(other))) from_ = other;
    }
    if (StartsWith(b, have_, MarkOf(from_))) Consume(static_cast<int64_t>(MarkOf(from_).size()));
    return kExitOk;
}

int Recoder::Run() {
    to_ = o_.to;
    form_ = NormalizationForm(o_.normalize);
    do {  // a mark has up to four bytes
        if (int rc = Fill(); rc != kExitOk) return rc;
    } while (have_ < 4 && !end_);
    if (int rc = ResolveSource(); rc != kExitOk) return rc;
    if (o_.mark) {
        const std::string mark = MarkOf(to_);
        if (!Write(mark.data(), static_cast<int64_t>(mark.size()))) return kExitIo;
    }
    int rc = kExitOk;
    const bool plain = form_ == 0;
    const auto singleByte = [](int cp) {
        return BrCodePageIsSingleByte(static_cast<unsigned short>(cp)) &&
               BrCodePageIsAsciiCompatible(static_cast<unsigned short>(cp));
    };
    if (plain && from_ == kUtf8 && to_ == kUtf8) {
        rc = CopyUtf8();
    } else if (plain && to_ == kUtf8 && singleByte(from_)) {
        rc = SingleByteToUtf8();
    } else if (plain && from_ == kUtf8 && singleByte(to_)) {
        rc = Utf8ToSingleByteDirect();
    } else {
        rc = ThroughUtf16();
    }
    if (rc != kExitOk) return rc;
    return out_.Commit() ? kExitOk : kExitIo;
}

// ---- direct paths: the same bytes as through UTF-16, without it -------------------------------

int Recoder::CopyUtf8() {
    for (;;) {
        Utf8Check check;
        Utf8Stop stop;
        const int64_t valid = WalkUtf8(bytes_.data(), have_, end_, check, stop);
        if (stop == Utf8Stop::kMalformed) return Malformed(start_ + valid, "malformed UTF-8");
        if (!Write(bytes_.data(), valid)) return kExitIo;
        if (int rc = kExitOk; !Next(valid, rc)) return rc;
    }
}

int Recoder::SingleByteToUtf8() {
    SingleByteTables tables;
    if (!tables.Build(from_, false)) return OutOfMemory();
    for (;;) {
        // Every byte gives at most three; each copy writes four.
        if (!encoded_.Reserve(3 * have_ + 8)) return OutOfMemory();
        const auto* s = reinterpret_cast<const unsigned char*>(bytes_.data());
        char* o = encoded_.data();
        int64_t i = 0;
        // Eight bytes at a time: ASCII as it is, others through the table without a branch.
        for (; i + 8 <= have_; i += 8) {
            uint64_t w;
            std::memcpy(&w, s + i, 8);
            if ((w & kHighBits) == 0) {
                std::memcpy(o, &w, 8);
                o += 8;
                continue;
            }
            char* const start = o;
            bool hole = false;
            for (int k = 0; k < 8; ++k) {
                const SingleByteTables::Utf8& u = tables.ToUtf8(s[i + k]);
                std::memcpy(o, &u, 4);
                o += u.length;
                hole = hole || u.length == 0;
            }
            if (hole) {  // the last eight again, one at a time, to stop at the hole
                o = start;
                break;
            }
        }
        for (; i < have_; ++i) {
            const SingleByteTables::Utf8& u = tables.ToUtf8(s[i]);
            if (u.length == 0) {
                if (!Write(encoded_.data(), o - encoded_.data())) return kExitIo;
                return Malformed(start_ + i, "a byte the code page does not assign");
            }
            std::memcpy(o, &u, 4);
            o += u.length;
        }
        if (!Write(encoded_.data(), o - encoded_.data())) return kExitIo;
        if (int rc = kExitOk; !Next(have_, rc)) return rc;
    }
}

int Recoder::Utf8ToSingleByteDirect() {
    SingleByteTables tables;
    if (!tables.Build(to_, true)) return OutOfMemory();
    for (;;) {
        if (!encoded_.Reserve(have_ + 64)) return OutOfMemory();
        Utf8ToSingleByte sink{tables, o_.replace, encoded_.data()};
        Utf8Stop stop;
        const int64_t walked = WalkUtf8(bytes_.data(), have_, end_, sink, stop);
        if (!Write(encoded_.data(), sink.out - encoded_.data())) return kExitIo;
        if (stop == Utf8Stop::kMalformed) return Malformed(start_ + walked, "malformed UTF-8");
        position_.Advance(bytes_.data(), walked);
        if (stop == Utf8Stop::kSink) return Unrepresentable(sink.missing);
        if (int rc = kExitOk; !Next(walked, rc)) return rc;
    }
}

// ---- through UTF-16: every other pair, and normalisation ----------------------------------------

int Recoder::ThroughUtf16() {
    if (!IsUtf16(from_) && from_ != kUtf8) {
        decoder_ = BrDecoderOpen(static_cast<unsigned short>(from_));
        if (decoder_ == nullptr) return OutOfMemory();  // the code page was checked before
        decoderStart_ = start_;
    }
    for (;;) {
        int64_t units = 0;  // after the carry
        if (int rc = Decode(units); rc != kExitOk) return rc;
        units += carry_;
        int64_t cut = units;
        if (form_ != 0 && !end_) {
            cut = BrNormalizeBoundary(form_, units_.data(), units);
            if (cut == 0 && units >= kMaxNormalizationCarry) cut = units;
        }
        const char16_t* text = units_.data();
        int64_t n = cut;
        if (form_ != 0 && cut > 0) {
            if (int rc = Normalize(units_.data(), cut, n); rc != kExitOk) return rc;
            text = normalized_.data();
        }
        if (int rc = Encode(text, n); rc != kExitOk) return rc;
        carry_ = units - cut;
        std::memmove(units_.data(), units_.data() + cut,
                     static_cast<size_t>(carry_) * sizeof(char16_t));
        if (int rc = kExitOk; !Next(0, rc)) return rc;
    }
}

// Decodes the waiting bytes into units_ after the carry: all of them at the end of the input, else
// all but a sequence the block cuts off.
int Recoder::Decode(int64_t& units) {
    units = 0;
    if (from_ == kUtf8 || IsUtf16(from_)) {
        if (!units_.Reserve(carry_ + have_ + 64)) return OutOfMemory();
        char16_t* dst = units_.data() + carry_;
        if (IsUtf16(from_)) return DecodeUtf16(dst, units);
        Utf8ToUtf16 sink{dst};
        Utf8Stop stop;
        const int64_t walked = WalkUtf8(bytes_.data(), have_, end_, sink, stop);
        if (stop == Utf8Stop::kMalformed) return Malformed(start_ + walked, "malformed UTF-8");
        units = sink.out - dst;
        Consume(walked);
        return kExitOk;
    }
    // The decoder keeps a cut sequence itself; a unit bound is not known for every page, so the
    // buffer grows until a call leaves room.
    int64_t taken = 0, firstBad = -1;
    for (;;) {
        if (!units_.Reserve(carry_ + units + 2 * (have_ - taken) + 64)) return OutOfMemory();
        const int64_t room = units_.capacity() - carry_ - units;
        int64_t read = 0, bad = -1;
        const int64_t got = BrDecode(decoder_, bytes_.data() + taken, have_ - taken, end_,
                                     units_.data() + carry_ + units, room, &read, &bad);
        if (got < 0) return OutOfMemory();
        if (firstBad < 0) firstBad = bad;
        units += got;
        taken += read;
        if (taken == have_ && got < room) break;
    }
    // The decoder counts from the first byte it was given, which is past a mark.
    if (firstBad >= 0)
        return Malformed(decoderStart_ + firstBad, "a malformed or unassigned sequence");
    Consume(taken);
    return kExitOk;
}

// UTF-16 in either byte order, checked: a surrogate must be half of a pair.
int Recoder::DecodeUtf16(char16_t* dst, int64_t& units) {
    const auto* s = reinterpret_cast<const unsigned char*>(bytes_.data());
    const int hi = from_ == 1201 ? 0 : 1;
    int64_t n = have_ / 2;
    for (int64_t i = 0; i < n; ++i) {
        dst[i] = static_cast<char16_t>(s[2 * i + hi] << 8 | s[2 * i + (1 - hi)]);
    }
    for (int64_t i = 0; i < n; ++i) {
        if (!IsHighSurrogate(dst[i]) && !IsLowSurrogate(dst[i])) continue;
        if (IsHighSurrogate(dst[i]) && i + 1 < n && IsLowSurrogate(dst[i + 1])) {
            ++i;
        } else if (IsHighSurrogate(dst[i]) && i + 1 == n && !end_) {
            n = i;  // the pair's other half is in the next block
        } else {
            return Malformed(start_ + 2 * i, "an unpaired surrogate");
        }
    }
    if (end_ && have_ % 2 != 0)
        return Malformed(start_ + have_ - 1, "an odd number of bytes (UTF-16 has pairs)");
    units = n;
    Consume(2 * n);
    return kExitOk;
}

int Recoder::Normalize(const char16_t* text, int64_t n, int64_t& written) {
    if (!normalized_.Reserve(BrNormalize(form_, text, n, nullptr, 0))) return OutOfMemory();
    for (;;) {
        const int64_t got = BrNormalize(form_, text, n, normalized_.data(), normalized_.capacity());
        if (got > 0) {
            written = got;
            return kExitOk;
        }
        // The text is well-formed (every decoder checks), so only memory can fail.
        if (got == 0 || !normalized_.Reserve(-got)) return OutOfMemory();
    }
}

void BytesFromUtf16(const char16_t* text, int64_t n, bool bigEndian, char* out) {
    const int hi = bigEndian ? 0 : 1;
    for (int64_t i = 0; i < n; ++i) {
        out[2 * i + hi] = static_cast<char>(text[i] >> 8);
        out[2 * i + (1 - hi)] = static_cast<char>(text[i] & 0xFF);
    }
}

// Bytes that n units can need in a code page; the ten spare characters cover the shifts a stateful
// page (ISO-2022, UTF-7) writes at the start and the end.
int64_t EncodedBound(unsigned short cp, int64_t n) {
    return (n + 10) * BrCodePageMaxBytes(cp);
}

int Recoder::Encode(const char16_t* text, int64_t n) {
    if (n == 0) return kExitOk;
    if (IsUtf16(to_)) {
        if (!encoded_.Reserve(2 * n)) return OutOfMemory();
        BytesFromUtf16(text, n, to_ == 1201, encoded_.data());
        position_.Advance(text, n);
        return Write(encoded_.data(), 2 * n) ? kExitOk : kExitIo;
    }
    const auto cp = static_cast<unsigned short>(to_);
    if (!encoded_.Reserve(EncodedBound(cp, n))) return OutOfMemory();
    int64_t replaced = 0;
    const int64_t got = BrUtf16ToMb(cp, text, n, encoded_.data(), encoded_.capacity(), &replaced);
    if (got < 0) return OutOfMemory();
    if (replaced != 0 && !o_.replace) {
        const int64_t at = FirstUnrepresentable(text, n);
        if (at < 0) return OutOfMemory();
        position_.Advance(text, at);
        char32_t c = text[at];
        if (IsHighSurrogate(c) && at + 1 < n)
            c = 0x10000 + ((c - 0xD800) << 10) + (text[at + 1] - 0xDC00);
        return Unrepresentable(c);
    }
    position_.Advance(text, n);
    return Write(encoded_.data(), got) ? kExitOk : kExitIo;
}

// Index of the first character of text[0..n) the target lacks, or -1 when none is found (the
// conversion failed for memory then). Slices narrow the search before single characters are tried.
int64_t Recoder::FirstUnrepresentable(const char16_t* text, int64_t n) {
    const auto cp = static_cast<unsigned short>(to_);
    const auto replacedIn = [&](int64_t from, int64_t count) {
        int64_t replaced = 0;
        if (!encoded_.Reserve(EncodedBound(cp, count))) return int64_t{-1};
        if (BrUtf16ToMb(cp, text + from, count, encoded_.data(), encoded_.capacity(), &replaced) <
            0)
            return int64_t{-1};
        return replaced;
    };
    // A slice never splits a surrogate pair.
    const auto end = [&](int64_t from, int64_t count) {
        int64_t e = from + count < n ? from + count : n;
        if (e < n && IsLowSurrogate(text[e])) ++e;
        return e;
    };
    for (int64_t slice = 0; slice < n;) {
        const int64_t sliceEnd = end(slice, 4096);
        const int64_t inSlice = replacedIn(slice, sliceEnd - slice);
        if (inSlice < 0) return -1;
        if (inSlice == 0) {
            slice = sliceEnd;
            continue;
        }
        for (int64_t i = slice; i < sliceEnd;) {
            const int64_t next = end(i, 1);
            const int64_t one = replacedIn(i, next - i);
            if (one < 0) return -1;
            if (one != 0) return i;
            i = next;
        }
        return -1;
    }
    return -1;
}

int Run(const RecodeOptions& o, InputFile& in, OutputFile& out, std::ostream& err) {
    try {
        Recoder recoder(o, in, out, err);
        return recoder.Run();
    } catch (const std::bad_alloc&) {
        err << kWho << ": out of memory\n";
        return kExitIo;
    }
}

// The checks that need no file: code pages and form.
int CheckOptions(const RecodeOptions& o, std::ostream& err) {
    // Only the source may be left to the mark (0).
    const int unknown = o.from != 0 && !CodePageAvailable(o.from) ? o.from
                        : !CodePageAvailable(o.to)                ? o.to
                                                                  : 0;
    if (unknown != 0 || o.to == 0) {
        err << kWho << ": unknown code page " << unknown
            << " (kbase recode --list shows the known ones)\n";
        return kExitUsage;
    }
    if (!o.normalize.empty() && NormalizationForm(o.normalize) == 0) {
        err << kWho << ": unknown normalisation form '" << o.normalize
            << "' (use C, D, KC or KD)\n";
        return kExitUsage;
    }
    return kExitOk;
}

}  // namespace

int Recode(const RecodeOptions& o, std::ostream& err) {
    if (int rc = CheckOptions(o, err); rc != kExitOk) return rc;
    InputFile in;
    OutputFile out;
    // A standard stream is checked before any file is opened: a closed one's descriptor would be
    // taken by that file. Opening "-" opens nothing, so it goes first.
    const auto openIn = [&] { return in.Open(o.input, kWho, err); };
    const auto openOut = [&] { return out.Open(o.output, kWho, err); };
    const bool outFirst = o.output == "-";
    if (int rc = outFirst ? openOut() : openIn(); rc != kExitOk) return rc;
    if (int rc = outFirst ? openIn() : openOut(); rc != kExitOk) return rc;
    return Run(o, in, out, err);
}

int Recode(const RecodeOptions& o, std::istream& input, std::ostream& output, std::ostream& err) {
    if (int rc = CheckOptions(o, err); rc != kExitOk) return rc;
    InputFile in;
    OutputFile out;
    if (int rc = in.Open(o.input, kWho, err, input); rc != kExitOk) return rc;
    if (int rc = out.Open(o.output, kWho, err, output); rc != kExitOk) return rc;
    return Run(o, in, out, err);
}

}  // namespace kbase_tool
