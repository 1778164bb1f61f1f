// The radio commands against processes and tools of a test phone.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "hwdec/detect.h"
#include "tests/fake_platform.h"

namespace fs = std::filesystem;

static const std::string MODE = "/sys/module/wlan/parameters/con_mode_ftm";
static const std::string LOAD = "insmod vendor/lib/modules/qca_cld3_wlan.ko con_mode_ftm=5";
static const std::string LIST = "lsmod";
static const std::string WIFI_ON = "/system/bin/svc wifi enable";
static const std::string WIFI_OFF = "/system/bin/svc wifi disable";
static const std::string UNLOAD = "rmmod wlan";

class Connectivity : public Phone
{
  protected:
    void SetUp() override
    {
        fs::remove_all("/sys/module");
        fs::remove_all("/tmp/state");
        fs::create_directories("/tmp/state");
        Phone::SetUp();
        tool("insmod", "[ -e /tmp/state/refuses ] || mkdir -p /sys/module/wlan/parameters\n"
                       "[ -e /tmp/state/refuses ] || echo 5 >" +
                           MODE);
        tool("rmmod", "[ -e /tmp/state/stays ] || rm -r /sys/module/wlan");
        tool("lsmod", "echo 'cfg80211 1060864 1 wlan'; [ ! -e /sys/module/wlan ] || echo 'wlan 7892992 0'");
        tool("/system/bin/svc", "");
    }

    static void load_by_hand(const std::string &mode) { node(MODE, mode); }
};

