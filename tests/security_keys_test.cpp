// Security state and keys. The tools that install or report keys are scripts of each test; what they are
// given, which key files are there afterwards and what the log tells of a key is what matters.
#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "commands/security_keys_secret.h"
#include "tests/fake_platform.h"

static constexpr char KEYBOX[] = "/data/keybox.bin";
static constexpr char CEK[] = "/mnt/vendor/persist/CEK.txt";
static constexpr char PM[] = "/mnt/vendor/persist/PM.out";
static constexpr char PARTITION[] = "/dev/block/bootdevice/by-name/nuroconfig";
static constexpr char HDCP_SUCCESS[] = "echo 'provisioning test finished with return code: 0x0'";

// The line that cannot be started, counted from 1; 0: all can.
static int failing_popen = 0;

extern "C" FILE *popen(const char *line, const char *mode)
{
    static auto *real = reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "popen"));
    if (failing_popen > 0 && --failing_popen == 0)
        return nullptr;
    return real(line, mode);
}

static std::string u16(size_t value)
{
    return {static_cast<char>(value & 255), static_cast<char>(value >> 8)};
}

class SecurityKeys : public Phone
{
  protected:
    void SetUp() override
    {
        failing_popen = 0;
        for (const char *path : {KEYBOX, CEK, PM, PARTITION, "/data/widevine.xml", "/data/keybox.xml",
                                 "/data/cplc_info", "/data/secure_boot"})
            remove(path);
        node(PARTITION, "");
        Phone::SetUp();
    }

    // The lengths are told as they are, if not given.
    static response set_hdcp(const std::string &cek, const std::string &pm, int cek_length = -1,
                             int pm_length = -1)
    {
        size_t pm_told = pm_length < 0 ? pm.size() : static_cast<size_t>(pm_length);
        return ask(0xD214, 0, u16(pm_told) + cek + pm,
                   cek_length < 0 ? static_cast<int>(cek.size()) : cek_length);
    }

    // The names of the log lines that hold `text`, up to the first blank.
    static std::vector<std::string> lines_with(const std::string &text)
    {
        std::vector<std::string> found;
        for (const std::string &line : the_phone().log)
            if (line.find(text) != std::string::npos)
                found.push_back(line.substr(0, line.find(' ')));
        return found;
    }
};

using strings = std::vector<std::string>;

TEST_F(SecurityKeys, SecureBootByProperty)
{
    const struct {
        const char *value, *answer, *log;
    } rows[] = {
        {"1", "OK", "Secure boot succ\n"},
        {"1 green", "OK", "Secure boot succ\n"},
        {"0", "ERROR", "Not secure boot\n"},
        {"", "ERROR", "Get secure_prop failed\n"},
    };
    for (const auto &row : rows) {
        the_phone().properties["ro.boot.secureboot"] = row.value;
        EXPECT_EQ(ask(0xC800, 1).text, row.answer) << row.value;
        EXPECT_EQ(the_phone().log.back(), std::string("[diag_cmd_check_secure_boot]:") + row.log);
    }
    EXPECT_TRUE(logged("[diag_cmd_check_secure_boot]:diag_rsp data_length=7,secure_prop=1 green\n"));
}

TEST_F(SecurityKeys, SecureBootByFuse)
{
    const struct {
        const char *script, *answer;
        int short_reads; // so far
    } rows[] = {
        {"echo '00780350: 00303030'", "OK", 0},
        {"print -n '00780350: 00303030 and more'", "OK", 0},
        {"print -n '00780350: 0030303'", "ERROR", 1}, // 17 bytes
        {"true", "ERROR", 2},
        {"echo '00780350: 00303040'", "ERROR", 2},
        {"echo '00780350: 00303030' >&2; exit 1", "OK", 2}, // both outputs count, the status does not
    };
    for (const auto &row : rows) {
        tool("/system/bin/r", row.script);
        EXPECT_EQ(ask(0xC800).text, row.answer) << row.script;
        EXPECT_FALSE(exists("/data/secure_boot")) << row.script;
        EXPECT_EQ(times_logged("[diag_cmd_check_secure_boot]:/data/secure_boot compare fail.cmp_rst=-1\n"),
                  row.short_reads);
    }
    EXPECT_TRUE(logged("[diag_cmd_check_secure_boot]:Read secure_boot content:00780350: 00303030..18!\n"));
    EXPECT_TRUE(logged("[diag_cmd_check_secure_boot]:00780350: 00303030,device has secure boot succ!!\n"));
    EXPECT_EQ(runs().back(), "/system/bin/r 0x00780350");
}

