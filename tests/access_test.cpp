// Generic access to nodes, properties and shell lines.
#include "tests/fake_platform.h"

class Access : public Phone
{
};

TEST_F(Access, EveryAnswerHas775Bytes)
{
    node("/sys/n", "1\n");
    for (uint16_t code = 0xE600; code <= 0xE607; code++) {
        EXPECT_EQ(ask_text(code, "/sys/n+1").bytes.size(), 775u);
        EXPECT_EQ(ask(code).bytes.size(), 775u);
        EXPECT_EQ(the_phone().allocated_codes.back(), code);
    }
    descriptors_left_open = 0;
}

TEST_F(Access, DataLengthIsJudgedBeforeAnythingElse)
{
    node("/sys/n", "1\n");
    the_phone().properties["/sys/n"] = "1";
    tool("ps", "");
    struct {
        int length;
        const char *long_data;  // what commands with room for 512 bytes answer
        const char *short_data; // and those that split 256
    } cases[] = {{0, "ERROR", "ERROR"},     {1, "answer", "answer"},  {255, "answer", "answer"},
                 {256, "answer", "answer"}, {257, "answer", "ERROR"}, {512, "answer", "ERROR"},
                 {513, "ERROR", "ERROR"},   {65535, "ERROR", "ERROR"}};
    for (const auto &c : cases) {
        std::string line =
            "Command format error or data len[" + std::to_string(c.length) + "] is too long.\n";
        for (auto [code, name] : std::map<uint16_t, std::string>{{0xE600, "diag_cmd_read_node"},
                                                                 {0xE601, "diag_cmd_write_node"},
                                                                 {0xE602, "diag_cmd_get_prop"},
                                                                 {0xE603, "diag_cmd_set_prop"},
                                                                 {0xE604, "diag_cmd_excute_cmd"},
                                                                 {0xE605, "diag_cmd_excute_cmd_check"},
                                                                 {0xE606, "diag_cmd_get_cmd_result"},
                                                                 {0xE607, "diag_cmd_get_process_state"}}) {
            bool splits = code == 0xE601 || code == 0xE603 || code == 0xE605;
            the_phone().log.clear();
            response r = ask(code, 0, std::string("/sys/n\0", 7), c.length);
            bool refused = std::string(splits ? c.short_data : c.long_data) == "ERROR";
            EXPECT_EQ(logged("[" + name + "]:" + line), refused) << name << c.length;
            if (refused) {
                EXPECT_EQ(r.text, "ERROR");
            }
        }
    }
}

TEST_F(Access, NodeIsReadPlainlyOrCompared)
{
    struct {
        const char *content;
        uint8_t selector;
        const char *data;
        const char *answer;
        int left_open;
    } cases[] = {
        {"1\n", 0, "/sys/n", "1", 0},           {"1\n", 1, "/sys/n+1", "1", 0},
        {"0\n", 1, "/sys/n+1", "ERROR", 1},     {"10\n", 7, "/sys/n+1", "1", 0},
        {"", 0, "/sys/n", "ERROR", 0},          {"\n", 0, "/sys/n", "ERROR", 0},
        {"x\n", 0, "/sys/missing", "ERROR", 0}, {"x\n", 1, "/sys/n", "ERROR", 0},
        {"a+b\n", 1, "/sys/n+a+b+c+d", "a", 0}, {"a\nb\n", 0, "/sys/n", "a\nb", 0},
    };
    for (const auto &c : cases) {
        node("/sys/n", c.content);
        EXPECT_EQ(ask_text(0xE600, c.data, c.selector).text, c.answer) << c.data;
        descriptors_left_open += c.left_open;
    }
    node("/sys/n", std::string(300, 'x'));
    EXPECT_EQ(ask_text(0xE600, "/sys/n").text, std::string(256, 'x'));
    EXPECT_EQ(ask(0xE600, 1, "/sys/n+x+y", 10).text, "x") << "without a terminating zero";
    EXPECT_TRUE(logged("[diag_cmd_read_node]:delim_str [0]:/sys/n,len=6.\n"));
    EXPECT_TRUE(logged("[diag_cmd_read_node]:delim_str [2]:y,len=1.\n"));
    EXPECT_FALSE(logged("[diag_cmd_read_node]:delim_str [3]:c,len=1.\n")) << "a fourth piece has no slot";
    EXPECT_TRUE(logged("[diag_cmd_read_node]:read x form /sys/n succ.\n"));
    EXPECT_TRUE(logged("[diag_cmd_read_node]:read form /sys/missing fail.\n"));
}

TEST_F(Access, PieceMustFitItsSlot)
{
    node("/sys/n", std::string(300, 'x'));
    EXPECT_EQ(ask_text(0xE600, "/sys/n+" + std::string(255, 'x'), 1).text, std::string(255, 'x'));
    EXPECT_EQ(ask_text(0xE600, "/sys/n+" + std::string(256, 'x'), 1).text, "ERROR");
    EXPECT_EQ(ask_text(0xE600, std::string(256, 'x')).text, "ERROR");
    EXPECT_EQ(ask(0xE601, 0, std::string(256, 'x')).text, "ERROR") << "256 bytes without a zero or a plus";
}

