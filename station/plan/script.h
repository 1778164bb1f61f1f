// The lines of a script of requests, as steps.
#pragma once

#include "station/catalogue/request.h"

#include <string>
#include <vector>

namespace station
{

struct Step {
    enum class Kind { request, wait, sleep, skip };

    int line = 0;
    Kind kind = Kind::request;
    Request request; // for the other kinds only its name and words
    Settings settings;
    double seconds = 0;
    bool must_fail = false;
    bool may_fail = false;
    bool compares = false;
    bool is_pattern = false;
    std::string expected;
};

// What a line that sends nothing stands for.
const char *left_out(const Step &step);

// `path` is the script, - for standard input. Throws UsageError naming the line when one is wrong.
std::vector<Step> parse_script(const std::string &path, const Settings &settings);

extern const char script_help[];

} // namespace station
