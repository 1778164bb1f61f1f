// The panel: colour calibration, test pictures, brightness, identity, status, colour mode and refresh rate.
#include <cutils.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "commands/display_camera.h"
#include "core/files.h"
#include "core/log.h"
#include "core/packet.h"
#include "core/shell.h"

static constexpr char COLOR_NODE[] = "/sys/touchscreen/novatek_vane_color";
static constexpr size_t COLOR_BLOCK = 108; // the controller takes whole blocks only

static constexpr char PICTURE_APP[] =
    "am start -n com.corvane.factorytest/.modules.tools.testtools.SwitchPicAct --es";
static constexpr char FREQUENCY_APP[] =
    "am start -n com.corvane.factorytest/.modules.tools.testtools.SwitchPicAct -e freq";
static constexpr uint16_t COLOR_WITH_MARGIN = 4; // data bytes: red, green, blue, margin
static constexpr uint8_t MAX_MARGIN = 50;        // percent

static constexpr char CALIBRATION_PROPERTY[] = "vendor.display.panel.calibration.status";

static constexpr char MAX_BRIGHTNESS_NODE[] = "/sys/class/backlight/panel0-backlight/max_brightness";
static constexpr char BRIGHTNESS_NODE[] = "/sys/class/backlight/panel0-backlight/brightness";
static constexpr char PANEL_ID_NODE[] = "/sys/devices/virtual/misc/iris5/iris5_lcdid";
static constexpr char DISPLAY_STATUS_NODE[] = "/sys/devices/virtual/misc/iris5/iris5_display_status";
static constexpr int32_t NODE_LIMIT = 256;

static constexpr char COLOR_MODE_LINE[] = "settings get system color_mode";
static constexpr char REFRESH_PERIOD_LINE[] = "dumpsys SurfaceFlinger --dispsync| egrep \"Period\"";

void *diag_cmd_set_lcd_data(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x3201);
    if (!response)
        return nullptr;
    if (!length_is_valid(__func__, request, COLOR_BLOCK))
        return answer_error(response);

    uint8_t block[COLOR_BLOCK] = {};
    memcpy(block, packet_data(request), packet_length(request));
    descriptor node(open(COLOR_NODE, O_WRONLY | O_CLOEXEC));
    if (!node) {
        LOG("open %s fail.\n", COLOR_NODE);
        return answer_error(response);
    }
    LOG("write data length : %d  lcd data is : %d %d %d .\n",
        static_cast<int>(strnlen(reinterpret_cast<const char *>(block), sizeof block)), block[105],
        block[106], block[107]);
    if (write(node.fd, block, sizeof block) ==
        0) { // a refused block counts as written: the line relies on it
        LOG("write data to %s fail.\n", COLOR_NODE);
        return answer_error(response);
    }
    LOG("write lcd data sucess\n");
    return answer_ok(response);
}

void *diag_cmd_set_lcd_picture(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x3202);
    if (!response)
        return nullptr;

    const uint8_t *color = packet_data(request);
    uint8_t margin = color[3];
    char command[128];
    if (packet_length(request) != COLOR_WITH_MARGIN) {
        snprintf(command, sizeof command, "%s color %02X%02X%02X", PICTURE_APP, color[0], color[1], color[2]);
    } else if (margin >= 1 && margin <= MAX_MARGIN) {
        snprintf(command, sizeof command, "%s color %02X%02X%02X%s%d", PICTURE_APP, color[0], color[1],
                 color[2], " --ei marginPercent ", margin);
    } else {
        LOG("picture area is too large!!\n");
        return answer_error(response);
    }
    if (!run_command(command)) { // closed at once, unread: that waits for the tool
        LOG("change picture fail!!\n");
        return answer_error(response);
    }
    LOG("change picture sucess!!\n");
    return answer_ok(response);
}

void *diag_cmd_check_lcd_calibration(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x3203);
    if (!response)
        return nullptr;

    char status[256] = {};
    int length = property_get(CALIBRATION_PROPERTY, status, nullptr);
    if (length < 1) {
        LOG("property_get error! len=%d, lcd_cal_sts_prop=%s\n", length, status);
        return answer_error(response);
    }
    switch (status[0]) { // what follows the first character says more, and not to us
    case '0':
        LOG("device had been calibrated, calibration data is valid!\n");
        return answer_ok(response);
    case '1':
    case '2':
        LOG("device calibration data had lost or panel had been changed!\n");
        return answer_error(response);
    default:
        LOG("unknown circumstances!\n");
        return answer_error(response);
    }
}

