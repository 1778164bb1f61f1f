#include "station/program/columns.h"

#include <algorithm>

namespace station
{

static bool begins_character(char byte) { return (byte & 0xC0) != 0x80; }

size_t columns(const std::string &text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), begins_character));
}

std::string cut(const std::string &text, size_t width)
{
    size_t count = 0;
    const auto end = std::find_if(text.begin(), text.end(),
                                  [&](char byte) { return begins_character(byte) && count++ == width; });
    return {text.begin(), end};
}

std::string padded(const std::string &text, size_t width)
{
    return text + std::string(width - std::min(width, columns(text)), ' ');
}

} // namespace station
