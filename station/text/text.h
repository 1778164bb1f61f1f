// What every room of the station does with texts: characters, bytes as digits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace station
{

// The bytes of the UTF-8 character at `at`, a place in the text; `character` is set. 0 when the bytes there
// are none.
size_t utf8_character(std::string_view text, size_t at, uint32_t &character);

// Appends \x1b, or one for each of several bytes.
void append_escaped(std::string &text, std::string_view bytes);

// Two digits a byte, lower case.
std::string to_hex(std::string_view bytes);

// ASCII's letters.
std::string lower_case(std::string text);

} // namespace station
