// A script's run as a table for people and as JSON for programs.
#pragma once

#include "station/catalogue/request.h"

#include <string>

namespace station
{

// `path` is the script, - for standard input; the file `record`, unless it is empty, gets the run as JSON.
// Returns 0 when every line came out as expected, 1 otherwise; 2 when the port has died, which ends the run
// unless it shall keep going. Throws UsageError before anything is sent, and OutputError.
int run_script(const std::string &path, const Settings &settings, const std::string &record, bool keep_going);

} // namespace station
