#include "kbase/tables/internal/record_cutter.h"

#include <cstring>

#include "kbase/tables/internal/bit_masks.h"

namespace kbase_tables_internal {

void RecordCutter::SetRules(char delimiter, bool quoted, bool watchQuotes) {
    if (delimiter != delimiter_ || quoted != quoted_) Forget();
    delimiter_ = delimiter;
    quoted_ = quoted;
    watchQuotes_ = watchQuotes;
}

void RecordCutter::Restart() {
    state_ = State::kFieldStart;
    pos_ = fieldStart_ = write_ = from_ = 0;
    consumed_ = textEnd_ = 0;
    count_ = 0;
    unclosed_ = false;
    irregular_ = false;
    breaksSeen_ = false;
    innerBreaks_ = 0;
}

// The offset of the first byte at or after pos that ends a field (delimiter, CR, LF) or, with
// quotes, that is a quote; n when there is none before n. Looking for a quote, it notes whether
// it passed a line break (breaksSeen_).
size_t RecordCutter::NextEvent(const char* p, size_t pos, size_t n, bool quotes) {
    while (pos < n) {
        const char* at = p + pos;
        const uintptr_t a = reinterpret_cast<uintptr_t>(at);
        const uintptr_t b = reinterpret_cast<uintptr_t>(blockStart_);
        if (blockLength_ == 0 || a < b || a >= b + blockLength_) {
            blockStart_ = at;
            blockLength_ = n - pos < 64 ? n - pos : 64;
            const RecordBits bits = RecordMasks(at, blockLength_, delimiter_, quoted_);
            endMask_ = bits.ends;
            breakMask_ = bits.breaks;
            quoteMask_ = bits.quotes;
        }
        const size_t k = static_cast<size_t>(a - reinterpret_cast<uintptr_t>(blockStart_));
        const uint64_t hits = (quotes ? quoteMask_ : endMask_) >> k;
        if (hits != 0) {
            const unsigned i = LowestBit(hits);
            if (quotes) breaksSeen_ |= ((breakMask_ >> k) & ((uint64_t{1} << i) - 1)) != 0;
            return pos + i;
        }
        if (quotes) breaksSeen_ |= (breakMask_ >> k) != 0;
        pos += blockLength_ - k;
    }
    return n;
}

// Moves the text from_..to of a quoted field behind the text unquoted so far (doubled quotes and
// the closing quote drop out). quotedText: the bytes lie inside the quotes, where line breaks
// count as lines of the file.
void RecordCutter::MoveText(char* p, size_t to, bool quotedText) {
    const size_t n = to - from_;
    if (quotedText && breaksSeen_) {
        // A CR followed by LF is one break; the text ends before a quote, so a pair never spans two
        // pieces.
        for (size_t i = from_; i < to; ++i) {
            if (p[i] == '\n' || (p[i] == '\r' && (i + 1 == to || p[i + 1] != '\n'))) ++innerBreaks_;
        }
        breaksSeen_ = false;
    }
    if (write_ != from_ && n != 0) std::memmove(p + write_, p + from_, n);
    write_ += n;
    from_ = to;
}

// Ends the current field at offset at (its delimiter or line end, or the end of the bytes).
void RecordCutter::EndField(char* p, size_t at) {
    size_t end = at;
    if (state_ == State::kAfterQuote && at > from_) irregular_ = true;
    if (state_ == State::kPlain && watchQuotes_ &&
        std::memchr(p + fieldStart_, '"', at - fieldStart_) != nullptr) {
        irregular_ = true;
    }
    if (state_ != State::kPlain) {
        MoveText(p, at, state_ == State::kQuoted);
        end = write_;
    }
    p[end] = '\0';
    const size_t at2 = 2 * static_cast<size_t>(count_);
    if (at2 == spans_.size()) spans_.resize(spans_.size() * 2);
    spans_[at2] = static_cast<uint32_t>(fieldStart_);
    spans_[at2 + 1] = static_cast<uint32_t>(end - fieldStart_);
    ++count_;
    textEnd_ = end;
}

RecordCutter::Result RecordCutter::Cut(char* p, size_t n, bool atEnd) {
    for (;;) {
        if (state_ == State::kFieldStart) {
            if (pos_ >= n) {
                if (!atEnd) return Result::kNeedMore;
                // The bytes end right after a delimiter: an empty last field.
                fieldStart_ = pos_;
                state_ = State::kPlain;
                EndField(p, pos_);
                consumed_ = n;
                return Result::kRecord;
            }
            if (quoted_ && p[pos_] == '"') {
                fieldStart_ = write_ = from_ = pos_ + 1;
                pos_ += 1;
                state_ = State::kQuoted;
                continue;
            }
            fieldStart_ = pos_;
            state_ = State::kPlain;
        }
        if (state_ == State::kQuoted) {
            const size_t e = NextEvent(p, pos_, n, true);
            if (e >= n) {
                pos_ = n;
                if (!atEnd) return Result::kNeedMore;
                unclosed_ = true;  // the rest of the bytes is the field's
                EndField(p, n);
                consumed_ = n;
                return Result::kRecord;
            }
            if (e + 1 >= n && !atEnd) {
                pos_ = e;  // a doubled quote or the closing one: the next byte decides
                return Result::kNeedMore;
            }
            MoveText(p, e, true);
            if (e + 1 < n && p[e + 1] == '"') {
                p[write_++] = '"';
                from_ = pos_ = e + 2;
            } else {
                from_ = pos_ = e + 1;
                state_ = State::kAfterQuote;  // the text up to the delimiter is kept as it is
            }
            continue;
        }
        // A plain field, or the text after a closing quote.
        const size_t e = NextEvent(p, pos_, n, false);
        if (e >= n) {
            pos_ = n;
            if (!atEnd) return Result::kNeedMore;
            EndField(p, n);
            consumed_ = n;
            return Result::kRecord;
        }
        const char c = p[e];
        if (c == delimiter_) {
            EndField(p, e);
            pos_ = e + 1;
            state_ = State::kFieldStart;
            continue;
        }
        size_t end = e + 1;
        if (c == '\r') {
            if (e + 1 >= n && !atEnd) {
                pos_ = e;  // CR or CRLF: the next byte decides
                return Result::kNeedMore;
            }
            if (e + 1 < n && p[e + 1] == '\n') ++end;
        }
        if (e == 0) {
            consumed_ = end;  // an empty line (count_ is 0 and the field plain: nothing before it)
            return Result::kEmpty;
        }
        EndField(p, e);
        consumed_ = end;
        return Result::kRecord;
    }
}

}  // namespace kbase_tables_internal
