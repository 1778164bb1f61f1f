#include "station/plan/script.h"

#include "station/client/errors.h"

#include <algorithm>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace station
{

const char script_help[] =
    "A script's lines; the connection is made anew when the phone went away in between:\n"
    "\n"
    "  get-prop ro.build.id                a request as on the command line; must succeed\n"
    "  ! get-prop no.such.property         must be answered with a failure\n"
    "  ? shell \"kill -9 1234\"              may come to anything, silence included\n"
    "  get-prop ro.bootmode => ffbm-01     must be answered with this: the text, or what it means (128 GiB)\n"
    "  shell-output \"date +%Y\" =~ 20..     must be answered with what this regular expression describes\n"
    "  wait 30                             waits until the port answers, for 30 s at most; behind a restart "
    "it first\n"
    "                                      waits until the phone has gone down\n"
    "  sleep 0.5                           just waits\n"
    "  skip NAME REASON                    tells why a request's success is left out; `! skip` its failure\n"
    "  # a comment";

const char *left_out(const Step &step) { return step.must_fail ? "failure" : "success"; }

namespace
{

double seconds_of(const std::vector<std::string> &words)
{
    char *end = nullptr;
    const double seconds = words.size() == 2 ? std::strtod(words[1].c_str(), &end) : -1;
    if (!end || *end || !(seconds >= 0))
        throw UsageError(words[0] + " takes a number of seconds");
    return seconds;
}

Step parse_step(std::string text, const Settings &settings)
{
    Step step;
    step.settings = settings;
    if (text[0] == '!' || text[0] == '?') {
        step.must_fail = text[0] == '!';
        step.may_fail = text[0] == '?';
        text.erase(0, 1);
    }
    std::vector<std::string> words = split_words(text);
    const auto arrow = std::find_if(words.begin(), words.end(),
                                    [](const std::string &word) { return word == "=>" || word == "=~"; });
    if (arrow != words.end()) {
        step.compares = true;
        step.is_pattern = *arrow == "=~";
        for (auto word = arrow + 1; word != words.end(); ++word)
            step.expected += (word == arrow + 1 ? "" : " ") + *word;
        if (step.is_pattern)
            static_cast<void>(std::regex(step.expected)); // a broken one is told before anything is sent
        words.erase(arrow, words.end());
    }
    if (words.empty())
        throw UsageError("no request");
    step.request.name = words[0];
    if (words[0] == "wait" || words[0] == "sleep") {
        step.kind = words[0] == "wait" ? Step::Kind::wait : Step::Kind::sleep;
        step.seconds = seconds_of(words);
        step.request.words = words[1] + " s";
    } else if (words[0] == "skip" && words.size() >= 2) {
        step.kind = Step::Kind::skip;
        step.request.name = words[1];
        if (const Command *command = find_command(words[1], step.request.code))
            step.request.command = command;
        for (size_t i = 2; i < words.size(); i++)
            step.expected += (i == 2 ? "" : " ") + words[i];
    } else
        step.request = parse_request(words, step.settings);
    return step;
}

} // namespace

std::vector<Step> parse_script(const std::string &path, const Settings &settings)
{
    std::vector<Step> steps;
    std::istringstream lines(to_text(read_whole_file(path)));
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        number++;
        const size_t begin = line.find_first_not_of(" \t\r");
        if (begin == std::string::npos || line[begin] == '#')
            continue;
        try {
            steps.push_back(parse_step(line.substr(begin), settings));
            steps.back().line = number;
        } catch (const HelpAsked &) {
            throw UsageError(path + ":" + std::to_string(number) + ": a script asks for no help");
        } catch (const std::exception &error) {
            throw UsageError(path + ":" + std::to_string(number) + ": " + error.what());
        }
    }
    return steps;
}

} // namespace station
