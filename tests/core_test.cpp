// The routines that every command stands on, where the transcripts do not reach.
#include <gtest/gtest.h>

#include <algorithm>

#include "core/files.h"
#include "core/log.h"
#include "core/power.h"
#include "core/shell.h"
#include "tests/canned/phone.h"

class Core : public testing::Test
{
  protected:
    void SetUp() override { boot({}); }
    void TearDown() override { EXPECT_TRUE(close_left_open().empty()); }

    static long times_logged(const std::string &line)
    {
        const auto &log = the_record().log;
        return std::count(log.begin(), log.end(), line + '\n');
    }
    static void tool(const std::string &line, const std::string &output, int status = 0)
    {
        the_phone().tools = {{line, {{output, status}}}};
    }
};

TEST_F(Core, LogGoesToBothSinksWhateverItsLength)
{
    const std::string text(70000, 'x');
    LOG("%s\n", text.c_str());
    the_phone().faults = {{FAIL_LOG_PART, 0}};
    LOG("in pieces %d\n", 7);
    EXPECT_EQ(the_record().out, "[TestBody]:" + text + "\n[TestBody]:in pieces 7\n");
    EXPECT_EQ(the_record().out, the_record().log[0] + the_record().log[1]);
    for (size_t room : {1011, 1012, 1013}) { // around what needs no memory
        the_phone().faults = {{FAIL_MALLOC, 0}};
        LOG("%s\n", text.substr(0, room).c_str());
        EXPECT_EQ(the_record().log.back(),
                  "[TestBody]:" + text.substr(0, std::min<size_t>(room, 1011)) + '\n');
    }
    for (canned_call fault : {FAIL_LOG, FAIL_LOG_NONE}) {
        the_phone().faults = {{fault, 0}};
        LOG("to the phone's log alone %d\n", fault);
        EXPECT_EQ(times_logged("[TestBody]:to the phone's log alone " + std::to_string(fault)), 1);
    }
}

TEST_F(Core, LogSparesStandardOutputThatNobodyReads)
{
    the_phone().nodes["/dev/null"].kind = canned_node::NULL_DEVICE;
    for (bool null : {true, false}) {
        the_record() = {};
        the_phone().null_output = null;
        log_spare_null_stdout();
        LOG("x\n");
        EXPECT_EQ(the_record().out.empty(), null);
        EXPECT_EQ(the_record().log.size(), 1U);
    }
}

TEST_F(Core, FilesAreNotTouchedWithoutARightLengthAndBuffer)
{
    char buffer[8] = {};
    EXPECT_EQ(diag_cmd_read_file(nullptr, 8, buffer), -1);
    EXPECT_EQ(diag_cmd_read_file("/proc/version", -1, buffer), -1);
    EXPECT_EQ(diag_cmd_read_file("/proc/version", 8, nullptr), -1);
    EXPECT_EQ(diag_cmd_read_file("/proc/version", 0, buffer), 0);
    EXPECT_FALSE(diag_cmd_write_file("/data/n", 3, 2, "ab"));
    EXPECT_FALSE(diag_cmd_write_file("/data/n", 1, 2, "abc"));
    EXPECT_FALSE(diag_cmd_write_file("/data/n", 1, 2, nullptr));
    EXPECT_EQ(times_logged("[diag_cmd_read_file]:content is abnormal!"), 3);
    EXPECT_EQ(times_logged("[diag_cmd_write_file]:content is abnormal!"), 3);
    EXPECT_EQ(times_logged("[diag_cmd_write_file]:Enter! write_length:1,max_length:2,content:(null)"), 1);
    EXPECT_FALSE(node_at("/data/n"));
    the_phone().faults = {{FAIL_FSYNC, 0}};
    EXPECT_TRUE(diag_cmd_write_file("/data/n", 2, 2, "ab"))
        << "a device that refuses fsync has taken the value";
}

