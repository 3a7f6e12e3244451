// The clock behind log records, dump file names and protocol dates.
//
// Every time the services print comes from one replaceable function, so that a host (or a test)
// can fix it; the local-time conversion of the runtime then applies (TZ on POSIX).
#pragma once

#include <cstdint>

#include "basert/clock.h"
#include "kbase/export.h"

// Returns seconds since 1970-01-01 00:00:00 UTC.
using UtClockFunction = int64_t (*)();

// Makes f the clock and returns the previous one; null restores the system clock.
KBASE_API UtClockFunction UtSetClock(UtClockFunction f);
// The clock's current time in seconds since the epoch.
KBASE_API int64_t UtClockNow();
// The local time of t as "YYYY-MM-DD hh:mm:ss" (strftime's "%F %T") into buf, which must hold 20
// bytes; returns the length, 19, or 0 when t cannot be converted (buf then holds "").
KBASE_API int UtFormatLocalTime(int64_t t, char* buf);
