// The RGB light: its calibration table, and lighting it from the table or at a given brightness. Two
// generations of driver chip exist; the newer commands ask which one is fitted.
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include "core/command.h"
#include "core/files.h"
#include "core/shell.h"

static constexpr char OLD_NODE[] = "/sys/bus/i2c/devices/1-002c/mmi_cali";
static constexpr char NEW_NODE[] = "/sys/rgb/mcu_control";
static constexpr char NAME_NODE[] = "/sys/rgb/name";
static constexpr char SWITCH_NODE[] = "/sys/rgb_led1/mmi";
static constexpr char NEW_CHIP_NAME[] = "aw2015_led";
static constexpr char OLD_CHIP_NAME[] = "aw9120_led";

static constexpr char LIGHT_OFF[] = "0000"; // to either chip, before each lighting
static constexpr int32_t LIGHT_OFF_LENGTH = 4;
static constexpr int OLD_CHIP_CURRENT = 5; // ends each of its control strings

static constexpr char TABLE_FILE[] = "/mnt/vendor/persist/rgb_data.bin";
static constexpr char TABLE_REMOVE[] = "rm -f /mnt/vendor/persist/rgb_data.bin";
static constexpr size_t STEPS = 256;
static constexpr size_t STEP_DIGITS = 2; // hexadecimal; a line of the file holds those of each step
static constexpr size_t TABLE_LINE = STEPS * STEP_DIGITS;
static constexpr int OLD_TABLES = 15; // lines of the file: one a channel, five a colour
static constexpr int NEW_TABLES = 3;  // one a colour
static constexpr int ALL_LINES = INT_MAX;

namespace
{
enum rgb_chip : int32_t { CHIP_UNKNOWN = -1, CHIP_OLD = 0, CHIP_NEW = 1 };
enum rgb_color : uint8_t { OFF = 0, RED = 1, GREEN = 2, BLUE = 3 };

// The older chip's channels of a colour, which are line numbers of its table, and the colour's word in the
// log.
struct channel_group {
    int first;
    int count;
    const char *word;
};

// A control string. It is counted, for a table too short for the step yields zero bytes.
struct control {
    char text[9];
    int32_t length;
};

// A brightness curve as the station fits it: 10000 * brightness = a t^2 + b t + k, with t = 0..d over the
// steps.
struct curve {
    int32_t a;
    int32_t b;
    int32_t k;
    int32_t d;
};

using step_digits = char[OLD_TABLES][STEP_DIGITS]; // of each line of the table file
} // namespace

// The newer chip's selectors, by colour.
static constexpr const char *NEW_SELECTORS[] = {"", "01", "00", "02"};

static constexpr channel_group CHANNELS[] = {
    {0, 0, ""},
    {0, 4, "red"}, // the fifth red and blue lines are not shown
    {5, 5, "green"},
    {10, 4, "blue"},
};

static control old_brightness(uint8_t group, uint8_t brightness)
{
    control out = {"", 8};
    snprintf(out.text, sizeof out.text, "00%02X%02X%02X", group, brightness, OLD_CHIP_CURRENT);
    return out;
}

static control new_brightness(uint8_t color, uint8_t brightness)
{
    control out = {"0000", 4};
    if (color != OFF)
        snprintf(out.text, sizeof out.text, "%s%2X", NEW_SELECTORS[color], brightness); // padded with a blank
    return out;
}

static control old_step(int channel, const char (&digits)[STEP_DIGITS])
{
    control out = {"", 8};
    snprintf(out.text, sizeof out.text, "004%X%c%c%02X", static_cast<unsigned int>(channel), digits[0],
             digits[1], OLD_CHIP_CURRENT);
    return out;
}

static control new_step(uint8_t color, const char (&digits)[STEP_DIGITS])
{
    control out = {"", 4};
    snprintf(out.text, sizeof out.text, "%s%c%c", NEW_SELECTORS[color], digits[0], digits[1]);
    return out;
}

static bool write_control(const char *node, const control &string)
{
    return diag_cmd_write_file(node, string.length, NODE_LIMIT, string.text);
}

static bool switch_off(const char *node)
{
    return diag_cmd_write_file(node, LIGHT_OFF_LENGTH, LIGHT_OFF_LENGTH, LIGHT_OFF);
}

