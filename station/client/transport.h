// The way to the port: a Unix stream socket, a serial device or TCP. Every call ends at its deadline.
#pragma once

#include "station/client/bytes.h"

#include <chrono>
#include <string>

namespace station
{

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

class Port
{
  public:
    // `where` is the path of a socket or of a serial device, or tcp:HOST:PORT. Throws PortError.
    Port(const std::string &where, Deadline deadline);
    ~Port();
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;

    // All bytes, or PortError.
    void write(const Bytes &bytes, Deadline deadline);

    // At least one byte; none at the deadline. Throws PortError when the other side is gone.
    Bytes read(Deadline deadline);

  private:
    int fd_ = -1;
};

} // namespace station
