// "Did you mean": the known word that a mistyped one is nearest to.
#pragma once

#include <string>
#include <vector>

namespace station
{

// "; did you mean NAME?", or nothing when no known word is near. One that differs in the case of its letters
// alone is the nearest.
std::string suggestion(const std::string &mistyped, const std::vector<std::string> &known);

// The names of all commands.
std::vector<std::string> command_names();

} // namespace station
