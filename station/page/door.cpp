#include "station/page/door.h"

#include "station/page/address.h"
#include "station/page/head.h"

#include <algorithm>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace station::page
{

using std::chrono::milliseconds;
using Phase = Connection::Phase;

static constexpr int SEND_BUFFER = 65536;          // the kernel's, of each connection
static constexpr auto LINGER = milliseconds(1000); // for a refusal to be read
static constexpr auto NO_DESCRIPTORS = milliseconds(200);

static Bytes refusal(int status, const char *why)
{
    return std::make_shared<const std::string>(plain_refusal(status, why));
}

Door::Door(int listener, const Limits &limits, Feed &feed,
           std::function<bool(uint64_t, std::string, size_t)> give, std::function<void()> tick)
    : listener_(listener), limits_(limits), feed_(feed), give_(std::move(give)), tick_(std::move(tick)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!wake_)
        throw Error("the page cannot be served: no more files can be opened");
}

void Door::open()
{
    thread_ = std::thread([this] { serve(); });
}

void Door::close()
{
    ends_ = true;
    eventfd_write(wake_.get(), 1);
    thread_.join();
}

void Door::done(uint64_t connection, Served served)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    replies_.emplace_back(connection, std::move(served));
    eventfd_write(wake_.get(), 1);
}

size_t Door::feeds() const
{
    return static_cast<size_t>(std::count_if(connections_.begin(), connections_.end(),
                                             [](const auto &each) { return each.second.reader; }));
}

// Events are no part of it: all feeds share them.
size_t Door::to_send() const
{
    size_t all = 0;
    for (const auto &[id, connection] : connections_)
        if (connection.phase == Phase::sends && !connection.reader)
            all += connection.sending->size();
    return all;
}

static pollfd awaited(int descriptor, short events)
{
    pollfd polled = {};
    polled.fd = descriptor;
    polled.events = events;
    return polled;
}

void Door::serve()
{
    while (!ends_) {
        std::vector<pollfd> polled;
        std::vector<Connection *> watched;
        for (auto &[id, connection] : connections_) {
            if (connection.phase == Phase::works)
                continue;
            watched.push_back(&connection);
            polled.push_back(
                awaited(connection.descriptor.get(), connection.phase == Phase::sends ? POLLOUT : POLLIN));
        }
        polled.push_back(awaited(wake_.get(), POLLIN));
        const bool accepts = Clock::now() >= accepts_again_;
        if (accepts)
            polled.push_back(awaited(listener_, POLLIN));
        poll(polled.data(), polled.size(), static_cast<int>(limits_.look.count()));
        eventfd_t times;
        eventfd_read(wake_.get(), &times);
        for (size_t i = 0; i < watched.size(); i++) {
            if ((polled[i].revents & ~POLLOUT) != 0)
                receive(*watched[i]);
            if ((polled[i].revents & POLLOUT) != 0)
                send_some(*watched[i]);
        }
        take_replies();
        if (accepts && polled.back().revents != 0)
            accept_one();
        feed_all();
        let_go_of_the_late();
        tick_();
    }
}