TEST_F(Core, StatusOfALineIsDecoded)
{
    const struct {
        int status;
        int result;
        const char *line;
    } cases[] = {
        {0, 0, "[diag_cmd_system_send]:cmd:probe, normal termination, exit status:[0]"},
        {3 << 8, 3, "[diag_cmd_system_send]:cmd:probe, normal termination, exit status:[0]"},
        {9, 9, "[diag_cmd_system_send]:cmd:probe,abnormal termination, signal num:[9]"},
        {19 << 8 | 0x7F, 19, "[diag_cmd_system_send]:cmd:probe,process stopped, signal num:[0]"},
    };
    for (const auto &c : cases) {
        the_record() = {};
        tool("probe", "", c.status);
        EXPECT_EQ(diag_cmd_system_send("probe"), c.result);
        EXPECT_EQ(times_logged(c.line), 1);
    }
    EXPECT_EQ(diag_cmd_system_send(nullptr), -1);
    EXPECT_FALSE(diag_cmd_handle_system(nullptr));
    EXPECT_EQ(times_logged("[diag_cmd_system_send]:Cmd is NULL!"), 1);
    EXPECT_EQ(times_logged("[diag_cmd_handle_system]:Cmd is NULL!"), 1);
    the_phone().faults = {{FAIL_SYSTEM, 0}};
    EXPECT_EQ(diag_cmd_system_send("probe"), -1);
    EXPECT_EQ(times_logged("[diag_cmd_system_send]:cmd:probe, error:Resource temporarily unavailable"), 1);
}

TEST_F(Core, ProcessesAreCountedToTheByteAndKeptToTheLimit)
{
    for (auto [lines, counted] : {std::pair<int, int>{1, 1}, {25, 25}, {255, 255}, {256, 255}, {300, 255}}) {
        int32_t ids[PROCESS_LIMIT] = {};
        uint8_t count = 9;
        std::string list;
        for (int i = 1; i <= lines; i++)
            list += "root " + std::to_string(i) + " d\n";
        tool("ps -A| grep d", list, 256);
        EXPECT_EQ(diag_get_processpid_by_name("d", ids, &count), 256) << "the list's status";
        EXPECT_EQ(count, counted);
        EXPECT_EQ(ids[PROCESS_LIMIT - 1], lines < PROCESS_LIMIT ? 0 : 20);
    }
}

// A line longer than the buffer goes on as a line of its own, whose words are no ids: 0 and negative numbers
// would signal a whole group, the service's own among them.
TEST_F(Core, KillSparesTheServiceAndWhoeverHasNoId)
{
    tool("ps -A| grep v", "root 4711 v\nroot 12 v\nroot word v\nroot 0 v\nroot -1 v\nroot 1 v\n");
    EXPECT_EQ(diag_kill_exist_process("v"), 6);
    EXPECT_EQ(the_record().deeds,
              (std::vector<std::string>{"signal 15 to process 12", "signal 15 to process 1"}));
    EXPECT_EQ(times_logged("[diag_kill_exist_process]:kill proc_cnt=6, pid=4711!"), 1);
    EXPECT_EQ(times_logged("[diag_kill_exist_process]:kill pid=4711!"), 5)
        << "the first id is what is logged";

    std::string many;
    for (int i = 1; i <= 21; i++)
        many += "root " + std::to_string(i) + " v\n";
    the_record() = {};
    tool("ps -A| grep v", many);
    EXPECT_EQ(diag_kill_exist_process("v"), 21);
    EXPECT_EQ(the_record().deeds.size(), 20U);
}

TEST_F(Core, UnknownPowerActionsDoNothing)
{
    for (int kind : {-1, 4, 7}) {
        EXPECT_EQ(diag_platform_cmd_thread_create(kind), 0);
        EXPECT_EQ(times_logged("[diag_platform_cmd_thread_create]:Default! Cmd=" + std::to_string(kind)), 1);
    }
    EXPECT_EQ(the_record().counts[FAIL_THREAD], 0);
}
