// What decides whether a unit may leave a test stage; and the removal of a file.
#include <cutils.h>
#include <dirent.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <iterator>

#include "core/command.h"
#include "core/files.h"
#include "core/shell.h"

static constexpr size_t PATH_SIZE = 256;        // a path with its terminator
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

void *diag_cmd_check_extsd_insert(const void *, uint8_t *response)
{
    DIR *storage = opendir(STORAGE);
    if (!storage)
        return FAIL(response, "Open dir error...\n");
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

void *diag_cmd_remove_file(const void *request, uint8_t *response)
{
    char path[PATH_SIZE] = {};
    const uint16_t length = packet_length(request);
    if (length >= sizeof path) { // half a path would remove something else
        log_format_error(__func__, length);
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
    if (!diag_cmd_handle_system(line))
        return FAIL(response, "remove %s fail\n", path);
    return DONE(response, "remove %s sucess\n", path);
}

void *diag_cmd_verify_turbo_write(const void *, uint8_t *response)
{
    if (access(TURBO_WRITE, F_OK) != 0)
        return FAIL(response, "%s is not exsit.\n", TURBO_WRITE);
    return DONE(response, "%s is exsit.\n", TURBO_WRITE);
}

void *diag_cmd_get_mmi_result(const void *request, uint8_t *response)
{
    uint8_t test = packet_selector(request);
    if (test >= std::size(RESULT_FILES))
        return FAIL(response, "Command is not support!\n");
    if (access(RESULT_FILES[test], F_OK) != 0) {
        LOG("result file no exsit!\n");
        return answer_text(response, "NOT_EXSIT");
    }
    // Read in place: a closing line feed stays behind the counted bytes.
    char *result = response_data(response);
    int length = diag_cmd_read_file(RESULT_FILES[test], NODE_LIMIT, result);
    if (length < 0)
        return FAIL(response, "mmi %d result len=%d, read error\n", test, length);
    LOG("mmi%d detect status:%s\n", test, result); // the data field is longer than what was read
    return answer_length(response, static_cast<size_t>(length));
}

void *diag_cmd_get_qkey_prop(const void *, uint8_t *response)
{
    char key[PROPERTY_SIZE] = {};
    int length = property_get(KEY_PROPERTY, key, nullptr);
    if (length != KEY_LENGTH)
        return FAIL(response, "get tencent key length %d\n", length);
    LOG("get tencent key sucess\n");
    return answer_bytes(response, key, KEY_LENGTH);
}

void *diag_cmd_judge_scratch_exsit(const void *, uint8_t *response)
{
    command_stream partitions = run_command(LIST_SCRATCH);
    if (!partitions)
        return FAIL(response, "%s excute fail!\n", LIST_SCRATCH);
    LOG("%s excute success!\n", LIST_SCRATCH);
    char line[LINE_SIZE];
    while (read_line(partitions.get(), line)) {
        if (strstr(line, SCRATCH))
            return FAIL(response, "scratch is exsit!\n");
    }
    return DONE(response, "scratch is not exsit!.\n");
}

void *diag_cmd_check_fingerprint_data(const void *, uint8_t *response)
{
    char state[NODE_LIMIT] = {};
    if (diag_cmd_read_file_new(CALIBRATION_STATE, CALIBRATED, NODE_LIMIT, state) < 0)
        return FAIL(response, "fingerprint data is not exsit\n");
    return DONE(response, "fingerprint data is  exsit.\n");
}

void *diag_cmd_check_fingerprint_id(const void *, uint8_t *response)
{
    char id[PROPERTY_SIZE] = {};
    int length = property_get(FINGERPRINT_ID, id, nullptr);
    if (length < 1)
        return FAIL(response, "fingerprint id get failed\n");
    LOG("fingerprint id get success.\n");
    return answer_bytes(response, id, static_cast<size_t>(length));
}
