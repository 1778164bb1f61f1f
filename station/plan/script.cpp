#include "station/plan/script.h"

#include "station/catalogue/suggest.h"
#include "station/client/errors.h"
#include "station/client/files.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <re2/re2.h>
#include <sstream>

namespace station
{

const char script_help[] =
    "A plan's lines; the connection is made anew when the phone went away in between:\n"
    "\n"
    "  get-prop ro.build.id                a request as on the command line; must succeed\n"
    "  ! get-prop no.such.property         must be answered with a failure\n"
    "  ? shell \"kill -9 1234\"              may come to anything, silence included\n"
    "  get-prop ro.bootmode => ffbm-01     must be answered with this: the text, or what it means (128 GiB)\n"
    "  shell-output \"date +%Y\" =~ ^20..$   must be answered with a text in which this pattern is found\n"
    "  battery-voltage in 3600000..4400000 uV\n"
    "                                      must be answered with a number within these limits; ..HIGH, "
    "LOW..\n"
    "                                      and a value alone are limits, too\n"
    "  unit usb-serial                     a request whose answer names the unit under test\n"
    "  wait 30                             waits until the port answers, for 30 s at most; behind a restart "
    "it first\n"
    "                                      waits until the phone has gone down\n"
    "  sleep 0.5                           just waits\n"
    "  tell \"Pull the USB cable\"           for people: something to do,\n"
    "  ask \"Is the panel red?\"             a question whose answer must be yes,\n"
    "  input SERIAL \"Scan it\" =~ ^CV.{8}$  something to put in; $SERIAL stands for it in later lines\n"
    "  phase NAME                          the steps behind it belong together; those of `phase always` are "
    "played\n"
    "                                      at the end, whatever came before\n"
    "  include FILE                        the lines of another plan, its path seen from this one\n"
    "  skip NAME REASON                    tells why a request's success cannot be seen here; `! skip` its "
    "failure\n"
    "  # a comment\n"
    "\n"
    "Behind a step, in this order: as \"TEXT\" names it, within 2 s limits its time, stop ends the unit when "
    "it fails.\n"
    "A request's line may have its own --timeout and --retries. All mistakes of a plan are told, with their "
    "lines,\n"
    "before anything is sent. docs/plans.md has the whole language.";

static constexpr double SECONDS_MAX = 86400;
static constexpr size_t STEPS_MAX = 100000; // files that include each other without a loop double fast
static constexpr char BYTE_ORDER_MARK[] = "\xEF\xBB\xBF";
static constexpr char ALWAYS[] = "always";

using Words = std::vector<Word>;

const char *left_out(const Step &step) { return step.must_fail ? "failure" : "success"; }

const std::string &Step::name() const { return !title.empty() ? title : !text.empty() ? text : request.name; }

static std::string limits_text(const Step &step)
{
    const std::string low = step.low ? step.low->text() : "", high = step.high ? step.high->text() : "";
    return (!low.empty() && low == high ? low : low + ".." + high) +
           (step.unit.empty() ? "" : " " + step.unit);
}

std::string Step::wanted() const
{
    std::string text_wanted = must_fail ? "a failure" : "";
    if (compares)
        text_wanted += (text_wanted.empty() ? "" : ": ") + std::string(is_pattern ? "like " : "") + expected;
    if (has_limits)
        text_wanted = "in " + limits_text(*this);
    if (text_wanted.empty())
        text_wanted = "a success";
    char time[32] = "";
    if (within > 0)
        std::snprintf(time, sizeof time, ", within %g s", within);
    return text_wanted + time;
}

static double seconds_of(const std::string &text, const std::string &what)
{
    char *end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end || !std::isfinite(seconds) || seconds < 0 || seconds > SECONDS_MAX)
        throw UsageError(what + " takes a number of seconds, a day's at most");
    return seconds;
}

// Linear in the answer's length, whatever the pattern; answers are bytes, not always characters.
static RE2::Options pattern_options()
{
    RE2::Options options(RE2::Latin1);
    options.set_log_errors(false);
    return options;
}

