#include "station/page/door.h"

#include "station/page/address.h"
#include "station/page/head.h"

#include <algorithm>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace station::page
{

using std::chrono::milliseconds;

static constexpr int ACCEPTED_AT_ONCE = 32;
static constexpr int SEND_BUFFER = 1 << 16;        // the kernel's, of each connection
static constexpr auto LINGER = milliseconds(1000); // for a refusal to be read
static constexpr auto NO_DESCRIPTORS = milliseconds(200);
static constexpr char ALIVE[] = ": \n\n";

struct Door::Connection {
    enum class Phase { reads, works, sends, feeds, lingers };

    int descriptor = -1;
    uint64_t id = 0;
    Phase phase = Phase::reads;
    Clock::time_point since{}; // it does what it does
    std::string received;
    Bytes sending; // and how much of it is sent
    size_t sent = 0;
    bool keeps = false, becomes_feed = false, is_over = false;
    uint64_t version = 0, ended = 0; // of the line's state and of the runs, that the feed has sent last

    bool is_idle() const { return phase == Phase::reads && received.empty(); }
    bool has_to_send() const { return sending && sent < sending->size(); }
    void enters(Phase next)
    {
        phase = next;
        since = Clock::now();
    }
};

Door::Door(int listener, const Limits &limits, Feed &feed,
           std::function<bool(uint64_t, std::string, size_t)> give, std::function<void()> tick)
    : listener_(listener), limits_(limits), feed_(feed), give_(std::move(give)), tick_(std::move(tick)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (wake_ < 0)
        throw Error("the page cannot be served: no more files can be opened");
}

Door::~Door()
{
    close();
    ::close(wake_);
}

void Door::open()
{
    thread_ = std::thread([this] { serve(); });
}

void Door::close()
{
    ends_ = true;
    wake();
    if (thread_.joinable())
        thread_.join();
}

void Door::wake() const
{
    const uint64_t one = 1;
    if (write(wake_, &one, sizeof one) < 0) // it is awake already
        return;
}

void Door::done(uint64_t connection, Served served)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    replies_.emplace_back(connection, std::move(served));
    wake();
}

size_t Door::feeds() const
{
    return static_cast<size_t>(std::count_if(connections_.begin(), connections_.end(), [](const auto &each) {
        return each.second.phase == Connection::Phase::feeds || each.second.becomes_feed;
    }));
}

void Door::serve()
{
    std::vector<pollfd> polled;
    std::vector<uint64_t> ids;
    while (!ends_) {
        polled.assign({{wake_, POLLIN, 0}});
        polled.push_back({Clock::now() >= accepts_again_ ? listener_ : -1, POLLIN, 0});
        ids.clear();
        for (const auto &[id, connection] : connections_) {
            const bool reads =
                connection.phase != Connection::Phase::works && connection.phase != Connection::Phase::sends;
            const auto wanted =
                static_cast<short>((reads ? POLLIN : 0) | (connection.has_to_send() ? POLLOUT : 0));
            polled.push_back({wanted != 0 ? connection.descriptor : -1, wanted, 0});
            ids.push_back(id);
        }
        poll(polled.data(), polled.size(), static_cast<int>(limits_.look.count()));
        uint64_t count = 0;
        while (polled[0].revents != 0 && read(wake_, &count, sizeof count) > 0)
            continue;
        for (size_t i = 0; i < ids.size(); i++) {
            Connection &connection = connections_.at(ids[i]);
            const short events = polled[i + 2].revents;
            if ((events & (POLLIN | POLLHUP | POLLERR)) != 0)
                receive(connection);
            if ((events & POLLOUT) != 0)
                send_some(connection);
        }
        take_replies();
        if (polled[1].revents != 0)
            accept_some();
        feed_all();
        let_go_of_the_late();
        tick_();
    }
    for (const auto &[id, connection] : connections_)
        ::close(connection.descriptor);
    connections_.clear();
}

void Door::accept_some()
{
    for (int i = 0; i < ACCEPTED_AT_ONCE; i++) {
        const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (descriptor < 0) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS)
                accepts_again_ = Clock::now() + NO_DESCRIPTORS;
            return;
        }
        if (connections_.size() >= limits_.connections && !make_room()) {
            turn_away(descriptor);
            continue;
        }
        const int on = 1, size = SEND_BUFFER;
        setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        Connection &connection = connections_[++last_];
        connection.descriptor = descriptor;
        connection.id = last_;
        connection.enters(Connection::Phase::reads);
    }
}

// Closes what has been idle longest.
bool Door::make_room()
{
    auto longest = connections_.end();
    for (auto each = connections_.begin(); each != connections_.end(); ++each)
        if (each->second.is_idle() &&
            (longest == connections_.end() || each->second.since < longest->second.since))
            longest = each;
    if (longest == connections_.end())
        return false;
    ::close(longest->second.descriptor);
    connections_.erase(longest);
    return true;
}

void Door::turn_away(int descriptor)
{
    static const std::string REPLY = plain_refusal(503, "too many connections");
    if (send(descriptor, REPLY.data(), REPLY.size(), MSG_NOSIGNAL | MSG_DONTWAIT) > 0)
        shutdown(descriptor, SHUT_WR);
    char some[4096]; // what is left unread at the end would destroy the reply on its way
    while (recv(descriptor, some, sizeof some, MSG_DONTWAIT) > 0)
        continue;
    ::close(descriptor);
}

