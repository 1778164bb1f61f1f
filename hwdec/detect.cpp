#include "hwdec/detect.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "core/packet.h"
#include "hwdec/checks.h"

namespace
{
enum check_level : uint8_t { NEVER, BOARD, PHONE, BOTH };

struct hw_dec_device {
    uint8_t id;
    const char *name;
    uint8_t level;
    int32_t (*check)(); // null: a sibling's routine registers the component
};
} // namespace

static constexpr hw_dec_device DEVICES[HW_DEC_ROWS] = {
    {HW_CODEC, "codec", BOTH, hwdec_audio_pa_check},
    {HW_BTFMSLIM, "btfmslim", NEVER, nullptr},
    {HW_CAM_BACKMAIN, "cam_backmain", PHONE, hwdec_camera_back_main_check},
    {HW_CAM_BACKULTRA, "cam_backultra", PHONE, nullptr},
    {HW_CAM_FRONTMAIN, "cam_frontmain", PHONE, hwdec_camera_front_main_check},
    {HW_CAM_BACKMACRO2X, "cam_backmacro2x", PHONE, nullptr},
    {HW_DISPLAY, "display", PHONE, hwdec_display_check},
    {HW_RGB0, "rgb0", BOTH, hwdec_rgb0_check},
    {HW_RGB1, "rgb1", BOTH, hwdec_rgb1_check},
    {HW_ACC, "acc", BOTH, hwdec_acc_check},
    {HW_GYRO, "gyro", BOTH, hwdec_gyro_check},
    {HW_MAGNETIC, "magnetic", PHONE, hwdec_magnetic_check},
    {HW_LIGHTSNS, "lightsns", PHONE, hwdec_lightsns_check},
    {HW_FT_IC, "ft_ic", BOTH, hwdec_force_touch_check},
    {HW_VIBRATOR, "vibrator", BOTH, hwdec_vibrator_check},
    {HW_HALL_UP, "hall_up", NEVER, hwdec_hall_up_check},
    {HW_HALL_DOWN, "hall_down", NEVER, hwdec_hall_down_check},
    {HW_SMARTPA_L, "smartpa_l", BOTH, nullptr},
    {HW_SMARTPA_R, "smartpa_r", BOTH, nullptr},
    {HW_TP, "tp", PHONE, hwdec_tp_check},
    {HW_FP, "fp", PHONE, hwdec_fp_check},
    {HW_NFC_CPLC, "nfc_cplc", PHONE, hwdec_nfc_cplc_check},
    {HW_NFC_DEID, "nfc_deid", PHONE, hwdec_nfc_deid_check},
    {HW_SSD, "ssd", BOTH, hwdec_ssd_check_v2},
    {HW_BQ25790, "bq25790", BOTH, hwdec_chg_bqic_check},
    {HW_SMB1396_MASTER, "smb1396_master", BOTH, hwdec_chg_smbic_master_check},
    {HW_SMB1396_SLAVE, "smb1396_slave", BOTH, hwdec_chg_smbic_slave_check},
    {HW_SMB1396_SLAVE2, "smb1396_slave2", BOTH, hwdec_chg_smbic_slave2_check},
    {HW_MAX77932, "max77932", BOTH, hwdec_chg_maxic_check},
    {HW_END, "NULL", NEVER, nullptr},
};
static constexpr char END_MARKER[] = "NULL";
static constexpr useconds_t SETTLE_US = 20000; // between the demand and the first probe

// An item is the name, ":F" and a zero byte.
static constexpr size_t item_size(const char *name) { return __builtin_strlen(name) + 3; }

static constexpr bool is_spared(size_t row) { return row >= HW_NFC_CPLC && row <= HW_SSD; }

// The response has no room to spare: a table that grows must grow it.
static constexpr size_t longest_result(check_level level)
{
    size_t length = 0;
    for (size_t row = 0; row < HW_DEC_ROWS; row++)
        if ((DEVICES[row].level & level) && !is_spared(row))
            length += item_size(DEVICES[row].name);
    return length;
}
static_assert(longest_result(BOARD) == 149 && longest_result(PHONE) == TEXT_CAPACITY);

uint64_t BL_CHECK_Flag;
uint64_t PL_CHECK_Flag;
uint64_t dec_check_flag_long;
uint32_t hw_dec_done_flag;
uint8_t hw_dec_log_suppressed;
static pthread_mutex_t detection_mutex = PTHREAD_MUTEX_INITIALIZER; // guards dec_check_flag_long

static uint64_t bit(uint8_t id) { return uint64_t{1} << id; }

// The flag words as the log shows them: their upper halves are never used.
static uint32_t shown(uint64_t word) { return static_cast<uint32_t>(word); }

static void hw_dec_init()
{
    BL_CHECK_Flag = 0;
    PL_CHECK_Flag = 0;
    DEC_LOG("Enter!\n");
    pthread_mutex_destroy(&detection_mutex); // free between requests, so each may start with a new one
    pthread_mutex_init(&detection_mutex, nullptr);
}

static int32_t get_hw_dec_check_type(uint8_t id)
{
    DEC_LOG("Enter!\n");
    return id < HW_DEC_ROWS ? DEVICES[id].level : -1;
}

