// Asking for what is kept, of a file or of a database.
#pragma once

#include "station/records/columns.h"
#include "station/records/tally.h"
#include "station/records/where.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
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
    std::string failing{};            // the first step that failed
};

// The newest values of a measurement.
struct Measured {
    std::string name;
    std::string unit, low, high;                 // of the newest; empty where there is none
    std::vector<std::pair<Time, double>> values; // by the start of their run, the newest first
    bool has_more = false;
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

    // The newest first, and no more than the filter's limit: those before the run of this id, unless it is
    // empty. Nothing when there is no such run.
    std::optional<std::vector<Run>> newest(const Filter &filter, const std::string &before);
    // Those whose id begins so, or is it; two at most.
    std::vector<Run> begins_with(const std::string &id);
    std::vector<std::string> plans(); // that have runs, in the order of their names

    // What came of the finished runs that are meant; the filter's limit does not matter.
    Tally tally(const Filter &filter);

    // By the plan and the time of their runs. The names are those of the newest runs of all that are meant.
    std::vector<std::pair<std::string, std::string>> measured_names(const Filter &filter); // with their units
    Measured measured(const Filter &filter, const std::string &name, size_t limit);

    // By any thread: what is being asked throws Error.
    virtual void interrupt() = 0;

  protected:
    using Values = Texts;
    // The parameters are $1, $2 ... in the order in which the text has them first.
    virtual void query(const std::string &sql, const std::vector<std::string> &parameters,
                       const std::function<void(const Values &)> &row) = 0;
    // The same for many rows, which are not all held at once.
    virtual void stream(const std::string &sql, const std::vector<std::string> &parameters,
                        const std::function<void(const Values &)> &row) = 0;
    virtual std::string time(const std::string &column) const = 0; // as time_text writes it
    // The hour that a time is in; of the result `time` tells at least the date and the hour.
    virtual std::string hour(const std::string &column) const = 0;
    virtual std::string hex(const std::string &column) const = 0;
    // Whether the tables are cut by ids, so that a bound on them spares looking into other months.
    virtual bool is_cut_by_id() const { return false; }

  private:
    template <typename Row> std::string select() const; // of all columns
    std::vector<Run> page(const Filter &filter, const std::optional<Run> &after);
};

std::unique_ptr<Source> open_database_source(const std::string &address);

} // namespace station::records
