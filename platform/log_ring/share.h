// How a ring comes to the processes of its phone: whoever connects to a socket is handed its descriptor.
#pragma once

#include "descriptor.h"
#include "ring.h"

namespace log_ring
{

static constexpr char PATH[] = "/dev/log/main"; // in a phone; elsewhere the log is a file of that name

// What gives a descriptor gives none, and errno, where that failed.

// Makes a ring.
[[nodiscard]] owned::descriptor make();

// Opens it once more, for others: what they do to their descriptor (flags, place) is not done to this one.
[[nodiscard]] owned::descriptor reopen(int fd);

// Sends a descriptor to the other end of a connection, and takes one. Neither waits.
void hand_out(int connection, int fd);
[[nodiscard]] owned::descriptor take(int connection);

// A connection to who hands it out at `path`; does not wait in line.
[[nodiscard]] owned::descriptor call(const char *path);

// The ring that is handed out at `path`; none: nobody does so, or not at once. Waits for two seconds at the
// most.
[[nodiscard]] owned::descriptor receive(const char *path);

// The ring of a descriptor, for as long as the process lives. Null: it is none, or one that could be cut
// short under whom has it mapped.
[[nodiscard]] ring *map(int fd);

} // namespace log_ring
