// What a handler begins and ends with. Its row in core/commands.def says its code and what was done before it
// is called: the entry logged, a zeroed response of the command's size drawn from the router, head and
// selector echoed.
#pragma once

#include "core/log.h"
#include "core/packet.h"

// Gets the request as it lies in the router's buffer and the response to fill in. Returns the response, which
// every answer_... of core/packet.h does; or null for no reply.
using command_handler = void *(const void *request, uint8_t *response);

// Leaves with a log line, under the handler's name, and "ERROR" or "OK": return FAIL(response, "open %s
// fail\n", path);
#define FAIL(response, ...) (LOG(__VA_ARGS__), answer_error(response))
#define DONE(response, ...) (LOG(__VA_ARGS__), answer_ok(response))
