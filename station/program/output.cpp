#include "station/program/output.h"

#include <cstdio>

namespace station
{
namespace
{

using Json = nlohmann::ordered_json;

const char *status_word(Verdict verdict)
{
    switch (verdict) {
    case SUCCESS:
        return "success";
    case FAILURE:
        return "failure";
    case REFUSED:
        return "refused";
    default:
        return "no answer";
    }
}

} // namespace

Json to_json(const Request &request, const Exchange &exchange, const Result &result)
{
    Json json;
    json["code"] = code_text(request.code);
    json["name"] = request.name;
    json["request"] = request.words;
    json["status"] = status_word(result.verdict);
    json["milliseconds"] = exchange.milliseconds;
    json["attempts"] = exchange.attempts;
    json["skipped"] = exchange.skipped;
    if (exchange.outcome != Outcome::answer) {
        json["problem"] = exchange.problem;
        return json;
    }
    json["byte4"] = result.selector;
    json["length"] = result.data.size();
    json["text"] = to_text(result.data);
    json["hex"] = to_hex(result.data);
    json["meaning"] = result.meaning.text.empty() ? std::string(result.word) : result.meaning.text;
    if (!result.meaning.fields.empty())
        json["decoded"] = Json::parse(result.meaning.fields);
    json["response_size"] = exchange.packet.size();
    return json;
}

std::string dump(const Json &json) { return json.dump(2, ' ', false, Json::error_handler_t::replace); }

std::string milliseconds_text(double milliseconds)
{
    char text[32];
    std::snprintf(text, sizeof text,
                  milliseconds < 10    ? "%.2f"
                  : milliseconds < 100 ? "%.1f"
                                       : "%.0f",
                  milliseconds);
    return text;
}

void print_result(const Settings &settings, const Request &request, const Exchange &exchange,
                  const Result &result)
{
    if (settings.json) {
        Json json = to_json(request, exchange, result);
        if (settings.raw_hex)
            json["packet"] = to_hex(exchange.packet);
        std::printf("%s\n", dump(json).c_str());
        return;
    }
    const std::string head = code_text(request.code) + " " + request.name;
    if (exchange.outcome != Outcome::answer) {
        std::fprintf(stderr, "station: %s: %s\n", head.c_str(), exchange.problem.c_str());
        return;
    }
    if (settings.raw_hex) {
        std::printf("%s\n", to_hex(exchange.packet).c_str());
        return;
    }
    const std::string text = to_text(result.data);
    if (settings.plain) {
        const std::string plain =
            result.meaning.text.empty() ? without_last_line_feed(text) : result.meaning.text;
        std::fwrite(plain.data(), 1, plain.size(), stdout);
        std::putchar('\n');
        return;
    }
    const std::string time = "  (" + milliseconds_text(exchange.milliseconds) + " ms)";
    if (result.meaning.text.empty() && without_last_line_feed(text).find('\n') != std::string::npos) {
        std::printf("%s:%s\n%s\n", head.c_str(), time.c_str(),
                    escaped(without_last_line_feed(text), true).c_str());
        return;
    }
    std::string line = head + ": " + answer_line(exchange, result);
    // A word needs its meaning said; a value is one.
    const bool speaks_for_itself =
        !result.meaning.text.empty() || (result.verdict == SUCCESS && !text.empty() && text != "OK");
    if (!speaks_for_itself && *result.word)
        line += std::string(" - ") + result.word;
    std::printf("%s%s\n", line.c_str(), time.c_str());
}

void print_list(bool json)
{
    Json all = Json::array();
    for (const Command &command : catalogue()) {
        if (json) {
            Json entry{{"low", code_text(command.low)},
                       {"high", code_text(command.high)},
                       {"handler", command.handler},
                       {"family", family_name(command.family)},
                       {"response_size", command.response_size},
                       {"repeatable", command.safe_to_repeat},
                       {"names", Json::array()}};
            for (const Name &name : command.names)
                entry["names"].push_back({{"code", code_text(name.code)}, {"name", name.name}});
            all.push_back(std::move(entry));
            continue;
        }
        std::string names, code = code_text(command.low);
        if (command.is_range())
            code += "-" + code_text(command.high);
        for (const Name &name : command.names)
            names += (names.empty() ? "" : ", ") + std::string(name.name);
        std::printf("%-13s  %-16s  %-36s  %s\n", code.c_str(), family_name(command.family), command.handler,
                    names.c_str());
    }
    if (json)
        std::printf("%s\n", dump(all).c_str());
    else
        std::printf("%zu commands\n", catalogue().size());
}

} // namespace station
