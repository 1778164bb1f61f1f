#include "stations.h"
#include "clock.h"

#include <poll.h>

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace router
{

// A station itself is large and asked for from outside: without memory it is refused. What list and queue
// need for it is a few dozen bytes, and a process that has not got these may end.
station *stations::add(descriptor socket)
{
    auto *s = new (std::nothrow) station(std::move(socket));
    if (s) {
        all_.emplace_back(s);
        s->place = std::prev(all_.end());
        s->progress_ms = now_ms();
    }
    return s;
}

void stations::remove(station *s)
{
    if (s->queued)
        turns_.erase(std::find(turns_.begin(), turns_.end(), s));
    all_.erase(s->place);
}

void stations::note_progress(station *s)
{
    s->progress_ms = now_ms();
    all_.splice(all_.end(), all_, s->place);
}

void stations::queue_turn(station *s)
{
    if (s->queued)
        return;
    s->queued = true;
    turns_.push_back(s);
}

station *stations::take_turn()
{
    if (turns_.empty())
        return nullptr;
    station *s = turns_.front();
    turns_.pop_front();
    s->queued = false;
    return s;
}

station *stations::longest_silent(int64_t since_ms) const
{
    for (const auto &s : all_) {
        if (s->progress_ms > since_ms)
            return nullptr;
        // After a long request the sockets of many hold what nobody has had the time to look at.
        pollfd unread = {s->socket(), POLLIN, 0};
        if (!s->queued && !s->has_input() && s->pending() == 0 && poll(&unread, 1, 0) == 0)
            return s.get();
    }
    return nullptr;
}

} // namespace router
