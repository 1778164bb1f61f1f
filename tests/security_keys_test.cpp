// Security state and keys. The tools that install or report keys are scripts of each test; what they are
// given, which key files are there afterwards and what the log tells of a key is what matters.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "commands/security_keys/secret.h"
#include "tests/fake_platform.h"

static constexpr char KEYBOX[] = "/data/keybox.bin";
static constexpr char WIDEVINE[] = "/data/widevine.xml";
static constexpr char KEYMASTER[] = "/data/keybox.xml";
static constexpr char CEK[] = "/mnt/vendor/persist/CEK.txt";
static constexpr char PM[] = "/mnt/vendor/persist/PM.out";
static constexpr char PARTITION[] = "/dev/block/bootdevice/by-name/nuroconfig";
static constexpr char FUSE[] = "/data/secure_boot";
static constexpr char OEMCRYPTO[] = "/system/bin/oemcrypto_test";
static constexpr char HDCP_SUCCESS[] = "echo 'provisioning test finished with return code: 0x0'";

class SecurityKeys : public Phone
{
  protected:
    void SetUp() override
    {
        for (const char *path : {KEYBOX, CEK, PM, PARTITION, WIDEVINE, KEYMASTER, "/data/cplc_info", FUSE})
            remove(path);
        node(PARTITION, "");
        Phone::SetUp();
    }

    // The answer when the given line (from 1) cannot be started; 0: all can.
    static std::string ask_failing(int line, uint16_t code, const std::string &data = "", int length = -1)
    {
        the_phone().failing_popen = line;
        std::string answer = ask(code, 0, data, length).text;
        the_phone().failing_popen = 0;
        return answer;
    }

    // The lengths are told as they are, if not given.
    static std::string set_hdcp(const std::string &cek, const std::string &pm, int cek_length = -1,
                                int pm_length = -1, int failing = 0)
    {
        size_t told = pm_length < 0 ? pm.size() : static_cast<size_t>(pm_length);
        std::string data = {static_cast<char>(told & 255), static_cast<char>(told >> 8)};
        return ask_failing(failing, 0xD214, data + cek + pm,
                           cek_length < 0 ? static_cast<int>(cek.size()) : cek_length);
    }

    // The names of the log lines that hold `text`, up to the first blank.
    static strings lines_with(const std::string &text)
    {
        strings found;
        for (const std::string &line : the_phone().log)
            if (line.find(text) != std::string::npos)
                found.push_back(line.substr(0, line.find(' ')));
        return found;
    }
};

TEST_F(SecurityKeys, SecureBootAndLockState)
{
    expect_by_property(0xC800, "ro.boot.secureboot",
                       {{"1", "OK"}, {"1 green", "OK"}, {"0", "ERROR"}, {"", "ERROR"}}, 1);
    expect_by_property(0xC802, "ro.secureboot.lockstate", {{"", ""}, {"locked", "locked"}});
    expect_by_tool(0xC800, "/system/bin/r",
                   {{"print -n '00780350: 00303030 and more'", "OK"},
                    {"print -n '00780350: 0030303'", "ERROR"}, // 17 bytes
                    {"true", "ERROR"},
                    {"echo '00780350: 00303040'", "ERROR"},
                    {"echo '00780350: 00303030' >&2; exit 1", "OK"}}); // both outputs, whatever the status
    EXPECT_EQ(runs().back(), "/system/bin/r 0x00780350");
    EXPECT_FALSE(exists(FUSE));
    EXPECT_EQ(ask_failing(2, 0xC800), "ERROR") << "not cleaned up";
    EXPECT_TRUE(exists(FUSE));
    EXPECT_EQ(ask_failing(1, 0xC800), "ERROR") << "nothing is read, nothing removed";
    EXPECT_TRUE(exists(FUSE));
}

