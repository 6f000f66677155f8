// The clock on clock_gettime and the C library's time zone conversion.
#include <time.h>

#include "platform/DeviceClock.h"

namespace kiv::platform {
namespace {

CivilTime FromTm(const struct tm& tm, long nanoseconds) {
    CivilTime t{};
    t.year = static_cast<unsigned short>(tm.tm_year + 1900);
    t.month = static_cast<unsigned short>(tm.tm_mon + 1);
    t.dayOfWeek = static_cast<unsigned short>(tm.tm_wday);
    t.day = static_cast<unsigned short>(tm.tm_mday);
    t.hour = static_cast<unsigned short>(tm.tm_hour);
    t.minute = static_cast<unsigned short>(tm.tm_min);
    t.second = static_cast<unsigned short>(tm.tm_sec);
    t.milliseconds = static_cast<unsigned short>(nanoseconds / 1000000);
    return t;
}

}  // namespace

void ReadClock(CivilTime& utc, CivilTime& local) {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm tm {};
    gmtime_r(&now.tv_sec, &tm);
    utc = FromTm(tm, now.tv_nsec);
    localtime_r(&now.tv_sec, &tm);
    local = FromTm(tm, now.tv_nsec);
}

bool SetLocalClock(const CivilTime& local) {
    if (local.year < 1970 || local.month < 1 || local.month > 12 || local.day < 1 ||
        local.day > 31 || local.hour > 23 || local.minute > 59 || local.second > 59 ||
        local.milliseconds > 999) {
        return false;
    }
    struct tm tm {};
    tm.tm_year = local.year - 1900;
    tm.tm_mon = local.month - 1;
    tm.tm_mday = local.day;
    tm.tm_hour = local.hour;
    tm.tm_min = local.minute;
    tm.tm_sec = local.second;
    tm.tm_isdst = -1;
    const time_t seconds = mktime(&tm);
    // mktime moves 31 April to 1 May; such a date is refused instead.
    if (seconds == static_cast<time_t>(-1) || tm.tm_mday != local.day) {
        return false;
    }
    const struct timespec ts = {seconds, static_cast<long>(local.milliseconds) * 1000000L};
    return clock_settime(CLOCK_REALTIME, &ts) == 0;
}

}  // namespace kiv::platform
