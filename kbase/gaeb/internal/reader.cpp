// The GAEB tokenizer.
#include "kbase/gaeb/internal/reader.h"

#include <charconv>
#include <cstring>

#include "kbase/gaeb/UtGAEB.h"

namespace kbase_gaeb_internal {

namespace {

char Lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool StartsWithNoCase(std::string_view s, const char* prefix) {
    const size_t n = std::strlen(prefix);
    if (s.size() < n) return false;
    for (size_t i = 0; i < n; ++i) {
        if (Lower(s[i]) != Lower(prefix[i])) return false;
    }
    return true;
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
bool CutTag(std::string_view s, const char* prefix, std::string& name, std::string_view& tail) {
    if (!StartsWithNoCase(s, prefix)) return false;
    const size_t open = std::strlen(prefix);
    const size_t close = s.find(']', open);
    if (close == std::string_view::npos || close == open) return false;
    name.assign(s.substr(open, close - open));
    tail = s.substr(close + 1);
    return true;
}

constexpr std::string_view kEndMark = "[end]";

}  // namespace

bool NameIs(std::string_view name, const char* literal) {
    return name.size() == std::strlen(literal) && StartsWithNoCase(name, literal);
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

bool Reader::Fill() {
    if (eof_) return false;
    end_ = std::fread(buf_.data(), 1, buf_.size(), file_);
    pos_ = 0;
    if (end_ == 0) {
        eof_ = true;
        if (std::ferror(file_)) {
            Fail(kGAEBReadFailed, lineNo_ + 1, "the file cannot be read");
        }
        return false;
    }
    return true;
}

// One line without its end (LF, CRLF or a lone CR). Sets terminated_.
bool Reader::ReadLine(std::string& line) {
    line.clear();
    terminated_ = false;
    bool any = false;
    for (;;) {
        if (pos_ == end_ && !Fill()) {
            if (status_ != 0) return false;
            if (!any) return false;
            ++lineNo_;
            return true;
        }
        any = true;
        if (pendingCr_) {  // a CR ended the previous line; a LF right after it belongs to it
            pendingCr_ = false;
            if (buf_[pos_] == '\n') {
                ++pos_;
                continue;
            }
        }
        const char* p = buf_.data() + pos_;
        const size_t avail = end_ - pos_;
        size_t i = 0;
        for (; i < avail; ++i) {
            const unsigned char c = static_cast<unsigned char>(p[i]);
            if (c >= 0x20) continue;
            if (c == '\n' || c == '\r') break;
            if (IsBinary(c)) {
                Fail(kGAEBBinary, lineNo_ + 1,
                     "binary byte 0x" + std::string(1, "0123456789ABCDEF"[c >> 4]) +
                         "0123456789ABCDEF"[c & 15] + " in a text file");
                return false;
            }
        }
        if (line.size() + i > kMaxLine) {
            Fail(kGAEBTooLarge, lineNo_ + 1,
                 "a line longer than " + std::to_string(kMaxLine) + " bytes");
            return false;
        }
        line.append(p, i);
        pos_ += i;
        if (i < avail) {
            const char c = buf_[pos_++];
            if (c == '\r') pendingCr_ = true;
            ++lineNo_;
            terminated_ = true;
            return true;
        }
    }
}

bool Reader::Next(Token& token) {
    token.name.clear();
    token.value.clear();
    token.raw.clear();
    if (status_ != 0) return false;
    if (!ReadLine(line_)) {
        if (status_ != 0) return false;
        token.kind = Kind::kEof;
        token.line = lineNo_;
        return true;
    }
    token.line = lineNo_;
    token.raw.assign(line_);
    token.raw.push_back('\n');
    const std::string_view s = SkipIndent(line_);
    std::string_view tail;
    if (CutTag(s, "#begin[", token.name, tail) && IsBlank(tail)) {
        token.kind = Kind::kBegin;
        return true;
    }
    if (CutTag(s, "#end[", token.name, tail)) {
        token.kind = Kind::kEnd;
        token.value.assign(tail);
        endTerminated_ = terminated_;
        endTail_.assign(tail);
        return true;
    }
    token.name.clear();
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
    token.value.assign(rest.substr(0, mark));
    while (mark == std::string_view::npos) {
        if (!ReadLine(line_)) {
            if (status_ != 0) return false;
            Fail(kGAEBMalformed, token.line, "[" + token.name + "] has no [end]");
            return false;
        }
        token.raw.append(line_);
        token.raw.push_back('\n');
        if (token.raw.size() > kMaxValue) {
            Fail(kGAEBTooLarge, token.line,
                 "[" + token.name + "] runs over " + std::to_string(kMaxValue) + " bytes");
            return false;
        }
        token.value.push_back('\n');
        rest = line_;
        mark = rest.find(kEndMark);
        token.value.append(rest.substr(0, mark));
    }
    if (!IsBlank(rest.substr(mark + kEndMark.size()))) {
        token.value.clear();  // text after "[end]": not a value this reader understands; kept whole
        return true;
    }
    token.kind = Kind::kValue;
    return true;
}

bool Reader::CaptureBlock(const Token& begin, std::string& raw) {
    raw.append(begin.raw);
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
        raw.append(t.raw);
    }
    return true;
}

bool Reader::ReadRest(std::string& raw) {
    while (ReadLine(line_)) {
        raw.append(line_);
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
