#include "hwdec/checks.h"

#include <cutils.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "core/shell.h"
#include "hwdec/probe.h"

namespace
{
// A node whose value begins with the expected text.
struct node_check {
    uint8_t id;
    const char *item; // the component's word in the log
    const char *command;
    const char *expected;
};

// A node whose first line contains the expected text.
struct line_check {
    uint8_t id;
    const char *item;
    const char *finished_item; // its word when it has passed before
    const char *status;        // its word for the line that was read
    const char *command;
    const char *expected;
};

// A sensor type in the list that the sensor tool prints.
struct sensor_check {
    uint8_t id;
    const char *item;
    const char *status;
    const char *type;
    bool every_line; // reads on behind the first match and registers each
};

// A text that stands for one component where a probe answers for several.
struct part {
    uint8_t id;
    const char *item;
    const char *expected;
};

// Two camera modules in one property.
struct camera_check {
    const char *property;
    const char *finished_items;
    part modules[2];
};
} // namespace

static constexpr node_check RGB0 = {HW_RGB0, "Rgb0", "cat /sys/rgb0/name", "aw2015_led"};
static constexpr node_check RGB1 = {HW_RGB1, "Rgb1", "cat /sys/rgb1/name", "aw2015_led1"};
static constexpr node_check CHARGER = {HW_BQ25790, "Chg bqic", "cat /sys/class/qcom-battery/bq25790_chip_ok",
                                       "1"};
static constexpr node_check CHARGE_PUMP_MASTER = {HW_SMB1396_MASTER, "Chg smbic master",
                                                  "cat /sys/class/qcom-battery/master_smb1396_online", "1"};
static constexpr node_check CHARGE_PUMP_SLAVE = {HW_SMB1396_SLAVE, "Chg smbic slave",
                                                 "cat /sys/class/qcom-battery/slave_smb1396_online", "1"};
static constexpr node_check CHARGE_PUMP_SLAVE2 = {HW_SMB1396_SLAVE2, "Chg smbic slave2",
                                                  "cat /sys/class/qcom-battery/slave2_smb1396_online", "1"};
static constexpr node_check CONVERTER = {HW_MAX77932, "Chg maxic",
                                         "cat /sys/class/qcom-battery/max77932_chip_ok", "1"};

static constexpr line_check DISPLAY = {
    HW_DISPLAY,
    "Display",
    "display",
    "display",
    "cat /sys/devices/virtual/qx_display/disp_feature/disp-DSI-0/panel_info",
    "panel_name=mdss_dsi"};
static constexpr line_check VIBRATOR = {
    HW_VIBRATOR, "Vibrator", "Vibrator", "vibrator", "cat /sys/vibrator/vibrator_flag", "1"};

static constexpr char SENSOR_TOOL[] = "see_workhorse";
static constexpr sensor_check ACCELEROMETER = {HW_ACC, "Acc", "acc", "accel", false};
static constexpr sensor_check GYROSCOPE = {HW_GYRO, "Gyro", "gyro", "gyro", false};
static constexpr sensor_check MAGNETOMETER = {HW_MAGNETIC, "Magnetic", "magnetic", "mag", true};
static constexpr sensor_check LIGHT_SENSOR = {HW_LIGHTSNS, "Lightsns", "lightsns", "light", true};

static constexpr camera_check CAMERA_BACK_MAIN = {
    "persist.vendor.camera.qx.module.info",
    "Both camera back main and back ultra",
    {{HW_CAM_BACKMAIN, "Camera back main", "back_main=s5kgw3"},
     {HW_CAM_BACKULTRA, "Camera back ultra", "back_ultra=imx355"}},
};
// The macro camera sits at the back, but the front camera's property tells of it.
static constexpr camera_check CAMERA_FRONT_MAIN = {
    "persist.vendor.camera.qx.module.infoext",
    "both camera front main and back macro2x",
    {{HW_CAM_FRONTMAIN, "Camera front main", "front_main=s5k3t2"},
     {HW_CAM_BACKMACRO2X, "Camera back macro2x", "back_macro2x=s5k5e9"}},
};

static constexpr char AUDIO_TOOL[] =
    "qx-factory-tool -f /vendor/etc/factory_cmd_config/audio.xml -i \"Audio PA\"";
