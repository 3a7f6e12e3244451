// The csv job of the kbase program: what a delimiter-separated file holds, and grouped totals or
// sorted rows of it, through UtCCsvReader. It reads the input once, so standard input works, and
// its memory is bounded by the number of groups (totals) or by --memory (sorting), never by the
// size of the file.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace kbase_tool {

struct CsvOptions {
    std::string input;               // path of the file, or "-" for standard input
    std::vector<std::string> sum;    // columns to total (name of the header, or 1-based number)
    std::vector<std::string> group;  // columns to group by
    std::vector<std::string> sort;   // columns to sort by; "COL:desc" sorts descending
    std::string delimiter;           // one character (or "tab"); empty: guessed
    int titles = -1;                 // title lines; -1: detected
    std::string encoding;  // code page number or name; empty: mark, else UTF-8 if valid, else 1252
    int footer = 0;        // trailing lines to drop (notes under the data)
    bool quotes = true;    // RFC 4180 quoting; false: a quote is an ordinary character
    std::string memory = "1G";  // memory for sorting (bytes, or with K, M or G)
    bool progress = false;      // draw a progress bar on err for passes that take a moment
};

// Runs the job. Without --sum, --group and --sort it describes the file on out; otherwise it
// writes the resulting table as RFC 4180 CSV (UTF-8, the file's delimiter, a header line) on out.
// Messages go to err. Exit codes: 0 done, 1 input/output or memory, 2 usage, 3 content.
int Csv(const CsvOptions& options, std::ostream& out, std::ostream& err);

}  // namespace kbase_tool
