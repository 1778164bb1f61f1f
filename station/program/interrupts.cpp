#include "station/program/interrupts.h"

#include "station/catalogue/answer.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <unistd.h>

namespace station
{

static Interrupts interrupts{0};
static_assert(Interrupts::is_always_lock_free, "a signal handler counts");

static std::atomic<const char *> first_words{nullptr};
static char last_words[1024];
static std::atomic<size_t> last_words_size{0}; // set when they are whole

static void say(const char *words, size_t size)
{
    [[maybe_unused]] const ssize_t said = write(STDERR_FILENO, words, size); // or nobody listens
}

// Behind "^C", and whatever else stands on a terminal's line, a line of its own begins.
static void begin_line()
{
    if (isatty(STDERR_FILENO))
        say("\n", 1);
}

static void count(int)
{
    const int error = errno;
    const char *const first = first_words;
    const size_t size = last_words_size;
    if (++interrupts > 1) {
        if (size) {
            begin_line();
            say(last_words, size);
        }
        _exit(INTERRUPTED);
    }
    if (first) {
        begin_line();
        say(first, std::strlen(first));
    }
    errno = error;
}

void say_when_ended(const std::string &words)
{
    last_words_size = 0;
    const std::string line = words.substr(0, sizeof last_words - 1) + "\n";
    std::copy(line.begin(), line.end(), last_words);
    last_words_size = words.empty() ? 0 : line.size();
}

const Interrupts &catch_interrupts(const char *said)
{
    if (said)
        first_words = said;
    struct sigaction action = {};
    action.sa_handler = count;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    return interrupts;
}

} // namespace station
