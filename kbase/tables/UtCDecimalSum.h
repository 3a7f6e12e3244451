// UtCDecimalSum: the exact total of a column of decimal texts.
//
// Summing texts such as "12.50" as doubles drifts: 0.1 has no double, and a column of millions of
// prices ends some cents off. This accumulator keeps plain decimals ("12.50", "-3", ".5", "2e3")
// exactly, as one 128-bit integer with a common count of fraction digits; the count grows as
// longer fractions arrive, while the total stays below 10^37 units of it. Anything else that reads
// as a number (hexadecimal, "inf", more than 36 digits, a total past that bound) and values added
// as doubles go to a compensated (Neumaier) sum of doubles beside it. Value() is the correctly
// rounded double of the exact part plus the compensated part, so a column of texts with two
// decimals prints its exact total with "%.2f" as long as the total has a double that close
// (below about 10^13).
//
// Sums of blocks fold into one with Merge in any order: the exact part is associative, the double
// part as nearly as compensated summation is. A total of negative zeros only is -0, as the double
// sum would be. Where the compiler has no 128-bit integer every value goes to the double part.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "kbase/export.h"

class KBASE_API UtCDecimalSum {
public:
    UtCDecimalSum() = default;

    // Adds a text that UtCString::Convert(double&) accepts, the bytes taken in the system code
    // page (blanks around it allowed as Convert allows them; the text ends at a NUL); false,
    // adding nothing, for any other text.
    bool Add(const char* p, size_t n);
    // Adds the longest leading number of the text as atof reads it (0 when there is none): the
    // reading of a first cell that may carry a unit ("12kg" adds 12).
    void AddLenient(const char* p, size_t n);
    // Adds a double to the compensated part.
    void AddDouble(double value);
    // Adds another sum.
    void Merge(const UtCDecimalSum& other);
    void Clear() { *this = UtCDecimalSum(); }

    // The correctly rounded double of the exact part plus the compensated part. Cost: a decimal
    // text of the exact part is made and read (strtod).
    double Value() const;
    // Value() through a printf format that is literal text around one floating conversion (%f,
    // %e, %g, %a with flags, width, precision; "%%" allowed), else through "%.2f"; cut to 50 bytes.
    std::string Format(const char* printfFormat) const;
    // Whether everything added went to the exact part.
    bool IsExact() const { return !inexact_; }

private:
    bool AddExact(bool negative, uint64_t high, uint64_t low, int scale);
    double ExactValue() const;

    // The exact part: a two's complement 128-bit integer (high_:low_) of units of 10^-scale_.
    uint64_t low_ = 0;
    uint64_t high_ = 0;
    int32_t scale_ = 0;
    bool inexact_ = false;      // something went to the double part
    bool any_ = false;          // something was added
    bool negativeZero_ = true;  // everything added was -0
    double sum_ = 0.0;          // the double part and its compensation
    double compensation_ = 0.0;
};
