// Where the questions of all slots come together, for whoever answers first: the person at the terminal, who
// is asked one at a time, or one of those at the pages, who see them all.
#pragma once

#include "station/plan/people.h"
#include "station/plan/run.h"

#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace station
{

class Desk
{
  public:
    struct Open {
        std::string slot;
        Prompt prompt;
        uint64_t id = 0; // of this question, in the life of the desk
    };
    enum class Given {
        taken,
        unfit, // no answer to it: it stays open
        closed // somebody else has answered it, or nobody waits for it any more
    };

    explicit Desk(const Interrupts &interrupts) : interrupts_(interrupts) {}

    // Waits as People::answer does. Whose question it is stands in `slot`.
    std::optional<std::string> ask(const std::string &slot, const Prompt &prompt, Deadline deadline,
                                   std::string &why);

    // The question that the person at the terminal is to answer now.
    std::optional<Open> open() const;
    // All that wait, the oldest first.
    std::vector<Open> all_open() const;

    // The first answer that fits is the answer.
    Given give(uint64_t id, const std::string &answer);

    // Nobody is there any more.
    void leave();

  private:
    struct Waiting {
        Open open;
        std::optional<std::string> answer;
    };

    const Interrupts &interrupts_;
    mutable std::mutex mutex_;
    std::condition_variable answered_;
    std::list<Waiting *> waiting_;
    uint64_t asked_ = 0;
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
