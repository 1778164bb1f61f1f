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

struct Pushed {
    size_t runs = 0;
    size_t not_taken = 0; // by the database, whatever one does; the others come in spite of them
    std::string why;      // the last of these was not
};

// Forwards now all that was not forwarded, or with `again` all there is. Throws Error.
Pushed push(const Where &where, bool again);

} // namespace station::records
