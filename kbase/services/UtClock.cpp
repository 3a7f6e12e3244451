#include "kbase/services/UtClock.h"

#include <cstdio>

namespace {
UtClockFunction g_clock = nullptr;
}

UtClockFunction UtSetClock(UtClockFunction f) {
    const UtClockFunction previous = g_clock != nullptr ? g_clock : &OsTimeNow;
    g_clock = f;
    return previous;
}

int64_t UtClockNow() {
    return g_clock != nullptr ? g_clock() : OsTimeNow();
}

int UtFormatLocalTime(int64_t t, char* buf) {
    OsLocalDateTime d{};
    buf[0] = '\0';
    if (!OsLocalTime(t, &d) || d.year < 0 || d.year > 9999) return 0;
    return std::snprintf(buf, 20, "%04d-%02d-%02d %02d:%02d:%02d", d.year, d.month, d.day, d.hour,
                         d.minute, d.second);
}
