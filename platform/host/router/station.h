// One connected station: its socket, what came from it and was not served yet, what it did not take yet.
// Nothing here ever blocks.
#pragma once

#include "byte_queue.h"
#include "descriptor.h"
#include "frame.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>

namespace router
{

class station;
using station_list = std::list<std::unique_ptr<station>>;

class station
{
  public:
    explicit station(owned::descriptor socket);
    ~station();
    station(const station &) = delete;
    station &operator=(const station &) = delete;

    [[nodiscard]] int socket() const { return socket_.get(); }

    // What came of a read of the socket.
    enum class input {
        nothing, // not now
        some,
        ended, // it sends nothing any more, but may still read
        broken,
    };

    // Reads once. Only when all that the last read brought has been taken.
    [[nodiscard]] input receive();
    [[nodiscard]] bool has_input() const { return input_begin_ < input_end_; }

    // Takes from the input what is left of the next frame, and tells of it as port::decode does.
    [[nodiscard]] port::event next_frame();

    // The packet, right after event::packet.
    [[nodiscard]] const uint8_t *packet() const { return decoder_.packet; }
    [[nodiscard]] size_t packet_length() const { return decoder_.length; }

    // Sends bytes behind those that wait already, and has wait what the socket does not take. False: the
    // station is broken, and perhaps the last answer to it too.
    [[nodiscard]] bool send(const uint8_t *bytes, size_t length);

    // Sends what waits. False: the station is broken.
    [[nodiscard]] bool flush();

    [[nodiscard]] size_t pending() const { return output_.size(); }

    // So much waits for it, or something for it and very much for all, that no request of it is taken.
    [[nodiscard]] bool full() const;

    // Its answers stand in the way: of its own next request, or of its end.
    [[nodiscard]] bool must_read() const { return full() || (ended_ && pending() > 0); }

    [[nodiscard]] bool ended() const { return ended_; }

    // What of epoll's events it can use.
    [[nodiscard]] uint32_t wanted_events() const;

    // For who keeps it.
    station_list::iterator place;
    bool asked = false;      // has sent a packet
    bool queued = false;     // waits for its turn
    uint32_t watched = 0;    // events that epoll reports
    int64_t progress_ms = 0; // when its socket gave or took something last, or it had to begin to read

  private:
    static constexpr size_t INPUT_ROOM = 16384;

    // What the socket took, 0 when it is full, or -1 when it is broken.
    [[nodiscard]] ssize_t send_some(const uint8_t *bytes, size_t length) const;

    owned::descriptor socket_;
    bool ended_ = false;
    byte_queue output_;
    size_t input_begin_ = 0;
    size_t input_end_ = 0;
    port::decoder decoder_; // the packet in it and the input are not cleared: they are most of a station
    uint8_t input_[INPUT_ROOM];
};

} // namespace router
