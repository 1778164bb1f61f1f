// Plans, played in this process on phones that know their answers by heart: how steps are judged and why they
// fail, how a run ends, and whether it is still the same unit.
#include "station/client/errors.h"
#include "station/plan/play.h"

#include <chrono>
#include <gtest/gtest.h>
#include <stdexcept>

#include "tests/fake_phone.h"

namespace station
{

using namespace std::string_literals;
using Lines = std::vector<std::string>;

static constexpr char NOT_SET[] = "the property is not set or empty, or the length is 0 or above 512";

namespace
{

// Answers in the order of asking.
class Patient : public People
{
  public:
    Lines answers, asked;
    std::function<void()> before; // the answer
    std::optional<std::string> answer(const Prompt &prompt, Deadline, std::string &why) override
    {
        asked.push_back(prompt.text);
        if (before)
            before();
        if (answers.empty()) {
            why = "nobody to ask";
            return std::nullopt;
        }
        std::string first = answers.front();
        answers.erase(answers.begin());
        return first;
    }
};

class Heard : public Listener
{
  public:
    Lines rows; // "name: answer", with a "!" in front and "| cause" behind what is not as expected
    Lines units;
    std::vector<std::optional<std::string>> measured;
    std::string throws_at; // the step at whose end it throws
    int ends = 0;

    void unit_told(const std::string &unit) override { units.push_back(unit); }
    void step_finished(const Row &row) override
    {
        rows.push_back((row.as_expected ? "" : "! ") + row.step->name() + ": " + row.answer +
                       (row.cause.empty() ? "" : " | " + row.cause));
        measured.push_back(row.measured ? std::optional(row.measured->text()) : std::nullopt);
        if (row.step->name() == throws_at)
            throw std::runtime_error("no space");
    }
    void run_ended(const Ended &) override { ends++; }
};

class Played
{
  public:
    FakePhone phone;
    Interrupts interrupts{0};
    Patient people;
    Heard heard;
    bool stop = false, keep_going = false, why = true, watch = false;
    double timeout = 2;

    Plan plan(const Lines &lines)
    {
        std::ofstream file(phone.folder_.path + "/plan");
        for (const std::string &line : lines)
            file << line << '\n';
        file.close();
        Settings settings;
        settings.client.timeout = timeout;
        return parse_plan(phone.folder_.path + "/plan", settings);
    }

