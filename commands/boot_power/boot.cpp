// How the phone boots next, and going down: boot mode, wipe, restart, shutdown, suspend.
#include <cutils.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <iterator>
#include <utility>

#include "core/command.h"
#include "core/files.h"
#include "core/power.h"
#include "core/shell.h"

namespace
{
// What the bootloader and recovery read at the start of the misc partition. Texts are zero-padded.
struct boot_message_head {
    char command[32];
    char status[32];
    char recovery[64];
};
static_assert(sizeof(boot_message_head) == 128, "written as it lies");

struct boot_mode {
    const char *log;
    const char *command;
    const char *recovery;
};
} // namespace

// By the request's selector; any other clears the head, as the first does.
static constexpr boot_mode BOOT_MODES[] = {
    {"Enter!mode=normal\n", "", ""},
    {"Enter!mode=ffbm\n", "ffbm-01", ""},
    {"Enter!mode=recovery\n", "boot-recovery", "recovery\r\r\n"}, // recovery wants exactly these line ends
    {"Enter!mode=pfbm-\n", "pfbm-", ""},
};

static constexpr char BOOT_MODE_PROPERTY[] = "ro.bootmode";

static constexpr uint8_t WIPE_NOW = 0;
static constexpr uint8_t WIPE_NEXT_BOOT = 1;
static constexpr char WIPE_COMMAND[] = "boot-recovery";
static constexpr char WIPE_ARGUMENTS[] =
    "recovery\n--wipe_data\n--reason=MasterClearConfirm\n--locale=en_US\n";

static constexpr char SUSPEND_TOOL[] = "fctest power suspend 2>&1";
static constexpr char SUSPEND_PROMPT[] = "please pull out usb cable";
static constexpr char WAKE_UP_TOOL[] = "fctest power wakeup 2>&1";

// The first misc partition that opens for reading and writing, or -1.
static int open_misc()
{
    for (const char *path : MISC_PARTITIONS) {
        int fd = open(path, O_RDWR | O_CLOEXEC);
        if (fd >= 0)
            return fd;
    }
    return -1;
}

static void diag_set_boot_mode(uint8_t selector, boot_message_head &head)
{
    memset(&head, 0, sizeof head);
    if (selector >= std::size(BOOT_MODES))
        return;
    const boot_mode &mode = BOOT_MODES[selector];
    LOG("%s", mode.log);
    memcpy(head.command, mode.command, strlen(mode.command));
    memcpy(head.recovery, mode.recovery, strlen(mode.recovery));
}

static bool write_boot_message(const char *handler, const boot_message_head &head)
{
    descriptor misc(open_misc());
    if (!misc) {
        diag_log(handler, "open misc partion error!\n");
        return false;
    }
    lseek(misc.fd, 0, SEEK_SET);
    if (!write_all(misc.fd, &head, sizeof head)) {
        diag_log(handler, "Failed to write to partition\n");
        return false;
    }
    return true;
}

void *diag_cmd_switch_boot_mode(const void *request, uint8_t *response)
{
    boot_message_head head;
    diag_set_boot_mode(packet_selector(request), head);
    if (!write_boot_message(__func__, head))
        return FAIL(response, "Select mode failed!\n");
    return DONE(response, "Select mode successful!\n");
}

void *diag_cmd_query_boot_mode(const void *, uint8_t *response)
{
    char mode[PROPERTY_SIZE] = {};
    int length = property_get(BOOT_MODE_PROPERTY, mode, nullptr);
    if (length < 0)
        return FAIL(response, "property_get len=%d, get error!\n", length);
    bool factory = strncmp(mode, "ffbm", strlen("ffbm")) == 0;
    if (factory)
        LOG("Now is ftmmi mode!\n");
    else
        LOG("Now is normal mode!\n");
    LOG("Boot mode:%s\n", mode);
    return answer_text(response, factory ? "ftmmi_mode" : "normal_mode");
}

