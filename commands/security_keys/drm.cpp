// The content-protection keys: Widevine, HDCP 2 and the keymaster's keybox. Requests and tools' output are
// logged whole, keys included: that is how the line finds what a station sent.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "commands/security_keys/secret.h"
#include "core/command.h"
#include "core/files.h"
#include "core/shell.h"

static constexpr size_t ARGUMENT_LIMIT = 256; // bytes of an installer's argument
static constexpr size_t COMMAND_SIZE = 256;   // an installer's command line is cut here

static constexpr char KEYBOX_FILE[] = "/data/keybox.bin";
static constexpr char STORE_KEYBOX[] = "StoreKeybox /data/keybox.bin";
static constexpr char REMOVE_KEYBOX[] = "rm -f /data/keybox.bin";
static constexpr char READ_DEVICE_ID[] =
    "/system/bin/oemcrypto_test "
    "--gtest_filter=\"OEMCryptoClientTest.VersionNumber:OEMCryptoClientTest.NormalGetDeviceId\"";
static constexpr char DEVICE_ID[] = "dev_id = ";

static constexpr char WIDEVINE_CLIENT[] = "widevine_client";
static constexpr char WIDEVINE_FILE[] = "/data/widevine.xml";
static constexpr char REMOVE_WIDEVINE[] = "rm -rf /data/widevine.xml";

static constexpr char CEK_FILE[] = "/mnt/vendor/persist/CEK.txt";
static constexpr char PM_FILE[] = "/mnt/vendor/persist/PM.out";
static constexpr char REMOVE_CEK[] = "rm -f /mnt/vendor/persist/CEK.txt";
static constexpr char REMOVE_UNPAIRED[] = "rm -f /mnt/vendor/persist/CEK.txt /persist/PM.out"; // PM.out stays
static constexpr char REMOVE_PAIR[] = "rm -f /mnt/vendor/persist/CEK.txt /mnt/vendor/persist/PM.out";
static constexpr char HDCPPROV[] = "hdcpprov";
static constexpr char HDCPPROV_DONE[] = "provisioning test finished with return code: 0x0";
static constexpr char COUNT_HDCP_FILES[] = "ls -l /mnt/vendor/persist/data/dxhdcp2 | wc -l";
static constexpr char HDCP_COUNT = '6'; // the first digit of what a provisioned folder counts

static constexpr char KM_INSTALL[] = "LD_LIBRARY_PATH=/vendor/lib64/hw KmInstallKeybox";
static constexpr char KM_FILE[] = "/data/keybox.xml";
static constexpr char REMOVE_KM[] = "rm -rf /data/keybox.xml";
static constexpr char KM_DONE[] = "InstallKeybox is done";
static constexpr char KM_FAILED[] = "InstallKeybox Failed";

// The request's argument: as long as it says and no longer than there is room for.
static void copy_argument(const void *request, secret<ARGUMENT_LIMIT + 1> &argument)
{
    size_t length = packet_length(request);
    memcpy(argument.bytes, packet_data(request), length < ARGUMENT_LIMIT ? length : ARGUMENT_LIMIT);
}

// An installer's command line; the buffer cuts it.
__attribute__((format(printf, 2, 3))) static void build_command(secret<COMMAND_SIZE> &command,
                                                                const char *format, ...)
{
    va_list pieces;
    va_start(pieces, format);
    vsnprintf(command.bytes, sizeof command.bytes, format, pieces);
    va_end(pieces);
}

static bool key_file_is_there(const char *handler, const char *path)
{
    if (access(path, F_OK) == 0)
        return true;
    diag_log(handler, "%s is not exsit.\n", path);
    return false;
}

static void *answer_device_id(const char *handler, uint8_t *response)
{
    command_stream test = run_line(READ_DEVICE_ID);
    if (!test) {
        diag_log(handler, "Open oemcrypro failed!\n");
        return answer_text(response, "open_oemcrypro_fail");
    }
    secret<LINE_SIZE> line;
    while (read_line(test.get(), line.bytes)) {
        diag_log(handler, "system oemcrypto_test len:%d,data:%s\n", static_cast<int>(strlen(line.bytes)),
                 line.bytes);
        if (answer_identity(response, line.bytes, DEVICE_ID))
            return response;
    }
    diag_log(handler, "Match device id failed!\n");
    return answer_text(response, "match_device_id_fail");
}

void *diag_cmd_set_query_widevine(const void *request, uint8_t *response)
{
    if (!write_secret(KEYBOX_FILE, packet_data(request), packet_length(request), SECRET_FILE_LIMIT)) {
        LOG("Store widevine key file failed!\n");
        return answer_text(response, "store_file_fail");
    }
    const bool stored = diag_cmd_handle_system(STORE_KEYBOX);
    const bool removed = diag_cmd_handle_system(REMOVE_KEYBOX);
    if (!stored) {
        if (removed)
            LOG("remove /data/keybox.bin succ\n");
        else
            LOG("Write Widevine key failed!\n");
        return answer_text(response, "write_key_fail");
    }
    if (!removed) {
        LOG("Delete keybox.bin failed!\n");
        return answer_text(response, "delete_file_fail");
    }
    return answer_device_id(__func__, response);
}

