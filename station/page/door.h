// All connections of all pages, by one thread that never waits for any of them: it takes whole requests off
// them, sends replies as fast as each takes them, and lets go of who is too slow, too many or silent too
// long.
#pragma once

#include "platform/owned/descriptor.h"
#include "station/page/connection.h"
#include "station/page/http.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace station::page
{

// The limits, so that a test need not wait for them.
struct Limits {
    size_t connections = 192;
    size_t feeds = 64;
    size_t to_send = size_t{64} << 20;         // bytes of all replies that wait for their readers
    std::chrono::milliseconds request{10'000}; // from its first byte to its last
    std::chrono::milliseconds idle{20'000};    // between two requests
    std::chrono::milliseconds reply{30'000};   // for the whole of a reply
    std::chrono::milliseconds event{10'000};   // for the whole of an event
    std::chrono::milliseconds silence{2'000};  // of a feed, behind which it is told that it lives
    std::chrono::milliseconds look{200};       // between two looks at the line
    std::chrono::milliseconds records{15'000}; // that one request may ask them
};

class Door
{
  public:
    // `give` takes a whole request, whose reply comes by done(); false when there are too many. `tick` is
    // called a few times a second.
    Door(int listener, const Limits &limits, Feed &feed,
         std::function<bool(uint64_t connection, std::string request, size_t head)> give,
         std::function<void()> tick);
    Door(const Door &) = delete;
    Door &operator=(const Door &) = delete;

    void open();
    void close(); // at once, whatever is going on; what was opened has to be closed
    void done(uint64_t connection, Served served);

  private:
    void serve();
    void accept_one();
    bool make_room();
    void receive(Connection &connection);
    void look_for_request(Connection &connection);
    void refuse(Connection &connection, int status, const char *why);
    void take_replies();
    void send_bytes(Connection &connection, Bytes bytes, Connection::Phase next);
    void send_some(Connection &connection);
    void feed_all();
    void let_go_of_the_late();
    size_t feeds() const;
    size_t to_send() const;

    const int listener_;
    const Limits limits_;
    Feed &feed_;
    std::function<bool(uint64_t, std::string, size_t)> give_;
    std::function<void()> tick_;
    std::map<uint64_t, Connection> connections_; // the oldest first
    uint64_t last_ = 0;
    Clock::time_point accepts_again_{};
    owned::descriptor wake_;
    std::atomic<bool> ends_{false};
    std::mutex mutex_; // of the replies
    std::vector<std::pair<uint64_t, Served>> replies_;
    std::thread thread_;
};

} // namespace station::page
