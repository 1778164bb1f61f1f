// Answers as lines for people and as JSON for programs.
#pragma once

#include "request.h"

#include <nlohmann/json.hpp>
#include <string>

namespace station
{

// The answer on one line: its meaning or its text, bytes that are no characters escaped.
std::string answer_line(const Exchange &exchange, const Result &result);

nlohmann::ordered_json to_json(const Request &request, const Exchange &exchange, const Result &result);
// Bytes that are no UTF-8 are replaced.
std::string dump(const nlohmann::ordered_json &json);

// Prints one request's outcome as the settings say: answers to standard output, the lack of one to standard
// error.
void print_result(const Settings &settings, const Request &request, const Exchange &exchange,
                  const Result &result);

std::string milliseconds_text(double milliseconds);

void print_list(bool json);

} // namespace station
