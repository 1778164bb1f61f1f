// Shell lines: run, read, searched; processes found and stopped by name.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

#include <memory>

#include "core/files.h"

struct command_closer {
    void operator()(FILE *stream) const { pclose(stream); }
};
// The output of a command. Closing it waits for the shell that runs the line, not for what the shell left
// behind; release() leaves it open.
using command_stream = std::unique_ptr<FILE, command_closer>;

// Starts a line as it stands and reads its output. Null when it could not be started. Later children do not
// inherit the stream, even when it stays open.
command_stream run_line(const char *line);

// Starts a line as it stands and waits for it, its output unread. False when it could not be started.
[[nodiscard]] bool run_line_and_wait(const char *line);

// Closes a stream whose command nobody waits for, on a thread of its own that waits for it instead, so that
// it is reaped when it ends. Without a thread to be had it is waited for here.
void close_unawaited(command_stream stream);

// While 0, prefixed lines and searches are logged. Nothing sets it: it is there for builds that must be
// silent.
extern uint8_t diag_quiet_flag;

// Starts a command behind the PATH prefix; the line is cut at 767 characters, which leaves 685 of the
// command. `mode` is popen's. Returns the stream, for pclose, or null.
FILE *my_popen(const char *command, const char *mode);

// my_popen for reading, closing itself.
command_stream run_command(const char *command);

// Runs a command behind the PATH prefix to its end, output unread. False when it could not be started.
[[nodiscard]] bool run_command_and_wait(const char *command);

// The same, logged. False when it could not be started; its exit status is not looked at.
[[nodiscard]] bool diag_cmd_handle_system(const char *command);

// Runs a command behind the PATH prefix until a line of its output begins with `expected`. False when none
// does.
[[nodiscard]] bool diag_cmd_compare_msg(const char *command, const char *expected);

// Runs a line as it stands with system(). Returns its exit status, or the number of the signal that ended or
// stopped it, or a negative number when it could not be run.
[[nodiscard]] int diag_cmd_system_send(const char *command);

constexpr int PROCESS_LIMIT = 20; // ids that are kept of a search

// Finds the processes whose line in the process list contains `name`. The first PROCESS_LIMIT ids go to
// `ids`; `count` counts all matches up to 255. Returns the status of the listing command, -1 when it could
// not be started.
int diag_get_processpid_by_name(const char *name, int32_t (&ids)[PROCESS_LIMIT], uint8_t *count);

// Sends SIGTERM to the processes that the search keeps, the service itself excepted. Returns the number of
// matches.
int diag_kill_exist_process(const char *name);