void *diag_cmd_factory_wipe_data(const void *request, uint8_t *response)
{
    descriptor misc(open_misc());
    if (!misc)
        return FAIL(response, "open misc partion error!\n");
    uint8_t when = packet_selector(request);
    constexpr auto COMMAND_LENGTH = static_cast<ssize_t>(sizeof WIPE_COMMAND - 1);
    if (when == WIPE_NEXT_BOOT && write(misc.fd, WIPE_COMMAND, COMMAND_LENGTH) < COMMAND_LENGTH)
        return FAIL(response, "write %s to misc fail!!\n", WIPE_COMMAND);
    constexpr auto ARGUMENTS_LENGTH = static_cast<ssize_t>(sizeof WIPE_ARGUMENTS - 1);
    // In one call: arguments must not land on the command field because a seek failed.
    ssize_t written =
        pwrite(misc.fd, WIPE_ARGUMENTS, ARGUMENTS_LENGTH, offsetof(boot_message_head, recovery));
    LOG("write command is %s,length is :%d\n", WIPE_ARGUMENTS, static_cast<int>(ARGUMENTS_LENGTH));
    if (written < ARGUMENTS_LENGTH) {
        misc.release(); // the partition stays open after a failed write
        return FAIL(response, "wriet to misc fail!!\n");
    }
    if (when == WIPE_NOW && diag_platform_cmd_thread_create(POWER_RECOVERY) != 0)
        return FAIL(response, "reboot recovery fail!!\n");
    return DONE(response, "factory rest sucess!!\n");
}

void *diag_cmd_fctest_power_suspend(const void *, uint8_t *response)
{
    if (command_stream tool = run_command(SUSPEND_TOOL)) {
        char line[LINE_SIZE];
        while (read_line(tool.get(), line)) {
            LOG("Power suspend ret:%s\n", line);
            if (strncmp(line, SUSPEND_PROMPT, strlen(SUSPEND_PROMPT)) == 0) {
                close_unawaited(std::move(tool)); // it may run on, and the station must not wait for it
                return DONE(response, "Fctest power suspend succ.\n");
            }
        }
    }
    return FAIL(response, "Fctest power suspend fail.\n");
}

namespace
{
// The ways down that need nothing but their thread.
struct restart {
    power_action action;
    const char *done;
    const char *failed;
};
} // namespace

// A restart and a power-off that fail name the answer instead of themselves.
static constexpr restart BOOTLOADER = {POWER_BOOTLOADER, "Reboot bootloader success!",
                                       "Reboot bootloader failed!"};
static constexpr restart RECOVERY = {POWER_RECOVERY, "Reboot recovery success!", "Reboot recovery failed!"};
static constexpr restart RESTART = {POWER_RESTART, "Restart success!", "Thread create ERROR!"};
static constexpr restart SHUTDOWN = {POWER_SHUTDOWN, "Shutdown success!", "Thread create ERROR!"};

// The answer leaves before the phone goes down.
static void *go_down(const char *handler, uint8_t *response, const restart &how)
{
    const bool started = diag_platform_cmd_thread_create(how.action) == 0;
    diag_log(handler, "%s\n", started ? how.done : how.failed);
    return started ? answer_ok(response) : answer_error(response);
}

void *diag_cmd_restart_fastboot(const void *, uint8_t *response)
{
    return go_down(__func__, response, BOOTLOADER);
}

void *diag_cmd_restart_recovery(const void *, uint8_t *response)
{
    return go_down(__func__, response, RECOVERY);
}

void *diag_cmd_device_restart(const void *, uint8_t *response)
{
    return go_down(__func__, response, RESTART);
}

void *diag_cmd_device_shutdown(const void *, uint8_t *response)
{
    if (!run_command_and_wait(WAKE_UP_TOOL))
        return FAIL(response, "wake up fail.\n");
    return go_down(__func__, response, SHUTDOWN);
}

void *diag_cmd_check_diag_com_port(const void *, uint8_t *response)
{
    LOG("Diag com_port ready\n");
    return response;
}