    Ended operator()(const Lines &lines)
    {
        const Plan parsed = plan(lines);
        Settings settings;
        settings.client.port = phone.path;
        settings.client.timeout = timeout;
        heard.rows.clear();
        return play(parsed, {settings, people, interrupts, stop, keep_going, why, watch}, {&heard});
    }
};

// The rows of those steps that were not as expected.
Lines failed(const Lines &rows)
{
    Lines found;
    for (const std::string &row : rows)
        if (row[0] == '!')
            found.push_back(row);
    return found;
}

TEST(Play, JudgesEachAnswerByItsLine)
{
    Played played;
    played.phone.answers = {{"battery-voltage", "4021000"},
                            {"battery-current", " -120\n"},
                            {"ram-size", "\x08"},
                            {"get-prop a", "blue"},
                            {"get-prop b", "two\nlines\n"},
                            {"get-prop no", "ERROR"},
                            {"flash-size", "7"},
                            {"shell-output x", ""}};
    const struct {
        const char *line;
        const char *cause; // nothing: it is as expected
    } rows[] = {
        {"battery-voltage in 4021000..4021000.0 uV", ""},
        {"battery-voltage in ..4021000", ""},
        {"battery-voltage in 4021000..", ""},
        {"battery-voltage in 4021000.00", ""},
        {"battery-voltage in 4021000.0000000000001.. uV", "below 4021000.0000000000001 uV"},
        {"battery-voltage in ..4020999.9999999999999", "above 4020999.9999999999999"},
        {"battery-voltage in 4021001", "below 4021001"},
        {"battery-current in -121..-119.5 uA", ""},
        {"battery-current in 0.. uA", "below 0 uA"},
        {"ram-size in 8 GiB", ""},
        {"ram-size in 8 MiB", "the answer is in GiB, the limit in MiB"},
        {"flash-size in 7", "the answer is in GiB, the limit has no unit"}, // a byte of 55
        {"flash-size in 55 GiB", ""},
        {"get-prop a in 1", "the answer is no number"},
        {"shell-output x in 0..", "the answer is no number"},
        {"get-prop no in 1", NOT_SET},
        {"? get-prop no in 1", "no answer to be judged"},
        {"get-prop a => blue", ""},
        {"get-prop a => Blue", "another answer was wanted"},
        {"get-prop a =~ ^b.u", ""},
        {"get-prop a =~ ^lu", "another answer was wanted"},
        {"get-prop b =~ 'two\\nlines$'", ""},
        {"get-prop b => 'two\\nlines'", ""}, // as the table shows it
        {"ram-size => '8 GiB'", ""},
        {"shell-output x => \"\"", ""},
        {"get-prop no", NOT_SET},
        {"get-prop no => ERROR", ""},
        {"! get-prop no", ""},
        {"! get-prop no => ERROR", ""},
        {"! get-prop no => other", NOT_SET},
        {"! get-prop a", "a failure was wanted"},
        {"! get-prop a => blue", "a failure was wanted"},
        {"? get-prop no", ""},
        {"port-check => x", "another answer was wanted"},
        {"unit get-prop no in 1", NOT_SET},
    };
    for (const auto &row : rows) {
        const Ended ended = played({row.line});
        const std::string &got = played.heard.rows.at(0);
        EXPECT_EQ(got[0] == '!', *row.cause != '\0') << row.line << ": " << got;
        EXPECT_EQ(ended.end == End::pass, *row.cause == '\0') << row.line;
        const size_t because = got.find(" | ");
        EXPECT_EQ(because == std::string::npos ? "" : got.substr(because + 3), row.cause) << row.line;
    }
    played({"battery-current in ..0 uA", "ram-size in 1..9 GiB", "get-prop a"});
    EXPECT_EQ(played.heard.measured.at(played.heard.measured.size() - 3), "-120");
    EXPECT_EQ(played.heard.measured.at(played.heard.measured.size() - 2), "8");
    EXPECT_EQ(played.heard.measured.back(), std::nullopt);
}

TEST(Play, PeopleAnswerAndWhatIsPutInStandsInLaterLines)
{
    Played played;
    played.people.answers = {"", "No", " YES ", "n", "perhaps", "CV 1$x", "x", "-rf", "a.c"};
    played({"tell 'Pull'", "tell 'Push'", "ask 'red?'", "ask 'dots?' as \"panel\"", "ask 'sure?'",
            "input A 'scan' =~ ^CV", "set-prop k $A", "set-prop k \"<$A-$A>\" --retries 1",
            "set-prop k '$A' as \"kept\"", "input B 'again' =~ ^CV", "set-prop k $B", "? set-prop k $B",
            "input C 'rest'", "set-prop k $C", "input D 'dot'", "get-prop k =~ ^$D$",
            "ask \"is $A there?\""});
    EXPECT_EQ(
        played.heard.rows,
        (Lines{"Pull: done", "! Push: not done | not done", "red?:  YES ", "! panel: n | answered with no",
               "! sure?: perhaps | neither yes nor no", "scan: CV 1$x", "set-prop: OK", "set-prop: OK",
               "kept: OK", "! again: x | not like ^CV", "! set-prop: not sent | $B was not put in",
               "set-prop: not sent | $B was not put in", "rest: -rf",
               "! set-prop: not sent | '-rf' begins with '-' and would be an option of the request",
               "dot: a.c", "! get-prop: OK | another answer was wanted",
               "! is $A there?: nobody to ask | nobody to ask"}));
    EXPECT_EQ(played.people.asked.back(), "is CV 1$x there?");
    EXPECT_EQ(played.phone.asked(),
              (Lines{"set-prop k+CV 1$x", "set-prop k+<CV 1$x-CV 1$x>", "set-prop k+$A", "get-prop k"}))
        << "no log of what was not sent";
    played.phone.answers["get-prop k"] = "a.c";
    played.people.answers = {"a.c", "a.d"};
    played({"input D 'dot'", "get-prop k =~ ^$D$", "get-prop k => $D", "input E 'no'", "get-prop k =~ $E"});
    EXPECT_EQ(failed(played.heard.rows), Lines{"! get-prop: a.c | another answer was wanted"});
}

TEST(Play, EndsWhereItIsToldToAndTearsDownWhateverCameBefore)
{
    const Lines plan = {"phase always", "set-prop end 1",   "get-prop b stop", "set-prop end 2",
                        "phase tests",  "get-prop a",       "set-prop x 1",    "get-prop a stop",
                        "set-prop x 2", "ask 'there?' stop"};
    Played played;
    played.phone.answers["get-prop"] = "ERROR";
    const Ended ended = played(plan);
    EXPECT_EQ(ended.end, End::fail);
    EXPECT_EQ(ended.not_played, 2U);
    EXPECT_EQ(ended.cause, "");
    EXPECT_FALSE(ended.port_died);
    EXPECT_EQ(played.phone.asked(), (Lines{"get-prop a", "log diag_cmd_get_prop", "set-prop x+1",
                                           "get-prop a", "log diag_cmd_get_prop", "set-prop end+1",
                                           "get-prop b", "log diag_cmd_get_prop", "set-prop end+2"}));

    Played first;
    first.stop = true;
    first.why = false;
    first.phone.answers["get-prop"] = "ERROR";
    EXPECT_EQ(first(plan).not_played, 4U);
    EXPECT_EQ(first.phone.asked(), (Lines{"get-prop a", "set-prop end+1", "get-prop b", "set-prop end+2"}));

    // Ctrl-C: the running step ends, what always comes is played, and waiting and asking too.
    Played interrupted;
    interrupted.phone.happens = [&](const std::string &asked) {
        interrupted.interrupts += asked == "set-prop x+1" ? 1 : 0;
        return true;
    };
    const Ended aborted = interrupted({"set-prop x 1", "set-prop x 2", "sleep 9", "phase always",
                                       "set-prop end 1", "sleep 0.01", "wait 5", "set-prop end 2"});
    EXPECT_EQ(aborted.end, End::aborted);
    EXPECT_EQ(aborted.cause, "interrupted at the station");
    EXPECT_EQ(aborted.not_played, 2U);
    EXPECT_EQ(interrupted.phone.asked(), (Lines{"set-prop x+1", "set-prop end+1", "set-prop end+2"}));
    EXPECT_EQ(failed(interrupted.heard.rows), Lines{});

    // Something that waits ends early.
    for (const std::string name : {"sleep", "wait"}) {
        Played waiting;
        waiting.phone.stop();
        std::thread impatient([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            waiting.interrupts++;
        });
        const auto begin = Clock::now();
        EXPECT_EQ(waiting({name + " 30", "set-prop x 1"}).end, End::aborted);
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
        EXPECT_EQ(waiting.heard.rows, Lines{"! " + name + ": interrupted | interrupted"});
        impatient.join();
    }

    // What cannot be kept ends the run as an error, and everybody hears the end.
    Played unkept;
    unkept.heard.throws_at = "second";
    EXPECT_THROW(unkept({"set-prop x 1", "set-prop x 2 as 'second'", "set-prop x 3", "phase always",
                         "set-prop end 1"}),
                 std::runtime_error);
    EXPECT_EQ(unkept.phone.asked(), (Lines{"set-prop x+1", "set-prop x+2", "set-prop end+1"}));
    EXPECT_EQ(unkept.heard.ends, 1);
}

TEST(Play, ALostPortEndsTheRunAndTheTeardownTriesOnce)
{
    const Lines plan = {"set-prop x 1", "set-prop x 2",   "set-prop x 3",
                        "phase always", "set-prop end 1", "set-prop end 2"};
    Played gone;
    gone.phone.happens = [&](const std::string &asked) -> std::optional<bool> {
        if (asked != "set-prop x+2")
            return true;
        unlink(gone.phone.path.c_str());
        return std::nullopt;
    };
    const Ended ended = gone(plan);
    EXPECT_EQ(ended.end, End::fail);
    EXPECT_TRUE(ended.port_died);
    EXPECT_EQ(ended.not_played, 2U);
    EXPECT_EQ(gone.phone.asked(), (Lines{"set-prop x+1", "set-prop x+2"}));
    EXPECT_EQ(gone.heard.rows.size(), 3U);

    Played back;
    back.phone.happens = [&](const std::string &asked) {
        return asked == "set-prop x+2" ? std::nullopt : std::optional(true);
    };
    EXPECT_EQ(back(plan).not_played, 1U);
    EXPECT_EQ(back.phone.asked(),
              (Lines{"set-prop x+1", "set-prop x+2", "set-prop end+1", "set-prop end+2"}));

    Played late; // lost in the teardown, whose first step behind it may have it back
    late.phone.happens = [&](const std::string &asked) {
        return asked == "set-prop end+1" ? std::nullopt : std::optional(true);
    };
    EXPECT_EQ(late(plan).not_played, 0U);

    Played mute;
    mute.timeout = 30;
    mute.phone.stop();
    const int listener = listen_unix(mute.phone.path);
    const auto begin = Clock::now();
    mute({"wait 0.1"});
    EXPECT_EQ(mute.heard.rows, Lines{"! wait: the port does not answer | the port does not answer"});
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10)) << "it looks for itself, and in time";
    close(listener);

