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
    } cases[] = {
        {"ftmdaemon", "ftmdaemon -n", 0x1E01, 0x1E00},
        {"ptt_socket_app", "ptt_socket_app -v -d -f", 0x2003, 0x2004},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove("/tmp/runs");
        EXPECT_EQ(ask(c.open).text, "ERROR") << "there is no such tool";
        EXPECT_EQ(ask(c.close).text, "OK");

        tool(c.name, "mkfifo /tmp/state/pipe; read word <>/tmp/state/pipe; rm /tmp/state/pipe");
        EXPECT_EQ(ask(c.open).text, "OK");
        EXPECT_EQ(ask(c.open).text, "EXIST");
        EXPECT_EQ(runs(), strings({c.run})) << "nothing was started the second time";
        EXPECT_EQ(ask(c.close).text, "OK");

        tool(c.name, "trap '' TERM; while [ ! -e /tmp/state/end ]; do sleep 0.05; done");
        EXPECT_EQ(ask(c.open).text, "OK");
        EXPECT_EQ(ask(c.close).text, "ERROR");
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
        std::string answer;
        strings runs;
    } cases[] = {
        {"", 0, false, "OK", {LIST, LOAD, LIST}},
        {"", 1, false, "OK", {LIST, LOAD, WIFI_ON}},
        {"", 2, false, "ERROR", {LIST, LOAD}},
        {"", 0, true, "ERROR", {LIST, LOAD, LIST}},
        {"", 1, true, "ERROR", {LIST, LOAD, WIFI_ON}},
        {"5\n", 0, false, "OK", {LIST}},
        {"5\n", 1, false, "OK", {LIST, WIFI_ON}},
        {"5\n", 255, false, "ERROR", {LIST}},
        {"0\n", 0, false, "ERROR", {LIST}},
        {std::string(300, '4'), 0, false, "ERROR", {LIST}},
        {"(empty)", 0, false, "ERROR", {LIST}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.loaded + " mode " + std::to_string(c.mode));
        fs::remove_all("/sys/module");
        fs::remove_all("/tmp/state");
        fs::remove("/tmp/runs");
        if (!c.loaded.empty())
            load_by_hand(c.loaded == "(empty)" ? "" : c.loaded);
        if (c.refuses)
            node("/tmp/state/refuses", "");
        EXPECT_EQ(ask(0x2001, c.mode).text, c.answer);
        EXPECT_EQ(runs(), c.runs);
        EXPECT_EQ(exists("/sys/module/wlan"), !c.refuses) << "what was loaded stays";
    }
}

TEST_F(Connectivity, CloseWlanLoadsItAgain)
{
    const struct {
        std::string state, answer;
        strings runs; // sorted: nobody waits for Wi-Fi
    } cases[] = {
        {"", "OK", {WIFI_OFF, LOAD, LIST, LIST, UNLOAD}},
        {"/tmp/state/stays", "ERROR", {WIFI_OFF, LIST, UNLOAD}},
        {"/tmp/state/refuses", "ERROR", {WIFI_OFF, LOAD, LIST, LIST, UNLOAD}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.state);
        fs::remove_all("/tmp/state");
        fs::remove("/tmp/runs");
        load_by_hand("0\n");
        if (!c.state.empty())
            node(c.state, "");
        EXPECT_EQ(ask(0x2000).text, c.answer);
        descriptors_left_open++; // the stream of svc stays open, and its process is never waited for
        EXPECT_GT(waitpid(-1, nullptr, 0), 0);
        strings sorted = runs();
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(sorted, c.runs);
    }
    EXPECT_EQ(content(MODE), "(missing)");
}

TEST_F(Connectivity, NfcIsSwitchedUnread)
{
    EXPECT_EQ(ask(0x2401).text, "OK");
    EXPECT_EQ(ask(0x2400).text, "OK");
    EXPECT_EQ(runs(), strings({"/system/bin/svc nfc enable", "/system/bin/svc nfc disable"}));
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
}

TEST_F(Connectivity, SimStateIsPassedOn)
{
    expect_by_property(
        0x5000, "gsm.sim.state",
        {{"", "ERROR"}, {"LOADED,ABSENT", "LOADED,ABSENT"}, {std::string(256, 'S'), std::string(255, 'S')}});
}