TEST_F(SecurityKeys, SecureBootByFuseNeedsItsCleanUp)
{
    tool("/system/bin/r", "echo '00780350: 00303030'");
    failing_popen = 2;
    EXPECT_EQ(ask(0xC800).text, "ERROR");
    EXPECT_TRUE(exists("/data/secure_boot"));
    EXPECT_TRUE(logged("[diag_cmd_check_secure_boot]:remove /data/secure_boot fail.\n"));

    failing_popen = 1; // nothing is read, nothing removed
    EXPECT_EQ(ask(0xC800).text, "ERROR");
    EXPECT_TRUE(exists("/data/secure_boot"));
    EXPECT_EQ(the_phone().log.back(), "[diag_cmd_check_secure_boot]:Not secure boot\n");
}

TEST_F(SecurityKeys, RpmbKeyIsWrittenOnceAndOnlyWhenThereIsNone)
{
    // The client's answers to a status question before and after, and to the provisioning.
    const struct {
        const char *before, *set, *after, *answer, *menu, *last_log;
    } rows[] = {
        {"status RPMB_KEY_PROVISIONED_AND_OK", "", "", "OK", "2", "rpmb key has provisioned\n"},
        {"RPMB_KEY_NOT_PROVISIONED", "RPMB key provisioning completed", "RPMB_KEY_PROVISIONED_AND_OK", "OK",
         "202", "RPMB_KEY_PROVISIONED_AND_OK\n\n"},
        {"RPMB_KEY_NOT_PROVISIONED", "RPMB key provisioning failed", "RPMB_KEY_PROVISIONED_AND_OK", "ERROR",
         "20", "rpmb key provisioning failed\n"},
        {"RPMB_KEY_NOT_PROVISIONED", "RPMB key provisioning completed", "RPMB_KEY_NOT_PROVISIONED", "ERROR",
         "202", "RPMB_KEY_NOT_PROVISIONED\n\n"},
        {"RPMB_KEY_NOT_PROVISIONED", "RPMB key provisioning completed", "?", "ERROR", "202",
         "step 3 not get right feed back\n"},
        {"RPMB_KEY_NOT_PROVISIONED", "?", "", "ERROR", "20", "step 2 not get right feed back\n"},
        {"?", "", "", "ERROR", "2", "step 1 not get right feed back\n"},
    };
    for (const auto &row : rows) {
        remove("/data/menu");
        remove("/data/set");
        tool("qseecom_sample_client", std::string("read n; print -n $n >>/data/menu; echo hello\n") +
                                          "if [ $n = 0 ]; then echo '" + row.set + "'; : >/data/set\n" +
                                          "elif [ -e /data/set ]; then echo '" + row.after +
                                          "'\nelse echo '" + row.before + "'; fi");
        EXPECT_EQ(ask(0xC801).text, row.answer);
        EXPECT_EQ(content("/data/menu"), row.menu);
        EXPECT_EQ(the_phone().log.back(), std::string("[diag_cmd_set_rpmb_key_status]:") + row.last_log);
    }
    EXPECT_EQ(runs().front(), "qseecom_sample_client v smplap64 14 1");
    failing_popen = 1;
    EXPECT_EQ(ask(0xC801).text, "ERROR");
}

TEST_F(SecurityKeys, LockStateIsTheProperty)
{
    EXPECT_EQ(ask(0xC802).text, "");
    the_phone().properties["ro.secureboot.lockstate"] = "locked";
    EXPECT_EQ(ask(0xC802).text, "locked");
    the_phone().unreadable_properties.insert("ro.secureboot.lockstate");
    EXPECT_EQ(ask(0xC802).text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_check_lock_state]:property_get len=-1, get error!\n"));
}

static constexpr char OEMCRYPTO[] = "/system/bin/oemcrypto_test";

