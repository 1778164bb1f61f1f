// The battery commands against nodes and tools of a test phone.
#include <filesystem>

#include "tests/fake_platform.h"

namespace fs = std::filesystem;

static const std::string BATTERY = "/sys/class/power_supply/battery/";
static const std::string CELLS = "/sys/class/power_supply/cv-batt-controller/";
static const std::string COOLING = "/sys/devices/virtual/thermal/cooling_device13/cur_state";

class Battery : public Phone
{
  protected:
    void SetUp() override
    {
        fs::remove_all("/sys/class");
        fs::remove_all("/sys/devices");
        Phone::SetUp();
    }
};

TEST_F(Battery, InfoIsTheNodesTextWithoutItsLineFeed)
{
    expect_by_node(0x0C01, BATTERY + "capacity", {{"57\n", "57"}, {"", ""}});
    expect_by_node(0x0C02, BATTERY + "voltage_now",
                   {{"4012000", "4012000"}, {std::string(257, '4'), std::string(256, '4')}});
    expect_by_node(0x0C03, BATTERY + "current_now", {{"-251000\n", "-251000"}});
    expect_by_node(0x0C04, "/sys/class/power_supply/usb/type", {{"USB_PD\n", "USB_PD"}});
    EXPECT_EQ(ask(0x0C01).data, std::string(256, '\0'));
    EXPECT_EQ(ask(0x0C04).data, "USB_PD\n" + std::string(249, '\0')) << "the line feed stays behind";
    expect_by_node(0x0C0B, CELLS + "dual_batt_stat",
                   {{std::string(300, 'x'), std::string(256, 'x')}, {"2\n", "2"}});
    EXPECT_EQ(ask(0x0C0B).data, "2" + std::string(255, '\0')) << "and here it does not";
}

TEST_F(Battery, CapacityIsReplacedByTheCountedBytes)
{
    node(BATTERY + "capacity", "100\n");
    EXPECT_EQ(ask(0x0C00, 0, std::string("7\0", 2), 1).text, "OK");
    EXPECT_EQ(content(BATTERY + "capacity"), "7");
    EXPECT_EQ(ask(0x0C00, 0, "", 32767).text, "OK");
    EXPECT_EQ(ask(0x0C00, 0, "", 32768).text, "ERROR") << "the count no longer fits a signed 16-bit number";
    link_node(BATTERY + "capacity", "/tmp/elsewhere");
    EXPECT_EQ(ask_text(0x0C00, "7").text, "ERROR") << "a link is not followed";
}

TEST_F(Battery, ChargingStopsAndStarts)
{
    const std::string suspended = BATTERY + "input_suspend";
    EXPECT_EQ(ask(0x0C1F).text, "ERROR");
    node(suspended, "0\n");
    EXPECT_EQ(ask(0x0C1E).text, "OK");
    EXPECT_EQ(content(suspended), "1\n");
    EXPECT_EQ(ask(0x0C1F).text, "OK");
    EXPECT_EQ(content(suspended), "0\n");
}

TEST_F(Battery, CellSelectionIsReadBack)
{
    const std::string selected = CELLS + "dual_batt_sel";
    EXPECT_EQ(ask(0x0C0A, 1).text, "ERROR");
    node(selected, "0");
    for (uint8_t cell : {1, 0}) {
        EXPECT_EQ(ask(0x0C0A, cell).text, "OK");
        EXPECT_EQ(content(selected), std::to_string(cell));
    }
    EXPECT_EQ(ask(0x0C0A, 2).text, "ERROR");
    EXPECT_EQ(content(selected), "0") << "nothing was written";
    link_node(selected, "/dev/null");
    descriptors_left_open = 1; // a read-back that disagrees leaves its node open
    EXPECT_EQ(ask(0x0C0A, 1).text, "ERROR");
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
    };
    node(CELLS + "cv_bat1_volt", "1\n");
    EXPECT_EQ(ask(0x0C0C).text, "ERROR");
    for (const auto &c : cases) {
        node(CELLS + "cv_bat1_volt", c.first);
        node(CELLS + "cv_bat2_volt", c.second);
        EXPECT_EQ(ask(0x0C0C).text, c.answer);
    }
    node(CELLS + "cv_bat1_volt", std::string(300, '1')); // a full buffer; the number is the C library's
    EXPECT_NE(ask(0x0C0C).text, "ERROR");
    fs::remove(CELLS + "cv_bat1_volt");
    EXPECT_EQ(ask(0x0C0C).text, "ERROR");
}

TEST_F(Battery, ThermalEngineStops)
{
    const std::string engine = "echo 'root 12 1 S thermal-engine'";
    tool("setprop", "");
    tool("/vendor/bin/thermal_factory", "exit 3");
    expect_by_tool(0x0140, "ps", {{":", "ERROR"}}); // no node
    node(COOLING, "7\n");
    expect_by_tool(0x0140, "ps",
                   {{engine, "ERROR"},
                    {engine + "; echo 'root 13 1 S thermal-engine-hal'", "ERROR"},
                    {engine + "; echo 'root 14 1 S sh'", "ERROR"}});
    EXPECT_EQ(content(COOLING), "7\n");
    EXPECT_EQ(runs().back(), "ps -A");
    expect_by_tool(0x0140, "ps", {{":", "OK"}});
    EXPECT_EQ(content(COOLING), "0\n");
    const strings lines = runs();
    EXPECT_EQ(strings(lines.end() - 3, lines.end()),
              (strings{"setprop ctl.stop thermal-engine", "ps -A", "/vendor/bin/thermal_factory"}));
    // Only the last line of the list counts.
    expect_by_tool(0x0140, "grep", {{"echo thermal-engine; echo something else", "OK"}});
    link_node(COOLING, "/dev/null");
    EXPECT_EQ(ask(0x0140).text, "ERROR") << "not kept";
}
