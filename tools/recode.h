// The recode job of the kbase program: convert a text file between encodings, through UtCString.
#pragma once

#include <iosfwd>
#include <string>

namespace kbase_tool {

struct RecodeOptions {
    std::string input = "-";    // path, or "-" for standard input
    std::string output = "-";   // path, or "-" for standard output
    int from = 0;               // source code page; 0: by the byte-order mark, else the system's
    int to = 65001;             // target code page
    bool mark = false;          // write a byte-order mark (UTF-8 and UTF-16 targets)
    std::string normalize;      // "", "C", "D", "KC" or "KD"
    bool replace = false;       // let characters the target lacks become '?' instead of failing
};

// Exit codes of the program.
constexpr int kExitOk = 0;
constexpr int kExitIo = 1;           // a file could not be read or written
constexpr int kExitUsage = 2;        // bad arguments, unknown code page
constexpr int kExitLossy = 3;        // the text cannot be represented, or the input is malformed

// Runs the job; messages go to err. The output file is written to a temporary file beside it and
// renamed into place only when everything succeeded, so a failure never leaves a partial file.
int Recode(const RecodeOptions& options, std::istream& in, std::ostream& out, std::ostream& err);

}  // namespace kbase_tool
