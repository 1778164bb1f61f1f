#include "station/program/terminal.h"

#include "station/catalogue/answer.h"
#include "station/program/interrupts.h"

#include <cstdio>
#include <poll.h>
#include <unistd.h>

namespace station
{

static constexpr int LOOK_MILLISECONDS = 100;
static constexpr size_t ANSWER_MAX = 4096; // bytes of a line

std::string prompt_line(const Prompt &prompt)
{
    return escaped(prompt.text, false) + (prompt.kind == Prompt::Kind::tell
                                              ? " [Enter when done, n when not] "
                                          : prompt.kind == Prompt::Kind::ask ? " [y/n] "
                                                                             : " ");
}

std::string unfit_line(const Prompt &prompt)
{
    return prompt.kind == Prompt::Kind::ask ? "yes or no? "
                                            : "not like " + escaped(prompt.pattern, false) + "; ";
}

std::optional<std::string> Terminal::answer(const Prompt &prompt, Deadline deadline, std::string &why)
{
    const Interrupts &interrupts = catch_interrupts();
    std::string shown = prompt_line(prompt);
    for (const int before = interrupts; !ended_;) {
        if (!shown.empty())
            std::fprintf(stderr, "? %s", shown.c_str());
        shown.clear();
        pollfd input{STDIN_FILENO, POLLIN, 0};
        const int ready = poll(&input, 1, LOOK_MILLISECONDS);
        if (interrupts != before || Clock::now() >= deadline) {
            std::fputc('\n', stderr);
            why = interrupts != before ? "interrupted" : "nobody answered in time";
            return std::nullopt;
        }
        if (ready <= 0)
            continue;
        char line[ANSWER_MAX]; // a terminal gives a line at a time
        const ssize_t count = read(STDIN_FILENO, line, sizeof line);
        ended_ = count <= 0;
        std::string answer(line, count > 0 ? static_cast<size_t>(count) : 0);
        answer.erase(std::min(answer.find('\n'), answer.size()));
        if (!ended_ && fits(prompt, answer))
            return answer;
        if (!ended_)
            shown = unfit_line(prompt) + prompt_line(prompt);
    }
    why = NOBODY_TO_ASK;
    return std::nullopt;
}

} // namespace station
