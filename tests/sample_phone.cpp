#include "tests/sample_phone.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdarg>
#include <filesystem>

#include "hwdec/detect.h"

using namespace std::string_literals;

// A regular file has no power state to tell: this is the driver.
int ioctl(int, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    *va_arg(arguments, int32_t *) = 0;
    va_end(arguments);
    return 0;
}

namespace
{

constexpr char MISC[] = "/dev/block/bootdevice/by-name/misc";
constexpr char PARTITIONS[] = "/proc/partitions";
constexpr char COMMAND_LINE[] = "/proc/cmdline";
constexpr char CELL[] = "/sys/class/power_supply/cv-batt-controller/dual_batt_sel";
constexpr char FINGERPRINT[] = "/sys/devices/platform/soc/soc:fpsensor/goodix_cail_state";
constexpr char TOUCH[] = "/proc/tp_name";
constexpr char FORCE_TOUCH[] = "/sys/ni_force_0/device_init_result";
constexpr char RGB_NAME[] = "/sys/rgb/name";
constexpr char SD_CARD[] = "/storage/0123-4567";
constexpr char TURBO_WRITE[] = "/sys/devices/platform/soc/1d84000.ufshc/ufstw_lu0/tw_enable";
constexpr char RESULT[] = "/sdcard/runin/bigboard_mmi/result.txt";

// What the tools keep between their runs.
constexpr char PROCESSES[] = "/dev/state/ps"; // "FIRST LAST LINE": in which listings the line stands
constexpr char LISTINGS[] = "/dev/state/ps.count";
constexpr char MODULES[] = "/dev/state/modules";
constexpr char NFC[] = "/dev/state/nfc";
constexpr char DISPLAY[] = "/dev/state/display";
constexpr char RPMB[] = "/dev/state/rpmb";
constexpr char SCRATCH[] = "/dev/state/scratch";

// No process has this id, so that nobody is hit.
constexpr char BT_RUNS[] = "1 2 root 99999999 ftmdaemon\n";
constexpr char BT_STARTS[] = "2 9 root 99999999 ftmdaemon\n";
constexpr char WLAN_RUNS[] = "1 2 root 99999999 ptt_socket_app\n";
constexpr char WLAN_STARTS[] = "2 9 root 99999999 ptt_socket_app\n";

const std::string TABLE_LINE(512, '7');
const std::string LONG_TEXT(2000, 'k');

const std::map<std::string, std::string> &nodes()
{
    static const std::map<std::string, std::string> NODES = {
        {"/data/cplc_info", std::string(50, 'A')},
        {"/data/keybox.xml", "keys"},
        {"/data/removed", "x"},
        {"/data/widevine.xml", "keys"},
        {"/dev/block/bootdevice/by-name/nuroconfig", ""},
        {"/dev/block/platform/soc/1d84000.ufshc/by-name/misc", ""},
        {"/dev/nq-nci", ""},
        {"/dev/rk_preisp", ""},
        {"/d/iris/abyp_opt", "1"},
        {"/mnt/vendor/persist/bluetooth/.bt_nv.bin", "\1\2\3\x66\x55\x44\x33\x22\x11"},
        {"/mnt/vendor/persist/data/dxhdcp2/1", ""},
        {"/mnt/vendor/persist/data/dxhdcp2/2", ""},
        {"/mnt/vendor/persist/data/dxhdcp2/3", ""},
        {"/mnt/vendor/persist/data/dxhdcp2/4", ""},
        {"/mnt/vendor/persist/data/dxhdcp2/5", ""},
        {"/mnt/vendor/persist/rgb_data.bin", TABLE_LINE + "\n" + TABLE_LINE + "\n" + TABLE_LINE + "\n"},
        {"/mnt/vendor/persist/wlan_mac.bin", ""},
        {"/proc/cpuinfo", "processor : 0\njtag_feature_id : 0x1F\n"},
        {"/proc/meminfo", "MemTotal:        7650000 kB\n"},
        {TOUCH, "goodix9896\n"},
        {"/sdcard/runin/bigboard_mmi_2/result.txt", "FAIL\n"},
        {"/sys/block/mmcblk0/device/cid", "15010044433634\n"},
        {"/sys/block/mmcblk0/device/prv", "0x8\n"},
        {"/sys/block/nvme0n1/device/device/subsystem_device", "0x5013\n"},
        {"/sys/block/nvme0n1/device/device/subsystem_vendor", "0x1987\n"},
        {"/sys/block/nvme0n1/device/firmware_rev", "EDFM00.2\n"},
        {"/sys/block/sda/device/rev", "0300\n"},
        {"/sys/bus/i2c/devices/1-002c/mmi_cali", ""},
        {"/sys/bus/spi/devices/spi0.0/fts_driver_info", "Focaltech\n"},
        {"/sys/class/android_usb/android0/iSerial", "CV0250A7F3\n"},
        {"/sys/class/backlight/panel0-backlight/brightness", "100\n"},
        {"/sys/class/backlight/panel0-backlight/max_brightness", "2047\n"},
        {"/sys/class/power_supply/battery/capacity", "76\n"},
        {"/sys/class/power_supply/battery/current_now", "-250000\n"},
        {"/sys/class/power_supply/battery/input_suspend", "0\n"},
        {"/sys/class/power_supply/battery/voltage_now", "4123000\n"},
        {"/sys/class/power_supply/cv-batt-controller/cv_bat1_volt", "4050\n"},
        {"/sys/class/power_supply/cv-batt-controller/cv_bat2_volt", "4100\n"},
        {"/sys/class/power_supply/cv-batt-controller/dual_batt_stat", "1\n"},
        {"/sys/class/power_supply/usb/type", "USB_DCP\n"},
        {"/sys/class/qcom-battery/bq25790_chip_ok", "1\n"},
        {"/sys/class/qcom-battery/master_smb1396_online", "1\n"},
        {"/sys/class/qcom-battery/max77932_chip_ok", "1\n"},
        {"/sys/class/qcom-battery/slave2_smb1396_online", "1\n"},
        {"/sys/class/qcom-battery/slave_smb1396_online", "1\n"},
        {"/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq", ""},
        {"/sys/devices/system/cpu/cpu2/cpufreq/scaling_max_freq", ""},
        {"/sys/devices/virtual/misc/iris5/iris5_display_status", "0 errors\n"},
        {"/sys/devices/virtual/misc/iris5/iris5_lcdid", "21 43\n"},
        {"/sys/devices/virtual/misc/iris5/iris5_pt_power", "0\n"},
        {"/sys/devices/virtual/qx_display/disp_feature/disp-DSI-0/panel_info", "panel_name=mdss_dsi_k2\n"},
        {"/sys/devices/virtual/thermal/cooling_device13/cur_state", "3\n"},
        {"/sys/module/wlan/parameters/con_mode_ftm", "5\n"},
        {"/sys/ndt/name", "ndt\n"},
        {FORCE_TOUCH, "1\n"},
        {"/sys/rgb/mcu_control", ""},
        {"/sys/rgb0/name", "aw2015_led\n"},
        {"/sys/rgb1/name", "aw2015_led1\n"},
        {"/sys/rgb_led1/mmi", ""},
        {"/sys/touchscreen/novatek_vane_color", ""},
        {"/sys/vibrator/vibrator_flag", "1\n"},
        {CELL, "0"},
        {COMMAND_LINE, "console=ttyMSM0 androidboot.bootdevice=1d84000.ufshc\n"},
        {DISPLAY, "Display Power: state=ON\n"},
        {FINGERPRINT, "0\n"},
        {LISTINGS, "0\n"},
        {MISC, "ffbm-01"},
        {MODULES, ""},
        {NFC, "off\n"},
        {PARTITIONS,
         " 8 0 100000000 sda\n 8 1 8192 sda1\n 259 0 250000000 nvme0n1\n 8 80 20000000 sdf\n 8 96 4 sdg\n"},
        {PROCESSES, ""},
        {RESULT, "PASS\n"},
        {RGB_NAME, "aw2015_led\n"},
        {RPMB, "RPMB_KEY_PROVISIONED_AND_OK\n"},
        {SCRATCH, "system_a\n"},
        {SD_CARD, ""},
        {TURBO_WRITE, "1\n"},
    };
    return NODES;
}

const std::map<std::string, std::string> TOOLS = {
    {"/system/bin/oemcrypto_test", "echo 'Version: 15'; echo 'dev_id = ABC'"},
    {"/system/bin/r", "echo '00780350: 00303030'"},
    {"/system/bin/svc", "[ \"$*\" = 'nfc disable' ] && echo off >/dev/state/nfc; exit 0"},
    {"/vendor/bin/key_client", "echo loading; echo PASS"},
    {"/vendor/bin/thermal_factory", ""},
    {"KmInstallKeybox", "echo 'InstallKeybox is done'"},
    {"StoreKeybox", ""},
    {"am", "echo Starting"},
    {"btnvtool", ""},
    {"date", "[ \"$1\" != +%S ] || echo 05"},
    {"diag_socket_log", "echo 'diag_socket_log: stopping'"},
    {"dumpsys", "case $1 in\npower) cat /dev/state/display ;;\nnfc) echo mState=$(</dev/state/nfc) ;;\n"
                "secure_element) echo mCplc:0x4790 ;;\nkavophonebind) echo '[mBindKey]: bound' ;;\n"
                "SurfaceFlinger) echo 'Period: 16.6 ms (60.00 Hz)' ;;\nesac"},
    {"fctest", "echo 'please pull out usb cable'"},
    {"ftmdaemon", ""},
    {"ghr", "echo flash; echo 'memTotal: 300'"},
    {"hdcpprov", "echo 'provisioning test finished with return code: 0x0'"},
    {"input_vendor", ""},
    {"insmod", "echo 'wlan 1' >/dev/state/modules"},
    {"irisConfig", ""},
    {"lpdump", "cat /dev/state/scratch"},
    {"lsmod", "echo Module; cat /dev/state/modules"},
    {"phison-smart", "echo Smart; echo AES:Enable"},
    {"pnscr", "case $2 in\nese_cplc) echo 'CPLC: 4790' ;;\nndi) echo 'Die ID: 0102' ;;\nesac"},
    {"ps", "read -r count </dev/state/ps.count; echo $((++count)) >/dev/state/ps.count; echo USER PID NAME\n"
           "while read -r first last line; do ((first <= count && count <= last)) && echo \"$line\"; done "
           "</dev/state/ps\nexit 0"},
    {"ptt_socket_app", ""},
    {"qseecom_sample_client", "read -r choice; if [ $choice = 2 ]; then cat /dev/state/rpmb; else\n"
                              "echo RPMB_KEY_PROVISIONED_AND_OK >/dev/state/rpmb\n"
                              "echo 'RPMB key provisioning completed'; fi"},
    {"qx-factory-tool", "echo 'wcd938x-codec cs35l45.3-0031 cs35l45.3-0030'"},
    {"rmmod", ": >/dev/state/modules"},
    {"see_workhorse", "echo accel; echo gyro; echo mag; echo light"},
    {"setprop", ""},
    {"settings", "case \"$1 $3\" in\n'put screen_off_timeout') echo $4 >/dev/state/timeout ;;\n"
                 "'get screen_off_timeout') cat /dev/state/timeout ;;\n'get color_mode') echo 2 ;;\nesac"},
    {"softirisConfig", ""},
    {"soter_client", "echo first; echo second"},
    {"widevine_client", "echo PASS"},
};

const std::map<std::string, std::string> PROPERTIES = {
    {"gsm.sim.state", "LOADED"},
    {"nfc.fw.is_downloading", "false"},
    {"nfc.initialized", "true"},
    {"persist.camera.sensor.rearDepth.fuseID", "fuse4"},
    {"persist.vendor.camera.qx.module.info", "back_main=s5kgw3,back_ultra=imx355"},
    {"persist.vendor.camera.qx.module.infoext", "front_main=s5k3t2,back_macro2x=s5k5e9"},
    {"persist.vendor.sys.fp.module", "O-film"},
    {"persist.vendor.sys.fp.uid", "1234"},
    {"ro.boot.cpuid", "0xC0FFEE"},
    {"ro.boot.dp", "0xB"},
    {"ro.boot.hwversion", "0x12"},
    {"ro.boot.secureboot", "1"},
    {"ro.bootimage.build.fingerprint", "Corvane/cv8250"},
    {"ro.bootmode", "ffbm-01"},
    {"ro.build.id", "RKQ1.210301.001"},
    {"ro.secureboot.lockstate", "locked"},
    {"ro.vendor.tc.qkey", std::string(88, 'q')},
    {"vendor.camera.sensor.f.fuseID", "fuse0"},
    {"vendor.display.panel.calibration.status", "0"},
};

void write_node(const std::string &path, const std::string &content)
{
    FILE *file = fopen(path.c_str(), "we");
    if (!file || fwrite(content.data(), 1, content.size(), file) != content.size() || fclose(file) != 0)
        abort();
}

std::string repeated(const std::string &text, int times)
{
    std::string out;
    for (int i = 0; i < times; i++)
        out += text;
    return out;
}

} // namespace

