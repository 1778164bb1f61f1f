#include "station/page/server.h"

#include "station/page/api.h"
#include "station/page/guard.h"
#include "station/page/workers.h"

namespace station::page
{

static constexpr size_t WORKERS = 4;

struct Server::Inside {
    Inside(const Listener &listener, const std::string &token, const records::Where &where, Feed &feed,
           const LineSide &side, const Limits &limits)
        : guard(listener.address(), token), shared{where, feed, screens, asked_often},
          door(
              listener.descriptor(), limits, feed,
              [this](uint64_t connection, std::string request, size_t head) {
                  return workers.give(connection, std::move(request), head);
              },
              [this] { workers.look(); }),
          workers(
              WORKERS, limits.records, [this, side] { return std::make_unique<Api>(shared, side); },
              [this](Api &api, const Request &request) {
                  const std::optional<Reply> stopped = guard.stops(request);
                  return stopped ? *stopped : api.answer(request);
              },
              [this](uint64_t connection, Served served) { door.done(connection, std::move(served)); })
    {
        feed.watch(side);
        door.open();
    }
    ~Inside() { door.close(); }
    Inside(const Inside &) = delete;
    Inside &operator=(const Inside &) = delete;

    const Guard guard;
    Screens screens;
    AskedOften asked_often;
    const Shared shared;
    Door door;
    Workers workers;
};

Server::Server(const Listener &listener, const std::string &token, const records::Where &where, Feed &feed,
               const LineSide &side, const Limits &limits)
    : inside_(std::make_unique<Inside>(listener, token, where, feed, side, limits))
{
}

Server::~Server() = default;

} // namespace station::page
