// The battery commands against nodes and tools of a test phone.
#include <filesystem>

#include "tests/fake_platform.h"

namespace fs = std::filesystem;

static const std::string BATTERY = "/sys/class/power_supply/battery/";
static const std::string CELLS = "/sys/class/power_supply/cv-batt-controller/";
static const std::string COOLING = "/sys/devices/virtual/thermal/cooling_device13/cur_state";
static const std::string NOTHING = "(no node)";

class Battery : public Phone
{
  protected:
    void SetUp() override
    {
        fs::remove_all("/sys/class");
        fs::remove_all("/sys/devices");
        for (const char *folder : {"battery", "usb", "cv-batt-controller"})
            fs::create_directories(std::string("/sys/class/power_supply/") + folder);
        Phone::SetUp();
    }
};

TEST_F(Battery, InfoIsTheNodesTextWithoutItsLineFeed)
{
    const struct {
        uint16_t code;
        std::string path, content;
        size_t length;
    } cases[] = {
        {0x0C01, BATTERY + "capacity", "57\n", 2},
        {0x0C02, BATTERY + "voltage_now", "4012000", 7},
        {0x0C03, BATTERY + "current_now", "-251000\n", 7},
        {0x0C04, "/sys/class/power_supply/usb/type", "USB_PD\n", 6},
        {0x0C01, BATTERY + "capacity", "", 0},
        {0x0C02, BATTERY + "voltage_now", std::string(256, '4'), 256},
        {0x0C02, BATTERY + "voltage_now", std::string(400, '4'), 256},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path + " " + c.content);
        node(c.path, c.content);
        response r = ask(c.code);
        EXPECT_EQ(the_phone().allocated_codes.back(), c.code);
        EXPECT_EQ(r.bytes.size(), 263u);
        EXPECT_EQ(r.length, c.length);
        EXPECT_EQ(r.data, (c.content + std::string(256, '\0')).substr(0, 256))
            << "the line feed stays behind";
    }
    EXPECT_TRUE(logged("[diag_cmd_get_battery_info]:Get sys/class/power_supply/usb/type content:USB_PD\n\n"));
}

TEST_F(Battery, InfoWithoutItsNodeIsAnError)
{
    EXPECT_EQ(ask(0x0C03).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_get_battery_info]:Get " + BATTERY + "current_now result:-1, failed\n"));
}

TEST_F(Battery, CapacityIsReplacedByTheCountedBytes)
{
    node(BATTERY + "capacity", "100\n");
    EXPECT_EQ(ask(0x0C00, 0, std::string("7\0", 2), 1).text, "OK");
    EXPECT_EQ(content(BATTERY + "capacity"), "7");
    EXPECT_TRUE(logged("[diag_cmd_set_battery_cap]:Set capacity value:7\n"));
    EXPECT_EQ(ask(0x0C00, 0, "", 32767).text, "OK");
    EXPECT_EQ(ask(0x0C00, 0, "", 32768).text, "ERROR") << "the count no longer fits a signed 16-bit number";

    fs::remove(BATTERY + "capacity");
    fs::create_symlink("/tmp/elsewhere", BATTERY + "capacity");
    EXPECT_EQ(ask_text(0x0C00, "7").text, "ERROR") << "a link is not followed";
    EXPECT_EQ(times_logged("[diag_cmd_set_battery_cap]:Set capacity value failed\n"), 2);
}

TEST_F(Battery, ChargingStopsAndStarts)
{
    node(BATTERY + "input_suspend", "0\n");
    EXPECT_EQ(ask(0x0C1E).text, "OK");
    EXPECT_EQ(the_phone().allocated_codes.back(), 0x0C1Eu);
    EXPECT_EQ(content(BATTERY + "input_suspend"), "1\n");
    EXPECT_TRUE(logged("[diag_cmd_control_usb_charge]:Control usb stop charge result:0.\n"));
    EXPECT_EQ(ask(0x0C1F).text, "OK");
    EXPECT_EQ(content(BATTERY + "input_suspend"), "0\n");

    fs::remove_all(BATTERY);
    EXPECT_EQ(ask(0x0C1F).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_control_usb_charge]:Control usb start charge result:-1.\n"));
    EXPECT_TRUE(logged("[diag_cmd_control_usb_charge]:Control usb charge failed.\n"));
}

TEST_F(Battery, CellSelectionIsReadBack)
{
    const std::string selected = CELLS + "dual_batt_sel";
    node(selected, "0");
    EXPECT_EQ(ask(0x0C0A, 1).text, "OK");
    EXPECT_EQ(content(selected), "1");
    EXPECT_EQ(ask(0x0C0A, 0).text, "OK");
    EXPECT_EQ(content(selected), "0");
    EXPECT_TRUE(logged("[diag_cmd_set_charge_type]:Set charge type: 0\n"));
    EXPECT_EQ(ask(0x0C0A, 2).text, "ERROR");
    EXPECT_EQ(content(selected), "0") << "nothing was written";

    fs::remove(selected);
    fs::create_symlink("/dev/null", selected); // takes the value and does not keep it
    descriptors_left_open = 1;                 // a read-back that disagrees leaves its node open
    EXPECT_EQ(ask(0x0C0A, 1).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_set_charge_type]:Read Charge Type Fail!\n"));
    fs::remove_all(CELLS);
    EXPECT_EQ(ask(0x0C0A, 1).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_set_charge_type]:Write Charge Type Fail!\n"));
}

