// Plays the steps of a plan over one connection and judges each against what its line expects.
#pragma once

#include "station/catalogue/answer.h"
#include "station/client/client.h"
#include "station/plan/inputs.h"
#include "station/plan/people.h"

#include <atomic>
#include <functional>
#include <optional>
#include <string>

namespace station
{

// What a step came to.
struct Row {
    const Step *step = nullptr; // with what was put in; lives until the next step is taken
    bool as_expected = true;
    bool port_died = false;   // and the step did not expect that
    bool interrupted = false; // given up for an interrupt: it tells nothing of the unit
    std::string answer;
    std::optional<Decimal> measured;
    std::string cause; // why it is not as expected, or names nobody
    std::string unit;  // that the answer names
    double milliseconds = 0;
    Exchange exchange;
    Result result;
};

// Grows with every wish of the workstation's people that the run shall end.
using Interrupts = std::atomic<int>;

// One behind the other; the next `wait` behind a restart knows that the phone goes down first.
class Run
{
  public:
    Run(const Settings &settings, People &people, const Interrupts &interrupts)
        : client_(settings.client), people_(people), interrupts_(interrupts)
    {
    }

    // `question_open` hears of a question before it is asked. A step that waits ends early when the number of
    // interrupts grows.
    Row take(const Step &step, const std::function<void(const Prompt &)> &question_open);

    Client &client() { return client_; }

    // Whether a restart was asked for and its connection is still the one.
    [[nodiscard]] bool goes_down() const { return restarted_ == client_.connections(); }

  private:
    void ask_people(Row &row, const std::function<void(const Prompt &)> &question_open);

    Client client_;
    People &people_;
    const Interrupts &interrupts_;
    Inputs inputs_;
    Step step_;                    // that is taken
    std::optional<int> restarted_; // the connection on which a restart was asked for, until the next `wait`
};

} // namespace station
