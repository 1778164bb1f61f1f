#include "station/program/interrupts.h"

#include "station/catalogue/answer.h"

#include <csignal>
#include <unistd.h>

namespace station
{

static Interrupts interrupts{0};
static_assert(Interrupts::is_always_lock_free, "a signal handler counts");

static void count(int)
{
    if (++interrupts > 1)
        _exit(INTERRUPTED);
}

const Interrupts &catch_interrupts()
{
    struct sigaction action = {};
    action.sa_handler = count;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    return interrupts;
}

} // namespace station
