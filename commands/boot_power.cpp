#include "commands/boot_power.h"

#include <cutils.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "core/files.h"
#include "core/log.h"
#include "core/packet.h"
#include "core/power.h"
#include "core/shell.h"

static constexpr const char *MISC_PATHS[] = {
    "/dev/block/bootdevice/by-name/misc",
    "/dev/block/platform/soc/1d84000.ufshc/by-name/misc",
};

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
    for (const char *path : MISC_PATHS) {
        int fd = open(path, O_RDWR | O_CLOEXEC);
        if (fd >= 0)
            return fd;
    }
    return -1;
}

static void diag_set_boot_mode(uint8_t selector, boot_message_head &head)
{
    memset(&head, 0, sizeof head);
    if (selector >= sizeof BOOT_MODES / sizeof BOOT_MODES[0])
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

void *diag_cmd_switch_boot_mode(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, packet_code(request));
    if (!response)
        return nullptr;

    boot_message_head head;
    diag_set_boot_mode(packet_selector(request), head);
    if (!write_boot_message(__func__, head)) {
        LOG("Select mode failed!\n");
        return answer_error(response);
    }
    LOG("Select mode successful!\n");
    return answer_ok(response);
}

void *diag_cmd_query_boot_mode(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, packet_code(request));
    if (!response)
        return nullptr;

    char mode[256] = {};
    int length = property_get(BOOT_MODE_PROPERTY, mode, nullptr);
    if (length < 0) {
        LOG("property_get len=%d, get error!\n", length);
        return answer_error(response);
    }
    bool factory = strncmp(mode, "ffbm", strlen("ffbm")) == 0;
    if (factory)
        LOG("Now is ftmmi mode!\n");
    else
        LOG("Now is normal mode!\n");
    LOG("Boot mode:%s\n", mode);
    return answer_text(response, factory ? "ftmmi_mode" : "normal_mode");
}

void *diag_cmd_factory_wipe_data(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0xCA00);
    if (!response)
        return nullptr;

    descriptor misc(open_misc());
    if (!misc) {
        LOG("open misc partion error!\n");
        return answer_error(response);
    }
    uint8_t when = packet_selector(request);
    constexpr auto COMMAND_LENGTH = static_cast<ssize_t>(sizeof WIPE_COMMAND - 1);
    if (when == WIPE_NEXT_BOOT && write(misc.fd, WIPE_COMMAND, COMMAND_LENGTH) < COMMAND_LENGTH) {
        LOG("write %s to misc fail!!\n", WIPE_COMMAND);
        return answer_error(response);
    }
    constexpr auto ARGUMENTS_LENGTH = static_cast<ssize_t>(sizeof WIPE_ARGUMENTS - 1);
    // In one call: arguments must not land on the command field because a seek failed.
    ssize_t written =
        pwrite(misc.fd, WIPE_ARGUMENTS, ARGUMENTS_LENGTH, offsetof(boot_message_head, recovery));
    LOG("write command is %s,length is :%d\n", WIPE_ARGUMENTS, static_cast<int>(ARGUMENTS_LENGTH));
    if (written < ARGUMENTS_LENGTH) {
        misc.release(); // the partition stays open after a failed write
        LOG("wriet to misc fail!!\n");
        return answer_error(response);
    }
    if (when == WIPE_NOW && diag_platform_cmd_thread_create(POWER_RECOVERY) != 0) {
        LOG("reboot recovery fail!!\n");
        return answer_error(response);
    }
    LOG("factory rest sucess!!\n");
    return answer_ok(response);
}

void *diag_cmd_fctest_power_suspend(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x012A);
    if (!response)
        return nullptr;

    if (command_stream tool = run_command(SUSPEND_TOOL)) {
        char line[LINE_SIZE];
        while (read_line(tool.get(), line)) {
            LOG("Power suspend ret:%s\n", line);
            if (strncmp(line, SUSPEND_PROMPT, strlen(SUSPEND_PROMPT)) == 0) {
                LOG("Fctest power suspend succ.\n");
                return answer_ok(response);
            }
        }
    }
    LOG("Fctest power suspend fail.\n");
    return answer_error(response);
}

void *diag_cmd_restart_fastboot(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x012C);
    if (!response)
        return nullptr;
    if (diag_platform_cmd_thread_create(POWER_BOOTLOADER) != 0) {
        LOG("Reboot bootloader failed!\n");
        return answer_error(response);
    }
    LOG("Reboot bootloader success!\n");
    return answer_ok(response);
}

void *diag_cmd_restart_recovery(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x012D);
    if (!response)
        return nullptr;
    if (diag_platform_cmd_thread_create(POWER_RECOVERY) != 0) {
        LOG("Reboot recovery failed!\n");
        return answer_error(response);
    }
    LOG("Reboot recovery success!\n");
    return answer_ok(response);
}

void *diag_cmd_device_restart(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x0132);
    if (!response)
        return nullptr;
    if (diag_platform_cmd_thread_create(POWER_RESTART) != 0) {
        answer_error(response);
        LOG("Thread create %s!\n", response_data(response));
        return response;
    }
    LOG("Restart success!\n");
    return answer_ok(response);
}

void *diag_cmd_device_shutdown(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x0133);
    if (!response)
        return nullptr;
    if (!run_command(WAKE_UP_TOOL)) { // closed at once, unread: that waits for the tool, whatever it prints
        LOG("wake up fail.\n");
        return answer_error(response);
    }
    if (diag_platform_cmd_thread_create(POWER_SHUTDOWN) != 0) {
        answer_error(response);
        LOG("Thread create %s!\n", response_data(response));
        return response;
    }
    LOG("Shutdown success!\n");
    return answer_ok(response);
}

void *diag_cmd_check_diag_com_port(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x013C, ECHO_RESPONSE, DIAG_ALLOC_FAILED);
    if (!response)
        return nullptr;
    LOG("Diag com_port ready\n");
    return response;
}
