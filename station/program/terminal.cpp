#include "station/program/terminal.h"

#include "station/catalogue/answer.h"
#include "station/program/interrupts.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <unistd.h>

namespace station
{

bool moves_cursor(int fd)
{
    const char *const kind = std::getenv("TERM");
    return isatty(fd) && kind && *kind && std::strcmp(kind, "dumb") != 0;
}

std::optional<std::string> typed_line()
{
    char bytes[4096]; // a terminal gives a line at a time
    const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
    if (count <= 0)
        return std::nullopt;
    const std::string line(bytes, static_cast<size_t>(count));
    return line.substr(0, line.find('\n'));
}

std::string prompt_line(const Prompt &prompt)
{
    return escaped(prompt.text) + (prompt.kind == Prompt::Kind::tell  ? " [Enter when done, n when not] "
                                   : prompt.kind == Prompt::Kind::ask ? " [y/n] "
                                                                      : " ");
}

std::string unfit_line(const Prompt &prompt)
{
    return prompt.kind == Prompt::Kind::ask ? "yes or no? " : "not like " + escaped(prompt.pattern) + "; ";
}

std::optional<std::string> Terminal::answer(const Prompt &prompt, Deadline deadline, std::string &why)
{
    const Interrupts &interrupts = catch_interrupts();
    std::string shown = prompt_line(prompt);
    const int before = interrupts;
    while (!ended_) {
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
        std::optional<std::string> answer = typed_line();
        if (answer && fits(prompt, *answer))
            return answer;
        ended_ = !answer;
        shown = unfit_line(prompt) + prompt_line(prompt);
    }
    why = NOBODY_TO_ASK;
    return std::nullopt;
}

} // namespace station