static int32_t judge_rgb_type()
{
    char name[NODE_LIMIT + 1] = {};
    if (diag_cmd_read_file(NAME_NODE, NODE_LIMIT, name) < 1)
        return CHIP_UNKNOWN;
    if (strncmp(name, NEW_CHIP_NAME, strlen(NEW_CHIP_NAME)) == 0) {
        LOG("rgb chip is new\n");
        return CHIP_NEW;
    }
    if (strncmp(name, OLD_CHIP_NAME, strlen(OLD_CHIP_NAME)) == 0) {
        LOG("rgb chip is old\n");
        return CHIP_OLD;
    }
    LOG("read rgb chip data from %s\n", NAME_NODE);
    return CHIP_UNKNOWN;
}

// ---- lighting at a given brightness

void *diag_cmd_set_rgb_data(const void *request, uint8_t *response)
{
    uint8_t group = packet_data(request)[0];
    if (group >= 0x40 || group % 0x10 != 0)
        return FAIL(response, "command is not exit\n");
    control string = old_brightness(group, packet_data(request)[1]);
    descriptor node(open(OLD_NODE, O_RDWR | O_CLOEXEC));
    if (!node)
        return FAIL(response, "open %s fail!\n", OLD_NODE);
    // The driver's refusals count as written; only a node that takes nothing fails.
    if (write(node.fd, LIGHT_OFF, LIGHT_OFF_LENGTH) == 0)
        return FAIL(response, "close light fail!\n");
    if (write(node.fd, string.text, static_cast<size_t>(string.length)) == 0)
        return FAIL(response, "write data to %s fail!\n", OLD_NODE);
    return DONE(response, "write rgb data sucess\n");
}

void *diag_cmd_set_rgb_data_new(const void *request, uint8_t *response)
{
    uint8_t color = packet_data(request)[0];
    uint8_t brightness = packet_data(request)[1];
    if (color > BLUE)
        return FAIL(response, "command is not exit\n");
    int32_t chip = judge_rgb_type();
    // The string is sent even when the reset before it has failed.
    if (chip == CHIP_OLD) {
        control string = old_brightness(static_cast<uint8_t>(color * 0x10), brightness);
        bool reset = switch_off(OLD_NODE);
        if (write_control(OLD_NODE, string) && reset)
            return DONE(response, "old:write rgb data sucess\n");
    } else if (chip == CHIP_NEW) {
        control string = new_brightness(color, brightness);
        bool reset = switch_off(NEW_NODE);
        if (write_control(NEW_NODE, string) && reset)
            return DONE(response, "new:write rgb data %s sucess.\n", string.text);
    }
    return FAIL(response, "write rgb data fail\n");
}

void *diag_cmd_set_rgb_switch(const void *request, uint8_t *response)
{
    if (!diag_cmd_write_file(SWITCH_NODE, packet_length(request), NODE_LIMIT, packet_text(request)))
        return FAIL(response, "write rgb data fail\n");
    return DONE(response, "write rgb data sucess\n");
}

// ---- lighting at a step of the table

// The two digits of a step in each of the file's first `lines` lines, zeroes where it has none. False,
// logged, when there is no file.
static bool read_step(const char *handler, uint8_t step, int lines, step_digits &digits)
{
    memset(digits, 0, sizeof digits);
    file_stream file(fopen(TABLE_FILE, "re"));
    if (!file) {
        diag_log(handler, "open %s fail\n", TABLE_FILE);
        return false;
    }
    char line[1024] = {};
    int index = 0;
    for (int i = 0; i < lines && fgets(line, sizeof line, file.get()); i++) {
        if (index < OLD_TABLES)
            memcpy(digits[index], line + step * STEP_DIGITS, STEP_DIGITS);
        else
            index = 0; // a line too many is dropped, and those behind it take the places from the second on
        index++;
        memset(line, 0, sizeof line);
    }
    return true;
}

void *diag_cmd_test_rgb_calibration(const void *request, uint8_t *response)
{
    uint8_t color = packet_data(request)[0];
    step_digits digits;
    if (!read_step(__func__, packet_data(request)[1], ALL_LINES, digits))
        return answer_error(response);
    if (color < RED || color > BLUE)
        return FAIL(response, "command is not exit!!\n");
    if (!switch_off(OLD_NODE))
        return FAIL(response, "init light driver fail\n");
    const channel_group &group = CHANNELS[color];
    for (int channel = group.first; channel < group.first + group.count; channel++) {
        if (!write_control(OLD_NODE, old_step(channel, digits[channel])))
            return FAIL(response, "open %s light %d fail\n", group.word, channel);
    }
    return DONE(response, "open all light sucess\n");
}

