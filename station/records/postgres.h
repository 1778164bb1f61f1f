// The database that many stations forward to.
#pragma once

#include "station/records/run.h"

#include <functional>
#include <memory>
#include <pqxx/pqxx>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace station::records
{

using WholeRun = std::pair<Run, std::vector<Step>>;

// It is not the database's fault but the run's: its rows are none that the database takes.
struct NotTaken : Error {
    using Error::Error;
};

// One connection. Everything throws Error when the database cannot be reached or does not take what it is
// told; then the connection is to be given up.
class Postgres
{
  public:
    explicit Postgres(const std::string &address);

    // Makes the tables where there are none, and older ones new. Returns what tells this database from
    // others, for ever.
    std::string prepare();

    // In one transaction, each run once: one that is there already stays as it is. Throws NotTaken, too; then
    // none of them is there, and the connection is good for others.
    void put(const std::vector<WholeRun> &runs);

    // Throws Error unless the tables are there and of the version that is known.
    void check();

    pqxx::result query(const std::string &sql, const std::vector<std::string> &parameters);
    // The same, in pieces of bounded size.
    void stream(const std::string &sql, const std::vector<std::string> &parameters,
                const std::function<void(const pqxx::result &)> &some);
    void interrupt(); // by any thread

  private:
    template <typename Work> auto guarded(Work &&work);
    void make_months(const std::vector<WholeRun> &runs);

    std::string address_;
    std::unique_ptr<pqxx::connection> connection_;
    std::set<std::string> months_; // that have their partitions
};

} // namespace station::records
