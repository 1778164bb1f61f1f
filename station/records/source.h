// Asking for what is kept, of a file or of a database.
#pragma once

#include "station/records/columns.h"
#include "station/records/where.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace station::records
{

// Which runs are meant; what is empty does not matter.
struct Filter {
    std::string unit;
    std::string plan;                 // its name or its digest
    std::optional<Time> since, until; // started then or later; before then
    std::string verdict;              // or "running"
    size_t limit = 0;                 // the newest so many
};

// What came of a plan's units. A run whose unit did not tell its name counts as a unit of its own. Runs that
// are running or aborted tell nothing of a unit and do not count.
struct PlanYield {
    std::string plan;
    int64_t runs = 0, units = 0;
    int64_t first = 0;      // units whose first run by this plan, ever, is among these
    int64_t first_pass = 0; // those of them that passed in it
    int64_t passed = 0;     // units that passed in their last run here
};

// What a step has done.
struct Harm {
    std::string step;            // empty: no step failed, and the run did
    int64_t units = 0, runs = 0; // that failed, this step first
    int64_t lost = 0; // those of the units that did not pass in their last run here, whatever failed there
};

class Source
{
  public:
    // Of a file, closes as aborted what killed stations left open, where it can be written. Throws Error.
    static std::unique_ptr<Source> open(const Where &where);
    virtual ~Source() = default;

    // In the order of their starts. `visit` may ask for the run's steps.
    void each(const Filter &filter, const std::function<void(const Run &)> &visit);
    std::vector<Step> steps(const std::string &run);
    // The run of this id, or the one whose id begins so. Throws Error when there is none, or more than one.
    Run find(const std::string &id);

    std::vector<PlanYield> yield(const Filter &filter); // in the order of their names
    std::vector<Harm> harm(const Filter &filter); // most units first, then most runs; limit counts steps

  protected:
    using Values = Texts;
    // The parameters are $1, $2 ... in the order in which the text has them first.
    virtual void query(const std::string &sql, const std::vector<std::string> &parameters,
                       const std::function<void(const Values &)> &row) = 0;
    virtual std::string time(const std::string &column) const = 0; // as time_text writes it
    virtual std::string hex(const std::string &column) const = 0;
    // Whether the tables are cut by ids, so that a bound on them spares looking into other months.
    virtual bool is_cut_by_id() const { return false; }

  private:
    template <typename Row> std::string select() const; // of all columns
    size_t page(const Filter &filter, const Run *after, std::vector<Run> &runs);
};

std::unique_ptr<Source> open_database_source(const std::string &address);

} // namespace station::records
