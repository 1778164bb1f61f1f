#include "log_view.h"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace log_view
{

static constexpr std::string_view PRIORITIES = "VDIWEFS";
// "MM-DD HH:MM:SS.mmm  PID  TID P TAG     : text"
static constexpr size_t PRIORITY_COLUMN = 31, TAG_COLUMN = 33;

static Wanted parse_wanted(const std::string &text)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon + 2 != text.size() ||
        PRIORITIES.find(text[colon + 1]) == std::string_view::npos)
        return {text, PRIORITIES[0]};
    return {text.substr(0, colon), text[colon + 1]};
}

std::string parse(const std::vector<std::string> &words, View &view)
{
    std::vector<char *> arguments = {const_cast<char *>("logcat")};
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    const int count = static_cast<int>(arguments.size()) - 1;
    opterr = 0;
    optind = 1;
    bool tags_only = false;
    for (int option; (option = getopt(count, arguments.data(), "dcst:v:b:")) != -1;) {
        const std::string_view value = optarg ? optarg : "";
        switch (option) {
        case 'd':
            view.follow = false;
            break;
        case 'c':
            view.clear = true;
            break;
        case 's':
            tags_only = true;
            break;
        case 'v':
            view.layout = value;
            break;
        case 'b':
            break; // there is one buffer
        case 't':
            view.follow = false;
            if (const auto parsed = std::from_chars(value.begin(), value.end(), view.last);
                parsed.ec != std::errc() || parsed.ptr != value.end())
                return "not a number of lines: " + std::string(value);
            break;
        default:
            return "unknown, or without its value: -" + std::string(1, static_cast<char>(optopt));
        }
    }
    for (int i = optind; i < count; ++i) {
        view.wanted.push_back(parse_wanted(arguments[static_cast<size_t>(i)]));
        view.silent = view.silent || (view.wanted.back().tag == "*" && view.wanted.back().priority == 'S');
    }
    view.silent = view.silent || tags_only;
    return tags_only && view.wanted.empty() ? "-s needs a tag" : "";
}

static bool is_wanted(const View &view, std::string_view line)
{
    if (!view.silent)
        return true;
    if (line.size() <= TAG_COLUMN)
        return false;
    const std::string_view behind = line.substr(TAG_COLUMN);
    const std::string_view padded = behind.substr(0, behind.find(": "));
    const std::string_view tag = padded.substr(0, padded.find_last_not_of(' ') + 1);
    return std::any_of(view.wanted.begin(), view.wanted.end(), [&](const Wanted &one) {
        return (one.tag == tag || one.tag == "*") &&
               PRIORITIES.find(line[PRIORITY_COLUMN]) >= PRIORITIES.find(one.priority);
    });
}

bool print_lines(const View &view, std::string &text, size_t last,
                 const std::function<std::string(std::string_view)> &shown)
{
    std::vector<std::string_view> lines;
    const std::string_view all = text;
    size_t at = 0;
    for (size_t end; (end = all.find('\n', at)) != std::string_view::npos; at = end + 1)
        if (const auto line = all.substr(at, end - at); is_wanted(view, line))
            lines.push_back(line);
    for (size_t i = lines.size() - std::min(last, lines.size()); i < lines.size(); ++i) {
        const std::string line = shown(lines[i]) + "\n";
        fwrite(line.data(), 1, line.size(), stdout);
    }
    text.erase(0, at);
    return fflush(stdout) == 0;
}

} // namespace log_view
