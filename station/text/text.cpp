#include "station/text/text.h"

#include <cctype>

namespace station
{

size_t utf8_character(std::string_view text, size_t at, uint32_t &character)
{
    static constexpr unsigned HEAD_BITS[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    static constexpr uint32_t LEAST[] = {0, 0, 0x80, 0x800, 0x10000}; // a longer form of less is no UTF-8
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(i < text.size() ? text[i] : 0); };
    const unsigned first = byte(at);
    const size_t length = first < 0x80   ? 1
                          : first < 0xC2 ? 0
                          : first < 0xE0 ? 2
                          : first < 0xF0 ? 3
                          : first < 0xF8 ? 4
                                         : 0;
    character = first & HEAD_BITS[length];
    for (size_t i = 1; i < length; i++) {
        if ((byte(at + i) & 0xC0) != 0x80)
            return 0;
        character = character << 6 | (byte(at + i) & 0x3F);
    }
    const bool is_half_of_a_pair = character >= 0xD800 && character < 0xE000;
    return character < LEAST[length] || character > 0x10FFFF || is_half_of_a_pair ? 0 : length;
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
