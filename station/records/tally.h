// What came of many runs together: yields, harm, and both over time. Made of the runs in the order of their
// starts, so of a file and of a database alike.
#pragma once

#include "station/records/run.h"

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace station::records
{

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

enum class Bucket { hour, day, month };
const char *word(Bucket bucket);

// Of an hour, day or month, in UTC, as PlanYield has it of all the time; a unit that two plans tested counts
// for each. `units` and `passed` are those within it, so of one unit there may be several.
struct Point {
    Time from;
    int64_t runs = 0, units = 0, first = 0, first_pass = 0, passed = 0;
};

struct OverTime {
    Bucket bucket = Bucket::day;
    std::vector<Point> points; // in the order of time, those without a run left out
};

// A run that has ended as pass, fail or error.
struct Finished {
    std::string plan;
    std::string who; // the unit, or the run's id where it told no name
    Time started;
    Verdict verdict = Verdict::pass;
    std::string failing;
    bool is_first = false; // of the unit's finished ones by this plan, ever
};

class Tally
{
  public:
    explicit Tally(Bucket bucket = Bucket::day) : bucket_(bucket) {}

    Tally(Tally &&) = default; // what failed points at the units
    Tally &operator=(Tally &&) = default;

    // In the order of their starts.
    void add(const Finished &run);
    // Units, each of which has passed in the only run by this plan that it has, within an hour; in any order.
    void add_passed_once(const std::string &plan, Time hour, int64_t units);

    std::vector<PlanYield> plans() const; // in the order of their names
    // Most units first, then most runs; so many steps at most, or all.
    std::vector<Harm> harms(size_t limit = 0) const;
    OverTime over_time() const;

  private:
    struct Unit {
        bool passed = false;       // in its last run
        Time bucket = Time::min(); // of that
    };
    struct Plan {
        PlanYield yield;
        std::unordered_map<std::string, Unit> units;
    };
    struct Failed {
        int64_t runs = 0;
        std::map<std::string, std::vector<const Unit *>> who; // by each of the plans it failed
    };

    std::map<std::string, Plan> plans_;
    std::map<std::string, Failed> failed_;
    Bucket bucket_;
    std::map<Time, Point> points_; // by `from`
};

// As `station records yield --json` prints it; on one line with an indent of -1.
std::string json(const std::vector<PlanYield> &plans, const std::vector<Harm> &harms, int indent);

} // namespace station::records
