// The routines that every command stands on: log, files, shell lines, deferred power actions.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/files.h"
#include "core/log.h"
#include "core/packet.h"
#include "core/power.h"
#include "core/shell.h"
#include "core/table.h"
#include "tests/fake_platform.h"

using Core = Phone;

TEST_F(Core, LineGoesToBothSinksWhateverItsLength)
{
    testing::internal::CaptureStdout();
    std::string long_text(70000, 'x');
    LOG("short %d\n", 7);
    LOG("%s\n", long_text.c_str());
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "[TestBody]:short 7\n[TestBody]:" + long_text + "\n");
    ASSERT_EQ(the_phone().log.size(), 2u);
    EXPECT_EQ(the_phone().log[0] + the_phone().log[1], out);
}

TEST_F(Core, ReadingTrimsOneLineFeedFromTheCountOnly)
{
    struct {
        const char *content;
        int max;
        int result;
    } cases[] = {{"1\n", 256, 1},   {"1", 256, 1},  {"\n", 256, 0}, {"", 256, 0},
                 {"1\n\n", 256, 2}, {"12\n", 2, 2}, {"12", 0, 0}};
    for (const auto &c : cases) {
        node("/sys/n", c.content);
        char buffer[256] = {};
        EXPECT_EQ(diag_cmd_read_file("/sys/n", c.max, buffer), c.result) << c.content;
        EXPECT_EQ(std::string(buffer), std::string(c.content).substr(0, static_cast<size_t>(c.max)));
    }

    char buffer[4] = {};
    node("/sys/n", "abcdefgh"); // fills the buffer: no terminator to be found
    EXPECT_EQ(diag_cmd_read_file("/sys/n", sizeof buffer, buffer), 4);
    EXPECT_TRUE(logged("[diag_cmd_read_file]:Read content:abcd,len:4\n"));
}

TEST_F(Core, ReadingFailsAsMinusOne)
{
    char buffer[8] = {};
    EXPECT_EQ(diag_cmd_read_file("/sys/missing", 8, buffer), -1);
    EXPECT_EQ(diag_cmd_read_file("/sys", 8, buffer), -1);
    EXPECT_EQ(diag_cmd_read_file(nullptr, 8, buffer), -1);
    EXPECT_EQ(diag_cmd_read_file("/sys", -1, buffer), -1);
    EXPECT_EQ(diag_cmd_read_file("/sys", 8, nullptr), -1);
    EXPECT_EQ(diag_cmd_read_file_new("/sys/missing", "1", 1, buffer), -1);
}

TEST_F(Core, ComparingReadTakesThePrefixAndLeavesAMismatchOpen)
{
    char buffer[256] = {};
    node("/sys/n", "10\n");
    EXPECT_EQ(diag_cmd_read_file_new("/sys/n", "1", 1, buffer), 1);
    EXPECT_EQ(diag_cmd_read_file_new("/sys/n", "10", 256, buffer), 2);
    EXPECT_EQ(diag_cmd_read_file_new("/sys/n", "2", 256, buffer), -1);
    EXPECT_TRUE(logged("[diag_cmd_read_file_new]:data is 10\n, cmp_data is 2, length is 1.\n"));
    descriptors_left_open = 1;
}

TEST_F(Core, WritingKeepsTheTailAndItsStrangeMode)
{
    mode_t before = umask(0);
    EXPECT_TRUE(diag_cmd_write_file("/data/new", 2, 256, "ab"));
    umask(before);
    struct stat status = {};
    stat("/data/new", &status);
    EXPECT_EQ(status.st_mode & 07777, 03146u);
    chmod("/data/new", 0644);

    node("/data/old", "12345");
    EXPECT_TRUE(diag_cmd_write_file("/data/old", 2, 2, "ab"));
    EXPECT_EQ(content("/data/old"), "ab345");
    EXPECT_TRUE(diag_cmd_write_file("/data/old", 0, 0, ""));
    EXPECT_EQ(content("/data/old"), "ab345");

    EXPECT_FALSE(diag_cmd_write_file("/data/none", 3, 2, "ab"));
    EXPECT_FALSE(diag_cmd_write_file("/data/none", 1, 2, "abc"));
    EXPECT_FALSE(diag_cmd_write_file("/data/none", 1, 2, nullptr));
    EXPECT_FALSE(exists("/data/none"));
    EXPECT_FALSE(diag_cmd_write_file("/none/here", 1, 2, "a"));
    EXPECT_FALSE(diag_cmd_write_file("/dev/full", 1, 2, "a"));
    EXPECT_TRUE(diag_cmd_write_file("/dev/null", 1, 2, "a"))
        << "a device that refuses fsync has taken the value";
}

