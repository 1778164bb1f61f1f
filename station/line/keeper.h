// From a plan's run, told as events, to runs and steps as they are kept.
#pragma once

#include "station/plan/play.h"
#include "station/records/store.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace station
{

// Where and with what is tested.
struct Bench {
    std::string station;
    std::string port;
    std::string software;
};

class Keeper : public Listener
{
  public:
    // Keeps in the store, if there is one; collects the steps for reports, if it shall.
    Keeper(records::Store *store, Bench bench, bool collects = false);
    ~Keeper() override;

    void run_began(const Plan &plan) override;
    void unit_told(const std::string &unit) override;
    void step_finished(const Row &row) override;
    void run_ended(const Ended &ended) override;

    const records::Run &run() const { return run_; }
    const std::vector<records::Step> &steps() const { return steps_; }

  private:
    records::Store *store_;
    Bench bench_;
    bool collects_;
    Clock::time_point begin_{};
    records::Run run_;
    std::vector<records::Step> steps_;
    int number_ = 0;
    std::unique_ptr<records::Recording> recording_;
};

records::Step step_of(const Row &row);
records::Verdict verdict_of(End end);

} // namespace station
