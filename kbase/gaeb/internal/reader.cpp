// The GAEB tokenizer.
#include "kbase/gaeb/internal/reader.h"

#include <bit>
#include <charconv>
#include <cstring>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#endif

#include "kbase/gaeb/UtGAEB.h"

namespace kbase_gaeb_internal {

namespace {

bool StartsWithNoCase(std::string_view s, std::string_view prefix) {
    return s.size() >= prefix.size() && NameIs(s.substr(0, prefix.size()), prefix);
}

bool IsBlank(std::string_view s) {
    for (char c : s) {
        if (c != ' ' && c != '\t') return false;
    }
    return true;
}

std::string_view SkipIndent(std::string_view s) {
    size_t i = 0;
    while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) ++i;
    return s.substr(i);
}

// Control bytes that a text file holds: TAB, FF, Ctrl-Z (the DOS end mark). CR and LF end lines.
bool IsBinary(unsigned char c) {
    return c < 0x20 && c != '\t' && c != '\f' && c != 0x1A;
}

// A tag "#begin[Name]" or "#end[Name]": the name and the text after "]". False when s is none.
bool CutTag(std::string_view s, std::string_view prefix, std::string& name,
            std::string_view& tail) {
    if (!StartsWithNoCase(s, prefix)) return false;
    const size_t open = prefix.size();
    const size_t close = s.find(']', open);
    if (close == std::string_view::npos || close == open) return false;
    name.assign(s.substr(open, close - open));
    tail = s.substr(close + 1);
    return true;
}

constexpr std::string_view kEndMark = "[end]";

// The first byte below 0x20 in [p, end), or end: every line end and every byte a text file does
// not hold is one, so that one pass finds both.
const char* FindControl(const char* p, const char* end) {
#if defined(__SSE2__) || defined(_M_X64)
    const __m128i top = _mm_set1_epi8(0x1F);
    for (; end - p >= 16; p += 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const int mask = _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(x, top), x));
        if (mask != 0) return p + std::countr_zero(static_cast<unsigned>(mask));
    }
#else
    for (; end - p >= 8; p += 8) {
        uint64_t w;
        std::memcpy(&w, p, sizeof w);
        if (((w - 0x2020202020202020u) & ~w & 0x8080808080808080u) != 0) break;
    }
#endif
    while (p != end && static_cast<unsigned char>(*p) >= 0x20) ++p;
    return p;
}

}  // namespace

void Token::Clear() {
    name.clear();
    value = std::string_view();
    first_ = std::string_view();
    multi_ = false;
}

void Token::AppendRaw(std::string& out) const {
    if (multi_) {
        out.append(head_).append(value).append(tail_);
    } else {
        out.append(first_);
    }
    out.push_back('\n');
}

int Reader::Fail(int status, uint64_t line, const std::string& message) {
    if (status_ == 0) {
        status_ = status;
        if (report_ != nullptr) {
            report_->status = status;
            report_->line = line;
            report_->message = "line " + std::to_string(line) + ": " + message;
        }
    }
    return status_;
}

void Reader::Note(uint64_t line, const std::string& message) {
    if (report_ != nullptr)
        report_->notes.push_back("line " + std::to_string(line) + ": " + message);
}

bool Reader::Refill() {
    if (eof_) return false;
    if (pos_ != 0) {
        std::memmove(buf_.get(), buf_.get() + pos_, end_ - pos_);
        end_ -= pos_;
        pos_ = 0;
    }
    if (end_ == size_) {
        // A line longer than the buffer: room up to the longest line allowed and its end.
        size_t grown = size_ == 0 ? kBlock : size_ * 2;
        if (grown > kMaxLine + 2) grown = kMaxLine + 2;
        if (grown == size_) return false;  // cannot happen: ReadLine stops longer lines
        std::unique_ptr<char[]> buf(new char[grown]);
        if (end_ != 0) std::memcpy(buf.get(), buf_.get(), end_);
        buf_ = std::move(buf);
        size_ = grown;
    }
    const size_t n = std::fread(buf_.get() + end_, 1, size_ - end_, file_);
    end_ += n;
    if (n == 0) {
        eof_ = true;
        if (std::ferror(file_)) Fail(kGAEBReadFailed, lineNo_ + 1, "the file cannot be read");
        return false;
    }
    return true;
}

