// The forms of what is kept: texts, decimals, times, ids.
#pragma once

#include "station/records/run.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace station::records
{

// Valid UTF-8 of the characters that are fit: every other byte as \xNN.
std::string escaped_unless(bool (*is_fit)(uint32_t character), std::string_view text);

// Valid UTF-8 without NUL.
std::string clean(std::string_view text);

// Such as 5, -12.50: digits with at most one point between them, and a minus sign before them.
bool is_decimal(std::string_view text);

// Of the two digits a byte that to_hex writes.
std::string from_hex(std::string_view digits);

Time now();
std::string time_text(Time time); // "2026-11-21T21:54:56.123Z"
Time time_of(const std::string &text);

// What people write: a date, with a time or without (2026-11-21, 2026-11-21T21:54, "2026-11-21 21:54:56.123";
// UTC, or with Z or +01:00 behind), or so long before `from`: 90s, 30m, 24h, 7d, 2w. Nothing when it is
// neither.
std::optional<Time> parse_time(const std::string &text, Time from);

// A new UUID of version 7, which begins with the time. Within a process each is greater than the one before,
// unless the clock was put back by more than ten seconds: up to that, `time` is put forward to the last
// one's.
std::string new_id(Time &time);

// The smallest and the greatest id that begin as `prefix` does; empty when no id can.
std::string id_bound(std::string_view prefix, char fill);

// The smallest id of a run that was started then; and when a run of this id was.
std::string id_at(Time time);
Time time_in(std::string id);

} // namespace station::records
