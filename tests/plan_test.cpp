// A plan's text: what it says, all that is wrong with it, its exact numbers, and what a phone's log tells of
// a failure. How plans are played is play_test's.
#include "station/client/errors.h"
#include "station/plan/cause.h"
#include "station/plan/decimal.h"
#include "station/plan/script.h"

#include <fstream>
#include <gtest/gtest.h>

#include "tests/wire.h"

namespace station
{

namespace
{

class Plans
{
  public:
    temporary_folder folder;

    std::string write(const std::string &name, const std::string &text) const
    {
        std::ofstream(folder.path + "/" + name) << text;
        return folder.path + "/" + name;
    }
    Plan parse(const std::string &text) const { return parse_plan(write("plan", text), {}); }
    // What is told of the mistakes, without the folder's name.
    std::string mistakes(const std::string &text) const
    {
        try {
            parse(text);
            return "";
        } catch (const UsageError &error) {
            std::string told = error.what();
            for (size_t at = 0; (at = told.find(folder.path + "/", at)) != std::string::npos;)
                told.erase(at, folder.path.size() + 1);
            return told;
        }
    }
};

} // namespace

TEST(Plan, EveryMistakeIsToldWithItsLine)
{
    const Plans plans;
    const struct {
        const char *line, *told;
    } rows[] = {
        {"get-porp a", "'get-porp' is no command; `station list` shows them all; did you mean get-prop?"},
        {"!", "no request"},
        {"=> x", "no request"},
        {"get-prop 'a", "a quotation mark stays open"},
        {"get-prop a =>", "nothing stands behind =>; \"\" is the empty text"},
        {"get-prop a =~ (", "'(' is no pattern: missing ): ("},
        {"battery-voltage in 5..4 V", "in 5..4: the low limit is above the high one"},
        {"battery-voltage in ..", "in ..: a limit without an end limits nothing"},
        {"battery-voltage in 1 => 1", "limits and an expected text: an answer is judged by one"},
        {"! battery-voltage in 1", "a failure has no number to be judged"},
        {"battery-voltage stop => 1", "stop stands behind what is expected"},
        {"port-check as x", "as takes a name in quotation marks"},
        {"port-check as \"\"", "as takes a name in quotation marks"},
        {"port-check within 2", "within takes a time such as 2 s, 500 ms or 1 min"},
        {"port-check within 2 h", "within takes a time such as 2 s, 500 ms or 1 min"},
        {"port-check within 0 s", "within 0 s: nothing is as fast"},
        {"port-check within -1 s", "within takes a number of seconds, a day's at most"},
        {"tell", "tell takes a text in quotation marks"},
        {"input A Scan it =~ x", "input takes a name and a text in quotation marks"},
        {"battery-capacity in 30..70%", "'70%': the unit stands behind a blank, as in 3..4 mV"},
        {"battery-voltage in 3600mV..", "'3600mV': the unit stands behind a blank, as in 3..4 mV"},
        {"battery-capacity in 3\x80", "'3\x80': the unit stands behind a blank, as in 3..4 mV"},
        {"battery-capacity in 30...100", "in 30...100: two dots part the limits, not three"},
        {"battery-capacity in 30 #", "in 30 #: this is no unit; comments have a line of their own"},
        {"get-prop a # b", "get-prop: '#' is not expected; comments have a line of their own"},
        {"phase always # b", "'always # b' is no name for a phase; comments have a line of their own"},
        {"! ask \"x\"", "ask has no answer to be judged"},
        {"input A", "input takes a name and a text in quotation marks"},
        {"input A \"t\" =~ (", "'(' is no pattern: missing ): ("},
        {"? wait 1", "wait has no answer to be judged"},
        {"? skip get-prop why", "skip tells of a success, `! skip` of a failure"},
        {"include", "include takes a file"},
        {"include /no/such", "cannot read /no/such: No such file or directory"},
        {"include ./plan", "include ./plan: this file includes itself, by itself or by others"},
        {"include plan", "include plan: this file includes itself, by itself or by others"},
    };
    std::string text, told;
    int number = 0;
    for (const auto &row : rows) {
        text += "# \n" + std::string(row.line) + "\n";
        number += 2;
        told += (told.empty() ? "plan:" : "\nplan:") + std::to_string(number) + ": " + row.told;
    }
    EXPECT_EQ(plans.mistakes(text), told);
    EXPECT_EQ(plans.mistakes(std::string("port-check\0\n", 12)), "plan:1: a byte 0 stands in the line");

    EXPECT_EQ(plans.mistakes("unit usb-serial\nunit usb-serial\nphase always\nunit usb-serial\n"),
              "plan:2: unit stands in a plan once\nplan:4: unit stands in a plan once");
    EXPECT_EQ(plans.mistakes("phase always\nunit usb-serial\n"),
              "plan:2: unit stands before `phase always`: what is tested has to be known before");
    EXPECT_EQ(
        plans.mistakes("set-prop a $B\ninput B 't'\nset-prop a $C\ninput B 'u'\nport-check as \"of $B\"\n"),
        "plan:4: $B is put in before already\n"
        "plan:5: as: a step is called the same for every unit, and 'of $B' would not be; in single quotes it "
        "is a text\n"
        "plan:1: $B is put in only behind this line\n"
        "plan:3: no input of this plan is called $C; did you mean $B?; in single quotes it is a text");
    EXPECT_EQ(plans.mistakes("# nothing\n\nsleep 1\n"), "plan: no line of it asks anything");
    plans.write("inner", "port-check\ninclude plan\nget-porp a\n");
    EXPECT_EQ(plans.mistakes("include inner\ninclude inner\nwait\n"),
              "inner:2: include plan: this file includes itself, by itself or by others\n"
              "inner:3: 'get-porp' is no command; `station list` shows them all; did you mean get-prop?\n"
              "plan:3: wait takes a number of seconds, a day's at most");
    // Each includes the next one twice: no loop, and no end.
    for (int i = 0; i < 40; i++)
        plans.write("twice" + std::to_string(i), ("include twice" + std::to_string(i + 1) + "\n") +
                                                     "include twice" + std::to_string(i + 1) + "\n");
    plans.write("twice40", "# \n");
    EXPECT_NE(plans.mistakes("include twice0\n").find(": include twice40: more than 1000 files"),
              std::string::npos);
}

TEST(Plan, WhatALineSays)
{
    const Plans plans;
    const struct {
        const char *line, *name, *words, *wanted;
        bool stops;
    } rows[] = {
        {"get-prop a", "get-prop", "a", "a success", false},
        {"set-prop a stop", "set-prop", "a stop", "a success", false},
        {"set-prop a b stop", "set-prop", "a b", "a success", true},
        {"set-prop a \"b c\" as \"x y\" within 500 ms stop", "x y", "a \"b c\"", "a success, within 0.5 s",
         true},
        {"!get-prop a => no  way stop", "get-prop", "a", "a failure: no way", true},
        {"get-prop a => \"please stop\"", "get-prop", "a", "please stop", false},
        {"get-prop a => please \"stop\"", "get-prop", "a", "please stop", false},
        {"get-prop a => (", "get-prop", "a", "(", false},
        {"get-prop a => stop", "get-prop", "a", "stop", false},
        {"get-prop a => within 2 s", "get-prop", "a", "within 2 s", false},
        {"get-prop a => x within 2 min", "get-prop", "a", "x, within 120 s", false},
        {"get-prop a => x within 500 ms", "get-prop", "a", "x, within 0.5 s", false},
        {"get-prop a => x within 2 h", "get-prop", "a", "x within 2 h", false},
        {"get-prop a => x as b", "get-prop", "a", "x as b", false},
        {"get-prop a => as \"b\"", "get-prop", "a", "as b", false},
        {"get-prop a =~ ^a as \"b\" stop", "b", "a", "like ^a", true},
        {"shell-output 'a => b' => c", "shell-output", "\"a => b\"", "c", false},
        {"battery-voltage in 1..2.50 uV as \"v\"", "v", "", "in 1..2.50 uV", false},
        {"battery-voltage in -3 stop", "battery-voltage", "", "in -3", true},
        {"battery-voltage in ..4 within 1 s", "battery-voltage", "", "in ..4, within 1 s", false},
        {"ask 'red?' as \"panel\" stop", "panel", "red?", "a success", true},
        {"tell 'go'", "go", "go", "a success", false},
        {"tell go stop", "go", "go", "a success", true},
        {"set-prop a #1", "set-prop", "a #1", "a success", false},
        {"tell go as 'x'", "x", "go", "a success", false},
        {"ask go within 2 s", "go", "go", "a success, within 2 s", false},
        {"wait 86400", "wait", "86400 s", "a success", false},
        {"wait 3 stop", "wait", "3 s", "a success", true},
    };
    for (const auto &row : rows) {
        std::string text = "\xEF\xBB\xBF";
        text.append(row.line).append("\r\n \t").append(row.line);
        const std::vector<Step> steps = plans.parse(text).steps;
        ASSERT_EQ(steps.size(), 2U);
        for (const Step &step : steps) {
            EXPECT_EQ(step.name(), row.name) << row.line;
            EXPECT_EQ(step.request.words, row.words) << row.line;
            EXPECT_EQ(step.wanted(), row.wanted) << row.line;
            EXPECT_EQ(step.stops, row.stops) << row.line;
        }
    }
    const Step own = plans.parse("get-prop a --timeout 3 --retries 4\nget-prop b").steps.at(0);
    EXPECT_EQ(own.timeout, 3);
    EXPECT_EQ(own.retries, 4);
}

TEST(Plan, PhasesAndFilesKeepTheirPlace)
{
    const Plans plans;
    std::filesystem::create_directory(plans.folder.path + "/deep");
    plans.write("deep/inner", "get-prop b\nphase always\nget-prop end2\n");
    const Plan plan =
        plans.parse("get-prop a\nphase always\nget-prop end1\nphase #1\ninclude deep/inner\nget-prop c\n");
    std::string order;
    for (const Step &step : plan.steps)
        order += step.request.words + "(" + step.phase + ")" + (step.always ? "! " : " ");
    EXPECT_EQ(order, "a() b(#1) c(#1) end1(always)! end2(always)! ");
    EXPECT_EQ(plan.name, "plan");
    EXPECT_EQ(plan.steps.at(1).file, plans.folder.path + "/deep/inner");
    EXPECT_EQ(plan.steps.at(1).line, 1);
    const std::string before = plan.digest;
    plans.write("deep/inner", "get-prop B\nphase always\nget-prop end2\n");
    EXPECT_NE(parse_plan(plan.path, {}).digest, before) << "what is included counts";
    std::string many;
    for (int i = 0; i < 100000; i++)
        many += "sleep 0\n";
    EXPECT_EQ(plans.mistakes(many + "port-check\n"), "plan: more than 100000 steps");
    EXPECT_EQ(plans.mistakes(many.substr(8) + "port-check\n"), "");
}

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
        {"-0", "-0.001", 1},
    };
    for (const auto &row : rows) {
        const Decimal one = *Decimal::parse(row.one), other = *Decimal::parse(row.other);
        EXPECT_EQ(one < other, row.order == -1) << row.one << " " << row.other;
        EXPECT_EQ(other < one, row.order == 1) << row.one << " " << row.other;
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
    EXPECT_EQ(cause_in(head + "[half\n" + head + "a[0]: b  \r\n" + head + " \r\n"), "[half / a[0]: b");
    const std::string no = "\n" + head + "[diag_cmd_x]:no\n";
    EXPECT_EQ(cause_in(head + std::string(700 - head.size() - no.size(), 'x') + no), "no") << "cut";
    EXPECT_EQ(cause_in(head + std::string(699 - head.size() - no.size(), 'x') + no).substr(0, 1), "x");
    EXPECT_EQ(cause_in(""), "");
}

} // namespace station
