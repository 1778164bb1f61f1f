#include "station/records/tally.h"

#include "station/text/json.h"

#include <algorithm>
#include <ctime>
#include <tuple>

namespace station::records
{

const char *word(Bucket bucket)
{
    return bucket == Bucket::hour ? "hour" : bucket == Bucket::day ? "day" : "month";
}

static Time floor(Time time, Bucket bucket)
{
    if (bucket == Bucket::hour)
        return std::chrono::floor<std::chrono::hours>(time);
    using Days = std::chrono::duration<int64_t, std::ratio<86400>>;
    const auto day = std::chrono::floor<Days>(time);
    if (bucket == Bucket::day)
        return day;
    const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count();
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    return day - Days(parts.tm_mday - 1);
}

void Tally::add(const Finished &run)
{
    Plan &plan = plans_[run.plan];
    const auto [found, is_new] = plan.units.try_emplace(run.who);
    Unit &unit = found->second;
    const bool passes = run.verdict == Verdict::pass;

    const Time from = floor(run.started, bucket_);
    Point &point = points_[from];
    const bool was_in_bucket = unit.bucket == from;

    for (int64_t *runs : {&plan.yield.runs, &point.runs})
        ++*runs;
    plan.yield.units += is_new ? 1 : 0;
    point.units += was_in_bucket ? 0 : 1;
    for (int64_t *first : {&plan.yield.first, &point.first})
        *first += run.is_first ? 1 : 0;
    for (int64_t *first_pass : {&plan.yield.first_pass, &point.first_pass})
        *first_pass += run.is_first && passes ? 1 : 0;
    plan.yield.passed += (passes ? 1 : 0) - (unit.passed ? 1 : 0);
    point.passed += (passes ? 1 : 0) - (was_in_bucket && unit.passed ? 1 : 0);
    unit.passed = passes;
    unit.bucket = from;

    if (passes)
        return;
    Failed &failed = failed_[run.failing];
    failed.runs++;
    std::vector<const Unit *> &units = failed.who[run.who];
    if (std::find(units.begin(), units.end(), &unit) == units.end())
        units.push_back(&unit);
}

void Tally::add_passed_once(const std::string &plan, Time hour, int64_t units)
{
    PlanYield &yield = plans_[plan].yield;
    Point &point = points_[floor(hour, bucket_)];
    for (int64_t *count : {&yield.runs, &yield.units, &yield.first, &yield.first_pass, &yield.passed,
                           &point.runs, &point.units, &point.first, &point.first_pass, &point.passed})
        *count += units;
}

OverTime Tally::over_time() const
{
    OverTime over_time{bucket_, {}};
    for (const auto &[from, point] : points_) {
        over_time.points.push_back(point);
        over_time.points.back().from = from;
    }
    return over_time;
}

std::vector<PlanYield> Tally::plans() const
{
    std::vector<PlanYield> yields;
    for (const auto &[name, plan] : plans_) {
        yields.push_back(plan.yield);
        yields.back().plan = name;
    }
    return yields;
}

std::vector<Harm> Tally::harms(size_t limit) const
{
    std::vector<Harm> harms;
    for (const auto &[step, failed] : failed_) {
        const auto lost = std::count_if(failed.who.begin(), failed.who.end(), [](const auto &each) {
            return std::any_of(each.second.begin(), each.second.end(),
                               [](const Unit *unit) { return !unit->passed; });
        });
        harms.push_back({step, static_cast<int64_t>(failed.who.size()), failed.runs, lost});
    }
    // Those that struck equally stay in the order of their names.
    std::stable_sort(harms.begin(), harms.end(), [](const Harm &a, const Harm &b) {
        return std::tie(a.units, a.runs) > std::tie(b.units, b.runs);
    });
    if (limit > 0 && harms.size() > limit)
        harms.resize(limit);
    return harms;
}

std::string json(const std::vector<PlanYield> &plans, const std::vector<Harm> &harms, int indent)
{
    Json json{{"plans", Json::array()}, {"steps", Json::array()}};
    for (const PlanYield &plan : plans)
        json["plans"].push_back(
            {{"plan", plan.plan},
             {"units", plan.units},
             {"first", plan.first},
             {"first_pass", plan.first_pass},
             {"first_pass_yield",
              plan.first > 0 ? Json(static_cast<double>(plan.first_pass) / static_cast<double>(plan.first))
                             : Json()},
             {"passed", plan.passed},
             {"runs", plan.runs}});
    for (const Harm &harm : harms)
        json["steps"].push_back({{"step", harm.step.empty() ? Json() : Json(harm.step)},
                                 {"units", harm.units},
                                 {"lost", harm.lost},
                                 {"runs", harm.runs}});
    return json.dump(indent);
}

} // namespace station::records