bool Reader::ReadLine(std::string_view& line) {
    terminated_ = false;
    if (pendingCr_) {  // a CR ended the previous line; a LF right after it belongs to it
        if (pos_ == end_ && !Refill() && status_ != 0) return false;
        pendingCr_ = false;
        if (pos_ != end_ && buf_[pos_] == '\n') ++pos_;
    }
    size_t scan = pos_;  // bytes from pos_ to scan hold no line end and no binary byte
    for (;;) {
        // A line is looked at up to one byte past the longest allowed, so that a longer one fails
        // before a binary byte further on is seen, and memory stays bounded.
        const size_t limit = end_ - pos_ > kMaxLine ? pos_ + kMaxLine + 1 : end_;
        const char* base = buf_.get();
        const char* p = FindControl(base + scan, base + limit);
        while (p != base + limit) {
            const unsigned char c = static_cast<unsigned char>(*p);
            if (c == '\n' || c == '\r') {
                line = std::string_view(base + pos_, static_cast<size_t>(p - base) - pos_);
                pos_ = static_cast<size_t>(p - base) + 1;
                if (c == '\r') pendingCr_ = true;
                ++lineNo_;
                terminated_ = true;
                return true;
            }
            if (IsBinary(c)) {
                Fail(kGAEBBinary, lineNo_ + 1,
                     "binary byte 0x" + std::string(1, "0123456789ABCDEF"[c >> 4]) +
                         "0123456789ABCDEF"[c & 15] + " in a text file");
                return false;
            }
            p = FindControl(p + 1, base + limit);
        }
        scan = limit - pos_;
        if (limit - pos_ > kMaxLine) {
            Fail(kGAEBTooLarge, lineNo_ + 1,
                 "a line longer than " + std::to_string(kMaxLine) + " bytes");
            return false;
        }
        if (!Refill()) {
            if (status_ != 0 || pos_ == end_) return false;
            line = std::string_view(buf_.get() + pos_, end_ - pos_);  // the last line, unended
            pos_ = end_;
            ++lineNo_;
            return true;
        }
        scan += pos_;  // Refill moved the unread bytes to the front (pos_ is 0 now)
    }
}

bool Reader::Next(Token& token) {
    token.Clear();
    if (status_ != 0) return false;
    std::string_view line;
    if (!ReadLine(line)) {
        if (status_ != 0) return false;
        token.kind = Kind::kEof;
        token.line = lineNo_;
        return true;
    }
    token.line = lineNo_;
    token.first_ = line;
    const std::string_view s = SkipIndent(line);
    std::string_view tail;
    if (!s.empty() && s[0] == '#') {
        if (CutTag(s, "#begin[", token.name, tail) && IsBlank(tail)) {
            token.kind = Kind::kBegin;
            return true;
        }
        if (CutTag(s, "#end[", token.name, tail)) {
            token.kind = Kind::kEnd;
            token.value = tail;
            endTerminated_ = terminated_;
            endTail_.assign(tail);
            return true;
        }
        token.name.clear();
    }
    token.kind = Kind::kOther;
    if (plain_ || s.empty() || s[0] != '[') return true;
    const size_t close = s.find(']');
    if (close == std::string_view::npos || close == 1 ||
        s.substr(1, close - 1).find('[') != std::string_view::npos) {
        return true;
    }
    token.name.assign(s.substr(1, close - 1));
    // The value runs to "[end]", over as many lines as it takes.
    std::string_view rest = s.substr(close + 1);
    size_t mark = rest.find(kEndMark);
    if (mark != std::string_view::npos) {
        token.value = rest.substr(0, mark);
    } else {
        // Held apart: the buffer moves on under the lines that follow.
        const size_t headSize = static_cast<size_t>(rest.data() - line.data());
        multiHead_.assign(line.substr(0, headSize));
        multiValue_.assign(rest);
        size_t rawSize = line.size() + 1;
        while (mark == std::string_view::npos) {
            if (!ReadLine(line)) {
                if (status_ != 0) return false;
                Fail(kGAEBMalformed, token.line, "[" + token.name + "] has no [end]");
                return false;
            }
            rawSize += line.size() + 1;
            if (rawSize > kMaxValue) {
                Fail(kGAEBTooLarge, token.line,
                     "[" + token.name + "] runs over " + std::to_string(kMaxValue) + " bytes");
                return false;
            }
            multiValue_.push_back('\n');
            rest = line;
            mark = rest.find(kEndMark);
            multiValue_.append(rest.substr(0, mark));
        }
        multiTail_.assign(rest.substr(mark));
        token.value = multiValue_;
        token.head_ = multiHead_;
        token.tail_ = multiTail_;
        token.multi_ = true;
    }
    if (!IsBlank(rest.substr(mark + kEndMark.size()))) {
        return true;  // text after "[end]": not a value this reader understands; kept whole
    }
    token.kind = Kind::kValue;
    return true;
}

