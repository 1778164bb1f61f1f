// Component detection: what is demanded, found, reported, remembered and probed again.
#include "hwdec/checks.h"
#include "hwdec/detect.h"
#include "tests/fake_platform.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <sstream>

namespace
{

using namespace std::string_literals;
using names = std::set<std::string>;

constexpr uint16_t BOARD = 0x013D;
constexpr uint16_t PHONE = 0x013E;

// All components, in the order of the answer.
const strings ALL = [] {
    std::istringstream words(
        "codec cam_backmain cam_backultra cam_frontmain cam_backmacro2x display rgb0 rgb1 acc gyro "
        "magnetic lightsns ft_ic vibrator smartpa_l smartpa_r tp fp bq25790 smb1396_master "
        "smb1396_slave smb1396_slave2 max77932 nfc_cplc nfc_deid ssd");
    return strings(std::istream_iterator<std::string>(words), {});
}();

const struct {
    const char *component;
    const char *path;
    const char *value;
} NODES[] = {
    {"display", "/sys/devices/virtual/qx_display/disp_feature/disp-DSI-0/panel_info",
     "panel_name=mdss_dsi_k2_dual_cmd\n"},
    {"rgb0", "/sys/rgb0/name", "aw2015_led\n"},
    {"rgb1", "/sys/rgb1/name", "aw2015_led1\n"},
    {"ft_ic", "/sys/ni_force_0/device_init_result", "1\n"},
    {"vibrator", "/sys/vibrator/vibrator_flag", "1\n"},
    {"tp", "/proc/tp_name", "goodix9896\n"},
    {"nfc_deid", "/dev/nq-nci", ""},
    {"ssd", "/sys/block/nvme0n1/device/device/subsystem_vendor", "0x1987\n"},
    {"ssd", "/sys/block/nvme0n1/device/device/subsystem_device", "0x5013\n"},
    {"bq25790", "/sys/class/qcom-battery/bq25790_chip_ok", "1\n"},
    {"smb1396_master", "/sys/class/qcom-battery/master_smb1396_online", "1\n"},
    {"smb1396_slave", "/sys/class/qcom-battery/slave_smb1396_online", "1\n"},
    {"smb1396_slave2", "/sys/class/qcom-battery/slave2_smb1396_online", "1\n"},
    {"max77932", "/sys/class/qcom-battery/max77932_chip_ok", "1\n"},
};
const char *const OTHER_NODES[] = {"/sys/ndt/name", "/sys/bus/spi/devices/spi0.0/fts_driver_info"};

constexpr char SERVICE_OFF[] = "/data/nfc_off";

class Detection : public Phone
{
  protected:
    // A service that has just started, on a phone with all components.
    void SetUp() override
    {
        Phone::SetUp();
        dec_check_flag_long = 0;
        hw_dec_done_flag = 0;
        hw_dec_log_suppressed = 0;
        fit_all_but({});
    }
    void TearDown() override
    {
        hw_dec_log_suppressed = 0;
        Phone::TearDown();
    }

    static void unfit(const std::string &path) { std::filesystem::remove(path); }

    static void fit_all_but(const names &missing)
    {
        auto fitted = [&](const char *name) { return missing.count(name) == 0; };
        auto text_if = [&](const char *name, const std::string &text) { return fitted(name) ? text : ""; };
        for (const char *path : OTHER_NODES)
            unfit(path);
        for (const auto &node_of : NODES) {
            if (fitted(node_of.component))
                node(node_of.path, node_of.value);
            else
                unfit(node_of.path);
        }
        tool("see_workhorse",
             text_if("acc", "echo 0,accel,bosch\n") + text_if("gyro", "echo 0,gyro,bosch\n") +
                 text_if("magnetic", "echo 0,mag,akm\n") + text_if("lightsns", "echo 0,ambient_light,ams\n"));
        tool("qx-factory-tool", text_if("codec", "echo wcd938x-codec\n") +
                                    text_if("smartpa_l", "echo cs35l45.3-0031\n") +
                                    text_if("smartpa_r", "echo cs35l45.3-0030\n"));
        tool("/sbin/ps", "echo u0_a1 812 com.android.nfc"); // before the one of the root
        tool("svc", "[ \"$*\" = 'nfc disable' ] && touch "s + SERVICE_OFF);
        tool("dumpsys", "case $1 in\nsecure_element) "s + (fitted("nfc_cplc") ? "echo mCplc:0x4790" : ":") +
                            " ;;\nnfc) [ -e " + SERVICE_OFF +
                            " ] && echo mState=off || echo mState=on ;;\nesac");
        tool("pnscr", "case $2 in\nese_cplc) echo; "s + text_if("nfc_cplc", "echo 'CPLC: 4790'") +
                          ";;\nndi) " + (fitted("nfc_deid") ? "echo 'Die ID: 0102'" : ":") + " ;;\nesac");
        unfit(SERVICE_OFF);
        auto &properties = the_phone().properties;
        properties["persist.vendor.camera.qx.module.info"] = text_if("cam_backmain", "back_main=s5kgw3 ") +
                                                             text_if("cam_backultra", "back_ultra=imx355 ") +
                                                             ";";
        properties["persist.vendor.camera.qx.module.infoext"] =
            text_if("cam_frontmain", "front_main=s5k3t2 ") +
            text_if("cam_backmacro2x", "back_macro2x=s5k5e9 ");
        properties["persist.vendor.sys.fp.module"] = text_if("fp", "O-film");
        properties["nfc.fw.is_downloading"] = "false";
        properties["nfc.initialized"] = "true";
    }