void *diag_cmd_test_rgb_calibration_new(const void *request, uint8_t *response)
{
    uint8_t color = packet_data(request)[0];
    uint8_t step = packet_data(request)[1];
    if (color < RED || color > BLUE)
        return FAIL(response, "command is not exit!!\n");
    step_digits digits;
    if (!read_step(__func__, step, color, digits))
        return answer_error(response);
    const char(&own)[STEP_DIGITS] = digits[color - 1]; // the file has a line a colour

    int32_t chip = judge_rgb_type();
    if (chip == CHIP_UNKNOWN)
        return FAIL(response, "no led chip type is suit.\n");
    const char *node = chip == CHIP_NEW ? NEW_NODE : OLD_NODE;
    if (!switch_off(node))
        return FAIL(response, "init light driver fail\n");
    int channel = 5 * color - 1; // of the older chip: the last of the colour's five
    control string = chip == CHIP_NEW ? new_step(color, own) : old_step(channel, own);
    if (!write_control(node, string))
        return FAIL(response, "open red light %d fail\n", color); // whatever the colour
    return DONE(response, "open all light sucess\n");
}

// ---- the table

static int32_t read_i32(const uint8_t *bytes)
{
    uint32_t value = bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
    return static_cast<int32_t>(value);
}

// The value rounded to a double, so that no compiler fuses the product with a sum: a fused one differs in its
// last bit, and the phone's brightness would not be the workstation's.
static double rounded(double product)
{
    volatile double stored = product;
    return stored;
}

// Towards zero, and to the nearest end where the number does not fit, as the phone's processor converts.
static int32_t to_i32(double value)
{
    if (value >= INT32_MAX)
        return INT32_MAX;
    if (value <= INT32_MIN)
        return INT32_MIN;
    return static_cast<int32_t>(value);
}

static int32_t brightness_at(const curve &from, int step)
{
    double t = (from.d / 255.0) * step;
    int32_t raw = to_i32(rounded(from.a * t * t) + rounded(from.b * t) + from.k);
    int32_t brightness = to_i32(raw / 10000.0 + 0.5);
    if (brightness > 255)
        brightness = 255;
    return brightness < 0 || step == 0 ? 0 : brightness;
}

static bool append_table(FILE *file, const curve &from)
{
    char line[TABLE_LINE + 1];
    for (size_t step = 0; step < STEPS; step++)
        snprintf(line + step * STEP_DIGITS, STEP_DIGITS + 1, "%02X",
                 static_cast<unsigned int>(brightness_at(from, static_cast<int>(step))));
    fseek(file, 0, SEEK_END);
    // The stream holds a whole line back: what the partition refuses is seen when it is flushed.
    if (fwrite(line, 1, TABLE_LINE, file) != TABLE_LINE || fputc('\n', file) == EOF || fflush(file) != 0)
        return false;
    fsync(fileno(file));
    return true;
}

static void *write_tables(const char *handler, const void *request, uint8_t *response, int tables)
{
    if (!diag_cmd_handle_system(TABLE_REMOVE)) {
        diag_log(handler, "remove /data/rgb_data.bin fail.\n");
        return answer_error(response);
    }
    file_stream file(fopen(TABLE_FILE, "wb+e"));
    if (!file) {
        diag_log(handler, "Open /mnt/vendor/persist/rgb_data.bin failed\n");
        return answer_error(response);
    }
    const uint8_t *record = packet_data(request);
    for (int i = 0; i < tables; i++, record += sizeof(curve)) {
        curve from = {read_i32(record), read_i32(record + 4), read_i32(record + 8), read_i32(record + 12)};
        if (!append_table(file.get(), from)) {
            diag_log(handler, "write to /mnt/vendor/persist/rgb_data.bin failed\n");
            return answer_error(response);
        }
    }
    diag_log(handler, "write to /mnt/vendor/persist/rgb_data.bin sucess\n");
    return answer_ok(response);
}

void *diag_cmd_set_rgb_table(const void *request, uint8_t *response)
{
    return write_tables(__func__, request, response, OLD_TABLES);
}

void *diag_cmd_set_rgb_table_new(const void *request, uint8_t *response)
{
    return write_tables(__func__, request, response, NEW_TABLES);
}
