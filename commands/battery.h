// Battery gauge, charging, the two cells and the thermal service.
#pragma once

#include <stdint.h>

void *diag_cmd_stop_thermal_engine(void *request, uint16_t length);
void *diag_cmd_set_battery_cap(void *request, uint16_t length);
void *diag_cmd_get_battery_info(void *request, uint16_t length);
void *diag_cmd_control_usb_charge(void *request, uint16_t length);
void *diag_cmd_set_charge_type(void *request, uint16_t length);
void *diag_cmd_get_charge_type(void *request, uint16_t length);
void *diag_cmd_get_voltage_minus(void *request, uint16_t length);