void *diag_cmd_set_widevine_key(const void *request, uint8_t *response)
{
    if (!key_file_is_there(__func__, WIDEVINE_FILE))
        return answer_text(response, "NOT_EXSIT");
    secret<ARGUMENT_LIMIT + 1> argument;
    copy_argument(request, argument);
    secret<COMMAND_SIZE> command;
    build_command(command, "%s %s %s", WIDEVINE_CLIENT, WIDEVINE_FILE, argument.bytes);
    LOG("send command is %s.\n", command.bytes);
    if (!diag_cmd_compare_msg(command.bytes, "PASS"))
        return FAIL(response, "set keymaster fail.\n"); // the keymaster command's words; the file stays
    return diag_cmd_handle_system(REMOVE_WIDEVINE) ? answer_ok(response) : answer_error(response);
}

// Provisions the HDCP 2 keys from the two files. False when the tool does not report success.
static bool diag_exec_hdcpprov(const char *command)
{
    if (command_stream tool = run_line(command)) {
        secret<LINE_SIZE> line;
        while (read_line(tool.get(), line.bytes)) {
            if (strncmp(line.bytes, HDCPPROV_DONE, strlen(HDCPPROV_DONE)) == 0)
                return true;
        }
    }
    LOG("Exec hdcpprov failed!\n");
    return false;
}

// Data of the HDCP request, whose common length is that of the CEK: u16 PM length, CEK, PM.
static constexpr size_t CEK_OFFSET = 2;

// Leaves with a step's own text for the station, which the log tells too.
static void *hdcp_failed(const char *handler, uint8_t *response, const char *step, const char *text)
{
    diag_log(handler, "%s fail,len=%d,data=%s\n", step, static_cast<int>(strlen(text)), text);
    return answer_text(response, text);
}

void *diag_cmd_set_hdcp_key(const void *request, uint8_t *response)
{
    const uint8_t *data = packet_data(request);
    uint16_t cek_length = packet_length(request);
    const uint8_t *cek = data + CEK_OFFSET;
    if (!write_secret(CEK_FILE, cek, cek_length, SECRET_FILE_LIMIT)) {
        if (!diag_cmd_handle_system(REMOVE_CEK))
            return FAIL(response, "remove /mnt/vendor/persist/CEK.txt fail\n");
        return hdcp_failed(__func__, response, "Store CEK.txt", "store_CEK_fail");
    }
    // Only behind a CEK that was written, and so is short, may the PM be looked for.
    auto pm_length = static_cast<uint16_t>(data[0] | data[1] << 8);
    if (!write_secret(PM_FILE, cek + cek_length, pm_length, SECRET_FILE_LIMIT)) {
        if (!diag_cmd_handle_system(REMOVE_UNPAIRED))
            return FAIL(response, "remove /mnt/vendor/persist/CEK.txt /persist/PM.out\n");
        return hdcp_failed(__func__, response, "Store PM.out", "store_PM_fail");
    }
    if (!diag_exec_hdcpprov(HDCPPROV)) // both files stay: the query tries them again
        return hdcp_failed(__func__, response, "Exec hdcpprov", "exec_hdcpprov_fail");
    return DONE(response, "Store and exec hdcp succ\n");
}

static bool hdcp_files_are_complete(const char *handler)
{
    command_stream list = run_line(COUNT_HDCP_FILES);
    if (!list)
        return false;
    char line[LINE_SIZE];
    while (read_line(list.get(), line)) {
        diag_log(handler, "temp=%s!\n", line);
        if (line[0] == HDCP_COUNT)
            return true;
    }
    return false;
}

void *diag_cmd_query_hdcp_key(const void *, uint8_t *response)
{
    const bool executed = diag_exec_hdcpprov(HDCPPROV);
    if (!executed || !diag_cmd_handle_system("sync") || !hdcp_files_are_complete(__func__) ||
        !diag_cmd_handle_system(REMOVE_PAIR))
        return FAIL(response, "Query hdcp failed!exec_hdcp=%d\n", executed ? 0 : -1);
    return answer_ok(response);
}

void *diag_cmd_set_keymaster_provison(const void *request, uint8_t *response)
{
    if (!key_file_is_there(__func__, KM_FILE))
        return answer_text(response, "NOT_EXSIT");
    secret<ARGUMENT_LIMIT + 1> argument;
    copy_argument(request, argument);
    secret<COMMAND_SIZE> command;
    build_command(command, "%s %s %s %s", KM_INSTALL, KM_FILE, argument.bytes, "true");
    LOG("send command is %s.\n", command.bytes);
    command_stream tool = run_line(command.bytes);
    if (!tool)
        return FAIL(response, "send %s fail \n", command.bytes);
    secret<LINE_SIZE> line;
    bool done = false;
    while (!done && read_line(tool.get(), line.bytes)) {
        LOG("return massege is %s.\n", line.bytes);
        done = strstr(line.bytes, KM_DONE) != nullptr;
        if (!done && strstr(line.bytes, KM_FAILED))
            break;
    }
    tool.reset();
    LOG("set key master flag is %d.\n", done);
    if (!done)
        return FAIL(response, "set keymaster fail.\n");
    if (!diag_cmd_handle_system(REMOVE_KM))
        return FAIL(response, "remove /data/keybox.xml fail.\n");
    LOG("remove /data/keybox.xml success.\n");
    return DONE(response, "set keymaster success.\n");
}
