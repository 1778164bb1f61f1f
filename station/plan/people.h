// Who answers a plan's questions: a terminal, a file, a page, or nobody.
#pragma once

#include "station/client/transport.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace station
{

struct Prompt {
    enum class Kind {
        tell, // something to do; any answer says that it is done
        ask,  // answered with yes or no
        input // answered with a text
    };

    Kind kind = Kind::tell;
    std::string text;
    std::string pattern; // that has to be found in an input; the empty one is found in any
};

// Of somebody who has nobody to ask.
static constexpr char NOBODY_TO_ASK[] = "nobody to ask";
// Whether an answer's absence is due to that.
bool is_nobody(const std::string &why);

class People
{
  public:
    virtual ~People() = default;

    // Waits for the answer. Nothing: there is nobody to ask, or nobody has answered before the deadline or an
    // interrupt; `why` then says which. An answer need not fit the prompt: whoever asks looks.
    virtual std::optional<std::string> answer(const Prompt &prompt, Deadline deadline, std::string &why) = 0;
};

class Nobody : public People
{
  public:
    std::optional<std::string> answer(const Prompt &, Deadline, std::string &why) override
    {
        why = NOBODY_TO_ASK;
        return std::nullopt;
    }
};

// A file of lines "question = answer", the question as the plan has it; empty lines and those with # in front
// are none. What it does not answer, `others` are asked; when they are nobody, `why` names the file.
class AnswersFile : public People
{
  public:
    // Throws UsageError.
    AnswersFile(const std::string &path, People &others);
    // The same lines, but others to ask.
    AnswersFile(const AnswersFile &read, People &others)
        : path_(read.path_), lines_(read.lines_), others_(others)
    {
    }
    std::optional<std::string> answer(const Prompt &prompt, Deadline deadline, std::string &why) override;

  private:
    std::string path_;
    std::vector<std::string> lines_;
    People &others_;
};

// What a person types for yes and no: nothing for anything else.
std::optional<bool> yes_or_no(const std::string &answer);

// Whether an answer is one to the prompt.
bool fits(const Prompt &prompt, const std::string &answer);

} // namespace station
