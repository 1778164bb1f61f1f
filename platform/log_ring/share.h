// How a ring comes to the processes of its phone: whoever connects to a socket is handed its descriptor.
#pragma once

#include "ring.h"

namespace log_ring
{

static constexpr char PATH[] = "/dev/log/main"; // in a phone; elsewhere the log is a file of that name

// Makes a ring; gives its descriptor, or -1 and errno.
[[nodiscard]] int make();

// Opens it once more, for others: what they do to their descriptor (flags, place) is not done to this one.
[[nodiscard]] int reopen(int fd);

// Sends a descriptor to the other end of a connection, and takes one, or -1. Neither waits.
bool hand_out(int connection, int fd);
[[nodiscard]] int take(int connection);

// Connects to who hands it out at `path`. Gives the connection, or -1 and errno; does not wait in line.
[[nodiscard]] int call(const char *path);

// The ring that is handed out at `path`, or -1 and errno: nobody does so, or not at once. Waits for two
// seconds at the most.
[[nodiscard]] int receive(const char *path);

// The ring of a descriptor, for as long as the process lives. Null: it is none, or one that could be cut
// short under whom has it mapped.
[[nodiscard]] ring *map(int fd);

} // namespace log_ring
