#include "station/plan/script.h"

#include "station/catalogue/suggest.h"
#include "station/client/errors.h"
#include "station/client/files.h"
#include "station/plan/inputs.h"
#include "station/plan/step_line.h"
#include "station/text/text.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <set>
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

// Files that include each other without a loop double fast.
static constexpr size_t STEPS_MAX = 100000;
static constexpr int FILES_MAX = 1000;
static constexpr char BYTE_ORDER_MARK[] = "\xEF\xBB\xBF";
static constexpr char ALWAYS[] = "always";

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
        if (++files_ > FILES_MAX)
            throw UsageError("include " + path + ": more than " + std::to_string(FILES_MAX) + " files");
        const Bytes content = read_whole_file(path);
        read_.insert(read_.end(), content.begin(), content.end());
        std::string text = to_text(content);
        if (text.compare(0, 3, BYTE_ORDER_MARK) == 0)
            text.erase(0, 3);
        open_.push_back(identity);
        const std::string phase = phase_;
        int number = 0;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line) && plan_.steps.size() <= STEPS_MAX;) {
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
        if (plan_.steps.size() > STEPS_MAX)
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

    // A file that is included again has the same ones again.
    void mistake(const std::string &path, int line, const std::string &what)
    {
        const std::string told = path + ":" + (line > 0 ? std::to_string(line) + ": " : " ") + what;
        if (told_.insert(told).second)
            mistakes_ += (mistakes_.empty() ? "" : "\n") + told;
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
        try {
            return parse_words_of(words, mark != '\0', step);
        } catch (const UsageError &error) {
            take(words); // what comes first is no comment
            if (std::none_of(words.begin(), words.end(), begins_comment))
                throw;
            throw UsageError(error.what() + std::string("; comments have a line of their own"));
        }
    }

    bool parse_words_of(Words words, bool mark, Step &step)
    {
        const Word first = words.front();
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
            take(words);
            phase_ = joined(words);
            if (phase_.empty())
                throw UsageError("phase takes a name");
            take(words); // which may be #1
            if (std::any_of(words.begin(), words.end(), begins_comment))
                throw UsageError("'" + phase_ + "' is no name for a phase");
            if (phase_ != ALWAYS && lower_case(phase_) == ALWAYS)
                throw UsageError("'" + phase_ + "' is no name for a phase; did you mean always?");
            return false;
        }
        if (is(first, "include") && unmarked()) {
            take(words);
            if (words.size() != 1)
                throw UsageError("include takes a file");
            const std::string &file = words.front().text;
            read((file[0] == '/' ? "" : step.file.substr(0, step.file.rfind('/') + 1)) + file);
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
        take(words);
        step.names_unit = true;
        parse_asking(words, settings_, step);
        step.only_names = !step.has_limits && !step.stops;
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
                    uses_.push_back({name, step.file, step.line, !word.quoted && word.text == "$" + name});
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
    std::set<std::string> told_;    // of the mistakes
    std::vector<std::string> open_; // files that are being read, one included by the other
    Bytes read_;
    int files_ = 0;
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
