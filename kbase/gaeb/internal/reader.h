// The tokenizer behind UtGAEBObject::Load: lines of a tagged GAEB text file turned into begin
// tags, end tags, values (over several lines up to "[end]") and other lines, each with its raw
// text so that what the model does not hold can be kept verbatim.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

struct UtGAEBLoadReport;

namespace kbase_gaeb_internal {

constexpr size_t kMaxLine = size_t{1} << 20;    // bytes of one line
constexpr size_t kMaxValue = size_t{16} << 20;  // bytes of one value, line feeds included
constexpr int kMaxDepth = 64;                   // nested blocks

enum class Kind { kBegin, kEnd, kValue, kOther, kEof };

struct Token {
    Kind kind = Kind::kEof;
    std::string name;   // block or key name as written
    std::string value;  // kValue: the bytes between "]" and "[end]"; kEnd: the text after "]"
    std::string raw;    // the token's lines as read, each ending in "\n" (CR dropped)
    uint64_t line = 0;  // its first line
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
bool NameIs(std::string_view name, const char* literal);

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
    bool ReadLine(std::string& line);  // false at the end or on a failure
    bool Fill();

    FILE* file_;
    UtGAEBLoadReport* report_;
    std::vector<char> buf_ = std::vector<char>(size_t{1} << 16);
    size_t pos_ = 0, end_ = 0;
    bool eof_ = false;
    uint64_t lineNo_ = 0;
    int depth_ = 0;
    int status_ = 0;
    uint64_t kept_ = 0;
    std::string line_;
    std::string endTail_;
    bool plain_ = false;
    bool terminated_ = false, pendingCr_ = false, endTerminated_ = true;
};

// A number as GAEB files write it: blanks around, an optional sign, digits with one decimal point
// or comma. False for anything else.
bool ParseReal(std::string_view text, double& value);
bool ParseShort(std::string_view text, short& value);

}  // namespace kbase_gaeb_internal
