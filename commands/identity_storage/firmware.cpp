// What the storage says of itself: flash revision, head of the misc partition, the solid-state disk.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "core/command.h"
#include "core/files.h"
#include "core/shell.h"
#include "hwdec/checks.h"

static constexpr char COMMAND_LINE[] = "proc/cmdline";
static constexpr size_t COMMAND_LINE_SIZE = 2048; // with its terminator
static constexpr char EMMC_KEY[] = "androidboot.emmc=true";
static constexpr char EMMC_VENDOR_KEY[] = "androidboot.emmc.vendor=";
static constexpr char EMMC_CID[] = "cat /sys/block/mmcblk0/device/cid | cut -b 7-18";
static constexpr char EMMC_REVISION[] = "cat /sys/block/mmcblk0/device/prv";
static constexpr char UFS_REVISION[] = "cat /sys/block/sda/device/rev";

static constexpr char SSD_REVISION[] = "cat /sys/block/nvme0n1/device/firmware_rev";
static constexpr char SSD_STATE[] = "phison-smart --device=/dev/block/nvme0n1";

namespace
{
struct ssd_encryption {
    const char *state;
    const char *answer;
};
} // namespace
static constexpr ssd_encryption SSD_ENCRYPTION[] = {
    {"AES:Enable", "AES:en"},
    {"AES:Disable", "AES:dis"},
};

// The kernel's command line as a text; empty when there is none.
static void read_command_line(const char *handler, char (&text)[COMMAND_LINE_SIZE])
{
    memset(text, 0, sizeof text);
    descriptor node(open(COMMAND_LINE, O_RDONLY | O_CLOEXEC));
    if (!node)
        return;
    ssize_t length = read(node.fd, text, sizeof text - 1);
    if (length < 0) {
        diag_log(handler, "Read cmdline abnormal.\n");
        length = 0;
    }
    if (length > 0 && text[length - 1] == '\n')
        text[--length] = '\0';
    diag_log(handler, "Read cmdline content len:%d.\n", static_cast<int>(length));
}

// The payload may fill its field and then has no terminator.
static size_t payload_length(const char *data) { return strnlen(data, TEXT_CAPACITY); }

// Length of the payload without its closing line feed, which stays behind the counted bytes.
static int counted_length(const char *data)
{
    size_t length = payload_length(data);
    return static_cast<int>(length > 0 && data[length - 1] == '\n' ? length - 1 : length);
}

// Appends as much of the bytes as fits below the limit, and returns how many that were.
static size_t append(char *data, const char *bytes, size_t count, size_t limit)
{
    const size_t length = payload_length(data);
    const size_t taken = std::min(count, limit - std::min(length, limit));
    memcpy(data + length, bytes, taken);
    return taken;
}

// Reads the first line that a command prints. False, logged, when there is none.
static bool first_line(const char *handler, const char *command, const char *silent, const char *failed,
                       char (&line)[LINE_SIZE])
{
    command_stream output = run_line(command);
    if (output && read_line(output.get(), line))
        return true;
    if (output)
        diag_log(handler, "%s", silent);
    diag_log(handler, "%s", failed);
    return false;
}

static bool get_ufs_revision(const char *handler, char *data)
{
    char line[LINE_SIZE];
    if (!first_line(handler, UFS_REVISION, "Fgets GET_UFS_FW_VER is NULL.\n", "Popen GET_UFS_FW_VER fail.\n",
                    line))
        return false;
    static_assert(sizeof line == TEXT_CAPACITY,
                  "the line buffer goes out whole, with whatever stands behind a zero byte");
    memcpy(data, line, sizeof line);
    diag_log(handler, "Fgets GET_UFS_FW_VER is %s,len: %d.\n", line, counted_length(data));
    return true;
}

static bool append_emmc_cid(const char *handler, char *data)
{
    command_stream output = run_line(EMMC_CID);
    if (!output) {
        diag_log(handler, "Popen manufacturer cid fail.\n");
        return false;
    }
    char line[LINE_SIZE];
    if (!read_line(output.get(), line)) {
        diag_log(handler, "Get manufacturer cid fail.\n");
        return false;
    }
    line[length_without_line_feed(line)] = '\0';
    append(data, line, strlen(line), TEXT_CAPACITY);
    diag_log(handler, "Get manufacturer cid succ, cid:%s.\n", line);
    append(data, ":", 1, TEXT_CAPACITY);
    return true;
}

