// Descriptors, processes and sockets of the workstation's side of a phone.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "descriptor.h"

namespace host
{

using Fd = owned::descriptor;

// Ends the program with a message and status 1; `error` adds what errno tells.
[[noreturn]] void die(const std::string &what);
[[noreturn]] void die_errno(const std::string &what);

// Opens the folder of a phone, which must be the user's own and of nobody else's reach: 0700 from now on.
Fd open_state(const std::string &path);

// Whether somebody holds the phone's lock, which is to say: it is up, or on its way up or down.
bool is_locked(const Fd &state);
// Waits until nobody does; false after so many seconds.
bool await_unlocked(const Fd &state, int seconds);

// A Unix socket in the folder: its path may be longer than a socket's may, so both go there.
Fd listen_in(const Fd &state, const char *name);
Fd connect_in(const Fd &state, const char *name); // none when nobody listens

// The whole of a regular file of the folder, `limit` bytes of it at most; empty when there is none.
std::string read_file(const Fd &state, const char *name, size_t limit);
// Replaces a file of the folder.
void write_file(const Fd &state, const char *name, const std::string &text);

// Writes all of it, waiting where that takes time; false when the other side is gone.
bool write_all(int fd, const void *bytes, size_t length);

// Runs a program, and returns its exit status, or -1.
int run(const std::vector<std::string> &command, int in = -1, int out = -1);

} // namespace host
