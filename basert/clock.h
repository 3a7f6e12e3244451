// Wall-clock time for records and protocols.
#pragma once

#include <cstdint>

#include "basert/export.h"

// A point of local time, broken down; month 1..12, day 1..31, hour 0..23.
struct OsLocalDateTime {
    int year, month, day, hour, minute, second;
};

// Seconds since 1970-01-01 00:00:00 UTC.
BASERT_API int64_t OsTimeNow();
// The local time (the process's time zone, TZ on POSIX) of seconds since the epoch. False, with
// *out untouched, when the time cannot be represented.
BASERT_API bool OsLocalTime(int64_t seconds, OsLocalDateTime* out);
