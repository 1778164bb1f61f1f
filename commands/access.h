// Generic access: any node, any property, any shell line, by name in the request.
#pragma once

#include <stdint.h>

void *diag_cmd_read_node(void *request, uint16_t length);
void *diag_cmd_write_node(void *request, uint16_t length);
void *diag_cmd_get_prop(void *request, uint16_t length);
void *diag_cmd_set_prop(void *request, uint16_t length);
void *diag_cmd_excute_cmd(void *request, uint16_t length);
void *diag_cmd_excute_cmd_check(void *request, uint16_t length);
void *diag_cmd_get_cmd_result(void *request, uint16_t length);
void *diag_cmd_get_process_state(void *request, uint16_t length);
