// A script of requests over one connection, shown as a table and judged against what its lines expect.
#pragma once

#include "request.h"

#include <string>

namespace station
{

// `path` is the script, - for standard input; the file `record`, unless it is empty, gets the run as JSON.
// Returns 0 when every line came out as expected, 1 otherwise.
int run_script(const std::string &path, const Settings &settings, const std::string &record);

extern const char run_help[];

} // namespace station