    // Lines that the service has started so far.
    static int commands_started()
    {
        const auto &log = the_phone().log;
        return static_cast<int>(std::count_if(log.begin(), log.end(), [](const std::string &line) {
            return line.rfind("[my_popen]:new popen command is: ", 0) == 0;
        }));
    }

    static int tool_runs(const std::string &name)
    {
        auto lines = runs();
        return static_cast<int>(std::count_if(
            lines.begin(), lines.end(), [&](const std::string &line) { return line.rfind(name, 0) == 0; }));
    }

    static std::string items(const strings &failed)
    {
        std::string text;
        for (const std::string &name : failed)
            text += name + ":F" + '\0';
        return text;
    }
};

TEST_F(Detection, ListsExactlyWhatIsMissing)
{
    const struct {
        uint16_t code;
        names missing;
        std::string text;
    } cases[] = {
        {BOARD, {}, "P"},
        {PHONE, {}, "P"},
        {BOARD, {"codec"}, items({"codec"})},
        {PHONE, {"tp", "rgb0"}, "rgb0:F\0tp:F\0"s},
        {BOARD, {"tp", "fp", "display", "magnetic", "lightsns", "cam_backmain"}, "P"}, // not on a bare board
        {PHONE, {"nfc_cplc", "nfc_deid", "ssd"}, "P"},                                 // never demanded
        {BOARD,
         {ALL.begin(), ALL.end()},
         items({"codec", "rgb0", "rgb1", "acc", "gyro", "ft_ic", "vibrator", "smartpa_l", "smartpa_r",
                "bq25790", "smb1396_master", "smb1396_slave", "smb1396_slave2", "max77932"})},
        {PHONE, {ALL.begin(), ALL.end()}, items({ALL.begin(), ALL.end() - 3})},
    };
    ASSERT_EQ(std::size(cases[6].text), 149u);
    ASSERT_EQ(std::size(cases[7].text), 256u);
    for (const auto &[code, missing, text] : cases) {
        SCOPED_TRACE(testing::PrintToString(missing));
        dec_check_flag_long = 0;
        hw_dec_done_flag = 0;
        fit_all_but(missing);
        response answer = ask(code, 0x5A);
        EXPECT_EQ(answer.bytes.size(), 263u);
        EXPECT_EQ(answer.text, text);
        EXPECT_EQ(answer.data.substr(answer.length), std::string(256 - answer.length, '\0'));
        EXPECT_EQ(BL_CHECK_Flag, 0x1F066781u);
        EXPECT_EQ(PL_CHECK_Flag, 0x1F1E7FFDu);
    }
}

TEST_F(Detection, WhatWasFoundStaysFoundAndIsNotProbedAgain)
{
    fit_all_but({"gyro", "cam_backultra"});
    EXPECT_EQ(ask(PHONE).text, items({"cam_backultra", "gyro"}));
    EXPECT_EQ(tool_runs("see_workhorse"), 4);
    int started = commands_started();

    const names all(ALL.begin(), ALL.end());
    fit_all_but(all);
    EXPECT_EQ(ask(PHONE).text, items({"cam_backultra", "gyro"}));
    // The gyro was missing, and the audio tool prints one part a line: its routine never counts as passed.
    EXPECT_EQ(tool_runs("see_workhorse"), 5);
    EXPECT_EQ(tool_runs("qx-factory-tool"), 2);
    EXPECT_EQ(commands_started() - started, 2);

    fit_all_but({});
    EXPECT_EQ(ask(PHONE).text, "P");
    fit_all_but(all);
    EXPECT_EQ(ask(BOARD).text, "P");
}

TEST_F(Detection, RoutinesFindOrDoNot)
{
    const std::string tool_info = "/sys/bus/spi/devices/spi0.0/fts_driver_info";
    const std::string back = "persist.vendor.camera.qx.module.info";
    const std::string vendor = "/sys/block/nvme0n1/device/device/subsystem_vendor";
    const std::string device = "/sys/block/nvme0n1/device/device/subsystem_device";
    const std::string force = "/sys/ni_force_0/device_init_result";
    auto set = [](const std::string &key, const std::string &value) {
        return [=] { the_phone().properties[key] = value; };
    };
    auto put = [](const std::string &path, const std::string &value) { return [=] { node(path, value); }; };
    auto run = [](const std::string &name, const std::string &script) { return [=] { tool(name, script); }; };
    const struct {
        const char *what;
        int32_t (*routine)();
        std::function<void()> change;
        bool passes = false;
        uint64_t found = 0;
        uint32_t done = 0;
    } cases[] = {
        {"vibrator 10", hwdec_vibrator_check, put("/sys/vibrator/vibrator_flag", "10\n"), true, 0x4000,
         0x8000},
        {"vibrator 2 lines", hwdec_vibrator_check, put("/sys/vibrator/vibrator_flag", "0\n1\n")},
        {"rgb value longer", hwdec_rgb0_check, put("/sys/rgb0/name", "aw2015_led1"), true, 0x80, 0x100},
        {"rgb value shorter", hwdec_rgb1_check, put("/sys/rgb1/name", "aw2015_led")},
        {"charger 0", hwdec_chg_bqic_check, put("/sys/class/qcom-battery/bq25790_chip_ok", "0")},
        {"charger", hwdec_chg_maxic_check, [] {}, true, 0x10000000, 0x20000000},
        {"panel", hwdec_display_check, [] {}, true, 0x40, 0x80},
        {"force touch 2", hwdec_force_touch_check, [=] { put(force, "2")(), put("/sys/ndt/name", "ndt")(); }},
        {"force touch by name", hwdec_force_touch_check,
         [=] { put(force, "")(), put("/sys/ndt/name", "ndt")(); }, true, 0x2000, 0x4000},
        {"force touch gone", hwdec_force_touch_check, put(force, "")},
        {"touch panel, second maker", hwdec_tp_check,
         [=] { put("/proc/tp_name", "fts")(), put(tool_info, "spi\nby Focaltech\n")(); }, true, 0x80000,
         0x100000},
        {"touch panel, no maker", hwdec_tp_check,
         [=] { put("/proc/tp_name", "fts")(), put(tool_info, "spi\n")(); }},
        {"fingerprint", hwdec_fp_check, set("persist.vendor.sys.fp.module", "a Truly one"), true, 0x100000,
         0x200000},
        {"fingerprint, other maker", hwdec_fp_check, set("persist.vendor.sys.fp.module", "x")},
        {"no fingerprint", hwdec_fp_check, set("persist.vendor.sys.fp.module", "")},
        {"both cameras", hwdec_camera_back_main_check, [] {}, true, 0xC, 0x8},
        {"one camera", hwdec_camera_back_main_check, set(back, "back_main=s5kgw3"), true, 0x4, 0},
        {"the other camera", hwdec_camera_back_main_check, set(back, "back_ultra=imx355"), true, 0x8, 0},
        {"cameras not told", hwdec_camera_back_main_check, set(back, "")},
        {"audio, all on a line", hwdec_audio_pa_check,
         run("qx-factory-tool", "echo wcd938x-codec cs35l45.3-0031 cs35l45.3-0030"), true, 0x60001, 0x4},
        {"audio, complete line last", hwdec_audio_pa_check,
         run("qx-factory-tool", "echo; echo wcd938x-codec cs35l45.3-0031 cs35l45.3-0030"), true, 0x60001, 0},
        {"audio, silent", hwdec_audio_pa_check, run("qx-factory-tool", "")},
        {"audio, other parts", hwdec_audio_pa_check, run("qx-factory-tool", "echo x"), true, 0, 0},
        {"sensors in a long line", hwdec_acc_check, run("see_workhorse", "printf '%0300d' 0; echo accel"),
         true, 0x200, 0x400},
        {"no sensor tool", hwdec_lightsns_check, [] { remove_tool("see_workhorse"); }},
        {"hall sensor", hwdec_hall_down_check, [] {}},
        {"drive", hwdec_ssd_check_v2, [] {}, true, 0x800000, 0x1000000},
        {"drive of two vendors", hwdec_ssd_check_v2, put(vendor, "0x1987\n0x1988\n")},
        {"other drive", hwdec_ssd_check_v2, put(device, "0x5012\n")},
        {"element", hwdec_nfc_cplc_check, [] {}, true, 0, 0x400000},
        {"element, firmware loading", hwdec_nfc_cplc_check, set("nfc.fw.is_downloading", "true")},
        {"element, not initialized", hwdec_nfc_cplc_check, set("nfc.initialized", "false")},
        {"element without data", hwdec_nfc_cplc_check, run("dumpsys", "echo mCplc:null; echo mCplc:0x1")},
        {"element read", hwdec_nfc_cplc_ffbm_check, [] {}, true, 0, 0x400000},
        {"element read, firmware unknown", hwdec_nfc_cplc_ffbm_check, set("nfc.fw.is_downloading", "")},
        {"element read, no data", hwdec_nfc_cplc_ffbm_check, run("pnscr", "echo CPLC:")},
        {"die", hwdec_nfc_deid_check, [] {}, true, 0, 0x800000},
        {"die, service stays on", hwdec_nfc_deid_check, run("svc", "")},
        {"die, no node", hwdec_nfc_deid_check, [] { unfit("/dev/nq-nci"); }},
    };
    for (const auto &[what, routine, change, passes, found, done] : cases) {
        SCOPED_TRACE(what);
        dec_check_flag_long = 0;
        hw_dec_done_flag = 0;
        fit_all_but({});
        change();
        int32_t status = routine();
        EXPECT_EQ(status, passes ? 0 : -1);
        EXPECT_EQ(dec_check_flag_long, found);
        EXPECT_EQ(hw_dec_done_flag, done);
        // Passed is passed, whatever happens to the phone.
        if (done) {
            fit_all_but({ALL.begin(), ALL.end()});
            int started = commands_started();
            EXPECT_EQ(routine(), 0);
            EXPECT_EQ(commands_started(), started);
        }
    }
    EXPECT_EQ(tool_runs("pnscr -p ese_cplc"), 2); // the element is left alone while its firmware may load
}

TEST_F(Detection, SensorsThatReadOnRegisterEveryMatch)
{
    tool("see_workhorse", "echo mag; echo accel; echo accel; echo mag");
    EXPECT_EQ(hwdec_magnetic_check(), 0);
    EXPECT_EQ(times_logged("[hwdec_magnetic_check]:want state include mag, get state is mag\n\n"), 2);
    EXPECT_EQ(hwdec_acc_check(), 0);
    EXPECT_EQ(times_logged("[hwdec_acc_check]:get acc_check_status is accel\n\n"), 1);
}

TEST_F(Detection, SuppressedItLogsNothingAndDemandsTheSparedToo)
{
    hw_dec_log_suppressed = 1;
    EXPECT_EQ(ask(PHONE).text, "P");
    EXPECT_EQ(PL_CHECK_Flag, 0x1FFE7FFDu);
    EXPECT_EQ(BL_CHECK_Flag, 0x1F866781u);
    EXPECT_EQ(dec_check_flag_long & 0xE00000, 0xE00000u);

    dec_check_flag_long = 0;
    hw_dec_done_flag = 0;
    fit_all_but({ALL.begin(), ALL.end()});
    response all = ask(PHONE); // more items than there is room for: whole ones only
    EXPECT_LE(all.length, 256u);
    EXPECT_EQ(all.text.substr(all.length - 3), ":F\0"s);
    the_phone().allocation_fails = true;
    EXPECT_TRUE(ask(BOARD).null);
    for (const std::string &line : the_phone().log) // what the shell runner logs is its own
        EXPECT_TRUE(line.rfind("[my_popen]", 0) == 0 || line.rfind("[diag_cmd_compare_msg]", 0) == 0) << line;
}

TEST_F(Detection, SmallParts)
{
    set_hw_dev_check_flag(29);
    EXPECT_EQ(dec_check_flag_long, 0u);
    const uint8_t source[] = {'a', 0, 'b', 0};
    uint8_t target[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(replace_asc_zero(source, 4, target), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(target), 6), "a!b!\0\x09"s);
    EXPECT_EQ(replace_asc_zero(nullptr, 4, target), -1);
    EXPECT_EQ(replace_asc_zero(source, 4, nullptr), -1);
}

} // namespace
