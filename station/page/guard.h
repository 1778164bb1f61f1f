// Who may ask: what other pages and other machines send is refused before anybody looks at what it wants.
#pragma once

#include "station/page/address.h"
#include "station/page/message.h"

#include <optional>
#include <string>
#include <vector>

namespace station::page
{

class Guard
{
  public:
    // Without a token the address is a loopback's.
    Guard(const Address &address, std::string token);

    // The reply to what is refused, and to a token that stands in the address; nothing for what may go on.
    std::optional<Reply> stops(const Request &request) const;

  private:
    bool is_own(const std::string &host) const;
    bool knows_token(const Request &request) const;
    std::optional<Reply> takes_token(const Request &request) const;

    std::vector<std::string> hosts_; // as a browser names this page, in lower case
    std::string port_, token_, cookie_;
};

// Takes as long for a wrong text as for the right one, which is not empty.
bool same_in_constant_time(const std::string &given, const std::string &expected);

} // namespace station::page
