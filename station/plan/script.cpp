#include "station/plan/script.h"

#include "station/catalogue/suggest.h"
#include "station/client/errors.h"

#include <algorithm>
#include <cmath>
#include <re2/re2.h>
#include <sstream>

namespace station
{

const char script_help[] =
    "A script's lines; the connection is made anew when the phone went away in between:\n"
    "\n"
    "  get-prop ro.build.id                a request as on the command line; must succeed\n"
    "  ! get-prop no.such.property         must be answered with a failure\n"
    "  ? shell \"kill -9 1234\"              may come to anything, silence included\n"
    "  get-prop ro.bootmode => ffbm-01     must be answered with this: the text, or what it means (128 GiB)\n"
    "  shell-output \"date +%Y\" =~ ^20..$   must be answered with a text in which this pattern is found\n"
    "  wait 30                             waits until the port answers, for 30 s at most; behind a restart "
    "it first\n"
    "                                      waits until the phone has gone down\n"
    "  sleep 0.5                           just waits\n"
    "  skip NAME REASON                    tells why a request's success cannot be seen here; `! skip` its "
    "failure\n"
    "  # a comment\n"
    "\n"
    "A request's line may have its own --timeout and --retries. All mistakes of a script are told, with "
    "their "
    "lines,\n"
    "before anything is sent.";

const char *left_out(const Step &step) { return step.must_fail ? "failure" : "success"; }

static constexpr double SECONDS_MAX = 86400;
static constexpr char BYTE_ORDER_MARK[] = "\xEF\xBB\xBF";

static double seconds_of(const std::vector<std::string> &words)
{
    char *end = nullptr;
    const double seconds = words.size() == 2 ? std::strtod(words[1].c_str(), &end) : -1;
    if (!end || *end || !std::isfinite(seconds) || seconds < 0 || seconds > SECONDS_MAX)
        throw UsageError(words[0] + " takes a number of seconds, a day's at most");
    return seconds;
}

// Linear in the answer's length, whatever the pattern; answers are bytes, not always characters.
static RE2::Options pattern_options()
{
    RE2::Options options(RE2::Latin1);
    options.set_log_errors(false);
    return options;
}

bool matches(const Step &step, const std::string &text)
{
    return RE2::PartialMatch(text, RE2(step.expected, pattern_options()));
}

static std::string joined(std::vector<std::string>::const_iterator word,
                          std::vector<std::string>::const_iterator end)
{
    std::string text;
    for (bool is_first = true; word != end; ++word, is_first = false)
        text += (is_first ? "" : " ") + *word;
    return text;
}

// Takes what stands behind "=>" or "=~" off the words.
static void parse_expectation(std::vector<std::string> &words, Step &step)
{
    const auto arrow = std::find_if(words.begin(), words.end(),
                                    [](const std::string &word) { return word == "=>" || word == "=~"; });
    if (arrow == words.end())
        return;
    if (arrow + 1 == words.end())
        throw UsageError("nothing stands behind " + *arrow + "; \"\" is the empty text");
    step.compares = true;
    step.is_pattern = *arrow == "=~";
    step.expected = joined(arrow + 1, words.end());
    const RE2 pattern(step.is_pattern ? step.expected : "", pattern_options());
    if (!pattern.ok())
        throw UsageError("'" + step.expected + "' is no pattern: " + pattern.error());
    words.erase(arrow, words.end());
}

static void parse_skip(const std::vector<std::string> &words, Step &step)
{
    if (words.size() < 3)
        throw UsageError("skip takes a command's name and a reason");
    step.kind = Step::Kind::skip;
    step.request.name = words[1];
    step.request.command = find_command(words[1], step.request.code);
    if (!step.request.command)
        throw UsageError("'" + words[1] + "' is no command" + suggestion(words[1], command_names()));
    step.expected = joined(words.begin() + 2, words.end());
}

static Step parse_step(std::string text, const Settings &settings)
{
    Step step;
    const char mark = text[0] == '!' || text[0] == '?' ? text[0] : '\0';
    step.must_fail = mark == '!';
    step.may_fail = mark == '?';
    std::vector<std::string> words = split_words(text.substr(mark ? 1 : 0));
    if (!words.empty() && words[0] == "skip") {
        if (step.may_fail)
            throw UsageError("skip tells of a success, `! skip` of a failure");
        parse_skip(words, step);
        return step;
    }
    parse_expectation(words, step);
    if (words.empty())
        throw UsageError("no request");
    if (words[0] == "wait" || words[0] == "sleep") {
        if (mark || step.compares)
            throw UsageError(words[0] + " has no answer to be judged");
        step.kind = words[0] == "wait" ? Step::Kind::wait : Step::Kind::sleep;
        step.seconds = seconds_of(words);
        step.request.name = words[0];
        step.request.words = words[1] + " s";
        return step;
    }
    Settings own = settings;
    step.request = parse_request(words, own, Place::script);
    step.timeout = own.client.timeout;
    step.retries = own.client.retries;
    return step;
}

static void tell(std::string &mistakes, const std::string &path, int line, const std::string &what)
{
    mistakes += (mistakes.empty() ? "" : "\n") + path + ":" + std::to_string(line) + ": " + what;
}

std::vector<Step> parse_script(const std::string &path, const Settings &settings)
{
    std::string text = to_text(read_whole_file(path));
    if (text.compare(0, 3, BYTE_ORDER_MARK) == 0)
        text.erase(0, 3);
    std::vector<Step> steps;
    std::string mistakes;
    bool does_something = false;
    int number = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        number++;
        const size_t begin = line.find_first_not_of(" \t\r");
        if (begin == std::string::npos || line[begin] == '#')
            continue;
        const auto mistake = [&](const std::string &what) { tell(mistakes, path, number, what); };
        try {
            steps.push_back(parse_step(line.substr(begin), settings));
            steps.back().line = number;
            does_something = does_something || steps.back().kind != Step::Kind::sleep;
        } catch (const HelpAsked &) {
            mistake("a script asks for no help");
        } catch (const std::exception &error) {
            mistake(error.what());
        }
    }
    if (mistakes.empty() && !does_something)
        mistakes = path + ": no line of it asks anything";
    if (!mistakes.empty())
        throw UsageError(mistakes);
    return steps;
}

} // namespace station