TEST_F(SecurityKeys, KeyboxIsStoredAndTheDeviceIdComesBack)
{
    const struct {
        const char *output, *answer, *data;
    } rows[] = {
        {"echo 'Version 15'; echo 'got dev_id = ABC'", "ABC", "ABC\n"},
        {"print -n 'dev_id = ABC'", "ABC", "ABC"},
        {"echo 'dev_id = 0123456789012345678901234567890'", "0123456789012345678901234567890",
         "0123456789012345678901234567890\n"},
        {"echo 'dev_id = 01234567890123456789012345678901'", "01234567890123456789012345678901",
         "01234567890123456789012345678901"},
        {"echo 'dev_id = '", "", "\n"},
        {"echo 'dev_id: ABC'", "match_device_id_fail", "match_device_id_fail"},
    };
    std::string key = std::string("key\0box", 7) + std::string(761, 'k'); // 768 bytes, a zero among them
    tool("StoreKeybox", "cat $1 >/data/stored");
    for (const auto &row : rows) {
        tool(OEMCRYPTO, row.output);
        response answer = ask(0xD20A, 9, key);
        EXPECT_EQ(answer.text, row.answer) << row.output;
        EXPECT_STREQ(answer.data.c_str(), row.data) << row.output;
        EXPECT_EQ(content("/data/stored"), key);
        EXPECT_FALSE(exists(KEYBOX));
    }
    EXPECT_EQ(runs()[0], "StoreKeybox /data/keybox.bin");
    EXPECT_EQ(runs()[1],
              "/system/bin/oemcrypto_test "
              "--gtest_filter=OEMCryptoClientTest.VersionNumber:OEMCryptoClientTest.NormalGetDeviceId");
    EXPECT_TRUE(logged("[diag_cmd_set_query_widevine]:system oemcrypto_test len:12,data:dev_id = ABC\n"));
}

TEST_F(SecurityKeys, KeyboxFailures)
{
    tool("StoreKeybox", "cat $1 >/data/stored");
    tool(OEMCRYPTO, "echo 'dev_id = ABC'");
    const struct {
        int failing, length;
        const char *answer, *log;
        bool file_left;
    } rows[] = {
        {0, 769, "store_file_fail", "Store widevine key file failed!\n", false},
        {0, 65535, "store_file_fail", "Store widevine key file failed!\n", false},
        {1, 3, "write_key_fail", "remove /data/keybox.bin succ\n", false},
        {2, 3, "delete_file_fail", "Delete keybox.bin failed!\n", true},
        {3, 3, "open_oemcrypro_fail", "Open oemcrypro failed!\n", false},
    };
    for (const auto &row : rows) {
        failing_popen = row.failing;
        EXPECT_EQ(ask(0xD20A, 0, "key", row.length).text, row.answer);
        EXPECT_EQ(the_phone().log.back(), std::string("[diag_cmd_set_query_widevine]:") + row.log);
        EXPECT_EQ(exists(KEYBOX), row.file_left) << row.answer;
    }
    EXPECT_EQ(times_logged("[diag_cmd_write_file]:content is abnormal!\n"), 2);
    remove(KEYBOX);
    tool("StoreKeybox", "exit 1"); // its own failure is not seen
    EXPECT_EQ(ask(0xD20A, 0, "key").text, "ABC");
}

TEST_F(SecurityKeys, WidevineInstallFromFile)
{
    EXPECT_EQ(ask(0xD20B, 0, "42").text, "NOT_EXSIT");
    EXPECT_TRUE(logged("[diag_cmd_set_widevine_key]:/data/widevine.xml is not exsit.\n"));

    tool("widevine_client", "cat $1; [ $2 = 42 ] && echo 'PASS now'");
    node("/data/widevine.xml", "keys\n");
    EXPECT_EQ(ask(0xD20B, 0, "43").text, "ERROR");
    EXPECT_EQ(the_phone().log.back(), "[diag_cmd_set_widevine_key]:set keymaster fail.\n");
    EXPECT_TRUE(exists("/data/widevine.xml"));

    EXPECT_EQ(ask(0xD20B, 0, "4242", 2).text, "OK"); // the argument ends where its length does
    EXPECT_TRUE(
        logged("[diag_cmd_set_widevine_key]:send command is widevine_client /data/widevine.xml 42.\n"));
    EXPECT_FALSE(exists("/data/widevine.xml"));

    node("/data/widevine.xml", "keys\n");
    failing_popen = 2;
    EXPECT_EQ(ask(0xD20B, 0, "42").text, "ERROR");
    EXPECT_TRUE(exists("/data/widevine.xml"));

    std::string head = "widevine_client /data/widevine.xml "; // the line is cut at 255 characters
    ask(0xD20B, 0, std::string(300, 'a'));
    EXPECT_EQ(runs().back(), head + std::string(255 - head.size(), 'a'));
}

