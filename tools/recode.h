// The recode job of the kbase program: convert a text file between encodings.
//
// The text streams through in blocks, so memory stays bounded (a few MiB) whatever the size of the
// input. A block is cut where no character, surrogate pair or normalisation unit is split, so the
// result is byte for byte what converting the whole text at once gives. The output replaces its
// target only when the whole text converted (see OutputFile); on standard output, the text before
// an error has been written.
//
// Byte-order marks: without --from a mark decides the source (EF BB BF UTF-8, FF FE UTF-16 little
// endian, FE FF big endian), else the system code page does. A mark that agrees with a UTF-8,
// UTF-16 or UTF-32 source is not part of the text; with a UTF-16 or UTF-32 source a mark of the
// other byte order switches to it. The output has a mark only with --bom (UTF-8, UTF-16, UTF-32
// targets).
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "io.h"

namespace kbase_tool {

struct RecodeOptions {
    std::string input = "-";   // path, or "-" for standard input
    std::string output = "-";  // path, or "-" for standard output
    int from = 0;              // source code page; 0: by the byte-order mark, else the system's
    int to = 65001;            // target code page
    bool mark = false;         // write a byte-order mark (UTF-8, UTF-16 and UTF-32 targets)
    std::string normalize;     // "", "C", "D", "KC" or "KD"
    bool replace = false;      // let characters the target lacks become '?' instead of failing
    // Bytes read at a time; tests make it tiny to put a block boundary everywhere.
    int64_t blockSize = int64_t{1} << 20;
};

// Runs the job on the process's standard input and output; messages go to err. Returns an exit code
// of io.h: kExitContent for malformed input (with its byte offset) or a character the target lacks
// (with its line, column and code point), kExitUsage for an unknown code page or form.
int Recode(const RecodeOptions& options, std::ostream& err);

// The same with "-" bound to the streams in and out.
int Recode(const RecodeOptions& options, std::istream& in, std::ostream& out, std::ostream& err);

}  // namespace kbase_tool
