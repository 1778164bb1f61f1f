// The battery: its values, charging, the cells, and the thermal engine that limits them.
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "core/command.h"
#include "core/files.h"
#include "core/shell.h"

static constexpr char CAPACITY[] = "/sys/class/power_supply/battery/capacity";
static constexpr char INPUT_SUSPEND[] = "/sys/class/power_supply/battery/input_suspend";
static constexpr char CELL_SELECTED[] = "/sys/class/power_supply/cv-batt-controller/dual_batt_sel";
static constexpr char CELL_STATE[] = "/sys/class/power_supply/cv-batt-controller/dual_batt_stat";
static constexpr char CELL_VOLTAGE_1[] = "sys/class/power_supply/cv-batt-controller/cv_bat1_volt";
static constexpr char CELL_VOLTAGE_2[] = "sys/class/power_supply/cv-batt-controller/cv_bat2_volt";

static constexpr char BATTERY_FOLDER[] = "/sys/class/power_supply/battery/";

namespace
{
struct battery_info {
    uint16_t code;
    const char *folder;
    const char *node;
};
} // namespace
static constexpr battery_info BATTERY_INFO[] = {
    {0x0C01, BATTERY_FOLDER, "capacity"},
    {0x0C02, BATTERY_FOLDER, "voltage_now"},
    {0x0C03, BATTERY_FOLDER, "current_now"},
    {0x0C04, "", "sys/class/power_supply/usb/type"},
};

static constexpr uint16_t STOP_CHARGE = 0x0C1E;
static constexpr uint16_t START_CHARGE = 0x0C1F;

static constexpr char THERMAL_ENGINE[] = "thermal-engine";
static constexpr char STOP_THERMAL_ENGINE[] = "setprop ctl.stop thermal-engine";
static constexpr char LIST_THERMAL_ENGINE[] = "ps -A | grep thermal-engine";
static constexpr char COOLING_STATE[] = "/sys/devices/virtual/thermal/cooling_device13/cur_state";
static constexpr char NO_COOLING[] = "0";
static constexpr char THERMAL_FACTORY[] = "./vendor/bin/thermal_factory";

// Whether the process list ends with the thermal service: a line behind its own counts as stopped.
static bool thermal_engine_runs()
{
    char line[LINE_SIZE] = {};
    char last[LINE_SIZE] = {};
    if (command_stream list = run_line(LIST_THERMAL_ENGINE))
        while (read_line(list.get(), line))
            memcpy(last, line, sizeof last);
    return strstr(last, THERMAL_ENGINE) != nullptr;
}

void *diag_cmd_stop_thermal_engine(const void *, uint8_t *response)
{
    if (!run_line_and_wait(STOP_THERMAL_ENGINE))
        return FAIL(response, "send stop thermal-engine failed!\n");
    if (thermal_engine_runs())
        return FAIL(response, "stop thermal-engine failed!\n");
    if (!diag_cmd_write_file(COOLING_STATE, strlen(NO_COOLING), NODE_LIMIT, NO_COOLING))
        return FAIL(response, "write %s to %s fail.\n", NO_COOLING, COOLING_STATE);
    char state[LINE_SIZE] = {};
    if (diag_cmd_read_file(COOLING_STATE, 1, state) < 0)
        return FAIL(response, "thermal state read fail!\n");
    if (state[0] != NO_COOLING[0])
        return FAIL(response, "thermal state is non-limited!\n");
    (void)diag_cmd_handle_system(
        THERMAL_FACTORY); // the engine is stopped, whether its factory tool can be run or not
    return DONE(response, "stop thermal-engine sucessed.\n");
}

void *diag_cmd_set_battery_cap(const void *request, uint8_t *response)
{
    descriptor node(open(CAPACITY, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666));
    // The count is judged as a signed 16-bit number: more than 32,767 bytes are answered as a failure.
    if (!node || static_cast<int16_t>(write(node.fd, packet_data(request), packet_length(request))) < 0)
        return FAIL(response, "Set capacity value failed\n");
    return DONE(response, "Set capacity value:%s\n", packet_text(request));
}