TEST_F(Battery, CellStateLeavesTheLineFeedOut)
{
    EXPECT_EQ(ask(0x0C0B).text, "ERROR");
    node(CELLS + "dual_batt_stat", "2\n");
    response r = ask(0x0C0B);
    EXPECT_EQ(r.text, "2");
    EXPECT_EQ(r.data, "2" + std::string(255, '\0'));
    node(CELLS + "dual_batt_stat", std::string(300, 'x'));
    EXPECT_EQ(ask(0x0C0B).length, 256);
}

TEST_F(Battery, VoltageDifference)
{
    const struct {
        std::string first, second, answer;
    } cases[] = {
        {"4012\n", "3998\n", "14"},
        {"3998\n", "4012\n", "14"},
        {"4012", "3998\n", "3597"}, // 401: the last character goes, whatever it is
        {"", "\n", "0"},
        {"-5\n", "x\n", "5"},
        {"-2147483648\n", "0\n", "-2147483648"}, // its own absolute value in 32 bits
        {NOTHING, "1\n", "ERROR"},
        {"1\n", NOTHING, "ERROR"},
        {"1\n", "1\n", "0"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.first + " " + c.second);
        fs::remove_all(CELLS);
        if (c.first != NOTHING)
            node(CELLS + "cv_bat1_volt", c.first);
        if (c.second != NOTHING)
            node(CELLS + "cv_bat2_volt", c.second);
        EXPECT_EQ(ask(0x0C0C).text, c.answer);
    }
    node(CELLS + "cv_bat1_volt", std::string(300, '1')); // a full buffer; the number is the C library's
    EXPECT_NE(ask(0x0C0C).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_get_voltage_minus]:battery1 value: 4012, battery2 value2:3998.\n"));
    EXPECT_TRUE(logged("[diag_cmd_get_voltage_minus]:Get battery diffrent values: 14.\n"));
    EXPECT_TRUE(logged("[diag_cmd_get_voltage_minus]:Read battery2 voltage Fail!\n"));
}

TEST_F(Battery, ThermalEngineStops)
{
    const std::string engine = "echo 'root 12 1 S thermal-engine'";
    const struct {
        std::string processes, cooling, answer, log;
        bool factory_tool;
    } cases[] = {
        {":", "7\n", "OK", "stop thermal-engine sucessed.\n", true},
        {engine, "7\n", "ERROR", "stop thermal-engine failed!\n", false},
        {engine + "; echo 'root 13 1 S thermal-engine-hal'", "7\n", "ERROR", "stop thermal-engine failed!\n",
         false},
        {engine + "; echo 'root 14 1 S sh'", "7\n", "ERROR", "stop thermal-engine failed!\n", false},
        {":", NOTHING, "ERROR", "write 0 to " + COOLING + " fail.\n", false},
        {":", "/dev/null", "ERROR", "thermal state is non-limited!\n", false},
    };
    tool("setprop", "");
    tool("/vendor/bin/thermal_factory", "exit 3");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.processes + " " + c.cooling);
        tool("ps", c.processes);
        fs::remove("/tmp/runs");
        fs::remove_all("/sys/devices");
        if (c.cooling[0] == '/') {
            fs::create_directories(fs::path(COOLING).parent_path());
            fs::create_symlink(c.cooling, COOLING);
        } else if (c.cooling != NOTHING) {
            node(COOLING, c.cooling);
        }
        EXPECT_EQ(ask(0x0140).text, c.answer);
        EXPECT_TRUE(logged("[diag_cmd_stop_thermal_engine]:" + c.log));
        std::vector<std::string> expected = {"setprop ctl.stop thermal-engine", "ps -A"};
        if (c.factory_tool)
            expected.push_back("/vendor/bin/thermal_factory");
        EXPECT_EQ(runs(), expected);
    }
}

TEST_F(Battery, OnlyTheLastLineOfTheProcessListCounts)
{
    node(COOLING, "3");
    tool("setprop", "");
    tool("/vendor/bin/thermal_factory", "");
    tool("grep", "echo thermal-engine; echo something else");
    EXPECT_EQ(ask(0x0140).text, "OK");
    EXPECT_EQ(content(COOLING), "0");
}

TEST_F(Battery, NoBufferNoReply)
{
    the_phone().allocation_fails = true;
    node(BATTERY + "input_suspend", "0");
    EXPECT_TRUE(ask(0x0C1E).null);
    EXPECT_EQ(content(BATTERY + "input_suspend"), "0");
    EXPECT_TRUE(logged("[diag_cmd_control_usb_charge]:diagpkt_subsys_alloc failed\n"));
}
