// The secure element, its die id and the drive: checked by commands of their own, not by a detection.
#include <cutils.h>
#include <string.h>
#include <unistd.h>

#include "core/shell.h"
#include "hwdec/checks.h"
#include "hwdec/probe.h"

static constexpr char DOWNLOADING[] = "nfc.fw.is_downloading";
static constexpr char INITIALIZED[] = "nfc.initialized";
static constexpr char NFC_NODE[] = "/dev/nq-nci";
static constexpr char NFC_PROCESS[] = "com.android.nfc";

static constexpr char FIND_PROCESS[] = "ps -ef | grep nfc";
static constexpr char DISABLE_NFC[] = "svc nfc disable";
static constexpr char COUNT_OFF[] = "dumpsys nfc | grep \"mState=off\" | wc -l";
static constexpr char COUNT_ON[] = "dumpsys nfc | grep \"mState=on\" | wc -l";
static constexpr char SERVICE_CPLC[] = "dumpsys secure_element | grep \"mCplc\"";
static constexpr char SERVICE_CPLC_EXPECTED[] = "mCplc:0x";
static constexpr char ELEMENT_CPLC[] = "pnscr -p ese_cplc";
static constexpr char ELEMENT_CPLC_EXPECTED[] = "CPLC:";
static constexpr char DIE_ID[] = "pnscr -p ndi";
static constexpr char DIE_ID_EXPECTED[] = "Die ID:";

static constexpr useconds_t NOT_ON_WAIT_US = 50000;
static constexpr useconds_t DISABLE_WAIT_US = 20000;

static constexpr char SSD_VENDOR[] = "cat /sys/block/nvme0n1/device/device/subsystem_vendor";
static constexpr char SSD_VENDOR_EXPECTED[] = "0x1987";
static constexpr char SSD_DEVICE[] = "cat /sys/block/nvme0n1/device/device/subsystem_device";
static constexpr char SSD_DEVICE_EXPECTED[] = "0x5013";

// Whether the value of a property begins with `expected`. `length` is what property_get returned.
static bool property_begins(const char *key, const char *expected, char (&value)[PROPERTY_SIZE], int &length)
{
    memset(value, 0, sizeof value);
    length = property_get(key, value, nullptr);
    return strncmp(value, expected, strlen(expected)) == 0;
}

// Whether the first line that a command prints contains `expected`.
static bool first_line_contains(const char *command, const char *expected)
{
    command_stream output = run_command(command);
    char line[LINE_SIZE];
    return output && read_line(output.get(), line) && strstr(line, expected);
}

static void disable_nfc()
{
    command_stream service = run_command(DISABLE_NFC);
    usleep(DISABLE_WAIT_US);
}

// The two of the secure element are registered in silent builds alone, the ones that demand them.
static void element_found(const char *name, uint8_t id, const char *item)
{
    if (hw_dec_log_suppressed)
        set_hw_dev_check_flag(id);
    hw_dec_done_flag |= done_bit(id);
    DEC_LOG_AS(name, "%s is ok!\n", item);
}

static int32_t probe_cplc(const char *name)
{
    char value[PROPERTY_SIZE];
    int length;
    if (property_begins(DOWNLOADING, "true", value, length)) {
        DEC_LOG_AS(name, "%s value(%s) is not right, the firmware is downloading\n", DOWNLOADING, value);
        return -1;
    }
    if (!property_begins(INITIALIZED, "true", value, length)) {
        DEC_LOG_AS(name, "%s value(%s) is not right\n", INITIALIZED, value);
        return -1;
    }
    command_stream output = run_command(SERVICE_CPLC);
    char line[LINE_SIZE];
    if (!output || !read_line(output.get(), line)) {
        DEC_LOG_AS(name, "%s, get nfc_cplc_check_status failed\n", SERVICE_CPLC);
        return -1;
    }
    if (!strstr(line, SERVICE_CPLC_EXPECTED))
        return -1;
    log_match(name, SERVICE_CPLC_EXPECTED, line);
    element_found(name, HW_NFC_CPLC, "Nfc cplc");
    return 0;
}

int32_t hwdec_nfc_cplc_check()
{
    const char *name = __func__;
    return run_check(name, done_bit(HW_NFC_CPLC), "Nfc cplc", [name] { return probe_cplc(name); });
}

