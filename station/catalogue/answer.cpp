#include "station/catalogue/answer.h"

#include "station/client/encode.h"
#include "station/text/text.h"

#include <algorithm>
#include <string_view>

namespace station
{

Result judge(const Request &request, const Exchange &exchange)
{
    Result result;
    if (exchange.outcome != Outcome::answer) {
        result.verdict = exchange.outcome == Outcome::refused ? REFUSED : NO_ANSWER;
        return result;
    }
    const Bytes &packet = exchange.packet;
    result.selector = packet.at(SELECTOR_OFFSET);
    if (packet.size() > DATA_OFFSET) {
        result.data.assign(packet.begin() + DATA_OFFSET, packet.end());
        result.data.resize(std::min<size_t>(result.data.size(), get_u16(packet, LENGTH_OFFSET)));
    }
    const std::string data = to_text(result.data);
    if (!request.command) {
        result.verdict = data == "ERROR" ? FAILURE : SUCCESS;
        return result;
    }
    for (const Answer &answer : request.command->answers)
        if (answer.fits(data)) {
            result.verdict = answer.success ? SUCCESS : FAILURE;
            result.word = answer.meaning;
            if (answer.decode)
                result.meaning = answer.decode(result.data, packet);
            return result;
        }
    result.verdict = FAILURE;
    result.word = "not an answer of this command";
    return result;
}

// Characters that a terminal obeys instead of showing them, or that turn around what stands beside them.
static bool is_obeyed(uint32_t character)
{
    return character < ' ' || (character >= 0x7F && character < 0xA0) ||
           (character >= 0x200B && character <= 0x200F) || (character >= 0x2028 && character <= 0x202E) ||
           (character >= 0x2060 && character <= 0x206F) || character == 0xFEFF;
}

std::string escaped(const std::string &text, bool keep_lines)
{
    std::string line;
    for (size_t at = 0; at < text.size();) {
        uint32_t character;
        const size_t length = utf8_character(text, at, character);
        const bool is_kept = character == '\t' || (character == '\n' && keep_lines);
        if (length > 0 && (is_kept || !is_obeyed(character)))
            line += text.substr(at, length);
        else if (character == '\n' && length > 0)
            line += "\\n";
        else
            append_escaped(line, std::string_view(text).substr(at, std::max<size_t>(length, 1)));
        at += std::max<size_t>(length, 1);
    }
    return line;
}

std::string without_last_line_feed(std::string text)
{
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

std::string answer_line(const Exchange &exchange, const Result &result)
{
    if (result.verdict == REFUSED)
        return "refused by the router";
    if (result.verdict == NO_ANSWER)
        return exchange.problem;
    if (!result.meaning.text.empty())
        return escaped(result.meaning.text, false);
    if (exchange.packet.size() < DATA_OFFSET)
        return "(echo)";
    return result.data.empty() ? "(empty)" : escaped(without_last_line_feed(to_text(result.data)), false);
}

} // namespace station
