// Generic access: any node, any property, any shell line.
#include <cutils.h>
#include <string.h>

#include "core/command.h"
#include "core/files.h"
#include "core/shell.h"

static constexpr uint16_t READ_TEXT_LIMIT = 512; // data bytes that the read command splits
static constexpr uint16_t PAIR_TEXT_LIMIT = 256; // data bytes that the other pairs may have
static constexpr size_t SLOT_SIZE = 256;         // one piece with its terminator
static constexpr int SLOTS = 3;                  // the third is filled and ignored

namespace
{
struct pieces {
    char slot[SLOTS][SLOT_SIZE];
};
using piece_logger = void(const char *handler, int index, const char *piece, int size);
} // namespace

static void log_piece(const char *handler, int index, const char *piece, int size)
{
    diag_log(handler, "delim_str [%d]:%s,len=%d.\n", index, piece, size);
}

static void log_piece_to_write(const char *handler, int index, const char *piece, int size)
{
    diag_log(handler, "delim_str[%d]:%s, len=%d.\n", index, piece, size);
}

// Splits the request's data at every "+". False, logged as the format error that it is, when the data or a
// piece is longer than there is room for. A piece behind the third has no slot and is ignored.
static bool split(const char *handler, const void *request, pieces &out, uint16_t limit = PAIR_TEXT_LIMIT,
                  piece_logger *log = log_piece)
{
    if (!length_is_valid(handler, request))
        return false;
    memset(&out, 0, sizeof out);
    const uint16_t length = packet_length(request);
    bool fits = length <= limit;
    if (fits) {
        char text[READ_TEXT_LIMIT + 1] = {};
        memcpy(text, packet_data(request), length);
        char *rest = text;
        for (int i = 0; i < SLOTS && fits; i++) {
            const char *piece = strsep(&rest, "+");
            if (!piece)
                break;
            const size_t size = strlen(piece);
            fits = size < SLOT_SIZE;
            if (fits) {
                memcpy(out.slot[i], piece, size);
                log(handler, i, piece, static_cast<int>(size));
            }
        }
    }
    if (!fits)
        log_format_error(handler, length);
    return fits;
}

void *diag_cmd_read_node(const void *request, uint8_t *response)
{
    pieces data;
    if (!split(__func__, request, data, READ_TEXT_LIMIT))
        return answer_error(response);

    const char *path = data.slot[0];
    const char *expected = data.slot[1];
    char value[LONG_CAPACITY] = {};
    uint16_t result =
        packet_selector(request) == 0
            ? diag_cmd_read_file(path, NODE_LIMIT, value)
            : diag_cmd_read_file_new(path, expected, static_cast<int32_t>(strlen(expected)), value);
    auto count = static_cast<int16_t>(result);
    if (count < 1)
        return FAIL(response, "read form %s fail.\n", path);
    LOG("read %s form %s succ.\n", value, path);
    return answer_bytes(response, value, static_cast<size_t>(count));
}

void *diag_cmd_write_node(const void *request, uint8_t *response)
{
    pieces data;
    if (!split(__func__, request, data, PAIR_TEXT_LIMIT, log_piece_to_write))
        return answer_error(response);

    const char *path = data.slot[0];
    const char *value = data.slot[1];
    auto size = static_cast<int32_t>(strlen(value));
    if (!diag_cmd_write_file(path, size, size, value))
        return FAIL(response, "write form %s fail.\n", path);
    return DONE(response, "write %s form %s succ.\n", value, path);
}

void *diag_cmd_get_prop(const void *request, uint8_t *response)
{
    if (!length_is_valid(__func__, request))
        return answer_error(response);

    const char *key = packet_text(request);
    char value[PROPERTY_SIZE] = {};
    if (property_get(key, value, nullptr) < 1)
        return FAIL(response, "read  %s fail.\n", key);
    LOG("read %s , result is %s.\n", key, value);
    return answer_bytes(response, value, strlen(value), LONG_CAPACITY);
}

void *diag_cmd_set_prop(const void *request, uint8_t *response)
{
    pieces data;
    if (!split(__func__, request, data))
        return answer_error(response);

    const char *key = data.slot[0];
    const char *value = data.slot[1];
    if (property_set(key, value) < 0)
        return FAIL(response, "write %s fail.\n", key);
    return DONE(response, "write %s to %s succ.\n", value, key);
}

void *diag_cmd_excute_cmd(const void *request, uint8_t *response)
{
    if (!length_is_valid(__func__, request))
        return answer_error(response);

    const char *command = packet_text(request);
    if (!run_command_and_wait(command))
        return FAIL(response, "excute %s fail.\n", command);
    return DONE(response, "excute %s succ.\n", command);
}

void *diag_cmd_excute_cmd_check(const void *request, uint8_t *response)
{
    pieces data;
    if (!split(__func__, request, data))
        return answer_error(response);

    const char *command = data.slot[0];
    const char *expected = data.slot[1];
    if (!diag_cmd_compare_msg(command, expected))
        return FAIL(response, "excute %s to compare %s fail.\n", command, expected);
    return DONE(response, "excute %s to compare %s succ.\n", command, expected);
}

void *diag_cmd_get_cmd_result(const void *request, uint8_t *response)
{
    if (!length_is_valid(__func__, request))
        return answer_error(response);

    const char *command = packet_text(request);
    command_stream output = run_line(command);
    if (!output)
        return FAIL(response, "excute %s failed! \n", command);
    char data[LONG_CAPACITY + 1] = {};
    size_t length = 0;
    char line[LINE_SIZE];
    while (read_line(output.get(), line)) {
        if (length >= LONG_CAPACITY) {
            LOG("return content's length is big than alloc size!\n");
            length = LONG_CAPACITY - 1;
            break;
        }
        size_t taken = strnlen(line, LONG_CAPACITY - length); // a line that passes the end is clipped there
        memcpy(data + length, line, taken);
        length += taken;
        LOG("fgets temp result:%s\n", line);
        LOG("temp result length:%d,data:%s\n", static_cast<int>(length), data);
    }
    output.reset();
    if (length > 0 && data[length - 1] == '\n')
        data[--length] = '\0';
    // Behind the counted bytes the data field holds what was read: a line feed taken off leaves its zero
    // there.
    answer_bytes(response, data, LONG_CAPACITY, LONG_CAPACITY);
    return answer_length(response, length);
}

void *diag_cmd_get_process_state(const void *request, uint8_t *response)
{
    if (!length_is_valid(__func__, request))
        return answer_error(response);

    const char *name = packet_text(request);
    int32_t ids[PROCESS_LIMIT] = {};
    uint8_t count = 0;
    diag_get_processpid_by_name(name, ids, &count);
    if (count == 0) {
        LOG("process %s is not exsit! \n", name);
        return answer_text(response, "NOT_EXSIT");
    }
    LOG("process %s is exsit! \n", name);
    return answer_text(response, "EXSIT");
}
