// What payment stands on: the services' keys, the secure element's identity, and the phone's binding.
#include <string.h>

#include "commands/security_keys/secret.h"
#include "core/command.h"
#include "core/files.h"
#include "core/shell.h"

static constexpr char SOTER_CLIENT[] = "soter_client";
static constexpr char KEY_CLIENT[] = "vendor/bin/key_client --load ifaa"; // relative: the service runs in /
static constexpr char VERIFIED[] = "PASS";

static constexpr char CPLC_FILE[] = "/data/cplc_info";
static constexpr size_t CPLC_LENGTH = 42;   // raw bytes at the start of the file
static constexpr size_t CARD_ID_LENGTH = 8; // behind them

static constexpr char BINDING_PARTITION[] = "/dev/block/bootdevice/by-name/nuroconfig";
static constexpr uint16_t BINDING_LIMIT = 256;
static constexpr char BINDING_SERVICE[] = "dumpsys kavophonebind";
static constexpr char BINDING_KEY[] = "[mBindKey]: ";

void *diag_cmd_set_kavophonebind(const void *request, uint8_t *response)
{
    const bool written =
        write_secret(BINDING_PARTITION, packet_data(request), packet_length(request), BINDING_LIMIT);
    const int result = written ? 0 : 65535; // the log knows a failed write by -1 in 16 bits
    LOG("write ret:%d\n", result);
    if (!written)
        return FAIL(response, "write failed! ret:%d\n", result);
    return answer_ok(response);
}

void *diag_cmd_query_kavophonebind(const void *, uint8_t *response)
{
    command_stream service = run_line(BINDING_SERVICE);
    if (!service) {
        LOG("Open kavophonebind failed\n");
        return answer_text(response, "open_kavophonebind_fail");
    }
    secret<LINE_SIZE> line;
    while (read_line(service.get(), line.bytes)) {
        LOG("kavophone len:%d,key:%s\n", static_cast<int>(strlen(line.bytes)), line.bytes);
        if (answer_identity(response, line.bytes, BINDING_KEY))
            return response;
    }
    LOG("Match kavophonebind failed\n");
    return answer_text(response, "match_kavophonebind_fail");
}

void *diag_cmd_get_wechat_key(const void *, uint8_t *response)
{
    command_stream client = run_line(SOTER_CLIENT);
    if (!client)
        return FAIL(response, "write failed! popen SOTER_CLIENT:%x\n", 0);
    char *key = response_data(response);
    size_t length = 0; // as the client prints: the answer takes what it holds of the last line
    secret<LINE_SIZE> line;
    while (length < LONG_CAPACITY && read_line(client.get(), line.bytes)) {
        LOG("fgets wechat_temp:%s\n", line.bytes);
        memcpy(key + length, line.bytes, strnlen(line.bytes, LONG_CAPACITY - length));
        length += strlen(line.bytes);
        LOG("write length:%d,data:%.*s\n", static_cast<int>(length), static_cast<int>(LONG_CAPACITY), key);
    }
    // An answer that is full to its last byte may still be the whole key.
    if (length > LONG_CAPACITY || (length == LONG_CAPACITY && read_line(client.get(), line.bytes))) {
        LOG("write file size overflow alloc size!\n");
        length = LONG_CAPACITY - 1;
    }
    return answer_length(response, length);
}

void *diag_cmd_get_alipay_key(const void *, uint8_t *response)
{
    if (command_stream client = run_line(KEY_CLIENT)) {
        secret<LINE_SIZE> line;
        while (read_line(client.get(), line.bytes)) {
            int difference = strncmp(line.bytes, VERIFIED, strlen(VERIFIED));
            LOG("fgets cmp_key_ret=%d,alipay_temp:%s\n", difference, line.bytes);
            if (difference == 0)
                return DONE(response, "Alipay verify succ.\n");
        }
    }
    return FAIL(response, "Alipay verify fail.\n");
}

// Appends `name` and the bytes in upper-case hexadecimal. The last is left out when it is a line feed: the
// end of a record that is one byte short.
static char *append_record(char *text, const char *name, const char *bytes, size_t count)
{
    static constexpr char DIGITS[] = "0123456789ABCDEF";
    for (; *name; name++)
        *text++ = *name;
    if (bytes[count - 1] == '\n')
        count--;
    for (size_t i = 0; i < count; i++) {
        auto byte = static_cast<uint8_t>(bytes[i]);
        *text++ = DIGITS[byte >> 4];
        *text++ = DIGITS[byte & 15];
    }
    return text;
}

void *diag_cmd_get_cplc_key(const void *, uint8_t *response)
{
    file_stream file(fopen(CPLC_FILE, "re"));
    if (!file)
        return FAIL(response, "Get cplc failed,fp:%d\n", 0);
    secret<LINE_SIZE> records; // raw bytes, zeros among them; what the line does not have counts as zero
    read_line(file.get(), records.bytes);
    char *text = response_data(response);
    char *end = append_record(text, "cplc:", records.bytes, CPLC_LENGTH);
    end = append_record(end, "mac:", records.bytes + CPLC_LENGTH, CARD_ID_LENGTH);
    auto length = static_cast<size_t>(end - text);
    LOG("Get cplc succ,len=%d,data:%s\n", static_cast<int>(length), text);
    return answer_length(response, length);
}