void *diag_cmd_quit_picture_apk(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x3204);
    if (!response)
        return nullptr;

    char command[128];
    snprintf(command, sizeof command, "%s%s", PICTURE_APP, " action finish");
    if (!run_command(command)) {
        LOG("quit change picture apk fail!!\n");
        return answer_error(response);
    }
    LOG("quit change picture apk sucess!!\n");
    return answer_ok(response);
}

void *diag_cmd_set_lcd_maxbrightness(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x3209);
    if (!response)
        return nullptr;

    char highest[NODE_LIMIT + 1] = {};
    char current[NODE_LIMIT + 1] = {};
    if (diag_cmd_read_file(MAX_BRIGHTNESS_NODE, NODE_LIMIT, highest) == FILE_FAILED) {
        LOG("read %s fail.\n", MAX_BRIGHTNESS_NODE);
        return answer_error(response);
    }
    auto length = static_cast<int32_t>(strlen(highest)); // with the line feed, if the node gives one
    if (diag_cmd_write_file(BRIGHTNESS_NODE, length, NODE_LIMIT, highest) != 0) {
        LOG("write %s to %s fail.\n", highest, BRIGHTNESS_NODE);
        return answer_error(response);
    }
    if (diag_cmd_read_file(BRIGHTNESS_NODE, length, current) == FILE_FAILED) {
        LOG("lcd brightness read fail!\n");
        return answer_error(response);
    }
    if (memcmp(current, highest, static_cast<size_t>(length)) != 0) {
        LOG("lcd brightness is not max!\n");
        return answer_error(response);
    }
    LOG("lcd brightness is %s.\n", current);
    return answer_ok(response);
}

void *diag_cmd_get_lcd_id(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x320B);
    if (!response)
        return nullptr;

    char id[NODE_LIMIT] = {};
    uint16_t count = diag_cmd_read_file(PANEL_ID_NODE, NODE_LIMIT, id);
    if (count == FILE_FAILED) {
        LOG("read %s fail.\n", PANEL_ID_NODE);
        return answer_error(response);
    }
    return answer_bytes(response, id, count);
}

void *diag_cmd_get_display_status(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x320C);
    if (!response)
        return nullptr;

    file_stream node(fopen(DISPLAY_STATUS_NODE, "re"));
    if (!node) {
        LOG("Can not get the mipi error.\n");
        return answer_error(response);
    }
    // Each line begins with an error count. Counts add up to one text, and a count of none starts it anew.
    char result[TEXT_CAPACITY];
    size_t length = 0;
    char line[LINE_SIZE];
    while (read_line(node.get(), line)) {
        line[strcspn(line, " ")] = '\0';
        if (strtol(line, nullptr, 10) < 1) {
            result[0] = 'O';
            result[1] = 'K';
            length = 2;
            continue;
        }
        size_t taken = strnlen(line, sizeof result - length);
        memcpy(result + length, line, taken);
        length += taken;
    }
    return answer_bytes(response, result, length);
}

void *diag_cmd_get_color_mode(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x320D);
    if (!response)
        return nullptr;

    command_stream output = run_command(COLOR_MODE_LINE);
    char line[LINE_SIZE];
    if (!output || !read_line(output.get(), line) || line[0] == '\0') {
        LOG("Can not get color mode.\n");
        return answer_error(response);
    }
    return answer_bytes(response, line, strlen(line) - 1); // the last character is taken for the line feed
}

void *diag_cmd_set_lcd_frequency(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x320E);
    if (!response)
        return nullptr;

    char command[256];
    snprintf(command, sizeof command, "%s %d", FREQUENCY_APP, packet_data(request)[0]);
    if (!run_command(command)) {
        LOG("Can send set lcd freq cmd!!\n");
        return answer_error(response);
    }
    LOG("Set lcd frq success!\n");
    return answer_ok(response);
}

void *diag_cmd_get_lcd_frequency(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x320F);
    if (!response)
        return nullptr;

    command_stream output = run_command(REFRESH_PERIOD_LINE);
    if (!output) {
        LOG("Can send get lcd freq cmd.\n");
        return answer_error(response);
    }
    char line[LINE_SIZE];
    read_line(output.get(), line); // without output it stays empty
    const char *rate = strchr(line, '(');
    if (!rate) {
        LOG("string freq is %s.\n", line);
        return answer_error(response);
    }
    rate++;
    char whole[LINE_SIZE] = {}; // "60.00 Hz)" without its fraction
    memcpy(whole, rate, strcspn(rate, "."));
    LOG("frequency is %s.\n", whole);
    return answer_text(response, whole);
}
