// The person at the terminal.
#pragma once

#include "station/plan/people.h"

namespace station
{

// Asks on standard error and reads standard input; asks again until the answer fits.
class Terminal : public People
{
  public:
    std::optional<std::string> answer(const Prompt &prompt, Deadline deadline, std::string &why) override;

  private:
    bool ended_ = false;
};

// The line that was typed; nothing when nobody types any more.
std::optional<std::string> typed_line();

// Whether a terminal is there, and one whose cursor can be moved.
[[nodiscard]] bool moves_cursor(int fd);

// What is said of an answer that does not fit, before it is asked again.
std::string unfit_line(const Prompt &prompt);

// The prompt as a line for people, with what may be typed.
std::string prompt_line(const Prompt &prompt);

} // namespace station