    Played away;
    away.phone.stop();
    EXPECT_TRUE(away({"wait 0.05", "set-prop x 1"}).port_died);
    EXPECT_EQ(away.heard.rows, Lines{"! wait: the port does not answer | the port does not answer"});

    // What was asked between a restart and its `wait` was the old phone's to answer.
    Played stays;
    stays({"restart", "set-prop x 1", "wait 0.2", "restart", "sleep 0", "wait 0.2", "wait 1"});
    EXPECT_EQ(failed(stays.heard.rows),
              Lines(2, "! wait: the phone has not gone down | the phone has not gone down"));

    back.keep_going = true;
    EXPECT_EQ(back(plan).not_played, 0U);
}

TEST(Play, TheUnitIsCalledByWhatItTells)
{
    const struct {
        const char *line, *answer, *unit, *row;
    } rows[] = {
        {"unit usb-serial", "CV7", "CV7", "usb-serial: CV7"},
        {"unit usb-serial =~ ^CV", "XX7", "", "! usb-serial: XX7 | another answer was wanted"},
        {"? unit usb-serial =~ ^X", "XX7", "XX7", "usb-serial: XX7"},
        {"unit usb-serial", "ERROR", "",
         "usb-serial: ERROR | the unit has told no name: the port's stands in"},
        {"unit shell-output x", " \n", "",
         "shell-output:   | the unit has told no name: the port's stands in"},
        {"unit shell-output x", "", "",
         "shell-output: (empty) | the unit has told no name: the port's stands in"},
        {"unit usb-serial stop", "ERROR", "", "! usb-serial: ERROR | "},
        {"unit usb-serial => ERROR", "ERROR", "",
         "usb-serial: ERROR | the unit has told no name: the port's stands in"},
    };
    for (const auto &row : rows) {
        Played played;
        played.phone.answers["usb-serial"] = played.phone.answers["shell-output"] = row.answer;
        const Ended ended = played({row.line, "set-prop x 1"});
        EXPECT_EQ(played.heard.units, *row.unit ? Lines{row.unit} : Lines{}) << row.line;
        EXPECT_EQ(played.heard.rows.at(0).substr(0, std::string(row.row).size()), row.row) << row.line;
        EXPECT_EQ(ended.end, row.row[0] == '!' ? End::fail : End::pass) << row.line;
    }
    Played silent;
    silent.timeout = 0.2;
    silent.phone.happens = [](const std::string &asked) { return asked != "usb-serial"; };
    EXPECT_EQ(silent({"unit usb-serial", "set-prop x 1"}).end, End::fail);
}