TEST_F(SecurityKeys, HdcpKeysAreWrittenEachByItsOwnBytes)
{
    const struct {
        size_t cek, pm;
        const char *answer;
        bool cek_left, pm_left;
    } rows[] = {
        {16, 40, "OK", true, true},
        {768, 768, "OK", true, true}, // one's bytes do not count into the other's check
        {0, 1, "OK", true, true},
        {769, 16, "store_CEK_fail", false, false},
        {60000, 60000, "store_CEK_fail", false, false},
        {16, 769, "store_PM_fail", false, false},
    };
    tool("hdcpprov", HDCP_SUCCESS);
    for (const auto &row : rows) {
        remove(CEK);
        remove(PM);
        std::string cek(row.cek, '\xC0');
        std::string pm(row.pm, '\xD1');
        if (row.cek > 2)
            cek[1] = '\0';
        EXPECT_EQ(set_hdcp(row.cek > 1000 ? "" : cek, row.pm > 1000 ? "" : pm, static_cast<int>(row.cek),
                           static_cast<int>(row.pm))
                      .text,
                  row.answer);
        EXPECT_EQ(content(CEK), row.cek_left ? cek : "(missing)") << row.cek;
        EXPECT_EQ(content(PM), row.pm_left ? pm : "(missing)") << row.pm;
    }
    EXPECT_TRUE(logged("[diag_cmd_set_hdcp_key]:Store CEK.txt fail,len=14,data=store_CEK_fail\n"));
    EXPECT_TRUE(logged("[diag_cmd_set_hdcp_key]:Store PM.out fail,len=13,data=store_PM_fail\n"));
}

TEST_F(SecurityKeys, HdcpFailuresAndWhatTheyLeave)
{
    node(CEK, "old");
    node(PM, "old");
    EXPECT_EQ(set_hdcp("new", "new", 3, 769).text, "store_PM_fail");
    EXPECT_FALSE(exists(CEK));
    EXPECT_EQ(content(PM), "old"); // the path that is removed is another

    failing_popen = 1;
    EXPECT_EQ(set_hdcp("new", "new", 3, 769).text, "ERROR");
    EXPECT_EQ(content(CEK), "new");
    failing_popen = 1;
    EXPECT_EQ(set_hdcp("more", "new", 769).text, "ERROR");
    EXPECT_EQ(the_phone().log.back(), "[diag_cmd_set_hdcp_key]:remove /mnt/vendor/persist/CEK.txt fail\n");
    EXPECT_EQ(content(CEK), "new");

    for (const char *output : {"exit 0", "echo 'provisioning test finished with return code: 0x'",
                               "echo ' provisioning test finished with return code: 0x0'"}) {
        tool("hdcpprov", output);
        EXPECT_EQ(set_hdcp("key", "pm!").text, "exec_hdcpprov_fail") << output;
        EXPECT_EQ(content(CEK) + content(PM), "keypm!");
    }
    failing_popen = 1;
    EXPECT_EQ(set_hdcp("key", "pm!").text, "exec_hdcpprov_fail");
    EXPECT_EQ(the_phone().log.back(),
              "[diag_cmd_set_hdcp_key]:Exec hdcpprov fail,len=18,data=exec_hdcpprov_fail\n");
    EXPECT_EQ(times_logged("[diag_exec_hdcpprov]:Exec hdcpprov failed!\n"), 4);
}

TEST_F(SecurityKeys, HdcpQueryCountsTheProvisionedFilesAndCleansUp)
{
    const struct {
        const char *hdcpprov, *count;
        int failing;
        const char *answer;
        bool files_left;
    } rows[] = {
        {HDCP_SUCCESS, "6", 0, "OK", false},
        {HDCP_SUCCESS, "60", 0, "OK", false}, // the first digit is what is looked at
        {HDCP_SUCCESS, "16", 0, "ERROR", true},
        {HDCP_SUCCESS, "5", 0, "ERROR", true},
        {HDCP_SUCCESS, "1\n6", 0, "OK", false},
        {"exit 0", "6", 0, "ERROR", true},
        {HDCP_SUCCESS, "6", 2, "ERROR", true}, // sync
        {HDCP_SUCCESS, "6", 3, "ERROR", true}, // the listing
        {HDCP_SUCCESS, "6", 4, "ERROR", true}, // the removal
    };
    for (const auto &row : rows) {
        node(CEK, "key");
        node(PM, "pm");
        tool("hdcpprov", row.hdcpprov);
        tool("wc", std::string("cat >/dev/null; echo '") + row.count + "'");
        failing_popen = row.failing;
        EXPECT_EQ(ask(0xD215).text, row.answer) << row.count << row.failing;
        EXPECT_EQ(exists(CEK), row.files_left) << row.count << row.failing;
        EXPECT_EQ(exists(PM), row.files_left) << row.count << row.failing;
    }
    EXPECT_TRUE(logged("[diag_cmd_query_hdcp_key]:temp=16\n!\n"));
    EXPECT_EQ(times_logged("[diag_cmd_query_hdcp_key]:Query hdcp failed!exec_hdcp=0\n"), 5);
    EXPECT_EQ(times_logged("[diag_cmd_query_hdcp_key]:Query hdcp failed!exec_hdcp=-1\n"), 1);
}

