// The service's log: every line goes to standard output and to the phone's log, under the caller's own name.
#pragma once

// Leaves standard output alone when it is /dev/null, which is what init gives a service: a system call a
// line. Called once, before there are threads.
void log_spare_null_stdout();

// Writes "[NAME]:" with the name of the function it stands in, and the message, which ends in a line feed.
// Inside a lambda the name would be the lambda's: call diag_log there.
#define LOG(...) diag_log(__func__, __VA_ARGS__)

// The same under a given name. A message of any length is written whole; when there is no memory for a long
// one, its beginning is. Not for signal handlers: the phone's log may take a lock.
void diag_log(const char *function, const char *format, ...) __attribute__((format(printf, 2, 3)));
