// What a page asks of many runs at once.
#include "station/records/conditions.h"
#include "station/records/source.h"
#include "station/records/text.h"
#include "station/records/turns.h"

#include <cstdlib>

namespace station::records
{

static constexpr auto HOURS = std::chrono::hours(24 * 3), DAYS = std::chrono::hours(24 * 120); // at most
static constexpr char RUNS_FOR_NAMES[] = "200";

std::vector<std::string> Source::plans()
{
    // From name to name by the index on plans, rather than over all runs.
    std::vector<std::string> names;
    query("WITH RECURSIVE names (name) AS (SELECT min(plan) FROM runs UNION ALL "
          "SELECT (SELECT min(plan) FROM runs WHERE plan > name) FROM names WHERE name IS NOT NULL) "
          "SELECT name FROM names WHERE name IS NOT NULL",
          {}, [&](const auto &values) { names.push_back(values[0].value_or("")); });
    return names;
}

// By how long the time is that is meant: from the first run, where nothing else is said, until now.
static Bucket bucket_of(std::optional<Time> since, std::optional<Time> until)
{
    const auto length = until.value_or(now()) - since.value_or(now());
    return length <= HOURS ? Bucket::hour : length <= DAYS ? Bucket::day : Bucket::month;
}

// A tally asks no more than the hour: the beginning of a time's text.
static Time hour_of(const std::string &text)
{
    static constexpr std::string_view HOUR = "2026-11-21T21";
    return time_of(text.substr(0, HOUR.size()) + ":00");
}

Tally Source::tally(const Filter &filter)
{
    Filter meant = filter;
    if (!meant.since) {
        const Conditions all(filter, is_cut_by_id());
        query("SELECT " + time("min(started)") + " FROM runs" + all.text, all.parameters,
              [&](const auto &values) {
                  if (values[0])
                      meant.since = time_of(*values[0]);
              });
    }
    Tally tally(bucket_of(meant.since, meant.until));
    // Counted where they are, the units that passed in the only run they have; the others one by one.
    Conditions once(filter, is_cut_by_id(), false);
    once.add(PASSED_ONLY_ONCE);
    if (!is_cut_by_id() && filter.since) // the index begins with the hour
        once.add(hour("started") + " >= " + hour(once.since));
    if (!is_cut_by_id() && filter.until)
        once.add(hour("started") + " <= " + hour(once.until));
    query("SELECT plan, " + time("hour") + ", runs FROM (SELECT plan, " + hour("started") +
              " AS hour, count(*) AS runs FROM runs" + once.text + " GROUP BY hour, plan) AS hours",
          once.parameters, [&](const auto &values) {
              tally.add_passed_once(values[0].value_or(""), hour_of(values[1].value_or("")),
                                    std::atoll(values[2].value_or("").c_str()));
          });
    Conditions others(filter, is_cut_by_id(), false);
    others.add(FINISHED);
    others.add(NOT_ONLY_ONCE);
    Finished run;
    stream("SELECT plan, CASE WHEN unit_source = 'port' THEN CAST(id AS text) ELSE unit END, " +
               time("started") + ", verdict, failing, turn FROM runs" + others.text +
               " ORDER BY runs.started, id",
           others.parameters, [&](const auto &values) {
               run.plan = values[0].value_or("");
               run.who = values[1].value_or("");
               run.started = hour_of(values[2].value_or(""));
               run.verdict = verdict_of(values[3].value_or("")).value_or(Verdict::error);
               run.failing = values[4].value_or("");
               run.is_first = values[5] != "2";
               tally.add(run);
           });
    return tally;
}

std::vector<std::pair<std::string, std::string>> Source::measured_names(const Filter &filter)
{
    Conditions conditions(filter, is_cut_by_id());
    std::vector<std::pair<std::string, std::string>> names;
    query("SELECT name, max(unit) FROM steps WHERE measured IS NOT NULL AND run IN (SELECT id FROM runs" +
              conditions.text + " ORDER BY started DESC LIMIT " + RUNS_FOR_NAMES +
              ") GROUP BY name ORDER BY name",
          conditions.parameters,
          [&](const auto &values) { names.emplace_back(values[0].value_or(""), values[1].value_or("")); });
    return names;
}

Measured Source::measured(const Filter &filter, const std::string &name, size_t limit)
{
    Measured measured;
    measured.name = name;
    std::vector<std::string> parameters{clean(name)};
    std::string conditions = "name = $1 AND measured IS NOT NULL";
    const auto add = [&](const std::string &condition, const std::string &value) {
        parameters.push_back(value);
        conditions += " AND " + condition + "$" + std::to_string(parameters.size());
    };
    if (filter.since)
        add("run >= ", id_at(*filter.since));
    if (filter.until)
        add("run < ", id_at(*filter.until));
    if (!filter.plan.empty()) {
        const std::vector<std::string> all = plans();
        // Where there is no other plan, nothing has to be asked of the runs.
        if (all != std::vector<std::string>{filter.plan})
            add("EXISTS (SELECT 1 FROM runs WHERE id = run AND plan = ", clean(filter.plan)),
                conditions += ")";
    }
    std::string newest;
    query("SELECT run, measured FROM steps WHERE " + conditions + " ORDER BY run DESC LIMIT " +
              std::to_string(limit + 1),
          parameters, [&](const auto &values) {
              if (newest.empty())
                  newest = values[0].value_or("");
              if (measured.values.size() == limit)
                  measured.has_more = true;
              else
                  measured.values.emplace_back(time_in(values[0].value_or("")),
                                               std::strtod(values[1].value_or("").c_str(), nullptr));
          });
    if (!newest.empty())
        query("SELECT unit, low, high FROM steps WHERE run = $1 AND name = $2 AND measured IS NOT NULL ORDER "
              "BY "
              "number LIMIT 1",
              {newest, clean(name)}, [&](const auto &values) {
                  measured.unit = values[0].value_or("");
                  measured.low = values[1].value_or("");
                  measured.high = values[2].value_or("");
              });
    return measured;
}

} // namespace station::records
