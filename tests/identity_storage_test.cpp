// Addresses, versions, identities, memory and storage.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/fake_platform.h"

namespace
{

using Identity = Phone;

constexpr char WLAN_MAC[] = "/mnt/vendor/persist/wlan_mac.bin";
constexpr char BT_NV[] = "/mnt/vendor/persist/bluetooth/.bt_nv.bin";
constexpr char MISC[] = "/dev/block/bootdevice/by-name/misc";
constexpr char ALTERNATE_MISC[] = "/dev/block/platform/soc/1d84000.ufshc/by-name/misc";

TEST_F(Identity, StoresTheWlanAddress)
{
    const struct {
        std::string sent;
        std::string stored;
    } cases[] = {
        {"00A0C6123456", "00A0C6123456"},
        {"", ""},
        {std::string(300, 'A'), std::string(238, 'A')}, // the line is cut at 254 characters
        {"12\n34", "12"},
    };
    for (const auto &c : cases) {
        response answer = ask_text(0x001E, c.sent);
        EXPECT_EQ(answer.text, c.stored);
        EXPECT_EQ(answer.data, c.stored + std::string(256 - c.stored.size(), '\0'));
    }
    ask_text(0x001E, "00A0C6123456");
    EXPECT_EQ(content(WLAN_MAC), "Intf0MacAddress=00A0C6123456\nEND\n");

    unlink(WLAN_MAC);
    mkdir(WLAN_MAC, 0755);
    EXPECT_EQ(ask_text(0x001E, "00A0C6123456").text, "ERROR");
    rmdir(WLAN_MAC);
    link_node(WLAN_MAC, "/dev/null"); // nothing to read back
    EXPECT_EQ(ask_text(0x001E, "00A0C6123456").text, "ERROR");
    unlink(WLAN_MAC);
}

TEST_F(Identity, WritesTheBluetoothAddressThroughTheProperty)
{
    node(BT_NV, "old");
    tool("setprop", ":");
    tool("btnvtool", std::string("[ -e ") + BT_NV + " ] && echo was there");
    EXPECT_EQ(ask(0x0028, 0, "A1B2C3D4E5Z6").text, "OK");
    EXPECT_EQ(runs(), (strings{"setprop persist.service.bdroid.bdaddr A1:B2:C3:D4:E5:Z6", "btnvtool -O"}));
    EXPECT_FALSE(exists(BT_NV)); // removed, and this tool wrote none

    EXPECT_EQ(ask(0x0029).text, "ERROR");
    node(BT_NV, "\x01\x02\x03\x56\x34\x12\xEF\xCD\xAB\x09");
    EXPECT_EQ(ask(0x0029).text, "ABCDEF123456");
    node(BT_NV, "\x01\x02\x03\x56\x34");
    EXPECT_EQ(ask(0x0029).text, "000000003456");
    unlink(BT_NV);
    mkdir(BT_NV, 0755);
    EXPECT_EQ(ask(0x0029).text, "ERROR");
    rmdir(BT_NV);
}

TEST_F(Identity, ReadsProperties)
{
    expect_by_property(0x0100, "ro.build.id", {{"RKQ1.200928.002", "RKQ1.200928.002"}, {"", ""}});
    EXPECT_EQ(ask(0x0100).data, std::string(256, '\0'));
    expect_by_property(0x0101, "ro.bootimage.build.fingerprint", {{"a/b:11", "a/b:11"}});
    expect_by_property(0x010B, "ro.boot.dp",
                       {{"0xB", "OK"}, {"0xb", "ERROR"}, {"0xB ", "ERROR"}, {"", "ERROR"}});
    for (uint16_t code : {0x0116, 0x0142})
        expect_by_property(code, "ro.boot.cpuid", {{"0x12AB", "12AB"}, {"5", ""}, {"", ""}});
    expect_by_property(0x0141, "ro.boot.hwversion", {{"0x1A", "1A"}, {"5", "5"}, {"V0X2", "X2"}});
}

TEST_F(Identity, ReadsTheUsbSerialAsItLies)
{
    constexpr char NODE[] = "/sys/class/android_usb/android0/iSerial";
    EXPECT_EQ(ask(0x013F).text, "ERROR");
    node(NODE, "1a2b3c4d\n");
    response answer = ask(0x013F);
    EXPECT_EQ(answer.text, "1a2b3c4d");
    EXPECT_EQ(answer.data[8], '\n'); // not counted, but there
    node(NODE, std::string(300, 'S'));
    EXPECT_EQ(ask(0x013F).text, std::string(256, 'S'));
}

TEST_F(Identity, FindsTheFeatureId)
{
    EXPECT_EQ(ask(0x0143).text, "ERROR");
    node("/proc/cpuinfo", "jtag_feature_id: 0x1\njtag_feature_id : 0x0014A0E1\njtag_feature_id : 0x2\n");
    EXPECT_EQ(ask(0x0143).text, "0014A0E1\n");
    node("/proc/cpuinfo", "jtag_feature_id: 0x1\n");
    EXPECT_EQ(ask(0x0143).text, "ERROR");
}

TEST_F(Identity, SetsTheFrequencyOfBothClusters)
{
    const std::string cpu0 = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq";
    const std::string cpu2 = "/sys/devices/system/cpu/cpu2/cpufreq/scaling_max_freq";
    EXPECT_EQ(ask(0x0117, 0, "1111").text, "ERROR");
    node(cpu0, "a much longer text than any number");
    EXPECT_EQ(ask(0x0117, 0, "1111").text, "ERROR");
    node(cpu2, "");
    EXPECT_EQ(ask(0x0117, 0, "1111").text, "OK");
    EXPECT_EQ(content(cpu0), content(cpu2));
    link_node(cpu2, cpu0); // not followed
    EXPECT_EQ(ask(0x0117, 0, "1111").text, "ERROR");
}

TEST_F(Identity, ClassifiesMemory)
{
    const struct {
        long kib;
        const char *answer;
    } cases[] = {
        {0x1003FF, ""},    {0x100400, "\2"},  {0x2003FF, "\2"},  {0x200400, "\3"},   {0x3003FF, "\3"},
        {0x300400, "\4"},  {0x4003FF, "\4"},  {0x400400, "\6"},  {0x6003FF, "\6"},   {0x600400, "\10"},
        {0x8003FF, "\10"}, {0x800400, "\12"}, {0xA003FF, "\12"}, {0xA00400, "\14"},  {0xC003FF, "\14"},
        {0xC00400, "\16"}, {0xE003FF, "\16"}, {0xE00400, "\20"}, {0x10003FF, "\20"}, {0x1000400, ""},
        {7850000, "\10"},  {0, ""},
    };
    for (const auto &c : cases) {
        node("/proc/meminfo",
             "MemTotal:        " + std::to_string(c.kib) + " kB\nMemFree:          246464 kB\n");
        EXPECT_EQ(ask(0x0A00).text, c.answer) << c.kib;
    }
    node("/proc/meminfo", "MemFree: 8000000 kB\n");
    EXPECT_EQ(ask(0x0A00).length, 0);
}

// The partitions of a phone whose flash has `total` KiB on its six units.
std::string flash(long total, const std::string &behind = "")
{
    std::string list = "major minor  #blocks  name\n\n   7        0      54340 loop0\n";
    for (char unit = 'b'; unit <= 'f'; unit++)
        list += "   8       16       8192 sd" + std::string(1, unit) + (unit == 'e' ? " \n" : "\n");
    list.insert(list.find("   8"), "   8        0  " + std::to_string(total - 5 * 8192) +
                                       " sda\n   8        1      32768 sda1\n 259        0  " +
                                       "99999999 dm-0\n");
    return list + behind;
}

TEST_F(Identity, ClassifiesFlashAndAnswersInBase255)
{
    const struct {
        long kib;
        const char *answer;
    } cases[] = {
        {0x8003FF, ""},       {0x800400, "\20"},    {0x10003FF, "\20"},   {0x1000400, "\40"},
        {0x20003FF, "\40"},   {0x2000400, "\100"},  {0x40003FF, "\100"},  {0x4000400, "\200"},
        {0x80003FF, "\200"},  {0x8000400, "\1\1"},  {0x100003FF, "\1\1"}, {0x10000400, "\2\2"},
        {0x200003FF, "\2\2"}, {0x20000400, "\4\4"}, {0x400003FF, "\4\4"}, {250000000, "\1\1"},
        {120000000, "\200"},  {0x40000400, "\4\4"}, // beyond the last class: sda to sde were still within it
    };
    for (const auto &c : cases) {
        node("/proc/partitions", flash(c.kib, "   8       96  999999999 sdg\n"));
        EXPECT_EQ(ask(0x0B00).text, c.answer) << c.kib;
    }
    EXPECT_TRUE(runs().empty());
}

TEST_F(Identity, AsksTheToolWhereTheLastUnitIsMissing)
{
    const std::string partitions = flash(120000000);
    node("/proc/partitions", partitions.substr(0, partitions.rfind("   8")));
    expect_by_tool(0x0B00, "ghr",
                   {{"echo MemTotal: 5; echo '  memTotal: 64 GB'; echo memTotal: 7", "\100"},
                    {"echo memTotal: 300", "\55\1"},
                    {"echo memTotal: 255", ""}, // a low digit of 0 hides the high one
                    {"echo memTotal: 0", "ERROR"},
                    {"echo memTotal: -3", "ERROR"},
                    {"echo memtotal: 64; echo memTotal:64", "ERROR"},
                    {":", "ERROR"}});
}

TEST_F(Identity, TellsTheRevisionOfUfs)
{
    node("/proc/cmdline", "");
    EXPECT_EQ(ask(0x0B01).text, "ERROR");
    node("/proc/cmdline", "console=null androidboot.emmc=false\n");
    EXPECT_EQ(ask(0x0B01).text, "ERROR");
    node("/sys/block/sda/device/rev", "0300\nmore\n");
    response answer = ask(0x0B01);
    EXPECT_EQ(answer.text, "0300");
    EXPECT_EQ(answer.data.substr(0, 6), std::string("0300\n\0", 6));
    node("/sys/block/sda/device/rev", std::string(400, 'r'));
    EXPECT_EQ(ask(0x0B01).text, std::string(255, 'r'));
}

TEST_F(Identity, JoinsTheIdentityOfEmmc)
{
    constexpr char CID[] = "/sys/block/mmcblk0/device/cid";
    constexpr char PRV[] = "/sys/block/mmcblk0/device/prv";
    node("/proc/cmdline", "androidboot.emmc=true quiet androidboot.emmc.vendor=ACME\n");
    EXPECT_EQ(ask(0x0B01).text, "ERROR");
    node(CID, "150100303132333435368f12ab34cd56\n");
    response answer = ask(0x0B01);
    EXPECT_EQ(answer.text, "ERROR"); // over what was collected
    EXPECT_EQ(answer.data.substr(0, 18), "ERROR2333435:ACME:");
    node(PRV, "0x8\n");
    answer = ask(0x0B01);
    EXPECT_EQ(answer.text, "303132333435:ACME:0x8"); // the vendor reaches to the end of the line
    EXPECT_EQ(answer.data[21], '\n');
    node("/proc/cmdline", "androidboot.emmc.vendor= androidboot.emmc=true\n");
    EXPECT_EQ(ask(0x0B01).text, "303132333435::0x8");
    node("/proc/cmdline", "androidboot.emmc=true\n");
    EXPECT_EQ(ask(0x0B01).text, "ERROR");

    // What does not fit is cut: at 256 by the vendor, at 255 by the revision.
    for (size_t length : {238, 241, 242, 243, 244, 2000}) {
        std::string vendor(length, 'V');
        node("/proc/cmdline", "androidboot.emmc=true androidboot.emmc.vendor=" + vendor + " \n");
        std::string whole = ("303132333435:" + vendor + ":").substr(0, 256);
        if (whole.size() < 255)
            whole = (whole + "0x8\n").substr(0, 255);
        answer = ask(0x0B01);
        EXPECT_EQ(answer.text, whole.substr(0, whole.find('\n')));
        EXPECT_EQ(answer.data, whole + std::string(256 - whole.size(), '\0'));
    }
}

TEST_F(Identity, ReadsTheHeadOfMisc)
{
    EXPECT_EQ(ask(0x0B0A).text, "ERROR");
    node(ALTERNATE_MISC, std::string("ffbm-01\0other", 13));
    response answer = ask(0x0B0A);
    EXPECT_EQ(answer.text, "ffbm-01");
    EXPECT_EQ(answer.data.substr(0, 13), std::string("ffbm-01\0other", 13));
    node(MISC, std::string(1000, 'm'));
    EXPECT_EQ(ask(0x0B0A).text, std::string(256, 'm'));
    node(MISC, "");
    EXPECT_EQ(ask(0x0B0A).length, 0);
}

TEST_F(Identity, TellsAboutTheDisk)
{
    for (uint16_t code : {0x2100, 0x2102, 0x2103})
        EXPECT_EQ(ask(code).text, "ERROR") << code;

    const struct {
        long kib;
        const char *answer;
    } sizes[] = {
        {500107608, "\2\2"}, {0x8003FF, "ERROR"},  {0x800400, "\20"},
        {0x400000, "ERROR"}, {0x400003FF, "\4\4"}, {0x40000400, "ERROR"},
    };
    for (const auto &c : sizes) {
        node("/proc/partitions", "   8        0  120000000 sda\n 259        0  " + std::to_string(c.kib) +
                                     " nvme0n1\n 259        1     131072 nvme0n1p1\n");
        EXPECT_EQ(ask(0x2100).text, c.answer) << c.kib;
    }

    node("/sys/block/nvme0n1/device/firmware_rev", "EIFM31.6\nmore\n");
    response answer = ask(0x2102);
    EXPECT_EQ(answer.data, "EIFM31.6" + std::string(248, '\0'));
    EXPECT_EQ(answer.length, 8);

    expect_by_tool(0x2103, "phison-smart",
                   {{"echo Model; echo State AES:Disable; echo AES:Enable", "AES:dis"},
                    {"echo AES:Disable AES:Enable", "AES:en"},
                    {"echo AES:enable", "ERROR"}});
    EXPECT_EQ(runs().at(0), "phison-smart --device=/dev/block/nvme0n1");
}

TEST_F(Identity, FindsTheDisk)
{
    const std::string device = "/sys/block/nvme0n1/device/device/";
    node(device + "subsystem_vendor", "0x1987\n");
    expect_by_node(0x2101, device + "subsystem_device", {{"0x5012\n", "ERROR"}, {"0x5013\n", "OK"}});
}

} // namespace
