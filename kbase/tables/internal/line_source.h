// Reading a text file line by line in bounded memory: blocks of 1 MiB, grown only to hold the
// longest line. Not part of the exported interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace kbase_tables_internal {

class LineSource {
public:
    enum class Status { kLine, kEnd, kTooLong, kReadError, kNoMemory };

    // Lines may not be longer than this (token offsets are 32-bit ints, and memory is bounded).
    static constexpr size_t kMaxLine = size_t{1} << 30;

    LineSource() = default;
    ~LineSource();
    LineSource(const LineSource&) = delete;
    LineSource& operator=(const LineSource&) = delete;

    // Opens a file by UTF-8 path; false when it cannot be opened. A UTF-8 byte-order mark at the
    // start is skipped (HadMark tells).
    bool Open(const char* path);
    bool IsOpen() const { return file_ != nullptr; }
    void Close();
    // Back to the first line; false when the file is not open or cannot be rewound.
    bool Rewind();

    // The next line without its line feed and a CR before it, NUL-terminated and writable in
    // place; valid until the next call. A last line without a line feed is a line too.
    Status Next(char*& line, size_t& length);

    bool HadMark() const { return hadMark_; }
    // Bytes of the file consumed by the lines returned so far (the mark included).
    uint64_t Position() const { return position_; }
    // The file's size, or 0 when unknown.
    uint64_t Size() const { return size_; }

private:
    enum class Fill { kMore, kEof, kRead, kNoMemory, kTooLong };
    Fill FillMore();  // reads more bytes behind end_, compacting or growing the buffer first

    FILE* file_ = nullptr;
    char* buf_ = nullptr;
    size_t cap_ = 0;
    size_t begin_ = 0;    // start of the unread bytes
    size_t end_ = 0;      // end of the bytes read
    size_t scanned_ = 0;  // bytes from begin_ known to hold no line feed
    bool eof_ = false;
    bool hadMark_ = false;
    uint64_t position_ = 0;
    uint64_t size_ = 0;
};

}  // namespace kbase_tables_internal
