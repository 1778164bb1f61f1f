// Answers as lines for people and as JSON for programs.
#pragma once

#include "station/catalogue/answer.h"
#include "station/client/files.h"
#include "station/text/json.h"

#include <string>

namespace station
{

Json to_json(const Request &request, const Exchange &exchange, const Result &result);
constexpr int JSON_INDENT = 2; // of JSON that is printed

// Prints one request's outcome as the settings say: answers to standard output, the lack of one to standard
// error.
void print_result(const Settings &settings, const Request &request, const Exchange &exchange,
                  const Result &result);

std::string milliseconds_text(double milliseconds);

// What became of a file that was pushed to or pulled into `path`.
void print_moved(std::FILE *out, const Settings &settings, const std::string &path, const Moved &moved);

// Throws OutputError when standard output has not taken everything.
void flush_output();

void print_list(bool json);

} // namespace station