TEST_F(SecurityKeys, KeymasterInstall)
{
    EXPECT_EQ(ask(0xD23C, 0, "dev1").text, "NOT_EXSIT");
    const struct {
        const char *output;
        int failing;
        const char *answer, *log;
        bool file_left;
    } rows[] = {
        {"echo start; echo '> InstallKeybox is done!'", 0, "OK", "set keymaster success.\n", false},
        {"echo 'InstallKeybox Failed'; echo 'InstallKeybox is done'", 0, "ERROR", "set keymaster fail.\n",
         true},
        {"echo nothing", 0, "ERROR", "set keymaster fail.\n", true},
        {"echo 'InstallKeybox is done'", 1, "ERROR",
         "send LD_LIBRARY_PATH=/vendor/lib64/hw KmInstallKeybox /data/keybox.xml dev1 true fail \n", true},
        {"echo 'InstallKeybox is done'", 2, "ERROR", "remove /data/keybox.xml fail.\n", true},
    };
    for (const auto &row : rows) {
        node("/data/keybox.xml", "keys");
        tool("KmInstallKeybox", std::string("echo \"$LD_LIBRARY_PATH\"\n") + row.output);
        failing_popen = row.failing;
        EXPECT_EQ(ask(0xD23C, 0, "dev1junk", 4).text, row.answer) << row.output;
        EXPECT_EQ(the_phone().log.back(), std::string("[diag_cmd_set_keymaster_provison]:") + row.log);
        EXPECT_EQ(exists("/data/keybox.xml"), row.file_left) << row.output;
    }
    EXPECT_EQ(runs()[0], "KmInstallKeybox /data/keybox.xml dev1 true");
    EXPECT_TRUE(logged("[diag_cmd_set_keymaster_provison]:return massege is /vendor/lib64/hw\n.\n"));
}

TEST_F(SecurityKeys, WechatKeyIsTheWholeOutput)
{
    std::string line = std::string(99, 'w') + "\n";
    std::string key;
    for (int i = 0; i < 10; i++)
        key += line;
    node("/data/key", key);
    const struct {
        int size, length;
    } rows[] = {{0, 0}, {100, 100}, {767, 767}, {768, 768}, {769, 767}, {800, 767}, {900, 767}};
    for (const auto &row : rows) {
        tool("soter_client", "head -c " + std::to_string(row.size) + " /data/key");
        response answer = ask(0xD21E);
        EXPECT_EQ(answer.bytes.size(), 775u);
        EXPECT_EQ(answer.length, row.length) << row.size;
        size_t held = std::min<size_t>(static_cast<size_t>(row.size), 768);
        EXPECT_EQ(answer.data, key.substr(0, held) + std::string(768 - held, '\0')) << row.size;
    }
    EXPECT_EQ(times_logged("[diag_cmd_get_wechat_key]:write file size overflow alloc size!\n"), 3);
    EXPECT_TRUE(logged("[diag_cmd_get_wechat_key]:write length:100,data:" + line + "\n"));
    failing_popen = 1;
    EXPECT_EQ(ask(0xD21E).text, "ERROR");
    EXPECT_EQ(the_phone().log.back(), "[diag_cmd_get_wechat_key]:write failed! popen SOTER_CLIENT:0\n");
}

