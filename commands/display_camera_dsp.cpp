// The display processor: its pass-through power and its picture effects.
#include "commands/display_camera.h"
#include "core/files.h"
#include "core/log.h"
#include "core/packet.h"
#include "core/shell.h"

static constexpr char POWER_NODE[] = "/sys/devices/virtual/misc/iris5/iris5_pt_power";
static constexpr char BYPASS_NODE[] = "/d/iris/abyp_opt"; // 1: effects are bypassed

struct configuration {
    const char *tool;
    const char *parameters;
};

// In the order they are sent.
static constexpr configuration NEUTRAL_EFFECTS[] = {
    {"irisConfig", "56 1 1"},
    {"softirisConfig", "516 1 1"},
    {"softirisConfig", "515 1 1"},
    {"softirisConfig", "517 1 6500"},
};

void *diag_cmd_dsp_power_up(void *request, uint16_t)
{
    LOG("Enter!\n");
    uint8_t *response = response_new(__func__, request, 0x3205);
    if (!response)
        return nullptr;

    if (diag_cmd_write_file(POWER_NODE, 1, 1, "1") == FILE_FAILED) {
        LOG("write %s to %s fail\n", "0", POWER_NODE); // the line has always named the other value
        return answer_error(response);
    }
    char state[2] = {};
    if (diag_cmd_read_file(POWER_NODE, 1, state) == FILE_FAILED) {
        LOG("read dsp up state fail\n");
        return answer_error(response);
    }
    if (state[0] != '1') {
        LOG("dsp power up fail\n");
        return answer_error(response);
    }
    LOG("dsp power up sucess\n");
    return answer_ok(response);
}

void *diag_cmd_dsp_power_down(void *request, uint16_t)
{
    LOG("Enter!\n");
    uint8_t *response = response_new(__func__, request, 0x3206);
    if (!response)
        return nullptr;

    if (diag_cmd_write_file(POWER_NODE, 1, 1, "0") == FILE_FAILED) {
        LOG("write %s to %s fial\n", "0", POWER_NODE);
        return answer_error(response);
    }
    char state[2] = {};
    if (diag_cmd_read_file(POWER_NODE, 1, state) == FILE_FAILED) {
        LOG("read dsp down state fail\n");
        return answer_error(response);
    }
    if (state[0] != '0') {
        LOG("dsp power down fail\n");
        return answer_error(response);
    }
    LOG("dsp power down sucess\n");
    return answer_ok(response);
}

void *diag_cmd_dsp_effect_down(void *request, uint16_t)
{
    LOG("Enter!\n");
    uint8_t *response = response_new(__func__, request, 0x3207);
    if (!response)
        return nullptr;

    if (diag_cmd_write_file(BYPASS_NODE, 1, 1, "1") == FILE_FAILED) {
        LOG("write %s to %s fial\n", "1", BYPASS_NODE);
        return answer_error(response);
    }
    LOG("set dsp effect down sucess\n");
    return answer_ok(response);
}

void *diag_cmd_query_dsp_effect(void *request, uint16_t)
{
    LOG("Enter!\n");
    uint8_t *response = response_new(__func__, request, 0x3208);
    if (!response)
        return nullptr;

    char state[2] = {};
    if (diag_cmd_read_file(BYPASS_NODE, 1, state) == FILE_FAILED) {
        LOG("read dsp effect state fail\n");
        return answer_error(response);
    }
    if (state[0] != '1') {
        LOG("dsp effect is not close\n");
        return answer_error(response);
    }
    LOG("dsp power down sucess\n"); // the power command's words
    return answer_ok(response);
}

void *diag_cmd_set_dsp_effect(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x320A);
    if (!response)
        return nullptr;

    int step = 0;
    for (const configuration &effect : NEUTRAL_EFFECTS) {
        char command[256];
        snprintf(command, sizeof command, "%s %s", effect.tool, effect.parameters);
        LOG("send %d command: %s.\n", step++, command);
        if (diag_cmd_handle_system(command) != 0) { // what the tool itself returns is not asked
            LOG("send %s fail.\n", command);
            return answer_error(response);
        }
        LOG("send %s success.\n", command);
    }
    LOG("close all display effect success.\n");
    return answer_ok(response);
}
