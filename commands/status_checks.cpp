#include "commands/status_checks.h"

#include <cutils.h>
#include <dirent.h>
#include <string.h>
#include <unistd.h>

#include "core/files.h"
#include "core/log.h"
#include "core/packet.h"
#include "core/shell.h"

static constexpr int32_t NODE_LIMIT = 256;      // bytes of a node or result file, which may fill them all
static constexpr size_t PATH_SIZE = 256;        // a path with its terminator
static constexpr size_t VALUE_SIZE = 256;       // a property's value
static constexpr size_t REMOVE_LINE_SIZE = 768; // a removal with its path

static constexpr char STORAGE[] = "/storage";
static constexpr const char *INTERNAL_STORAGE[] = {".", "..", "emulated", "self"};

static constexpr char TURBO_WRITE[] = "/sys/devices/platform/soc/1d84000.ufshc/ufstw_lu0/tw_enable";
static constexpr const char *RESULT_FILES[] = {
    // by the request's selector
    "/sdcard/runin/bigboard_mmi/result.txt",
    "/sdcard/runin/bigboard_mmi_2/result.txt",
};

static constexpr char KEY_PROPERTY[] = "ro.vendor.tc.qkey";
static constexpr int KEY_LENGTH = 88;

static constexpr char LIST_SCRATCH[] = "lpdump | grep scratch";
static constexpr char SCRATCH[] = "scratch";

static constexpr char CALIBRATION_STATE[] = "/sys/devices/platform/soc/soc:fpsensor/goodix_cail_state";
static constexpr char CALIBRATED[] = "0";
static constexpr char FINGERPRINT_ID[] = "persist.vendor.sys.fp.uid";

static bool is_internal_storage(const char *name)
{
    for (const char *internal : INTERNAL_STORAGE)
        if (strcmp(name, internal) == 0)
            return true;
    return false;
}

void *diag_cmd_check_extsd_insert(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x0B1E);
    if (!response)
        return nullptr;

    DIR *storage = opendir(STORAGE);
    if (!storage) {
        LOG("Open dir error...\n");
        return answer_error(response);
    }
    bool inserted = false;
    while (const dirent *entry = readdir(storage)) {
        if (!is_internal_storage(entry->d_name)) {
            LOG("threre is sd or otg storage in phone\n");
            inserted = true;
            break;
        }
    }
    closedir(storage);
    return answer_text(response, inserted ? "READY" : "ABSENT");
}

void *diag_cmd_remove_file(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x1300, TEXT_RESPONSE, DIAG_ALLOC_FAILED);
    if (!response)
        return nullptr;

    char path[PATH_SIZE] = {};
    size_t length = packet_length(request);
    if (length >= sizeof path) { // half a path would remove something else
        LOG("Command format error or data len[%d] is too long.\n", static_cast<int>(length));
        return answer_error(response);
    }
    memcpy(path, packet_data(request), length);
    if (access(path, F_OK) != 0) {
        LOG("%s is not exist\n", path);
        return answer_text(response, "NOTEXIST");
    }
    char line[REMOVE_LINE_SIZE];
    if (snprintf(line, sizeof line, "rm -rf %s", path) <= 0)
        return answer_length(response, 0);
    if (diag_cmd_handle_system(line) != 0) {
        LOG("remove %s fail\n", path);
        return answer_error(response);
    }
    LOG("remove %s sucess\n", path);
    return answer_ok(response);
}

void *diag_cmd_verify_turbo_write(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x1301);
    if (!response)
        return nullptr;
    if (access(TURBO_WRITE, F_OK) != 0) {
        LOG("%s is not exsit.\n", TURBO_WRITE);
        return answer_error(response);
    }
    LOG("%s is exsit.\n", TURBO_WRITE);
    return answer_ok(response);
}

void *diag_cmd_get_mmi_result(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x1302, LONG_RESPONSE, DIAG_ALLOC_FAILED);
    if (!response)
        return nullptr;

    uint8_t test = packet_selector(request);
    if (test >= sizeof RESULT_FILES / sizeof RESULT_FILES[0]) {
        LOG("Command is not support!\n");
        return answer_error(response);
    }
    if (access(RESULT_FILES[test], F_OK) != 0) {
        LOG("result file no exsit!\n");
        return answer_text(response, "NOT_EXSIT");
    }
    // Read in place: a closing line feed stays behind the counted bytes.
    char *result = response_data(response);
    auto length = static_cast<int16_t>(diag_cmd_read_file(RESULT_FILES[test], NODE_LIMIT, result));
    if (length < 0) {
        LOG("mmi %d result len=%d, read error\n", test, length);
        return answer_error(response);
    }
    LOG("mmi%d detect status:%s\n", test, result); // the data field is longer than what was read
    return answer_length(response, static_cast<size_t>(length));
}

void *diag_cmd_get_qkey_prop(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x1400, TEXT_RESPONSE, DIAG_ALLOC_FAILED);
    if (!response)
        return nullptr;

    char key[VALUE_SIZE] = {};
    int length = property_get(KEY_PROPERTY, key, nullptr);
    if (length != KEY_LENGTH) {
        LOG("get tencent key length %d\n", length);
        return answer_error(response);
    }
    LOG("get tencent key sucess\n");
    return answer_bytes(response, key, KEY_LENGTH);
}

void *diag_cmd_judge_scratch_exsit(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x1500);
    if (!response)
        return nullptr;

    command_stream partitions = run_command(LIST_SCRATCH);
    if (!partitions) {
        LOG("%s excute fail!\n", LIST_SCRATCH);
        return answer_error(response);
    }
    LOG("%s excute success!\n", LIST_SCRATCH);
    char line[LINE_SIZE];
    while (read_line(partitions.get(), line)) {
        if (strstr(line, SCRATCH)) {
            LOG("scratch is exsit!\n");
            return answer_error(response);
        }
    }
    LOG("scratch is not exsit!.\n");
    return answer_ok(response);
}

void *diag_cmd_check_fingerprint_data(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x1501);
    if (!response)
        return nullptr;

    char state[NODE_LIMIT] = {};
    uint16_t result = diag_cmd_read_file_new(CALIBRATION_STATE, CALIBRATED, NODE_LIMIT, state);
    if (static_cast<int16_t>(result) < 0) {
        LOG("fingerprint data is not exsit\n");
        return answer_error(response);
    }
    LOG("fingerprint data is  exsit.\n");
    return answer_ok(response);
}

void *diag_cmd_check_fingerprint_id(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x1502);
    if (!response)
        return nullptr;

    char id[VALUE_SIZE] = {};
    int length = property_get(FINGERPRINT_ID, id, nullptr);
    if (length < 1) {
        LOG("fingerprint id get failed\n");
        return answer_error(response);
    }
    LOG("fingerprint id get success.\n");
    return answer_bytes(response, id, static_cast<size_t>(length));
}
