// The tokenizer behind UtGAEBObject::Load: lines of a tagged GAEB text file turned into begin
// tags, end tags, values (over several lines up to "[end]") and other lines, each with its raw
// text so that what the model does not hold can be kept verbatim.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct UtGAEBLoadReport;

namespace kbase_gaeb_internal {

constexpr size_t kMaxLine = size_t{1} << 20;    // bytes of one line
constexpr size_t kMaxValue = size_t{16} << 20;  // bytes of one value, line feeds included
constexpr int kMaxDepth = 64;                   // nested blocks
constexpr size_t kBlock = size_t{1} << 16;      // bytes read at a time; grows for a longer line

enum class Kind { kBegin, kEnd, kValue, kOther, kEof };

// One token. Its texts point into the reader's buffer and stay valid until the next read: a
// caller that holds a token across reads (a block's begin tag) uses only its name and line.
struct Token {
    Kind kind = Kind::kEof;
    std::string name;        // block or key name as written
    std::string_view value;  // kValue: the bytes between "]" and "[end]"; kEnd: the text after "]"
    uint64_t line = 0;       // its first line

    // The token's lines as read, each ending in "\n" (CR dropped).
    void AppendRaw(std::string& out) const;
    std::string Raw() const {
        std::string out;
        AppendRaw(out);
        return out;
    }

  private:
    friend class Reader;
    void Clear();
    std::string_view first_;  // the first line (one-line tokens)
    // A value over several lines: its raw form is head_, the value and tail_ (the reader's).
    bool multi_ = false;
    std::string_view head_, tail_;
};

// Verbatim text of one object: items written after the slot they followed.
struct KeptItem {
    int anchor;  // -1 before the begin tag, 0 after it, k after slot k, kAfterEnd on the end tag's
                 // line
    int shadow;  // > 0: holds slot shadow's value as written
    std::string raw;
};
constexpr int kAfterEnd = 1 << 30;
struct Kept {
    std::vector<KeptItem> items;
};

// Case-insensitive ASCII comparison of a name with a literal.
inline bool NameIs(std::string_view name, std::string_view literal) {
    if (name.size() != literal.size()) return false;
    for (size_t i = 0; i < name.size(); ++i) {
        const char a = name[i], b = literal[i];
        if (a == b) continue;
        const char lower = static_cast<char>(a | 0x20);
        if (lower != static_cast<char>(b | 0x20) || lower < 'a' || lower > 'z') return false;
    }
    return true;
}

class Reader {
  public:
    Reader(FILE* file, UtGAEBLoadReport* report) : file_(file), report_(report) {}

    // The next token; kEof at the end. False after a failure (Status and the report say which).
    bool Next(Token& token);
    // While set, Next takes every line on its own (no value runs over lines): for searching a
    // begin tag among text that need not be in this form.
    void SetPlain(bool on) { plain_ = on; }
    // Reads the rest of a block whose begin token was just read into raw (appended), for a block
    // that is kept whole.
    bool CaptureBlock(const Token& begin, std::string& raw);
    // Everything up to the end of the file, as it is (line ends normalised).
    bool ReadRest(std::string& raw);

    int Depth() const { return depth_; }
    void Enter() { ++depth_; }
    void Leave() { --depth_; }
    // Sets the failure status with a message about line (first failure wins); returns status.
    int Fail(int status, uint64_t line, const std::string& message);
    void Note(uint64_t line, const std::string& message);
    void CountKept() { ++kept_; }
    void UncountKept() { --kept_; }
    int Status() const { return status_; }
    uint64_t Lines() const { return lineNo_; }
    uint64_t KeptCount() const { return kept_; }
    // Whether the last "#end" line read had a line end (the root's trailer keeps its absence).
    bool EndTerminated() const { return endTerminated_; }
    // The text after the "]" of the last "#end" line read.
    const std::string& LastEndTail() const { return endTail_; }

    // Set by LoadBlock before each token: the slot the block read last (where kept text goes).
    int lastSlot = 0;
    // Set by a ReadToken that filled a slot with the nearest value it could hold: the token is
    // then also kept as written.
    bool keepAsShadow = false;

  private:
    // The next line without its end (LF, CRLF or a lone CR), valid until the next call; false at
    // the end or on a failure. Sets terminated_.
    bool ReadLine(std::string_view& line);
    // Moves the unread bytes to the front, grows the buffer when it is full, and reads more;
    // false at the end of the file or on a read error.
    bool Refill();

    FILE* file_;
    UtGAEBLoadReport* report_;
    std::unique_ptr<char[]> buf_;  // lines are views into it
    size_t size_ = 0, pos_ = 0, end_ = 0;
    bool eof_ = false;
    uint64_t lineNo_ = 0;
    int depth_ = 0;
    int status_ = 0;
    uint64_t kept_ = 0;
    std::string endTail_;
    // A value over several lines, the text of its first line before it and of its last line from
    // "[end]" on: kept here, reused by every such value.
    std::string multiValue_, multiHead_, multiTail_;
    bool plain_ = false;
    bool terminated_ = false, pendingCr_ = false, endTerminated_ = true;
};

// A number as GAEB files write it: blanks around, an optional sign, digits with one decimal point
// or comma. False for anything else.
bool ParseReal(std::string_view text, double& value);
bool ParseShort(std::string_view text, short& value);

}  // namespace kbase_gaeb_internal
