// From a request's answer to a verdict and to what a person reads.
#pragma once

#include "station/catalogue/request.h"

#include <string>

namespace station
{

// What an exchange came to, as an exit status; the last ones are the program's.
enum Verdict {
    SUCCESS = 0,
    FAILURE = 1,
    NO_ANSWER = 2,
    REFUSED = 3,
    USAGE = 64,
    NOT_KEPT = 73,
    NO_OUTPUT = 74,
    INTERRUPTED = 130
};

struct Result {
    Verdict verdict = NO_ANSWER;
    uint8_t selector = 0;  // byte 4 of the response
    Bytes data;            // as long as the response says
    Meaning meaning;       // empty when the data is a text that speaks for itself
    const char *word = ""; // the catalogue's word on this answer
};

Result judge(const Request &request, const Exchange &exchange);

// The answer on one line: its meaning or its text, bytes that are no characters escaped.
std::string answer_line(const Exchange &exchange, const Result &result);

// What came from a phone, made fit for a terminal: UTF-8 as it is, but control characters and bytes that are
// no characters as \x1b, and line feeds as \n unless they are kept.
std::string escaped(const std::string &text, bool keep_lines = false);

std::string without_last_line_feed(std::string text);

} // namespace station
