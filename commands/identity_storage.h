// Who the phone is and what it holds: addresses, versions, chip identities, memory, flash and the solid-state
// disk.
#pragma once

#include <stdint.h>

void *diag_cmd_mac_addr_backup(void *request, uint16_t length);
void *diag_cmd_write_bt_mac_addr(void *request, uint16_t length);
void *diag_cmd_check_bt_mac_addr(void *request, uint16_t length);

void *diag_cmd_check_ap_version(void *request, uint16_t length);
void *diag_cmd_check_ap_version_ext(void *request, uint16_t length);
void *diag_cmd_check_ed_res(void *request, uint16_t length);
void *diag_cmd_get_cpu_sn(void *request, uint16_t length);
void *diag_cmd_set_cpu_running_freq(void *request, uint16_t length);
void *diag_cmd_check_adb_sn(void *request, uint16_t length);
void *diag_cmd_read_board_id(void *request, uint16_t length);
void *diag_cmd_get_cpu_id(void *request, uint16_t length);
void *diag_cmd_get_cpu_info(void *request, uint16_t length);

void *diag_cmd_check_ddr_size(void *request, uint16_t length);
void *diag_cmd_check_flash_size(void *request, uint16_t length);
void *diag_cmd_get_flash_fw_ver(void *request, uint16_t length);
void *diag_cmd_check_misc_content(void *request, uint16_t length);

void *diag_cmd_check_ssd_size(void *request, uint16_t length);
void *diag_cmd_check_ssd_present(void *request, uint16_t length);
void *diag_cmd_get_ssd_fw_ver(void *request, uint16_t length);
void *diag_cmd_get_ssd_encrypt(void *request, uint16_t length);
