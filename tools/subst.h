// The subst job of the kbase program: fill a text template from variables, the way the library's
// VaVars::ReplaceAll does, with limits that a program reading outside text needs.
//
// Variables come from --var NAME=VALUE, typed by the value's form (a whole number in 32 bits:
// long; a real with '.' or an exponent: double, printed "%f"; true or false: boolean; anything
// else: text), and from --env NAME=DEFAULT (the environment's value, else the default). They enter
// the list in the order given, and the list order decides between names that are prefixes of each
// other ("$ab" is matched by a variable "a" given before "ab"). A name given twice keeps its place
// and takes the later value; with another type that is a usage error.
//
// The template is read line by line (a line ends after '\n'; the last may lack it) and each line
// is filled with repeated passes until a pass replaces nothing. A line that needs more than
// --max-passes replacing passes (a value that refers to itself), or that grows beyond
// kMaxLineBytes, ends the job with exit 3 and a message naming the variable and the line. Memory
// holds one line and its result, so a file of any size streams through.
//
// --protocol FILE writes the library's protocol lines (the variables set, the environment values
// found or defaulted; with --protocol-substitutions also one line per changed template line).
// Output and protocol files replace their targets only when the whole job succeeded.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "io.h"

namespace kbase_tool {

// A variable definition from the command line, in the order given.
struct SubstDefinition {
    bool environment = false;  // --env NAME=DEFAULT, else --var NAME=VALUE
    std::string text;          // NAME=VALUE as given
};

struct SubstOptions {
    std::string input = "-";
    std::string output = "-";
    std::vector<SubstDefinition> definitions;
    std::string protocol;  // empty: none
    bool protocolSubstitutions = false;
    int maxPasses = 100;
    int64_t blockSize = int64_t{1} << 20;  // bytes read at a time
};

// The longest line, read or filled, that the job handles.
constexpr int64_t kMaxLineBytes = int64_t{16} << 20;

// Runs the job; "-" is the process's standard input or output. Returns an exit code of io.h.
int Subst(const SubstOptions& options, std::ostream& err);
// The same with "-" bound to the streams in and out.
int Subst(const SubstOptions& options, std::istream& in, std::ostream& out, std::ostream& err);

}  // namespace kbase_tool
