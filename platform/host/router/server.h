// The packet router: one thread that accepts stations, takes one request at a time, calls its handler and
// sends the answer. No station can hold up another: the sockets never block, each waiting station gets one
// request served per turn, and answers that a station does not read are queued for it alone. A handler that
// does not return holds up everybody. docs/port.md tells what a station sees.
#pragma once

#include "dispatch.h"
#include "listener.h"
#include "stations.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace router
{

static constexpr char TAG[] = "libdiag"; // in the log
static constexpr int ANDROID_LOG_WARN = 5;

class server
{
  public:
    // Listens at the port. False, and why on standard error: it cannot be reached.
    [[nodiscard]] bool open();

    // The work of the thread. Returns after stop(), when the running request has been answered.
    void run();

    // For other threads, as long as the server is there: it has a table now, or shall end.
    void wake() const;
    void stop();

    // Whether run() has come to its end, or does within so many milliseconds.
    [[nodiscard]] bool ends_within(int ms);

    // The code of the request that is being served, or was last.
    [[nodiscard]] unsigned code() const { return code_.load(std::memory_order_relaxed); }

    // See listener.
    void give_up_name() const { listener_.give_up_name(); }

  private:
    // Since the start.
    struct counts {
        unsigned long bad_fcs, too_short, too_long; // frames dropped
        unsigned long refused, parted;              // stations, for want of descriptors

        [[nodiscard]] unsigned long frames() const { return bad_fcs + too_short + too_long; }
        [[nodiscard]] unsigned long stations() const { return refused + parted; }
    };

    // Where these return a bool it is false when the station is gone, unless something else is said.
    void take_events();
    void take_event(station *s, uint32_t events);
    void admit();
    bool take_request(station *s);
    [[nodiscard]] bool serve(station *s);
    [[nodiscard]] bool receive(station *s);
    [[nodiscard]] bool answer(station *s, const uint8_t *packet, size_t length);
    [[nodiscard]] bool flush(station *s);
    bool watch_station(station *s);
    [[nodiscard]] bool watch(int fd, uint32_t events, void *tag, int operation) const;
    void let_go(station *s);
    void count_drop(port::event reason);
    [[nodiscard]] bool report(int64_t now);
    [[nodiscard]] bool tick();

    listener listener_;
    owned::descriptor epoll_;
    owned::descriptor waker_; // an eventfd

    std::atomic<bool> stopping_{false};
    std::atomic<unsigned> code_{0};
    std::mutex end_lock_;
    std::condition_variable end_;
    bool ended_ = false;

    // The thread's own.
    stations stations_;
    station *served_ = nullptr; // the last one; null when it has left since
    bool more_ = false;         // it has input left
    int unlooked_ = 0;          // its requests since the last look at all others...
    int64_t looked_ms_ = 0;     // ...and when that was
    bool newcomer_ = false;     // somebody waits to be accepted
    bool accepting_ = true;
    bool clock_runs_ = false; // something waits for tick()
    counts counted_{};
    counts reported_{};
    int64_t report_ms_ = 0;
    request_buffer request_;
    uint8_t frame_[port::encoded_max(port::PACKET_MAX)];
};

} // namespace router