// Takes the secure element away from the NFC service, if there is one. False when its firmware is being
// loaded: the element must be left alone then.
static bool free_element(const char *name)
{
    command_stream processes = run_command(FIND_PROCESS);
    char line[LINE_SIZE];
    if (!processes || !read_line(processes.get(), line))
        return true;
    if (!strstr(line, NFC_PROCESS))
        DEC_LOG_AS(name, "%s is not running\n", NFC_PROCESS);
    char value[PROPERTY_SIZE];
    int length;
    bool loaded = property_begins(DOWNLOADING, "false", value, length);
    if (length <= 0) {
        DEC_LOG_AS(name, "getprop %s fail\n", DOWNLOADING);
        return false;
    }
    if (!loaded) {
        DEC_LOG_AS(name, "%s value(%s) is not right\n", DOWNLOADING, value);
        return false;
    }
    disable_nfc();
    bool off = first_line_contains(COUNT_OFF, "1");
    DEC_LOG_AS(name, "nfc service is %s\n", off ? "off" : "not off"); // the element may answer all the same
    return true;
}

static int32_t probe_cplc_ffbm(const char *name)
{
    if (!free_element(name))
        return -1;
    command_stream output = run_command(ELEMENT_CPLC);
    if (!output) {
        DEC_LOG_AS(name, "execute cmd %s fail\n", ELEMENT_CPLC);
        return -1;
    }
    char line[LINE_SIZE];
    while (read_line(output.get(), line)) {
        DEC_LOG_AS(name, "%s, get nfc_cplc_check_status is %s\n", ELEMENT_CPLC, line);
        const char *cplc = strstr(line, ELEMENT_CPLC_EXPECTED);
        if (cplc && length_without_line_feed(cplc) > strlen(ELEMENT_CPLC_EXPECTED)) {
            log_match(name, ELEMENT_CPLC_EXPECTED, line);
            element_found(name, HW_NFC_CPLC, "Nfc cplc");
            return 0;
        }
    }
    DEC_LOG_AS(name, "%s, get nfc_cplc_check_status failed\n", ELEMENT_CPLC);
    return -1;
}

int32_t hwdec_nfc_cplc_ffbm_check()
{
    const char *name = __func__;
    return run_check(name, done_bit(HW_NFC_CPLC), "Nfc cplc", [name] { return probe_cplc_ffbm(name); });
}

static int32_t probe_deid(const char *name)
{
    int32_t status = access(NFC_NODE, F_OK);
    if (status != 0) {
        DEC_LOG_AS(name, "failed, the file %s of nfc deid dev node is not exist\n", NFC_NODE);
        return status;
    }
    if (!first_line_contains(COUNT_OFF, "1")) {
        if (!first_line_contains(COUNT_ON, "1"))
            usleep(NOT_ON_WAIT_US);
        disable_nfc();
        if (!first_line_contains(COUNT_OFF, "1"))
            return -1;
    }
    command_stream output = run_command(DIE_ID);
    char line[LINE_SIZE];
    while (output && read_line(output.get(), line)) {
        if (strstr(line, DIE_ID_EXPECTED)) {
            log_match(name, DIE_ID_EXPECTED, line);
            element_found(name, HW_NFC_DEID, "Nfc deid");
            return 0;
        }
    }
    return -1;
}

int32_t hwdec_nfc_deid_check()
{
    const char *name = __func__;
    return run_check(name, done_bit(HW_NFC_DEID), "Nfc deid", [name] { return probe_deid(name); });
}

static int32_t probe_ssd(const char *name)
{
    char line[LINE_SIZE];
    command_stream vendor = run_command(SSD_VENDOR);
    if (!vendor) {
        DEC_LOG_AS(name, "execute command %s failed\n", SSD_VENDOR);
        return -1;
    }
    while (read_line(vendor.get(), line))
        if (!strstr(line, SSD_VENDOR_EXPECTED))
            return -1;
    command_stream device = run_command(SSD_DEVICE);
    if (!device) {
        DEC_LOG_AS(name, "execute command %s failed\n", SSD_DEVICE);
        return -1;
    }
    while (read_line(device.get(), line)) {
        if (strstr(line, SSD_DEVICE_EXPECTED)) {
            log_match(name, SSD_DEVICE_EXPECTED, line);
            found(name, HW_SSD, "Ssd");
            return 0;
        }
    }
    return -1;
}

int32_t hwdec_ssd_check_v2()
{
    const char *name = __func__;
    return run_check(name, done_bit(HW_SSD), "Ssd", [name] { return probe_ssd(name); });
}
