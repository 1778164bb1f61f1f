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
    EXPECT_TRUE(logged("[diag_cmd_check_extsd_insert]:Open dir error...\n"));
    fs::create_directories("/storage/emulated");
    fs::create_directories("/storage/self");
    EXPECT_EQ(ask(0x0B1E).text, "ABSENT");
    fs::create_directories("/storage/emulated2");
    EXPECT_EQ(ask(0x0B1E).text, "READY");
    EXPECT_EQ(times_logged("[diag_cmd_check_extsd_insert]:threre is sd or otg storage in phone\n"), 1);
}

TEST_F(StatusChecks, ScratchPartition)
{
    const struct {
        std::string output, answer;
    } cases[] = {
        {"echo 'Name: system_a'", "OK"},
        {":", "OK"},
        {"exit 1", "OK"},
        {"echo 'Name: system_a'; echo 'Name: scratch'; seq 100000", "ERROR"},
    };
    for (const auto &c : cases) {
        tool("lpdump", c.output);
        EXPECT_EQ(ask(0x1500).text, c.answer) << c.output;
    }
    EXPECT_TRUE(logged("[diag_cmd_judge_scratch_exsit]:lpdump | grep scratch excute success!\n"));
    EXPECT_TRUE(logged("[diag_cmd_judge_scratch_exsit]:scratch is not exsit!.\n"));
    EXPECT_EQ(times_logged("[diag_cmd_judge_scratch_exsit]:scratch is exsit!\n"), 1);
    remove_tool("lpdump");
    EXPECT_EQ(ask(0x1500).text, "OK") << "a tool that is missing prints nothing";
}

TEST_F(StatusChecks, CalibrationBeginsWithZero)
{
    EXPECT_EQ(ask(0x1501).text, "ERROR");
    const struct {
        std::string state, answer;
    } cases[] = {{"0\n", "OK"},
                 {"00", "OK"},
                 {"1\n", "ERROR"},
                 {"10", "ERROR"},
                 {"", "ERROR"},
                 {std::string(300, '0'), "OK"},
                 {std::string(300, '1'), "ERROR"}};
    for (const auto &c : cases) {
        node(CALIBRATION, c.state);
        EXPECT_EQ(ask(0x1501).text, c.answer) << c.state;
        descriptors_left_open += c.answer == "ERROR"; // a mismatch leaves the node open
    }
    EXPECT_EQ(times_logged("[diag_cmd_check_fingerprint_data]:fingerprint data is  exsit.\n"), 3);
}

TEST_F(StatusChecks, FingerprintIdIsTheProperty)
{
    EXPECT_EQ(ask(0x1502).text, "ERROR");
    the_phone().properties["persist.vendor.sys.fp.uid"] = "00a1b2c3";
    EXPECT_EQ(ask(0x1502).text, "00a1b2c3");
    the_phone().unreadable_properties.insert("persist.vendor.sys.fp.uid");
    EXPECT_EQ(ask(0x1502).text, "ERROR");
    EXPECT_EQ(times_logged("[diag_cmd_check_fingerprint_id]:fingerprint id get failed\n"), 2);
}

TEST_F(StatusChecks, RemoveTakesFilesAndFolders)
{
    node("/data/one", "1");
    node("/data/folder/inside/two", "2");
    node("/data/keep", "3");
    EXPECT_EQ(ask_text(0x1300, "/data/one").text, "OK");
    EXPECT_EQ(ask(0x1300, 0, "/data/folder/", 12).text, "OK") << "the length ends the path";
    EXPECT_FALSE(exists("/data/one"));
    EXPECT_FALSE(exists("/data/folder"));
    EXPECT_EQ(ask_text(0x1300, "/data/one").text, "NOTEXIST");
    EXPECT_EQ(ask(0x1300, 0, "", 0).text, "NOTEXIST");
    EXPECT_TRUE(logged("[diag_cmd_remove_file]:remove /data/one sucess\n"));
    EXPECT_TRUE(logged("[diag_cmd_remove_file]:/data/one is not exist\n"));

    // Each word of an unquoted path goes.
    node("/data/a b", "");
    node("/data/a", "");
    EXPECT_EQ(ask_text(0x1300, "/data/a b").text, "OK");
    EXPECT_FALSE(exists("/data/a"));
    EXPECT_TRUE(exists("/data/a b"));

    std::string longest = "/data/" + std::string(248, '/') + "k"; // with its folder 255 characters
    node(longest, "");
    EXPECT_EQ(ask(0x1300, 0, longest + std::string(1, 'x')).text, "ERROR");
    EXPECT_EQ(ask(0x1300, 0, "/data/keep", 65535).text, "ERROR");
    EXPECT_TRUE(exists("/data/keep"));
    EXPECT_TRUE(exists("/data/k"));
    EXPECT_EQ(ask(0x1300, 0, longest).text, "OK");
    EXPECT_FALSE(exists("/data/k"));
}

TEST_F(StatusChecks, TurboWriteIsTheNodesPresence)
{
    EXPECT_EQ(ask(0x1301).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_verify_turbo_write]:" + TURBO_WRITE + " is not exsit.\n"));
    node(TURBO_WRITE, "0");
    EXPECT_EQ(ask(0x1301).text, "OK");
}

TEST_F(StatusChecks, RunInResult)
{
    EXPECT_EQ(ask(0x1302, 2).text, "ERROR");
    EXPECT_EQ(ask(0x1302, 1).text, "NOT_EXSIT");
    for (uint8_t test : {0, 1}) {
        node(RESULTS[test], "PASS " + std::to_string(test) + "\n");
        response r = ask(0x1302, test);
        EXPECT_EQ(r.bytes.size(), 775u);
        EXPECT_EQ(r.text, "PASS " + std::to_string(test));
        EXPECT_EQ(r.data[6], '\n') << "the line feed stays behind the counted bytes";
    }
    EXPECT_TRUE(logged("[diag_cmd_get_mmi_result]:mmi1 detect status:PASS 1\n\n"));
    node(RESULTS[0], std::string(400, 'r'));
    response r = ask(0x1302, 0);
    EXPECT_EQ(r.length, 256);
    EXPECT_EQ(r.data, std::string(256, 'r') + std::string(512, '\0'));
    fs::remove(RESULTS[1]);
    fs::create_directories(RESULTS[1]); // opens and does not read
    EXPECT_EQ(ask(0x1302, 1).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_get_mmi_result]:mmi 1 result len=-1, read error\n"));
}

TEST_F(StatusChecks, KeyHasExactly88Characters)
{
    EXPECT_EQ(ask(0x1400).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_get_qkey_prop]:get tencent key length 0\n"));
    for (size_t length : {87u, 88u, 89u}) {
        std::string key(length, 'K');
        the_phone().properties["ro.vendor.tc.qkey"] = key;
        EXPECT_EQ(ask(0x1400).text, length == 88 ? key : "ERROR");
    }
    for (const std::string &line : the_phone().log)
        EXPECT_EQ(line.find("KK"), std::string::npos) << "the key is in the log";
}

TEST_F(StatusChecks, NoBufferNoReply)
{
    the_phone().allocation_fails = true;
    node("/data/keep", "3");
    EXPECT_TRUE(ask_text(0x1300, "/data/keep").null);
    EXPECT_TRUE(exists("/data/keep"));
    EXPECT_TRUE(logged("[diag_cmd_remove_file]:Diag: diagpkt_subsys_alloc failed!\n"));
    EXPECT_TRUE(ask(0x1500).null);
    EXPECT_TRUE(logged("[diag_cmd_judge_scratch_exsit]:diagpkt_subsys_alloc failed\n"));
}
