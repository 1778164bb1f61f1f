// Component detection: which components a board or a finished phone must have, and which of them answer.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "core/log.h"

// Device ids: a component's row in the table and its bit in the flag words.
enum hw_dec_id : uint8_t {
    HW_CODEC,
    HW_BTFMSLIM,
    HW_CAM_BACKMAIN,
    HW_CAM_BACKULTRA,
    HW_CAM_FRONTMAIN,
    HW_CAM_BACKMACRO2X,
    HW_DISPLAY,
    HW_RGB0,
    HW_RGB1,
    HW_ACC,
    HW_GYRO,
    HW_MAGNETIC,
    HW_LIGHTSNS,
    HW_FT_IC,
    HW_VIBRATOR,
    HW_HALL_UP,
    HW_HALL_DOWN,
    HW_SMARTPA_L,
    HW_SMARTPA_R,
    HW_TP,
    HW_FP,
    HW_NFC_CPLC,
    HW_NFC_DEID,
    HW_SSD,
    HW_BQ25790,
    HW_SMB1396_MASTER,
    HW_SMB1396_SLAVE,
    HW_SMB1396_SLAVE2,
    HW_MAX77932,
    HW_END, // the end marker has a row too
};
constexpr int HW_DEC_ROWS = HW_END + 1;

// Kept for the life of the service, bit `id` for a component. The demand words are computed anew by each
// request; what was found or has passed is never forgotten.
extern uint64_t BL_CHECK_Flag;       // demanded of a board
extern uint64_t PL_CHECK_Flag;       // demanded of a phone
extern uint64_t dec_check_flag_long; // found
extern uint32_t hw_dec_done_flag;    // routines that have passed

// While not 0, the detection logs nothing, and the secure element, its die id and the drive are demanded like
// the rest. Nothing in the service sets it: it is there for builds that must be silent.
extern uint8_t hw_dec_log_suppressed;

// LOG for this folder; the second form under a given name.
#define DEC_LOG(...)          DEC_LOG_AS(__func__, __VA_ARGS__)
#define DEC_LOG_AS(name, ...) (hw_dec_log_suppressed ? (void)0 : diag_log(name, __VA_ARGS__))

// Computes the demand words. 0, or -1 when a row has an id or a level that is not supported.
int32_t set_hw_dec_check_demand_flag();

// Run the routines of all demanded components, in table order. Always 0.
int32_t hw_dec_board_level_run();
int32_t hw_dec_phone_level_run();

// Write the result into TEXT_CAPACITY bytes of room and return its length: "P", or for each demanded
// component that was not found its name, ":F" and a zero byte, the last one's counted too.
uint32_t get_hw_dec_board_level_result(char *out);
uint32_t get_hw_dec_phone_level_result(char *out);

// Registers a component as found.
void set_hw_dev_check_flag(uint8_t id);

// Copies `length` bytes with "!" for every zero byte, and a terminator behind them. 0, or -1 without a source
// or a target.
int32_t replace_asc_zero(const uint8_t *source, int32_t length, uint8_t *target);
