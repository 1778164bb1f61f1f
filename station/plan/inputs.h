// $NAME: what people have put in, in the words of later lines.
#pragma once

#include "station/plan/step.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace station
{

using Words = std::vector<Word>;

// By the names of the plan's `input` lines.
using Inputs = std::map<std::string, std::string>;

// The name behind the '$' at `at`; empty when there is none.
std::string name_at(const std::string &text, size_t at);

// Whether any name is to be filled in.
bool has_names(const Words &words);

// The word with `value` of each name in the name's place.
std::string replaced(const Word &word, const std::function<std::string(const std::string &)> &value);

// The words, joined by one blank each, with the inputs in their names' places; in a pattern they stand for
// themselves. Throws UsageError when one was not put in.
std::string filled_text(const Words &words, bool is_pattern, const Inputs &inputs);

// The step with the inputs in its names' places. Throws UsageError when one was not put in, or when the
// request cannot carry it.
Step filled(const Step &step, const Inputs &inputs);

} // namespace station
