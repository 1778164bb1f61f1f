// One routine per component, or per group of components that one probe answers for. Each returns 0 when found
// and a negative number when not; a component that it found is registered and, once the routine has passed,
// it returns 0 without probing again.
#pragma once

#include <stdint.h>

int32_t hwdec_audio_pa_check();          // codec, smartpa_l, smartpa_r
int32_t hwdec_camera_back_main_check();  // cam_backmain, cam_backultra
int32_t hwdec_camera_front_main_check(); // cam_frontmain, cam_backmacro2x
int32_t hwdec_display_check();
int32_t hwdec_rgb0_check();
int32_t hwdec_rgb1_check();
int32_t hwdec_acc_check();
int32_t hwdec_gyro_check();
int32_t hwdec_magnetic_check();
int32_t hwdec_lightsns_check();
int32_t hwdec_force_touch_check();
int32_t hwdec_vibrator_check();
int32_t hwdec_hall_up_check();
int32_t hwdec_hall_down_check();
int32_t hwdec_tp_check();
int32_t hwdec_fp_check();
int32_t hwdec_chg_bqic_check();
int32_t hwdec_chg_smbic_master_check();
int32_t hwdec_chg_smbic_slave_check();
int32_t hwdec_chg_smbic_slave2_check();
int32_t hwdec_chg_maxic_check();

// Never demanded by a detection; commands of their own call them.
int32_t hwdec_nfc_cplc_check();
int32_t hwdec_nfc_cplc_ffbm_check(); // reads the element itself, with the NFC service stopped
int32_t hwdec_nfc_deid_check();
int32_t hwdec_ssd_check_v2();