TEST_F(SecurityKeys, RpmbKeyIsWrittenOnceAndOnlyWhenThereIsNone)
{
    const std::string none = "RPMB_KEY_NOT_PROVISIONED", good = "RPMB_KEY_PROVISIONED_AND_OK",
                      done = "RPMB key provisioning completed";
    // The client's answers to a status question before and after, and to the provisioning.
    const struct {
        std::string before, set, after;
        const char *answer, *menu;
    } rows[] = {
        {"status " + good, "", "", "OK", "2"},
        {none, done, good, "OK", "202"},
        {none, "RPMB key provisioning failed", good, "ERROR", "20"},
        {none, done, none, "ERROR", "202"},
        {none, done, "?", "ERROR", "202"},
        {none, "?", "", "ERROR", "20"},
        {"?", "", "", "ERROR", "2"},
    };
    for (const auto &row : rows) {
        remove("/data/menu");
        remove("/data/set");
        tool("qseecom_sample_client", "read n; print -n $n >>/data/menu; echo hello\n"
                                      "if [ $n = 0 ]; then echo '" +
                                          row.set + "'; : >/data/set\nelif [ -e /data/set ]; then echo '" +
                                          row.after + "'\nelse echo '" + row.before + "'; fi");
        EXPECT_EQ(ask(0xC801).text, row.answer);
        EXPECT_EQ(content("/data/menu"), row.menu);
    }
    EXPECT_EQ(runs().front(), "qseecom_sample_client v smplap64 14 1");
}

TEST_F(SecurityKeys, KeyboxIsStoredAndTheDeviceIdComesBack)
{
    const std::string key = std::string("key\0box", 7) + std::string(761, 'k'); // the most, a zero among it
    const std::string id = "0123456789012345678901234567890";
    const struct {
        std::string output, answer, data;
    } rows[] = {
        {"echo 'Version 15'; echo 'got dev_id = ABC'", "ABC", "ABC\n"},
        {"print -n 'dev_id = ABC'", "ABC", "ABC"},
        {"echo 'dev_id = " + id + "'", id, id + "\n"},
        {"echo 'dev_id = " + id + "12'", id + "1", id + "1"},
        {"echo 'dev_id = '", "", "\n"},
        {"echo 'dev_id: ABC'", "match_device_id_fail", "match_device_id_fail"},
    };
    tool("StoreKeybox", "cat $1 >/data/stored");
    for (const auto &row : rows) {
        tool(OEMCRYPTO, row.output);
        response answer = ask(0xD20A, 9, key);
        EXPECT_EQ(answer.text, row.answer) << row.output;
        EXPECT_STREQ(answer.data.c_str(), row.data.c_str()) << row.output;
        EXPECT_EQ(content("/data/stored"), key);
        EXPECT_FALSE(exists(KEYBOX));
    }
    EXPECT_EQ(runs()[0], "StoreKeybox /data/keybox.bin");
    EXPECT_EQ(runs()[1],
              "/system/bin/oemcrypto_test "
              "--gtest_filter=OEMCryptoClientTest.VersionNumber:OEMCryptoClientTest.NormalGetDeviceId");

    const struct {
        int failing, length;
        const char *answer;
        bool file_left;
    } failures[] = {
        {0, 769, "store_file_fail", false},   {0, 65535, "store_file_fail", false},
        {1, 3, "write_key_fail", false},      {2, 3, "delete_file_fail", true},
        {3, 3, "open_oemcrypro_fail", false},
    };
    for (const auto &row : failures) {
        EXPECT_EQ(ask_failing(row.failing, 0xD20A, "key", row.length), row.answer);
        EXPECT_EQ(exists(KEYBOX), row.file_left) << row.answer;
    }
    remove(KEYBOX);
    tool("StoreKeybox", "exit 1"); // its own failure is not seen
    EXPECT_EQ(ask(0xD20A, 0, "key").text, "match_device_id_fail");
    EXPECT_FALSE(exists(KEYBOX));
}

