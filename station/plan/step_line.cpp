#include "station/plan/step_line.h"

#include "station/catalogue/suggest.h"
#include "station/client/errors.h"
#include "station/plan/inputs.h"
#include "station/plan/pattern.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <optional>

namespace station
{

static constexpr double SECONDS_MAX = 86400;
static constexpr const char *PLAN_WORDS[] = {"unit",  "wait",  "sleep",   "tell", "ask",
                                             "input", "phase", "include", "skip", "send"};
static constexpr const char *ELSEWHERE[] = {"push",    "pull",    "run",       "list", "line",
                                            "devices", "records", "reference", "page"};

bool begins_comment(const Word &word) { return !word.quoted && word.text[0] == '#'; }

std::string joined_from(const Words &words, size_t begin)
{
    std::string text;
    for (size_t at = begin; at < words.size(); at++)
        text += (at == begin ? "" : " ") + words[at].text;
    return text;
}

static double seconds_of(const std::string &text, const std::string &what)
{
    char *end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end || !std::isfinite(seconds) || seconds < 0 || seconds > SECONDS_MAX)
        throw UsageError(what + " takes a number of seconds, a day's at most");
    return seconds;
}

// What stands behind `within`: 2 s, 500 ms, 1 min.
static double scale_of(const Word &unit)
{
    return is(unit, "s") ? 1 : is(unit, "ms") ? 0.001 : is(unit, "min") ? 60 : 0;
}

// as "TEXT", within N s, stop: in this order, and nothing behind them.
static void parse_modifiers(const Words &words, size_t at, Step &step)
{
    if (at < words.size() && is(words[at], "as")) {
        if (at + 1 >= words.size() || !words[at + 1].quoted || words[at + 1].text.empty())
            throw UsageError("as takes a name in quotation marks");
        if (!words[at + 1].dollars.empty())
            throw UsageError("as: a step is called the same for every unit, and '" + words[at + 1].text +
                             "' would not be; in single quotes it is a text");
        step.title = words[at + 1].text;
        at += 2;
    }
    if (at < words.size() && is(words[at], "within")) {
        if (at + 2 >= words.size() || scale_of(words[at + 2]) == 0)
            throw UsageError("within takes a time such as 2 s, 500 ms or 1 min");
        step.within = seconds_of(words[at + 1].text, "within") * scale_of(words[at + 2]);
        if (step.within == 0)
            throw UsageError("within 0 s: nothing is as fast");
        at += 3;
    }
    if (at < words.size() && is(words[at], "stop")) {
        step.stops = true;
        at++;
    }
    if (at < words.size())
        throw UsageError(
            "'" + words[at].text +
            "' is not expected here; behind a step stand as \"TEXT\", within 2 s and stop, in this "
            "order");
}

// Where the modifiers begin behind a text that goes on to the end of its line. At least a word of it is text.
static size_t end_of_text(const Words &words, size_t begin)
{
    size_t end = words.size();
    for (;;) {
        if (end >= begin + 2 && is(words[end - 1], "stop"))
            end -= 1;
        else if (end >= begin + 4 && is(words[end - 3], "within") && scale_of(words[end - 1]) > 0)
            end -= 3;
        else if (end >= begin + 3 && is(words[end - 2], "as") && words[end - 1].quoted)
            end -= 2;
        else
            return end;
    }
}

static bool begins_unit(char byte)
{
    const auto value = static_cast<unsigned char>(byte);
    return std::isalpha(value) || byte == '%' || value >= 0x80;
}

static Decimal decimal_of(const std::string &text)
{
    const std::optional<Decimal> decimal = Decimal::parse(text);
    const size_t end = std::min(text.find_first_not_of("-.0123456789"), text.size());
    const std::string unit = text.substr(end);
    if (!decimal && Decimal::parse(text.substr(0, end)) && begins_unit(unit[0]) &&
        unit.find_first_of("0123456789") == std::string::npos)
        throw UsageError("'" + text + "': the unit stands behind a blank, as in 3..4 mV");
    if (!decimal)
        throw UsageError("'" + text +
                         "' is no limit; limits are LOW..HIGH, LOW.., ..HIGH or a value alone, in "
                         "digits such as -12.50");
    return *decimal;
}

