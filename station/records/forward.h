// From a file into the database behind it, by a thread of its own.
#pragma once

#include "station/records/where.h"

#include <cstddef>
#include <memory>
#include <string>
#include <thread>

namespace station::records
{

struct Forwarding {
    size_t waiting = 0;  // runs that are not forwarded yet
    std::string problem; // why; empty when the last try went well
};

// Forwards until it is destroyed, in the order of the runs' ids, and tries again after a pause when the
// database is away.
class Forwarder
{
  public:
    explicit Forwarder(const Where &where);
    ~Forwarder(); // within ten seconds
    Forwarder(const Forwarder &) = delete;
    Forwarder &operator=(const Forwarder &) = delete;
    void wake(); // a run has ended
    Forwarding state() const;

  private:
    struct Inside;
    std::shared_ptr<Inside> inside_;
    std::thread thread_;
};

// Forwards now all that was not forwarded, or with `again` all there is. Returns how many runs. Throws Error.
size_t push(const Where &where, bool again);

} // namespace station::records
