// The files of a plan, as steps. A script of requests is a plan.
#pragma once

#include "station/plan/step.h"

#include <string>
#include <vector>

namespace station
{

struct Plan {
    std::string path;
    std::string name;        // its file's, without folders
    std::string digest;      // SHA-256 of its text and of what it includes, in the order of reading
    std::vector<Step> steps; // those of `phase always` at the end
};

// `path` is the plan, - for standard input. Throws UsageError, with a line for each mistake in it and in what
// it includes.
Plan parse_plan(const std::string &path, const Settings &settings);

extern const char script_help[];

} // namespace station
