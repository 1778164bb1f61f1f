// Packets as byte vectors, and their hexadecimal form on the command line and in the output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace station
{

using Bytes = std::vector<uint8_t>;

// Lower case, two digits a byte, no separators.
std::string to_hex(const Bytes &bytes);

// Digits in pairs; blanks, ':' and '-' between pairs are free. Throws UsageError.
Bytes from_hex(const std::string &text);

std::string to_text(const Bytes &bytes);

// The whole file, "-" for standard input. Throws UsageError when it cannot be read.
Bytes read_whole_file(const std::string &path);

// A whole number in C notation (10, 0x0A) within the bounds. Throws UsageError naming `what`.
long parse_number(const std::string &text, long low, long high, const std::string &what);

// "0xE602"
std::string code_text(uint16_t code);

} // namespace station
