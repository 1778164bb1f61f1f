// The panel: colour calibration, test pictures, brightness, identity, status, colour mode and refresh rate.
#include <cutils.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "core/command.h"
#include "core/files.h"
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

static constexpr char COLOR_MODE_LINE[] = "settings get system color_mode";
static constexpr char REFRESH_PERIOD_LINE[] = "dumpsys SurfaceFlinger --dispsync| egrep \"Period\"";

void *diag_cmd_set_lcd_data(const void *request, uint8_t *response)
{
    if (!length_is_valid(__func__, request, COLOR_BLOCK))
        return answer_error(response);

    uint8_t block[COLOR_BLOCK] = {};
    memcpy(block, packet_data(request), packet_length(request));
    descriptor node(open(COLOR_NODE, O_WRONLY | O_CLOEXEC));
    if (!node)
        return FAIL(response, "open %s fail.\n", COLOR_NODE);
    LOG("write data length : %d  lcd data is : %d %d %d .\n",
        static_cast<int>(strnlen(reinterpret_cast<const char *>(block), sizeof block)), block[105],
        block[106], block[107]);
    if (write(node.fd, block, sizeof block) == 0) // a refused block counts as written: the line relies on it
        return FAIL(response, "write data to %s fail.\n", COLOR_NODE);
    return DONE(response, "write lcd data sucess\n");
}

void *diag_cmd_set_lcd_picture(const void *request, uint8_t *response)
{
    const uint8_t *color = packet_data(request);
    uint8_t margin = color[3];
    char command[128];
    if (packet_length(request) != COLOR_WITH_MARGIN) {
        snprintf(command, sizeof command, "%s color %02X%02X%02X", PICTURE_APP, color[0], color[1], color[2]);
    } else if (margin >= 1 && margin <= MAX_MARGIN) {
        snprintf(command, sizeof command, "%s color %02X%02X%02X --ei marginPercent %d", PICTURE_APP,
                 color[0], color[1], color[2], margin);
    } else
        return FAIL(response, "picture area is too large!!\n");
    if (!run_command_and_wait(command))
        return FAIL(response, "change picture fail!!\n");
    return DONE(response, "change picture sucess!!\n");
}

void *diag_cmd_check_lcd_calibration(const void *, uint8_t *response)
{
    char status[PROPERTY_SIZE] = {};
    int length = property_get(CALIBRATION_PROPERTY, status, nullptr);
    if (length < 1)
        return FAIL(response, "property_get error! len=%d, lcd_cal_sts_prop=%s\n", length, status);
    switch (status[0]) { // what follows the first character says more, and not to us
    case '0':
        return DONE(response, "device had been calibrated, calibration data is valid!\n");
    case '1':
    case '2':
        return FAIL(response, "device calibration data had lost or panel had been changed!\n");
    default:
        return FAIL(response, "unknown circumstances!\n");
    }
}

void *diag_cmd_quit_picture_apk(const void *, uint8_t *response)
{
    char command[128];
    snprintf(command, sizeof command, "%s action finish", PICTURE_APP);
    if (!run_command_and_wait(command))
        return FAIL(response, "quit change picture apk fail!!\n");
    return DONE(response, "quit change picture apk sucess!!\n");
}

void *diag_cmd_set_lcd_maxbrightness(const void *, uint8_t *response)
{
    char highest[NODE_LIMIT + 1] = {};
    char current[NODE_LIMIT + 1] = {};
    if (diag_cmd_read_file(MAX_BRIGHTNESS_NODE, NODE_LIMIT, highest) < 0)
        return FAIL(response, "read %s fail.\n", MAX_BRIGHTNESS_NODE);
    auto length = static_cast<int32_t>(strlen(highest)); // with the line feed, if the node gives one
    if (!diag_cmd_write_file(BRIGHTNESS_NODE, length, NODE_LIMIT, highest))
        return FAIL(response, "write %s to %s fail.\n", highest, BRIGHTNESS_NODE);
    if (diag_cmd_read_file(BRIGHTNESS_NODE, length, current) < 0)
        return FAIL(response, "lcd brightness read fail!\n");
    if (memcmp(current, highest, static_cast<size_t>(length)) != 0)
        return FAIL(response, "lcd brightness is not max!\n");
    return DONE(response, "lcd brightness is %s.\n", current);
}

void *diag_cmd_get_lcd_id(const void *, uint8_t *response)
{
    char id[NODE_LIMIT] = {};
    int count = diag_cmd_read_file(PANEL_ID_NODE, NODE_LIMIT, id);
    if (count < 0)
        return FAIL(response, "read %s fail.\n", PANEL_ID_NODE);
    return answer_bytes(response, id, static_cast<size_t>(count));
}

void *diag_cmd_get_display_status(const void *, uint8_t *response)
{
    file_stream node(fopen(DISPLAY_STATUS_NODE, "re"));
    if (!node)
        return FAIL(response, "Can not get the mipi error.\n");
    // Each line begins with an error count. Counts add up to one text, and a count of none starts it anew.
    char result[TEXT_CAPACITY];
    size_t length = 0;
    char line[LINE_SIZE];
    while (read_line(node.get(), line)) {
        line[strcspn(line, " ")] = '\0';
        if (strtol(line, nullptr, 10) < 1) {
            length = 2;
            memcpy(result, "OK", length);
            continue;
        }
        size_t taken = strnlen(line, sizeof result - length);
        memcpy(result + length, line, taken);
        length += taken;
    }
    return answer_bytes(response, result, length);
}

void *diag_cmd_get_color_mode(const void *, uint8_t *response)
{
    command_stream output = run_command(COLOR_MODE_LINE);
    char line[LINE_SIZE];
    if (!output || !read_line(output.get(), line) || line[0] == '\0')
        return FAIL(response, "Can not get color mode.\n");
    return answer_bytes(response, line, strlen(line) - 1); // the last character is taken for the line feed
}

void *diag_cmd_set_lcd_frequency(const void *request, uint8_t *response)
{
    char command[256];
    snprintf(command, sizeof command, "%s %d", FREQUENCY_APP, packet_data(request)[0]);
    command_stream app = run_command(command);
    if (!app)
        return FAIL(response, "Can send set lcd freq cmd!!\n");
    return DONE(response, "Set lcd frq success!\n"); // once it is started; the answer waits for its end
}

void *diag_cmd_get_lcd_frequency(const void *, uint8_t *response)
{
    command_stream output = run_command(REFRESH_PERIOD_LINE);
    if (!output)
        return FAIL(response, "Can send get lcd freq cmd.\n");
    char line[LINE_SIZE];
    read_line(output.get(), line); // without output it stays empty
    const char *rate = strchr(line, '(');
    if (!rate)
        return FAIL(response, "string freq is %s.\n", line);
    rate++;
    char whole[LINE_SIZE] = {}; // "60.00 Hz)" without its fraction
    memcpy(whole, rate, strcspn(rate, "."));
    LOG("frequency is %s.\n", whole);
    return answer_text(response, whole);
}
