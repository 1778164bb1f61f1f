// Where the page is served: what --page says, and the socket that listens there.
#pragma once

#include "platform/owned/descriptor.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace station::page
{

// The page cannot be served. The text says why and what to do.
struct Error : std::runtime_error {
    using runtime_error::runtime_error;
};

// Other machines would reach it, and nobody would be asked for a token.
struct NeedsToken : Error {
    using Error::Error;
};

struct Address {
    std::string host; // a name or an address, without brackets
    uint16_t port = 0;
};

// "127.0.0.1:8080", "[::1]:8080", "bench-3:8080". Port 0 is any that is free. Throws Error.
Address parse_address(const std::string &text);

// "[::1]:8080"
std::string text_of(const Address &address);

// "TOKEN", or "@FILE" whose first line it is. Throws Error when it can be guessed, or not be carried.
std::string read_token(const std::string &text);

// A socket that listens.
class Listener
{
  public:
    // Without `has_token`, only an address that nobody but this machine reaches. Throws Error.
    Listener(const Address &address, bool has_token);

    int descriptor() const { return descriptor_.get(); }
    const Address &address() const { return address_; } // with the port that it has
    bool is_loopback() const { return is_loopback_; }

  private:
    Address address_;
    owned::descriptor descriptor_;
    bool is_loopback_ = false;
};

} // namespace station::page
