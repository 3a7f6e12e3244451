#include <windows.h>

#include <ctime>

#include "basert/clock.h"

int64_t OsTimeNow() { return static_cast<int64_t>(std::time(nullptr)); }

bool OsLocalTime(int64_t seconds, OsLocalDateTime* out) {
    if (out == nullptr) return false;
    // The Windows runtime's localtime_s takes 64-bit times up to the year 3000.
    const __time64_t t = static_cast<__time64_t>(seconds);
    struct tm tm {};
    if (_localtime64_s(&tm, &t) != 0) return false;
    *out = {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
    return true;
}
