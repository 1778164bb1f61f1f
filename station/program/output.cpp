#include "station/program/output.h"

#include "station/catalogue/page.h"
#include "station/catalogue/suggest.h"
#include "station/client/errors.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace station
{

static const char *status_word(Verdict verdict)
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
    if (result.meaning.fields)
        json["decoded"] = *result.meaning.fields;
    json["response_size"] = exchange.packet.size();
    return json;
}

void flush_output()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        throw OutputError(std::string("cannot write the output: ") + std::strerror(errno));
}

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
        std::printf("%s\n", json.dump(JSON_INDENT).c_str());
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
        // A program gets the bytes as they came; a terminal would obey some of them.
        std::string plain = result.meaning.text.empty() ? without_last_line_feed(text) : result.meaning.text;
        if (isatty(STDOUT_FILENO))
            plain = escaped(plain, true);
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

void print_moved(std::FILE *out, const Settings &settings, const std::string &path, const Moved &moved)
{
    if (settings.json)
        std::fprintf(
            out, "%s\n",
            Json{{"path", path}, {"bytes", moved.bytes}, {"sha256", moved.digest}}.dump(JSON_INDENT).c_str());
    else
        std::fprintf(out, "%s: %zu bytes, SHA-256 %s\n", path.c_str(), moved.bytes, moved.digest.c_str());
}

static Json list_entry(const Command &command)
{
    Json entry{{"low", code_text(command.low)},        {"high", code_text(command.high)},
               {"handler", command.handler},           {"family", family_name(command.family)},
               {"summary", command.summary},           {"response_size", command.response_size},
               {"repeatable", command.safe_to_repeat}, {"names", Json::array()},
               {"arguments", Json::array()},           {"answers", Json::array()}};
    for (const Name &name : command.names)
        entry["names"].push_back(
            {{"code", code_text(name.code)}, {"name", name.name}, {"does", one_line(command, name)}});
    for (const Parameter &parameter : command.parameters) {
        Json argument{
            {"form", parameter.form}, {"meaning", parameter.meaning}, {"required", parameter.required}};
        if (parameter.standard)
            argument["default"] = parameter.standard;
        for (const Choice &choice : parameter.choices)
            argument["words"].push_back(
                {{"word", choice.word}, {"byte", choice.value}, {"meaning", choice.meaning}});
        entry["arguments"].push_back(std::move(argument));
    }
    for (const Answer &answer : command.answers) {
        const bool is_value = answer.fit == Answer::Fit::anything;
        entry["answers"].push_back({{is_value ? "value" : "text", answer.text},
                                    {"success", answer.success},
                                    {"meaning", answer.meaning}});
    }
    return entry;
}

void print_list(bool json)
{
    Json all = Json::array();
    size_t widest = 0;
    for (const std::string &name : command_names())
        widest = std::max(widest, name.size());
    for (const Command &command : catalogue()) {
        if (json)
            all.push_back(list_entry(command));
        else
            for (const Name &name : command.names)
                std::printf("%s  %-*s  %s\n", code_text(name.code).c_str(), static_cast<int>(widest),
                            name.name, one_line(command, name).c_str());
    }
    if (json)
        std::printf("%s\n", all.dump(JSON_INDENT).c_str());
    else
        std::printf("%zu commands with %zu codes; `station NAME --help` tells more of one\n",
                    catalogue().size(), command_names().size());
}

} // namespace station
