// Generic access to nodes, properties and shell lines.
#include "tests/fake_platform.h"

using Access = Phone;

TEST_F(Access, EveryAnswerHas775Bytes)
{
    node("/sys/n", "1\n");
    for (uint16_t code = 0xE600; code <= 0xE607; code++) {
        EXPECT_EQ(ask_text(code, "/sys/n+1").bytes.size(), 775u);
        EXPECT_EQ(ask(code).bytes.size(), 775u);
        EXPECT_EQ(the_phone().allocated_codes.back(), code);
    }
}

TEST_F(Access, DataLengthIsJudgedBeforeAnythingElse)
{
    node("/sys/n", "1\n");
    the_phone().properties["/sys/n"] = "1";
    tool("ps", "");
    const struct {
        int length;
        bool fits, fits_split; // the commands with room for 512 bytes, and those that split 256
    } cases[] = {{0, false, false},  {1, true, true},    {255, true, true},   {256, true, true},
                 {257, true, false}, {512, true, false}, {513, false, false}, {65535, false, false}};
    for (const auto &c : cases) {
        for (uint16_t code = 0xE600; code <= 0xE607; code++) {
            the_phone().log.clear();
            response r = ask(code, 0, std::string("/sys/n\0", 7), c.length);
            bool fits = code == 0xE601 || code == 0xE603 || code == 0xE605 ? c.fits_split : c.fits;
            std::string log;
            for (const std::string &line : the_phone().log)
                log += line;
            EXPECT_EQ(log.find("Command format error or data len[" + std::to_string(c.length)) == log.npos,
                      fits)
                << code << log;
            EXPECT_TRUE(fits || r.text == "ERROR");
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
    EXPECT_EQ(ask_text(0xE601, "/data/n").text, "OK");
    EXPECT_EQ(content("/data/n"), "ab345");
    EXPECT_EQ(ask_text(0xE601, "/none/n+1").text, "ERROR");
}

TEST_F(Access, Properties)
{
    the_phone().properties = {{"ro.build.id", "X1"}, {"long", std::string(500, 'v')}};
    the_phone().refused_properties = {"ro.refused"};
    EXPECT_EQ(ask_text(0xE602, "ro.build.id").text, "X1");
    EXPECT_EQ(ask_text(0xE602, "long").text, std::string(500, 'v'));
    EXPECT_EQ(ask_text(0xE602, "unset").text, "ERROR");

    EXPECT_EQ(ask_text(0xE603, "a.b+c").text, "OK");
    EXPECT_EQ(the_phone().properties["a.b"], "c");
    EXPECT_EQ(ask_text(0xE603, "a.b+").text, "OK");
    EXPECT_EQ(the_phone().properties["a.b"], "");
    the_phone().properties["a.b"] = "c";
    EXPECT_EQ(ask_text(0xE603, "a.b").text, "OK");
    EXPECT_EQ(the_phone().properties["a.b"], "");
    EXPECT_EQ(ask_text(0xE603, "ro.refused+1").text, "ERROR");
}

TEST_F(Access, CommandIsRunToItsEnd)
{
    tool("/vendor/bin/probe", "sleep 0.2; echo x; exit 1");
    EXPECT_EQ(ask_text(0xE604, "probe; touch /tmp/done").text, "OK");
    EXPECT_TRUE(exists("/tmp/done"));
    EXPECT_EQ(ask_text(0xE604, "no-such-tool 2>/dev/null").text, "OK");

    EXPECT_EQ(ask_text(0xE605, "probe+x").text, "OK");
    EXPECT_EQ(ask_text(0xE605, "probe+y").text, "ERROR");
}

TEST_F(Access, OutputIsJoinedAndClippedAt768)
{
    struct {
        std::string command, answer;
    } cases[] = {
        {"echo a; echo b", "a\nb"},
        {"true", ""},
        {"echo", ""},
        {"echo a; exit 1", "a"},
        {"printf abc", "abc"},
        {"printf %0600d 0", std::string(600, '0')},
        {"printf %0768d 0", std::string(768, '0')},
        {"printf '%0767d\\n' 0", std::string(767, '0')},
        {"printf %0769d 0", std::string(768, '0')},
        {"printf '%0700d\\n' 0; printf %0100d 0", std::string(700, '0') + '\n' + std::string(67, '0')},
    };
    for (const auto &c : cases)
        EXPECT_EQ(ask_text(0xE606, c.command).text, c.answer) << c.command;
    EXPECT_EQ(ask_text(0xE606, "seq 100000").length, 767);
    EXPECT_EQ(ask_text(0xE606, "echo $PATH").text.find("export"), std::string::npos);
}

TEST_F(Access, ProcessState)
{
    tool("ps", "echo 'root 12 1 0 0 0 0 S ftmdaemon'");
    EXPECT_EQ(ask_text(0xE607, "ftmdaemon").text, "EXSIT");
    EXPECT_EQ(ask_text(0xE607, "other").text, "NOT_EXSIT");
}
