// Code pages as a person names them on the command line.
//
// Every job that takes an encoding takes it by Windows number ("1252", "65001") or by one of the
// names people type ("utf-8", "latin1", "windows-1252", "cp850", "Shift_JIS"). Names are compared
// ignoring case and the separators '-', '_', '.' and space, so "UTF8", "utf_8" and "utf-8" are one
// name. "cpN", "windowsN", "ibmN" (with or without separators) stand for number N. Note that latin1
// and iso-8859-1 are 28591, not 1252: the Windows page fills 0x80..0x9F with printable characters.
// The UTF-16 names mean 1200/1201 and the UTF-32 ones 12000/12001; "utf-16" and "utf-32" are
// the little-endian numbers, and a byte-order mark at the start of such a text decides the order.
#pragma once

#include <iosfwd>
#include <string>

namespace kbase_tool {

// Parses a code page given by number or name into cp. Returns false, leaving cp unchanged, for a
// name not in the table or a number outside 1..65535. Says nothing about whether text can be
// converted to or from it; CodePageAvailable says that.
[[nodiscard]] bool ParseCodePage(const std::string& text, int& cp);

// Whether text can be converted to and from cp: a number in 1..65535 the conversion layer knows
// (UTF-16 1200/1201 always).
[[nodiscard]] bool CodePageAvailable(int cp);

// The names ParseCodePage knows for cp, comma-separated, the preferred first ("windows-1252,
// cp1252"); "" when it has none beyond the number and the cpN forms.
std::string CodePageNames(int cp);

// Writes one line per available code page to out, by number: the number, its names and what it
// is for. Cost: opens every converter of the conversion layer once.
void ListCodePages(std::ostream& out);

}  // namespace kbase_tool
