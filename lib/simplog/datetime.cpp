// Date and time texts: what stamps a log line, and what hosts show elsewhere.
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "simplog.h"

namespace korvex::simplog {
namespace {

// The widest result of a pattern: a year of eleven characters, or a time with its suffix.
using TextBuffer = std::array<char, 64>;

struct DateFormat {
    const char *pattern;
    char order[4];  // y, m and d as they follow each other
    char separator;
};

constexpr std::array<DateFormat, 9> kDateFormats{{
    {"%Y/%m/%d", "ymd", '/'},
    {"%Y.%m.%d", "ymd", '.'},
    {"%F", "ymd", '-'},
    {"%m/%d/%Y", "mdy", '/'},
    {"%m.%d.%Y", "mdy", '.'},
    {"%m-%d-%Y", "mdy", '-'},
    {"%d/%m/%Y", "dmy", '/'},
    {"%d.%m.%Y", "dmy", '.'},
    {"%d-%m-%Y", "dmy", '-'},
}};

// The size that strftime is given for each of the two texts of a stamp, and where its time stands: every date has ten
// characters.
constexpr size_t kStampPieceSize = 12;
constexpr size_t kStampTime = 12;

// tzset makes a TZ that changed since the last call count, as localtime does and localtime_r need not. A time whose
// year no `int` holds has no parts: all zero.
std::tm local_time(time_t time) {
    std::tm parts{};
    tzset();
    return localtime_r(&time, &parts) != nullptr ? parts : std::tm{};
}

// strftime with a pattern from a table, which the compiler can't check.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
bool put_pattern(char *text, size_t size, const char *pattern, const std::tm &parts) {
    return std::strftime(text, size, pattern, &parts) != 0;
}
#pragma GCC diagnostic pop

// The date without strftime, in full whatever room the caller has: the fallback's promise.
void put_date_by_hand(char *text, const DateFormat &format, const std::tm &parts) {
    TextBuffer year;
    TextBuffer month;
    TextBuffer day;
    std::snprintf(year.data(), year.size(), "%.4lld", parts.tm_year + 1900LL);
    std::snprintf(month.data(), month.size(), "%.2d", parts.tm_mon + 1);
    std::snprintf(day.data(), day.size(), "%.2d", parts.tm_mday);

    for (const char *field = format.order; *field != '\0'; field++) {
        const TextBuffer &number = *field == 'y' ? year : *field == 'm' ? month : day;
        if (field != format.order)
            *text++ = format.separator;
        text = stpcpy(text, number.data());
    }
}

void put_date(char *text, size_t size, int32_t format_index, const std::tm &parts) {
    const bool known = format_index >= 1 && format_index <= static_cast<int32_t>(kDateFormats.size());
    const DateFormat &format = kDateFormats[known ? static_cast<size_t>(format_index) - 1 : 0];

    if (!put_pattern(text, size, format.pattern, parts))
        put_date_by_hand(text, format, parts);
}

// The time without strftime, in full as well. On the 12-hour clock it counts hours from 00 and writes capitals, unlike
// strftime: users rely on both.
void put_time_by_hand(char *text, bool with_seconds, bool twelve_hours, const std::tm &parts) {
    const bool afternoon = twelve_hours && parts.tm_hour > 11;
    TextBuffer time;
    const int hour = afternoon ? parts.tm_hour - 12 : parts.tm_hour;
    const char *suffix = !twelve_hours ? "" : afternoon ? " PM" : " AM";

    if (with_seconds)
        std::snprintf(time.data(), time.size(), "%.2d:%.2d:%.2d%s", hour, parts.tm_min, parts.tm_sec, suffix);
    else
        std::snprintf(time.data(), time.size(), "%.2d:%.2d%s", hour, parts.tm_min, suffix);
    std::strcpy(text, time.data());
}

void put_time(char *text, size_t size, bool with_seconds, int32_t hour_clock, const std::tm &parts) {
    const bool twelve_hours = hour_clock == 12;
    const char *pattern = with_seconds ? (twelve_hours ? "%I:%M:%S %P" : "%T") : (twelve_hours ? "%I:%M %P" : "%H:%M");

    if (!put_pattern(text, size, pattern, parts))
        put_time_by_hand(text, with_seconds, twelve_hours, parts);
}

}  // namespace
}  // namespace korvex::simplog

using namespace korvex::simplog;

int32_t Change_Date_To_String_By_Format_Ex(time_t tTime, char *pszBuf, int32_t cbBuf, int32_t idDateFormat) {
    if (pszBuf == nullptr || cbBuf == 0)
        return -EINVAL;

    put_date(pszBuf, static_cast<size_t>(cbBuf), idDateFormat, local_time(tTime));
    return 0;
}

int32_t Change_Time_To_String_By_Format_Ex(time_t tTime, char *pszBuf, int32_t cbBuf, uint32_t idTimeMode,
                                           int32_t idHourClock) {
    if (pszBuf == nullptr || cbBuf == 0)
        return -EINVAL;

    put_time(pszBuf, static_cast<size_t>(cbBuf), idTimeMode != 1, idHourClock, local_time(tTime));
    return 0;
}

int32_t Log_DateTime_Format(time_t tTime, char *pszBuf, int32_t idHourClock, int32_t idDateFormat) {
    const std::tm parts = local_time(tTime);

    pszBuf[0] = '[';
    put_date(pszBuf + 1, kStampPieceSize, idDateFormat, parts);
    std::strcat(pszBuf, " ");
    put_time(pszBuf + kStampTime, kStampPieceSize, true, idHourClock, parts);
    std::strcat(pszBuf, "] ");
    return 0;
}