TEST_F(SecurityKeys, InstallFromFileRemovesItOnlyOnSuccess)
{
    const struct {
        uint16_t code;
        const char *file, *client, *output;
        int failing;
        const char *answer;
        bool file_left;
    } rows[] = {
        {0xD20B, WIDEVINE, "widevine_client", "cat $1; echo 'PASS now'", 0, "OK", false},
        {0xD20B, WIDEVINE, "widevine_client", "echo ' PASS'", 0, "ERROR", true},
        {0xD20B, WIDEVINE, "widevine_client", "echo PASS", 1, "ERROR", true},
        {0xD20B, WIDEVINE, "widevine_client", "echo PASS", 2, "ERROR", true},
        {0xD23C, KEYMASTER, "KmInstallKeybox", "echo; echo '> InstallKeybox is done!'", 0, "OK", false},
        {0xD23C, KEYMASTER, "KmInstallKeybox", "echo 'InstallKeybox Failed'; echo 'InstallKeybox is done'", 0,
         "ERROR", true},
        {0xD23C, KEYMASTER, "KmInstallKeybox", "echo nothing", 0, "ERROR", true},
        {0xD23C, KEYMASTER, "KmInstallKeybox", "echo 'InstallKeybox is done'", 1, "ERROR", true},
        {0xD23C, KEYMASTER, "KmInstallKeybox", "echo 'InstallKeybox is done'", 2, "ERROR", true},
        {0xD23C, KEYMASTER, "KmInstallKeybox",
         "[ $LD_LIBRARY_PATH = /vendor/lib64/hw ] && echo 'InstallKeybox is done'", 0, "OK", false},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(ask(row.code, 0, "42").text, "NOT_EXSIT");
        node(row.file, "keys\n");
        tool(row.client, row.output);
        EXPECT_EQ(ask_failing(row.failing, row.code, "42junk", 2), row.answer) << row.output;
        EXPECT_EQ(exists(row.file), row.file_left) << row.output;
        remove(row.file);
    }
    EXPECT_EQ(runs().front(), "widevine_client /data/widevine.xml 42"); // ends where its length does
    EXPECT_EQ(runs().back(), "KmInstallKeybox /data/keybox.xml 42 true");
    node(WIDEVINE, "keys\n");
    const std::string head = "widevine_client /data/widevine.xml "; // the line is cut at 255 characters
    ask(0xD20B, 0, std::string(300, 'a'));
    EXPECT_EQ(runs().back(), head + std::string(255 - head.size(), 'a'));
}

TEST_F(SecurityKeys, HdcpKeysAreWrittenEachByItsOwnBytes)
{
    const struct {
        size_t cek, pm;
        const char *answer;
        bool written;
    } rows[] = {
        {16, 40, "OK", true},
        {768, 768, "OK", true}, // one's bytes do not count into the other's check
        {0, 1, "OK", true},
        {769, 16, "store_CEK_fail", false},
        {60000, 60000, "store_CEK_fail", false},
        {16, 769, "store_PM_fail", false},
    };
    tool("hdcpprov", HDCP_SUCCESS);
    for (const auto &row : rows) {
        remove(CEK);
        remove(PM);
        std::string cek(row.cek, '\xC0'), pm(row.pm, '\xD1');
        if (row.cek > 2)
            cek[1] = '\0';
        EXPECT_EQ(set_hdcp(row.cek > 1000 ? "" : cek, row.pm > 1000 ? "" : pm, static_cast<int>(row.cek),
                           static_cast<int>(row.pm)),
                  row.answer);
        EXPECT_EQ(content(CEK), row.written ? cek : "(missing)") << row.cek;
        EXPECT_EQ(content(PM), row.written ? pm : "(missing)") << row.pm;
    }
}

