// A file of records: what is kept of runs, who closes what others left open, what is asked of it, and files
// that are left as they are. Killed stations, full disks and the database are the business of
// tests/records_test.
#include "station/records/file.h"
#include "station/records/forms.h"
#include "station/records/source.h"
#include "station/records/store.h"
#include "station/records/tables.h"
#include "station/records/text.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace station::records
{

using std::chrono::milliseconds;
using KeptRun = Run; // a test has a Run of its own

// How often SQLite has asked for what it wrote to be on the disk.
static std::atomic<int> syncs;
extern "C" int fdatasync(int descriptor)
{
    syncs++;
    return static_cast<int>(syscall(SYS_fdatasync, descriptor));
}

namespace
{

// A folder that goes away, and a file of records in it.
class Records : public testing::Test
{
  protected:
    void SetUp() override { ASSERT_TRUE(mkdtemp(folder)); }
    void TearDown() override { std::filesystem::remove_all(folder); }

    std::string path(const char *name) const { return std::string(folder) + "/" + name; }
    std::unique_ptr<Source> source() const { return Source::open({file(), "", false}); }
    std::string file() const { return path("records.db"); }
    std::vector<KeptRun> runs(const Filter &filter = {}) const
    {
        std::vector<KeptRun> all;
        source()->each(filter, [&](const KeptRun &run) { all.push_back(run); });
        return all;
    }
    static std::string bytes_of(const std::string &name)
    {
        std::ifstream bytes(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(bytes), {}};
    }

    char folder[32] = "/tmp/records_fileXXXXXX";
};

Step step_named(const std::string &name, Verdict verdict = Verdict::pass)
{
    Step step;
    step.name = name;
    step.verdict = verdict;
    return step;
}

// The text of what is thrown.
template <typename Call> std::string refusal(Call &&call)
{
    try {
        call();
    } catch (const Error &error) {
        return error.what();
    }
    return "";
}

// Puts finished runs into a file, at times of one's own.
class Hand
{
  public:
    explicit Hand(const std::string &file) : database_(open_file(file, Access::write)), tables_(database_) {}

    // `unit` that begins with a slash is a port's name. The step that failed, if any.
    std::string add(const std::string &time, const std::string &unit, Verdict verdict,
                    const std::string &failing = "", const std::string &plan = "plan")
    {
        KeptRun run;
        run.unit = unit;
        run.unit_is_port = unit[0] == '/';
        run.plan = plan;
        run.plan_digest = std::string(64, plan == "plan" ? 'a' : 'b');
        run.started = *parse_time(time, {});
        // Ids that grow with each call, as the generator's do while the clock goes on.
        char id[40];
        std::snprintf(id, sizeof id, "00000000-0000-7000-8000-%012d", ++count_);
        run.id = id;
        tables_.insert(run, 0);
        Step step =
            step_named(failing.empty() ? "first" : failing, failing.empty() ? Verdict::pass : Verdict::fail);
        step.number = 1;
        tables_.insert(run.id, step);
        tables_.end(run.id, run.started + milliseconds(1500), verdict, "");
        return run.id;
    }
    Database &database() { return database_; }

  private:
    Database database_;
    Tables tables_;
    int count_ = 0;
};

std::string ids_of(const std::vector<KeptRun> &runs)
{
    std::string text;
    for (const KeptRun &run : runs)
        text += (text.empty() ? "" : " ") + std::to_string(std::stoi(run.id.substr(24)));
    return text;
}

} // namespace

TEST_F(Records, KeepARunAsItWas)
{
    const std::string bytes("\0\xff\xc3\xa9", 4);
    KeptRun given;
    given.unit = "/dev/\xff";
    given.unit_is_port = true;
    given.plan = "plan";
    given.plan_digest = "d1";
    given.station = "bench";
    given.port = "/dev/\xff";
    given.software = "station 1";
    std::string id;
    {
        Store store({file(), "", false});
        Recording recording = store.begin(given);
        id = recording.run().id;
        EXPECT_EQ(runs({"", "", {}, {}, "running", 0}).size(), 1U);
        recording.identify("CV\x01");
        Step step = step_named("cell voltage");
        step.phase = "power";
        step.code = "0x0A05";
        step.request = "battery-voltage";
        step.request_bytes = bytes;
        step.answer = step.measured = "4021000.50";
        step.answer_bytes = step.answer;
        step.low = "-5";
        step.high = "1e3"; // none
        step.unit = "uV";
        step.milliseconds = 1.23456;
        recording.add(step);
        step = step_named("camera", Verdict::error);
        step.answer = bytes;
        step.measured = std::string(301, '9'); // more than a floating-point number holds
        step.low = std::string(300, '9');
        step.milliseconds = 1e6; // begun before the run, by its own account
        step.expected = "x\xff";
        step.cause = "because\nof it";
        recording.add(step);
        recording.add(step_named("later", Verdict::fail));
        recording.end(Verdict::fail, "why");
        EXPECT_EQ(recording.run().unit + (recording.run().unit_is_port ? " port" : ""), "CV\x01");
        EXPECT_EQ(refusal([&] { recording.add(step); }),
                  "run " + id +
                      " is not open any more: it was removed, or closed by another station that could not "
                      "see this one live");
        EXPECT_THROW(recording.identify("other"), Error);
    }
    const KeptRun run = source()->find(id.substr(0, 30));
    EXPECT_EQ(run.id, id);
    EXPECT_EQ(run.unit, "CV\x01");
    EXPECT_FALSE(run.unit_is_port);
    EXPECT_EQ(run.plan + run.plan_digest + run.station + run.port + run.software,
              "pland1bench/dev/\\xffstation 1");
    EXPECT_EQ(run.verdict, Verdict::fail);
    EXPECT_EQ(run.failing, "camera") << "an error is a failure too";
    EXPECT_EQ(run.cause, "why");
    EXPECT_GE(*run.ended, run.started);
    EXPECT_LT(*run.ended, run.started + std::chrono::hours(1));
    const std::vector<Step> steps = source()->steps(id);
    ASSERT_EQ(steps.size(), 3U);
    EXPECT_EQ(steps[2].number, 3);
    EXPECT_GE(steps[2].began, steps[0].began);
    EXPECT_LT(steps[2].began, 1e6);
    EXPECT_EQ(steps[1].began, 0);
    EXPECT_EQ(steps[1].low.size(), 300U);
    EXPECT_EQ(steps[0].phase + steps[0].code + steps[0].request + steps[0].unit,
              "power0x0A05battery-voltageuV");
    EXPECT_EQ(steps[0].request_bytes, bytes);
    EXPECT_EQ(steps[0].answer, "4021000.50");
    EXPECT_FALSE(steps[0].answer_bytes) << "they are the text";
    EXPECT_EQ(steps[0].measured, "4021000.50");
    EXPECT_EQ(steps[0].low + "|" + steps[0].high, "-5|");
    EXPECT_DOUBLE_EQ(steps[0].milliseconds, 1.235);
    EXPECT_EQ(steps[1].answer, "\\x00\\xff\xc3\xa9");
    EXPECT_EQ(steps[1].answer_bytes, bytes);
    EXPECT_FALSE(steps[1].request_bytes);
    EXPECT_EQ(steps[1].measured, "");
    EXPECT_EQ(steps[1].expected, "x\\xff");
    EXPECT_EQ(steps[1].cause, "because\nof it");
    EXPECT_EQ(steps[1].verdict, Verdict::error);
}

TEST_F(Records, WhatIsNotKeptDoesNotPass)
{
    Store store({file(), "", false});
    store.check();
    Database other = open_file(file(), Access::write);
    other.execute("CREATE TRIGGER no_second BEFORE INSERT ON steps WHEN NEW.number = 2 BEGIN "
                  "SELECT RAISE(ABORT, 'no room'); END");
    {
        Recording recording = store.begin({});
        recording.add(step_named("one"));
        EXPECT_NE(refusal([&] { recording.add(step_named("two")); }).find("no room"), std::string::npos);
        recording.add(step_named("three"));
        EXPECT_NE(refusal([&] { recording.end(Verdict::pass); }).find("step 2 (two) was not kept"),
                  std::string::npos);
        EXPECT_EQ(recording.run().verdict, Verdict::error);
    }
}

TEST_F(Records, AFullFileIsTold)
{
    Hand hand(file());
    hand.database().number("PRAGMA max_page_count = 30");
    EXPECT_NE(refusal([&] {
                  for (int i = 0; i < 500; i++)
                      hand.add("2026-11-21", std::string(900, 'u'), Verdict::pass);
              }).find("the disk is full"),
              std::string::npos);
    EXPECT_EQ(refusal([&] { hand.database().fail(SQLITE_BUSY); }),
              file() + ": another program has held it for 10 s; `fuser " + file() + "` tells which");
    EXPECT_EQ(hand.database().text("SELECT NULL"), "");
}

TEST_F(Records, AreOnTheDiskWhenARunHasEnded)
{
    Store store({file(), "", false});
    const auto syncs_of = [](const auto &call) {
        const int before = syncs;
        call();
        return syncs - before;
    };
    EXPECT_GT(syncs_of([&] { store.check(); }), 0);
    std::optional<Recording> recording;
    EXPECT_EQ(syncs_of([&] {
                  recording.emplace(store.begin({}));
                  recording->identify("a");
                  recording->add(step_named("one"));
              }),
              0);
    EXPECT_GT(syncs_of([&] { recording->end(Verdict::pass); }), 0);
}

TEST_F(Records, AReaderDelaysTheLog)
{
    open_file(file(), Access::write).text("PRAGMA journal_mode = DELETE");
    Database reader(file(), SQLITE_OPEN_READWRITE);
    reader.execute("BEGIN; SELECT * FROM state");
    std::thread reads([&] {
        std::this_thread::sleep_for(milliseconds(100));
        reader.execute("COMMIT");
    });
    EXPECT_EQ(open_file(file(), Access::write).text("PRAGMA journal_mode"), "wal");
    reads.join();
}

TEST_F(Records, WhatIsLeftOpenIsAborted)
{
    Store store({file(), "", false});
    {
        const Recording left = store.begin({});
    }
    ASSERT_EQ(runs().size(), 1U);
    EXPECT_EQ(runs()[0].verdict, Verdict::aborted);
    EXPECT_EQ(runs()[0].cause, "the run was left in its middle");
    const Recording living = store.begin({});
    EXPECT_FALSE(runs()[1].verdict) << "its station lives";

    // One of a station that lives no more ends with its last step, when the next one starts or is asked.
    const auto leave = [&](const char *id) {
        Database database = open_file(file(), Access::write);
        Tables tables(database);
        KeptRun run;
        run.id = id;
        run.started = time_of("2026-11-21T12:00:00.000Z");
        tables.insert(run, 12345);
        Step step = step_named("one", Verdict::fail);
        step.number = 1;
        step.began = 1000;
        step.milliseconds = 500;
        tables.insert(run.id, step);
    };
    leave("00000000-0000-7000-8000-000000000001");
    {
        const Store next({file(), "", false});
    }
    EXPECT_EQ(open_file(file(), Access::read).number("SELECT count(*) FROM runs WHERE verdict IS NULL"), 1);
    leave("00000000-0000-7000-8000-000000000000");
    const std::vector<KeptRun> all = runs();
    ASSERT_EQ(all.size(), 4U);
    EXPECT_EQ(all[0].verdict, Verdict::aborted);
    EXPECT_EQ(all[0].cause, "the station ended in the middle of the run");
    EXPECT_EQ(all[0].failing, "one");
    EXPECT_EQ(time_text(*all[0].ended), "2026-11-21T12:00:01.500Z");
    EXPECT_FALSE(all[3].verdict);
}

TEST_F(Records, OwnersLiveAsLongAsTheirLocks)
{
    const Owner asks(file());
    int64_t number = 0;
    {
        Owner owner(file());
        number = owner.take();
        EXPECT_GT(number, 0);
        EXPECT_TRUE(owner.lives(number));
        EXPECT_TRUE(asks.lives(number));
        EXPECT_FALSE(asks.lives(number + 1));
        EXPECT_FALSE(asks.lives(number - 1));
        Owner other(file());
        EXPECT_NE(other.take(), number);
    }
    EXPECT_FALSE(asks.lives(number));
    EXPECT_THROW(Owner(path("no/such/folder.db")), Error);
}

TEST_F(Records, FilesOfOthersAreLeftAsTheyAre)
{
    {
        Hand(file()).add("2026-11-21", "a", Verdict::pass);
    }
    const std::string whole = bytes_of(file());
    const auto with = [&](size_t at, const std::string &bytes) {
        return std::string(whole).replace(at, bytes.size(), bytes);
    };
    const std::pair<std::string, const char *> rows[] = {
        {with(60, std::string("\0\0\0\4", 4)), "newer station"},
        {with(60, std::string("\1\0\0\1", 4)), "newer station"},
        {with(68, "drfc"), "is no records"},
        {with(68, std::string("\0\0\0\0", 4)), "is no records"},
        {with(0, "sqlite"), "is no records"},
        {"a text", "is no records"},
        {std::string(200, 'x'), "is no records"},
        {whole.substr(0, whole.size() / 2), "is damaged"},
        {with(size_t{5} * 4096, std::string(20'000, '\xA5')), "is damaged"},
    };
    for (const auto &[content, why] : rows) {
        std::ofstream(path("other.db"), std::ios::binary) << content;
        EXPECT_NE(refusal([&] { open_file(path("other.db"), Access::write); }).find(why), std::string::npos)
            << why;
        EXPECT_EQ(bytes_of(path("other.db")), content) << why;
        EXPECT_FALSE(std::filesystem::exists(path("other.db-lock")));
        // What the header tells is known before SQLite makes its index of the log.
        EXPECT_FALSE(why != std::string("is damaged") && std::filesystem::exists(path("other.db-shm")));
        std::filesystem::remove(path("other.db-wal"));
        std::filesystem::remove(path("other.db-shm"));
    }
    EXPECT_NE(refusal([&] { open_file(path("none.db"), Access::read); }).find("there are no records in"),
              std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(path("none.db")));
    EXPECT_NE(refusal([&] { open_file(folder, Access::write); }).find("is no file"), std::string::npos);
    EXPECT_NE(refusal([&] { open_file(path("no/such.db"), Access::write); }).find("cannot be opened"),
              std::string::npos);
    // One that was begun and not made yet is made.
    std::ofstream(path("begun.db")).flush();
    EXPECT_EQ(open_file(path("begun.db"), Access::write).text("PRAGMA journal_mode"), "wal");
}

TEST_F(Records, AreReadPageByPage)
{
    {
        Hand hand(file());
        Transaction transaction(hand.database());
        // Many of one time, across a page's end.
        for (int i = 0; i < 1203; i++)
            hand.add(i < 480   ? "2026-11-21T10:00"
                     : i < 520 ? "2026-11-21T11:00"
                               : "2026-11-21T12:00",
                     "a", Verdict::pass);
        hand.add("2026-11-21T09:00", "a", Verdict::pass); // the clock was put back
        transaction.commit();
    }
    const std::vector<KeptRun> all = runs();
    ASSERT_EQ(all.size(), 1204U);
    EXPECT_EQ(ids_of({all[0], all[1], all[480], all[500], all[501], all[1203]}), "1204 1 480 500 501 1203");
    EXPECT_TRUE(std::is_sorted(all.begin() + 1, all.end(),
                               [](const KeptRun &a, const KeptRun &b) { return a.id < b.id; }));
    EXPECT_EQ(ids_of(runs({"", "", {}, {}, "", 3})), "1201 1202 1203") << "the newest, in the order of time";
    EXPECT_EQ(runs({"", "", {}, {}, "", 700}).size(), 700U);
    EXPECT_EQ(runs({"", "", {}, *parse_time("2026-11-21T12:00", {}), "", 0}).size(), 521U);
}

TEST_F(Records, AreFoundByWhatIsAsked)
{
    {
        Hand hand(file());
        hand.add("2026-11-20T23:59:59.999", "a", Verdict::pass);
        hand.add("2026-11-21", "a", Verdict::fail, "nfc");
        hand.add("2026-11-21T12:00", "b", Verdict::error, "nfc", "other");
        hand.add("2026-11-21T23:59:59.999", "b\xff", Verdict::aborted);
        hand.add("2026-11-22", "/port", Verdict::pass);
    }
    const auto since = parse_time("2026-11-21", {}), until = parse_time("2026-11-22", {});
    const std::pair<Filter, const char *> rows[] = {
        {{"a", "", {}, {}, "", 0}, "1 2"},
        {{"b\xff", "", {}, {}, "", 0}, "4"},
        {{"", "other", {}, {}, "", 0}, "3"},
        {{"", std::string(64, 'a'), {}, {}, "", 0}, "1 2 4 5"},
        {{"", "", since, {}, "", 0}, "2 3 4 5"},
        {{"", "", {}, until, "", 0}, "1 2 3 4"},
        {{"", "", since, until, "", 0}, "2 3 4"},
        {{"", "", {}, {}, "pass", 0}, "1 5"},
        {{"", "", {}, {}, "fail", 0}, "2"},
        {{"", "", {}, {}, "error", 0}, "3"},
        {{"", "", {}, {}, "aborted", 0}, "4"},
        {{"", "", {}, {}, "running", 0}, ""},
        {{"a", "plan", since, until, "fail", 5}, "2"},
        {{"a' OR 'a' = 'a", "", {}, {}, "", 0}, ""},
        {{"", "", {}, {}, "", 2}, "4 5"},
        {{"", "", {}, {}, "", 1}, "5"},
    };
    for (const auto &[filter, ids] : rows)
        EXPECT_EQ(ids_of(runs(filter)), ids) << ids;
    const auto from = source();
    EXPECT_EQ(from->find("00000000-0000-7000-8000-000000000003").unit, "b");
    EXPECT_EQ(refusal([&] { from->find("00000000"); }),
              "more than one run begins with 00000000, such as 00000000-0000-7000-8000-000000000001 and "
              "00000000-0000-7000-8000-000000000002");
    for (const char *id : {"", "1", "x", "00000000-0000-7000-8000-000000000006"})
        EXPECT_NE(refusal([&] { from->find(id); }).find("there is no run"), std::string::npos) << id;
}

TEST_F(Records, YieldCountsUnitsNotRuns)
{
    struct Kept {
        const char *time, *unit;
        Verdict verdict;
        const char *failing = "", *plan = "plan";
    };
    const std::vector<Kept> kept = {
        {"2026-11-20T10:00", "old", Verdict::fail, "nfc"},         // fails yesterday, and passes today
        {"2026-11-20T11:00", "spoilt", Verdict::aborted},          // tells nothing
        {"2026-11-20T12:00", "moved", Verdict::pass, "", "other"}, // of another plan
        {"2026-11-21T10:00", "old", Verdict::pass},
        {"2026-11-21T10:01", "good", Verdict::pass},
        {"2026-11-21T10:02", "mended", Verdict::fail, "nfc"},
        {"2026-11-21T10:03", "mended", Verdict::pass},
        {"2026-11-21T10:04", "bad", Verdict::fail, "nfc"},
        {"2026-11-21T10:05", "bad", Verdict::error, "ssd"},
        {"2026-11-21T10:06", "bad", Verdict::fail, "ssd"},
        {"2026-11-21T10:07", "spoilt", Verdict::pass},
        {"2026-11-21T10:08", "spoilt", Verdict::error}, // no step failed
        {"2026-11-21T10:09", "moved", Verdict::aborted, "ssd"},
        {"2026-11-21T10:10", "/port", Verdict::fail, "nfc"}, // two units that did not tell their names
        {"2026-11-21T10:11", "/port", Verdict::pass},
        {"2026-11-21T10:12", "moved", Verdict::pass},
        {"2026-11-21T10:13", "good", Verdict::fail, "nfc", "other"}, // good by one plan, bad by another
        {"2026-11-22T00:00", "mended", Verdict::fail, "ssd"},        // tomorrow
    };
    {
        Hand hand(file());
        for (const Kept &run : kept)
            hand.add(run.time, run.unit, run.verdict, run.failing, run.plan);
    }
    Filter day;
    day.since = parse_time("2026-11-21", {});
    day.until = parse_time("2026-11-22", {});
    auto from = source();
    const auto yields = [&](const Filter &filter) {
        std::string text;
        for (const PlanYield &plan : from->tally(filter).plans())
            text += plan.plan + " " + std::to_string(plan.runs) + " runs " + std::to_string(plan.units) +
                    " units " + std::to_string(plan.first) + " first " + std::to_string(plan.first_pass) +
                    " at once " + std::to_string(plan.passed) + " passed\n";
        return text;
    };
    const auto harms = [&](const Filter &filter) {
        std::string text;
        for (const Harm &harm : from->tally(filter).harms(filter.limit))
            text += harm.step + " " + std::to_string(harm.units) + " " + std::to_string(harm.lost) + " " +
                    std::to_string(harm.runs) + "\n";
        return text;
    };
    EXPECT_EQ(yields(day), "other 1 runs 1 units 1 first 0 at once 0 passed\n"
                           "plan 12 runs 8 units 7 first 4 at once 5 passed\n");
    EXPECT_EQ(harms(day), "nfc 4 3 4\nssd 1 1 2\n 1 1 1\n");
    EXPECT_EQ(yields({}), "other 2 runs 2 units 2 first 1 at once 1 passed\n"
                          "plan 14 runs 8 units 8 first 4 at once 4 passed\n");
    EXPECT_EQ(harms({}), "nfc 5 4 5\nssd 2 2 3\n 1 1 1\n");
    Filter even;
    even.since = parse_time("2026-11-21T10:06", {});
    even.until = parse_time("2026-11-21T10:09", {});
    EXPECT_EQ(harms(even), " 1 1 1\nssd 1 1 1\n") << "by their names";
    const auto over_time = [&](const char *since, const char *until) {
        Filter filter;
        filter.since = parse_time(since, {});
        filter.until = parse_time(until, {});
        const OverTime over = from->tally(filter).over_time();
        std::string text = word(over.bucket);
        for (const Point &point : over.points)
            text += "\n" + time_text(point.from).substr(0, 16) + " " + std::to_string(point.runs) + " " +
                    std::to_string(point.units) + " " + std::to_string(point.first) + " " +
                    std::to_string(point.first_pass) + " " + std::to_string(point.passed);
        return text;
    };
    const std::string by_day = "day\n2026-11-20T00:00 2 2 2 1 1\n2026-11-21T00:00 13 9 8 4 5\n"
                               "2026-11-22T00:00 1 1 0 0 0";
    EXPECT_EQ(over_time("2026-11-20", "2026-11-23"),
              "hour\n2026-11-20T10:00 1 1 1 0 0\n2026-11-20T12:00 1 1 1 1 1\n"
              "2026-11-21T10:00 13 9 8 4 5\n2026-11-22T00:00 1 1 0 0 0");
    EXPECT_EQ(over_time("2026-11-20", "2026-11-23T00:00:00.001"), by_day);
    EXPECT_EQ(over_time("", "2026-11-24"), by_day);
    EXPECT_EQ(over_time("2026-08-01", "2026-11-29"), by_day);
    EXPECT_EQ(over_time("2026-08-01", "2026-11-29T00:00:00.001"), "month\n2026-11-01T00:00 16 10 10 5 5");
    // In whatever order the runs end, and of a file of an older station.
    const std::string of_day = yields(day), of_all = yields({});
    from.reset();
    std::filesystem::remove(file());
    {
        Hand hand(file());
        for (auto run = kept.rbegin(); run != kept.rend(); ++run)
            hand.add(run->time, run->unit, run->verdict, run->failing, run->plan);
    }
    from = source();
    EXPECT_EQ(yields(day), of_day);
    EXPECT_EQ(yields({}), of_all);
    open_file(file(), Access::write)
        .execute("DROP INDEX runs_turn; DROP INDEX runs_once; DROP INDEX runs_yield; ALTER TABLE runs DROP "
                 "COLUMN turn; CREATE INDEX runs_yield ON runs (started); PRAGMA user_version = 2");
    from = source();
    EXPECT_EQ(yields(day), of_day);
    EXPECT_EQ(yields({}), of_all);
    day.limit = 1;
    EXPECT_EQ(harms(day), "nfc 4 3 4\n");
    day.verdict = "pass";
    EXPECT_EQ(yields(day), "plan 6 runs 6 units 4 first 4 at once 6 passed\n") << "mended failed first";
}

TEST_F(Records, LongNamesAreCutBetweenCharacters)
{
    std::string name(999, 'n');
    const std::string kept = name;
    name += "\xc3\xa9 more";
    {
        Store store({file(), "", false});
        Recording recording = store.begin({});
        recording.identify(name);
        recording.add(step_named(name, Verdict::fail));
        recording.end(Verdict::fail);
        KeptRun run;
        run.unit = std::string(1000, 'm') + "m";
        store.begin(run).end(Verdict::pass);
    }
    const std::vector<KeptRun> all = runs();
    EXPECT_EQ(all[0].unit, kept);
    EXPECT_EQ(all[0].failing, kept);
    EXPECT_EQ(all[1].unit, std::string(1000, 'm'));
}

TEST(Export, TellsOfWhatDidNotPass)
{
    KeptRun run;
    run.id = "id";
    run.unit = "a";
    run.plan = "plan";
    run.started = time_of("2026-11-21T12:00:00Z");
    run.ended = run.started + milliseconds(1500);
    run.verdict = Verdict::fail;
    Step step = step_named("voltage", Verdict::fail);
    step.number = 7;
    step.phase = "power";
    step.code = "0x0A05";
    step.request = "battery-voltage";
    step.answer = step.measured = "5";
    step.high = "4";
    step.unit = "V";
    step.expected = "less";
    step.cause = "above\n4 V";
    step.milliseconds = 2.5;
    Step aborted = step_named("later", Verdict::aborted);
    aborted.answer = "no\nanswer";
    const auto exported = [](Form form, const KeptRun &one, const std::vector<Step> &steps) {
        char *text = nullptr;
        size_t size = 0;
        FILE *const file = open_memstream(&text, &size);
        Export into(form, file);
        into.add(one, steps);
        into.end();
        std::fclose(file);
        std::string all(text, size);
        std::free(text);
        return all;
    };
    const std::string junit = exported(Form::junit, run, {step, step_named("good"), aborted});
    const auto has = [](const std::string &text, const std::string &part) {
        EXPECT_NE(text.find(part), std::string::npos) << part << "\nin " << text;
    };
    has(junit, "<testsuite name=\"plan on a\" id=\"id\" hostname=\"\" timestamp=\"2026-11-21T12:00:00.000Z\" "
               "time=\"1.500\" "
               "tests=\"3\" failures=\"1\" errors=\"1\" skipped=\"0\">");
    has(junit, "<property name=\"run\" value=\"id\"/>");
    has(junit, "<property name=\"ended\" value=\"2026-11-21T12:00:01.500Z\"/>");
    has(junit, "<testcase classname=\"plan.power\" name=\"7 voltage\" time=\"0.002500\">\n"
               "      <failure type=\"fail\" message=\"above\">0x0A05 battery-voltage&#10;5&#10;measured 5 "
               "V&#10;limits ..4 V"
               "&#10;expected less&#10;because above&#10;4 V</failure>");
    has(junit, "<testcase classname=\"plan\" name=\"0 good\" time=\"0.000000\">\n      <system-out>");
    has(junit, "<error type=\"aborted\" message=\"no\">");
    EXPECT_EQ(junit.find("name=\"run\" time"), std::string::npos);
    run.verdict = std::nullopt;
    run.ended = std::nullopt;
    run.cause = "why";
    const std::string running = exported(Form::junit, run, {step_named("good")});
    has(running, "time=\"0.000\" tests=\"2\" failures=\"0\" errors=\"1\"");
    has(running, "<testcase classname=\"plan\" name=\"run\" time=\"0\">\n      <error type=\"error\" "
                 "message=\"why\">running</error>");
    run.verdict = Verdict::pass;
    has(exported(Form::junit, run, {step_named("good")}), "tests=\"1\" failures=\"0\" errors=\"0\"");

    run.verdict = std::nullopt;
    step.request_bytes = "\xff";
    const std::string csv = exported(Form::csv, run, {step});
    has(csv, "\r\nid,a,unit,plan,,,,,2026-11-21T12:00:00.000Z,,running,,why,7,0.000,power,voltage,0x0A05,"
             "battery-voltage,ff,5,,5,V,"
             ",4,less,fail,2.500,\"above\n4 V\"\r\n");
    const std::string empty = exported(Form::csv, run, {});
    EXPECT_EQ(std::count(empty.begin(), empty.end(), ','), 2 * 29) << empty;
    EXPECT_EQ(exported(Form::jsonl, run, {step}),
              "{\"id\":\"id\",\"unit\":\"a\",\"unit_source\":\"unit\",\"plan\":\"plan\",\"plan_digest\":\"\","
              "\"station\":\"\","
              "\"port\":\"\",\"software\":\"\",\"started\":\"2026-11-21T12:00:00.000Z\",\"ended\":null,"
              "\"verdict\":null,"
              "\"failing\":null,\"cause\":\"why\",\"steps\":[{\"number\":7,\"began\":0.0,\"phase\":\"power\","
              "\"name\":\"voltage\","
              "\"code\":\"0x0A05\",\"request\":\"battery-voltage\",\"request_bytes\":\"ff\",\"answer\":\"5\","
              "\"answer_bytes\":null,"
              "\"measured\":\"5\",\"unit\":\"V\",\"low\":null,\"high\":\"4\",\"expected\":\"less\","
              "\"verdict\":\"fail\","
              "\"milliseconds\":2.5,\"cause\":\"above\\n4 V\"}]}\n");
}

} // namespace station::records
