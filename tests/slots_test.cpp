// The slots of a line, over phones in this process: who is tested when, what is shown and kept of it, whose a
// port is, and what a file of answers knows.
#include "station/client/errors.h"
#include "station/line/line.h"
#include "station/records/source.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "tests/fake_phone.h"

namespace station
{

using Lines = std::vector<std::string>;

namespace
{

void write_lines(const std::string &path, const Lines &lines)
{
    std::ofstream file(path);
    for (const std::string &line : lines)
        file << line << '\n';
}

// A line and all that it has to be given.
class Bench
{
  public:
    temporary_folder folder;
    Settings settings;
    LineOptions options;
    Interrupts interrupts{0};
    Desk desk{interrupts};
    Plan plan;
    Lines events;
    std::optional<records::Store> store;

    explicit Bench(const Lines &lines)
    {
        write_lines(folder.path + "/plan", lines);
        settings.client.timeout = 0.6;
        plan = parse_plan(folder.path + "/plan", settings);
        options.station = "bench";
        options.look = std::chrono::milliseconds(50);
        store.emplace(records_file());
        desk.leave();
    }

    records::Where records_file() const { return {folder.path + "/records.db", "", false}; }

    // Until it has ended, or `is_enough` says so.
    std::vector<SlotState> serve(const std::function<bool(const std::vector<SlotState> &)> &is_enough = {})
    {
        Line line(plan, settings, options, *store, nullptr, desk, interrupts,
                  [this](const std::string &event) { events.push_back(event); });
        const Deadline deadline = Clock::now() + std::chrono::seconds(20);
        while (line.look() && Clock::now() < deadline) {
            if (is_enough && is_enough(line.slots()))
                interrupts++;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        EXPECT_LT(Clock::now(), deadline);
        not_kept = line.not_kept();
        return line.slots();
    }

    Lines kept() // unit, verdict and first failing step of all runs
    {
        Lines all;
        records::Source::open(records_file())->each({}, [&](const records::Run &run) {
            all.push_back(run.unit + (run.unit_is_port ? " (port) " : " ") +
                          (run.verdict ? records::word(*run.verdict) : "running") + " " + run.failing);
        });
        std::sort(all.begin(), all.end());
        return all;
    }

    std::string not_kept;
};

bool has(const Lines &events, const std::string &part)
{
    return std::any_of(events.begin(), events.end(),
                       [&](const std::string &event) { return event.find(part) != std::string::npos; });
}

TEST(Slots, EachPortIsTestedOnceByItself)
{
    FakePhone good("CV00000001"), bad("CV00000002"), nameless("ERROR");
    bad.answers["get-prop"] = "ERROR";
    Bench bench({"unit usb-serial", "get-prop a as \"name\"", "set-prop x 1", "ask 'there?' as \"asked\"",
                 "phase always", "set-prop end 1"});
    bench.options.ports = {good.path, bad.path, nameless.path, bench.folder.path + "/none", good.path};
    bench.options.once = true;
    bench.options.why = false;
    const std::vector<SlotState> slots = bench.serve();
    ASSERT_EQ(slots.size(), 4U) << "a port that is named twice has one slot";
    const struct {
        std::string unit, failing;
        bool answered;
    } rows[] = {{"CV00000001", "asked", true},
                {"CV00000002", "name", true},
                {nameless.path, "asked", true},
                {bench.options.ports[3], "", false}};
    for (size_t i = 0; i < slots.size(); i++) {
        EXPECT_EQ(slots[i].number, static_cast<int>(i) + 1);
        EXPECT_EQ(slots[i].unit, rows[i].unit);
        EXPECT_EQ(slots[i].failing, rows[i].failing);
        EXPECT_EQ(slots[i].answered, rows[i].answered);
        EXPECT_EQ(slots[i].phase, rows[i].answered ? SlotState::Phase::shows : SlotState::Phase::waits);
        EXPECT_EQ(slots[i].tested, rows[i].answered ? 1U : 0U);
        EXPECT_EQ(slots[i].passed, 0U);
        EXPECT_EQ(slots[i].done, slots[i].steps);
        EXPECT_EQ(slots[i].step, "");
    }
    EXPECT_EQ(slots[0].cause, "nobody to ask");
    EXPECT_EQ(slots[1].cause.substr(0, 39), "ERROR / because: the property is not se");
    EXPECT_TRUE(has(bench.events, "2  CV00000002  ! name  ERROR / because: "));
    EXPECT_TRUE(has(bench.events, "1  CV00000001  asks: there?"));
    EXPECT_TRUE(has(bench.events, "1  CV00000001  fail after "));
    EXPECT_EQ(bench.kept(),
              (Lines{nameless.path + " (port) fail asked", "CV00000001 fail asked", "CV00000002 fail name"}));
    EXPECT_EQ(good.asked(), (Lines{"usb-serial", "get-prop a", "set-prop x+1", "set-prop end+1"}));
}

TEST(Slots, APhoneIsTestedWhenItComesAndNotAgainUntilItHasGone)
{
    FakePhone first("CV00000001", "a.port");
    Bench bench({"unit usb-serial", "set-prop x 1"});
    bench.options.glob = first.folder_.path + "/*.port";
    std::unique_ptr<FakePhone> second;
    int stage = 0;
    Deadline still{};
    const std::vector<SlotState> slots = bench.serve([&](const std::vector<SlotState> &now) {
        const size_t tested = now.empty() ? 0 : now[0].tested;
        if (stage == 0 && tested == 1) {
            stage = 1;
            still = Clock::now() + std::chrono::milliseconds(300);
        } else if (stage == 1 && Clock::now() >= still) {
            EXPECT_EQ(tested, 1U) << "the same phone is still there";
            EXPECT_EQ(now[0].phase, SlotState::Phase::shows);
            first.stop();
            first.answers["usb-serial"] = "CV00000002";
            first.start();
            symlink(first.path.c_str(), (first.folder_.path + "/b.port").c_str());
            stage = 2;
        } else if (stage == 2 && tested == 2 && now.size() == 2 &&
                   now[1].phase == SlotState::Phase::refused) {
            first.stop();
            stage = 3;
        }
        return stage == 3 && now[0].phase == SlotState::Phase::waits && now[1].phase == now[0].phase;
    });
    EXPECT_EQ(slots.at(0).passed, 2U);
    EXPECT_EQ(slots.at(0).unit, "CV00000002");
    EXPECT_NE(slots.at(1).cause.find("is taken by"), std::string::npos) << "the same port by a link";
    EXPECT_TRUE(has(bench.events, "the phone has gone"));
    EXPECT_TRUE(has(bench.events, "2  " + slots.at(1).port + "  " + slots.at(1).cause));
    EXPECT_EQ(bench.kept(), (Lines{"CV00000001 pass ", "CV00000002 pass "}));
}

TEST(Slots, ASerialLinesPhoneHasGoneWhenItAnswersNoMore)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(unlockpt(master), 0);
    const std::string path = ptsname(master);
    const int kept_open = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    int stop[2];
    ASSERT_EQ(pipe2(stop, O_CLOEXEC), 0);
    std::atomic<int> requests{0};
    std::thread phone([&] { FakePort::serve(master, stop[0], requests, {}); });
    Bench bench({"port-check"});
    bench.options.ports = {path};
    Deadline still = Deadline::max();
    bench.serve([&](const std::vector<SlotState> &now) {
        if (now[0].tested == 1 && still == Deadline::max()) {
            still = Clock::now() + std::chrono::milliseconds(250);
        } else if (phone.joinable() && Clock::now() >= still) {
            EXPECT_EQ(now[0].phase, SlotState::Phase::shows) << "it is still there";
            close(stop[1]);
            phone.join();
            close(master);
        }
        return !phone.joinable() && now[0].phase == SlotState::Phase::waits;
    });
    EXPECT_TRUE(has(bench.events, "the phone has gone"));
    close(stop[0]);
    close(kept_open);
}

TEST(Slots, APhoneThatRestartsOrGoesFailsItsUnit)
{
    FakePhone restarts("CV00000001"), goes("CV00000002");
    restarts.ends_behind = {"get-prop bye"};
    goes.happens = [&](const std::string &asked) {
        if (asked == "set-prop x+1")
            unlink(goes.path.c_str());
        return asked == "set-prop x+1" ? std::nullopt : std::optional(true);
    };
    Bench bench({"get-prop bye", "sleep 0.2", "set-prop x 1", "set-prop x 2"});
    bench.options.ports = {restarts.path, goes.path};
    bench.options.once = true;
    EXPECT_NE(bench.serve().at(0).cause.find("has restarted by itself"), std::string::npos)
        << "no `unit` is needed";
    const auto source = records::Source::open(bench.records_file());
    source->each({}, [&](const records::Run &run) {
        EXPECT_EQ(run.verdict, records::Verdict::fail);
        EXPECT_EQ(source->steps(run.id).size(), run.port == goes.path ? 3U : 4U) << run.port;
    });
}

TEST(Slots, CtrlCEndsTheRunningUnitsAsAborted)
{
    FakePhone phone;
    Bench bench({"unit usb-serial", "set-prop x 1", "sleep 30", "phase always", "set-prop end 1"});
    bench.options.ports = {phone.path};
    const SlotState slot =
        bench.serve([](const std::vector<SlotState> &now) { return !now.empty() && now[0].step == "sleep"; })
            .at(0);
    EXPECT_EQ(slot.end, End::aborted);
    EXPECT_EQ(slot.cause, "interrupted at the station");
    EXPECT_EQ(slot.failing, "");
    EXPECT_EQ(bench.kept(), Lines{"CV00000001 aborted "});
    const auto source = records::Source::open(bench.records_file());
    source->each({}, [&](const records::Run &run) {
        const records::Step slept = source->steps(run.id).at(2);
        EXPECT_EQ(slept.verdict, records::Verdict::aborted) << "it has not slept";
        const std::chrono::duration<double, std::milli> lasted = *run.ended - run.started;
        EXPECT_LE(slept.began + slept.milliseconds, lasted.count() + 50);
    });
    EXPECT_EQ(phone.asked().back(), "set-prop end+1");
}

// No file of this process grows any more, as on a full disk.
void fill_disk(bool is_full)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = is_full ? 1 : limit.rlim_max;
    setrlimit(RLIMIT_FSIZE, &limit);
}

TEST(Slots, WhatCannotBeKeptHasNotPassedAndNoMoreUnitsAreTaken)
{
    for (const bool in_the_middle : {false, true}) {
        FakePhone phone;
        Bench bench({"unit usb-serial", "set-prop x 1", "set-prop x 2", "phase always", "set-prop end 1"});
        bench.options.ports = {phone.path};
        phone.happens = [&](const std::string &asked) {
            if (in_the_middle && asked == "set-prop x+1")
                fill_disk(true);
            return true;
        };
        fill_disk(!in_the_middle);
        const SlotState slot = bench.serve().at(0);
        fill_disk(false);
        EXPECT_NE(bench.not_kept, "");
        EXPECT_EQ(slot.passed, 0U);
        EXPECT_TRUE(has(bench.events, "no more units are taken: "));
        if (in_the_middle) {
            EXPECT_EQ(slot.end, End::error);
            EXPECT_EQ(phone.asked(), (Lines{"usb-serial", "set-prop x+1", "set-prop end+1"}));
        } else {
            EXPECT_EQ(slot.tested, 0U);
            EXPECT_EQ(phone.asked(), Lines{});
        }
        EXPECT_FALSE(has(bench.kept(), "pass"));
    }
}

TEST(PortLock, APortIsOneLinesHoweverItIsCalled)
{
    temporary_folder folder;
    setenv("XDG_RUNTIME_DIR", folder.path.c_str(), 1);
    const std::string port = folder.path + "/port";
    {
        const PortLock lock(port); // that is not there yet
        EXPECT_THROW(PortLock(folder.path + "/./port"), PortError);
        EXPECT_NO_THROW(PortLock(folder.path + "/other"));
        std::ofstream(port + "2").close();
    }
    EXPECT_NO_THROW(PortLock{port});
    symlink((port + "2").c_str(), (folder.path + "/link").c_str());
    const PortLock real(port + "2");
    EXPECT_THROW(PortLock(folder.path + "/link"), PortError);
    const PortLock tcp("tcp:localhost:9"); // the same from every folder
    std::filesystem::current_path(folder.path);
    EXPECT_THROW(PortLock("tcp:localhost:9"), PortError);
    std::filesystem::current_path("/");
    EXPECT_NO_THROW(PortLock("tcp:localhost:8"));
    const int before = open_descriptors();
    EXPECT_THROW(PortLock(folder.path + "/link"), PortError);
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Answers, AFileAnswersWhatItHas)
{
    temporary_folder folder;
    const std::string path = folder.path + "/answers";
    write_lines(
        path, {"# all", "", "  red? =  yes \r", "a = b? = no", "red = pink", "empty =", "red? = no", "x=y"});
    Nobody nobody;
    AnswersFile answers(path, nobody);
    std::string why;
    const auto said = [&](const std::string &question) {
        return answers.answer({Prompt::Kind::ask, question, ""}, Deadline::max(), why).value_or("(nobody)");
    };
    EXPECT_EQ(said("red?"), "yes");
    EXPECT_EQ(said("red"), "pink");
    EXPECT_EQ(said("a = b?"), "no");
    EXPECT_EQ(said("empty"), "");
    EXPECT_EQ(said("x"), "y");
    EXPECT_EQ(said("re"), "(nobody)");
    EXPECT_EQ(said("all"), "(nobody)");
    EXPECT_EQ(why, path + " has no answer to 'all', and there is nobody to ask");
    Interrupts interrupts{0};
    Desk desk(interrupts);
    AtDesk others(desk, "1");
    EXPECT_FALSE(AnswersFile(answers, others).answer({Prompt::Kind::ask, "all", ""}, Clock::now(), why));
    EXPECT_EQ(why, "nobody answered in time");
    std::thread impatient([&] {
        while (desk.all_open().empty())
            std::this_thread::yield();
        interrupts++;
    });
    EXPECT_FALSE(others.answer({Prompt::Kind::ask, "all", ""}, Deadline::max(), why));
    impatient.join();
    EXPECT_EQ(why, "interrupted");
    EXPECT_TRUE(desk.all_open().empty());
    write_lines(path, {"no sign", "a = b", "= x"});
    try {
        AnswersFile wrong(path, nobody);
        ADD_FAILURE();
    } catch (const UsageError &error) {
        EXPECT_EQ(error.what(),
                  path + ":1: not `question = answer`\n" + path + ":3: not `question = answer`");
    }
    for (const char *word : {"y", "YES", " yes\t"})
        EXPECT_EQ(yes_or_no(word), true) << word;
    for (const char *word : {"n", "No "})
        EXPECT_EQ(yes_or_no(word), false) << word;
    for (const char *word : {"", "yess", "ja", "1"})
        EXPECT_EQ(yes_or_no(word), std::nullopt) << word;
}

} // namespace

} // namespace station
