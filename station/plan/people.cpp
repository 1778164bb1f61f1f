#include "station/plan/people.h"

#include "station/client/bytes.h"
#include "station/client/errors.h"
#include "station/plan/pattern.h"
#include "station/text/text.h"

#include <sstream>

namespace station
{

static constexpr char BLANKS[] = " \t\r";

static std::string trimmed(const std::string &text)
{
    const size_t begin = text.find_first_not_of(BLANKS);
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(BLANKS) + 1 - begin);
}

bool is_nobody(const std::string &why) { return why.find(NOBODY_TO_ASK) != std::string::npos; }

AnswersFile::AnswersFile(const std::string &path, People &others) : path_(path), others_(others)
{
    std::istringstream lines(to_text(read_whole_file(path)));
    std::string mistakes;
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        number++;
        line = trimmed(line);
        if (line.empty() || line[0] == '#')
            continue;
        if (line.find('=', 1) == std::string::npos)
            mistakes += (mistakes.empty() ? "" : "\n") + path + ":" + std::to_string(number) +
                        ": not `question = answer`";
        lines_.push_back(line);
    }
    if (!mistakes.empty())
        throw UsageError(mistakes);
}

// A question may hold the sign itself, so it is looked for as the line's beginning.
std::optional<std::string> AnswersFile::answer(const Prompt &prompt, Deadline deadline, std::string &why)
{
    const std::string question = trimmed(prompt.text);
    for (const std::string &line : lines_) {
        if (line.compare(0, question.size(), question) != 0)
            continue;
        const std::string rest = trimmed(line.substr(question.size()));
        if (rest[0] == '=')
            return trimmed(rest.substr(1));
    }
    std::optional<std::string> answer = others_.answer(prompt, deadline, why);
    if (!answer && is_nobody(why))
        why = path_ + " has no answer to '" + question + "', and there is " + why;
    return answer;
}

std::optional<bool> yes_or_no(const std::string &answer)
{
    const std::string word = lower_case(trimmed(answer));
    if (word == "yes" || word == "y")
        return true;
    if (word == "no" || word == "n")
        return false;
    return std::nullopt;
}

bool fits(const Prompt &prompt, const std::string &answer)
{
    if (prompt.kind == Prompt::Kind::ask)
        return yes_or_no(answer).has_value();
    return matches(prompt.pattern, answer);
}

} // namespace station
