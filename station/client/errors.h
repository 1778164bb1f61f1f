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

// The port is there, but gave no answer that can be believed.
struct NoAnswer : PortError {
    using PortError::PortError;
};

// The router refused a request: nobody serves its code.
struct Refused : std::runtime_error {
    using runtime_error::runtime_error;
};

// The phone answered, and it was not what is needed. The text may hold what the phone said, as it came.
struct PhoneError : std::runtime_error {
    using runtime_error::runtime_error;
};

// The workstation's people want it to end.
struct Interrupted : std::runtime_error {
    using runtime_error::runtime_error;
};

// What was to be printed or kept could not be.
struct OutputError : std::runtime_error {
    using runtime_error::runtime_error;
};

} // namespace station
