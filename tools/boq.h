// The boq job of the kbase program: a quantity takeoff (CSV, one line per measured quantity) turned
// into a GAEB 2000 bill of quantities (tagged text, DA 83, Windows-1252).
//
// The takeoff has a header line. Its columns, found by name (any letter case; --map KEY=NAME names
// another header): OZ, Kurztext, Menge, ME (required), Langtext, Bereich, Bereichstitel (optional).
// Lines of one OZ are one position: their quantities are totalled exactly (decimal point or
// comma), and their texts and units must agree. A dotted OZ outline ("01.02.0010": two range
// levels and a position) nests the ranges; every OZ must have the parts and part widths of the
// first one. An OZ without dots ("010010", " 1 1   1": levels of fixed width, leading blanks kept)
// lies in the range its line names in Bereich, and a range lies in the longest range whose number
// begins its own ("01" > "0101"); every such OZ has the same length, and the outline levels end
// where the range numbers do. A line with a Bereich (a range's OZ, "01.02") and a Bereichstitel
// titles that range; a line without an OZ does only that. Positions come out in OZ order. A
// guessed delimiter that leaves the header in one piece gives way to the one that cuts it into
// the column names.
//
// Memory is bounded by the number of positions (the quantities are totalled in blocks of lines),
// not by the number of lines. Nothing is written when a line is wrong.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace kbase_tool {

struct BoqOptions {
    std::string input;             // the takeoff, or "-" for standard input
    std::string output = "-";      // the bill, or "-" for standard output
    std::vector<std::string> map;  // "KEY=Header name" for the keys oz, kurztext, langtext, menge,
                                   // me, bereich, bereichstitel
    std::string delimiter;  // one character or "tab"; empty: guessed
    std::string encoding;   // code page of the takeoff; empty: UTF-8 (a 1252 byte is an error)
    std::string name;       // the bill's name; empty: the input's file name without extension
    std::string title;      // the bill's title
    std::string date;       // DD.MM.YYYY; empty: today
};

// Runs the job. Exit codes: 0 done, 1 input/output or memory, 2 usage (an unknown --map key),
// 3 content (every error names the takeoff's line).
int Boq(const BoqOptions& options, std::ostream& out, std::ostream& err);

}  // namespace kbase_tool
