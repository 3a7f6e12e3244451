// Reading a text file line by line in bounded memory: blocks of 1 MiB, grown only to hold the
// longest line. Not part of the exported interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "kbase/export.h"

namespace kbase_tables_internal {

class LineSource {
public:
    enum class Status { kLine, kEnd, kTooLong, kReadError, kNoMemory };

    // Lines may not be longer than this (token offsets are 32-bit ints, and memory is bounded).
    static constexpr size_t kMaxLine = size_t{1} << 30;

    LineSource();
    ~LineSource();
    LineSource(const LineSource&) = delete;
    LineSource& operator=(const LineSource&) = delete;

    // Opens a file by UTF-8 path; false when it cannot be opened. A UTF-8 byte-order mark at the
    // start is skipped (HadMark tells).
    bool Open(const char* path);
    // Reads an open stream from where it stands, without owning it (Close leaves it open). The
    // mark rule is that of Open. False for a null stream or when it cannot be read.
    bool Attach(FILE* stream);
    bool IsOpen() const { return file_ != nullptr; }
    // Whether Rewind can work: a file, or a stream that can seek.
    bool CanRewind() const { return origin_ >= 0; }
    void Close();
    // Back to the first line (for an attached stream, where it stood when attached); false when
    // nothing is open or the stream cannot be rewound (a pipe).
    bool Rewind();

    // The next line without its line feed and a CR before it, NUL-terminated and writable in
    // place; valid until the next call. A last line without a line feed is a line too.
    Status Next(char*& line, size_t& length);

    // The unread bytes, for readers that cut records themselves: Data()[0..Available()) is
    // writable, and Data()[Available()] may be written too (room for a terminator).
    char* Data() const { return buf_ + begin_; }
    size_t Available() const { return end_ - begin_; }
    // Whether the end of the input has been read (Available() is then all there is).
    bool AtEnd() const { return eof_; }
    // Reads more bytes behind the unread ones; these may move (Data() changes). kLine when bytes
    // were added, kEnd at the end of the input, else the failure.
    Status More();
    // Reads until at least n bytes are unread or the input ends; consumes nothing.
    Status Peek(size_t n);
    // Marks the first n unread bytes as read.
    void Consume(size_t n) {
        begin_ += n;
        position_ += n;
        scanned_ = 0;
    }
    // Changes whenever unread bytes may have moved or changed, so that what a caller derived
    // from them (bit masks) must be derived again.
    uint64_t Epoch() const { return epoch_; }

    bool HadMark() const { return hadMark_; }
    // Bytes of the file consumed by the lines returned so far (the mark included).
    uint64_t Position() const { return position_; }
    // The file's size, or 0 when unknown.
    uint64_t Size() const { return size_; }
    // The longest line or record taken.
    size_t MaxLine() const { return maxLine_; }

private:
    enum class Fill { kMore, kEof, kRead, kNoMemory, kTooLong };
    Fill FillMore();  // reads more bytes behind end_, compacting or growing the buffer first
    bool Start();     // empties the buffer and skips a mark

    FILE* file_ = nullptr;
    bool owned_ = true;
    int64_t origin_ = -1;  // offset of the first byte, -1 when the stream cannot seek
    char* buf_ = nullptr;
    size_t cap_ = 0;
    size_t block_;
    size_t maxLine_;
    size_t begin_ = 0;    // start of the unread bytes
    size_t end_ = 0;      // end of the bytes read
    size_t scanned_ = 0;  // bytes from begin_ known to hold no line feed
    bool eof_ = false;
    bool hadMark_ = false;
    uint64_t position_ = 0;
    uint64_t size_ = 0;
    uint64_t epoch_ = 0;
};

// For tests: the block size and longest line or record of the sources opened from now on
// (0 restores the defaults of 1 MiB and 1 GiB), so that records can be made to cross block
// boundaries at every byte and the length bound can be reached with small inputs.
KBASE_API void SetLineSourceLimitsForTesting(size_t block, size_t maxLine);

}  // namespace kbase_tables_internal
