// Who the phone is: addresses, versions, chip identities; and the ceiling of its processor.
#include <cutils.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "core/command.h"
#include "core/files.h"
#include "core/shell.h"

static constexpr char WLAN_MAC_FILE[] = "/mnt/vendor/persist/wlan_mac.bin";
static constexpr char WLAN_MAC_KEY[] = "Intf0MacAddress=";
static constexpr size_t WLAN_MAC_KEY_LENGTH = sizeof WLAN_MAC_KEY - 1;
static constexpr size_t WLAN_MAC_LINE = 255; // with its terminator: read back, the line feed fits as well

static constexpr char BT_NV_FILE[] = "/mnt/vendor/persist/bluetooth/.bt_nv.bin";
static constexpr char REMOVE_BT_NV[] = "rm -f /mnt/vendor/persist/bluetooth/.bt_nv.bin";
static constexpr char SET_BT_ADDRESS[] = "setprop   persist.service.bdroid.bdaddr ";
static constexpr char GENERATE_BT_NV[] = "btnvtool -O";
static constexpr off_t BT_ADDRESS_OFFSET = 3; // of six bytes, the lowest first
#define GB2312_EXCLAMATION "\xA3\xA1"         // full-width; the log's readers know these lines by it

static constexpr char AP_VERSION_PROPERTY[] = "ro.build.id";
static constexpr char AP_VERSION_EXT_PROPERTY[] = "ro.bootimage.build.fingerprint";
static constexpr char DEBUG_POLICY_PROPERTY[] = "ro.boot.dp";
static constexpr char DEBUG_POLICY_GOOD[] = "0xB";
static constexpr char CPU_ID_PROPERTY[] = "ro.boot.cpuid";
static constexpr char BOARD_ID_PROPERTY[] = "ro.boot.hwversion";
static constexpr size_t HEX_PREFIX = 2; // "0x"

static constexpr char ADB_SERIAL_NODE[] = "/sys/class/android_usb/android0/iSerial";
static constexpr char CPU_INFO[] = "cat /proc/cpuinfo | grep jtag_feature_id";
static constexpr char CPU_FEATURE_KEY[] = "jtag_feature_id : 0x";

// The first core of either cluster.
static constexpr const char *FREQUENCY_NODES[] = {
    "/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq",
    "/sys/devices/system/cpu/cpu2/cpufreq/scaling_max_freq",
};

static bool write_wlan_mac(const char *address)
{
    file_stream file(fopen(WLAN_MAC_FILE, "wb+e"));
    if (!file)
        return false;
    char line[WLAN_MAC_LINE] = {};
    snprintf(line, sizeof line, "%s%s", WLAN_MAC_KEY, address);
    fprintf(file.get(), "%s\n%s\n", line, "END");
    fflush(file.get());
    fsync(fileno(file.get())); // on stable storage before the station is told
    return true;
}

void *diag_cmd_mac_addr_backup(const void *request, uint8_t *response)
{
    if (write_wlan_mac(packet_text(request))) {
        if (file_stream file{fopen(WLAN_MAC_FILE, "re")}) {
            char line[LINE_SIZE];
            while (read_line(file.get(), line)) {
                if (strncmp(line, WLAN_MAC_KEY, WLAN_MAC_KEY_LENGTH) != 0)
                    continue;
                line[length_without_line_feed(line)] = '\0';
                const char *address = line + WLAN_MAC_KEY_LENGTH;
                LOG("Get mac data:%s\n", address);
                return answer_text(response, address);
            }
        }
    }
    return FAIL(response, "Open /persist/wlan_mac.bin failed\n");
}

void *diag_cmd_write_bt_mac_addr(const void *request, uint8_t *response)
{
    if (!run_line_and_wait(REMOVE_BT_NV))
        return FAIL(response, "remove .bt_nv.bin fail!\n");
    const char *digit = packet_text(request); // all twelve; behind a shorter text lie zeroes
    char command[64] = {};
    snprintf(command, sizeof command, "%s%c%c:%c%c:%c%c:%c%c:%c%c:%c%c", SET_BT_ADDRESS, digit[0], digit[1],
             digit[2], digit[3], digit[4], digit[5], digit[6], digit[7], digit[8], digit[9], digit[10],
             digit[11]);
    if (!run_line_and_wait(command))
        return FAIL(response, "%s failed\n", command);
    if (!run_line_and_wait(GENERATE_BT_NV))
        return FAIL(response, "generate %s failed" GB2312_EXCLAMATION "\n", BT_NV_FILE);
    return DONE(response, "generate %s sucess!\n", BT_NV_FILE);
}

void *diag_cmd_check_bt_mac_addr(const void *, uint8_t *response)
{
    descriptor file(open(BT_NV_FILE, O_RDONLY | O_CLOEXEC));
    if (!file)
        return FAIL(response, "open %s failed" GB2312_EXCLAMATION "\n", BT_NV_FILE);
    uint8_t address[6] = {}; // a file that ends early leaves zeroes
    if (pread(file.fd, address, sizeof address, BT_ADDRESS_OFFSET) < 0)
        return FAIL(response, "read bt addr failed" GB2312_EXCLAMATION "\n");
    char text[2 * sizeof address + 1] = {};
    for (size_t i = 0; i < sizeof address; i++)
        snprintf(text + 2 * i, sizeof text - 2 * i, "%02X", address[sizeof address - 1 - i]);
    LOG("bt addr is %s!\n", text);
    return answer_text(response, text);
}