TEST_F(Access, WriteLeavesTheTailAndTakesAnEmptyValue)
{
    node("/data/n", "12345");
    EXPECT_EQ(ask_text(0xE601, "/data/n+ab").text, "OK");
    EXPECT_EQ(content("/data/n"), "ab345");
    EXPECT_TRUE(logged("[diag_cmd_write_node]:delim_str[1]:ab, len=2.\n"));
    EXPECT_TRUE(logged("[diag_cmd_write_node]:write ab form /data/n succ.\n"));
    EXPECT_EQ(ask_text(0xE601, "/data/n").text, "OK");
    EXPECT_EQ(content("/data/n"), "ab345");
    EXPECT_EQ(ask_text(0xE601, "/none/n+1").text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_write_node]:write form /none/n fail.\n"));
}

TEST_F(Access, Properties)
{
    the_phone().properties = {{"ro.build.id", "X1"}, {"long", std::string(500, 'v')}};
    the_phone().refused_properties = {"ro.refused"};
    EXPECT_EQ(ask_text(0xE602, "ro.build.id").text, "X1");
    EXPECT_TRUE(logged("[diag_cmd_get_prop]:read ro.build.id , result is X1.\n"));
    EXPECT_EQ(ask_text(0xE602, "long").text, std::string(500, 'v'));
    EXPECT_EQ(ask_text(0xE602, "unset").text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_get_prop]:read  unset fail.\n"));

    EXPECT_EQ(ask_text(0xE603, "a.b+c").text, "OK");
    EXPECT_EQ(the_phone().properties["a.b"], "c");
    EXPECT_TRUE(logged("[diag_cmd_set_prop]:write c to a.b succ.\n"));
    EXPECT_EQ(ask_text(0xE603, "a.b+").text, "OK");
    EXPECT_EQ(the_phone().properties["a.b"], "");
    the_phone().properties["a.b"] = "c";
    EXPECT_EQ(ask_text(0xE603, "a.b").text, "OK");
    EXPECT_EQ(the_phone().properties["a.b"], "");
    EXPECT_EQ(ask_text(0xE603, "ro.refused+1").text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_set_prop]:write ro.refused fail.\n"));
}

TEST_F(Access, CommandIsRunToItsEnd)
{
    tool("/vendor/bin/probe", "sleep 0.2; echo x; exit 1");
    EXPECT_EQ(ask_text(0xE604, "probe; touch /tmp/done").text, "OK");
    EXPECT_TRUE(exists("/tmp/done"));
    EXPECT_TRUE(logged("[diag_cmd_excute_cmd]:excute probe; touch /tmp/done succ.\n"));
    EXPECT_EQ(ask_text(0xE604, "no-such-tool 2>/dev/null").text, "OK");

    EXPECT_EQ(ask_text(0xE605, "probe+x").text, "OK");
    EXPECT_EQ(ask_text(0xE605, "probe+y").text, "ERROR");
    EXPECT_TRUE(logged("[diag_cmd_excute_cmd_check]:excute probe to compare y fail.\n"));
}

TEST_F(Access, OutputIsJoinedAndClippedAt768)
{
    struct {
        const char *what;
        std::string command;
        std::string answer;
    } cases[] = {
        {"two lines", "echo a; echo b", "a\nb"},
        {"nothing", "true", ""},
        {"only a line feed", "echo", ""},
        {"a failing tool", "echo a; exit 1", "a"},
        {"no line feed at the end", "printf abc", "abc"},
        {"a line of 600", "printf %0600d 0", std::string(600, '0')},
        {"768 exactly", "printf %0768d 0", std::string(768, '0')},
        {"768 with the line feed", "printf '%0767d\\n' 0", std::string(767, '0')},
        {"769: the last piece is clipped", "printf %0769d 0", std::string(768, '0')},
        {"a line across the end", "printf '%0700d\\n' 0; printf %0100d 0",
         std::string(700, '0') + '\n' + std::string(67, '0')},
        {"far too much", "seq 100000", ""},
    };
    for (const auto &c : cases) {
        response r = ask_text(0xE606, c.command);
        if (c.command == "seq 100000") {
            EXPECT_EQ(r.length, 767);
            EXPECT_TRUE(
                logged("[diag_cmd_get_cmd_result]:return content's length is big than alloc size!\n"));
        } else {
            EXPECT_EQ(r.text, c.answer) << c.what;
        }
        EXPECT_EQ(r.bytes.size(), 775u);
    }
    EXPECT_TRUE(logged("[diag_cmd_get_cmd_result]:temp result length:2,data:a\n\n"));
    EXPECT_EQ(ask_text(0xE606, "echo $PATH").text.find("export"), std::string::npos);
}

TEST_F(Access, ProcessState)
{
    tool("ps", "echo 'root 12 1 0 0 0 0 S ftmdaemon'");
    EXPECT_EQ(ask_text(0xE607, "ftmdaemon").text, "EXSIT");
    EXPECT_TRUE(logged("[diag_cmd_get_process_state]:process ftmdaemon is exsit! \n"));
    EXPECT_EQ(ask_text(0xE607, "other").text, "NOT_EXSIT");
    EXPECT_TRUE(logged("[diag_cmd_get_process_state]:process other is not exsit! \n"));
}