void *diag_cmd_get_battery_info(const void *request, uint8_t *response)
{
    uint16_t code = packet_code(request);
    char path[256] = {};
    for (const battery_info &info : BATTERY_INFO)
        if (info.code == code)
            snprintf(path, sizeof path, "%s%s", info.folder, info.node);
    if (path[0] == '\0')
        LOG("Unknow battery info\n");

    // Read in place: a closing line feed stays behind the counted bytes.
    char *value = response_data(response);
    int length = diag_cmd_read_file(path, NODE_LIMIT, value);
    if (length < 0)
        return FAIL(response, "Get %s result:%d, failed\n", path, length);
    LOG("Get %s content:%.*s\n", path, NODE_LIMIT, value);
    return answer_length(response, static_cast<size_t>(length));
}

void *diag_cmd_control_usb_charge(const void *request, uint8_t *response)
{
    uint16_t code = packet_code(request);
    bool set = false;
    if (code == STOP_CHARGE) {
        set = diag_cmd_write_file(INPUT_SUSPEND, 1, NODE_LIMIT, "1");
        LOG("Control usb stop charge result:%d.\n", set ? 0 : -1);
    } else if (code == START_CHARGE) {
        set = diag_cmd_write_file(INPUT_SUSPEND, 1, NODE_LIMIT, "0");
        LOG("Control usb start charge result:%d.\n", set ? 0 : -1);
    }
    if (!set)
        return FAIL(response, "Control usb charge failed.\n");
    return DONE(response, "Control usb charge succ.\n");
}

void *diag_cmd_set_charge_type(const void *request, uint8_t *response)
{
    uint8_t cell = packet_selector(request);
    if (cell > 1)
        return FAIL(response, "Charge Type is not support!\n");
    const char *wanted = cell == 1 ? "1" : "0";
    if (!diag_cmd_write_file(CELL_SELECTED, 1, NODE_LIMIT, wanted))
        return FAIL(response, "Write Charge Type Fail!\n");
    char selected[NODE_LIMIT] = {};
    if (diag_cmd_read_file_new(CELL_SELECTED, wanted, 1, selected) < 0)
        return FAIL(response, "Read Charge Type Fail!\n");
    return DONE(response, "Set charge type: %s\n", selected);
}

void *diag_cmd_get_charge_type(const void *, uint8_t *response)
{
    char state[NODE_LIMIT] = {};
    int length = diag_cmd_read_file(CELL_STATE, NODE_LIMIT, state);
    if (length < 0)
        return FAIL(response, "Read Charge Type Fail!\n");
    LOG("Get charge type: %.*s\n", NODE_LIMIT, state);
    return answer_bytes(response, state, static_cast<size_t>(length));
}

// Reads a cell's voltage. The last character of the text is not part of the number, whatever it is.
static bool read_voltage(const char *path, int32_t &voltage)
{
    char text[NODE_LIMIT + 1] = {};
    if (diag_cmd_read_file(path, NODE_LIMIT, text) < 0)
        return false;
    if (size_t length = strlen(text))
        text[length - 1] = '\0';
    voltage = static_cast<int32_t>(strtol(text, nullptr, 10)); // as atoi, and beyond its bounds too
    return true;
}

void *diag_cmd_get_voltage_minus(const void *, uint8_t *response)
{
    int32_t voltage_1 = 0;
    int32_t voltage_2 = 0;
    if (!read_voltage(CELL_VOLTAGE_1, voltage_1))
        return FAIL(response, "Read battery1 voltage Fail!\n");
    if (!read_voltage(CELL_VOLTAGE_2, voltage_2))
        return FAIL(response, "Read battery2 voltage Fail!\n");
    LOG("battery1 value: %d, battery2 value2:%d.\n", voltage_1, voltage_2);

    auto difference =
        static_cast<uint32_t>(voltage_1) - static_cast<uint32_t>(voltage_2); // 32 bits, wrapping
    if (static_cast<int32_t>(difference) < 0)
        difference = 0 - difference;
    char text[sizeof "-2147483648"];
    snprintf(text, sizeof text, "%d", static_cast<int32_t>(difference));
    LOG("Get battery diffrent values: %d.\n", static_cast<int32_t>(difference));
    return answer_text(response, text);
}
