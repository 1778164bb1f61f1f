// The way to the port: a Unix stream socket, a serial device or TCP. Every call ends at its deadline.
#pragma once

#include "platform/owned/descriptor.h"
#include "station/client/bytes.h"

#include <chrono>
#include <string>

namespace station
{

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

// The way to the port. A serial device is one station's alone while it is open, and starts without what lay
// in it unread.
class Port
{
  public:
    // `where` is the path of a socket or of a serial device, or tcp:HOST:PORT. Throws PortError, and
    // UsageError when `where` can be none of these.
    Port(const std::string &where, Deadline deadline);

    // All bytes, or PortError.
    void write(const Bytes &bytes, Deadline deadline);

    // At least one byte; none at the deadline. Throws PortError when the other side is gone.
    Bytes read(Deadline deadline);

    // Whether what an earlier station has asked can still be answered here: a line outlives its stations, and
    // a TCP connection may end in one. A Unix socket's connection carries its own answers only.
    [[nodiscard]] bool outlives_stations() const { return outlives_stations_; }

  private:
    owned::descriptor fd_;
    bool outlives_stations_ = false;
};

} // namespace station
