// Radios: Bluetooth and WLAN factory test modes, NFC, the wireless test, the SIM.
#pragma once

#include <stdint.h>

void *diag_cmd_close_bt(void *request, uint16_t length);
void *diag_cmd_open_bt(void *request, uint16_t length);
void *diag_cmd_close_wlan(void *request, uint16_t length);
void *diag_cmd_open_wlan(void *request, uint16_t length);
void *diag_cmd_open_wlan_service(void *request, uint16_t length);
void *diag_cmd_close_wlan_service(void *request, uint16_t length);
void *diag_cmd_close_nfc(void *request, uint16_t length);
void *diag_cmd_open_nfc(void *request, uint16_t length);
void *diag_cmd_chk_nfc_cplc(void *request, uint16_t length);
void *diag_cmd_chk_nfc_deid(void *request, uint16_t length);
void *diag_cmd_stop_wireless_test(void *request, uint16_t length);
void *diag_cmd_check_sim_insert(void *request, uint16_t length);
