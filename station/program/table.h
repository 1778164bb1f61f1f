// A plan's run as a table for people and as JSON for programs.
#pragma once

#include "station/catalogue/request.h"
#include "station/program/reports.h"

#include <string>

namespace station
{

struct RunOptions {
    std::string plan;    // its path, - for standard input
    std::string record;  // a file for the run as JSON; or empty
    std::string records; // where runs are kept; or empty, unless they are kept
    std::string answers; // a file of answers; or empty
    std::string station; // its name
    Reports reports;
    bool keeps = false;      // the run is kept in `records`
    bool keep_going = false; // also when the port has died
    bool stop = false;       // at the first failure
    bool no_why = false;
};

// Returns 0 when every line came out as expected, 1 otherwise; 2 when the port has died, which ends the run
// unless it shall keep going; INTERRUPTED. Throws UsageError before anything is sent, OutputError, and
// records::Error.
int run_plan(const RunOptions &options, const Settings &settings);

} // namespace station
