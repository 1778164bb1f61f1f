// The display processor: its pass-through power and its picture effects.
#include "core/command.h"
#include "core/files.h"
#include "core/shell.h"

static constexpr char POWER_NODE[] = "/sys/devices/virtual/misc/iris5/iris5_pt_power";
static constexpr char BYPASS_NODE[] = "/d/iris/abyp_opt"; // 1: effects are bypassed

namespace
{
// A state of the pass-through power; the words are the log's.
struct power_state {
    const char *value;
    const char *word;
    const char *unwritten; // with its misspelling
};

struct configuration {
    const char *tool;
    const char *parameters;
};
} // namespace

static constexpr power_state POWER_UP = {"1", "up", "fail"};
static constexpr power_state POWER_DOWN = {"0", "down", "fial"};

// In the order they are sent.
static constexpr configuration NEUTRAL_EFFECTS[] = {
    {"irisConfig", "56 1 1"},
    {"softirisConfig", "516 1 1"},
    {"softirisConfig", "515 1 1"},
    {"softirisConfig", "517 1 6500"},
};

// Writes the state and reads it back.
static void *set_power(const char *handler, uint8_t *response, const power_state &to)
{
    char state[2] = {};
    if (!diag_cmd_write_file(POWER_NODE, 1, 1, to.value))
        diag_log(handler, "write %s to %s %s\n", "0", POWER_NODE, to.unwritten); // "0" whichever was meant
    else if (diag_cmd_read_file(POWER_NODE, 1, state) < 0)
        diag_log(handler, "read dsp %s state fail\n", to.word);
    else if (state[0] != to.value[0])
        diag_log(handler, "dsp power %s fail\n", to.word);
    else {
        diag_log(handler, "dsp power %s sucess\n", to.word);
        return answer_ok(response);
    }
    return answer_error(response);
}

void *diag_cmd_dsp_power_up(const void *, uint8_t *response)
{
    return set_power(__func__, response, POWER_UP);
}

void *diag_cmd_dsp_power_down(const void *, uint8_t *response)
{
    return set_power(__func__, response, POWER_DOWN);
}

void *diag_cmd_dsp_effect_down(const void *, uint8_t *response)
{
    if (!diag_cmd_write_file(BYPASS_NODE, 1, 1, "1"))
        return FAIL(response, "write %s to %s fial\n", "1", BYPASS_NODE);
    return DONE(response, "set dsp effect down sucess\n");
}

void *diag_cmd_query_dsp_effect(const void *, uint8_t *response)
{
    char state[2] = {};
    if (diag_cmd_read_file(BYPASS_NODE, 1, state) < 0)
        return FAIL(response, "read dsp effect state fail\n");
    if (state[0] != '1')
        return FAIL(response, "dsp effect is not close\n");
    return DONE(response, "dsp power down sucess\n"); // the power command's words
}

void *diag_cmd_set_dsp_effect(const void *, uint8_t *response)
{
    int step = 0;
    for (const configuration &effect : NEUTRAL_EFFECTS) {
        char command[256];
        snprintf(command, sizeof command, "%s %s", effect.tool, effect.parameters);
        LOG("send %d command: %s.\n", step++, command);
        if (!diag_cmd_handle_system(command)) // what the tool itself returns is not asked
            return FAIL(response, "send %s fail.\n", command);
        LOG("send %s success.\n", command);
    }
    return DONE(response, "close all display effect success.\n");
}
