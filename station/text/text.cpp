#include "station/text/text.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace station
{

size_t utf8_character(std::string_view text, size_t at, uint32_t &character)
{
    // Of one byte and of more: how the first one begins, and the least that needs so many.
    static constexpr struct {
        unsigned mask, head;
        uint32_t least;
    } FORMS[] = {{0x80, 0, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};
    const std::string_view bytes = text.substr(at);
    const unsigned first = static_cast<unsigned char>(bytes[0]);
    const auto *const form = std::find_if(std::begin(FORMS), std::end(FORMS),
                                          [&](const auto &each) { return (first & each.mask) == each.head; });
    const auto length = static_cast<size_t>(form - FORMS) + 1;
    if (form == std::end(FORMS) || bytes.size() < length)
        return 0;
    character = first & ~form->mask;
    for (const char byte : bytes.substr(1, length - 1)) {
        if ((byte & 0xC0) != 0x80)
            return 0;
        character = character << 6 | (byte & 0x3F);
    }
    const bool is_half_of_a_pair = character >= 0xD800 && character < 0xE000;
    return character < form->least || character > 0x10FFFF || is_half_of_a_pair ? 0 : length;
}

static void append_hex(std::string &text, char character)
{
    static constexpr char DIGITS[] = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(character);
    text += DIGITS[byte >> 4];
    text += DIGITS[byte & 15];
}

void append_escaped(std::string &text, std::string_view bytes)
{
    for (char byte : bytes) {
        text += "\\x";
        append_hex(text, byte);
    }
}

std::string to_hex(std::string_view bytes)
{
    std::string digits;
    for (char byte : bytes)
        append_hex(digits, byte);
    return digits;
}

std::string lower_case(std::string text)
{
    for (char &character : text)
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return text;
}

} // namespace station
