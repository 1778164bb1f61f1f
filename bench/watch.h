// A service's process, watched while it is asked: does anything grow that should not?
#pragma once

#include <csignal>
#include <functional>
#include <string>

struct Sample {
    long resident = 0, own = 0; // KiB
    long descriptors = 0, children = 0;
};

// Of a process that is gone all is 0.
Sample look_at(const std::string &pid);

// Calls `ask_once` with 0, 1, ..., for a first round of `round` calls and for `count` more, and samples the
// process `pid` ten times, to standard error. Prints figures as bench does. Ends early once `stop` is set or
// `ask_once` says false. False: something has grown between the first round and the end, or the process has
// gone.
bool watch(const std::string &pid, long count, long round, const std::function<bool(long)> &ask_once,
           const volatile std::sig_atomic_t &stop);
