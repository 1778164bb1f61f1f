// Conditions that decide whether a unit may leave a test stage: storage, fingerprint, test results, a key.
#pragma once

#include <stdint.h>

void *diag_cmd_check_extsd_insert(void *request, uint16_t length);
void *diag_cmd_remove_file(void *request, uint16_t length);
void *diag_cmd_verify_turbo_write(void *request, uint16_t length);
void *diag_cmd_get_mmi_result(void *request, uint16_t length);
void *diag_cmd_get_qkey_prop(void *request, uint16_t length);
void *diag_cmd_judge_scratch_exsit(void *request, uint16_t length);
void *diag_cmd_check_fingerprint_data(void *request, uint16_t length);
void *diag_cmd_check_fingerprint_id(void *request, uint16_t length);
