#include "station/client/bytes.h"

#include "station/client/errors.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>

namespace station
{

std::string to_hex(const Bytes &bytes)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

Bytes from_hex(const std::string &text)
{
    Bytes bytes;
    std::string pair;
    for (char character : text) {
        if (std::isxdigit(static_cast<unsigned char>(character))) {
            pair += character;
            if (pair.size() == 2) {
                bytes.push_back(static_cast<uint8_t>(std::strtoul(pair.c_str(), nullptr, 16)));
                pair.clear();
            }
        } else if (!pair.empty() ||
                   (character != ' ' && character != ':' && character != '-' && character != '\n'))
            throw UsageError("'" + text + "' is not a row of hexadecimal byte values");
    }
    if (!pair.empty())
        throw UsageError("'" + text + "' ends in the middle of a byte");
    return bytes;
}

std::string to_text(const Bytes &bytes) { return {bytes.begin(), bytes.end()}; }

Bytes read_whole_file(const std::string &path)
{
    if (path == "-")
        return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw UsageError("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

long parse_number(const std::string &text, long low, long high, const std::string &what)
{
    char *end = nullptr;
    errno = 0;
    const bool hexadecimal = text.find('x') != std::string::npos || text.find('X') != std::string::npos;
    const long number = std::strtol(text.c_str(), &end, hexadecimal ? 16 : 10);
    if (text.empty() || *end || errno || number < low || number > high)
        throw UsageError(what + " takes a whole number from " + std::to_string(low) + " to " +
                         std::to_string(high) + ", not '" + text + "'");
    return number;
}

std::string code_text(uint16_t code)
{
    char text[8];
    std::snprintf(text, sizeof text, "0x%04X", code);
    return text;
}

} // namespace station
