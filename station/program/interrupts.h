// Ctrl-C, and the signal to end: the first wish is counted, the second ends the program at once.
#pragma once

#include "station/plan/run.h"

namespace station
{

// From the first call on.
const Interrupts &catch_interrupts();

} // namespace station
