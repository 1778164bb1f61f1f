#include "core/table.h"

#include "commands/access.h"
#include "commands/battery.h"
#include "commands/boot_power.h"
#include "commands/connectivity.h"
#include "commands/security_keys.h"
#include "commands/status_checks.h"
#include "core/packet.h"
#include "hwdec/detect.h"

// The order is part of the interface: it is not sorted by code.
static const diagpkt_entry ENTRIES[] = {
    {0x0128, 0x0128, diag_cmd_switch_boot_mode},
    {0x0129, 0x0129, diag_cmd_query_boot_mode},
    {0x012A, 0x012A, diag_cmd_fctest_power_suspend},
    {0x012C, 0x012C, diag_cmd_restart_fastboot},
    {0x012D, 0x012D, diag_cmd_restart_recovery},
    {0x0132, 0x0132, diag_cmd_device_restart},
    {0x0133, 0x0133, diag_cmd_device_shutdown},
    {0x013C, 0x013C, diag_cmd_check_diag_com_port},
    {0x013D, 0x013D, diag_cmd_board_component_detect_v2},
    {0x013E, 0x013E, diag_cmd_phone_component_detect_v2},
    {0x0B1E, 0x0B1E, diag_cmd_check_extsd_insert},
    {0x0140, 0x0140, diag_cmd_stop_thermal_engine},
    {0x1300, 0x1300, diag_cmd_remove_file},
    {0x1301, 0x1301, diag_cmd_verify_turbo_write},
    {0x1302, 0x1302, diag_cmd_get_mmi_result},
    {0x0C00, 0x0C00, diag_cmd_set_battery_cap},
    {0x0C01, 0x0C04, diag_cmd_get_battery_info},
    {0x0C1E, 0x0C1F, diag_cmd_control_usb_charge},
    {0x0C0A, 0x0C0A, diag_cmd_set_charge_type},
    {0x0C0B, 0x0C0B, diag_cmd_get_charge_type},
    {0x0C0C, 0x0C0C, diag_cmd_get_voltage_minus},
    {0x1400, 0x1400, diag_cmd_get_qkey_prop},
    {0x1500, 0x1500, diag_cmd_judge_scratch_exsit},
    {0x1501, 0x1501, diag_cmd_check_fingerprint_data},
    {0x1502, 0x1502, diag_cmd_check_fingerprint_id},
    {0x1E00, 0x1E00, diag_cmd_close_bt},
    {0x1E01, 0x1E01, diag_cmd_open_bt},
    {0x2000, 0x2000, diag_cmd_close_wlan},
    {0x2001, 0x2001, diag_cmd_open_wlan},
    {0x2003, 0x2003, diag_cmd_open_wlan_service},
    {0x2004, 0x2004, diag_cmd_close_wlan_service},
    {0x2400, 0x2400, diag_cmd_close_nfc},
    {0x2401, 0x2401, diag_cmd_open_nfc},
    {0x2402, 0x2402, diag_cmd_chk_nfc_cplc},
    {0x2403, 0x2403, diag_cmd_chk_nfc_deid},
    {0x2600, 0x2600, diag_cmd_stop_wireless_test},
    {0x5000, 0x5000, diag_cmd_check_sim_insert},
    {0xC800, 0xC800, diag_cmd_check_secure_boot},
    {0xC801, 0xC801, diag_cmd_set_rpmb_key_status},
    {0xC802, 0xC802, diag_cmd_check_lock_state},
    {0xCA00, 0xCA00, diag_cmd_factory_wipe_data},
    {0xD200, 0xD200, diag_cmd_set_kavophonebind},
    {0xD201, 0xD201, diag_cmd_query_kavophonebind},
    {0xD20A, 0xD20A, diag_cmd_set_query_widevine},
    {0xD20B, 0xD20B, diag_cmd_set_widevine_key},
    {0xD214, 0xD214, diag_cmd_set_hdcp_key},
    {0xD215, 0xD215, diag_cmd_query_hdcp_key},
    {0xD21E, 0xD21E, diag_cmd_get_wechat_key},
    {0xD228, 0xD228, diag_cmd_get_alipay_key},
    {0xD232, 0xD232, diag_cmd_get_cplc_key},
    {0xD23C, 0xD23C, diag_cmd_set_keymaster_provison},
    {0xE600, 0xE600, diag_cmd_read_node},
    {0xE601, 0xE601, diag_cmd_write_node},
    {0xE602, 0xE602, diag_cmd_get_prop},
    {0xE603, 0xE603, diag_cmd_set_prop},
    {0xE604, 0xE604, diag_cmd_excute_cmd},
    {0xE605, 0xE605, diag_cmd_excute_cmd_check},
    {0xE606, 0xE606, diag_cmd_get_cmd_result},
    {0xE607, 0xE607, diag_cmd_get_process_state},
};

const diagpkt_table diag_command_table = {
    0, // answered at once
    0xFF, DIAG_SUBSYSTEM, sizeof ENTRIES / sizeof ENTRIES[0], 0, ENTRIES,
};
