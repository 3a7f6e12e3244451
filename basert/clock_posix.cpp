#include <ctime>

#include "basert/clock.h"

int64_t OsTimeNow() {
    return static_cast<int64_t>(std::time(nullptr));
}

bool OsLocalTime(int64_t seconds, OsLocalDateTime* out) {
    if (out == nullptr) return false;
    const time_t t = static_cast<time_t>(seconds);
    struct tm tm {};
    if (localtime_r(&t, &tm) == nullptr) return false;
    *out = {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
    return true;
}
