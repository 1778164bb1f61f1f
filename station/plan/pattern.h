// Patterns, as plans have them.
#pragma once

#include <string>

namespace station
{

// Throws UsageError when it is none.
void check_pattern(const std::string &pattern);

// Whether the pattern is found in the text, anywhere. Takes time that grows with the text's length alone.
[[nodiscard]] bool matches(const std::string &pattern, const std::string &text);

// The pattern that stands for the text itself.
[[nodiscard]] std::string literal(const std::string &text);

} // namespace station
