// What the phone says of its security: secure boot, the RPMB key, the lock.
#include <cutils.h>
#include <fcntl.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include "core/command.h"
#include "core/files.h"
#include "core/shell.h"

static constexpr char SECURE_BOOT_PROPERTY[] = "ro.boot.secureboot";
static constexpr char LOCK_STATE_PROPERTY[] = "ro.secureboot.lockstate";

// The fuse word of this chipset, through its register-read tool.
static constexpr char READ_FUSE[] = "/system/bin/r 0x00780350 &> /data/secure_boot";
static constexpr char FUSE_FILE[] = "/data/secure_boot";
static constexpr char REMOVE_FUSE_FILE[] = "rm -f /data/secure_boot";
static constexpr char FUSE_BLOWN[] = "00780350: 00303030";
static constexpr ssize_t FUSE_LENGTH = sizeof FUSE_BLOWN - 1;

static constexpr char GET_RPMB_STATUS[] = "echo 2 | qseecom_sample_client v smplap64 14 1";
static constexpr char SET_RPMB_KEY[] = "echo 0 | qseecom_sample_client v smplap64 14 1";

namespace
{
// One talk with the secure world's sample client: the first line with one of the two texts decides.
struct rpmb_step {
    const char *start_log;
    const char *command;
    const char *positive;
    const char *positive_log;
    const char *negative;
    const char *negative_log;
    const char *silent_log;
};

enum class rpmb_verdict { POSITIVE, NEGATIVE, NONE };
} // namespace

static constexpr rpmb_step GET_STATUS = {
    "step 1: get rpmb key status\n",    GET_RPMB_STATUS,
    "RPMB_KEY_PROVISIONED_AND_OK",      "rpmb key has provisioned\n",
    "RPMB_KEY_NOT_PROVISIONED",         "rpmb key not provisioned\n",
    "step 1 not get right feed back\n",
};
static constexpr rpmb_step SET_KEY = {
    "step 2: set rpmb key status\n",    SET_RPMB_KEY,
    "RPMB key provisioning completed",  "rpmb key provisioning completed\n",
    "RPMB key provisioning failed",     "rpmb key provisioning failed\n",
    "step 2 not get right feed back\n",
};
static constexpr rpmb_step GET_STATUS_AGAIN = {
    "step 3: get rpmb key status again\n",
    GET_RPMB_STATUS,
    GET_STATUS.positive,
    nullptr,
    GET_STATUS.negative,
    nullptr,
    "step 3 not get right feed back\n",
};

static bool secure_boot_by_property(const char *handler)
{
    char value[PROPERTY_SIZE] = {};
    int length = property_get(SECURE_BOOT_PROPERTY, value, nullptr);
    if (length < 1) {
        diag_log(handler, "Get secure_prop failed\n");
        return false;
    }
    diag_log(handler, "diag_rsp data_length=%d,secure_prop=%s\n", length, value);
    bool secure = value[0] == '1';
    diag_log(handler, secure ? "Secure boot succ\n" : "Not secure boot\n");
    return secure;
}

// Whether the tool's output, left in the fuse file, is the word of a blown fuse.
static bool fuse_is_blown(const char *handler, char (&content)[FUSE_LENGTH + 1])
{
    descriptor file(open(FUSE_FILE, O_RDONLY | O_CLOEXEC));
    if (!file)
        return false;
    ssize_t count = read(file.fd, content, FUSE_LENGTH);
    diag_log(handler, "Read secure_boot content:%s..%d!\n", content, static_cast<int>(count));
    int difference = count == FUSE_LENGTH ? strncasecmp(content, FUSE_BLOWN, FUSE_LENGTH) : -1;
    if (difference != 0)
        diag_log(handler, "/data/secure_boot compare fail.cmp_rst=%d\n", difference);
    return difference == 0;
}

static bool secure_boot_by_fuse(const char *handler)
{
    if (!diag_cmd_handle_system(READ_FUSE)) {
        diag_log(handler, "Not secure boot\n");
        return false;
    }
    char content[FUSE_LENGTH + 1] = {};
    bool blown = fuse_is_blown(handler, content);
    if (!diag_cmd_handle_system(REMOVE_FUSE_FILE)) {
        diag_log(handler, "remove /data/secure_boot fail.\n");
        return false;
    }
    if (blown)
        diag_log(handler, "%s,device has secure boot succ!!\n", content);
    else
        diag_log(handler, "Not secure boot\n");
    return blown;
}

void *diag_cmd_check_secure_boot(const void *request, uint8_t *response)
{
    bool by_property = packet_selector(request) != 0;
    bool secure = by_property ? secure_boot_by_property(__func__) : secure_boot_by_fuse(__func__);
    return secure ? answer_ok(response) : answer_error(response);
}

static rpmb_verdict take_step(const char *handler, const rpmb_step &step)
{
    diag_log(handler, "%s", step.start_log);
    command_stream client = run_line(step.command);
    if (!client)
        return rpmb_verdict::NONE;
    char line[LINE_SIZE];
    while (read_line(client.get(), line)) {
        diag_log(handler, "%s\n", line);
        if (strstr(line, step.positive)) {
            if (step.positive_log)
                diag_log(handler, "%s", step.positive_log);
            return rpmb_verdict::POSITIVE;
        }
        if (strstr(line, step.negative)) {
            if (step.negative_log)
                diag_log(handler, "%s", step.negative_log);
            return rpmb_verdict::NEGATIVE;
        }
    }
    diag_log(handler, "%s", step.silent_log);
    return rpmb_verdict::NONE;
}

void *diag_cmd_set_rpmb_key_status(const void *, uint8_t *response)
{
    rpmb_verdict status = take_step(__func__, GET_STATUS);
    // The key is written once in the phone's life, and only when the client says that there is none.
    if (status == rpmb_verdict::NEGATIVE && take_step(__func__, SET_KEY) == rpmb_verdict::POSITIVE)
        status = take_step(__func__, GET_STATUS_AGAIN);
    return status == rpmb_verdict::POSITIVE ? answer_ok(response) : answer_error(response);
}

void *diag_cmd_check_lock_state(const void *, uint8_t *response)
{
    char value[PROPERTY_SIZE] = {};
    int length = property_get(LOCK_STATE_PROPERTY, value, nullptr);
    if (length < 0)
        return FAIL(response, "property_get len=%d, get error!\n", length);
    LOG("lock state:%s\n", value);
    return answer_text(response, value);
}
