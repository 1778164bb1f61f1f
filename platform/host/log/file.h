// A log that is a file: where no phone's launcher hands out a ring.
#pragma once

#include "descriptor.h"

#include <cstddef>
#include <ctime>

namespace log_file
{

// Opens it, and makes it where there is none; none, and errno, where that failed. What is no regular file (a
// folder, a FIFO that nobody reads, a socket) is no log.
[[nodiscard]] owned::descriptor open(const char *path);

// Appends a line of `length` bytes, its line feed among them, which is logged at the second `now`. False: it
// was not written.
bool append(int fd, const char *line, size_t length, time_t now);

} // namespace log_file
