#include "station/catalogue/answer.h"

#include "station/client/encode.h"

#include <algorithm>
#include <cstdio>

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
    if (packet.size() > SELECTOR_OFFSET)
        result.selector = packet[SELECTOR_OFFSET];
    if (packet.size() >= DATA_OFFSET) {
        const size_t length = packet[LENGTH_OFFSET] + 256U * packet[LENGTH_OFFSET + 1];
        const size_t there = std::min(length, packet.size() - DATA_OFFSET);
        result.data.assign(packet.begin() + DATA_OFFSET,
                           packet.begin() + static_cast<long>(DATA_OFFSET + there));
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

std::string escaped(const std::string &text, bool keep_lines)
{
    std::string line;
    for (char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '\n' && !keep_lines)
            line += "\\n";
        else if ((byte < ' ' && character != '\n' && character != '\t') || byte == 0x7F) {
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02x", byte);
            line += code;
        } else
            line += character;
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
        return result.meaning.text;
    if (exchange.packet.size() < 7)
        return "(echo)";
    return result.data.empty() ? "(empty)" : escaped(without_last_line_feed(to_text(result.data)), false);
}

} // namespace station
