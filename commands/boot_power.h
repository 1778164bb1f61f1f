// How the phone boots next, and going down: boot mode, wipe, restart, shutdown, suspend; its clock and
// screen.
#pragma once

#include <stdint.h>

void *diag_cmd_switch_boot_mode(void *request, uint16_t length);
void *diag_cmd_query_boot_mode(void *request, uint16_t length);
void *diag_cmd_factory_wipe_data(void *request, uint16_t length);

void *diag_cmd_fctest_power_suspend(void *request, uint16_t length);
void *diag_cmd_restart_fastboot(void *request, uint16_t length);
void *diag_cmd_restart_recovery(void *request, uint16_t length);
void *diag_cmd_device_restart(void *request, uint16_t length);
void *diag_cmd_device_shutdown(void *request, uint16_t length);
void *diag_cmd_check_diag_com_port(void *request, uint16_t length);

void *diag_cmd_set_system_time(void *request, uint16_t length);
void *diag_cmd_sys_screen_off_timeout(void *request, uint16_t length);
void *diag_cmd_simulate_power_key(void *request, uint16_t length);
void *diag_cmd_brighten_screen(void *request, uint16_t length);
void *diag_cmd_get_screen_state(void *request, uint16_t length);
