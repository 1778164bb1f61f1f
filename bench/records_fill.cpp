// Makes records: many at once to measure with, or as a line does, to kill it in the middle.
#include "station/records/file.h"
#include "station/records/store.h"
#include "station/records/tables.h"
#include "station/records/text.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

namespace
{

using namespace station::records;

constexpr char USAGE[] =
    "usage: bench_records FILE fill RUNS STEPS [DAYS]   runs of the last DAYS days (365), written in bulk\n"
    "       bench_records WHERE line THREADS RUNS STEPS [MS]  what a line does: each thread its runs, a "
    "transaction a\n"
    "                                                   step, MS milliseconds apart; prints RUN NUMBER for "
    "each step that\n"
    "                                                   is kept, RUN end VERDICT for each run, and figures "
    "at the end\n"
    "       bench_records WHERE nasty                   a few runs with what a hostile phone may answer\n";

constexpr const char *NAMES[] = {"port-check",
                                 "serial-number",
                                 "build",
                                 "battery-voltage",
                                 "battery-level",
                                 "cell difference",
                                 "charging current",
                                 "modem",
                                 "wifi",
                                 "bluetooth",
                                 "nfc",
                                 "ssd",
                                 "panel",
                                 "touch",
                                 "camera",
                                 "fingerprint",
                                 "vibrator",
                                 "keys",
                                 "lock state",
                                 "teardown"};

// A step of a final test. One in a thousand fails, some kinds more.
Step make_step(int number, std::mt19937 &random)
{
    const size_t kind = static_cast<size_t>(number) % std::size(NAMES);
    Step step;
    step.number = number;
    step.began = number * 90.0;
    step.phase = number <= 5 ? "identity" : "function";
    step.name = std::string(NAMES[kind]) + (number < 20 ? "" : " again");
    step.code = "0xE602";
    step.request = "get-prop vendor.factory.item" + std::to_string(kind);
    step.request_bytes = std::string("\x4b\xfa\x02\xe6\x00\x1c\x00", 7) + step.request.substr(9);
    step.milliseconds = 0.2 + static_cast<double>(random() % 100'000) / 1000;
    if (number % 4 == 0) {
        step.measured = step.answer = std::to_string(3'600'000 + random() % 800'000);
        step.unit = "uV";
        step.low = "3600000";
        step.high = "4400000";
    } else
        step.answer = step.expected = "ok " + std::to_string(number);
    if (random() % 1000 < kind / 8) {
        step.verdict = Verdict::fail;
        step.answer = "ERROR";
        step.cause = "Open file failed!\nRead battery1 voltage Fail!";
    }
    return step;
}

Run make_run(uint64_t unit)
{
    char name[32];
    std::snprintf(name, sizeof name, "CV%08lX", unit);
    Run run;
    run.unit = name;
    run.plan = "final-test.station";
    run.plan_digest = "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08";
    run.station = "line-1";
    run.port = "build/phone/phone" + std::to_string(unit % 32) + "/port";
    run.software = "station 1.0";
    return run;
}

// The first runs are written as a line writes them, the others copy their steps: that is faster.
int fill(const std::string &file, size_t runs, int steps, double days)
{
    static constexpr size_t RUNS_AT_ONCE = 2000;
    Database database = open_file(file, Access::write);
    database.execute("PRAGMA synchronous = OFF; PRAGMA foreign_keys = OFF");
    Tables tables(database);
    Statement copy(
        database,
        "INSERT INTO steps SELECT ?, number, began, phase, name, code, request, request_bytes, answer, "
        "answer_bytes, measured, unit, low, high, expected, verdict, milliseconds, cause FROM steps WHERE "
        "run = ?");
    std::vector<std::pair<std::string, Verdict>> models;
    std::mt19937 random(static_cast<unsigned>(runs)); // the same runs make the same steps
    const Time begin = now() - std::chrono::milliseconds(static_cast<int64_t>(days * 86'400'000));
    const double pace = days * 86'400'000 / static_cast<double>(runs);
    uint64_t unit = 0;
    bool again = false; // every other unit that failed is tested again
    for (size_t done = 0; done < runs;) {
        Transaction transaction(database);
        for (const size_t end = std::min(runs, done + RUNS_AT_ONCE); done < end; done++) {
            Run run = make_run(again ? unit : ++unit);
            run.started =
                begin + std::chrono::milliseconds(static_cast<int64_t>(pace * static_cast<double>(done)));
            run.id = new_id(run.started);
            tables.insert(run, 0);
            Verdict verdict = Verdict::pass;
            if (done >= RUNS_AT_ONCE) {
                const auto &model = models[random() % models.size()];
                copy.bind(run.id).bind(model.first).execute();
                verdict = model.second;
            }
            for (int number = 1; number <= steps && done < RUNS_AT_ONCE; number++) {
                const Step step = make_step(number, random);
                tables.insert(run.id, step);
                if (step.verdict != Verdict::pass)
                    verdict = step.verdict;
            }
            if (done < RUNS_AT_ONCE)
                models.emplace_back(run.id, verdict);
            tables.end(run.id, run.started + std::chrono::milliseconds(90 * steps), verdict, "");
            again = verdict != Verdict::pass && random() % 2 == 0;
        }
        transaction.commit();
    }
    return 0;
}

using Clock = std::chrono::steady_clock;

// The costs of one kind of call.
class Costs
{
  public:
    template <typename Call> void measure(Call &&call)
    {
        const auto begin = Clock::now();
        call();
        costs_.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    }
    void add(const Costs &other) { costs_.insert(costs_.end(), other.costs_.begin(), other.costs_.end()); }
    void print(const char *name)
    {
        std::sort(costs_.begin(), costs_.end());
        const auto at = [&](double share) {
            return costs_[static_cast<size_t>(share * static_cast<double>(costs_.size() - 1))];
        };
        if (!costs_.empty())
            std::fprintf(stderr, "%-8s %7zu  median %8.1f us  99 %% %8.1f us  most %8.1f us\n", name,
                         costs_.size(), at(0.5), at(0.99), at(1));
    }

  private:
    std::vector<double> costs_;
};

struct Slot {
    Costs begins, steps, ends;
    size_t not_kept = 0;
};

void play(Store &store, size_t number, size_t runs, int steps, int pause, Slot &slot)
{
    std::mt19937 random(static_cast<unsigned>(number));
    for (size_t i = 0; i < runs; i++)
        try {
            std::optional<Recording> recording;
            slot.begins.measure([&] { recording.emplace(store.begin(make_run(1000 * number + i))); });
            for (int n = 1; n <= steps; n++) {
                std::this_thread::sleep_for(std::chrono::milliseconds(pause));
                slot.steps.measure([&] { recording->add(make_step(n, random)); });
                std::printf("%s %d\n", recording->run().id.c_str(), n);
                std::fflush(stdout);
            }
            slot.ends.measure([&] { recording->end(Verdict::pass); });
            std::printf("%s end pass\n", recording->run().id.c_str());
            std::fflush(stdout);
        } catch (const Error &error) {
            std::fprintf(stderr, "not kept: %s\n", error.what());
            slot.not_kept++;
        }
}

int line(const std::string &where, size_t threads, size_t runs, int steps, int pause)
{
    Store store(where_of(where));
    store.check();
    std::vector<Slot> slots(threads);
    std::vector<std::thread> players;
    const auto begin = Clock::now();
    for (size_t i = 0; i < threads; i++)
        players.emplace_back(play, std::ref(store), i, runs, steps, pause, std::ref(slots[i]));
    for (std::thread &player : players)
        player.join();
    for (size_t i = 1; i < threads; i++) {
        slots[0].begins.add(slots[i].begins);
        slots[0].steps.add(slots[i].steps);
        slots[0].ends.add(slots[i].ends);
        slots[0].not_kept += slots[i].not_kept;
    }
    slots[0].begins.print("begin");
    slots[0].steps.print("step");
    slots[0].ends.print("end");
    std::fprintf(stderr, "%.2f s\n", std::chrono::duration<double>(Clock::now() - begin).count());
    return slots[0].not_kept > 0 ? 1 : 0;
}

int nasty(const std::string &where)
{
    Store store(where_of(where));
    std::string all;
    for (int byte = 0; byte < 256; byte++)
        all += static_cast<char>(byte);
    const std::string texts[] = {all,
                                 "=1+1",
                                 "+5",
                                 "-5",
                                 "-2+3",
                                 "@SUM(A1)",
                                 "\t=1",
                                 "a,\"b\"\r\nc",
                                 "]]></testcase><x a='\"&amp;",
                                 "\x1b[2J\x1b]0;x\x07",
                                 "\xed\xa0\x80\xf4\x90\x80\x80\xc0\x80",
                                 "\xef\xbf\xbe\xc2\x9b",
                                 "\xc3\xa9\xe2\x82\xac\xf0\x9f\x93\xb1",
                                 std::string(70'000, '\xff'),
                                 "",
                                 "\xef\xbc\x9d=1"};
    Run run = make_run(7);
    run.plan = "=plan\xff<&.station";
    Recording recording = store.begin(run);
    recording.identify(std::string("unit\0\x1b[1m\xc3\xa9", 11));
    for (const std::string &text : texts) {
        Step step;
        step.name = step.phase = text.substr(0, 40);
        step.request = step.answer = step.expected = step.cause = text;
        step.answer_bytes = text;
        step.measured = text == "-5" ? "-5" : "5.";
        step.verdict = text.empty() ? Verdict::error : text[0] == '=' ? Verdict::fail : Verdict::pass;
        recording.add(step);
    }
    recording.end(Verdict::fail, all);
    Run port = make_run(8);
    port.unit = port.port;
    port.unit_is_port = true;
    store.begin(port).end(Verdict::error, "the port never answered");
    {
        const Recording left = store.begin(make_run(9));
    }
    return 0;
}

} // namespace

int main(int count, char **words)
{
    const std::string what = count > 2 ? words[2] : "";
    const auto number = [&](int i, long standard) { return count > i ? std::atol(words[i]) : standard; };
    try {
        if (what == "fill" && count >= 5)
            return fill(words[1], number(3, 0), static_cast<int>(number(4, 0)),
                        static_cast<double>(number(5, 365)));
        if (what == "line" && count >= 6)
            return line(words[1], number(3, 0), number(4, 0), static_cast<int>(number(5, 0)),
                        static_cast<int>(number(6, 0)));
        if (what == "nasty")
            return nasty(words[1]);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "bench_records: %s\n", error.what());
        return 1;
    }
    std::fputs(USAGE, stderr);
    return 2;
}
