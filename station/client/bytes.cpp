#include "station/client/bytes.h"

#include "platform/owned/descriptor.h"
#include "station/client/errors.h"
#include "station/text/text.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace station
{

std::string to_hex(const Bytes &bytes)
{
    return to_hex(std::string_view(reinterpret_cast<const char *>(bytes.data()), bytes.size()));
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

[[noreturn]] static void cannot_read(const std::string &path)
{
    throw UsageError("cannot read " + path + ": " + std::strerror(errno));
}

Bytes read_whole_file(const std::string &path)
{
    const owned::descriptor file(path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        cannot_read(path);
    Bytes bytes;
    for (;;) {
        uint8_t piece[65536];
        const ssize_t count = read(file.get(), piece, sizeof piece);
        if (count < 0) // a folder can be opened, but not read
            cannot_read(path);
        if (count == 0)
            return bytes;
        bytes.insert(bytes.end(), piece, piece + count);
    }
}

long parse_number(const std::string &text, long low, long high, const std::string &what)
{
    char *end = nullptr;
    const bool hexadecimal = text.find('x') != std::string::npos || text.find('X') != std::string::npos;
    // What no long holds comes as the least or the greatest, which lie beyond all bounds.
    const long number = std::strtol(text.c_str(), &end, hexadecimal ? 16 : 10);
    if (text.empty() || *end || number < low || number > high)
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
