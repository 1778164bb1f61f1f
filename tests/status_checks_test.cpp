// The status checks against folders, nodes, properties and tools of a test phone.
#include <filesystem>

#include "tests/fake_platform.h"

namespace fs = std::filesystem;

static const std::string CALIBRATION = "/sys/devices/platform/soc/soc:fpsensor/goodix_cail_state";
static const std::string TURBO_WRITE = "/sys/devices/platform/soc/1d84000.ufshc/ufstw_lu0/tw_enable";
static const std::string RESULTS[] = {"/sdcard/runin/bigboard_mmi/result.txt",
                                      "/sdcard/runin/bigboard_mmi_2/result.txt"};

using StatusChecks = Phone;

TEST_F(StatusChecks, ExternalStorageIsAnythingBesideTheInternal)
{
    fs::remove_all("/storage");
    EXPECT_EQ(ask(0x0B1E).text, "ERROR");
    for (const char *internal : {"/storage/emulated", "/storage/self"})
        fs::create_directories(internal);
    EXPECT_EQ(ask(0x0B1E).text, "ABSENT");
    fs::create_directories("/storage/emulated2");
    EXPECT_EQ(ask(0x0B1E).text, "READY");
}

TEST_F(StatusChecks, PartitionFingerprintAndTurboWrite)
{
    EXPECT_EQ(ask(0x1500).text, "OK") << "a tool that is missing prints nothing";
    expect_by_tool(0x1500, "lpdump",
                   {{"echo 'Name: system_a'", "OK"},
                    {"exit 1", "OK"},
                    {"echo 'Name: system_a'; echo 'Name: scratch'; seq 100000", "ERROR"}});
    EXPECT_EQ(ask(0x1501).text, "ERROR");
    expect_by_node(0x1501, CALIBRATION, {{"0\n", "OK"}, {"00", "OK"}, {std::string(300, '0'), "OK"}});
    expect_by_node(0x1501, CALIBRATION,
                   {{"1\n", "ERROR"}, {"10", "ERROR"}, {"", "ERROR"}, {std::string(300, '1'), "ERROR"}});
    descriptors_left_open = 4; // a mismatch leaves the node open
    expect_by_property(0x1502, "persist.vendor.sys.fp.uid", {{"", "ERROR"}, {"00a1b2c3", "00a1b2c3"}});
    EXPECT_EQ(ask(0x1301).text, "ERROR");
    expect_by_node(0x1301, TURBO_WRITE, {{"0", "OK"}});
}

TEST_F(StatusChecks, RemoveTakesFilesAndFolders)
{
    node("/data/one", "1");
    node("/data/folder/inside/two", "2");
    node("/data/keep", "3");
    EXPECT_EQ(ask_text(0x1300, "/data/one").text, "OK");
    EXPECT_EQ(ask(0x1300, 0, "/data/folder/", 12).text, "OK") << "the length ends the path";
    EXPECT_FALSE(exists("/data/one") || exists("/data/folder"));
    EXPECT_EQ(ask_text(0x1300, "/data/one").text, "NOTEXIST");
    EXPECT_EQ(ask(0x1300, 0, "", 0).text, "NOTEXIST");

    // Each word of an unquoted path goes.
    node("/data/a b", "");
    node("/data/a", "");
    EXPECT_EQ(ask_text(0x1300, "/data/a b").text, "OK");
    EXPECT_TRUE(!exists("/data/a") && exists("/data/a b"));

    std::string longest = "/data/" + std::string(248, '/') + "k"; // with its folder 255 characters
    node(longest, "");
    EXPECT_EQ(ask(0x1300, 0, longest + "x").text, "ERROR");
    EXPECT_EQ(ask(0x1300, 0, "/data/keep", 65535).text, "ERROR");
    EXPECT_TRUE(exists("/data/keep") && exists("/data/k"));
    EXPECT_EQ(ask(0x1300, 0, longest).text, "OK");
    EXPECT_FALSE(exists("/data/k"));
}

TEST_F(StatusChecks, RunInResult)
{
    EXPECT_EQ(ask(0x1302, 2).text, "ERROR");
    EXPECT_EQ(ask(0x1302, 1).text, "NOT_EXSIT");
    for (uint8_t test : {0, 1}) {
        node(RESULTS[test], "PASS " + std::to_string(test) + "\n");
        response r = ask(0x1302, test);
        EXPECT_EQ(r.text, "PASS " + std::to_string(test));
        EXPECT_EQ(r.data[6], '\n') << "the line feed stays behind the counted bytes";
    }
    node(RESULTS[0], std::string(400, 'r'));
    response r = ask(0x1302, 0);
    EXPECT_EQ(r.length, 256);
    EXPECT_EQ(r.data, std::string(256, 'r') + std::string(512, '\0'));
    fs::remove(RESULTS[1]);
    fs::create_directories(RESULTS[1]); // opens and does not read
    EXPECT_EQ(ask(0x1302, 1).text, "ERROR");
}

TEST_F(StatusChecks, KeyHasExactly88CharactersAndIsNotLogged)
{
    const std::string key(88, 'K');
    expect_by_property(0x1400, "ro.vendor.tc.qkey",
                       {{"", "ERROR"}, {key.substr(1), "ERROR"}, {key, key}, {key + "K", "ERROR"}});
    for (const std::string &line : the_phone().log)
        EXPECT_EQ(line.find("KK"), std::string::npos);
}
