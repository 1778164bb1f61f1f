#include "head.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <string_view>

namespace log_head
{

static constexpr std::string_view PRIORITIES = "??VDIWEF";
static constexpr size_t TAG_COLUMN = 8;
static constexpr time_t DAY = 86400; // seconds

// Right-aligned in at least `width` characters. snprintf would take longer than all else but the write.
static char *put_number(char *out, long number, long width, char fill)
{
    char digits[24];
    char *end = std::to_chars(digits, std::end(digits), number).ptr;
    out = std::fill_n(out, std::max(width - (end - digits), 0L), fill);
    return std::copy(digits, end, out);
}

static char *put_time(char *out, long number, long width, char behind)
{
    out = put_number(out, number, width, '0');
    *out++ = behind;
    return out;
}

// Month and day, of the days since 1970: localtime takes a lock.
static char *put_date(char *out, long days)
{
    // From 0000-03-01 on, in years that begin in March.
    const long day_of_era = (days + 719468) % 146097;
    const long year = (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const long day_of_year = day_of_era - (365 * year + year / 4 - year / 100);
    const long month = (5 * day_of_year + 2) / 153; // 0 is March
    out = put_time(out, month < 10 ? month + 3 : month - 9, 2, '-');
    return put_time(out, day_of_year - (153 * month + 2) / 5 + 1, 2, ' ');
}

size_t put(char (&head)[ROOM], const timespec &now, const writer &by, int priority, const char *tag)
{
    const long seconds = now.tv_sec % DAY;
    char *out = put_date(head, now.tv_sec / DAY);
    out = put_time(out, seconds / 3600, 2, ':');
    out = put_time(out, seconds / 60 % 60, 2, ':');
    out = put_time(out, seconds % 60, 2, '.');
    out = put_time(out, now.tv_nsec / 1000000, 3, ' ');
    out = put_number(out, by.process, 5, ' ');
    *out++ = ' ';
    out = put_number(out, by.thread, 5, ' ');
    *out++ = ' ';
    const auto index = static_cast<size_t>(priority);
    *out++ = index < PRIORITIES.size() ? PRIORITIES[index] : '?';
    *out++ = ' ';
    const std::string_view name(tag ? tag : "", tag ? strnlen(tag, TAG_MAX) : 0);
    out = std::copy(name.begin(), name.end(), out);
    out = std::fill_n(out, TAG_COLUMN - std::min(name.size(), TAG_COLUMN), ' ');
    *out++ = ':';
    *out++ = ' ';
    return static_cast<size_t>(out - head);
}

} // namespace log_head
