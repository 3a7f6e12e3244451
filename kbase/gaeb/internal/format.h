// Number formatting of the stored form, apart so that it can be tested against the C library.
#pragma once

#include <cstddef>

#include "kbase/export.h"

namespace kbase_gaeb_internal {

// Room FormatFixed3 needs: the longest "%.3f" of a double (309 integer digits, sign, point,
// three decimals).
constexpr size_t kFixed3Room = 320;

// Writes v as "%.3f" does in the C locale (rounding the exact binary value half to even, "-0.000"
// for a negative value that rounds to zero, "inf" and "nan" with their sign) without a
// terminating NUL; returns the end. out holds at least kFixed3Room bytes.
KBASE_API char* FormatFixed3(double v, char* out);

}  // namespace kbase_gaeb_internal
