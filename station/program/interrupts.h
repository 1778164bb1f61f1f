// Ctrl-C, and the signal to end: the first wish is counted, the second ends the program at once.
#pragma once

#include "station/plan/run.h"

#include <string>

namespace station
{

constexpr int LOOK_MILLISECONDS = 100; // so often a wait looks whether there was a wish

// From the first call on. `said`, a literal, is a line for standard error at the first wish.
const Interrupts &catch_interrupts(const char *said = nullptr);

// A line for standard error when the second wish ends the program; nothing when it is empty. It is cut at 1
// KiB.
void say_when_ended(const std::string &words);

} // namespace station