TEST_F(SecurityKeys, HdcpFailuresAndWhatTheyLeave)
{
    node(CEK, "old");
    node(PM, "old");
    EXPECT_EQ(set_hdcp("new", "new", 3, 769), "store_PM_fail");
    EXPECT_FALSE(exists(CEK));
    EXPECT_EQ(content(PM), "old"); // the path that is removed is another
    EXPECT_EQ(set_hdcp("new", "new", 3, 769, 1), "ERROR");
    EXPECT_EQ(content(CEK), "new");
    EXPECT_EQ(set_hdcp("more", "new", 769, -1, 1), "ERROR");
    EXPECT_EQ(content(CEK), "new");
    for (const char *output : {"exit 0", "echo 'provisioning test finished with return code: 0x'",
                               "echo ' provisioning test finished with return code: 0x0'"}) {
        tool("hdcpprov", output);
        EXPECT_EQ(set_hdcp("key", "pm!"), "exec_hdcpprov_fail") << output;
        EXPECT_EQ(content(CEK) + content(PM), "keypm!");
    }
    EXPECT_EQ(set_hdcp("key", "pm!", -1, -1, 1), "exec_hdcpprov_fail");
}

TEST_F(SecurityKeys, HdcpQueryCountsTheProvisionedFilesAndCleansUp)
{
    const struct {
        const char *hdcpprov, *count;
        int failing;
        bool passes; // and the files go
    } rows[] = {
        {HDCP_SUCCESS, "6", 0, true},   {HDCP_SUCCESS, "60", 0, true}, // the first digit is what is looked at
        {HDCP_SUCCESS, "16", 0, false}, {HDCP_SUCCESS, "5", 0, false}, {HDCP_SUCCESS, "1\n6", 0, true},
        {"exit 0", "6", 0, false},      {HDCP_SUCCESS, "6", 2, false}, // sync
        {HDCP_SUCCESS, "6", 3, false},                                 // the listing
        {HDCP_SUCCESS, "6", 4, false},                                 // the removal
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.count) + " " + std::to_string(row.failing));
        node(CEK, "key");
        node(PM, "pm");
        tool("hdcpprov", row.hdcpprov);
        tool("wc", std::string("cat >/dev/null; echo '") + row.count + "'");
        EXPECT_EQ(ask_failing(row.failing, 0xD215), row.passes ? "OK" : "ERROR");
        EXPECT_EQ(exists(CEK), !row.passes);
        EXPECT_EQ(exists(PM), !row.passes);
    }
}

TEST_F(SecurityKeys, WechatKeyIsTheWholeOutput)
{
    std::string key;
    for (int i = 0; i < 10; i++)
        key += std::string(99, 'w') + "\n";
    node("/data/key", key);
    const struct {
        size_t size, length;
    } rows[] = {{0, 0}, {100, 100}, {767, 767}, {768, 768}, {769, 767}, {800, 767}, {900, 767}};
    for (const auto &row : rows) {
        tool("soter_client", "head -c " + std::to_string(row.size) + " /data/key");
        response answer = ask(0xD21E);
        EXPECT_EQ(answer.length, row.length) << row.size;
        size_t held = std::min<size_t>(row.size, 768);
        EXPECT_EQ(answer.data, key.substr(0, held) + std::string(768 - held, '\0')) << row.size;
    }
    EXPECT_EQ(ask_failing(1, 0xD21E), "ERROR");
}

TEST_F(SecurityKeys, AlipayKeyIsVerified)
{
    expect_by_tool(0xD228, "/vendor/bin/key_client",
                   {{"echo loading; echo 'PASS and more'", "OK"},
                    {"echo ' PASS'; echo FAIL", "ERROR"},
                    {"exit 0", "ERROR"}});
    EXPECT_EQ(runs()[0], "/vendor/bin/key_client --load ifaa");
}

