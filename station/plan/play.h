// A plan played on one unit, told as events: whatever shows or keeps a run listens to them.
#pragma once

#include "station/plan/run.h"
#include "station/plan/script.h"

#include <string>
#include <vector>

namespace station
{

// How a run ended. fail: the unit is not as it should be. error: it could not be found out. aborted: the
// station's people wanted it so.
enum class End { pass, fail, aborted, error };

struct Ended {
    End end = End::pass;
    std::string cause;      // where no step tells
    bool port_died = false; // and lines were not played for it
    size_t not_played = 0;
};

class Listener
{
  public:
    virtual ~Listener() = default;
    virtual void run_began(const Plan &) {}
    virtual void step_begins(size_t /*index*/, const Step &) {}
    virtual void question_open(const Prompt &) {}
    virtual void unit_told(const std::string & /*unit*/) {}
    virtual void step_finished(const Row &) {}
    virtual void run_ended(const Ended &) {}
};

struct Playing {
    const Settings &settings;
    People &people;
    const Interrupts &interrupts; // those from now on end the run
    bool stop = false;            // at the first failure
    bool keep_going = false;      // also when the port has died
    bool why = true;              // fetch the cause of a failed request
    bool watch = false;           // whether the phone restarts by itself; else only behind the plan's `unit`
};

// Plays the plan. A listener that throws ends the run as an error: the steps of `phase always` are played all
// the same, and the first exception is thrown on when all listeners have heard the end.
Ended play(const Plan &plan, const Playing &playing, const std::vector<Listener *> &listeners);

} // namespace station
