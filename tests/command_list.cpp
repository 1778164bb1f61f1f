#include "tests/command_list.h"

#include "commands/access.h"
#include "commands/battery.h"
#include "commands/boot_power.h"
#include "commands/connectivity.h"
#include "commands/display_camera.h"
#include "commands/identity_storage.h"
#include "commands/security_keys.h"
#include "commands/status_checks.h"
#include "hwdec/detect.h"

// Response sizes on the wire.
static constexpr unsigned int ECHO = 5;
static constexpr unsigned int TEXT = 263;
static constexpr unsigned int LONG = 775;

#define COMMAND(low, high, handler, size)                                                                    \
    {                                                                                                        \
        low, high, handler, #handler, size                                                                   \
    }

const known_command COMMANDS[COMMAND_COUNT] = {
    COMMAND(0x001E, 0x001E, diag_cmd_mac_addr_backup, TEXT),
    COMMAND(0x0028, 0x0028, diag_cmd_write_bt_mac_addr, TEXT),
    COMMAND(0x0029, 0x0029, diag_cmd_check_bt_mac_addr, TEXT),
    COMMAND(0x0100, 0x0100, diag_cmd_check_ap_version, TEXT),
    COMMAND(0x0101, 0x0101, diag_cmd_check_ap_version_ext, TEXT),
    COMMAND(0x010B, 0x010B, diag_cmd_check_ed_res, TEXT),
    COMMAND(0x0116, 0x0116, diag_cmd_get_cpu_sn, TEXT),
    COMMAND(0x0117, 0x0117, diag_cmd_set_cpu_running_freq, TEXT),
    COMMAND(0x0128, 0x0128, diag_cmd_switch_boot_mode, TEXT),
    COMMAND(0x0129, 0x0129, diag_cmd_query_boot_mode, TEXT),
    COMMAND(0x012A, 0x012A, diag_cmd_fctest_power_suspend, TEXT),
    COMMAND(0x012C, 0x012C, diag_cmd_restart_fastboot, TEXT),
    COMMAND(0x012D, 0x012D, diag_cmd_restart_recovery, TEXT),
    COMMAND(0x0132, 0x0132, diag_cmd_device_restart, TEXT),
    COMMAND(0x0133, 0x0133, diag_cmd_device_shutdown, TEXT),
    COMMAND(0x013C, 0x013C, diag_cmd_check_diag_com_port, ECHO),
    COMMAND(0x013D, 0x013D, diag_cmd_board_component_detect_v2, TEXT),
    COMMAND(0x013E, 0x013E, diag_cmd_phone_component_detect_v2, TEXT),
    COMMAND(0x013F, 0x013F, diag_cmd_check_adb_sn, TEXT),
    COMMAND(0x0141, 0x0141, diag_cmd_read_board_id, TEXT),
    COMMAND(0x0142, 0x0142, diag_cmd_get_cpu_id, TEXT),
    COMMAND(0x0143, 0x0143, diag_cmd_get_cpu_info, TEXT),
    COMMAND(0x0A00, 0x0A00, diag_cmd_check_ddr_size, TEXT),
    COMMAND(0x0B00, 0x0B00, diag_cmd_check_flash_size, TEXT),
    COMMAND(0x0B01, 0x0B01, diag_cmd_get_flash_fw_ver, TEXT),
    COMMAND(0x0B0A, 0x0B0A, diag_cmd_check_misc_content, TEXT),
    COMMAND(0x0B15, 0x0B15, diag_cmd_set_system_time, TEXT),
    COMMAND(0x0B1E, 0x0B1E, diag_cmd_check_extsd_insert, TEXT),
    COMMAND(0x0140, 0x0140, diag_cmd_stop_thermal_engine, TEXT),
    COMMAND(0x1300, 0x1300, diag_cmd_remove_file, TEXT),
    COMMAND(0x1301, 0x1301, diag_cmd_verify_turbo_write, TEXT),
    COMMAND(0x1302, 0x1302, diag_cmd_get_mmi_result, LONG),
    COMMAND(0x0C00, 0x0C00, diag_cmd_set_battery_cap, TEXT),
    COMMAND(0x0C01, 0x0C04, diag_cmd_get_battery_info, TEXT),
    COMMAND(0x0C1E, 0x0C1F, diag_cmd_control_usb_charge, TEXT),
    COMMAND(0x0C0A, 0x0C0A, diag_cmd_set_charge_type, TEXT),
    COMMAND(0x0C0B, 0x0C0B, diag_cmd_get_charge_type, TEXT),
    COMMAND(0x0C0C, 0x0C0C, diag_cmd_get_voltage_minus, TEXT),
    COMMAND(0x0F00, 0x0F00, diag_cmd_simulate_power_key, TEXT),
    COMMAND(0x0F01, 0x0F01, diag_cmd_brighten_screen, TEXT),
    COMMAND(0x0F02, 0x0F02, diag_cmd_get_screen_state, TEXT),
    COMMAND(0x0B14, 0x0B14, diag_cmd_sys_screen_off_timeout, TEXT),
    COMMAND(0x1400, 0x1400, diag_cmd_get_qkey_prop, TEXT),
    COMMAND(0x1500, 0x1500, diag_cmd_judge_scratch_exsit, TEXT),
    COMMAND(0x1501, 0x1501, diag_cmd_check_fingerprint_data, TEXT),
    COMMAND(0x1502, 0x1502, diag_cmd_check_fingerprint_id, TEXT),
    COMMAND(0x1E00, 0x1E00, diag_cmd_close_bt, TEXT),
    COMMAND(0x1E01, 0x1E01, diag_cmd_open_bt, TEXT),
    COMMAND(0x2000, 0x2000, diag_cmd_close_wlan, TEXT),
    COMMAND(0x2001, 0x2001, diag_cmd_open_wlan, TEXT),
    COMMAND(0x2003, 0x2003, diag_cmd_open_wlan_service, TEXT),
    COMMAND(0x2004, 0x2004, diag_cmd_close_wlan_service, TEXT),
    COMMAND(0x2100, 0x2100, diag_cmd_check_ssd_size, TEXT),
    COMMAND(0x2101, 0x2101, diag_cmd_check_ssd_present, TEXT),
    COMMAND(0x2102, 0x2102, diag_cmd_get_ssd_fw_ver, TEXT),
    COMMAND(0x2103, 0x2103, diag_cmd_get_ssd_encrypt, TEXT),
    COMMAND(0x2400, 0x2400, diag_cmd_close_nfc, TEXT),
    COMMAND(0x2401, 0x2401, diag_cmd_open_nfc, TEXT),
    COMMAND(0x2402, 0x2402, diag_cmd_chk_nfc_cplc, TEXT),
    COMMAND(0x2403, 0x2403, diag_cmd_chk_nfc_deid, TEXT),
    COMMAND(0x2600, 0x2600, diag_cmd_stop_wireless_test, TEXT),
    COMMAND(0x3600, 0x3600, diag_cmd_control_camera_dsp_power, TEXT),
    COMMAND(0x3601, 0x3601, diag_cmd_query_camera_dsp_state, TEXT),
    COMMAND(0x3602, 0x3602, diag_cmd_get_camera_id, TEXT),
    COMMAND(0x3800, 0x3800, diag_cmd_set_rgb_data, TEXT),
    COMMAND(0x3801, 0x3801, diag_cmd_test_rgb_calibration, TEXT),
    COMMAND(0x3802, 0x3802, diag_cmd_set_rgb_table, LONG),
    COMMAND(0x3803, 0x3803, diag_cmd_set_rgb_switch, TEXT),
    COMMAND(0x3807, 0x3807, diag_cmd_set_rgb_data_new, TEXT),
    COMMAND(0x3808, 0x3808, diag_cmd_test_rgb_calibration_new, TEXT),
    COMMAND(0x3809, 0x3809, diag_cmd_set_rgb_table_new, LONG),
    COMMAND(0x3201, 0x3201, diag_cmd_set_lcd_data, TEXT),
    COMMAND(0x3202, 0x3202, diag_cmd_set_lcd_picture, TEXT),
    COMMAND(0x3203, 0x3203, diag_cmd_check_lcd_calibration, TEXT),
    COMMAND(0x3204, 0x3204, diag_cmd_quit_picture_apk, TEXT),
    COMMAND(0x3205, 0x3205, diag_cmd_dsp_power_up, TEXT),
    COMMAND(0x3206, 0x3206, diag_cmd_dsp_power_down, TEXT),
    COMMAND(0x3207, 0x3207, diag_cmd_dsp_effect_down, TEXT),
    COMMAND(0x3208, 0x3208, diag_cmd_query_dsp_effect, TEXT),
    COMMAND(0x3209, 0x3209, diag_cmd_set_lcd_maxbrightness, TEXT),
    COMMAND(0x320A, 0x320A, diag_cmd_set_dsp_effect, TEXT),
    COMMAND(0x320B, 0x320B, diag_cmd_get_lcd_id, TEXT),
    COMMAND(0x320C, 0x320C, diag_cmd_get_display_status, TEXT),
    COMMAND(0x320D, 0x320D, diag_cmd_get_color_mode, TEXT),
    COMMAND(0x320E, 0x320E, diag_cmd_set_lcd_frequency, TEXT),
    COMMAND(0x320F, 0x320F, diag_cmd_get_lcd_frequency, TEXT),
    COMMAND(0x5000, 0x5000, diag_cmd_check_sim_insert, TEXT),
    COMMAND(0xC800, 0xC800, diag_cmd_check_secure_boot, TEXT),
    COMMAND(0xC801, 0xC801, diag_cmd_set_rpmb_key_status, TEXT),
    COMMAND(0xC802, 0xC802, diag_cmd_check_lock_state, TEXT),
    COMMAND(0xCA00, 0xCA00, diag_cmd_factory_wipe_data, TEXT),
    COMMAND(0xD200, 0xD200, diag_cmd_set_kavophonebind, TEXT),
    COMMAND(0xD201, 0xD201, diag_cmd_query_kavophonebind, TEXT),
    COMMAND(0xD20A, 0xD20A, diag_cmd_set_query_widevine, TEXT),
    COMMAND(0xD20B, 0xD20B, diag_cmd_set_widevine_key, TEXT),
    COMMAND(0xD214, 0xD214, diag_cmd_set_hdcp_key, TEXT),
    COMMAND(0xD215, 0xD215, diag_cmd_query_hdcp_key, TEXT),
    COMMAND(0xD21E, 0xD21E, diag_cmd_get_wechat_key, LONG),
    COMMAND(0xD228, 0xD228, diag_cmd_get_alipay_key, TEXT),
    COMMAND(0xD232, 0xD232, diag_cmd_get_cplc_key, TEXT),
    COMMAND(0xD23C, 0xD23C, diag_cmd_set_keymaster_provison, TEXT),
    COMMAND(0xE600, 0xE600, diag_cmd_read_node, LONG),
    COMMAND(0xE601, 0xE601, diag_cmd_write_node, LONG),
    COMMAND(0xE602, 0xE602, diag_cmd_get_prop, LONG),
    COMMAND(0xE603, 0xE603, diag_cmd_set_prop, LONG),
    COMMAND(0xE604, 0xE604, diag_cmd_excute_cmd, LONG),
    COMMAND(0xE605, 0xE605, diag_cmd_excute_cmd_check, LONG),
    COMMAND(0xE606, 0xE606, diag_cmd_get_cmd_result, LONG),
    COMMAND(0xE607, 0xE607, diag_cmd_get_process_state, LONG),
};

const known_command *command_of(uint16_t code)
{
    for (const known_command &command : COMMANDS)
        if (command.low <= code && code <= command.high)
            return &command;
    return nullptr;
}
