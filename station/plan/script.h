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
    double timeout = 0;
    int retries = 0;
    double seconds = 0; // to wait or to sleep
    bool must_fail = false;
    bool may_fail = false;
    bool compares = false;
    bool is_pattern = false;
    std::string expected;
};

// What a line that sends nothing stands for.
const char *left_out(const Step &step);

// `path` is the script, - for standard input. Throws UsageError, with a line for each mistake in it.
std::vector<Step> parse_script(const std::string &path, const Settings &settings);

// Whether the pattern of a step's `=~` is found in the text.
[[nodiscard]] bool matches(const Step &step, const std::string &text);

extern const char script_help[];

} // namespace station
