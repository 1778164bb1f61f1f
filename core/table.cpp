#include "core/table.h"

#include "commands/access.h"
#include "commands/boot_power.h"
#include "commands/security_keys.h"
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
