// What is written into the tables of a file of records.
#pragma once

#include "station/records/owner.h"
#include "station/records/run.h"
#include "station/records/sqlite.h"

namespace station::records
{

// What is kept of a step: texts that can be shown, times to the microsecond, numbers that are some.
Step as_kept(const Step &step);

// The statements that write. None begins a transaction or ends one.
class Tables
{
  public:
    explicit Tables(Database &database);

    void insert(const Run &run, int64_t owner);
    // Each of these is for a run that is not closed yet; false when it is, or is not there.
    bool insert(const std::string &run, const Step &step); // as_kept
    bool identify(const std::string &run, const std::string &unit);
    bool end(const std::string &run, Time ended, Verdict verdict, const std::string &cause);

    // Closes as aborted what processes left open that live no more.
    void close_dead(const Owner &owner);

  private:
    Statement insert_run_, insert_step_, identify_, end_, open_owners_, open_runs_, give_turns_;
};

} // namespace station::records
