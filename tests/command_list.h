// What the router must find in the registered table, written out: codes, order, handlers and the size of each
// answer.
#pragma once

#include <diag.h>

struct known_command {
    uint16_t low;
    uint16_t high;
    diagpkt_handler handler;
    const char *name;
    unsigned int response;
};

constexpr int COMMAND_COUNT = 109;
extern const known_command COMMANDS[COMMAND_COUNT];

// Null when no command has the code.
const known_command *command_of(uint16_t code);