static const std::string PREFIX =
    "export PATH=/sbin:/system/sbin:/system/bin:/system/xbin:/vendor/bin:/vendor/xbin; ";

TEST_F(Core, PrefixedLinesKeep685Characters)
{
    tool("/vendor/bin/probe", "exit 3");
    EXPECT_TRUE(diag_cmd_handle_system("probe 1")) << "the exit status is nobody's business";
    EXPECT_TRUE(logged("[my_popen]:new popen command is: " + PREFIX + "probe 1\n"));
    EXPECT_FALSE(diag_cmd_handle_system(nullptr));
    the_phone().failing_popen = 1;
    EXPECT_FALSE(diag_cmd_handle_system("true"));

    std::string command = "probe " + std::string(700, 'x');
    EXPECT_TRUE(diag_cmd_handle_system(command.c_str()));
    EXPECT_EQ(runs(), (strings{"/vendor/bin/probe 1", "/vendor/bin/" + command.substr(0, 685)}));
}

TEST_F(Core, SearchedOutputMatchesTheBeginningOfAnyLine)
{
    tool("probe", "echo one; echo two three");
    EXPECT_TRUE(diag_cmd_compare_msg("probe", "two"));
    EXPECT_FALSE(diag_cmd_compare_msg("probe", "three"));
    EXPECT_TRUE(diag_cmd_compare_msg("probe", ""));
    tool("probe", "");
    EXPECT_FALSE(diag_cmd_compare_msg("probe", ""));
    EXPECT_FALSE(diag_cmd_compare_msg("no-such-tool 2>/dev/null", "x"));
    the_phone().failing_popen = 1;
    EXPECT_FALSE(diag_cmd_compare_msg("true", ""));

    diag_quiet_flag = 1;
    the_phone().log.clear();
    EXPECT_TRUE(diag_cmd_compare_msg("echo x", "x"));
    EXPECT_TRUE(the_phone().log.empty());
    diag_quiet_flag = 0;
}

TEST_F(Core, SystemStatusIsDecoded)
{
    EXPECT_EQ(diag_cmd_system_send("exit 3"), 3);
    EXPECT_TRUE(logged("[diag_cmd_system_send]:cmd:exit 3, normal termination, exit status:[0]\n"));
    EXPECT_EQ(diag_cmd_system_send("kill -9 $$"), 9);
    EXPECT_TRUE(logged("[diag_cmd_system_send]:cmd:kill -9 $$,abnormal termination, signal num:[9]\n"));
    EXPECT_EQ(diag_cmd_system_send("true"), 0);
    EXPECT_EQ(diag_cmd_system_send(nullptr), -1);
}

static constexpr char PROCESS_HEADER[] =
    "echo 'USER            PID   PPID     VSZ    RSS WCHAN            ADDR S NAME'\n";

