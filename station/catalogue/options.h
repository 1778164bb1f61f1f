// The options that every request takes, before its name or behind it.
#pragma once

#include "station/catalogue/command_line.h"
#include "station/catalogue/request.h"

namespace station
{

void add_request_options(CommandLine &line, Settings &settings);

// Throws UsageError on options that contradict each other.
void check(const Settings &settings);

} // namespace station
