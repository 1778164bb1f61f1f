// Where runs are kept while they are played: what is not kept has not passed.
#pragma once

#include "station/records/forward.h"
#include "station/records/run.h"
#include "station/records/where.h"

#include <memory>
#include <string>

namespace station::records
{

class Recording;

// One for a process, for all of its threads. What returns has been kept; what could not be throws Error.
class Store
{
  public:
    // Opens or makes the file, closes as aborted what killed stations left open in it, and begins to forward
    // finished runs where there is a database to forward to, reachable or not.
    explicit Store(const Where &where);
    // Gives the forwarding a few seconds to end; what is left is forwarded by the next start, or by push.
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    // Whether a run can be kept now: throws Error when it cannot. To be asked before a unit is begun. Writes,
    // and takes as long as a sync of the disk.
    void check();

    // Begins a run: gives it its id and its start. The run's verdict stays open until Recording::end.
    Recording begin(Run run);

    // How far the forwarding is; nothing waits where there is no database.
    Forwarding forwarding() const;

  private:
    friend class Recording;
    struct Inside;
    std::unique_ptr<Inside> inside_;
};

// A run that is being played, by one thread at a time. The Store outlives it.
class Recording
{
  public:
    // One that was not ended ends as aborted, as far as it can be kept.
    ~Recording();
    Recording(Recording &&other) noexcept;
    Recording &operator=(Recording &&) = delete;

    const Run &run() const { return run_; }

    // The unit has told its name.
    void identify(const std::string &unit);

    // Keeps a finished step, in a transaction of its own, with its number and when it began; returns it as it
    // is kept. A killed process does not lose it; a power cut may, until the run ends. Throws Error when it
    // is not kept: the run cannot pass any more.
    Step add(Step step);

    // Ends the run. When it returns, all of the run is on the disk, power cut or not. Throws Error when it is
    // not; it may be tried again. A run of which a step was not kept does not pass: it ends as error, and
    // Error is thrown.
    void end(Verdict verdict, const std::string &cause = "");

  private:
    friend class Store;
    Recording(Store &store, Run run);
    Time now() const; // by a clock that nobody sets

    Store *store_;
    Run run_;
    std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    int steps_ = 0;
    std::string not_kept_;
};

} // namespace station::records
