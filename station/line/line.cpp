#include "station/line/line.h"

#include "station/client/errors.h"

#include <algorithm>
#include <atomic>
#include <glob.h>
#include <optional>
#include <sys/stat.h>

namespace station
{

static constexpr auto PAUSE = std::chrono::milliseconds(100);
static constexpr double LOOK_TIMEOUT = 1;
static constexpr int UNANSWERED_MAX = 3; // looks, behind which nobody is on a serial line any more

static std::string word_of(End end) { return records::word(verdict_of(end)); }

static std::string seconds_since(Clock::time_point begin)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", std::chrono::duration<double>(Clock::now() - begin).count());
    return text;
}

// One phone after the other on one port. As a listener it makes of a run what the slot shows.
struct Line::Slot : Listener {
    Slot(Line &owner, int number, const std::string &port)
        : line(owner), at_desk(owner.desk_, std::to_string(number))
    {
        state.number = number;
        state.port = port;
        state.unit = port;
        if (line.answers_)
            answers_file.emplace(*line.answers_, at_desk);
    }

    template <typename Change> void change(Change &&set)
    {
        const std::lock_guard<std::mutex> lock(line.mutex_);
        set(state);
    }

    void hear(const std::string &event) { line.hear(state, event); }

    void run_began(const Plan &plan) override
    {
        change([&](SlotState &now) {
            const SlotState before = now;
            now = {};
            now.number = before.number;
            now.port = now.unit = before.port;
            now.passed = before.passed;
            now.tested = before.tested;
            now.phase = SlotState::Phase::tests;
            now.answered = true;
            now.steps = plan.steps.size();
            now.run = keeper->run().id;
            now.started = keeper->run().started;
        });
        begin = Clock::now();
        hear("begins " + plan.name);
    }

    void step_begins(size_t index, const Step &step) override
    {
        change([&](SlotState &now) {
            now.done = index;
            now.step = step.name();
        });
    }

    void question_open(const Prompt &prompt) override { hear("asks: " + prompt.text); }

    void unit_told(const std::string &unit) override
    {
        change([&](SlotState &now) { now.unit = unit; });
    }

    void step_finished(const Row &row) override
    {
        if (row.as_expected)
            return;
        const std::string cause =
            row.answer + (row.cause.empty() || row.cause == row.answer ? "" : " / because: " + row.cause);
        change([&](SlotState &now) {
            if (now.failing.empty()) {
                now.failing = row.step->name();
                now.cause = cause;
            }
        });
        hear("! " + row.step->name() + "  " + cause);
    }

    void show(End end, const std::string &cause)
    {
        change([&](SlotState &now) {
            now.phase = SlotState::Phase::shows;
            now.done = now.steps;
            now.step.clear();
            now.end = end;
            now.tested++;
            now.passed += end == End::pass ? 1 : 0;
            if (!cause.empty()) {
                now.failing.clear();
                now.cause = cause;
            }
        });
        std::string event = word_of(end) + " after " + seconds_since(begin);
        if (!cause.empty() || !state.failing.empty())
            event += ": " + (cause.empty() ? state.failing : cause);
        hear(event);
    }

    bool looks_on() const { return line.takes(); }

    // Sleeps until the next look, or until there is none.
    void pause() const
    {
        for (const auto end = Clock::now() + line.options_.look; looks_on() && Clock::now() < end;)
            std::this_thread::sleep_for(PAUSE);
    }

    bool answers() const
    {
        Client::Settings settings = line.settings_.client;
        settings.port = state.port;
        settings.timeout = LOOK_TIMEOUT;
        settings.retries = 0;
        try {
            return Client(settings).ask(port_check()).outcome == Outcome::answer;
        } catch (const std::exception &) { // no port that can be one
            return false;
        }
    }

    // A socket's connection ends with the phone, however busy it may be until then. On a serial line nothing
    // tells of that but that nobody answers.
    void await_leaving() const
    {
        struct stat status = {};
        if (stat(state.port.c_str(), &status) == 0 && S_ISCHR(status.st_mode)) {
            for (int unanswered = 0; unanswered < UNANSWERED_MAX && looks_on(); pause())
                unanswered = answers() ? 0 : unanswered + 1;
            return;
        }
        try {
            Port port(state.port, Clock::now() + line.options_.look);
            while (looks_on())
                port.read(Clock::now() + line.options_.look);
        } catch (const std::exception &) {
            return;
        }
    }

