// The csv job of the kbase program: what a delimiter-separated file holds, and grouped totals or
// sorted rows of it, through UtCCsvReader and UtTable.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace kbase_tool {

struct CsvOptions {
    std::string input;                // path of the file
    std::vector<std::string> sum;     // columns to total (name of the last title line, or 1-based number)
    std::vector<std::string> group;   // columns to group by
    std::vector<std::string> sort;    // columns to sort by; "COL:desc" sorts descending
    std::string delimiter;            // one character; empty: guessed
    int titles = -1;                  // title lines; -1: detected
    int encoding = 0;                 // code page of the file; 0: mark, else UTF-8 if valid, else 1252
    bool progress = false;            // draw a progress bar on err for passes that take a moment
};

// Runs the job. Without --sum, --group and --sort it describes the file on out; otherwise it
// writes the resulting table as CSV (UTF-8, the file's delimiter, a header line) on out.
// Messages go to err. Exit codes as for recode: 0 done, 1 file error, 2 bad arguments.
int Csv(const CsvOptions& options, std::ostream& out, std::ostream& err);

}  // namespace kbase_tool