int32_t set_hw_dec_check_demand_flag()
{
    hw_dec_init();
    int32_t result = 0;
    for (size_t row = 0; row < HW_DEC_ROWS; row++) {
        if (strcmp(DEVICES[row].name, END_MARKER) == 0)
            continue;
        DEC_LOG("DeviceId is %d\n", static_cast<int>(row));
        if (is_spared(row) && !hw_dec_log_suppressed)
            continue;
        uint8_t id = DEVICES[row].id;
        int32_t type = get_hw_dec_check_type(id);
        if (type < NEVER || type > BOTH) {
            DEC_LOG("The type %d is not support!\n", type);
            result = -1;
        } else if (id < HW_END) {
            if (type & BOARD)
                BL_CHECK_Flag |= bit(id);
            if (type & PHONE)
                PL_CHECK_Flag |= bit(id);
        }
    }
    DEC_LOG("BL_CHECK_Flag is: 0x%08X, PL_CHECK_Flag is: 0x%08X\n", shown(BL_CHECK_Flag),
            shown(PL_CHECK_Flag));
    return result;
}

void set_hw_dev_check_flag(uint8_t id)
{
    if (id >= HW_END) {
        DEC_LOG("failed, and dev_id is :%d, and it is not in peripheral device array!\n", id);
        return;
    }
    DEC_LOG("device id is: %d\n", id);
    pthread_mutex_lock(&detection_mutex);
    dec_check_flag_long |= bit(id);
    pthread_mutex_unlock(&detection_mutex);
    DEC_LOG("set successfully,dec_check_flag_long is: 0x%08X\n", shown(dec_check_flag_long));
}

static int32_t run(const char *function, const char *level, uint64_t demand)
{
    DEC_LOG_AS(function, "dec_%s_level_need_check_flag_long is: 0x%08X\n", level, shown(demand));
    for (size_t row = 0; row < HW_DEC_ROWS; row++) {
        const hw_dec_device &device = DEVICES[row];
        if (!(demand & bit(device.id)) || !device.check)
            continue;
        DEC_LOG_AS(function, "device_id=%d\n", static_cast<int>(row));
        device.check(); // the result is read off the found bits, not off the status
    }
    DEC_LOG_AS(function, "retval=%d\n", 0);
    return 0;
}

int32_t hw_dec_board_level_run() { return run(__func__, "board", BL_CHECK_Flag); }

int32_t hw_dec_phone_level_run() { return run(__func__, "phone", PL_CHECK_Flag); }

static uint32_t build_result(const char *function, const char *level, uint64_t demand, char *out)
{
    DEC_LOG_AS(function, "dec_check_flag_long is: 0x%08X\n", shown(dec_check_flag_long));
    size_t length = 0;
    for (const hw_dec_device &device : DEVICES) {
        if (!(demand & ~dec_check_flag_long & bit(device.id)))
            continue;
        DEC_LOG_AS(function, "%s level failed item is: %s!\n", level, device.name);
        size_t size = item_size(device.name);
        if (length + size > TEXT_CAPACITY)
            break; // only when the spared components are demanded too
        snprintf(out + length, size, "%s:F", device.name);
        length += size;
        DEC_LOG_AS(function, "Cumulative rsp length=%d\n", static_cast<int>(length));
    }
    if (length == 0) {
        DEC_LOG_AS(function, "%s level device detect check success\n", level);
        snprintf(out, TEXT_CAPACITY, "P");
        length = 1;
    }
    DEC_LOG_AS(function, "total rsp length=%d\n", static_cast<int>(length));
    DEC_LOG_AS(function, "rsp: %s\n", out); // ends at the first item's zero byte
    return static_cast<uint32_t>(length);
}

uint32_t get_hw_dec_board_level_result(char *out)
{
    return build_result(__func__, "board", BL_CHECK_Flag, out);
}

uint32_t get_hw_dec_phone_level_result(char *out)
{
    return build_result(__func__, "phone", PL_CHECK_Flag, out);
}

int32_t replace_asc_zero(const uint8_t *source, int32_t length, uint8_t *target)
{
    if (!source || !target)
        return -1;
    for (int32_t i = 0; i < length; i++)
        target[i] = source[i] != 0 ? source[i] : '!';
    target[length] = 0;
    return 0;
}

static void log_result(const char *handler, const char *result, uint32_t length)
{
    auto *printable = static_cast<uint8_t *>(malloc(length + 1));
    if (!printable) {
        DEC_LOG_AS(handler, "temp buf for process the result alloced failed\n");
        return;
    }
    replace_asc_zero(reinterpret_cast<const uint8_t *>(result), static_cast<int32_t>(length), printable);
    DEC_LOG_AS(handler, "Final_detect_result: length=%d, detect_result: %s\n", static_cast<int>(length),
               reinterpret_cast<const char *>(printable));
    free(printable);
}

static void *component_detect(const char *handler, uint8_t *response, const char *level,
                              int32_t (*run_checks)(), uint32_t (*get_result)(char *out))
{
    int32_t status = set_hw_dec_check_demand_flag();
    usleep(SETTLE_US);
    if (status < 0) {
        DEC_LOG_AS(handler, "set_hw_dec_check_demand_flag error, ret=%d\n", status);
        return answer_error(response);
    }
    status = run_checks();
    if (status < 0) {
        DEC_LOG_AS(handler, "hw_dec_%s_level_run error, ret=%d\n", level, status);
        return answer_error(response);
    }
    uint32_t length = get_result(response_data(response));
    log_result(handler, response_data(response), length);
    return answer_length(response, length);
}

void *diag_cmd_board_component_detect_v2(const void *, uint8_t *response)
{
    return component_detect(__func__, response, "board", hw_dec_board_level_run,
                            get_hw_dec_board_level_result);
}

void *diag_cmd_phone_component_detect_v2(const void *, uint8_t *response)
{
    return component_detect(__func__, response, "phone", hw_dec_phone_level_run,
                            get_hw_dec_phone_level_result);
}