    void test()
    {
        begin = Clock::now();
        try {
            line.store_.check();
        } catch (const records::Error &error) {
            line.stop_taking(error.what());
            return;
        }
        Settings settings = line.settings_;
        settings.client.port = state.port;
        Keeper kept(&line.store_, {line.options_.station, state.port, line.options_.software});
        keeper = &kept;
        People &people = answers_file ? *answers_file : static_cast<People &>(at_desk);
        Playing playing{settings, people, line.interrupts_};
        playing.stop = line.options_.stop;
        playing.why = line.options_.why;
        playing.watch = true;
        try {
            const Ended ended = play(line.plan_, playing, {&kept, this});
            if (line.options_.finished)
                line.options_.finished(kept.run());
            show(ended.end, ended.end == End::aborted ? ended.cause : "");
        } catch (const std::exception &error) {
            if (dynamic_cast<const records::Error *>(&error))
                line.stop_taking(error.what());
            show(End::error, error.what());
        }
        keeper = nullptr;
    }

    void serve()
    {
        while (looks_on()) {
            if (!port_lock)
                lock_port();
            if (!port_lock || !answers()) {
                if (line.is_late())
                    break;
                pause();
                continue;
            }
            hear("a phone answers");
            test();
            if (line.options_.once)
                break;
            await_leaving();
            if (!looks_on())
                break;
            change([](SlotState &now) { now.phase = SlotState::Phase::waits; });
            hear("the phone has gone");
        }
        is_over = true;
    }

    void lock_port()
    {
        try {
            port_lock.emplace(state.port);
            change([](SlotState &now) { now.phase = SlotState::Phase::waits; });
        } catch (const PortError &error) {
            const bool is_new = state.phase != SlotState::Phase::refused;
            change([&](SlotState &now) {
                now.phase = SlotState::Phase::refused;
                now.cause = error.what();
            });
            if (is_new)
                hear(error.what());
        }
    }

    Line &line;
    SlotState state;
    AtDesk at_desk;
    std::optional<AnswersFile> answers_file;
    std::optional<PortLock> port_lock;
    const Keeper *keeper = nullptr; // of the run that is played; hears of everything before the slot does
    Clock::time_point begin{};
    std::atomic<bool> is_over{false};
    std::thread thread;
};

Line::Line(const Plan &plan, const Settings &settings, const LineOptions &options, records::Store &store,
           const AnswersFile *answers, Desk &desk, const Interrupts &interrupts,
           std::function<void(const std::string &)> heard)
    : plan_(plan), settings_(settings), options_(options), store_(store), answers_(answers), desk_(desk),
      interrupts_(interrupts), heard_(std::move(heard))
{
    for (const std::string &port : options_.ports)
        add(port);
    find_ports();
    for (const std::unique_ptr<Slot> &slot : slots_)
        slot->port_lock.emplace(slot->state.port);
    start();
}

Line::~Line()
{
    for (const std::unique_ptr<Slot> &slot : slots_)
        if (slot->thread.joinable())
            slot->thread.join();
}

void Line::add(const std::string &port)
{
    for (const std::unique_ptr<Slot> &slot : slots_)
        if (slot->state.port == port)
            return;
    auto slot = std::make_unique<Slot>(*this, static_cast<int>(slots_.size()) + 1, port);
    const std::lock_guard<std::mutex> lock(mutex_); // others than the owner look at the slots
    slots_.push_back(std::move(slot));
}

void Line::find_ports()
{
    looked_ = Clock::now();
    if (options_.glob.empty())
        return;
    glob_t found = {};
    if (glob(options_.glob.c_str(), GLOB_NOSORT, nullptr, &found) == 0) {
        std::vector<std::string> paths(found.gl_pathv, found.gl_pathv + found.gl_pathc);
        std::sort(paths.begin(), paths.end());
        for (const std::string &path : paths)
            add(path);
    }
    globfree(&found);
}

void Line::start()
{
    for (const std::unique_ptr<Slot> &slot : slots_)
        if (!slot->thread.joinable())
            slot->thread = std::thread([&slot = *slot] { slot.serve(); });
}

bool Line::is_late() const
{
    const std::chrono::duration<double> waited = Clock::now() - began_;
    return options_.once && waited.count() >= settings_.client.timeout;
}

bool Line::look()
{
    if (takes() && Clock::now() - looked_ >= options_.look)
        find_ports();
    start();
    const bool all_ended = std::all_of(
        slots_.begin(), slots_.end(), [](const std::unique_ptr<Slot> &slot) { return slot->is_over.load(); });
    if (!slots_.empty())
        return !all_ended;
    return takes() && !is_late();
}

std::vector<SlotState> Line::slots() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<SlotState> states;
    for (const std::unique_ptr<Slot> &slot : slots_)
        states.push_back(slot->state);
    return states;
}

std::string Line::not_kept() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return not_kept_;
}

void Line::hear(const SlotState &state, const std::string &event)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    heard_(std::to_string(state.number) + "  " + state.unit + "  " + event);
}

void Line::stop_taking(const std::string &why)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!not_kept_.empty())
        return;
    not_kept_ = why;
    heard_("no more units are taken: " + why);
}

} // namespace station