TEST_F(SecurityKeys, CplcRecords)
{
    EXPECT_EQ(ask(0xD232).text, "ERROR");
    std::string record;
    for (int i = 0; i < 50; i++)
        record += static_cast<char>(0x80 + i); // no line feed among them, all of them above 127
    const std::string digits =
        "808182838485868788898A8B8C8D8E8F909192939495969798999A9B9C9D9E9FA0A1A2A3A4A5A6A7A8A9";
    std::string zeroes = record;
    zeroes[0] = zeroes[49] = '\0';
    expect_by_node(
        0xD232, "/data/cplc_info",
        {
            {record, "cplc:" + digits + "mac:AAABACADAEAFB0B1"},
            {record + "more\n", "cplc:" + digits + "mac:AAABACADAEAFB0B1"},
            {zeroes, "cplc:00" + digits.substr(2) + "mac:AAABACADAEAFB000"},
            {record.substr(0, 49) + "\n", "cplc:" + digits + "mac:AAABACADAEAFB0"},
            {record.substr(0, 41) + "\n" + record.substr(42), // the line ends there
             "cplc:" + digits.substr(0, 82) + "mac:0000000000000000"},
            {record.substr(0, 1) + "\n", "cplc:800A" + std::string(80, '0') + "mac:0000000000000000"},
            {"", "cplc:" + std::string(84, '0') + "mac:0000000000000000"}, // nothing of the file before
        });
}

TEST_F(SecurityKeys, BindingKeyGoesToItsPartitionAndComesBack)
{
    const std::string key = std::string("bind\0key", 8) + std::string(248, 'b');
    EXPECT_EQ(ask(0xD200, 0, key).text, "OK");
    EXPECT_EQ(content(PARTITION), key);
    EXPECT_EQ(ask(0xD200, 0, "short").text, "OK");
    EXPECT_EQ(ask(0xD200, 0, std::string(257, 'x')).text, "ERROR");
    EXPECT_EQ(content(PARTITION), "short" + key.substr(5));
    expect_by_tool(
        0xD201, "dumpsys",
        {{"echo 'SERVICE'; echo ' [mBindKey]: 0123456789'", "0123456789"},
         {"echo '[mBindKey]: 01234567890123456789012345678901234'", "01234567890123456789012345678901"},
         {"echo '[mBindKey]:'", "match_kavophonebind_fail"}});
    EXPECT_EQ(ask_failing(1, 0xD201), "open_kavophonebind_fail");
    EXPECT_EQ(runs()[0], "dumpsys kavophonebind");
}

TEST_F(SecurityKeys, LogTellsNoMoreOfAKeyThanItsOwnLines)
{
    const std::string key = "S3CRET";
    tool("StoreKeybox", "cat $1");
    tool("hdcpprov", "cat " + std::string(CEK) + " " + PM + "; " + HDCP_SUCCESS);
    tool(OEMCRYPTO, "echo dev_id = ABC");
    tool("widevine_client", "echo PASS");
    tool("KmInstallKeybox", "cat $1; echo InstallKeybox is done");
    node(WIDEVINE, key);
    node(KEYMASTER, key);
    ask(0xD20A, 0, key);
    set_hdcp(key, key);
    ask(0xD215);
    ask(0xD200, 0, key);
    EXPECT_EQ(lines_with(key), strings(4, "[diag_cmd_write_file]:Enter!"));
    set_hdcp(key, key, 769); // refused: the store's answer is logged, not the key
    EXPECT_EQ(lines_with("data=" + key), strings());

    the_phone().log.clear();
    ask(0xD20B, 0, "argument");
    EXPECT_EQ(lines_with(key), strings());
    ask(0xD23C, 0, "argument");
    EXPECT_EQ(lines_with(key), strings(1, "[diag_cmd_set_keymaster_provison]:return"));
}

TEST(Secret, IsGoneAfterItsScope)
{
    alignas(secret<16>) unsigned char memory[sizeof(secret<16>)];
    auto *buffer = new (memory) secret<16>;
    memcpy(buffer->bytes, "0123456789abcdef", 16);
    buffer->~secret();
    EXPECT_TRUE(std::all_of(memory, memory + sizeof memory, [](unsigned char byte) { return byte == 0; }));
}
