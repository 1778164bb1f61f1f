// Many phones at once: a slot for each port, a thread for each slot.
#pragma once

#include "station/line/desk.h"
#include "station/line/keeper.h"
#include "station/line/port_lock.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace station
{

// What a slot shows.
struct SlotState {
    enum class Phase { waits, tests, shows, refused };

    int number = 0; // from 1
    std::string port;
    Phase phase = Phase::waits;
    std::string unit; // the port's name until it has told its own
    size_t done = 0, steps = 0;
    std::string step;      // that is played
    End end = End::pass;   // of the run that it shows
    std::string failing;   // its first failed step, or the first so far
    std::string cause;     // of that
    bool answered = false; // a phone was here
    size_t passed = 0, tested = 0;
    std::string run;         // its id in the records, once it has begun
    records::Time started{}; // of that
};

struct LineOptions {
    std::vector<std::string> ports;
    std::string glob;                               // looked at again and again; or empty
    Clock::duration look = std::chrono::seconds(1); // from one look for ports and phones to the next
    std::string station, software;
    bool once = false;
    bool stop = false;
    bool why = true;
    // Hears of every run that has ended, from any thread; may be empty.
    std::function<void(const records::Run &)> finished;
};

class Line
{
  public:
    // `answers` may be null; what it does not answer is asked at the desk. `heard` gets a line for every
    // event, from any thread, one at a time. Throws PortError when a port is another line's. All that is
    // given outlives the line.
    Line(const Plan &plan, const Settings &settings, const LineOptions &options, records::Store &store,
         const AnswersFile *answers, Desk &desk, const Interrupts &interrupts,
         std::function<void(const std::string &)> heard);
    ~Line();
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    // To be called again and again: looks for new ports when it is time. False when the line has ended.
    bool look();

    std::vector<SlotState> slots() const;

    // Why no more units are taken; empty while they are.
    std::string not_kept() const;

  private:
    struct Slot;
    friend struct Slot;

    void add(const std::string &port);
    void find_ports();
    void start();         // the slots that have not been
    bool is_late() const; // for a phone to appear, where each port is tested once
    void hear(const SlotState &state, const std::string &event);
    void stop_taking(const std::string &why);
    bool takes() const { return interrupts_ == 0 && not_kept().empty(); }

    const Plan &plan_;
    const Settings &settings_;
    const LineOptions &options_;
    records::Store &store_;
    const AnswersFile *answers_;
    Desk &desk_;
    const Interrupts &interrupts_;
    std::function<void(const std::string &)> heard_;
    mutable std::mutex mutex_; // of all slots' states and of not_kept_
    std::string not_kept_;
    Clock::time_point looked_{}, began_ = Clock::now();
    std::vector<std::unique_ptr<Slot>> slots_;
};

} // namespace station