TEST_F(SecurityKeys, AlipayKeyIsVerified)
{
    const struct {
        const char *output;
        int failing;
        const char *answer;
    } rows[] = {
        {"echo loading; echo 'PASS and more'", 0, "OK"},
        {"echo ' PASS'; echo FAIL", 0, "ERROR"},
        {"exit 0", 0, "ERROR"},
        {"echo PASS", 1, "ERROR"},
    };
    for (const auto &row : rows) {
        tool("/vendor/bin/key_client", row.output);
        failing_popen = row.failing;
        EXPECT_EQ(ask(0xD228).text, row.answer) << row.output;
    }
    EXPECT_EQ(runs()[0], "/vendor/bin/key_client --load ifaa");
    EXPECT_TRUE(logged("[diag_cmd_get_alipay_key]:fgets cmp_key_ret=0,alipay_temp:PASS and more\n\n"));
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
    const struct {
        std::string file, answer;
    } rows[] = {
        {record, "cplc:" + digits + "mac:AAABACADAEAFB0B1"},
        {record + "more\n", "cplc:" + digits + "mac:AAABACADAEAFB0B1"},
        {zeroes, "cplc:00" + digits.substr(2) + "mac:AAABACADAEAFB000"},
        {record.substr(0, 49) + "\n", "cplc:" + digits + "mac:AAABACADAEAFB0"},
        {record.substr(0, 41) + "\n" + record.substr(42), // the line ends there
         "cplc:" + digits.substr(0, 82) + "mac:0000000000000000"},
        {record.substr(0, 1) + "\n", "cplc:800A" + std::string(80, '0') + "mac:0000000000000000"},
        {"", "cplc:" + std::string(84, '0') + "mac:0000000000000000"}, // nothing of the file before is left
    };
    for (const auto &row : rows) {
        node("/data/cplc_info", row.file);
        EXPECT_EQ(ask(0xD232).text, row.answer);
    }
    EXPECT_TRUE(logged("[diag_cmd_get_cplc_key]:Get cplc succ,len=109,data:" + rows[0].answer + "\n"));
}

TEST_F(SecurityKeys, BindingKeyGoesToItsPartition)
{
    std::string key = std::string("bind\0key", 8) + std::string(248, 'b');
    EXPECT_EQ(ask(0xD200, 0, key).text, "OK");
    EXPECT_EQ(content(PARTITION), key);
    EXPECT_TRUE(logged("[diag_cmd_set_kavophonebind]:write ret:0\n"));
    EXPECT_EQ(ask(0xD200, 0, "short").text, "OK");
    EXPECT_EQ(content(PARTITION), "short" + key.substr(5));

    EXPECT_EQ(ask(0xD200, 0, std::string(257, 'x')).text, "ERROR");
    EXPECT_EQ(the_phone().log.back(), "[diag_cmd_set_kavophonebind]:write failed! ret:65535\n");
    EXPECT_EQ(content(PARTITION), "short" + key.substr(5));
}

TEST_F(SecurityKeys, BindingKeyIsReadBack)
{
    const struct {
        const char *output;
        int failing;
        const char *answer;
    } rows[] = {
        {"echo 'SERVICE'; echo ' [mBindKey]: 0123456789'", 0, "0123456789"},
        {"echo '[mBindKey]: 01234567890123456789012345678901234'", 0, "01234567890123456789012345678901"},
        {"echo '[mBindKey]:'", 0, "match_kavophonebind_fail"},
        {"exit 0", 1, "open_kavophonebind_fail"},
    };
    for (const auto &row : rows) {
        tool("dumpsys", row.output);
        failing_popen = row.failing;
        EXPECT_EQ(ask(0xD201).text, row.answer);
    }
    EXPECT_EQ(runs()[0], "dumpsys kavophonebind");
    EXPECT_TRUE(logged("[diag_cmd_query_kavophonebind]:kavophone len:24,key: [mBindKey]: 0123456789\n\n"));
}

TEST_F(SecurityKeys, LogTellsNoMoreOfAKeyThanItsOwnLines)
{
    const std::string key = "S3CRET";
    tool("StoreKeybox", "cat $1");
    tool("hdcpprov", "cat " + std::string(CEK) + " " + PM + "; " + HDCP_SUCCESS);
    tool(OEMCRYPTO, "echo dev_id = ABC");
    tool("widevine_client", "echo PASS");
    tool("KmInstallKeybox", "cat $1; echo InstallKeybox is done");
    node("/data/widevine.xml", key);
    node("/data/keybox.xml", key);

    ask(0xD20A, 0, key);
    ask(0xD214, 0, u16(6) + key + key, 6);
    ask(0xD215);
    ask(0xD200, 0, key);
    EXPECT_EQ(lines_with(key), strings(4, "[diag_cmd_write_file]:Enter!"));
    ask(0xD214, 0, u16(6) + key + key, 769); // refused: the store's answer is logged, not the key
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
