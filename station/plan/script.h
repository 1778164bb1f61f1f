// The lines of a plan, as steps. A script of requests is a plan.
#pragma once

#include "station/catalogue/request.h"
#include "station/plan/decimal.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace station
{

// What people have put in, by the names of the plan's `input` lines.
using Inputs = std::map<std::string, std::string>;

struct Step {
    enum class Kind { request, wait, sleep, skip, tell, ask, input };

    std::string file; // as the plan names it
    int line = 0;
    Kind kind = Kind::request;
    Request request;   // for the other kinds only its name and words
    std::string phase; // empty before the first
    bool always = false;
    bool names_unit = false;
    double timeout = 0;
    int retries = 0;
    double seconds = 0; // to wait or to sleep
    double within = 0;  // seconds that it may take; 0 for any time
    bool must_fail = false;
    bool may_fail = false;
    bool stops = false; // the unit, when it fails
    bool compares = false;
    bool is_pattern = false;
    std::string expected; // of a skip its reason, of an input its pattern
    std::string title;    // `as`
    bool has_limits = false;
    std::optional<Decimal> low, high;
    std::string unit; // of the limits
    std::string text; // that people are shown
    std::string input;

    // What has names of inputs in it, to be filled in when it is played.
    std::vector<Word> request_words, expected_words;

    // By what people call it: its title, or the command's name, or the text that people are shown.
    [[nodiscard]] const std::string &name() const;
    // What its answer has to be, in the plan's words.
    [[nodiscard]] std::string wanted() const;
};

struct Plan {
    std::string path;
    std::string name;        // its file's, without folders
    std::string digest;      // SHA-256 of its text and of what it includes, in the order of reading
    std::vector<Step> steps; // those of `phase always` at the end
};

// What a line that sends nothing stands for.
const char *left_out(const Step &step);

// `path` is the plan, - for standard input. Throws UsageError, with a line for each mistake in it and in what
// it includes.
Plan parse_plan(const std::string &path, const Settings &settings);

// The step with what was put in filled into its words. Throws UsageError when something was not put in, or
// when the request cannot carry it.
Step filled(const Step &step, const Inputs &inputs);

// Whether the pattern is found in the text.
[[nodiscard]] bool matches(const std::string &pattern, const std::string &text);

extern const char script_help[];

} // namespace station
