// RFC 4180 output for the csv job: fields quoted only when they must be, in the output's own
// delimiter, buffered, with every write checked.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

namespace kbase_tool {

class CsvOut {
  public:
    // Writes to out in blocks of about 1 MiB. The delimiter is the one the fields are joined by.
    CsvOut(std::ostream& out, char delimiter);
    CsvOut(const CsvOut&) = delete;
    CsvOut& operator=(const CsvOut&) = delete;

    // Appends one field to the current row. A field that holds the delimiter, a quote, a CR or
    // a LF is quoted with its quotes doubled; a row of one empty field is written as "" so that
    // it is not an empty line (which readers skip).
    void Field(std::string_view text);
    // Ends the current row with a LF.
    void EndRow();
    // Writes what is buffered and flushes the stream. False once any write failed.
    [[nodiscard]] bool Flush();
    // False once a write to the stream failed (a full disk, a closed pipe).
    bool Good() const { return good_; }

    char Delimiter() const { return delimiter_; }

  private:
    void Spill();

    std::ostream& out_;
    char delimiter_;
    bool good_ = true;
    size_t rowFields_ = 0;
    bool rowEmpty_ = true;  // every field of the current row so far is empty
    std::string buf_;
    bool special_[256] = {};  // the bytes that make a field quoted
};

}  // namespace kbase_tool
