// What stands before each line of the log, in logcat's threadtime layout, and in UTC.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <ctime>

namespace log_head
{

static constexpr size_t TAG_MAX = 128; // a longer one is cut
static constexpr size_t ROOM = TAG_MAX + 64;

struct writer {
    pid_t process, thread;
};

// Puts "MM-DD HH:MM:SS.mmm  PID  TID P TAG     : " and returns its length. Takes no lock.
size_t put(char (&head)[ROOM], const timespec &now, const writer &by, int priority, const char *tag);

} // namespace log_head
