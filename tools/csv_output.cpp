#include "csv_output.h"

#include <cstring>
#include <ostream>

namespace kbase_tool {

namespace {
constexpr size_t kBlock = size_t{1} << 20;
}

CsvOut::CsvOut(std::ostream& out, char delimiter) : out_(out), delimiter_(delimiter) {
    buf_.reserve(kBlock + 4096);
    for (const char c : {delimiter, '"', '\n', '\r'})
        special_[static_cast<unsigned char>(c)] = true;
}

void CsvOut::Field(std::string_view text) {
    if (rowFields_++ != 0) buf_ += delimiter_;
    if (!text.empty()) rowEmpty_ = false;
    bool plain = true;
    for (const char c : text) {
        if (special_[static_cast<unsigned char>(c)]) {
            plain = false;
            break;
        }
    }
    if (plain) {
        buf_ += text;
    } else {
        buf_ += '"';
        for (const char c : text) {
            if (c == '"') buf_ += '"';
            buf_ += c;
        }
        buf_ += '"';
    }
    if (buf_.size() >= kBlock) Spill();
}

void CsvOut::EndRow() {
    if (rowFields_ == 1 && rowEmpty_) buf_ += "\"\"";
    buf_ += '\n';
    rowFields_ = 0;
    rowEmpty_ = true;
    if (buf_.size() >= kBlock) Spill();
}

void CsvOut::Spill() {
    if (good_ && !buf_.empty()) {
        out_.write(buf_.data(), static_cast<std::streamsize>(buf_.size()));
        if (!out_) good_ = false;
    }
    buf_.clear();
}

bool CsvOut::Flush() {
    Spill();
    if (good_) {
        out_.flush();
        if (!out_) good_ = false;
    }
    return good_;
}

}  // namespace kbase_tool
