// Boot modes, wipe, restarts, shutdown, suspend.
#include <unistd.h>

#include "tests/fake_platform.h"

static const std::string MISC = "/dev/block/bootdevice/by-name/misc";
static const std::string OTHER_MISC = "/dev/block/platform/soc/1d84000.ufshc/by-name/misc";
static const std::string WIPE = "recovery\n--wipe_data\n--reason=MasterClearConfirm\n--locale=en_US\n";

static std::string padded(std::string text, size_t size)
{
    text.resize(size);
    return text;
}

class BootPower : public Phone
{
  protected:
    void SetUp() override
    {
        unlink(MISC.c_str());
        unlink(OTHER_MISC.c_str());
        Phone::SetUp();
    }
};

TEST_F(BootPower, BootMessageOfEachMode)
{
    struct {
        uint8_t mode;
        std::string command;
        std::string recovery;
    } cases[] = {
        {0, "", ""},      {1, "ffbm-01", ""}, {2, "boot-recovery", "recovery\r\r\n"},
        {3, "pfbm-", ""}, {4, "", ""},        {9, "", ""},
        {255, "", ""},
    };
    for (const auto &c : cases) {
        node(MISC, std::string(200, 'x'));
        EXPECT_EQ(ask(0x0128, c.mode).text, "OK");
        EXPECT_EQ(content(MISC), padded(c.command, 64) + padded(c.recovery, 64) + std::string(72, 'x'));
    }
}

TEST_F(BootPower, SecondMiscPathServesWhenTheFirstIsMissing)
{
    EXPECT_EQ(ask(0x0128, 1).text, "ERROR");
    EXPECT_EQ(ask(0xCA00, 2).text, "ERROR");
    node(OTHER_MISC, "");
    EXPECT_EQ(ask(0x0128, 1).text, "OK");
    EXPECT_EQ(content(OTHER_MISC), padded("ffbm-01", 128));
    EXPECT_FALSE(exists(MISC));
}

TEST_F(BootPower, FullPartition)
{
    link_node(MISC, "/dev/full");
    EXPECT_EQ(ask(0x0128, 1).text, "ERROR");
    EXPECT_EQ(ask(0xCA00, 1).text, "ERROR");
    EXPECT_EQ(ask(0xCA00, 2).text, "ERROR");
    descriptors_left_open = 1; // the last one, and only that
}

TEST_F(BootPower, BootModeQuery)
{
    expect_by_property(0x0129, "ro.bootmode",
                       {{"ffbm-02", "ftmmi_mode"},
                        {"ffbm", "ftmmi_mode"},
                        {"pfbm-", "normal_mode"},
                        {"", "normal_mode"},
                        {"ff", "normal_mode"}});
}

TEST_F(BootPower, WipeWritesTheArgumentsAndWhenItIsToHappen)
{
    for (uint8_t when : {2, 1, 0}) {
        node(MISC, std::string(200, 'x'));
        EXPECT_EQ(ask(0xCA00, when).text, "OK");
        std::string start = when == 1 ? "boot-recovery" + std::string(51, 'x') : std::string(64, 'x');
        EXPECT_EQ(content(MISC), start + WIPE + std::string(72, 'x'));
    }
    EXPECT_TRUE(the_phone().reboots.empty()) << "the answer is out before the phone goes down";
    wait_for_reboots(1);
    ASSERT_EQ(the_phone().reboots.size(), 1u);
    EXPECT_EQ(the_phone().reboots[0].reason, "recovery");
}

TEST_F(BootPower, GoingDownAnswersFirst)
{
    tool("fctest", "exit 1");
    for (uint16_t code : {0x012C, 0x012D, 0x0132, 0x0133})
        EXPECT_EQ(ask(code, 9).text, "OK");
    EXPECT_EQ(runs(), strings{"fctest power wakeup"});
    EXPECT_TRUE(the_phone().reboots.empty());
    wait_for_reboots(4);
}

TEST_F(BootPower, SuspendAnswersAtThePrompt)
{
    tool("fctest",
         "echo 'now suspending' >&2; echo 'please pull out usb cable now'; sleep 5 >/dev/null 2>&1 & exit 0");
    EXPECT_EQ(ask(0x012A).text, "OK");
    EXPECT_EQ(runs(), strings{"fctest power suspend"});
    expect_by_tool(0x012A, "fctest", {{"echo ' please pull out usb cable'", "ERROR"}, {"", "ERROR"}});
}

TEST_F(BootPower, PortCheckEchoesFiveBytes)
{
    EXPECT_EQ(ask(0x013C, 0x5A, "ignored").bytes, (std::vector<uint8_t>{75, 250, 0x3C, 0x01, 0x5A}));
}
