// Where the questions of all slots come together: one is open at a time, for one person.
#pragma once

#include "station/plan/people.h"
#include "station/plan/run.h"

#include <condition_variable>
#include <list>
#include <mutex>
#include <optional>
#include <string>

namespace station
{

class Desk
{
  public:
    struct Open {
        std::string slot;
        Prompt prompt;
    };

    explicit Desk(const Interrupts &interrupts) : interrupts_(interrupts) {}

    // Waits as People::answer does. Whose question it is stands in `slot`.
    std::optional<std::string> ask(const std::string &slot, const Prompt &prompt, Deadline deadline,
                                   std::string &why);

    // The question that is to be answered now.
    std::optional<Open> open();

    // Answers it; false when it is no answer to it, and it stays open.
    bool give(const std::string &answer);

    // Nobody is there any more.
    void leave();

  private:
    struct Waiting {
        Open open;
        std::optional<std::string> answer;
    };

    const Interrupts &interrupts_;
    std::mutex mutex_;
    std::condition_variable answered_;
    std::list<Waiting *> waiting_;
    bool left_ = false;
};

// A slot's way to the desk.
class AtDesk : public People
{
  public:
    AtDesk(Desk &desk, std::string slot) : desk_(desk), slot_(std::move(slot)) {}
    std::optional<std::string> answer(const Prompt &prompt, Deadline deadline, std::string &why) override
    {
        return desk_.ask(slot_, prompt, deadline, why);
    }

  private:
    Desk &desk_;
    std::string slot_;
};

} // namespace station
