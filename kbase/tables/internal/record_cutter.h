// Cutting one record of delimiter-separated text in place: at every delimiter, with or without
// RFC 4180 quotes. Not part of the exported interface.
//
// The cutter works on the unread bytes of a buffer that may grow and move between calls (more
// input read behind them): everything it keeps is an offset from the record's start, so a record
// that needs more bytes is resumed where it stopped. It keeps the bit masks of the last 64-byte
// block it looked at, so that short records sharing a block are scanned once; Forget() drops them
// when the bytes have moved or changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kbase_tables_internal {

class RecordCutter {
public:
    enum class Result {
        kRecord,    // a record: Spans(), Consumed()
        kEmpty,     // an empty line: Consumed() bytes to skip
        kNeedMore,  // the bytes end inside the record: call again with more
    };

    // Sets the rules for the next record; forgets the masks when they change. watchQuotes: tell
    // (Irregular) when a quote stands inside a field that does not begin with one.
    void SetRules(char delimiter, bool quoted, bool watchQuotes = false);
    void Forget() { blockLength_ = 0; }
    // Starts a new record (the previous one was consumed).
    void Restart();

    // Cuts the record at p[0..n), p[n] writable. atEnd: no byte follows p[n - 1] (n > 0). Fields
    // are NUL-terminated in place; a quoted field is unquoted in place. The record ends at LF,
    // CRLF or a lone CR outside quotes, or at the end of the bytes.
    Result Cut(char* p, size_t n, bool atEnd);

    // Field i of the record starts at offset Spans()[2 * i] from the record's start and is
    // Spans()[2 * i + 1] bytes long (pairs in a flat array, so that a reader can hand them out
    // inline).
    const uint32_t* Spans() const { return spans_.data(); }
    uint32_t FieldStart(int i) const { return spans_[2 * static_cast<size_t>(i)]; }
    uint32_t FieldLength(int i) const { return spans_[2 * static_cast<size_t>(i) + 1]; }
    int FieldCount() const { return count_; }
    // Bytes of the record including its line end.
    size_t Consumed() const { return consumed_; }
    // Offset at which the last field's text ends (its terminator).
    size_t TextEnd() const { return textEnd_; }
    // Bytes looked at so far in the current record.
    size_t Scanned() const { return pos_; }
    // Whether a quoted field ran to the end of the bytes without its closing quote.
    bool Unclosed() const { return unclosed_; }
    // Line breaks inside the quoted fields of the record.
    uint32_t InnerBreaks() const { return innerBreaks_; }
    // Whether the record's quotes look cut through by the delimiter: text after a closing quote,
    // or (when watched) a quote inside a field that does not begin with one.
    bool Irregular() const { return irregular_; }

private:
    enum class State : uint8_t { kFieldStart, kPlain, kQuoted, kAfterQuote };

    size_t NextEvent(const char* p, size_t pos, size_t n, bool quotes);
    void MoveText(char* p, size_t to, bool quotedText);
    void EndField(char* p, size_t at);

    char delimiter_ = ';';
    bool quoted_ = false;
    bool watchQuotes_ = false;
    State state_ = State::kFieldStart;
    size_t pos_ = 0;         // next byte to look at
    size_t fieldStart_ = 0;  // start of the current field's text
    size_t write_ = 0;       // end of the unquoted text of a quoted field
    size_t from_ = 0;        // first byte not yet moved to write_
    size_t consumed_ = 0;
    size_t textEnd_ = 0;
    int count_ = 0;
    bool unclosed_ = false;
    bool irregular_ = false;
    uint32_t innerBreaks_ = 0;
    std::vector<uint32_t> spans_ = std::vector<uint32_t>(32);

    // The masks of the block at blockStart_ (blockLength_ bytes, 0: none).
    const char* blockStart_ = nullptr;
    size_t blockLength_ = 0;
    uint64_t endMask_ = 0;
    uint64_t breakMask_ = 0;
    uint64_t quoteMask_ = 0;
    bool breaksSeen_ = false;  // a CR or LF lies in the quoted text from from_ to pos_
};

}  // namespace kbase_tables_internal
