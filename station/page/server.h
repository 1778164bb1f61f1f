// The page: what a line does, and what was kept, for people's eyes, over HTTP.
#pragma once

#include "station/page/address.h"
#include "station/page/door.h"
#include "station/page/feed.h"
#include "station/records/where.h"

#include <memory>
#include <string>

namespace station::page
{

class Server
{
  public:
    // Serves from now on, until it is destroyed, which takes no longer than a moment. `feed` watches the
    // side's line; all that is given outlives the server. Throws Error.
    Server(const Listener &listener, const std::string &token, const records::Where &where, Feed &feed,
           const LineSide &side, const Limits &limits = {});
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

  private:
    struct Inside;
    std::unique_ptr<Inside> inside_;
};

} // namespace station::page
