// The service's life: connect to the router, register the commands, idle until a signal asks for the end.
#include <diag.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "core/log.h"
#include "core/table.h"

static constexpr int SETTLE_SECONDS = 5; // before the stop flag is looked at for the first time
static constexpr int POLL_SECONDS = 1;

static std::atomic<uint8_t> diag_running_flag{0}; // 1: stop
static std::atomic<int> unlogged_signals{0};
static_assert(std::atomic<uint8_t>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "the signal handler may touch nothing that takes a lock");

// Wakes the entry thread, so that it logs a signal when it comes. Either log sink may be locked by the very
// thread that the signal interrupts: the handler itself writes to neither.
static int wake_pipe[2] = {-1, -1};

static void diag_set_deinit_lsm_handler(int)
{
    int saved_errno = errno;
    diag_running_flag = 1;
    unlogged_signals++;
    char wake = 0;
    ssize_t ignored = write(wake_pipe[1], &wake, 1); // a full pipe wakes as well
    (void)ignored;
    errno = saved_errno;
}

static void log_signals()
{
    char wakes[64];
    while (read(wake_pipe[0], wakes, sizeof wakes) > 0) {
    }
    for (int i = unlogged_signals.exchange(0); i > 0; i--)
        diag_log("diag_set_deinit_lsm_handler", "diag_running_flag = %d!\n", !diag_running_flag);
}

static int64_t now_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Signals are logged meanwhile and never cut it short.
static void pause_seconds(int seconds)
{
    int64_t end =
        now_ms() + seconds * INT64_C(1000) + 1; // the clock's fraction of a millisecond must not shorten it
    for (int64_t left = end - now_ms(); left > 0; left = end - now_ms()) {
        pollfd wake = {wake_pipe[0], POLLIN, 0};
        poll(&wake, 1, static_cast<int>(left));
        log_signals();
    }
}

static int diag_sigaction_handle()
{
    LOG("Enter!\n");
    struct sigaction action = {};
    action.sa_handler = diag_set_deinit_lsm_handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    if (sigaction(SIGTERM, &action, nullptr) < 0) {
        LOG("sigaction handle SIGTERM failed!\n");
        return -1;
    }
    if (sigaction(SIGHUP, &action, nullptr) < 0) {
        LOG("sigaction handle SIGHUP failed!\n");
        return -1;
    }
    if (sigaction(SIGINT, &action, nullptr) < 0) {
        LOG("sigaction handle SIGINT failed!\n");
        return -1;
    }
    return 0;
}

int main()
{
    // Before any other thread exists, for a signal may come on each of them. Without the pipe it is logged at
    // the next look at the flag.
    if (pipe2(wake_pipe, O_CLOEXEC | O_NONBLOCK) < 0)
        wake_pipe[0] = wake_pipe[1] = -1;

    log_spare_null_stdout();
    LOG("Diag service Begin!\n");
    if (!Diag_LSM_Init(nullptr)) {
        LOG("Diag service Init failed\n");
        return -1;
    }
    LOG("Diag service Init success\n");
    diagpkt_tbl_reg(&diag_command_table);
    if (diag_sigaction_handle() < 0) {
        LOG("Diag handle sigaction failed\n");
        diag_running_flag = 1;
    }

    pause_seconds(SETTLE_SECONDS);
    do {
        pause_seconds(POLL_SECONDS);
    } while (diag_running_flag != 1);

    log_signals(); // one may have come since the last look and ended the loop
    LOG("Diag_LSM_DeInit\n");
    Diag_LSM_DeInit();
    log_signals(); // and others while the last handler was waited for
    return 0;
}