// "in LOW..HIGH UNIT"; returns where what is behind it begins.
static size_t parse_limits(const Words &words, size_t at, Step &step)
{
    if (at + 1 >= words.size())
        throw UsageError("nothing stands behind in; limits are LOW..HIGH, LOW.., ..HIGH or a value alone");
    const std::string &range = words[at + 1].text;
    const size_t dots = range.find("..");
    step.has_limits = true;
    if (range.find("...") != std::string::npos)
        throw UsageError("in " + range + ": two dots part the limits, not three");
    if (dots == std::string::npos) {
        step.low = step.high = decimal_of(range);
    } else {
        if (dots > 0)
            step.low = decimal_of(range.substr(0, dots));
        if (dots + 2 < range.size())
            step.high = decimal_of(range.substr(dots + 2));
        if (!step.low && !step.high)
            throw UsageError("in ..: a limit without an end limits nothing");
        if (step.low && step.high && step.low->compare(*step.high) > 0)
            throw UsageError("in " + range + ": the low limit is above the high one");
    }
    at += 2;
    if (at == words.size() || is(words[at], "as") || is(words[at], "within") || is(words[at], "stop"))
        return at;
    step.unit = words[at].text;
    if (step.unit.compare(0, 2, "..") == 0 || Decimal::parse(step.unit))
        throw UsageError("in " + range + " " + step.unit + ": limits stand without blanks, such as 3..4");
    if (begins_comment(words[at]))
        throw UsageError("in " + range + " " + step.unit + ": this is no unit");
    return at + 1;
}

// Takes what stands behind "=>" or "=~", at `arrow`, and the modifiers behind that.
static void parse_expectation(const Words &words, size_t arrow, Step &step)
{
    if (arrow + 1 == words.size())
        throw UsageError("nothing stands behind " + words[arrow].text + "; \"\" is the empty text");
    const auto begin = words.begin() + static_cast<long>(arrow) + 1;
    const size_t end = end_of_text(words, arrow + 1);
    const Words text(begin, words.begin() + static_cast<long>(end));
    step.compares = step.kind == Step::Kind::request;
    step.is_pattern = words[arrow].text == "=~";
    step.expected = joined_from(text, 0);
    if (has_names(text))
        step.expected_words = text;
    if (step.is_pattern && step.expected_words.empty())
        check_pattern(step.expected);
    else if (step.is_pattern) {
        Inputs any;
        for (const Word &word : text)
            for (const size_t at : word.dollars)
                any[name_at(word.text, at)] = "x";
        check_pattern(filled_text(text, true, any));
    }
    parse_modifiers(words, end, step);
}

void parse_skip(const Words &words, Step &step)
{
    if (words.size() < 3)
        throw UsageError("skip takes a command's name and a reason");
    step.kind = Step::Kind::skip;
    step.request.name = words[1].text;
    step.request.command = find_command(words[1].text, step.request.code);
    if (!step.request.command)
        throw UsageError("'" + words[1].text + "' is no command" +
                         suggestion(words[1].text, command_names()));
    step.expected = joined_from(words, 2);
}

void parse_pause(const Words &words, Step &step)
{
    const std::string &name = words[0].text;
    step.kind = name == "wait" ? Step::Kind::wait : Step::Kind::sleep;
    step.seconds = seconds_of(words.size() > 1 ? words[1].text : "", name);
    step.request.name = name;
    step.request.words = words[1].text + " s";
    parse_modifiers(words, 2, step);
    if (step.within > 0)
        throw UsageError(name + " has a time of its own");
}

