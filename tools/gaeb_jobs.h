// The gaeb jobs of the kbase program: a GAEB 2000 bill (tagged text, DA 83) shown as a tree,
// written as CSV, copied (loaded and stored, everything the model does not hold kept in place) or
// checked. The bill is read whole into the library's GAEB classes, so memory grows with the bill.
#pragma once

#include <iosfwd>
#include <string>

class UtGAEB;

namespace kbase_tool {

struct GaebOptions {
    std::string action;        // "show", "csv", "copy" or "check"
    std::string input;         // the bill, or "-" for standard input
    std::string output = "-";  // copy and csv: the file to write, or "-"
};

// Runs the job: show and check print on out, csv and copy write the output file (standard output
// for "-", which is out). Messages go to err. Exit codes: 0 done, 1 input/output or memory, 2
// usage, 3 a malformed bill.
int Gaeb(const GaebOptions& options, std::ostream& out, std::ostream& err);

// Stores bill into path ("-": out) through a temporary file, so that a failed store leaves the
// target as it was. who starts every message. Returns an exit code.
int WriteBill(UtGAEB& bill, const std::string& path, const std::string& who, std::ostream& out,
              std::ostream& err);

// The columns `kbase gaeb csv` writes and `kbase boq` reads by default, in this order.
extern const char* const kBillColumns[7];

}  // namespace kbase_tool
