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
        const char *log;
    } cases[] = {
        {0, "", "", "normal"},
        {1, "ffbm-01", "", "ffbm"},
        {2, "boot-recovery", "recovery\r\r\n", "recovery"},
        {3, "pfbm-", "", "pfbm-"},
        {4, "", "", nullptr},
        {9, "", "", nullptr},
        {255, "", "", nullptr},
    };
    for (const auto &c : cases) {
        node(MISC, std::string(200, 'x'));
        the_phone().log.clear();
        EXPECT_EQ(ask(0x0128, c.mode).text, "OK");
        EXPECT_EQ(content(MISC), padded(c.command, 64) + padded(c.recovery, 64) + std::string(72, 'x'));
        int lines = 0;
        for (const auto &line : the_phone().log)
            lines += line.rfind("[diag_set_boot_mode]", 0) == 0;
        EXPECT_EQ(lines, c.log ? 1 : 0);
        if (c.log) {
            EXPECT_TRUE(logged(std::string("[diag_set_boot_mode]:Enter!mode=") + c.log + "\n"));
        }
        EXPECT_TRUE(logged("[diag_cmd_switch_boot_mode]:Select mode successful!\n"));
    }
}

TEST_F(BootPower, SecondMiscPathServesWhenTheFirstIsMissing)
{
    EXPECT_EQ(ask(0x0128, 1).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_switch_boot_mode]:open misc partion error!\n"));
    EXPECT_TRUE(logged("[diag_cmd_switch_boot_mode]:Select mode failed!\n"));
    EXPECT_EQ(ask(0xCA00, 2).text, "ERROR");
    node(OTHER_MISC, "");
    EXPECT_EQ(ask(0x0128, 1).text, "OK");
    EXPECT_EQ(content(OTHER_MISC), padded("ffbm-01", 128));
    EXPECT_FALSE(exists(MISC));
}

TEST_F(BootPower, FullPartition)
{
    node(MISC, "");
    unlink(MISC.c_str());
    ASSERT_EQ(symlink("/dev/full", MISC.c_str()), 0);
    EXPECT_EQ(ask(0x0128, 1).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_switch_boot_mode]:Failed to write to partition\n"));
    EXPECT_EQ(ask(0xCA00, 1).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_factory_wipe_data]:write boot-recovery to misc fail!!\n"));
    EXPECT_EQ(ask(0xCA00, 2).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_factory_wipe_data]:wriet to misc fail!!\n"));
    descriptors_left_open = 1; // the last one, and only that
}

TEST_F(BootPower, BootModeQuery)
{
    for (auto [value, answer] : std::map<std::string, std::string>{{"ffbm-02", "ftmmi_mode"},
                                                                   {"ffbm", "ftmmi_mode"},
                                                                   {"pfbm-", "normal_mode"},
                                                                   {"", "normal_mode"},
                                                                   {"ff", "normal_mode"}}) {
        the_phone().properties["ro.bootmode"] = value;
        EXPECT_EQ(ask(0x0129).text, answer) << value;
        EXPECT_TRUE(logged("[diag_cmd_query_boot_mode]:Boot mode:" + value + "\n"));
    }
    the_phone().unreadable_properties = {"ro.bootmode"};
    EXPECT_EQ(ask(0x0129).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_query_boot_mode]:property_get len=-1, get error!\n"));
}

TEST_F(BootPower, WipeWritesTheArgumentsAndWhenItIsToHappen)
{
    for (uint8_t when : {2, 1, 0}) {
        node(MISC, std::string(200, 'x'));
        EXPECT_EQ(ask(0xCA00, when).text, "OK");
        std::string start = when == 1 ? "boot-recovery" + std::string(51, 'x') : std::string(64, 'x');
        EXPECT_EQ(content(MISC), start + WIPE + std::string(72, 'x'));
    }
    EXPECT_TRUE(logged("[diag_cmd_factory_wipe_data]:write command is " + WIPE + ",length is :64\n"));
    EXPECT_TRUE(the_phone().reboots.empty()) << "the answer is out before the phone goes down";
    wait_for_reboots(1);
    ASSERT_EQ(the_phone().reboots.size(), 1u);
    EXPECT_EQ(the_phone().reboots[0].reason, "recovery");
}

TEST_F(BootPower, GoingDownAnswersFirst)
{
    tool("fctest", "exit 1");
    struct {
        uint16_t code;
        std::string line;
    } cases[] = {
        {0x012C, "[diag_cmd_restart_fastboot]:Reboot bootloader success!\n"},
        {0x012D, "[diag_cmd_restart_recovery]:Reboot recovery success!\n"},
        {0x0132, "[diag_cmd_device_restart]:Restart success!\n"},
        {0x0133, "[diag_cmd_device_shutdown]:Shutdown success!\n"},
    };
    for (const auto &c : cases) {
        response r = ask(c.code, 9);
        EXPECT_EQ(r.text, "OK");
        EXPECT_EQ(r.bytes.size(), 263u);
        EXPECT_TRUE(logged(c.line)) << c.line;
    }
    EXPECT_EQ(runs(), std::vector<std::string>{"fctest power wakeup"});
    EXPECT_TRUE(the_phone().reboots.empty());
    wait_for_reboots(4);
}

TEST_F(BootPower, SuspendAnswersAtThePrompt)
{
    tool("fctest",
         "echo 'now suspending' >&2; echo 'please pull out usb cable now'; sleep 5 >/dev/null 2>&1 & exit 0");
    EXPECT_EQ(ask(0x012A).text, "OK");
    EXPECT_TRUE(logged("[diag_cmd_fctest_power_suspend]:Power suspend ret:now suspending\n\n"));
    EXPECT_TRUE(logged("[diag_cmd_fctest_power_suspend]:Fctest power suspend succ.\n"));
    EXPECT_EQ(runs(), std::vector<std::string>{"fctest power suspend"});
    tool("fctest", "echo ' please pull out usb cable'");
    EXPECT_EQ(ask(0x012A).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_fctest_power_suspend]:Fctest power suspend fail.\n"));
    tool("fctest", "");
    EXPECT_EQ(ask(0x012A).text, "ERROR");
}

TEST_F(BootPower, PortCheckEchoesFiveBytes)
{
    response r = ask(0x013C, 0x5A, "ignored");
    EXPECT_EQ(r.bytes, (std::vector<uint8_t>{75, 250, 0x3C, 0x01, 0x5A}));
}
