// A line of a plan, as data.
#pragma once

#include "station/catalogue/request.h"
#include "station/plan/decimal.h"

#include <optional>
#include <string>
#include <vector>

namespace station
{

struct Step {
    enum class Kind { request, wait, sleep, skip, tell, ask, input };

    std::string file; // as the plan names it
    int line = 0;
    Kind kind = Kind::request;
    Request request;   // for the other kinds only its name and words
    std::string phase; // empty before the first
    bool always = false;
    bool names_unit = false;
    bool only_names = false; // the unit, and a failure of it is none of the unit: the port's name stands in
    double timeout = 0;
    int retries = 0;
    double seconds = 0;           // to wait or to sleep
    std::optional<double> within; // seconds that it may take
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
    // Seconds that an attempt may take.
    [[nodiscard]] double patience() const;
    // What its answer has to be, in the plan's words.
    [[nodiscard]] std::string wanted() const;
};

// What a line that sends nothing stands for.
const char *left_out(const Step &step);

} // namespace station
