// What goes over the port, byte by byte, for whoever looks for the fault in a line.
#pragma once

#include "station/client/bytes.h"

namespace station
{

// Prints a line to standard error: the time of day, '>' for what is sent and '<' for what comes, a frame's
// bytes as they are on the wire, and what was made of them.
void trace_frame(char direction, const Bytes &wire, const char *made_of);

// The same for an event that has no bytes: a connection made, a deadline passed.
void trace_event(const std::string &text);

} // namespace station