void SamplePhone::SetUp()
{
    Phone::SetUp();
    the_phone().properties = PROPERTIES;
    std::filesystem::create_directories("/dev/state");
    for (const auto &[path, content] : nodes())
        node(path, content);
    for (const auto &[name, script] : TOOLS)
        tool(name, script);
}

void SamplePhone::prepare_for(const sample &request)
{
    for (const auto &[path, content] : nodes())
        write_node(path, content);
    for (const changed_node &changed : request.changed) {
        if (changed.content)
            write_node(changed.path, changed.content);
        else
            unlink(changed.path);
    }
    dec_check_flag_long = 0;
    hw_dec_done_flag = 0;
}

unsigned int SamplePhone::response_of(uint16_t code)
{
    static const std::set<uint16_t> LONG = {0x1302, 0x3802, 0x3809, 0xD21E};
    if (code == 0x013C)
        return 5;
    return code >= 0xE600 || LONG.count(code) ? 775 : 263;
}

const std::vector<sample> &SamplePhone::samples()
{
    static const std::vector<sample> SAMPLES = {
        {0x001E, 0, "AABBCCDDEEFF\0"s, "AABBCCDDEEFF"},
        {0x0028, 0, "AABBCCDDEEFF\0"s, "OK"},
        {0x0029, 0, "", "112233445566"},
        {0x0100, 0, "", "RKQ1.210301.001"},
        {0x0101, 0, "", "Corvane/cv8250"},
        {0x010B, 0, "", "OK"},
        {0x0116, 0, "", "C0FFEE"},
        {0x0117, 0, "1804800", "OK"},
        {0x0128, 0, "", "OK"},
        {0x0128, 2, "", "OK"},
        {0x0129, 0, "", "ftmmi_mode"},
        {0x012A, 0, "", "OK"},
        {0x012C, 0, "", "OK"},
        {0x012D, 0, "", "OK"},
        {0x0132, 0, "", "OK"},
        {0x0133, 0, "", "OK"},
        {0x013C, 7, "", ""},
        {0x013D, 0, "", "P"},
        {0x013E, 0, "", "P", {{TOUCH, "fts\n"}, {FORCE_TOUCH, ""}}},
        {0x013F, 0, "", "CV0250A7F3"},
        {0x0140, 0, "", "OK"},
        {0x0140, 0, "", "ERROR", {{PROCESSES, "1 1 root 99999999 thermal-engine\n"}}},
        {0x0141, 0, "", "12"},
        {0x0142, 0, "", "C0FFEE"},
        {0x0143, 0, "", "1F\n"},
        {0x0A00, 0, "", "\x08"},
        {0x0B00, 0, "", "\x80"},
        {0x0B00, 0, "", "\x2D\x01", {{PARTITIONS, ""}}},
        {0x0B01, 0, "", "0300"},
        {0x0B01,
         0,
         "",
         "44433634:KIOXIA:0x8",
         {{COMMAND_LINE, "androidboot.emmc=true androidboot.emmc.vendor=KIOXIA ro\n"}}},
        {0x0B0A, 0, "", "ffbm-01"},
        {0x0B0A, 0, "", "", {{MISC, nullptr}}},
        {0x0B14, 0, "\0\0\x1E"s, "OK"},
        {0x0B15, 0, "\x03\x01\x08\x00\x07\xE5.\x05\x00\x3B"s, "OK"},
        {0x0B1E, 0, "", "READY"},
        {0x0B1E, 0, "", "ABSENT", {{SD_CARD, nullptr}}},
        {0x0C00, 0, "50", "OK"},
        {0x0C01, 0, "", "76"},
        {0x0C02, 0, "", "4123000"},
        {0x0C03, 0, "", "-250000"},
        {0x0C04, 0, "", "USB_DCP"},
        {0x0C0A, 1, "", "OK"},
        {0x0C0A, 2, "", "ERROR"},
        {0x0C0B, 0, "", "1"},
        {0x0C0C, 0, "", "50"},
        {0x0C1E, 0, "", "OK"},
        {0x0C1F, 0, "", "OK"},
        {0x0F00, 0, "", "OK"},
        {0x0F01, 0, "", "OK"},
        {0x0F02, 0, "", "ON"},
        {0x0F02, 0, "", "OFF", {{DISPLAY, "Display Power: state=OFF\n"}}},
        {0x1300, 0, "/data/removed\0"s, "OK"},
        {0x1300, 0, "/data/nothing\0"s, "NOTEXIST"},
        {0x1301, 0, "", "OK"},
        {0x1301, 0, "", "ERROR", {{TURBO_WRITE, nullptr}}},
        {0x1302, 0, "", "PASS"},
        {0x1302, 1, "", "FAIL"},
        {0x1302, 0, "", "NOT_EXSIT", {{RESULT, nullptr}}},
        {0x1400, 0, "", std::string(88, 'q')},
        {0x1500, 0, "", "OK"},
        {0x1500, 0, "", "ERROR", {{SCRATCH, "scratch\n"}}},
        {0x1501, 0, "", "OK"},
        {0x1501, 0, "", "ERROR", {{FINGERPRINT, "1\n"}}, 1},
        {0x1502, 0, "", "1234"},
        {0x1E00, 0, "", "OK"},
        {0x1E00, 0, "", "OK", {{PROCESSES, BT_RUNS}}},
        {0x1E01, 0, "", "EXIST", {{PROCESSES, BT_RUNS}}},
        {0x1E01, 0, "", "OK", {{PROCESSES, BT_STARTS}}},
        {0x2000, 0, "", "OK", {}, 1},
        {0x2001, 0, "", "OK"},
        {0x2001, 1, "", "OK", {{MODULES, "wlan 1\n"}}},
        {0x2001, 2, "", "ERROR"},
        {0x2003, 0, "", "EXIST", {{PROCESSES, WLAN_RUNS}}},
        {0x2003, 0, "", "OK", {{PROCESSES, WLAN_STARTS}}},
        {0x2004, 0, "", "OK"},
        {0x2004, 0, "", "OK", {{PROCESSES, WLAN_RUNS}}},
        {0x2100, 0, "", "\x01\x01"},
        {0x2101, 0, "", "OK"},
        {0x2102, 0, "", "EDFM00.2"},
        {0x2103, 0, "", "AES:en"},
        {0x2400, 0, "", "OK"},
        {0x2401, 0, "", "OK"},
        {0x2402, 0, "", "OK"},
        {0x2402, 0, "", "OK", {{PROCESSES, "1 9 u0_a1 99999999 com.android.nfc\n"}}},
        {0x2402, 1, "", "OK"},
        {0x2403, 0, "", "OK"},
        {0x2403, 0, "", "OK", {{NFC, "on\n"}}},
        {0x2600, 0, "", "OK", {}, 1},
        {0x3201, 0, std::string(108, '\x55'), "OK"},
        {0x3202, 0, "\x10\x20\x30", "OK"},
        {0x3202, 0, "\x10\x20\x30\x0A", "OK"},
        {0x3203, 0, "", "OK"},
        {0x3204, 0, "", "OK"},
        {0x3205, 0, "", "OK"},
        {0x3206, 0, "", "OK"},
        {0x3207, 0, "", "OK"},
        {0x3208, 0, "", "OK"},
        {0x3209, 0, "", "OK"},
        {0x320A, 0, "", "OK"},
        {0x320B, 0, "", "21 43"},
        {0x320C, 0, "", "OK"},
        {0x320D, 0, "", "2"},
        {0x320E, 0, "\x3C", "OK"},
        {0x320F, 0, "", "60"},
        {0x3600, 0, "", "OK"},
        {0x3600, 1, "", "OK"},
        {0x3601, 0, "", "OK"},
        {0x3602, 0, "", "fuse0"},
        {0x3602, 4, "", "fuse4"},
        {0x3800, 0, "\x10\x80", "OK"},
        {0x3801, 0, "\x01\x05", "OK"},
        {0x3802, 0, std::string(240, '\x11'), "OK"},
        {0x3803, 0, "1", "OK"},
        {0x3807, 0, "\x01\x80", "OK"},
        {0x3807, 0, "\x01\x80", "OK", {{RGB_NAME, "aw9120_led\n"}}},
        {0x3808, 0, "\x02\x05", "OK"},
        {0x3808, 0, "\x02\x05", "OK", {{RGB_NAME, "aw9120_led\n"}}},
        {0x3809, 0, std::string(48, '\x11'), "OK"},
        {0x5000, 0, "", "LOADED"},
        {0xC800, 0, "", "OK"},
        {0xC800, 1, "", "OK"},
        {0xC801, 0, "", "OK"},
        {0xC801, 0, "", "OK", {{RPMB, "RPMB_KEY_NOT_PROVISIONED\n"}}},
        {0xC802, 0, "", "locked"},
        {0xCA00, 0, "", "OK"},
        {0xCA00, 1, "", "OK"},
        {0xCA00, 2, "", "OK"},
        {0xD200, 0, std::string(16, '\x77'), "OK"},
        {0xD201, 0, "", "bound"},
        {0xD20A, 0, std::string(128, '\x88'), "ABC"},
        {0xD20B, 0, "42\0"s, "OK"},
        {0xD214, 0, "\x03\0cekeypm!"s, "OK", {}, 0, 5},
        {0xD215, 0, "", "OK"},
        {0xD21E, 0, "", "first\nsecond\n"},
        {0xD228, 0, "", "OK"},
        {0xD232, 0, "", "cplc:" + repeated("41", 42) + "mac:" + repeated("41", 8)},
        {0xD23C, 0, "42\0"s, "OK"},
        {0xE600, 0, "/sys/rgb0/name\0"s, "aw2015_led"},
        {0xE600, 1, "/sys/rgb0/name+aw2015\0"s, "aw2015"},
        {0xE600, 1, "/sys/rgb0/name+other\0"s, "ERROR", {}, 1},
        {0xE601, 0, "/sys/rgb_led1/mmi+12\0"s, "OK"},
        {0xE602, 0, "ro.build.id\0"s, "RKQ1.210301.001"},
        {0xE602, 0, LONG_TEXT, "ERROR", {}, 0, 5},
        {0xE603, 0, "persist.line+7\0"s, "OK"},
        {0xE604, 0, "echo done\0"s, "OK"},
        {0xE604, 0, "true " + LONG_TEXT, "OK", {}, 0, 5},
        {0xE605, 0, "echo no; echo found+found\0"s, "OK"},
        {0xE605, 0, "echo no; echo no+found\0"s, "ERROR"},
        {0xE606, 0, "echo one; echo two\0"s, "one\ntwo"},
        {0xE606, 0, "printf %05000d 0\0"s, std::string(767, '0')},
        {0xE607, 0, "wanted\0"s, "EXSIT", {{PROCESSES, "1 1 root 99999999 wanted\n"}}},
        {0xE607, 0, "wanted\0"s, "NOT_EXSIT"},
    };
    return SAMPLES;
}
