#include "station.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <utility>

namespace router
{

static constexpr size_t OUTPUT_MAX = size_t{1} << 20; // and the answer that goes beyond it
static constexpr size_t OUTPUTS_MAX = size_t{64}
                                      << 20; // of all stations: many could have half of theirs wait

// Of one thread's stations, but a thread that was left behind may have come to its end just now.
static std::atomic<size_t> all_pending;

station::station(owned::descriptor socket) : socket_(std::move(socket))
{
    decoder_.length = 0;
    decoder_.escaped = decoder_.closed = decoder_.oversized = false;
}

station::input station::receive()
{
    const ssize_t received = recv(socket(), input_, sizeof input_, 0);
    if (received < 0)
        return errno == EAGAIN ? input::nothing : input::broken;
    if (received == 0) { // it may have shut down its own direction alone
        ended_ = true;
        return pending() > 0 ? input::ended : input::broken;
    }
    input_begin_ = 0;
    input_end_ = static_cast<size_t>(received);
    return input::some;
}

station::~station() { all_pending.fetch_sub(pending(), std::memory_order_relaxed); }

port::event station::next_frame()
{
    const uint8_t *next = input_ + input_begin_;
    size_t left = input_end_ - input_begin_;
    const port::event event = port::decode(&decoder_, &next, &left);
    input_begin_ = input_end_ - left;
    return event;
}

ssize_t station::send_some(const uint8_t *bytes, size_t length) const
{
    const ssize_t sent = ::send(socket(), bytes, length, MSG_NOSIGNAL);
    return sent < 0 && errno == EAGAIN ? 0 : sent;
}

bool station::send(const uint8_t *bytes, size_t length)
{
    const ssize_t sent = output_.empty() ? send_some(bytes, length) : 0;
    if (sent < 0)
        return false;
    const auto taken = static_cast<size_t>(sent);
    // Half an answer would spoil the next one: without memory for the rest the station is lost.
    if (taken == length)
        return true;
    if (!output_.append(bytes + taken, length - taken))
        return false;
    all_pending.fetch_add(length - taken, std::memory_order_relaxed);
    return true;
}

bool station::flush()
{
    const ssize_t sent = send_some(output_.data(), output_.size());
    if (sent > 0) {
        output_.drop(static_cast<size_t>(sent));
        all_pending.fetch_sub(static_cast<size_t>(sent), std::memory_order_relaxed);
    }
    return sent >= 0;
}

bool station::full() const
{
    return pending() >= OUTPUT_MAX ||
           (pending() > 0 && all_pending.load(std::memory_order_relaxed) >= OUTPUTS_MAX);
}

uint32_t station::wanted_events() const
{
    return (ended_ || full() ? 0u : uint32_t{EPOLLIN}) | (pending() > 0 ? uint32_t{EPOLLOUT} : 0u);
}

} // namespace router