TEST_F(Core, ProcessListIsReadByColumns)
{
    int32_t ids[PROCESS_LIMIT] = {};
    uint8_t count = 9;
    tool("ps", std::string(PROCESS_HEADER) +
                   "echo 'root  41  1 0 0 0 0 S USERd'; echo lonely-USERd; echo 'x USER'");
    EXPECT_EQ(diag_get_processpid_by_name("USER", ids, &count), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(ids[0], 41);
    EXPECT_EQ(times_logged("[diag_get_processpid_by_name]:First Line!\n"), 2);
    EXPECT_TRUE(logged("[diag_get_processpid_by_name]:count52\n")) << "the code of the 4 of 41";

    the_phone().failing_popen = 1;
    EXPECT_EQ(diag_get_processpid_by_name("x", ids, &count), -1);
    EXPECT_EQ(count, 0);
    tool("ps", PROCESS_HEADER);
    EXPECT_EQ(diag_get_processpid_by_name("nothing", ids, &count), 256) << "grep's exit status 1";
    EXPECT_EQ(count, 0);

    for (auto [lines, counted] : {std::pair<int, int>{25, 25}, {255, 255}, {256, 255}, {300, 255}}) {
        tool("ps", "for i in $(seq " + std::to_string(lines) + "); do echo \"root $i d\"; done");
        diag_get_processpid_by_name("d", ids, &count);
        EXPECT_EQ(count, counted);
        EXPECT_EQ(ids[PROCESS_LIMIT - 1], 20);
    }
}

TEST_F(Core, KillSparesTheServiceAndNobodyElse)
{
    pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    std::string self = std::to_string(getpid());
    std::string victim = std::to_string(child);
    tool("ps", "echo 'root " + self + " victim'; echo 'root " + victim + " victim'");
    EXPECT_EQ(diag_kill_exist_process("victim"), 2);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
    EXPECT_TRUE(logged("[diag_kill_exist_process]:kill proc_cnt=2, pid=" + self + "!\n"));
    EXPECT_EQ(times_logged("[diag_kill_exist_process]:kill pid=" + self + "!\n"), 1)
        << "the first id is what is logged";
    tool("ps", "");
    EXPECT_EQ(diag_kill_exist_process("victim"), 0);
}

// A line longer than the buffer goes on as a line of its own, whose words are no ids: 0 and negative numbers
// would signal a whole group, the service's own among them.
TEST_F(Core, ProcessesWithoutAnIdAreNotKilled)
{
    tool("ps", "echo 'root word victim'; echo 'root 0 victim'; echo 'root -1 victim'");
    static volatile sig_atomic_t signals;
    signals = 0;
    auto before = signal(SIGTERM, [](int) { signals = signals + 1; });
    EXPECT_EQ(diag_kill_exist_process("victim"), 3);
    signal(SIGTERM, before);
    EXPECT_EQ(signals, 0);
    EXPECT_EQ(times_logged("[diag_kill_exist_process]:kill pid=0!\n"), 3);
}

TEST_F(Core, PowerActionsWaitAwakeAndThenAsk)
{
    struct {
        int kind;
        unsigned int command;
        const char *reason;
    } cases[] = {
        {0, 0xDEAD0002, "(none)"},
        {1, 0xDEAD0001, "(none)"},
        {2, 0xDEAD0003, "recovery"},
        {3, 0xDEAD0003, "bootloader"},
    };
    the_phone().reboot_result = -3; // the phone stays up: the lock is released and the service carries on
    for (const auto &c : cases)
        EXPECT_EQ(diag_platform_cmd_thread_create(c.kind), 0);
    EXPECT_EQ(diag_platform_cmd_thread_create(7), 0);
    EXPECT_EQ(diag_platform_cmd_thread_create(-1), 0);
    wait_for_reboots(4);

    auto reboots = the_phone().reboots;
    ASSERT_EQ(reboots.size(), 4u);
    EXPECT_EQ(reboots.back().command, 0xDEAD0002)
        << "the power-off waits longest, though it was asked for first";
    for (const auto &c : cases) {
        int matches = 0;
        for (const auto &r : reboots) {
            if (r.command != c.command || r.reason != c.reason)
                continue;
            matches++;
            EXPECT_EQ(r.flags, 0);
            EXPECT_TRUE(r.awake);
            double wait = c.kind == 0 ? 4 : 2;
            EXPECT_TRUE(r.seconds >= wait && r.seconds < wait + 1) << r.seconds;
        }
        EXPECT_EQ(matches, 1) << c.kind;
    }
    EXPECT_TRUE(the_phone().wake_locks.empty());
}

TEST_F(Core, WithoutABufferThereIsNoReplyAndNoAction)
{
    node("/data/n", "old");
    the_phone().allocation_fails = true;
    for (int i = 0; i < diag_command_table.count; i++) {
        uint16_t code = diag_command_table.entries[i].high;
        EXPECT_TRUE(ask_text(code, "/data/n+new", 1).null) << std::hex << code;
        const std::string &line = the_phone().log.back();
        EXPECT_NE(line.find("diagpkt_subsys_alloc failed"), std::string::npos) << std::hex << code << line;
        EXPECT_EQ(the_phone().allocated_codes.back(), code == 0x3801 ? 0x3808u : code);
    }
    EXPECT_EQ(content("/data/n"), "old");
    EXPECT_TRUE(the_phone().reboots.empty() && runs().empty());
}
