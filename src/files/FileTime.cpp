#include "files/FileTime.h"

namespace kiv::files {
namespace {

constexpr std::uint64_t kTicksPerMillisecond = 10000;
constexpr std::uint64_t kTicksPerDay = 86400ull * 1000 * kTicksPerMillisecond;

bool IsLeapYear(unsigned int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

unsigned int DaysInMonth(unsigned int year, unsigned int month) {
    constexpr unsigned int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// Days from 1601-01-01 to the given date of the proleptic Gregorian calendar.
std::uint64_t DaysSince1601(unsigned int year, unsigned int month, unsigned int day) {
    const std::uint64_t y = year - 1601;
    std::uint64_t days = y * 365 + y / 4 - y / 100 + y / 400;
    for (unsigned int m = 1; m < month; ++m) {
        days += DaysInMonth(year, m);
    }
    return days + day - 1;
}

}  // namespace

int CompareFileTime(const FILETIME& a, const FILETIME& b) {
    const std::uint64_t x = ToTicks(a);
    const std::uint64_t y = ToTicks(b);
    return x < y ? -1 : (x > y ? 1 : 0);
}

bool SystemTimeToFileTime(const system::_MSYSTEMTIME& time, FILETIME& fileTime) {
    if (time.wYear < 1601 || time.wYear > 30827 || time.wMonth < 1 || time.wMonth > 12 ||
        time.wDay < 1 || time.wDay > DaysInMonth(time.wYear, time.wMonth) || time.wHour > 23 ||
        time.wMinute > 59 || time.wSecond > 59 || time.wMilliseconds > 999) {
        return false;
    }
    const std::uint64_t milliseconds =
        ((time.wHour * 60ull + time.wMinute) * 60 + time.wSecond) * 1000 + time.wMilliseconds;
    fileTime = FromTicks(DaysSince1601(time.wYear, time.wMonth, time.wDay) * kTicksPerDay +
                         milliseconds * kTicksPerMillisecond);
    return true;
}

}  // namespace kiv::files