// The daemons are real processes here, seen through the phone's own ps.
TEST_F(Connectivity, DaemonsStartAndStop)
{
    const struct {
        std::string name, run;
        uint16_t open, close;
        std::vector<std::string>
            log; // once each in what follows: failed, started, already, killed, gone, stays
    } cases[] = {
        {"ftmdaemon",
         "ftmdaemon -n",
         0x1E01,
         0x1E00,
         {"[diag_cmd_open_bt]:FTMDAEMON open failed.\n", "[diag_cmd_open_bt]:BT FTMDAEMON open successful.\n",
          "[diag_cmd_open_bt]:ftmdaemon already open!\n", "[diag_cmd_close_bt]:Kill FTMDAEMON count:1\n",
          "[diag_cmd_close_bt]:FTMDAEMON be killed.\n", "[diag_cmd_close_bt]:FTMDAEMON not be killed.\n"}},
        {"ptt_socket_app",
         "ptt_socket_app -v -d -f",
         0x2003,
         0x2004,
         {"[diag_cmd_open_wlan_service]:Open wlan service failed.\n",
          "[diag_cmd_open_wlan_service]:Open wlan service successfully.\n",
          "[diag_cmd_open_wlan_service]:ptt_socket_app already open\n",
          "[diag_cmd_close_wlan_service]:Kill WLAN_SERVICE succ! ret:1\n",
          "[diag_cmd_close_wlan_service]:WLAN_SERVICE be killed.\n",
          "[diag_cmd_close_wlan_service]:WLAN_SERVICE not be killed,count:1\n"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove("/tmp/runs");
        EXPECT_EQ(ask(c.open).text, "ERROR") << "there is no such tool";
        EXPECT_EQ(ask(c.close).text, "OK");

        tool(c.name, "mkfifo /tmp/state/pipe; read word <>/tmp/state/pipe; rm /tmp/state/pipe");
        EXPECT_EQ(ask(c.open).text, "OK");
        EXPECT_EQ(ask(c.open).text, "EXIST");
        EXPECT_EQ(runs(), std::vector<std::string>({c.run})) << "nothing was started the second time";
        EXPECT_EQ(ask(c.close).text, "OK");
        for (const std::string &line : std::vector(c.log.begin(), c.log.end() - 1))
            EXPECT_EQ(times_logged(line), 1) << line;

        tool(c.name, "trap '' TERM; while [ ! -e /tmp/state/end ]; do sleep 0.05; done");
        EXPECT_EQ(ask(c.open).text, "OK");
        EXPECT_EQ(ask(c.close).text, "ERROR");
        EXPECT_TRUE(logged(c.log.back()));
        node("/tmp/state/end", "");
        for (int i = 0; i < 100 && ask(c.close).text != "OK"; i++)
            usleep(50'000);
        fs::remove("/tmp/state/end");
        fs::remove("/tmp/state/pipe");
    }
}

TEST_F(Connectivity, OpenWlan)
{
    const struct {
        std::string loaded; // the mode it was loaded with, or "" for not at all
        uint8_t mode;
        bool refuses;
        std::string answer, log;
        std::vector<std::string> runs;
    } cases[] = {
        {"", 0, false, "OK", "", {LIST, LOAD, LIST}},
        {"", 1, false, "OK", "", {LIST, LOAD, WIFI_ON}},
        {"", 2, false, "ERROR", "command is not exsit!!\n", {LIST, LOAD}},
        {"", 0, true, "ERROR", "insmod wlan failed\n", {LIST, LOAD, LIST}},
        {"", 1, true, "ERROR", " open(\"" + MODE + "\") failed\n", {LIST, LOAD, WIFI_ON}},
        {"5\n", 0, false, "OK", "the wlan is already insmod in closewlan operation!!\n", {LIST}},
        {"5\n", 1, false, "OK", "", {LIST, WIFI_ON}},
        {"5\n", 255, false, "ERROR", "command is not exsit!!\n", {LIST}},
        {"0\n", 0, false, "ERROR", "read con_mode: 0\n.\n", {LIST}},
        {std::string(300, '4'), 0, false, "ERROR", "read con_mode: " + std::string(256, '4') + ".\n", {LIST}},
        {"(empty)", 0, false, "ERROR", "read " + MODE + " length: \n", {LIST}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.loaded + " mode " + std::to_string(c.mode) + (c.refuses ? " refuses" : ""));
        fs::remove_all("/sys/module");
        fs::remove_all("/tmp/state");
        fs::remove("/tmp/runs");
        the_phone().log.clear();
        if (!c.loaded.empty())
            load_by_hand(c.loaded == "(empty)" ? "" : c.loaded);
        if (c.refuses)
            node("/tmp/state/refuses", "");
        EXPECT_EQ(ask(0x2001, c.mode).text, c.answer);
        EXPECT_EQ(runs(), c.runs);
        EXPECT_TRUE(c.log.empty() || logged("[insmod_wlan]:" + c.log));
        EXPECT_TRUE(logged(c.answer == "OK" ? "[diag_cmd_open_wlan]:wlan driver insmod successfully.\n"
                                            : "[diag_cmd_open_wlan]:insmod wlan&wlan0 fail.\n"));
        EXPECT_EQ(exists("/sys/module/wlan"), !c.refuses) << "what was loaded stays";
    }
}

TEST_F(Connectivity, CloseWlanLoadsItAgain)
{
    const struct {
        std::string state, answer, log;
        std::vector<std::string> runs; // sorted: nobody waits for Wi-Fi
    } cases[] = {
        {"", "OK", "wlan enter ftm=5 mode sucess\n", {WIFI_OFF, LOAD, LIST, LIST, UNLOAD}},
        {"/tmp/state/stays", "ERROR", "rmmod wlan failed\n", {WIFI_OFF, LIST, UNLOAD}},
        {"/tmp/state/refuses", "ERROR", "insmod failed\n", {WIFI_OFF, LOAD, LIST, LIST, UNLOAD}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.state);
        fs::remove_all("/tmp/state");
        fs::remove("/tmp/runs");
        load_by_hand("0\n");
        if (!c.state.empty())
            node(c.state, "");
        EXPECT_EQ(ask(0x2000).text, c.answer);
        EXPECT_TRUE(logged("[rmmod]:" + c.log));
        descriptors_left_open++; // the stream of svc stays open, and its process is never waited for
        EXPECT_GT(waitpid(-1, nullptr, 0), 0);
        std::vector<std::string> sorted = runs();
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(sorted, c.runs);
    }
    EXPECT_EQ(content(MODE), "(missing)");
    EXPECT_EQ(times_logged("[diag_cmd_close_wlan]:rmmod wlan fail.\n"), 2);
}

TEST_F(Connectivity, NfcIsSwitchedUnread)
{
    EXPECT_EQ(ask(0x2401).text, "OK");
    EXPECT_EQ(ask(0x2400).text, "OK");
    EXPECT_EQ(runs(),
              std::vector<std::string>({"/system/bin/svc nfc enable", "/system/bin/svc nfc disable"}));
    EXPECT_TRUE(logged("[diag_cmd_open_nfc]:Run shell script successfully, nfc open\n"));
    EXPECT_TRUE(logged("[diag_cmd_close_nfc]:Run shell script successfully,nfc close\n"));
    tool("/system/bin/svc", "exit 1");
    EXPECT_EQ(ask(0x2401).text, "OK");
}

TEST_F(Connectivity, NfcChecksAreChosenByTheSelector)
{
    tool("dumpsys", "echo mState=off; echo mCplc:0x42");
    tool("pnscr", "echo 'CPLC: 42'; echo 'Die ID: 17'");
    EXPECT_EQ(ask(0x2402, 2).text, "ERROR");
    EXPECT_EQ(ask(0x2402, 1).text, "ERROR") << "not initialized";
    EXPECT_EQ(ask(0x2403).text, "ERROR") << "no device node";
    EXPECT_TRUE(runs().empty());
    the_phone().properties["nfc.initialized"] = "true";
    node("/dev/nq-nci", "");
    EXPECT_EQ(ask(0x2402, 1).text, "OK");
    EXPECT_EQ(runs().back(), "dumpsys secure_element");
    EXPECT_EQ(ask(0x2403).text, "OK");
    EXPECT_EQ(runs().back(), "pnscr -p ndi");
    hw_dec_done_flag = 0; // a passed check is not run again
    EXPECT_EQ(ask(0x2402, 0).text, "OK");
    EXPECT_EQ(runs().back(), "pnscr -p ese_cplc");
    EXPECT_EQ(times_logged("[diag_cmd_chk_nfc_cplc]:Nfc cplc check success\n"), 2);
    EXPECT_EQ(times_logged("[diag_cmd_chk_nfc_deid]:Nfc deid check failed\n"), 1);
    fs::remove("/dev/nq-nci");
    hw_dec_done_flag = 0;
}

TEST_F(Connectivity, WirelessTestStopsAtItsWord)
{
    const struct {
        std::string output, answer;
    } cases[] = {
        {"echo one; echo two; echo 'logging: stopping now'; echo four", "OK"},
        {"printf '%0500dstopping' 1", "OK"},
        {":", "ERROR"},
        {"echo stopped", "ERROR"},
    };
    for (const auto &c : cases) {
        tool("diag_socket_log", c.output);
        EXPECT_EQ(ask(0x2600).text, c.answer) << c.output;
        descriptors_left_open++; // the tool is not waited for
        EXPECT_GT(waitpid(-1, nullptr, 0), 0);
    }
    EXPECT_EQ(runs()[0], "diag_socket_log -k");
    EXPECT_TRUE(logged("[diag_cmd_stop_wireless_test]:wireless test return: logging: stopping now\n\n"));
    EXPECT_FALSE(logged("[diag_cmd_stop_wireless_test]:wireless test return: four\n\n"));
}

TEST_F(Connectivity, SimStateIsPassedOn)
{
    EXPECT_EQ(ask(0x5000).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_check_sim_insert]:property_get error! len=0, simstate_prop=\n"));
    the_phone().properties["gsm.sim.state"] = "LOADED,ABSENT";
    EXPECT_EQ(ask(0x5000).text, "LOADED,ABSENT");
    EXPECT_TRUE(logged("[diag_cmd_check_sim_insert]:sim insert status:LOADED,ABSENT\n"));
    the_phone().properties["gsm.sim.state"] = std::string(256, 'S');
    EXPECT_EQ(ask(0x5000).length, 255);
    EXPECT_TRUE(logged("[diag_cmd_check_sim_insert]:property len abnormal len=256\n"));
}

TEST_F(Connectivity, NoBufferNoReply)
{
    the_phone().allocation_fails = true;
    for (uint16_t code : {0x1E00, 0x1E01, 0x2000, 0x2001, 0x2003, 0x2004, 0x2400, 0x2401, 0x2600, 0x5000})
        EXPECT_TRUE(ask(code).null);
    EXPECT_TRUE(runs().empty());
    EXPECT_TRUE(logged("[diag_cmd_open_wlan]:diagpkt_subsys_alloc failed.\n"));
    EXPECT_TRUE(logged("[diag_cmd_stop_wireless_test]:Diag: diagpkt_subsys_alloc failed!\n"));
}
