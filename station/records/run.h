// What a run of a plan on one unit is, and what a step of it: plain data, long before it is a row, a line on
// a terminal or a test case.
#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>

namespace station::records
{

// fail: the unit is not as it should be. error: it could not be found out. aborted: it was not tested to the
// end.
enum class Verdict { pass, fail, aborted, error };

const char *word(Verdict verdict);
std::optional<Verdict> verdict_of(const std::string &word);

// UTC.
using Time = std::chrono::time_point<std::chrono::system_clock, std::chrono::milliseconds>;

// A finished step. Texts may hold any byte: what is no UTF-8, and NUL, is kept as \xNN. Empty is "not there".
struct Step {
    int number = 0;   // 1 for a run's first; Recording counts
    double began = 0; // milliseconds after the run's start; Recording measures
    std::string phase;
    std::string name;    // by which failing steps are counted: what the plan calls it, or the command's name
    std::string code;    // "0xE602"
    std::string request; // as people write it
    std::string answer;  // as people read it
    // The bytes on the wire. Kept where they are not the text, byte for byte; so are those of a text that had
    // to be escaped. Without a value: nothing was sent, nothing came, or the text is the bytes.
    std::optional<std::string> request_bytes;
    std::optional<std::string> answer_bytes;
    // Exact decimals such as -12.50; what is none is not kept here, the answer has it.
    std::string measured, low, high;
    std::string unit;     // of the measured value and its limits
    std::string expected; // a text or a pattern, where there is no limit
    Verdict verdict = Verdict::pass;
    double milliseconds = 0; // kept to the microsecond
    std::string cause;       // lines of the phone's log, or the station's own word; why it is no pass
};

struct Run {
    std::string id;   // a UUID of version 7, lower case; Store gives it
    std::string unit; // the unit under test by its own name, or the port's where it did not tell one
    bool unit_is_port = false;
    std::string plan;        // its file name
    std::string plan_digest; // of its text
    std::string station;     // which one tested
    std::string port;
    std::string software; // what tested: the station's version
    Time started{};
    std::optional<Time> ended;
    std::optional<Verdict> verdict; // none: it is running
    std::string failing;            // the name of the first step that did not pass; Store finds it
    std::string cause;              // why it ended as it did, where no step tells
};

// Records cannot be kept or read. The text says what is wrong and what to do, and may hold names as they were
// given.
struct Error : std::runtime_error {
    using runtime_error::runtime_error;
};

} // namespace station::records
