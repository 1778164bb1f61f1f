#include "commands/battery.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "core/files.h"
#include "core/log.h"
#include "core/packet.h"
#include "core/shell.h"

static constexpr int32_t NODE_LIMIT = 256; // bytes of a node's value, which may fill them all

static constexpr char CAPACITY[] = "/sys/class/power_supply/battery/capacity";
static constexpr char INPUT_SUSPEND[] = "/sys/class/power_supply/battery/input_suspend";
static constexpr char CELL_SELECTED[] = "/sys/class/power_supply/cv-batt-controller/dual_batt_sel";
static constexpr char CELL_STATE[] = "/sys/class/power_supply/cv-batt-controller/dual_batt_stat";
static constexpr char CELL_VOLTAGE_1[] = "sys/class/power_supply/cv-batt-controller/cv_bat1_volt";
static constexpr char CELL_VOLTAGE_2[] = "sys/class/power_supply/cv-batt-controller/cv_bat2_volt";

static constexpr char BATTERY_FOLDER[] = "/sys/class/power_supply/battery/";

struct battery_info {
    uint16_t code;
    const char *folder;
    const char *node;
};
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

void *diag_cmd_stop_thermal_engine(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x0140);
    if (!response)
        return nullptr;

    if (!run_line_and_wait(STOP_THERMAL_ENGINE)) {
        LOG("send stop thermal-engine failed!\n");
        return answer_error(response);
    }
    if (thermal_engine_runs()) {
        LOG("stop thermal-engine failed!\n");
        return answer_error(response);
    }
    if (diag_cmd_write_file(COOLING_STATE, strlen(NO_COOLING), NODE_LIMIT, NO_COOLING) != 0) {
        LOG("write %s to %s fail.\n", NO_COOLING, COOLING_STATE);
        return answer_error(response);
    }
    char state[LINE_SIZE] = {};
    if (static_cast<int16_t>(diag_cmd_read_file(COOLING_STATE, 1, state)) < 0) {
        LOG("thermal state read fail!\n");
        return answer_error(response);
    }
    if (state[0] != NO_COOLING[0]) {
        LOG("thermal state is non-limited!\n");
        return answer_error(response);
    }
    diag_cmd_handle_system(THERMAL_FACTORY);
    LOG("stop thermal-engine sucessed.\n");
    return answer_ok(response);
}

void *diag_cmd_set_battery_cap(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x0C00);
    if (!response)
        return nullptr;

    descriptor node(open(CAPACITY, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666));
    // The count is judged as a signed 16-bit number: one of more than 32,767 bytes has always been a failure.
    if (!node || static_cast<int16_t>(write(node.fd, packet_data(request), packet_length(request))) < 0) {
        LOG("Set capacity value failed\n");
        return answer_error(response);
    }
    LOG("Set capacity value:%s\n", packet_text(request));
    return answer_ok(response);
}

void *diag_cmd_get_battery_info(void *request, uint16_t)
{
    LOG("Enter\n");
    uint16_t code = packet_code(request);
    uint8_t *response = response_new(__func__, request, code);
    if (!response)
        return nullptr;

    char path[256] = {};
    for (const battery_info &info : BATTERY_INFO)
        if (info.code == code)
            snprintf(path, sizeof path, "%s%s", info.folder, info.node);
    if (path[0] == '\0')
        LOG("Unknow battery info\n");

    // Read in place: a closing line feed stays behind the counted bytes.
    char *value = response_data(response);
    auto length = static_cast<int16_t>(diag_cmd_read_file(path, NODE_LIMIT, value));
    if (length < 0) {
        LOG("Get %s result:%d, failed\n", path, length);
        return answer_error(response);
    }
    LOG("Get %s content:%.*s\n", path, NODE_LIMIT, value);
    return answer_length(response, static_cast<size_t>(length));
}

void *diag_cmd_control_usb_charge(void *request, uint16_t)
{
    LOG("Enter\n");
    uint16_t code = packet_code(request);
    uint8_t *response = response_new(__func__, request, code);
    if (!response)
        return nullptr;

    int16_t result = -1;
    if (code == STOP_CHARGE) {
        result = static_cast<int16_t>(diag_cmd_write_file(INPUT_SUSPEND, 1, NODE_LIMIT, "1"));
        LOG("Control usb stop charge result:%d.\n", result);
    } else if (code == START_CHARGE) {
        result = static_cast<int16_t>(diag_cmd_write_file(INPUT_SUSPEND, 1, NODE_LIMIT, "0"));
        LOG("Control usb start charge result:%d.\n", result);
    }
    if (result != 0) {
        LOG("Control usb charge failed.\n");
        return answer_error(response);
    }
    LOG("Control usb charge succ.\n");
    return answer_ok(response);
}

void *diag_cmd_set_charge_type(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x0C0A);
    if (!response)
        return nullptr;

    uint8_t cell = packet_selector(request);
    if (cell > 1) {
        LOG("Charge Type is not support!\n");
        return answer_error(response);
    }
    const char *wanted = cell == 1 ? "1" : "0";
    if (static_cast<int16_t>(diag_cmd_write_file(CELL_SELECTED, 1, NODE_LIMIT, wanted)) < 0) {
        LOG("Write Charge Type Fail!\n");
        return answer_error(response);
    }
    char selected[NODE_LIMIT] = {};
    if (static_cast<int16_t>(diag_cmd_read_file_new(CELL_SELECTED, wanted, 1, selected)) < 0) {
        LOG("Read Charge Type Fail!\n");
        return answer_error(response);
    }
    LOG("Set charge type: %s\n", selected);
    return answer_ok(response);
}

void *diag_cmd_get_charge_type(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x0C0B);
    if (!response)
        return nullptr;

    char state[NODE_LIMIT] = {};
    auto length = static_cast<int16_t>(diag_cmd_read_file(CELL_STATE, NODE_LIMIT, state));
    if (length < 0) {
        LOG("Read Charge Type Fail!\n");
        return answer_error(response);
    }
    LOG("Get charge type: %.*s\n", NODE_LIMIT, state);
    return answer_bytes(response, state, static_cast<size_t>(length));
}

// Reads a cell's voltage. The last character of the text is not part of the number, whatever it is.
static bool read_voltage(const char *path, int32_t &voltage)
{
    char text[NODE_LIMIT + 1] = {};
    if (static_cast<int16_t>(diag_cmd_read_file(path, NODE_LIMIT, text)) < 0)
        return false;
    if (size_t length = strlen(text))
        text[length - 1] = '\0';
    voltage = static_cast<int32_t>(strtol(text, nullptr, 10)); // as atoi, and beyond its bounds too
    return true;
}

void *diag_cmd_get_voltage_minus(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x0C0C);
    if (!response)
        return nullptr;

    int32_t voltage_1 = 0;
    int32_t voltage_2 = 0;
    if (!read_voltage(CELL_VOLTAGE_1, voltage_1)) {
        LOG("Read battery1 voltage Fail!\n");
        return answer_error(response);
    }
    if (!read_voltage(CELL_VOLTAGE_2, voltage_2)) {
        LOG("Read battery2 voltage Fail!\n");
        return answer_error(response);
    }
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
