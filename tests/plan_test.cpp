// The plan's exact numbers, and what a phone's log tells of a failure. What plans do is tested by line_test.
#include "station/plan/cause.h"
#include "station/plan/decimal.h"

#include <gtest/gtest.h>

namespace station
{

TEST(Decimal, ComparesEveryDigit)
{
    const struct {
        const char *one, *other;
        int order;
    } rows[] = {
        {"4400000", "4400000.000", 0},
        {"4400000.0000000000000001", "4400000", 1},
        {"0.1", "0.10", 0},
        {"0.3", "0.30000000000000004", -1},
        {"-0", "0.0", 0},
        {"-1.5", "-1.49", -1},
        {"-2", "1", -1},
        {"007", "7", 0},
        {"9", "10", -1},
        {"99999999999999999999", "100000000000000000000", -1},
        {"-0.001", "0", -1},
    };
    for (const auto &row : rows) {
        const int order = Decimal::parse(row.one)->compare(*Decimal::parse(row.other));
        const int back = Decimal::parse(row.other)->compare(*Decimal::parse(row.one));
        EXPECT_EQ((order > 0) - (order < 0), row.order) << row.one << " " << row.other;
        EXPECT_EQ((back > 0) - (back < 0), -row.order) << row.other << " " << row.one;
    }
    for (const char *text :
         {"", "-", ".", "1.", ".5", "+1", "1e3", "0x10", "1 ", "1.2.3", "--1", "nan", "1,5"})
        EXPECT_FALSE(Decimal::parse(text)) << text;
}

TEST(Cause, IsTheRequestsOwnLines)
{
    const std::string head = "11-21 22:49:09.238    36    38 E Diag_Lib: ";
    const std::string other = "11-21 22:49:09.238    77    77 I init    : ";
    EXPECT_EQ(cause_in(head + "[diag_cmd_read_file]:Open file failed!\n" + head + "\n" + other +
                       "not ours\n" + head + "[diag_cmd_x]:Read \x1b[2J Fail!\n"),
              "Open file failed! / Read \\x1b[2J Fail!");
    EXPECT_EQ(cause_in(head + std::string(700, 'x') + "\n" + head + "[diag_cmd_x]:no\n"), "no") << "cut";
    EXPECT_EQ(cause_in(""), "");
}

} // namespace station
