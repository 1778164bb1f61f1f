#include "clean.h"

#include <cstdint>
#include <cstdio>

namespace host
{

static constexpr size_t SEQUENCE_MAX = 32;

static void show(std::string_view bytes, std::string &out)
{
    for (const char byte : bytes) {
        char text[8];
        snprintf(text, sizeof text, "\\x%02X", static_cast<unsigned char>(byte));
        out += text;
    }
}

// Complete in its bytes, but neither overlong nor a control of its own: C1, and what turns the direction of a
// line.
static bool harmless(std::string_view character)
{
    static constexpr uint32_t SMALLEST[] = {0, 0, 0xA0, 0x800, 0x10000};
    const auto lead = static_cast<unsigned char>(character[0]);
    uint32_t code = lead & (0xFFU >> (character.size() + 1));
    for (const char next : character.substr(1))
        code = code << 6 | (static_cast<unsigned char>(next) & 0x3FU);
    return code >= SMALLEST[character.size()] && code <= 0x10FFFF && !(code >= 0xD800 && code <= 0xDFFF) &&
           !(code >= 0x2028 && code <= 0x202E) && !(code >= 0x2066 && code <= 0x2069) && code != 0xFEFF;
}

static bool switchable(std::string_view modes)
{
    for (size_t at = 1; at <= modes.size();) {
        const size_t end = std::min(modes.find(';', at), modes.size());
        const std::string_view mode = modes.substr(at, end - at);
        if (mode != "1" && mode != "7" && mode != "12" && mode != "25" && mode != "47" && mode != "1047" &&
            mode != "1048" && mode != "1049" && mode != "2004")
            return false;
        at = end + 1;
    }
    return true;
}

void Cleaner::take_text(unsigned char byte, std::string &out)
{
    if (wanted_ > 0) {
        if ((byte & 0xC0) == 0x80) {
            held_ += static_cast<char>(byte);
            if (--wanted_ > 0)
                return;
            if (harmless(held_))
                out += held_;
            else
                show(held_, out);
            held_.clear();
            return;
        }
        show(held_, out);
        held_.clear();
        wanted_ = 0;
    }
    if ((byte >= 0x20 && byte < 0x7F) || byte == '\n' || byte == '\t' ||
        (interactive_ && (byte == '\r' || byte == '\b' || byte == '\a'))) {
        out += static_cast<char>(byte);
    } else if (byte >= 0xC2 && byte < 0xF5) {
        held_ = static_cast<char>(byte);
        wanted_ = byte < 0xE0 ? 1 : byte < 0xF0 ? 2 : 3;
    } else if (interactive_ && byte == 0x1B) {
        place_ = Place::ESCAPE;
    } else if (!interactive_ || byte >= 0x80) {
        const char one = static_cast<char>(byte);
        show({&one, 1}, out);
    }
}

void Cleaner::take_sequence(unsigned char byte, std::string &out)
{
    if (byte >= '0' && byte <= '?' && held_.size() < SEQUENCE_MAX) {
        held_ += static_cast<char>(byte);
        return;
    }
    place_ = Place::TEXT;
    const std::string parameters = std::move(held_);
    held_.clear();
    const bool numbers = parameters.find_first_not_of("0123456789;") == std::string::npos;
    const bool modes =
        parameters[0] == '?' && parameters.find_first_not_of("0123456789;", 1) == std::string::npos;
    const auto among = [byte](std::string_view finals) {
        return finals.find(static_cast<char>(byte)) != std::string_view::npos;
    };
    const bool mode = modes && among("hl") && switchable(parameters);
    if (!mode && !(numbers && among("ABCDEFGHJKLMPSTXdfm@`")))
        return;
    second_screen_ = second_screen_ || mode;
    out += "\x1B[" + parameters + static_cast<char>(byte);
}

void Cleaner::take(unsigned char byte, std::string &out)
{
    switch (place_) {
    case Place::TEXT:
        return take_text(byte, out);
    case Place::ESCAPE:
        place_ = byte == '['                                                               ? Place::SEQUENCE
                 : byte == '('                                                             ? Place::CHARSET
                 : byte == ']' || byte == 'P' || byte == 'X' || byte == '^' || byte == '_' ? Place::STRING
                                                                                           : Place::TEXT;
        if (byte == 'M' || byte == '7' || byte == '8' || byte == '=' || byte == '>')
            out += {'\x1B', static_cast<char>(byte)};
        return;
    case Place::CHARSET: // drawing of lines
        place_ = Place::TEXT;
        if (byte == 'B' || byte == '0')
            out += {'\x1B', '(', static_cast<char>(byte)};
        return;
    case Place::SEQUENCE:
        return take_sequence(byte, out);
    case Place::STRING: // a title, the clipboard, an image: all of it is dropped
        if (byte == 0x1B)
            place_ = Place::STRING_ESCAPE;
        else if (byte == '\a' || byte == 0x18 || byte == 0x1A)
            place_ = Place::TEXT;
        return;
    case Place::STRING_ESCAPE:
        place_ = byte == '\\' ? Place::TEXT : byte == 0x1B ? Place::STRING_ESCAPE : Place::STRING;
        return;
    }
}

std::string Cleaner::clean(std::string_view bytes)
{
    std::string out;
    out.reserve(bytes.size());
    for (const char byte : bytes)
        take(static_cast<unsigned char>(byte), out);
    return out;
}

std::string Cleaner::end()
{
    std::string out;
    if (place_ == Place::TEXT)
        show(held_, out);
    held_.clear();
    wanted_ = 0;
    place_ = Place::TEXT;
    return out;
}

std::string Cleaner::reset() const
{
    if (!interactive_)
        return "";
    return std::string("\x1B[0m\x1B(B\x1B>") +
           (second_screen_ ? "\x1B[?1049l\x1B[?25h\x1B[?1l\x1B[?2004l\x1B[?7h" : "");
}

} // namespace host