void Door::accept_one()
{
    owned::descriptor accepted(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!accepted) { // it waits, for files to be closed most likely
        accepts_again_ = Clock::now() + NO_DESCRIPTORS;
        return;
    }
    if (connections_.size() >= limits_.connections && !make_room()) {
        static const Bytes TOO_MANY = refusal(503, "too many connections");
        send(accepted.get(), TOO_MANY->data(), TOO_MANY->size(), MSG_NOSIGNAL);
        // What is left unread at the end would destroy the reply on its way.
        recv(accepted.get(), nullptr, HEAD_MAX, MSG_TRUNC);
        return;
    }
    const int on = 1;
    setsockopt(accepted.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(accepted.get(), SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof SEND_BUFFER);
    Connection &connection = connections_[++last_];
    connection.id = last_;
    connection.descriptor = std::move(accepted);
}

// Closes what has been idle longest.
bool Door::make_room()
{
    const auto longest =
        std::min_element(connections_.begin(), connections_.end(), [](const auto &a, const auto &b) {
            return std::make_pair(!a.second.is_idle(), a.second.since) <
                   std::make_pair(!b.second.is_idle(), b.second.since);
        });
    if (!longest->second.is_idle())
        return false;
    connections_.erase(longest);
    return true;
}

void Door::receive(Connection &connection)
{
    char some[HEAD_MAX];
    const ssize_t count = read(connection.descriptor.get(), some, sizeof some);
    // A page says nothing on a feed but that it goes.
    if (count <= 0 || connection.phase == Phase::feeds)
        connection.is_over = true;
    else if (connection.phase == Phase::reads) {
        if (connection.received.empty())
            connection.since = Clock::now();
        connection.received.append(some, static_cast<size_t>(count));
        look_for_request(connection);
    }
}

void Door::look_for_request(Connection &connection)
{
    const Extent extent = extent_of(connection.received);
    if (extent.state == Extent::State::refused)
        refuse(connection, extent.status, extent.why);
    if (extent.state != Extent::State::whole)
        return;
    std::string request = connection.received.substr(0, extent.length);
    connection.received.erase(0, extent.length);
    connection.enters(Phase::works);
    if (to_send() > limits_.to_send || !give_(connection.id, std::move(request), extent.head))
        refuse(connection, 503, "too many requests");
}

void Door::refuse(Connection &connection, int status, const char *why)
{
    send_bytes(connection, refusal(status, why), Phase::lingers);
}

void Door::take_replies()
{
    static constexpr char RETRY[] = "retry: 1000\n\n";
    std::vector<std::pair<uint64_t, Served>> replies;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        replies.swap(replies_);
    }
    for (auto &[id, served] : replies) {
        const auto found = connections_.find(id);
        if (found == connections_.end())
            continue; // it has gone meanwhile
        Connection &connection = found->second;
        Phase next = served.keeps ? Phase::reads : Phase::lingers;
        if (served.is_feed) {
            if (feeds() >= limits_.feeds) {
                refuse(connection, 503, "too many open pages");
                continue;
            }
            connection.reader.emplace(feed_);
            served.bytes += RETRY;
            next = Phase::feeds;
        }
        send_bytes(connection, std::make_shared<const std::string>(std::move(served.bytes)), next);
    }
}

void Door::send_bytes(Connection &connection, Bytes bytes, Phase next)
{
    connection.sending = std::move(bytes);
    connection.unsent = *connection.sending;
    connection.next = next;
    connection.enters(Phase::sends);
    send_some(connection);
}

void Door::send_some(Connection &connection)
{
    const ssize_t count =
        send(connection.descriptor.get(), connection.unsent.data(), connection.unsent.size(), MSG_NOSIGNAL);
    if (count < 0) {
        if (errno != EAGAIN)
            connection.is_over = true;
        return;
    }
    connection.unsent.remove_prefix(static_cast<size_t>(count));
    if (!connection.unsent.empty())
        return;
    connection.sending.reset();
    connection.enters(connection.next);
    if (connection.phase == Phase::lingers)
        shutdown(connection.descriptor.get(), SHUT_WR);
    else if (connection.phase == Phase::reads)
        look_for_request(connection);
}

void Door::feed_all()
{
    static const Bytes IS_ALIVE = std::make_shared<const std::string>(": \n\n");
    for (auto &[id, connection] : connections_)
        while (connection.phase == Phase::feeds && !connection.is_over) {
            Bytes event = connection.reader->next(limits_.look);
            if (!event && Clock::now() - connection.since >= limits_.silence)
                event = IS_ALIVE;
            if (!event)
                break;
            send_bytes(connection, event, Phase::feeds);
        }
}

// For how long it may go on with what it does; nothing: for as long as it likes.
static std::optional<milliseconds> patience(const Connection &connection, const Limits &limits)
{
    switch (connection.phase) {
    case Phase::reads:
        return connection.is_idle() ? limits.idle : limits.request;
    case Phase::sends:
        return connection.reader ? limits.event : limits.reply;
    case Phase::lingers:
        return LINGER;
    default:
        return std::nullopt;
    }
}

void Door::let_go_of_the_late()
{
    const auto now = Clock::now();
    for (auto each = connections_.begin(); each != connections_.end();) {
        Connection &connection = each->second;
        const std::optional<milliseconds> longest = patience(connection, limits_);
        if (longest && now - connection.since > *longest) {
            if (connection.phase == Phase::reads && !connection.is_idle())
                refuse(connection, 408, "the request did not come to its end in time");
            else
                connection.is_over = true;
        }
        each = connection.is_over ? connections_.erase(each) : std::next(each);
    }
}

} // namespace station::page
