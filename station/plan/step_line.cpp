#include "station/plan/step_line.h"

#include "station/catalogue/suggest.h"
#include "station/client/errors.h"
#include "station/plan/inputs.h"
#include "station/plan/pattern.h"

#include <algorithm>
#include <cctype>
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

std::string joined(const Words &words)
{
    std::string text;
    for (const Word &word : words)
        text += (&word == &words.front() ? "" : " ") + word.text;
    return text;
}

Word take(Words &words)
{
    if (words.empty())
        return {};
    Word first = words.front();
    words.erase(words.begin());
    return first;
}

static bool begin_with(const Words &words, const char *text)
{
    return !words.empty() && is(words.front(), text);
}

static bool takes(Words &words, const char *text)
{
    const bool is_here = begin_with(words, text);
    if (is_here)
        take(words);
    return is_here;
}

static double seconds_of(const std::string &text, const std::string &what)
{
    char *end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end || !(seconds >= 0 && seconds <= SECONDS_MAX))
        throw UsageError(what + " takes a number of seconds, a day's at most");
    return seconds;
}

// What stands behind `within`: 2 s, 500 ms, 1 min.
static double scale_of(const Word &unit)
{
    return is(unit, "s") ? 1 : is(unit, "ms") ? 0.001 : is(unit, "min") ? 60 : 0;
}

static bool begins_modifier(const Word &word)
{
    return is(word, "as") || is(word, "within") || is(word, "stop");
}

// as "TEXT", within N s, stop: in this order, and nothing behind them.
static void parse_modifiers(Words &words, Step &step)
{
    if (takes(words, "as")) {
        const Word name = take(words);
        if (!name.quoted || name.text.empty())
            throw UsageError("as takes a name in quotation marks");
        if (!name.dollars.empty())
            throw UsageError("as: a step is called the same for every unit, and '" + name.text +
                             "' would not be; in single quotes it is a text");
        step.title = name.text;
    }
    if (takes(words, "within")) {
        const std::string number = take(words).text;
        const double scale = scale_of(take(words));
        if (scale == 0)
            throw UsageError("within takes a time such as 2 s, 500 ms or 1 min");
        step.within = seconds_of(number, "within") * scale;
        if (step.within == 0)
            throw UsageError("within 0 s: nothing is as fast");
    }
    step.stops = takes(words, "stop");
    if (!words.empty())
        throw UsageError(
            "'" + words.front().text +
            "' is not expected here; behind a step stand as \"TEXT\", within 2 s and stop, in this "
            "order");
}

// How many words of a modifier end these, of which at least one is none of it.
static size_t words_of_modifier(const Words &words)
{
    const auto last = [&](size_t nth) { return nth < words.size() ? words[words.size() - nth] : Word{}; };
    if (is(last(1), "stop"))
        return 1;
    if (is(last(2), "as") && last(1).quoted)
        return 2;
    return is(last(3), "within") && scale_of(last(1)) > 0 ? 3 : 0;
}

// Takes a text that goes on to the modifiers at the end of its line. At least a word of it is text.
static Words take_text(Words &words)
{
    Words text = words;
    while (const size_t count = words_of_modifier(text))
        text.resize(text.size() - count);
    words.erase(words.begin(), words.begin() + static_cast<long>(text.size()));
    return text;
}

static bool begins_unit(char byte)
{
    const auto value = static_cast<unsigned char>(byte);
    return std::isalpha(value) || byte == '%' || value >= 0x80;
}

static Decimal decimal_of(const std::string &text)
{
    if (const std::optional<Decimal> decimal = Decimal::parse(text))
        return *decimal;
    const size_t end = std::min(text.find_first_not_of("-.0123456789"), text.size());
    const std::string unit = text.substr(end);
    if (Decimal::parse(text.substr(0, end)) && begins_unit(unit[0]) &&
        unit.find_first_of("0123456789") == std::string::npos)
        throw UsageError("'" + text + "': the unit stands behind a blank, as in 3..4 mV");
    throw UsageError("'" + text +
                     "' is no limit; limits are LOW..HIGH, LOW.., ..HIGH or a value alone, in "
                     "digits such as -12.50");
}

