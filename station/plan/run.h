// Plays the steps of a script over one connection and judges each against what its line expects.
#pragma once

#include "station/catalogue/answer.h"
#include "station/client/client.h"
#include "station/plan/script.h"

#include <string>

namespace station
{

struct Row {
    const Step *step = nullptr;
    bool as_expected = true;
    std::string answer;
    double milliseconds = 0;
    Exchange exchange;
    Result result;
};

// Plays steps one after the other; one that went down is waited for by a step that says so.
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
