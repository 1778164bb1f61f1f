// The options that every request takes, before its name or behind it.
#pragma once

#include "station/catalogue/request.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace station
{

void add_request_options(CLI::App &app, Settings &settings);

std::vector<std::string> option_names(const CLI::App &app);

// Parses; `words` are in their order. Throws HelpAsked, and UsageError, naming what was probably meant.
void parse_words(CLI::App &app, std::vector<std::string> words);

// Throws UsageError on options that contradict each other.
void check(const Settings &settings);

} // namespace station