static bool append_emmc_vendor(const char *handler, const char *command_line, char *data)
{
    const char *vendor = strstr(command_line, EMMC_VENDOR_KEY);
    if (!vendor) {
        diag_log(handler, "Get flash vendor fail.\n");
        return false;
    }
    vendor += strlen(EMMC_VENDOR_KEY);
    const size_t length = append(data, vendor, strcspn(vendor, " "), TEXT_CAPACITY);
    diag_log(handler, "Get flash vendor:%.*s.\n", static_cast<int>(length), vendor);
    append(data, ":", 1, TEXT_CAPACITY);
    return true;
}

static bool append_emmc_revision(const char *handler, char *data)
{
    char line[LINE_SIZE];
    if (!first_line(handler, EMMC_REVISION, "Fgets GET_EMMC_FW_VER is NULL.\n",
                    "Popen GET_EMMC_FW_VER fail.\n", line))
        return false;
    append(data, line, strlen(line), TEXT_CAPACITY - 1);
    diag_log(handler, "Fgets GET_EMMC_FW_VER is %s,len: %d.\n", line, counted_length(data));
    return true;
}

void *diag_cmd_get_flash_fw_ver(const void *, uint8_t *response)
{
    char command_line[COMMAND_LINE_SIZE];
    read_command_line(__func__, command_line);
    char *data = response_data(response); // an error is written over what was collected so far
    bool found = false;
    if (strstr(command_line, EMMC_KEY)) {
        if (!append_emmc_cid(__func__, data) || !append_emmc_vendor(__func__, command_line, data))
            return answer_error(response);
        found = append_emmc_revision(__func__, data);
    } else if (command_line[0] != '\0') {
        found = get_ufs_revision(__func__, data);
    }
    if (!found)
        return FAIL(response, "Get firmware version from proc/cmdline fail.\n");
    return answer_length(response, static_cast<size_t>(counted_length(data)));
}

void *diag_cmd_check_misc_content(const void *, uint8_t *response)
{
    char *data = response_data(response);
    if (diag_cmd_read_file(MISC_PARTITIONS[0], TEXT_CAPACITY, data) < 0) {
        LOG("Read MISC_PARTITION_PATH failed\n");
        if (diag_cmd_read_file(MISC_PARTITIONS[1], TEXT_CAPACITY, data) < 0)
            return FAIL(response, "Read MISC_PARTITION_ALTERNATE_PATH failed\n");
    }
    size_t length = payload_length(data);
    LOG("Misc content=%.*s\n", static_cast<int>(length), data);
    return answer_length(response, length);
}

void *diag_cmd_check_ssd_present(const void *, uint8_t *response)
{
    if (hwdec_ssd_check_v2() < 0)
        return FAIL(response, "Check ssd present failed\n");
    return DONE(response, "Check ssd present success\n");
}

void *diag_cmd_get_ssd_fw_ver(const void *, uint8_t *response)
{
    command_stream output = run_line(SSD_REVISION);
    if (!output)
        return FAIL(response, "execute %s failed\n", SSD_REVISION);
    char line[LINE_SIZE];
    if (!read_line(output.get(), line))
        return FAIL(response, "Get ssd firmware version failed\n");
    size_t length = strlen(line);
    if (length > 0)
        line[--length] = '\0'; // the line feed, or the last character of a line that has none
    answer_text(response, line);
    if (length > 0 && line[length - 1] == '\n') {
        LOG("The last byte of response is linefeed\n");
        answer_length(response, --length);
    }
    LOG("Get ssd firmware success, version is %s, len: %d\n", line, static_cast<int>(length));
    return response;
}

void *diag_cmd_get_ssd_encrypt(const void *, uint8_t *response)
{
    command_stream tool = run_command(SSD_STATE);
    if (!tool)
        return FAIL(response, "execute %s failed\n", SSD_STATE);
    char line[LINE_SIZE];
    while (read_line(tool.get(), line)) {
        LOG("cmd execute result is %s\n", line);
        for (const ssd_encryption &encryption : SSD_ENCRYPTION) {
            if (!strstr(line, encryption.state))
                continue;
            LOG("want state include %s, get state is %s\n", encryption.state, line);
            LOG("Get ssd encrypt rst success, rst is %s, len: %d\n", encryption.answer,
                static_cast<int>(strlen(encryption.answer)));
            return answer_text(response, encryption.answer);
        }
    }
    return answer_error(response);
}
