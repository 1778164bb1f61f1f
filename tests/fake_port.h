// A port in this process, for the tests of the station: what it answers is the test's.
#pragma once

#include "station/client/bytes.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <string>
#include <thread>
#include <utility>

#include "tests/wire.h"

namespace station
{

inline Bytes response_to(const Bytes &request, const std::string &text, size_t size = 263)
{
    Bytes response(request.begin(), request.begin() + 5);
    response.push_back(static_cast<uint8_t>(text.size() & 0xFF));
    response.push_back(static_cast<uint8_t>(text.size() >> 8));
    response.insert(response.end(), text.begin(), text.end());
    response.resize(size);
    return response;
}

// What a port does with the request it got as its count-th, over all connections.
struct Reply {
    Bytes wire;
    bool hang_up = false;
};
using Behaviour = std::function<Reply(const Bytes &request, int count)>;

inline Reply answer(const Bytes &request, const std::string &text)
{
    return {frame_of(response_to(request, text))};
}

// Serves one connection after the other on its own thread.
class FakePort
{
  public:
    FakePort(int listener, Behaviour behaviour) : listener_(listener), behaviour_(std::move(behaviour))
    {
        EXPECT_EQ(pipe2(stop_, O_CLOEXEC), 0);
        thread_ = std::thread([this] { accept_all(); });
    }
    ~FakePort()
    {
        close(stop_[1]);
        thread_.join();
        close(stop_[0]);
        close(listener_);
    }

    std::atomic<int> requests{0};
    std::atomic<int> connections{0};
    std::atomic<int> ended{0}; // of them

    // Serves an open connection until the other side or the test ends it.
    static void serve(int fd, int stop, std::atomic<int> &requests, const Behaviour &behaviour)
    {
        const auto decoder = std::make_unique<port::decoder>();
        uint8_t buffer[4096];
        while (ready(fd, stop)) {
            const ssize_t count = read(fd, buffer, sizeof buffer);
            if (count <= 0)
                return;
            const uint8_t *input = buffer;
            auto left = static_cast<size_t>(count);
            for (port::event event;
                 (event = port::decode(decoder.get(), &input, &left)) != port::event::more;) {
                if (event != port::event::packet)
                    continue;
                const Bytes packet(decoder->packet, decoder->packet + decoder->length);
                const bool is_check = packet[2] == 0x3C && packet[3] == 0x01; // not counted
                const Reply reply = is_check ? Reply{frame_of({packet.begin(), packet.begin() + 5})}
                                             : behaviour(packet, requests++);
                if (write(fd, reply.wire.data(), reply.wire.size()) !=
                    static_cast<ssize_t>(reply.wire.size()))
                    return; // the station has gone
                if (reply.hang_up)
                    return;
            }
        }
    }

  private:
    static bool ready(int fd, int stop)
    {
        pollfd waiting[] = {{fd, POLLIN, 0}, {stop, POLLIN, 0}};
        return poll(waiting, 2, -1) > 0 && !waiting[1].revents;
    }

    void accept_all()
    {
        while (ready(listener_, stop_[0])) {
            const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            connections++;
            serve(fd, stop_[0], requests, behaviour_);
            close(fd);
            ended++;
        }
    }

    int listener_;
    Behaviour behaviour_;
    int stop_[2];
    std::thread thread_;
};

} // namespace station