bool Reader::CaptureBlock(const Token& begin, std::string& raw) {
    begin.AppendRaw(raw);
    std::vector<std::string> open{begin.name};
    std::vector<uint64_t> lines{begin.line};
    Token t;
    while (!open.empty()) {
        if (static_cast<int>(open.size()) + depth_ > kMaxDepth) {
            Fail(kGAEBTooLarge, begin.line,
                 "blocks nested deeper than " + std::to_string(kMaxDepth));
            return false;
        }
        if (!Next(t)) return false;
        switch (t.kind) {
            case Kind::kEof:
                Fail(kGAEBMalformed, lines.back(), "#begin[" + open.back() + "] never ends");
                return false;
            case Kind::kBegin:
                open.push_back(t.name);
                lines.push_back(t.line);
                break;
            case Kind::kEnd:
                if (!NameIs(t.name, open.back().c_str())) {
                    Fail(kGAEBMalformed, t.line,
                         "#end[" + t.name + "] does not close #begin[" + open.back() +
                             "] of line " + std::to_string(lines.back()));
                    return false;
                }
                open.pop_back();
                lines.pop_back();
                break;
            default:
                break;
        }
        t.AppendRaw(raw);
    }
    return true;
}

bool Reader::ReadRest(std::string& raw) {
    std::string_view line;
    while (ReadLine(line)) {
        raw.append(line);
        if (terminated_) raw.push_back('\n');
        if (raw.size() > kMaxValue) {
            Fail(kGAEBTooLarge, lineNo_,
                 "more than " + std::to_string(kMaxValue) + " bytes after #end[GAEB]");
            return false;
        }
    }
    return status_ == 0;
}

bool ParseReal(std::string_view text, double& value) {
    std::string_view s = SkipIndent(text);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    bool negative = false;
    if (!s.empty() && (s[0] == '-' || s[0] == '+')) {
        negative = s[0] == '-';
        s.remove_prefix(1);
    }
    if (s.empty() || s.size() > 64) return false;
    char buf[65];
    int digits = 0, separators = 0;
    for (size_t i = 0; i < s.size(); ++i) {
        const char c = s[i];
        if (c >= '0' && c <= '9') {
            ++digits;
            buf[i] = c;
        } else if (c == '.' || c == ',') {
            ++separators;
            buf[i] = '.';
        } else {
            return false;
        }
    }
    if (digits == 0 || separators > 1) return false;
    double v = 0;
    const auto r = std::from_chars(buf, buf + s.size(), v, std::chars_format::fixed);
    if (r.ec != std::errc() || r.ptr != buf + s.size()) return false;
    value = negative ? -v : v;
    return true;
}

bool ParseShort(std::string_view text, short& value) {
    std::string_view s = SkipIndent(text);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    if (!s.empty() && s[0] == '+') s.remove_prefix(1);
    short v = 0;
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (s.empty() || r.ec != std::errc() || r.ptr != s.data() + s.size()) return false;
    value = v;
    return true;
}

}  // namespace kbase_gaeb_internal
