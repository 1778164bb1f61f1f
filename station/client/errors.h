// What goes wrong on the station's own side of the port.
#pragma once

#include <stdexcept>

namespace station
{

// The command line, a script line or an input file is wrong; nothing was sent.
struct UsageError : std::runtime_error {
    using runtime_error::runtime_error;
};

// The port could not be opened, or went away.
struct PortError : std::runtime_error {
    using runtime_error::runtime_error;
};

} // namespace station