TEST(Play, NothingIsSentToAnotherUnitThatHasComeInItsPlace)
{
    // Exchanged between two steps, and in the middle of one that is repeated.
    for (const bool in_the_middle : {false, true}) {
        Played played;
        FakePhone &phone = played.phone;
        phone.happens = [&](const std::string &asked) -> std::optional<bool> {
            if (asked == "get-prop a" && phone.answers["usb-serial"] != "CV00000002") {
                phone.answers["usb-serial"] = "CV00000002";
                return in_the_middle ? std::nullopt : std::optional(true);
            }
            return true;
        };
        const Lines plan = {"unit usb-serial", "get-prop a --retries 1", "tell 'go on'",  "set-prop key 1",
                            "set-prop key 2",  "phase always",           "set-prop end 1"};
        if (!in_the_middle) {
            played.people.answers = {"done"};
            struct Exchanging : Patient {
                explicit Exchanging(FakePhone &one) : other(one) {}
                FakePhone &other;
                std::optional<std::string> answer(const Prompt &, Deadline, std::string &) override
                {
                    other.stop();
                    other.start();
                    return "done";
                }
            } exchanging(phone);
            const Plan parsed = played.plan(plan);
            Settings settings;
            settings.client.port = phone.path;
            EXPECT_EQ(play(parsed, {settings, exchanging, played.interrupts}, {&played.heard}).end,
                      End::fail);
        } else {
            EXPECT_EQ(played(plan).end, End::fail);
        }
        EXPECT_EQ(failed(played.heard.rows),
                  Lines{in_the_middle ? "! get-prop: OK | another unit answers: CV00000002"
                                      : "! set-prop: not sent | another unit answers: CV00000002"});
        for (const std::string &asked : phone.asked())
            EXPECT_NE(asked.substr(0, 8), "set-prop") << asked;
        EXPECT_EQ(played.heard.units, Lines{"CV00000001"});
    }
}

