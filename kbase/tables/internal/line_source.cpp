#include "kbase/tables/internal/line_source.h"

#include <cstring>

#include "basert/fileio.h"
#include "basert/files.h"
#include "basert/memory.h"

namespace kbase_tables_internal {

namespace {
constexpr size_t kBlock = size_t{1} << 20;
size_t testBlock = 0;
size_t testMaxLine = 0;
}  // namespace

void SetLineSourceLimitsForTesting(size_t block, size_t maxLine) {
    testBlock = block;
    testMaxLine = maxLine;
}

LineSource::LineSource()
    : block_(testBlock != 0 ? testBlock : kBlock), maxLine_(testMaxLine != 0 ? testMaxLine : kMaxLine) {}

LineSource::~LineSource() {
    Close();
    UtFreeMemory(buf_);
}

bool LineSource::Open(const char* path) {
    Close();
    if (path == nullptr) return false;
    file_ = UtFileOpen(path, "rb");
    if (file_ == nullptr) return false;
    owned_ = true;
    std::setvbuf(file_, nullptr, _IONBF, 0);  // we read in large blocks ourselves
    const int64_t size = UtFileSize64(file_);
    size_ = size > 0 ? static_cast<uint64_t>(size) : 0;
    origin_ = 0;
    return Rewind();
}

bool LineSource::Attach(FILE* stream) {
    Close();
    if (stream == nullptr) return false;
    file_ = stream;
    owned_ = false;
    // The stream's buffering is its owner's: it may have been read from already.
    const long at = std::ftell(stream);
    origin_ = at >= 0 && std::fseek(stream, at, SEEK_SET) == 0 ? at : -1;
    const int64_t size = UtFileSize64(stream);
    size_ = size > 0 && origin_ >= 0 && size >= origin_ ? static_cast<uint64_t>(size - origin_) : 0;
    if (Start()) return true;
    Close();
    return false;
}

void LineSource::Close() {
    if (file_ != nullptr && owned_) UtFileClose(file_);
    file_ = nullptr;
    begin_ = end_ = scanned_ = 0;
    eof_ = hadMark_ = false;
    position_ = 0;
    ++epoch_;
}

bool LineSource::Rewind() {
    if (file_ == nullptr || origin_ < 0) return false;
    if (std::fseek(file_, static_cast<long>(origin_), SEEK_SET) != 0) return false;
    std::clearerr(file_);
    return Start();
}

bool LineSource::Start() {
    begin_ = end_ = scanned_ = 0;
    eof_ = hadMark_ = false;
    position_ = 0;
    ++epoch_;
    // The mark belongs to no line: a header name must not start with it.
    Fill f = Fill::kMore;
    while (end_ < 3 && f == Fill::kMore) f = FillMore();
    if (f == Fill::kRead || f == Fill::kNoMemory) return false;
    if (end_ >= 3 && std::memcmp(buf_, "\xEF\xBB\xBF", 3) == 0) {
        hadMark_ = true;
        begin_ = 3;
        position_ = 3;
    }
    return true;
}

LineSource::Fill LineSource::FillMore() {
    if (eof_) return Fill::kEof;
    if (file_ == nullptr) return Fill::kRead;
    ++epoch_;
    if (begin_ > 0 && (end_ + 1 >= cap_ || begin_ >= cap_ / 2)) {
        std::memmove(buf_, buf_ + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    // One byte always stays free for the terminator of a last line without a line feed.
    if (cap_ == 0 || end_ + 1 >= cap_) {
        const size_t cap = cap_ == 0 ? (block_ < 2 ? 2 : block_) : cap_ * 2;
        if (cap > maxLine_ + block_ + 1) return Fill::kTooLong;
        void* block = buf_;
        if (UtAllocMemoryBlock(&block, cap, 1) != kUtMemOk) return Fill::kNoMemory;
        buf_ = static_cast<char*>(block);
        cap_ = cap;
    }
    const size_t want = cap_ - 1 - end_;
    const size_t got = std::fread(buf_ + end_, 1, want < block_ ? want : block_, file_);
    end_ += got;
    if (got > 0) return Fill::kMore;
    if (std::ferror(file_)) return Fill::kRead;
    eof_ = true;
    return Fill::kEof;
}

LineSource::Status LineSource::More() {
    switch (FillMore()) {
        case Fill::kMore:
            return Status::kLine;
        case Fill::kEof:
            return Status::kEnd;
        case Fill::kTooLong:
            return Status::kTooLong;
        case Fill::kNoMemory:
            return Status::kNoMemory;
        case Fill::kRead:
            break;
    }
    return Status::kReadError;
}

LineSource::Status LineSource::Peek(size_t n) {
    while (Available() < n) {
        const Status s = More();
        if (s != Status::kLine) return s == Status::kEnd ? Status::kLine : s;
    }
    return Status::kLine;
}

LineSource::Status LineSource::Next(char*& line, size_t& length) {
    if (file_ == nullptr) return Status::kEnd;
    ++epoch_;
    for (;;) {
        const size_t from = begin_ + scanned_;
        const char* lf = from < end_ ? static_cast<const char*>(std::memchr(buf_ + from, '\n', end_ - from)) : nullptr;
        size_t stop = 0;
        size_t consumed = 0;
        if (lf != nullptr) {
            stop = static_cast<size_t>(lf - buf_);
            consumed = stop + 1 - begin_;
        } else {
            scanned_ = end_ - begin_;
            if (scanned_ > maxLine_) return Status::kTooLong;
            const Fill f = FillMore();
            if (f == Fill::kMore) continue;
            if (f == Fill::kRead) return Status::kReadError;
            if (f == Fill::kNoMemory) return Status::kNoMemory;
            if (f == Fill::kTooLong) return Status::kTooLong;
            if (begin_ == end_) return Status::kEnd;
            stop = end_;
            consumed = end_ - begin_;
        }
        line = buf_ + begin_;
        length = stop - begin_;
        if (length > maxLine_) return Status::kTooLong;
        // Text mode: a CR before the line feed is not part of the line.
        if (lf != nullptr && length > 0 && line[length - 1] == '\r') --length;
        line[length] = '\0';
        begin_ += consumed;
        scanned_ = 0;
        position_ += consumed;
        return Status::kLine;
    }
}

}  // namespace kbase_tables_internal
