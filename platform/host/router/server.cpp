#include "server.h"
#include "clock.h"
#include "log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace router
{

static constexpr int64_t STUCK_MS = 1000;   // a station that must read its answers and does not is let go
static constexpr int64_t REPORT_MS = 1000;  // between two lines about the same
static constexpr int TICK_MS = 100;         // while one of those times runs
static constexpr int FIRST_TABLE_MS = 1000; // how long the first request waits for a table
static constexpr int EVENTS_MAX = 64;       // taken from epoll at once
static constexpr int UNLOOKED_MAX = 16;     // requests of one station, one behind the other

// Descriptors that stations leave to the handlers, which need a few each: without, healthy nodes would seem
// to be missing.
static constexpr rlim_t HANDLERS_SHARE = 64;

bool server::watch(int fd, uint32_t events, void *tag, int operation) const
{
    epoll_event event{};
    event.events = events;
    event.data.ptr = tag;
    return epoll_ctl(epoll_.get(), operation, fd, &event) == 0;
}

bool server::open()
{
    if (!listener_.open())
        return false;
    epoll_ = owned::descriptor(epoll_create1(EPOLL_CLOEXEC));
    waker_ = owned::descriptor(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (epoll_ && waker_ && watch(listener_.socket(), EPOLLIN, &listener_, EPOLL_CTL_ADD) &&
        watch(waker_.get(), EPOLLIN, &waker_, EPOLL_CTL_ADD))
        return true;
    listener_.fail("cannot watch");
    give_up_name();
    return false;
}

void server::wake() const
{
    eventfd_write(waker_.get(), 1); // a counter that cannot take more wakes as well
}

void server::stop()
{
    stopping_.store(true, std::memory_order_release);
    wake();
}

bool server::ends_within(int ms)
{
    std::unique_lock<std::mutex> guard(end_lock_);
    return end_.wait_for(guard, std::chrono::milliseconds(ms), [this] { return ended_; });
}

void server::let_go(station *s)
{
    if (served_ == s)
        served_ = nullptr;
    stations_.remove(s); // leaves epoll with its descriptor
}

// Has epoll report what the station's state can use.
bool server::watch_station(station *s)
{
    const uint32_t events = s->wanted_events();
    if (events != s->watched) {
        if (!watch(s->socket(), events, s, EPOLL_CTL_MOD)) {
            let_go(s);
            return false;
        }
        s->watched = events;
    }
    return true;
}

// The system gives out the lowest number that is free: those above it are all that is left.
static bool in_handlers_share(int fd)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t share = std::min(HANDLERS_SHARE, limit.rlim_cur / 2);
    return static_cast<rlim_t>(fd) >= limit.rlim_cur - share;
}

// Accepts the next station. Where stations have all the descriptors that they may, it takes the place of one
// that does nothing, so that such cannot keep everybody out; where there is none, it is closed again.
void server::admit()
{
    newcomer_ = false;
    owned::descriptor socket = listener_.accept();
    if (!socket) {
        if (errno != EAGAIN) {
            // For want of descriptors or memory. Whoever waits keeps waiting, and the next tick tries again.
            accepting_ = !watch(listener_.socket(), 0, &listener_, EPOLL_CTL_MOD);
            clock_runs_ = true;
        }
        return;
    }
    if (in_handlers_share(socket.get())) {
        clock_runs_ = true; // for the report
        station *other = stations_.dispensable();
        if (!other) {
            counted_.refused++;
            return;
        }
        counted_.parted++;
        let_go(other);
        socket = owned::descriptor(fcntl(socket.get(), F_DUPFD_CLOEXEC, 0)); // to the number that is free now
        if (!socket)
            return;
    }
    station *s = stations_.add(std::move(socket));
    if (!s)
        return;
    s->watched = s->wanted_events();
    if (!watch(s->socket(), s->watched, s, EPOLL_CTL_ADD))
        let_go(s);
}

// ---- Answers

// Sends what waits for the station.
bool server::flush(station *s)
{
    const size_t before = s->pending();
    if (!s->flush() || (s->ended() && s->pending() == 0)) {
        let_go(s);
        return false;
    }
    if (s->pending() < before)
        stations_.note_progress(s);
    if (!s->full() && s->has_input())
        stations_.queue_turn(s);
    return watch_station(s);
}

// Frames and sends a packet, or has it wait until the socket takes it.
bool server::answer(station *s, const uint8_t *packet, size_t length)
{
    const size_t size = port::encode(packet, length, frame_);
    if (!s->send(frame_, size)) {
        let_go(s);
        return false;
    }
    stations_.note_progress(s);
    if (s->must_read())
        clock_runs_ = true;
    return watch_station(s);
}

// ---- Requests

// Serves the packet that the station's frame held.
bool server::serve(station *s)
{
    const uint8_t *packet = s->packet();
    const size_t length = s->packet_length();
    s->asked = true;
    const unsigned code = packet[2] | unsigned{packet[3]} << 8;
    const diagpkt_handler handler = find_handler(packet[1], code);
    if (!handler) {
        uint8_t refusal[REFUSAL_MAX];
        return answer(s, refusal, refuse(packet, length, refusal));
    }
    code_.store(code, std::memory_order_relaxed);
    const owned_response response = request_.serve(handler, packet, length);
    const bool present = !response || answer(s, response->bytes(), response->length);
    request_.clear(); // while the station reads its answer
    return present;
}

void server::count_drop(port::event reason)
{
    if (reason == port::event::bad_fcs)
        counted_.bad_fcs++;
    else if (reason == port::event::too_short)
        counted_.too_short++;
    else
        counted_.too_long++;
    clock_runs_ = true;
}

// Fills the station's empty input. False: there is nothing to decode, or no station any more.
bool server::receive(station *s)
{
    const station::input came = s->receive();
    if (came == station::input::broken)
        let_go(s);
    if (came == station::input::broken || came == station::input::nothing) // epoll reports it again
        return false;
    stations_.note_progress(s);
    if (came == station::input::some)
        return true;
    clock_runs_ = true;
    watch_station(s);
    return false;
}

// Gives the station its turn: at most one request, and what one read of the socket holds. Returns whether a
// part of that is left for another turn.
bool server::take_request(station *s)
{
    if (s->full()) { // perhaps by what has been queued for others since
        clock_runs_ = true;
        watch_station(s);
        return false;
    }
    if (s->ended() || (!s->has_input() && !receive(s)))
        return false;
    for (;;) {
        const port::event event = s->next_frame();
        if (event == port::event::more)
            return false;
        if (event == port::event::packet)
            return serve(s) && s->has_input();
        count_drop(event);
    }
}

// ---- The thread

// Tells what has been counted since the last time, if that was not just now. Returns whether something is
// left to tell.
bool server::report(int64_t now)
{
    const bool frames = counted_.frames() != reported_.frames();
    const bool stations = counted_.stations() != reported_.stations();
    if (now - report_ms_ < REPORT_MS)
        return frames || stations;
    if (frames)
        __android_log_print(ANDROID_LOG_WARN, TAG,
                            "frames dropped so far: %lu with a wrong FCS, %lu too short, %lu too long\n",
                            counted_.bad_fcs, counted_.too_short, counted_.too_long);
    if (stations)
        __android_log_print(ANDROID_LOG_WARN, TAG,
                            "no descriptors for more stations: %lu refused so far, %lu idle ones closed\n",
                            counted_.refused, counted_.parted);
    if (frames || stations)
        report_ms_ = now;
    reported_ = counted_;
    return false;
}

// What runs by the clock. Returns whether anything still does.
bool server::tick()
{
    bool runs = false;
    const int64_t now = now_ms();
    stations_.for_each([&](station *s) {
        if (!s->must_read())
            return;
        if (now - s->progress_ms < STUCK_MS) {
            runs = true;
            return;
        }
        __android_log_print(ANDROID_LOG_WARN, TAG, "a station does not read: closed, %zu bytes unsent\n",
                            s->pending());
        let_go(s);
    });
    if (!accepting_) {
        accepting_ = watch(listener_.socket(), EPOLLIN, &listener_, EPOLL_CTL_MOD);
        runs = runs || !accepting_;
    }
    return report(now) || runs;
}

void server::take_event(station *s, uint32_t events)
{
    if (s->pending() > 0 && (events & ~uint32_t{EPOLLIN}) != 0 && !flush(s))
        return;
    if ((events & ~uint32_t{EPOLLOUT}) == 0)
        return;
    // Epoll reports in order of arrival, but for the station served last, which it would report first.
    if (s == served_)
        more_ = true;
    else
        stations_.queue_turn(s);
}

// Waits for events, if there is nothing else to do. No event may take away a station but its own. Of a
// station that has sent many requests at once, those that take no time are served without a look at the
// others between.
void server::take_events()
{
    const bool busy = (served_ && more_) || stations_.turn_waits();
    if (busy && !stations_.turn_waits() && unlooked_++ < UNLOOKED_MAX && now_ms() == looked_ms_)
        return;
    unlooked_ = 0;
    epoll_event events[EVENTS_MAX];
    const int count = epoll_wait(epoll_.get(), events, EVENTS_MAX, busy ? 0 : clock_runs_ ? TICK_MS : -1);
    looked_ms_ = now_ms();
    for (int i = 0; i < count; i++) {
        void *tag = events[i].data.ptr;
        if (tag == &listener_) {
            newcomer_ = true;
        } else if (tag == &waker_) {
            eventfd_t times;
            eventfd_read(waker_.get(), &times);
        } else {
            take_event(static_cast<station *>(tag), events[i].events);
        }
    }
}

void server::run()
{
    // The service registers its table right after the connection: a request that is there already waits for
    // it.
    if (!has_table()) {
        pollfd first_table = {waker_.get(), POLLIN, 0};
        poll(&first_table, 1, FIRST_TABLE_MS);
    }
    while (!stopping_.load(std::memory_order_acquire)) {
        if (clock_runs_)
            clock_runs_ = tick();
        take_events();
        if (newcomer_)
            admit();
        if (served_ && more_)
            stations_.queue_turn(served_);
        served_ = stations_.take_turn();
        more_ = served_ && take_request(served_);
    }
    stations_.for_each([this](station *s) {
        if (s->pending() == 0 || flush(s))
            let_go(s);
    });
    const std::lock_guard<std::mutex> guard(end_lock_);
    ended_ = true;
    end_.notify_all();
}

} // namespace router