void parse_prompt(const Words &words, Step &step)
{
    const std::string &name = words[0].text;
    const bool is_input = name == "input";
    step.kind = is_input ? Step::Kind::input : name == "ask" ? Step::Kind::ask : Step::Kind::tell;
    const size_t at = is_input ? 2 : 1;
    const bool goes_on = words.size() > at + 1 && !words[at].quoted && !is(words[at + 1], "as") &&
                         !is(words[at + 1], "within") && !is(words[at + 1], "stop") &&
                         !is(words[at + 1], "=~");
    if (words.size() <= at || words[at].text.empty() || goes_on)
        throw UsageError(is_input ? "input takes a name and a text in quotation marks"
                                  : name + " takes a text in quotation marks");
    step.request.name = name;
    step.text = step.request.words = words[at].text;
    if (!words[at].dollars.empty())
        step.request_words = {words[at]};
    if (is_input) {
        step.input = words[1].text;
        if (name_at("$" + step.input, 0) != step.input || step.input.empty())
            throw UsageError("'" + step.input + "' is no name for an input; letters, digits and _ make one");
    }
    if (is_input && words.size() > at + 1 && is(words[at + 1], "=~"))
        parse_expectation(words, at + 1, step);
    else
        parse_modifiers(words, at + 1, step);
    if (step.title.empty() && !step.request_words.empty())
        step.title = step.text; // as it stands in the plan, for every unit
}

// Parses words as a request and keeps them where inputs are to be filled in. What is put in is not known
// here: any of some will do.
static void parse_request_of(const Words &words, const Settings &settings, Step &step)
{
    Settings own = settings;
    std::vector<std::string> texts;
    for (const Word &word : words)
        texts.push_back(word.text);
    if (!has_names(words)) {
        step.request = parse_request(texts, own, Place::script);
    } else {
        std::optional<UsageError> first;
        for (const char *any : {"", "1", "00"}) {
            std::vector<std::string> tried;
            for (const Word &word : words)
                tried.push_back(*any ? replaced(word, [&](const std::string &) { return any; }) : word.text);
            try {
                own = settings;
                step.request = parse_request(tried, own, Place::script);
                step.request_words = words;
                break;
            } catch (const UsageError &error) {
                if (!first)
                    first = error;
            }
        }
        if (step.request_words.empty())
            throw *first;
        step.request.words = joined_from(words, 1);
    }
    step.timeout = own.client.timeout;
    step.retries = own.client.retries;
}

static void check_name(const std::string &name)
{
    uint16_t code = 0;
    if (name == "send" || find_command(name, code))
        return;
    if (std::find(std::begin(ELSEWHERE), std::end(ELSEWHERE), name) != std::end(ELSEWHERE))
        throw UsageError(name + " stands on the command line, not in a plan");
    std::vector<std::string> known = command_names();
    known.insert(known.end(), std::begin(PLAN_WORDS), std::end(PLAN_WORDS));
    throw UsageError("'" + name + "' is no command; `station list` shows them all" + suggestion(name, known));
}

// A request's line. What is a whole request as it stands is that: an argument may be `stop`. Otherwise what
// belongs to the plan begins at the first of its words before which a whole request stands.
void parse_asking(const Words &words, const Settings &settings, Step &step)
{
    const auto arrow = std::find_if(words.begin(), words.end(),
                                    [](const Word &word) { return is(word, "=>") || is(word, "=~"); });
    const Words asked(words.begin(), arrow);
    if (arrow != words.end())
        parse_expectation(words, static_cast<size_t>(arrow - words.begin()), step);
    if (asked.empty())
        throw UsageError("no request");
    check_name(asked.front().text);
    std::optional<UsageError> first;
    try {
        parse_request_of(asked, settings, step);
        return;
    } catch (const UsageError &error) {
        first = error;
    }
    for (size_t at = 1; at < asked.size(); at++) {
        const Word &word = asked[at];
        if (!is(word, "in") && !is(word, "as") && !is(word, "within") && !is(word, "stop"))
            continue;
        try {
            parse_request_of({asked.begin(), asked.begin() + static_cast<long>(at)}, settings, step);
        } catch (const UsageError &) {
            continue;
        }
        if (arrow != words.end())
            throw UsageError(word.text == "in" ? "limits and an expected text: an answer is judged by one"
                                               : word.text + " stands behind what is expected");
        if (step.must_fail && word.text == "in")
            throw UsageError("a failure has no number to be judged");
        parse_modifiers(asked, word.text == "in" ? parse_limits(asked, at, step) : at, step);
        return;
    }
    throw *first;
}

} // namespace station