TEST(Play, NothingIsSentToAPhoneThatTellsItsNameNoMore)
{
    for (const bool is_gone : {false, true}) {
        Played played;
        played.people.answers = {"done"};
        played.people.before = [&] {
            played.phone.stop();
            played.phone.answers["usb-serial"] = "ERROR";
            if (!is_gone)
                played.phone.start();
        };
        const Ended ended = played({"unit usb-serial", "tell gone", "? set-prop x 1", "set-prop x 2",
                                    "set-prop x 3", "phase always", "set-prop end 1"});
        const std::string no_more = "! set-prop: not sent | the unit tells its name no more: ";
        EXPECT_EQ(failed(played.heard.rows),
                  is_gone ? Lines(2, no_more + played.phone.path + ": No such file or directory")
                          : Lines(3, no_more + "ERROR"));
        EXPECT_EQ(ended.port_died, is_gone);
        EXPECT_EQ(ended.not_played, is_gone ? 1U : 0U);
        EXPECT_EQ(played.phone.asked(), Lines(is_gone ? 1 : 5, "usb-serial"));
    }
}

TEST(Play, ARestartThatNobodyAskedForFailsItsStep)
{
    const std::string restarted = "the phone, or its service, has restarted by itself";
    const struct {
        Lines plan;
        bool watch;
        Lines failed;
    } rows[] = {
        {{"unit usb-serial", "get-prop bye", "tell gone", "set-prop x 1", "set-prop x 2"},
         false,
         {"! set-prop: OK | " + restarted}},
        {{"unit usb-serial", "get-prop bye", "tell gone", "get-prop no"},
         false,
         {"! get-prop: ERROR | " + restarted + " / " + NOT_SET}},
        {{"get-prop bye", "tell gone", "set-prop x 1"}, false, {}}, // a script, on whatever is there
        {{"get-prop bye", "tell gone", "set-prop x 1"}, true, {"! set-prop: OK | " + restarted}},
        {{"unit usb-serial", "? get-prop bye", "tell gone", "set-prop x 1"}, false, {}},
        {{"unit usb-serial", "get-prop bye", "wait 5", "set-prop x 1"}, false, {}},
        {{"unit usb-serial", "get-prop bye", "tell gone", "? set-prop x 1", "set-prop x 2"}, false, {}},
        {{"unit usb-serial", "restart", "tell gone", "set-prop x 1", "wait 5"}, true, {}},
        {{"unit usb-serial", "restart-recovery", "get-prop bye", "tell gone", "set-prop x 1"}, true, {}},
        {{"unit usb-serial", "? get-prop lost --timeout 0.1", "set-prop x 1"}, true, {}},
        {{"unit usb-serial", "get-prop torn --timeout 0.1 --retries 1", "set-prop x 1"},
         false,
         {"! get-prop: no answer within 0.1 s | no answer within 0.1 s"}},
        {{"get-prop torn2 --retries 1", "set-prop x 1"}, true, {"! get-prop: OK | " + restarted}},
        {{"unit usb-serial", "wait 5", "tell gone", "set-prop x 1"}, false, {}},
    };
    for (const auto &row : rows) {
        Played played;
        played.watch = row.watch;
        played.people.answers = {"yes"};
        played.people.before = [&] {
            played.phone.stop();
            played.phone.start();
        };
        played.phone.answers["get-prop no"] = "ERROR";
        bool is_torn = false;
        played.phone.happens = [&](const std::string &asked) -> std::optional<bool> {
            if (asked.compare(0, 13, "get-prop torn") == 0 && !std::exchange(is_torn, true))
                return std::nullopt;
            return asked != "get-prop lost" && asked != "get-prop torn";
        };
        played.phone.ends_behind = {"get-prop bye", "restart"};
        played(row.plan);
        EXPECT_EQ(failed(played.heard.rows), row.failed) << row.plan.at(1);
    }
    // A connection that this side has given up is no restart.
    Played busy;
    busy.phone.answers["get-prop"] = "ERROR";
    busy.phone.happens = [](const std::string &asked) { return asked.compare(0, 3, "log") != 0; };
    busy({"unit usb-serial", "get-prop a", "set-prop x 1", "set-prop x 2"});
    EXPECT_EQ(failed(busy.heard.rows).size(), 1U) << busy.heard.rows.at(2);
    EXPECT_EQ(busy.phone.asked().at(3), "usb-serial") << "the log is asked for once";
}

