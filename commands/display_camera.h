// What the line shows, lights and looks through: the panel, the display processor, the RGB light and the
// cameras.
#pragma once

#include <stdint.h>

// Panel
void *diag_cmd_set_lcd_data(void *request, uint16_t length);          // 0x3201
void *diag_cmd_set_lcd_picture(void *request, uint16_t length);       // 0x3202
void *diag_cmd_check_lcd_calibration(void *request, uint16_t length); // 0x3203
void *diag_cmd_quit_picture_apk(void *request, uint16_t length);      // 0x3204
void *diag_cmd_set_lcd_maxbrightness(void *request, uint16_t length); // 0x3209
void *diag_cmd_get_lcd_id(void *request, uint16_t length);            // 0x320B
void *diag_cmd_get_display_status(void *request, uint16_t length);    // 0x320C
void *diag_cmd_get_color_mode(void *request, uint16_t length);        // 0x320D
void *diag_cmd_set_lcd_frequency(void *request, uint16_t length);     // 0x320E
void *diag_cmd_get_lcd_frequency(void *request, uint16_t length);     // 0x320F

// Display processor
void *diag_cmd_dsp_power_up(void *request, uint16_t length);     // 0x3205
void *diag_cmd_dsp_power_down(void *request, uint16_t length);   // 0x3206
void *diag_cmd_dsp_effect_down(void *request, uint16_t length);  // 0x3207
void *diag_cmd_query_dsp_effect(void *request, uint16_t length); // 0x3208
void *diag_cmd_set_dsp_effect(void *request, uint16_t length);   // 0x320A

// RGB light
void *diag_cmd_set_rgb_data(void *request, uint16_t length);             // 0x3800
void *diag_cmd_test_rgb_calibration(void *request, uint16_t length);     // 0x3801
void *diag_cmd_set_rgb_table(void *request, uint16_t length);            // 0x3802
void *diag_cmd_set_rgb_switch(void *request, uint16_t length);           // 0x3803
void *diag_cmd_set_rgb_data_new(void *request, uint16_t length);         // 0x3807
void *diag_cmd_test_rgb_calibration_new(void *request, uint16_t length); // 0x3808
void *diag_cmd_set_rgb_table_new(void *request, uint16_t length);        // 0x3809

// Camera
void *diag_cmd_control_camera_dsp_power(void *request, uint16_t length); // 0x3600
void *diag_cmd_query_camera_dsp_state(void *request, uint16_t length);   // 0x3601
void *diag_cmd_get_camera_id(void *request, uint16_t length);            // 0x3602