void Door::receive(Connection &connection)
{
    char some[8192];
    const ssize_t count = recv(connection.descriptor, some, sizeof some, 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    // A page says nothing on a feed but that it goes.
    if (count <= 0 || connection.phase == Connection::Phase::feeds) {
        connection.is_over = true;
        return;
    }
    if (connection.phase != Connection::Phase::reads)
        return;
    if (connection.received.empty())
        connection.since = Clock::now();
    connection.received.append(some, static_cast<size_t>(count));
    look_for_request(connection);
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
    connection.enters(Connection::Phase::works);
    if (to_send_ > limits_.to_send || !give_(connection.id, std::move(request), extent.head))
        refuse(connection, 503, "too many requests");
}

void Door::refuse(Connection &connection, int status, const char *why)
{
    connection.sending = std::make_shared<const std::string>(plain_refusal(status, why));
    connection.sent = 0;
    to_send_ += connection.sending->size();
    connection.keeps = connection.becomes_feed = false;
    connection.enters(Connection::Phase::sends);
    send_some(connection);
}

void Door::take_replies()
{
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
        if (served.is_feed && feeds() >= limits_.feeds) {
            refuse(connection, 503, "too many open pages");
            continue;
        }
        connection.sending = std::make_shared<const std::string>(std::move(served.bytes));
        connection.sent = 0;
        to_send_ += connection.sending->size();
        connection.keeps = served.keeps;
        connection.becomes_feed = served.is_feed;
        connection.enters(Connection::Phase::sends);
        send_some(connection);
    }
}

void Door::send_some(Connection &connection)
{
    while (connection.has_to_send()) {
        const ssize_t count = send(connection.descriptor, connection.sending->data() + connection.sent,
                                   connection.sending->size() - connection.sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            connection.is_over = connection.is_over || errno != EAGAIN;
            return;
        }
        connection.sent += static_cast<size_t>(count);
    }
    sent_all(connection);
}

void Door::sent_all(Connection &connection)
{
    if (connection.phase == Connection::Phase::feeds) {
        connection.sending.reset();
        next_event(connection);
        return;
    }
    if (connection.phase != Connection::Phase::sends)
        return;
    to_send_ -= connection.sending->size();
    connection.sending.reset();
    if (connection.becomes_feed) {
        begin_feed(connection);
    } else if (connection.keeps) {
        connection.enters(Connection::Phase::reads);
        if (!connection.received.empty())
            look_for_request(connection);
    } else {
        shutdown(connection.descriptor, SHUT_WR);
        connection.received.clear();
        connection.enters(Connection::Phase::lingers);
    }
}

void Door::begin_feed(Connection &connection)
{
    static const Bytes RETRY = std::make_shared<const std::string>("retry: 1000\n\n");
    connection.becomes_feed = false;
    connection.ended = feed_.last_ended();
    connection.enters(Connection::Phase::feeds);
    connection.sending = RETRY;
    connection.sent = 0;
    feed_.now(limits_.look);
    send_some(connection);
}

// What a page has not got yet: the runs that have ended, then the line's state as it is now. What lies
// between two states that it was too slow for, it never gets.
void Door::next_event(Connection &connection)
{
    const std::vector<RunEvent> ended = feed_.ended_after(connection.ended);
    const Snapshot snapshot = feed_.last();
    if (!ended.empty()) {
        connection.ended = ended.front().number;
        connection.sending = ended.front().event;
    } else if (snapshot.version != connection.version) {
        connection.version = snapshot.version;
        connection.sending = snapshot.event;
    } else {
        return;
    }
    connection.sent = 0;
    connection.since = Clock::now();
    send_some(connection);
}

void Door::feed_all()
{
    static const Bytes IS_ALIVE = std::make_shared<const std::string>(ALIVE);
    if (Clock::now() - looked_ < limits_.look || feeds() == 0)
        return;
    looked_ = Clock::now();
    feed_.now(milliseconds(0));
    for (auto &[id, connection] : connections_) {
        if (connection.phase != Connection::Phase::feeds || connection.sending)
            continue;
        next_event(connection);
        if (!connection.sending && Clock::now() - connection.since >= limits_.silence) {
            connection.sending = IS_ALIVE;
            connection.sent = 0;
            connection.since = Clock::now();
            send_some(connection);
        }
    }
}

void Door::let_go_of_the_late()
{
    const auto now = Clock::now();
    for (auto each = connections_.begin(); each != connections_.end();) {
        Connection &connection = each->second;
        const auto lasts = now - connection.since;
        switch (connection.phase) {
        case Connection::Phase::reads:
            if (!connection.received.empty() && lasts > limits_.request)
                refuse(connection, 408, "the request did not come to its end in time");
            connection.is_over = connection.is_over || (connection.is_idle() && lasts > limits_.idle);
            break;
        case Connection::Phase::works:
            break;
        case Connection::Phase::sends:
            connection.is_over = connection.is_over || lasts > limits_.reply;
            break;
        case Connection::Phase::feeds:
            connection.is_over = connection.is_over || (connection.sending && lasts > limits_.event);
            break;
        case Connection::Phase::lingers:
            connection.is_over = connection.is_over || lasts > LINGER;
            break;
        }
        if (!connection.is_over) {
            ++each;
            continue;
        }
        if (connection.phase == Connection::Phase::sends && connection.sending)
            to_send_ -= connection.sending->size();
        ::close(connection.descriptor);
        each = connections_.erase(each);
    }
}

} // namespace station::page