static constexpr uint32_t AUDIO_DONE = 0x4; // not the bit of its first component
static constexpr part AUDIO_PARTS[] = {
    {HW_CODEC, "Audio codec", "wcd938x-codec"},
    {HW_SMARTPA_L, "Smartpa L", "cs35l45.3-0031"},
    {HW_SMARTPA_R, "Smartpa R", "cs35l45.3-0030"},
};

static constexpr char FORCE_TOUCH_RESULT[] = "cat /sys/ni_force_0/device_init_result";
static constexpr char FORCE_TOUCH_NAME[] = "/sys/ndt/name";

static constexpr char TP_NAME[] = "cat /proc/tp_name";
static constexpr char TP_NAME_EXPECTED[] = "goodix9896";
static constexpr char TP_DRIVER[] = "cat sys/bus/spi/devices/spi0.0/fts_driver_info";
static constexpr char TP_DRIVER_EXPECTED[] = "Focaltech";

static constexpr char FP_PROPERTY[] = "persist.vendor.sys.fp.module";
static constexpr const char *FP_MAKERS[] = {"Truly", "O-film"};

static int32_t check_node(const char *name, const node_check &node)
{
    return run_check(name, done_bit(node.id), node.item, [&] {
        if (!diag_cmd_compare_msg(node.command, node.expected)) {
            DEC_LOG_AS(name, "execute cmd %s fail\n", node.command);
            return -1;
        }
        found(name, node.id, node.item);
        return 0;
    });
}

int32_t hwdec_rgb0_check() { return check_node(__func__, RGB0); }
int32_t hwdec_rgb1_check() { return check_node(__func__, RGB1); }
int32_t hwdec_chg_bqic_check() { return check_node(__func__, CHARGER); }
int32_t hwdec_chg_smbic_master_check() { return check_node(__func__, CHARGE_PUMP_MASTER); }
int32_t hwdec_chg_smbic_slave_check() { return check_node(__func__, CHARGE_PUMP_SLAVE); }
int32_t hwdec_chg_smbic_slave2_check() { return check_node(__func__, CHARGE_PUMP_SLAVE2); }
int32_t hwdec_chg_maxic_check() { return check_node(__func__, CONVERTER); }

static int32_t check_line(const char *name, const line_check &row)
{
    return run_check(name, done_bit(row.id), row.finished_item, [&] {
        command_stream output = run_command(row.command);
        char line[LINE_SIZE];
        if (!output || !read_line(output.get(), line))
            return -1;
        DEC_LOG_AS(name, "get %s_check_status is %s\n", row.status, line);
        if (!strstr(line, row.expected))
            return -1;
        log_match(name, row.expected, line);
        found(name, row.id, row.item);
        return 0;
    });
}

int32_t hwdec_display_check() { return check_line(__func__, DISPLAY); }
int32_t hwdec_vibrator_check() { return check_line(__func__, VIBRATOR); }

static int32_t check_sensor(const char *name, const sensor_check &sensor)
{
    return run_check(name, done_bit(sensor.id), sensor.item, [&] {
        command_stream list = run_command(SENSOR_TOOL);
        int32_t status = -1;
        char line[LINE_SIZE];
        while ((status != 0 || sensor.every_line) && list && read_line(list.get(), line)) {
            DEC_LOG_AS(name, "get %s_check_status is %s\n", sensor.status, line);
            if (!strstr(line, sensor.type))
                continue;
            log_match(name, sensor.type, line);
            found(name, sensor.id, sensor.item);
            status = 0;
        }
        return status;
    });
}

int32_t hwdec_acc_check() { return check_sensor(__func__, ACCELEROMETER); }
int32_t hwdec_gyro_check() { return check_sensor(__func__, GYROSCOPE); }
int32_t hwdec_magnetic_check() { return check_sensor(__func__, MAGNETOMETER); }
int32_t hwdec_lightsns_check() { return check_sensor(__func__, LIGHT_SENSOR); }

static int32_t check_camera(const char *name, const camera_check &camera)
{
    uint32_t done = done_bit(camera.modules[0].id);
    auto probe = [&] {
        char value[PROPERTY_SIZE] = {};
        if (property_get(camera.property, value, nullptr) <= 0)
            return -1;
        DEC_LOG_AS(name, "Prop value is: %s\n", value);
        hw_dec_done_flag |= done;
        for (const part &module : camera.modules) {
            if (strstr(value, module.expected)) {
                set_hw_dev_check_flag(module.id);
                DEC_LOG_AS(name, "%s is ok!\n", module.item);
            } else {
                hw_dec_done_flag &= ~done; // asked again by the next request
            }
        }
        return 0; // the property could be read: what is missing shows in the found bits
    };
    return run_check(name, done, camera.finished_items, probe, "are");
}

