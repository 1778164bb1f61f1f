// Security state and keys: secure boot, RPMB and lock state, content-protection and keymaster keys, payment
// keys, secure element and phone binding. What a handler receives or reads as key material goes where the
// command sends it and nowhere else, and its buffers are cleared before it answers.
#pragma once

#include <stdint.h>

// security_keys_state.cpp: is the phone closed?
void *diag_cmd_check_secure_boot(void *request, uint16_t length);
void *diag_cmd_set_rpmb_key_status(void *request, uint16_t length);
void *diag_cmd_check_lock_state(void *request, uint16_t length);

// security_keys_drm.cpp: Widevine, HDCP 2 and keymaster keys.
void *diag_cmd_set_query_widevine(void *request, uint16_t length);
void *diag_cmd_set_widevine_key(void *request, uint16_t length);
void *diag_cmd_set_hdcp_key(void *request, uint16_t length);
void *diag_cmd_query_hdcp_key(void *request, uint16_t length);
void *diag_cmd_set_keymaster_provison(void *request, uint16_t length);

// security_keys_payment.cpp: payment keys, the secure element's records, the phone's binding key.
void *diag_cmd_set_kavophonebind(void *request, uint16_t length);
void *diag_cmd_query_kavophonebind(void *request, uint16_t length);
void *diag_cmd_get_wechat_key(void *request, uint16_t length);
void *diag_cmd_get_alipay_key(void *request, uint16_t length);
void *diag_cmd_get_cplc_key(void *request, uint16_t length);