// Answers a version as its property holds it; `word` is the version's in the log.
static void *answer_version(const char *handler, uint8_t *response, const char *key, const char *word)
{
    char value[PROPERTY_SIZE] = {};
    const int length = property_get(key, value, nullptr);
    if (length < 0) {
        diag_log(handler, "property_get len=%d, get error!\n", length);
        return answer_error(response);
    }
    diag_log(handler, "%s:%s\n", word, value);
    return answer_bytes(response, value, static_cast<size_t>(length));
}

void *diag_cmd_check_ap_version(const void *, uint8_t *response)
{
    return answer_version(__func__, response, AP_VERSION_PROPERTY, "ap version");
}

void *diag_cmd_check_ap_version_ext(const void *, uint8_t *response)
{
    return answer_version(__func__, response, AP_VERSION_EXT_PROPERTY, "ap version ext");
}

void *diag_cmd_check_ed_res(const void *, uint8_t *response)
{
    char value[PROPERTY_SIZE] = {};
    int length = property_get(DEBUG_POLICY_PROPERTY, value, nullptr);
    LOG("debug policy property is: %s\n", value);
    if (length < 0)
        return FAIL(response, "property %s get failed, len=%d\n", DEBUG_POLICY_PROPERTY, length);
    if (strcmp(value, DEBUG_POLICY_GOOD) != 0)
        return FAIL(response, "Ed failed with unknown result or result is not what we want\n");
    return DONE(response, "Ed is ok\n");
}

// Answers the processor's number behind its prefix, which is not looked at: a shorter value has zeroes behind
// it. `word` is the number's in the log.
static void *answer_cpu_number(const char *handler, uint8_t *response, const char *word)
{
    char value[PROPERTY_SIZE] = {};
    if (property_get(CPU_ID_PROPERTY, value, nullptr) < 0) {
        diag_log(handler, "Read  cpu %s error.\n", word);
        return answer_error(response);
    }
    const char *number = value + HEX_PREFIX;
    diag_log(handler, "cpu %s is:0x%s\n", word, number);
    return answer_text(response, number);
}

void *diag_cmd_get_cpu_sn(const void *, uint8_t *response)
{
    return answer_cpu_number(__func__, response, "sn");
}

void *diag_cmd_get_cpu_id(const void *, uint8_t *response)
{
    return answer_cpu_number(__func__, response, "id");
}

void *diag_cmd_read_board_id(const void *, uint8_t *response)
{
    char value[PROPERTY_SIZE] = {};
    if (property_get(BOARD_ID_PROPERTY, value, nullptr) < 0)
        return FAIL(response, "Read  board id error.\n");
    // A prefix anywhere cuts off the first two characters, whatever they are.
    bool prefixed = strstr(value, "0x") || strstr(value, "0X");
    const char *id = prefixed ? value + HEX_PREFIX : value;
    LOG("board id is:0x%s\n", id);
    return answer_text(response, id);
}

void *diag_cmd_check_adb_sn(const void *, uint8_t *response)
{
    char *data = response_data(response); // the node's line feed stays behind the counted bytes
    int length = diag_cmd_read_file(ADB_SERIAL_NODE, TEXT_CAPACITY, data);
    if (length < 0)
        return FAIL(response, "Read error, len=%d\n", length);
    LOG("Adb sn read ret:%.*s\n", static_cast<int>(TEXT_CAPACITY), data);
    return answer_length(response, static_cast<size_t>(length));
}

void *diag_cmd_get_cpu_info(const void *, uint8_t *response)
{
    command_stream info = run_command(CPU_INFO);
    if (!info)
        return FAIL(response, "Open cpu info cmd excute failed\n");
    char line[LINE_SIZE];
    while (read_line(info.get(), line)) {
        LOG("Get cpu info is %s\n", line);
        if (const char *found = strstr(line, CPU_FEATURE_KEY)) {
            const char *feature = found + strlen(CPU_FEATURE_KEY); // its line feed is part of the answer
            LOG("Cpu info is %s.\n", feature);
            return answer_text(response, feature);
        }
    }
    return FAIL(response, "Can't find jtag id\n");
}

void *diag_cmd_set_cpu_running_freq(const void *request, uint8_t *response)
{
    // What is written is the place of the request's field, not its content: the field's width and encoding
    // were never agreed with the stations.
    auto frequency = static_cast<int>(reinterpret_cast<intptr_t>(packet_data(request)));
    LOG("CPU freq = %d\n", frequency);
    char text[32] = {};
    snprintf(text, sizeof text, "%d", frequency);
    for (const char *path : FREQUENCY_NODES) {
        descriptor node(open(path, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666));
        if (!node)
            return FAIL(response, "Open %s failed\n", path);
        (void)write_all(node.fd, text, strlen(text)); // a ceiling that the core refuses is no failure
    }
    return DONE(response, "status:OK\n");
}
