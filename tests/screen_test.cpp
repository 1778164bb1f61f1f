// The clock and the screen.
#include "tests/fake_platform.h"

namespace
{

using Screen = Phone;

// 5 June 2021, 07:08:09, with room for the year's high byte, and the limit of the seconds read back.
std::string time_request(char separator, char limit)
{
    return {6, 5, 7, 8, 0x07, static_cast<char>(0xE5), separator, 9, 'x', limit};
}

TEST_F(Screen, SetsTheClockAndReadsTheSecondsBack)
{
    const struct {
        const char *clock; // what date +%S prints
        char limit;
        const char *answer;
    } cases[] = {
        {"echo 09", 9, "OK"},          {"echo 10", 9, "ERROR"},
        {"echo 59", 59, "OK"},         {"echo 00", 60, "ERROR"}, // no limit of a clock: set all the same
        {"echo 40; echo 08", 9, "OK"}, {":", 59, "ERROR"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.clock);
        tool("date", std::string("[ \"$1\" = +%S ] || exit 0\n") + c.clock);
        size_t before = runs().size();
        EXPECT_EQ(ask(0x0B15, 0, time_request('.', c.limit)).text, c.answer);
        EXPECT_EQ(runs().at(before), "date 060507082021.09");
        EXPECT_EQ(runs().size(), before + (c.limit < 60 ? 2 : 1));
    }
}

TEST_F(Screen, TimeRequestsAreOneTo256BytesLong)
{
    tool("date", "echo 1");
    for (int length : {0, 257, 65535})
        EXPECT_EQ(ask(0x0B15, 0, time_request('.', 9), length).text, "ERROR");
    EXPECT_TRUE(runs().empty());
    EXPECT_EQ(ask(0x0B15, 0, time_request('.', 9), 256).text, "OK");
    // Every field at its largest, and a separator that ends the line.
    EXPECT_EQ(ask(0x0B15, 0, std::string(9, '\xFF') + '\x01').text, "OK");
    EXPECT_EQ(ask(0x0B15, 0, time_request('\0', 9)).text, "OK");
    EXPECT_EQ(runs().at(4), "date 060507082021");
}

TEST_F(Screen, PacksTheTimeoutAsStationsDo)
{
    tool("settings", "if [ $1 = put ]; then echo $4 >/tmp/timeout; else cat /tmp/timeout; fi");
    const struct {
        std::string data;
        const char *milliseconds;
    } cases[] = {
        {{0, 0, 30}, "30000"},
        {{1, 0, 0}, "65792000"},              // 65536 + 256
        {{0, 0x1F, 0}, "4096000"},            // the low half of the middle byte is lost
        {{15, '\xFF', '\xFF'}, "1048575000"}, // 15 * 65536 + 15 * 256 + 15 * 4096 + 255
        {{16, 0, 0}, "1048576000"},
        {{20, 0, 0}, "1048576000"}, // as 16
        {{'\xFF', '\xFF', '\xFF'}, "1110271000"},
    };
    for (const auto &c : cases) {
        size_t before = runs().size();
        EXPECT_EQ(ask(0x0B14, 0, c.data).text, "OK");
        EXPECT_EQ(runs().at(before), std::string("settings put system screen_off_timeout ") + c.milliseconds);
        EXPECT_EQ(runs().at(before + 1), "settings get system screen_off_timeout");
    }
    for (const char *data : {"", "12", "1234"})
        EXPECT_EQ(ask(0x0B14, 0, data).text, "ERROR");

    tool("settings", "echo null"); // the setting does not hold
    EXPECT_EQ(ask(0x0B14, 0, std::string({0, 0, 30})).text, "ERROR");
}

TEST_F(Screen, TheLastLineTellsTheState)
{
    expect_by_tool(0x0F02, "dumpsys",
                   {{"echo 'Display Power: state=OFF'; echo 'Display Power: state=ON'", "ON"},
                    {"echo 'Display Power: state=ON'; echo 'Display Power: state=DOZE'", "ERROR"},
                    {"echo 'Display Power: state=DOZE'; echo 'Display Power: state=ON'", "ON"},
                    {"echo 'Display Power: ON then OFF'", "ON"},
                    {"echo 'Display Power: state=OFF'", "OFF"},
                    {"echo 'mWakefulness=Awake'", ""}});
}

} // namespace
