// Plays the steps of a script over one connection and judges each against what its line expects.
#pragma once

#include "station/catalogue/answer.h"
#include "station/client/client.h"
#include "station/plan/script.h"

#include <string>

namespace station
{

// What a step came to.
struct Row {
    const Step *step = nullptr;
    bool as_expected = true;
    bool port_died = false; // and the step did not expect that
    std::string answer;
    double milliseconds = 0;
    Exchange exchange;
    Result result;
};

// One behind the other; a `wait` behind a restart knows that the phone goes down first.
class Run
{
  public:
    explicit Run(const Settings &settings) : client_(settings.client) {}

    Row take(const Step &step);

  private:
    Client client_;
    bool goes_down_ = false; // the last request has taken the phone down
};

} // namespace station
