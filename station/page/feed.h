// What goes to every open page by itself: the line's state and each run that ends. Made once, for all of
// them.
#pragma once

#include "station/line/desk.h"
#include "station/line/line.h"
#include "station/records/store.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace station::page
{

// What there is of a line; all of it outlives whatever is given it.
struct LineSide {
    const Plan *plan = nullptr;
    const Line *line = nullptr; // null: there is no line, only records
    Desk *desk = nullptr;
    const records::Store *store = nullptr;
    const Interrupts *interrupts = nullptr;
};

using Bytes = std::shared_ptr<const std::string>;

// The line's state, ready to be sent.
struct Snapshot {
    uint64_t version = 0; // grows with every change
    Bytes json;           // as GET /api/slots answers
    Bytes event;          // the same as an event
};

struct RunEvent {
    uint64_t number = 0;
    Bytes event;
};

class Feed
{
  public:
    Feed(std::string station, std::string version);

    // May be called by any thread, before there is a line and after. Never waits for a page.
    void run_ended(const records::Run &run);

    // From now on; before that there is none.
    void watch(const LineSide &side);

    // Looked at anew when the last look is older than `age`.
    Snapshot now(std::chrono::milliseconds age);

    // The first run that has ended behind the one of this number and is still kept here; no event when there
    // is none.
    RunEvent ended_after(uint64_t number) const;
    uint64_t last_ended() const;

  private:
    std::string state() const;

    const std::string station_, version_;
    std::mutex looking_; // of the line's state
    LineSide side_;
    std::string state_;
    Snapshot snapshot_;
    Clock::time_point looked_{};
    mutable std::mutex mutex_; // of the runs that have ended: the line's threads take it
    std::deque<RunEvent> ended_;
    uint64_t numbers_ = 0;
};

// How far one page has got. It gets the runs that end from now on, then the line's state as it is. What lies
// between two states that it was too slow for, it never gets.
class Reader
{
  public:
    explicit Reader(Feed &feed) : feed_(feed), ended_(feed.last_ended()) {}

    // The next event, the line's state no older than `age`; null when it has got all.
    Bytes next(std::chrono::milliseconds age);

  private:
    Feed &feed_;
    uint64_t version_ = 0, ended_;
};

// A phone's or a plan's text as it is shown: valid UTF-8, and no more than so many bytes of it.
std::string shown(const std::string &text, size_t longest);

} // namespace station::page
