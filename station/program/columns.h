// Texts in the columns of a terminal. A character has one, however many bytes it takes.
#pragma once

#include <cstddef>
#include <string>

namespace station
{

[[nodiscard]] size_t columns(const std::string &text);

// What stands in the first `width` columns.
[[nodiscard]] std::string cut(const std::string &text, size_t width);

// With blanks behind it up to `width` columns.
[[nodiscard]] std::string padded(const std::string &text, size_t width);

} // namespace station