bool matches(const std::string &pattern, const std::string &text)
{
    return RE2::PartialMatch(text, RE2(pattern, pattern_options()));
}

static void check_pattern(const std::string &text)
{
    const RE2 pattern(text, pattern_options());
    if (!pattern.ok())
        throw UsageError("'" + text + "' is no pattern: " + pattern.error());
}

static std::string joined(Words::const_iterator word, Words::const_iterator end)
{
    std::string text;
    for (bool is_first = true; word != end; ++word, is_first = false)
        text += (is_first ? "" : " ") + word->text;
    return text;
}

// A word of the plan's language; what stands in quotes is text.
static bool is(const Word &word, const char *text) { return !word.quoted && word.text == text; }

// ---- $NAME

// The name behind the '$' at `at`; empty when there is none.
static std::string name_at(const std::string &text, size_t at)
{
    size_t end = at + 1;
    while (end < text.size() && (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_'))
        end++;
    const std::string name = text.substr(at + 1, end - at - 1);
    return name.empty() || std::isdigit(static_cast<unsigned char>(name[0])) ? "" : name;
}

template <typename Value> static std::string replaced(const Word &word, Value &&value)
{
    std::string text;
    size_t done = 0;
    for (const size_t at : word.dollars) {
        const std::string name = name_at(word.text, at);
        text += word.text.substr(done, at - done) + value(name);
        done = at + 1 + name.size();
    }
    return text + word.text.substr(done);
}

static bool has_names(const Words &words)
{
    return std::any_of(words.begin(), words.end(), [](const Word &word) { return !word.dollars.empty(); });
}

static std::string joined_pattern(const Words &words, bool is_pattern, const Inputs &inputs)
{
    std::string text;
    for (const Word &word : words)
        text += (&word == &words.front() ? "" : " ") + replaced(word, [&](const std::string &name) {
                    const auto found = inputs.find(name);
                    if (found == inputs.end())
                        throw UsageError("$" + name + " was not put in");
                    return is_pattern ? RE2::QuoteMeta(found->second) : found->second;
                });
    return text;
}

// An input is a word's bytes: it is no option of the request, whatever it begins with.
static std::vector<std::string> filled_words(const Words &words, const Inputs &inputs)
{
    std::vector<std::string> texts;
    for (const Word &word : words) {
        texts.push_back(joined_pattern({word}, false, inputs));
        if (texts.back()[0] == '-' && word.text[0] != '-')
            throw UsageError("'" + texts.back() + "' begins with '-' and would be an option of the request");
    }
    return texts;
}

Step filled(const Step &step, const Inputs &inputs)
{
    Step full = step;
    if (!step.request_words.empty() && step.kind == Step::Kind::request) {
        Settings unused;
        full.request = parse_request(filled_words(step.request_words, inputs), unused, Place::script);
    } else if (!step.request_words.empty()) {
        full.text = full.request.words = joined_pattern(step.request_words, false, inputs);
    }
    if (!step.expected_words.empty())
        full.expected = joined_pattern(step.expected_words, step.is_pattern, inputs);
    return full;
}

// ---- One line

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

static Decimal decimal_of(const std::string &text)
{
    const std::optional<Decimal> decimal = Decimal::parse(text);
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
    if (at < words.size() && !is(words[at], "as") && !is(words[at], "within") && !is(words[at], "stop"))
        step.unit = words[at++].text;
    return at;
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
    step.expected = joined(text.begin(), text.end());
    if (has_names(text))
        step.expected_words = text;
    if (step.is_pattern && step.expected_words.empty())
        check_pattern(step.expected);
    else if (step.is_pattern) {
        Inputs any;
        for (const Word &word : text)
            for (const size_t at : word.dollars)
                any[name_at(word.text, at)] = "x";
        check_pattern(joined_pattern(text, true, any));
    }
    parse_modifiers(words, end, step);
}

static void parse_skip(const Words &words, Step &step)
{
    if (words.size() < 3)
        throw UsageError("skip takes a command's name and a reason");
    step.kind = Step::Kind::skip;
    step.request.name = words[1].text;
    step.request.command = find_command(words[1].text, step.request.code);
    if (!step.request.command)
        throw UsageError("'" + words[1].text + "' is no command" +
                         suggestion(words[1].text, command_names()));
    step.expected = joined(words.begin() + 2, words.end());
}

static void parse_pause(const Words &words, Step &step)
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

static void parse_prompt(const Words &words, Step &step)
{
    const std::string &name = words[0].text;
    const bool is_input = name == "input";
    step.kind = is_input ? Step::Kind::input : name == "ask" ? Step::Kind::ask : Step::Kind::tell;
    const size_t at = is_input ? 2 : 1;
    if (words.size() <= at || words[at].text.empty())
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
        step.request.words = joined(words.begin() + 1, words.end());
    }
    step.timeout = own.client.timeout;
    step.retries = own.client.retries;
}

// A request's line. What is a whole request as it stands is that: an argument may be `stop`. Otherwise what
// belongs to the plan begins at the first of its words before which a whole request stands.
static void parse_asking(const Words &words, const Settings &settings, Step &step)
{
    const auto arrow = std::find_if(words.begin(), words.end(),
                                    [](const Word &word) { return is(word, "=>") || is(word, "=~"); });
    const Words asked(words.begin(), arrow);
    if (arrow != words.end())
        parse_expectation(words, static_cast<size_t>(arrow - words.begin()), step);
    if (asked.empty())
        throw UsageError("no request");
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

// ---- Files

namespace
{

class Reader
{
  public:
    explicit Reader(const Settings &settings) : settings_(settings) {}

    void read(const std::string &path)
    {
        char real[PATH_MAX];
        const std::string identity = path != "-" && realpath(path.c_str(), real) ? real : path;
        if (std::find(open_.begin(), open_.end(), identity) != open_.end())
            throw UsageError("include " + path + ": this file includes itself, by itself or by others");
        const Bytes content = read_whole_file(path);
        read_.insert(read_.end(), content.begin(), content.end());
        std::string text = to_text(content);
        if (text.compare(0, 3, BYTE_ORDER_MARK) == 0)
            text.erase(0, 3);
        open_.push_back(identity);
        const std::string phase = phase_;
        int number = 0;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line) && plan_.steps.size() < STEPS_MAX;) {
            number++;
            const size_t begin = line.find_first_not_of(" \t\r");
            if (begin != std::string::npos && line[begin] != '#')
                read_line(path, number, line.substr(begin));
        }
        phase_ = phase;
        open_.pop_back();
    }

    Plan plan(const std::string &path)
    {
        check_names();
        if (plan_.steps.size() >= STEPS_MAX)
            mistake(path, 0, "more than " + std::to_string(STEPS_MAX) + " steps");
        const bool does_something = std::any_of(plan_.steps.begin(), plan_.steps.end(), [](const Step &step) {
            return step.kind != Step::Kind::sleep;
        });
        if (mistakes_.empty() && !does_something)
            mistakes_ = path + ": no line of it asks anything";
        if (!mistakes_.empty())
            throw UsageError(mistakes_);
        std::stable_partition(plan_.steps.begin(), plan_.steps.end(),
                              [](const Step &step) { return !step.always; });
        plan_.path = path;
        plan_.name = path.substr(path.rfind('/') + 1);
        plan_.digest = digest(read_);
        return std::move(plan_);
    }

  private:
    struct Use {
        std::string name, file;
        int line;
        bool is_word; // that is nothing else
    };

    void mistake(const std::string &path, int line, const std::string &what)
    {
        mistakes_ += (mistakes_.empty() ? "" : "\n") + path + ":" +
                     (line > 0 ? std::to_string(line) + ": " : " ") + what;
    }

    void read_line(const std::string &path, int number, const std::string &line)
    {
        try {
            Step step;
            step.file = path;
            step.line = number;
            step.phase = phase_;
            step.always = phase_ == ALWAYS;
            if (parse_line(line, step))
                plan_.steps.push_back(std::move(step));
        } catch (const HelpAsked &) {
            mistake(path, number, "a plan asks for no help");
        } catch (const std::exception &error) {
            mistake(path, number, error.what());
        }
    }

    // Whether it is a step.
    bool parse_line(const std::string &line, Step &step)
    {
        if (line.find('\0') != std::string::npos)
            throw UsageError("a byte 0 stands in the line");
        const char mark = line[0] == '!' || line[0] == '?' ? line[0] : '\0';
        step.must_fail = mark == '!';
        step.may_fail = mark == '?';
        Words words = split_line(line.substr(mark ? 1 : 0));
        if (words.empty())
            throw UsageError("no request");
        const Word first = words[0];
        const auto unmarked = [&] {
            if (mark)
                throw UsageError(first.text + " has no answer to be judged");
            return true;
        };
        if (is(first, "skip")) {
            if (step.may_fail)
                throw UsageError("skip tells of a success, `! skip` of a failure");
            parse_skip(words, step);
            return true;
        }
        if (is(first, "phase") && unmarked()) {
            phase_ = joined(words.begin() + 1, words.end());
            if (phase_.empty())
                throw UsageError("phase takes a name");
            return false;
        }
        if (is(first, "include") && unmarked()) {
            if (words.size() != 2)
                throw UsageError("include takes a file");
            const size_t slash = step.file.rfind('/');
            const bool is_absolute = words[1].text.compare(0, 1, "/") == 0;
            read((slash == std::string::npos || is_absolute ? "" : step.file.substr(0, slash + 1)) +
                 words[1].text);
            return false;
        }
        take_names(words, step);
        if ((is(first, "wait") || is(first, "sleep")) && unmarked())
            parse_pause(words, step);
        else if ((is(first, "tell") || is(first, "ask") || is(first, "input")) && unmarked())
            parse_prompt(words, step);
        else if (is(first, "unit"))
            parse_unit(words, step);
        else
            parse_asking(words, settings_, step);
        if (step.kind == Step::Kind::input && !inputs_.insert({step.input, ""}).second)
            throw UsageError("$" + step.input + " is put in before already");
        return true;
    }

    void parse_unit(Words &words, Step &step)
    {
        if (has_unit_)
            throw UsageError("unit stands in a plan once");
        if (step.always)
            throw UsageError("unit stands before `phase always`: what is tested has to be known before");
        has_unit_ = true;
        words.erase(words.begin());
        step.names_unit = true;
        parse_asking(words, settings_, step);
    }

    // Of all that looks like a name only those of inputs are names: shell lines have variables of their own.
    void take_names(Words &words, const Step &step)
    {
        for (Word &word : words) {
            std::vector<size_t> known;
            for (const size_t at : word.dollars) {
                const std::string name = name_at(word.text, at);
                if (name.empty())
                    continue;
                if (inputs_.count(name) > 0)
                    known.push_back(at);
                else
                    uses_.push_back({name, step.file, step.line,
                                     !word.quoted && at == 0 && name.size() + 1 == word.text.size()});
            }
            word.dollars = known;
        }
    }

    void check_names()
    {
        std::vector<std::string> names;
        for (const auto &[name, value] : inputs_)
            names.push_back("$" + name);
        for (const Use &use : uses_)
            if (inputs_.count(use.name) > 0)
                mistake(use.file, use.line, "$" + use.name + " is put in only behind this line");
            else if (use.is_word && !names.empty())
                mistake(use.file, use.line,
                        "no input of this plan is called $" + use.name + suggestion("$" + use.name, names) +
                            "; in single quotes it is a text");
    }

    const Settings &settings_;
    Plan plan_;
    std::string mistakes_, phase_;
    std::vector<std::string> open_; // files that are being read, one included by the other
    Bytes read_;
    Inputs inputs_; // so far
    std::vector<Use> uses_;
    bool has_unit_ = false;
};

} // namespace

Plan parse_plan(const std::string &path, const Settings &settings)
{
    Reader reader(settings);
    reader.read(path);
    return reader.plan(path);
}

} // namespace station
