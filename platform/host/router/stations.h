// All stations, and whose turn it is.
#pragma once

#include "station.h"

#include <deque>

namespace router
{

class stations
{
  public:
    // Null: there is no memory for one more.
    [[nodiscard]] station *add(owned::descriptor socket);

    // Closes its connection.
    void remove(station *s);

    // Its socket has given or taken something, or it has to read from now on.
    void note_progress(station *s);

    // A station waits for one turn at the most, and is served one request in it.
    void queue_turn(station *s);
    [[nodiscard]] station *take_turn(); // null when nobody waits
    [[nodiscard]] bool turn_waits() const { return !turns_.empty(); }

    // Whom to close for a new one: of those that have never asked anything the one that has been silent for
    // longest, and else of all. Null: they are all in the middle of something, or were a short while ago.
    [[nodiscard]] station *dispensable() const;

    // Calls visit(station *) for each. The visitor may remove the one that it is called for.
    template <typename Visitor> void for_each(Visitor visit)
    {
        for (auto next = all_.begin(); next != all_.end();)
            visit((next++)->get());
    }

  private:
    station_list all_; // in order of their last progress
    std::deque<station *> turns_;
};

} // namespace router
