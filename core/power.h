// Going down after the answer: restarts and the power-off happen on threads of their own, a few seconds
// later.
#pragma once

#include <stdint.h>

enum power_action : int32_t {
    POWER_SHUTDOWN = 0,
    POWER_RESTART = 1,
    POWER_RECOVERY = 2,
    POWER_BOOTLOADER = 3,
};

// Starts the action's thread: it holds a wake lock, waits (4 s before powering off, 2 s before a restart) and
// asks the system to go down. Returns 0 when the thread runs or the kind is unknown, else the error number of
// pthread_create. Actions do not cancel each other: the first to end its wait takes the phone down.
int diag_platform_cmd_thread_create(int32_t kind);
