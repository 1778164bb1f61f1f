#include "core/power.h"

#include <cutils.h>
#include <hardware_legacy.h>
#include <pthread.h>
#include <unistd.h>

#include "core/log.h"

static constexpr char WAKE_LOCK[] = "DIAG_WAKELOCK";

namespace
{
struct power_row {
    const char *thread; // the name it logs under
    unsigned int wait;  // seconds: time for the answer to leave the port
    unsigned int command;
    const char *reason;
    const char *done; // what the line with the result begins with
    const char *kind; // what the lines about the thread begin with, "cerate" and all
};
} // namespace

static constexpr power_row ROWS[] = {
    {"diag_device_shutdown_thread_handle", 4, ANDROID_RB_POWEROFF, nullptr, "Shutdown", ""},
    {"diag_device_restart_thread_handle", 2, ANDROID_RB_RESTART, nullptr, "Restart", "Reboot "},
    {"diag_restart_recovery_thread_handle", 2, ANDROID_RB_RESTART2, "recovery", "Recovery",
     "Reboot recovery "},
    {"diag_restart_fastboot_thread_handle", 2, ANDROID_RB_RESTART2, "bootloader", "Reboot bootloader",
     "Reboot bootloader "},
};

// Another thread's signal may cut a sleep short; the wait is a promise to the station.
static void sleep_whole(unsigned int seconds)
{
    while (seconds > 0)
        seconds = sleep(seconds);
}

static void *power_thread(void *argument)
{
    const auto &row = *static_cast<const power_row *>(argument);
    diag_log(row.thread, "Enter!\n");
    acquire_wake_lock(PARTIAL_WAKE_LOCK, WAKE_LOCK);
    sleep_whole(row.wait);
    int result = android_reboot(row.command, 0, row.reason);
    release_wake_lock(WAKE_LOCK); // reached when the request returned: the phone has not gone down yet
    diag_log(row.thread, "%s:%d\n", row.done, result);
    pthread_exit(nullptr);
}

int diag_platform_cmd_thread_create(int32_t kind)
{
    LOG("Enter! Cmd=%d\n", kind);
    if (kind < POWER_SHUTDOWN || kind > POWER_BOOTLOADER) {
        LOG("Default! Cmd=%d\n", kind);
        return 0;
    }
    const power_row &row = ROWS[kind];
    // Neither joined nor detached: the phone goes down, and nothing waits for it.
    pthread_t thread;
    int error = pthread_create(&thread, nullptr, power_thread, const_cast<power_row *>(&row));
    if (error == 0)
        LOG("%spthread cerate succ!%d\n", row.kind, kind);
    else
        LOG("%spthread cerate err=%d!\n", row.kind, error);
    return error;
}
