// What the station sends for a command line, byte for byte, and what it makes of answers.
#include "encode.h"
#include "errors.h"
#include "output.h"
#include "request.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <unistd.h>

using namespace station;

namespace
{

Request request_of(const std::string &line)
{
    Settings settings;
    return parse_request(split_words(line), settings);
}

// The packet behind the head and the code: byte 4, length, data.
std::string body_of(const std::string &line)
{
    const Bytes packet = request_of(line).packet;
    EXPECT_GE(packet.size(), 5U);
    EXPECT_EQ(packet[1], 250);
    return to_hex({packet.begin() + 4, packet.end()});
}

class File
{
  public:
    explicit File(const std::string &content)
    {
        const int fd = mkstemp(&path[0]);
        EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
        close(fd);
    }
    ~File() { unlink(path.c_str()); }

    std::string path = "/tmp/station_testXXXXXX";
};

std::string repeated(const std::string &text, int count)
{
    std::string all;
    while (count-- > 0)
        all += text;
    return all;
}

TEST(Request, BytesOfEveryKind)
{
    const struct {
        const char *line;
        std::string body;
    } cases[] = {
        {"port-check", "00"},
        {"query-boot-mode", "000000"},
        // texts: the terminator is there and not counted
        {"get-prop a.b", "000300"
                         "612e6200"},
        {"shell \"a b\"", "000300"
                          "61206200"},
        {"read-node /a", "000200"
                         "2f6100"},
        {"read-node /a --expect 1", "010400"
                                    "2f612b3100"},
        {"write-node /a \"\"", "000300"
                               "2f612b00"},
        {"set-prop k v", "000300"
                         "6b2b7600"},
        {"set-battery-capacity 50", "000200"
                                    "353000"},
        {"set-wlan-mac 00:1a:2B:3c:4d:5e", "000c00"
                                           "303031613242336334643565"
                                           "00"},
        {"set-bt-address A1B2C3D4E5F6", "000c00"
                                        "413142324333443445354636"
                                        "00"},
        // a byte by word and by number
        {"boot-mode recovery", "020000"},
        {"boot-mode 9", "090000"},
        {"wipe-data next-boot", "010000"},
        {"secure-boot", "010000"},
        {"secure-boot fuse", "000000"},
        {"nfc-cplc ffbm", "000000"},
        {"camera-id tele", "020000"},
        {"run-in-result", "000000"},
        {"set-rgb blue 128", "000200"
                             "3080"},
        {"set-rgb-new green 0x05", "000200"
                                   "0205"},
        {"set-lcd-frequency 120", "000100"
                                  "78"},
        // binary fields
        {"set-time \"2026-11-21 10:00:05\"", "000a00"
                                             "0b150a00"
                                             "07ea"
                                             "2e05000a"},
        {"set-time 2026-11-21 10:00:58", "000a00"
                                         "0b150a00"
                                         "07ea"
                                         "2e3a003b"},
        {"set-time 2026-01-02T03:04:05 --limit 60", "000a00"
                                                    "01020304"
                                                    "07ea"
                                                    "2e05003c"},
        {"screen-off-timeout 30", "000300"
                                  "00001e"},
        {"screen-off-timeout 61695", "000300"
                                     "00f0ff"},
        {"screen-off-timeout 65792", "000300"
                                     "010000"},
        {"screen-off-timeout 1048576", "000300"
                                       "100000"},
        {"lcd-picture FF0000", "000300"
                               "ff0000"},
        {"lcd-picture 10,11,12 --margin 20", "000400"
                                             "0a0b0c14"},
        {"lcd-picture cyan", "000300"
                             "00ffff"},
        {"set-lcd-data --hex \"01 02:03\"", "000300"
                                            "010203"},
        {"set-rgb-table-new 1 -2 3 255", "003000" + repeated("01000000feffffff03000000ff000000", 3)},
        {"set-rgb-table 0 10000 0 255", "00f000" + repeated("000000001027000000000000ff000000", 15)},
        // anything at all
        {"send 0xE602 --text a --byte4 7 --length 513", "070102"
                                                        "6100"},
        {"send get-prop --hex 6100", "000200"
                                     "6100"},
        {"send 0x013C", "000000"},
        {"send 0x013C --body 05", "05"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(body_of(one.line), one.body) << one.line;

    EXPECT_EQ(to_hex(request_of("battery-current").packet).substr(2, 6), "fa030c");
    EXPECT_EQ(to_hex(request_of("start-charging").packet).substr(2, 6), "fa1f0c");
}

TEST(Request, BytesFromFiles)
{
    const File cek("abc"), pm(std::string("\0\x7e", 2)), curves("1 2 3 4 # red\n5 6 7 8\n\n9 10 11 -12\n");
    EXPECT_EQ(body_of("set-hdcp-key --cek " + cek.path + " --pm " + pm.path), "000300"
                                                                              "0200"
                                                                              "616263"
                                                                              "007e");
    EXPECT_EQ(body_of("store-widevine-keybox --file " + pm.path), "000200"
                                                                  "007e");
    EXPECT_EQ(body_of("set-rgb-table-new --file " + curves.path), "003000"
                                                                  "01000000020000000300000004000000"
                                                                  "05000000060000000700000008000000"
                                                                  "090000000a0000000b000000f4ffffff");
}

TEST(Request, WhatCannotBeSentIsRefused)
{
    for (const char *line : {
             "no-such-command",
             "get-prop",
             "get-prop a b",
             "set-prop a+b c",
             "write-node /a b+c",
             "read-node /a --expect 1+1",
             "boot-mode sideways",
             "boot-mode 256",
             "wipe-data",
             "set-wlan-mac 001a2b3c4d",
             "set-bt-address 001a2b3c4dZZ",
             "screen-off-timeout 600",
             "set-time 2026-13-01 00:00:00",
             "set-time 2026-11-21 10:00",
             "lcd-picture 12345",
             "set-lcd-data",
             "set-lcd-data --hex 0",
             "set-lcd-data --hex 00 --text a",
             "set-rgb-table-new 1 2 3",
             "store-widevine-keybox --file /no/such/file",
             "send",
             "send 0x10000",
             "send 1 --text a --hex 00",
         })
        EXPECT_THROW(request_of(line), UsageError) << line;
    EXPECT_THROW(split_words("a 'b"), UsageError);
}

TEST(Request, WordsOfALine)
{
    using Words = std::vector<std::string>;
    EXPECT_EQ(split_words(" a  \"b c\"\t'd\"e' \"\" f\\ g "), (Words{"a", "b c", "d\"e", "", "f g"}));
    EXPECT_EQ(split_words(R"(shell-output "printf \"a\nb\"")"), (Words{"shell-output", R"(printf "a\nb")"}));
    // A shell line in brackets is a text like any other.
    EXPECT_EQ(to_text(request_of("shell \"[ -e /a ]\"").packet).substr(7, 9), "[ -e /a ]");
}

Exchange answered(uint16_t code, const std::string &data, size_t size = 263)
{
    Exchange exchange;
    exchange.outcome = Outcome::answer;
    exchange.packet = empty_request(code);
    put_data(exchange.packet, {data.begin(), data.end()});
    exchange.packet.resize(size);
    return exchange;
}

TEST(Answer, VerdictAndMeaning)
{
    using namespace std::string_literals;
    const struct {
        const char *line;
        std::string data;
        Verdict verdict;
        const char *shown;
    } cases[] = {
        {"get-prop a", "x", SUCCESS, "x"},
        {"get-prop a", "ERROR", FAILURE, "ERROR"},
        {"set-prop a b", "OK", SUCCESS, "OK"},
        {"set-prop a b", "OKAY", FAILURE, "OKAY"},
        {"process-state a", "NOT_EXSIT", SUCCESS, "NOT_EXSIT"},
        {"install-widevine a", "NOT_EXSIT", FAILURE, "NOT_EXSIT"},
        {"remove-file /a", "NOTEXIST", FAILURE, "NOTEXIST"},
        {"open-bt", "EXIST", SUCCESS, "EXIST"},
        {"screen-state", "", FAILURE, "(empty)"},
        {"shell-output a", "", SUCCESS, "(empty)"},
        {"shell-output a", "a\nb\x01", SUCCESS, "a\\nb\\x01"},
        {"cpu-feature-id", "0014A0E1\n", SUCCESS, "0014A0E1"},
        {"ram-size", "\x0C", SUCCESS, "12 GiB"},
        {"ram-size", "", FAILURE, "(empty)"},
        {"flash-size", "\x80", SUCCESS, "128 GiB"},
        {"flash-size", "\x01\x01", SUCCESS, "256 GiB"},
        {"ssd-size", "\x04\x04", SUCCESS, "1024 GiB"},
        {"ssd-size", "ERROR", FAILURE, "ERROR"},
        {"detect-phone", "P", SUCCESS, "P"},
        {"detect-phone", "rgb0:F\0acc:F\0"s, FAILURE, "missing: rgb0 acc"},
        {"get-bt-address", "ABCDEF123456", SUCCESS, "AB:CD:EF:12:34:56"},
        {"cplc", "cplc:0102mac:03", SUCCESS, "CPLC 0102, identifier 03"},
        {"display-status", "OK", SUCCESS, "OK"},
        {"display-status", "3", FAILURE, "3"},
        {"set-hdcp-key --cek /dev/null --pm /dev/null", "store_PM_fail", FAILURE, "store_PM_fail"},
        {"send 0x9999", "ERROR", FAILURE, "ERROR"},
        {"send 0x9999", "anything", SUCCESS, "anything"},
    };
    for (const auto &one : cases) {
        const Request request = request_of(one.line);
        const Exchange exchange = answered(request.code, one.data);
        const Result result = judge(request, exchange);
        EXPECT_EQ(result.verdict, one.verdict) << one.line << " " << one.data;
        EXPECT_EQ(answer_line(exchange, result), one.shown);
        EXPECT_EQ(to_json(request, exchange, result)["length"], one.data.size());
    }
}

TEST(Answer, LengthsThatPromiseTooMuch)
{
    const Request request = request_of("get-prop a");
    Exchange exchange = answered(0xE602, "abc", 9); // the length says 3, two bytes came
    EXPECT_EQ(to_text(judge(request, exchange).data), "ab");
    for (size_t size = 4; size < 9; size++) {
        exchange.packet.resize(size);
        EXPECT_LE(judge(request, exchange).data.size(), 1U);
    }
}

TEST(Answer, BytesThatAreNoTextAreStillJson)
{
    const Request request = request_of("wechat-key");
    const Exchange exchange = answered(request.code, "\xff\xfe", 775);
    EXPECT_NE(dump(to_json(request, exchange, judge(request, exchange))).find("\"fffe\""), std::string::npos);
}

struct Entry {
    uint16_t low, high;
    const char *handler;
};
// The table as the service registers it.
const Entry registered[] = {
    {0x001E, 0x001E, "diag_cmd_mac_addr_backup"},
    {0x0028, 0x0028, "diag_cmd_write_bt_mac_addr"},
    {0x0029, 0x0029, "diag_cmd_check_bt_mac_addr"},
    {0x0100, 0x0100, "diag_cmd_check_ap_version"},
    {0x0101, 0x0101, "diag_cmd_check_ap_version_ext"},
    {0x010B, 0x010B, "diag_cmd_check_ed_res"},
    {0x0116, 0x0116, "diag_cmd_get_cpu_sn"},
    {0x0117, 0x0117, "diag_cmd_set_cpu_running_freq"},
    {0x0128, 0x0128, "diag_cmd_switch_boot_mode"},
    {0x0129, 0x0129, "diag_cmd_query_boot_mode"},
    {0x012A, 0x012A, "diag_cmd_fctest_power_suspend"},
    {0x012C, 0x012C, "diag_cmd_restart_fastboot"},
    {0x012D, 0x012D, "diag_cmd_restart_recovery"},
    {0x0132, 0x0132, "diag_cmd_device_restart"},
    {0x0133, 0x0133, "diag_cmd_device_shutdown"},
    {0x013C, 0x013C, "diag_cmd_check_diag_com_port"},
    {0x013D, 0x013D, "diag_cmd_board_component_detect_v2"},
    {0x013E, 0x013E, "diag_cmd_phone_component_detect_v2"},
    {0x013F, 0x013F, "diag_cmd_check_adb_sn"},
    {0x0141, 0x0141, "diag_cmd_read_board_id"},
    {0x0142, 0x0142, "diag_cmd_get_cpu_id"},
    {0x0143, 0x0143, "diag_cmd_get_cpu_info"},
    {0x0A00, 0x0A00, "diag_cmd_check_ddr_size"},
    {0x0B00, 0x0B00, "diag_cmd_check_flash_size"},
    {0x0B01, 0x0B01, "diag_cmd_get_flash_fw_ver"},
    {0x0B0A, 0x0B0A, "diag_cmd_check_misc_content"},
    {0x0B15, 0x0B15, "diag_cmd_set_system_time"},
    {0x0B1E, 0x0B1E, "diag_cmd_check_extsd_insert"},
    {0x0140, 0x0140, "diag_cmd_stop_thermal_engine"},
    {0x1300, 0x1300, "diag_cmd_remove_file"},
    {0x1301, 0x1301, "diag_cmd_verify_turbo_write"},
    {0x1302, 0x1302, "diag_cmd_get_mmi_result"},
    {0x0C00, 0x0C00, "diag_cmd_set_battery_cap"},
    {0x0C01, 0x0C04, "diag_cmd_get_battery_info"},
    {0x0C1E, 0x0C1F, "diag_cmd_control_usb_charge"},
    {0x0C0A, 0x0C0A, "diag_cmd_set_charge_type"},
    {0x0C0B, 0x0C0B, "diag_cmd_get_charge_type"},
    {0x0C0C, 0x0C0C, "diag_cmd_get_voltage_minus"},
    {0x0F00, 0x0F00, "diag_cmd_simulate_power_key"},
    {0x0F01, 0x0F01, "diag_cmd_brighten_screen"},
    {0x0F02, 0x0F02, "diag_cmd_get_screen_state"},
    {0x0B14, 0x0B14, "diag_cmd_sys_screen_off_timeout"},
    {0x1400, 0x1400, "diag_cmd_get_qkey_prop"},
    {0x1500, 0x1500, "diag_cmd_judge_scratch_exsit"},
    {0x1501, 0x1501, "diag_cmd_check_fingerprint_data"},
    {0x1502, 0x1502, "diag_cmd_check_fingerprint_id"},
    {0x1E00, 0x1E00, "diag_cmd_close_bt"},
    {0x1E01, 0x1E01, "diag_cmd_open_bt"},
    {0x2000, 0x2000, "diag_cmd_close_wlan"},
    {0x2001, 0x2001, "diag_cmd_open_wlan"},
    {0x2003, 0x2003, "diag_cmd_open_wlan_service"},
    {0x2004, 0x2004, "diag_cmd_close_wlan_service"},
    {0x2100, 0x2100, "diag_cmd_check_ssd_size"},
    {0x2101, 0x2101, "diag_cmd_check_ssd_present"},
    {0x2102, 0x2102, "diag_cmd_get_ssd_fw_ver"},
    {0x2103, 0x2103, "diag_cmd_get_ssd_encrypt"},
    {0x2400, 0x2400, "diag_cmd_close_nfc"},
    {0x2401, 0x2401, "diag_cmd_open_nfc"},
    {0x2402, 0x2402, "diag_cmd_chk_nfc_cplc"},
    {0x2403, 0x2403, "diag_cmd_chk_nfc_deid"},
    {0x2600, 0x2600, "diag_cmd_stop_wireless_test"},
    {0x3600, 0x3600, "diag_cmd_control_camera_dsp_power"},
    {0x3601, 0x3601, "diag_cmd_query_camera_dsp_state"},
    {0x3602, 0x3602, "diag_cmd_get_camera_id"},
    {0x3800, 0x3800, "diag_cmd_set_rgb_data"},
    {0x3801, 0x3801, "diag_cmd_test_rgb_calibration"},
    {0x3802, 0x3802, "diag_cmd_set_rgb_table"},
    {0x3803, 0x3803, "diag_cmd_set_rgb_switch"},
    {0x3807, 0x3807, "diag_cmd_set_rgb_data_new"},
    {0x3808, 0x3808, "diag_cmd_test_rgb_calibration_new"},
    {0x3809, 0x3809, "diag_cmd_set_rgb_table_new"},
    {0x3201, 0x3201, "diag_cmd_set_lcd_data"},
    {0x3202, 0x3202, "diag_cmd_set_lcd_picture"},
    {0x3203, 0x3203, "diag_cmd_check_lcd_calibration"},
    {0x3204, 0x3204, "diag_cmd_quit_picture_apk"},
    {0x3205, 0x3205, "diag_cmd_dsp_power_up"},
    {0x3206, 0x3206, "diag_cmd_dsp_power_down"},
    {0x3207, 0x3207, "diag_cmd_dsp_effect_down"},
    {0x3208, 0x3208, "diag_cmd_query_dsp_effect"},
    {0x3209, 0x3209, "diag_cmd_set_lcd_maxbrightness"},
    {0x320A, 0x320A, "diag_cmd_set_dsp_effect"},
    {0x320B, 0x320B, "diag_cmd_get_lcd_id"},
    {0x320C, 0x320C, "diag_cmd_get_display_status"},
    {0x320D, 0x320D, "diag_cmd_get_color_mode"},
    {0x320E, 0x320E, "diag_cmd_set_lcd_frequency"},
    {0x320F, 0x320F, "diag_cmd_get_lcd_frequency"},
    {0x5000, 0x5000, "diag_cmd_check_sim_insert"},
    {0xC800, 0xC800, "diag_cmd_check_secure_boot"},
    {0xC801, 0xC801, "diag_cmd_set_rpmb_key_status"},
    {0xC802, 0xC802, "diag_cmd_check_lock_state"},
    {0xCA00, 0xCA00, "diag_cmd_factory_wipe_data"},
    {0xD200, 0xD200, "diag_cmd_set_kavophonebind"},
    {0xD201, 0xD201, "diag_cmd_query_kavophonebind"},
    {0xD20A, 0xD20A, "diag_cmd_set_query_widevine"},
    {0xD20B, 0xD20B, "diag_cmd_set_widevine_key"},
    {0xD214, 0xD214, "diag_cmd_set_hdcp_key"},
    {0xD215, 0xD215, "diag_cmd_query_hdcp_key"},
    {0xD21E, 0xD21E, "diag_cmd_get_wechat_key"},
    {0xD228, 0xD228, "diag_cmd_get_alipay_key"},
    {0xD232, 0xD232, "diag_cmd_get_cplc_key"},
    {0xD23C, 0xD23C, "diag_cmd_set_keymaster_provison"},
    {0xE600, 0xE600, "diag_cmd_read_node"},
    {0xE601, 0xE601, "diag_cmd_write_node"},
    {0xE602, 0xE602, "diag_cmd_get_prop"},
    {0xE603, 0xE603, "diag_cmd_set_prop"},
    {0xE604, 0xE604, "diag_cmd_excute_cmd"},
    {0xE605, 0xE605, "diag_cmd_excute_cmd_check"},
    {0xE606, 0xE606, "diag_cmd_get_cmd_result"},
    {0xE607, 0xE607, "diag_cmd_get_process_state"},
};

TEST(Catalogue, IsTheRegisteredTable)
{
    ASSERT_EQ(catalogue().size(), 109U);
    ASSERT_EQ(std::size(registered), 109U);
    for (size_t i = 0; i < catalogue().size(); i++) {
        EXPECT_EQ(catalogue()[i].low, registered[i].low) << i;
        EXPECT_EQ(catalogue()[i].high, registered[i].high) << i;
        EXPECT_STREQ(catalogue()[i].handler, registered[i].handler) << i;
    }
}

TEST(Catalogue, IsCompleteAndUnambiguous)
{
    std::set<std::string> names{"send", "list", "run", "reference", "wait", "sleep", "skip"};
    for (const Command &command : catalogue()) {
        EXPECT_EQ(command.names.size(), command.high - command.low + 1U) << command.handler;
        EXPECT_FALSE(std::string(command.summary).empty()) << command.handler;
        EXPECT_FALSE(std::string(command.aftermath).empty()) << command.handler;
        EXPECT_TRUE(command.response_size == 263 || command.response_size == 775 ||
                    command.response_size == 5);
        for (size_t i = 0; i < command.names.size(); i++) {
            EXPECT_EQ(command.names[i].code, command.low + i);
            EXPECT_TRUE(names.insert(command.names[i].name).second) << command.names[i].name;
        }
        // An answer behind one that takes anything would never be seen.
        for (const Answer &answer : command.answers)
            EXPECT_TRUE(answer.fit != Answer::Fit::anything || &answer == &command.answers.back())
                << command.handler;
        EXPECT_TRUE(std::any_of(command.answers.begin(), command.answers.end(), [](const Answer &answer) {
            return answer.success;
        })) << command.handler;
        // A request with arguments says where they go.
        EXPECT_TRUE(command.parameters.empty() || !command.fields.empty()) << command.handler;
    }
}

} // namespace
