#include "stations.h"
#include "clock.h"

#include <poll.h>

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace router
{

// How long one must have been silent to be dispensable: who asks now and then keeps its place, and who has
// just come has the time for its first request.
static constexpr int64_t SILENT_MS = 1000;
static constexpr int64_t NEWCOMER_MS = 100; // when it has not asked anything yet

// A station itself is large and asked for from outside: without memory it is refused. What list and queue
// need for it is a few dozen bytes, and a process that has not got these may end.
station *stations::add(owned::descriptor socket)
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

// Nothing is under way for it. After a long request many sockets hold what nobody has had the time to take.
static bool is_idle(const station &s)
{
    pollfd unread = {s.socket(), POLLIN, 0};
    return !s.queued && !s.has_input() && s.pending() == 0 && poll(&unread, 1, 0) == 0;
}

station *stations::dispensable() const
{
    const int64_t now = now_ms();
    station *other = nullptr;
    for (const auto &s : all_) {
        const int64_t silent_ms = now - s->progress_ms;
        if (silent_ms < NEWCOMER_MS)
            break;
        if (s->asked && (other || silent_ms < SILENT_MS))
            continue;
        if (!is_idle(*s))
            continue;
        other = s.get();
        if (!s->asked)
            break;
    }
    return other;
}

} // namespace router