TEST(Play, ASlowerAnswerThanWithinFails)
{
    Played played;
    played.phone.happens = [](const std::string &asked) {
        std::this_thread::sleep_for(std::chrono::milliseconds(asked == "get-prop slow" ? 60 : 0));
        return asked != "get-prop never";
    };
    const auto begin = Clock::now();
    played({"get-prop quick within 1 min", "get-prop slow within 20 ms", "? get-prop never within 30 ms",
            "get-prop slow within 1 min", "! get-prop never --timeout 0.05 within 9 s"});
    Lines rows = failed(played.heard.rows);
    ASSERT_EQ(rows.size(), 3U);
    rows[1].resize(rows[1].find("took ") + 5); // how long, the machine's load says
    EXPECT_EQ(rows, (Lines{"! get-prop: no answer within 0.02 s | no answer within 0.02 s",
                           "! get-prop: no answer within 0.03 s | took ",
                           "! get-prop: no answer within 0.05 s | no answer within 0.05 s"}));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(20));
}

TEST(Play, ACauseIsFetchedOnceAndOnlyForWhatThePhoneHasFailed)
{
    Played played;
    played.phone.answers = {{"get-prop", "ERROR"}, {"get-prop a", "x"}};
    played.phone.log = "11-21 22:49:09.238    36    38 E Diag_Lib: [diag_cmd_get_prop]:read  no fail.\n";
    played({"get-prop no", "! get-prop no", "? get-prop no", "get-prop a => y", "send 0x7777 => 1",
            "get-prop no => x"});
    EXPECT_EQ(failed(played.heard.rows),
              (Lines{"! get-prop: ERROR | read  no fail.", "! get-prop: x | another answer was wanted",
                     "! 0x7777: refused by the router | refused by the router",
                     "! get-prop: ERROR | read  no fail."}));
    const Lines asked = played.phone.asked();
    EXPECT_EQ(std::count(asked.begin(), asked.end(), "log diag_cmd_get_prop"), 2);
    played.why = false;
    played({"get-prop no"});
    EXPECT_EQ(played.heard.rows, Lines{"! get-prop: ERROR | "s + NOT_SET});
}

} // namespace

} // namespace station