// What stands behind `in`: LOW..HIGH UNIT.
static void take_limits(Words &words, Step &step)
{
    if (words.empty())
        throw UsageError("nothing stands behind in; limits are LOW..HIGH, LOW.., ..HIGH or a value alone");
    const std::string range = take(words).text;
    const size_t dots = range.find("..");
    step.has_limits = true;
    if (range.find("...") != std::string::npos)
        throw UsageError("in " + range + ": two dots part the limits, not three");
    if (dots == std::string::npos) {
        step.low = step.high = decimal_of(range);
    } else {
        const std::string low = range.substr(0, dots), high = range.substr(dots + 2);
        if (low.empty() && high.empty())
            throw UsageError("in ..: a limit without an end limits nothing");
        if (!low.empty())
            step.low = decimal_of(low);
        if (!high.empty())
            step.high = decimal_of(high);
        if (step.low && step.high && *step.high < *step.low)
            throw UsageError("in " + range + ": the low limit is above the high one");
    }
    if (words.empty() || begins_modifier(words.front()))
        return;
    const Word unit = take(words);
    step.unit = unit.text;
    if (step.unit.compare(0, 2, "..") == 0 || Decimal::parse(step.unit))
        throw UsageError("in " + range + " " + step.unit + ": limits stand without blanks, such as 3..4");
    if (begins_comment(unit))
        throw UsageError("in " + range + " " + step.unit + ": this is no unit");
}

// "=>" or "=~", what stands behind it, and the modifiers behind that.
static void parse_expectation(Words &words, Step &step)
{
    const Word arrow = take(words);
    if (words.empty())
        throw UsageError("nothing stands behind " + arrow.text + "; \"\" is the empty text");
    const Words text = take_text(words);
    step.compares = step.kind == Step::Kind::request;
    step.is_pattern = arrow.text == "=~";
    step.expected = joined(text);
    if (has_names(text))
        step.expected_words = text;
    if (step.is_pattern) {
        Words some = text;
        for (Word &word : some)
            word.text = replaced(word, [](const std::string &) { return "x"; });
        check_pattern(joined(some));
    }
    parse_modifiers(words, step);
}

void parse_skip(Words &words, Step &step)
{
    take(words);
    const std::string name = take(words).text;
    if (words.empty())
        throw UsageError("skip takes a command's name and a reason");
    step.kind = Step::Kind::skip;
    step.request.name = name;
    step.request.command = find_command(name, step.request.code);
    if (!step.request.command)
        throw UsageError("'" + name + "' is no command" + suggestion(name, command_names()));
    step.expected = joined(words);
}

void parse_pause(Words &words, Step &step)
{
    const std::string name = take(words).text;
    const std::string time = take(words).text;
    step.kind = name == "wait" ? Step::Kind::wait : Step::Kind::sleep;
    step.seconds = seconds_of(time, name);
    step.request.name = name;
    step.request.words = time + " s";
    parse_modifiers(words, step);
    if (step.within)
        throw UsageError(name + " has a time of its own");
}

void parse_prompt(Words &words, Step &step)
{
    const std::string name = take(words).text;
    const bool is_input = name == "input";
    step.kind = is_input ? Step::Kind::input : name == "ask" ? Step::Kind::ask : Step::Kind::tell;
    if (is_input)
        step.input = take(words).text;
    const Word text = take(words);
    const bool has_pattern = begin_with(words, "=~");
    const bool goes_on = !text.quoted && !words.empty() && !has_pattern && !begins_modifier(words.front());
    if (text.text.empty() || goes_on)
        throw UsageError(is_input ? "input takes a name and a text in quotation marks"
                                  : name + " takes a text in quotation marks");
    step.request.name = name;
    step.text = step.request.words = text.text;
    if (!text.dollars.empty())
        step.request_words = {text};
    if (is_input && (step.input.empty() || name_at("$" + step.input, 0) != step.input))
        throw UsageError("'" + step.input + "' is no name for an input; letters, digits and _ make one");
    if (is_input && has_pattern)
        parse_expectation(words, step);
    else
        parse_modifiers(words, step);
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
        Words arguments = words;
        take(arguments);
        step.request.words = joined(arguments);
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
    Words expected(arrow, words.end());
    if (!expected.empty())
        parse_expectation(expected, step);
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
    for (auto at = asked.begin(); at != asked.end(); ++at) {
        const std::string &word = at->text;
        if (!is(*at, "in") && !begins_modifier(*at))
            continue;
        try {
            parse_request_of({asked.begin(), at}, settings, step);
        } catch (const UsageError &) {
            continue;
        }
        if (arrow != words.end())
            throw UsageError(word == "in" ? "limits and an expected text: an answer is judged by one"
                                          : word + " stands behind what is expected");
        if (step.must_fail && word == "in")
            throw UsageError("a failure has no number to be judged");
        Words behind(at, asked.end());
        if (takes(behind, "in"))
            take_limits(behind, step);
        parse_modifiers(behind, step);
        return;
    }
    throw *first;
}

} // namespace station