int32_t hwdec_camera_back_main_check() { return check_camera(__func__, CAMERA_BACK_MAIN); }
int32_t hwdec_camera_front_main_check() { return check_camera(__func__, CAMERA_FRONT_MAIN); }

int32_t hwdec_audio_pa_check()
{
    const char *name = __func__;
    return run_check(name, AUDIO_DONE, "Audio pa", [name] {
        command_stream output = run_command(AUDIO_TOOL);
        bool missed = false;
        int32_t status = -1;
        char line[LINE_SIZE];
        while (output && read_line(output.get(), line)) {
            status = 0;
            DEC_LOG_AS(name, "get audio_pa_check_status is %s\n", line);
            // Passed only when every line names all parts: a tool that prints one part a line is asked again
            // by every request.
            if (!missed)
                hw_dec_done_flag |= AUDIO_DONE;
            for (const part &audio : AUDIO_PARTS) {
                if (strstr(line, audio.expected)) {
                    DEC_LOG_AS(name, "want state is %s, get state is %s\n", audio.expected, line);
                    set_hw_dev_check_flag(audio.id);
                    DEC_LOG_AS(name, "%s is ok!\n", audio.item);
                } else {
                    hw_dec_done_flag &= ~AUDIO_DONE;
                    missed = true;
                }
            }
        }
        return status;
    });
}

static int32_t probe_force_touch(const char *name)
{
    char line[LINE_SIZE];
    command_stream output = run_command(FORCE_TOUCH_RESULT);
    if (!output) {
        DEC_LOG_AS(name, "Execute cmd %s failed, so check the mcu ic name node\n", FORCE_TOUCH_RESULT);
    } else if (!read_line(output.get(), line)) {
        DEC_LOG_AS(name, "fgets the cmd result failed, so check mcu ic name node\n");
    } else {
        int result = atoi(line);
        DEC_LOG_AS(name, "result:%s\n", line);
        DEC_LOG_AS(name, "result: atoi=%d\n", result);
        return result == 1 ? 0 : -1;
    }
    int32_t status = access(FORCE_TOUCH_NAME, F_OK);
    if (status != 0)
        DEC_LOG_AS(name, "failed, the file %s of force touch mcu ic name node is not exist\n",
                   FORCE_TOUCH_NAME);
    return status;
}

int32_t hwdec_force_touch_check()
{
    const char *name = __func__;
    return run_check(name, done_bit(HW_FT_IC), "Force touch", [name] {
        int32_t status = probe_force_touch(name);
        if (status == 0)
            found(name, HW_FT_IC, "Force touch");
        return status;
    });
}

static int32_t probe_tp(const char *name)
{
    if (diag_cmd_compare_msg(TP_NAME, TP_NAME_EXPECTED))
        return 0;
    DEC_LOG_AS(name, "It is not p42 lcd\n");
    command_stream output = run_command(TP_DRIVER);
    char line[LINE_SIZE];
    while (output && read_line(output.get(), line)) {
        DEC_LOG_AS(name, "get tp_check_status is %s\n", line);
        if (strstr(line, TP_DRIVER_EXPECTED)) {
            log_match(name, TP_DRIVER_EXPECTED, line);
            return 0;
        }
    }
    return -1;
}

int32_t hwdec_tp_check()
{
    const char *name = __func__;
    return run_check(name, done_bit(HW_TP), "Tp", [name] {
        int32_t status = probe_tp(name);
        if (status == 0)
            found(name, HW_TP, "Tp");
        return status;
    });
}

int32_t hwdec_fp_check()
{
    const char *name = __func__;
    return run_check(name, done_bit(HW_FP), "Fp", [name] {
        char value[PROPERTY_SIZE] = {};
        if (property_get(FP_PROPERTY, value, nullptr) <= 0)
            return -1;
        DEC_LOG_AS(name, "getprop %s ok. value is %s\n", FP_PROPERTY, value);
        for (const char *maker : FP_MAKERS) {
            if (strstr(value, maker)) {
                found(name, HW_FP, "Fp");
                return 0;
            }
        }
        return -1;
    });
}

// The hall sensors have no probe yet.
int32_t hwdec_hall_up_check() { return -1; }
int32_t hwdec_hall_down_check() { return hwdec_hall_up_check(); }
