#include "station/records/source.h"

#include "station/records/tables.h"
#include "station/records/text.h"

#include <algorithm>
#include <cstdlib>

namespace station::records
{

static constexpr size_t PAGE = 500;

namespace
{

// The conditions of a filter, in SQL that file and database both take: $1, $2 ... are used first in their
// order.
class Conditions
{
  public:
    Conditions(const Filter &filter, bool by_id)
    {
        if (!filter.unit.empty())
            add("unit = " + value(clean(filter.unit)));
        if (!filter.plan.empty()) {
            const std::string plan = value(clean(filter.plan));
            add("(plan = " + plan + " OR plan_digest = " + plan + ")");
        }
        if (filter.verdict == "running")
            add("verdict IS NULL");
        else if (!filter.verdict.empty()) {
            add("verdict = " + value(filter.verdict));
            if (filter.verdict != "pass")
                add("verdict <> 'pass'"); // the index has only these
        }
        if (filter.since)
            add("started >= " + (since = value(time_text(*filter.since))));
        if (filter.until)
            add("started < " + value(time_text(*filter.until)));
        if (by_id && filter.since)
            add("id >= " + (since_id = value(id_at(*filter.since))));
        if (by_id && filter.until)
            add("id < " + value(id_at(*filter.until)));
    }

    void add(const std::string &condition) { text += (text.empty() ? " WHERE " : " AND ") + condition; }
    std::string value(const std::string &parameter)
    {
        parameters.push_back(parameter);
        return "$" + std::to_string(parameters.size());
    }

    std::string text;
    std::string since, since_id; // their parameters
    std::vector<std::string> parameters;
};

class FileSource : public Source
{
  public:
    explicit FileSource(const std::string &file) : database_(open_file(file, Access::read))
    {
        const bool has_open =
            database_.number("SELECT EXISTS (SELECT 1 FROM runs WHERE verdict IS NULL)") != 0;
        if (!has_open || sqlite3_db_readonly(database_.get(), "main") != 0)
            return;
        try {
            const Owner owner(file);
            Transaction transaction(database_);
            Tables(database_).close_dead(owner);
            transaction.commit();
        } catch (const Error &) { // a full disk is no reason not to read; what is worse shows again
            return;
        }
    }

  protected:
    void query(const std::string &sql, const std::vector<std::string> &parameters,
               const std::function<void(const Values &)> &row) override
    {
        Statement statement(database_, sql);
        for (const std::string &parameter : parameters)
            statement.bind(parameter);
        Values values(static_cast<size_t>(statement.columns()));
        while (statement.step()) {
            for (int i = 0; i < statement.columns(); i++)
                values[i] = statement.is_null(i) ? std::nullopt : std::optional(statement.text(i));
            row(values);
        }
    }
    std::string time(const std::string &column) const override { return column; }
    std::string hex(const std::string &column) const override
    {
        return "CASE WHEN " + column + " IS NOT NULL THEN lower(hex(" + column + ")) END";
    }

  private:
    Database database_;
};

} // namespace

std::unique_ptr<Source> Source::open(const Where &where)
{
    return where.is_database ? open_database_source(where.database)
                             : std::make_unique<FileSource>(where.file);
}

template <typename Row> std::string Source::select() const
{
    std::string list;
    for (const Column &column : columns(Row())) {
        const std::string name = column.name;
        list += (list.empty() ? "SELECT " : ", ") + (column.kind == Kind::time    ? time(name)
                                                     : column.kind == Kind::bytes ? hex(name)
                                                                                  : name);
    }
    return list;
}

// The runs behind `after`, or the newest so many as the filter says; always in the order of time.
size_t Source::page(const Filter &filter, const Run *after, std::vector<Run> &runs)
{
    Conditions conditions(filter, is_cut_by_id());
    if (after) {
        const std::string started = conditions.value(time_text(after->started));
        conditions.add("(started, id) > (" + started + ", " + conditions.value(after->id) + ")");
    }
    const std::string order = filter.limit > 0 ? "runs.started DESC, id DESC" : "runs.started, id";
    runs.clear();
    query(select<Run>() + " FROM runs" + conditions.text + " ORDER BY " + order + " LIMIT " +
              std::to_string(filter.limit > 0 ? filter.limit : PAGE),
          conditions.parameters, [&](const Values &values) { runs.push_back(run_of(values)); });
    if (filter.limit > 0)
        std::reverse(runs.begin(), runs.end());
    return runs.size();
}

void Source::each(const Filter &filter, const std::function<void(const Run &)> &visit)
{
    std::vector<Run> runs;
    std::optional<Run> last;
    // Page by page: nothing is held open while what is read is written elsewhere.
    while (page(filter, last ? &*last : nullptr, runs) > 0) {
        for (const Run &run : runs)
            visit(run);
        if (filter.limit > 0 || runs.size() < PAGE)
            return;
        last = runs.back();
    }
}

std::vector<Step> Source::steps(const std::string &run)
{
    std::vector<Step> steps;
    query(select<Step>() + " FROM steps WHERE run = $1 ORDER BY number", {run},
          [&](const Values &values) { steps.push_back(step_of(values)); });
    return steps;
}

Run Source::find(const std::string &id)
{
    const std::string low = id_bound(id, '0'), high = id_bound(id, 'f');
    std::vector<Run> runs;
    if (!id.empty() && !low.empty())
        query(select<Run>() + " FROM runs WHERE id BETWEEN $1 AND $2 ORDER BY id LIMIT 2", {low, high},
              [&](const Values &values) { runs.push_back(run_of(values)); });
    if (runs.empty())
        throw Error("there is no run " + clean(id));
    if (runs.size() > 1)
        throw Error("more than one run begins with " + clean(id) + ", such as " + runs[0].id + " and " +
                    runs[1].id);
    return runs[0];
}

// The finished runs that are meant, each with its unit.
static std::string finished(Conditions &conditions)
{
    conditions.add("verdict IN ('pass', 'fail', 'error')");
    return "SELECT id, plan, unit, unit_source, started, verdict, failing, "
           "CASE WHEN unit_source = 'port' THEN CAST(id AS text) ELSE unit END AS who FROM runs" +
           conditions.text;
}

std::vector<PlanYield> Source::yield(const Filter &filter)
{
    Conditions conditions(filter, is_cut_by_id());
    const std::string runs = finished(conditions);
    const std::string nth = "row_number() OVER (PARTITION BY plan, who ORDER BY started";
    // A unit that was tested before the time in question does not pass for the first time in it.
    const std::string not_before =
        conditions.since.empty()
            ? ""
            : " AND NOT EXISTS (SELECT 1 FROM runs AS earlier WHERE earlier.unit = ranked.unit "
              "AND earlier.unit_source = 'unit' AND ranked.unit_source = 'unit' "
              "AND earlier.plan = ranked.plan AND earlier.started < " +
                  conditions.since +
                  (conditions.since_id.empty() ? "" : " AND earlier.id < " + conditions.since_id) +
                  " AND earlier.verdict IN ('pass', 'fail', 'error'))";
    std::vector<PlanYield> yields;
    query(
        "WITH meant AS (" + runs + "), ranked AS (SELECT *, " + nth + ", id) AS nth, " + nth +
            " DESC, id DESC) AS nth_last FROM meant), judged AS MATERIALIZED (SELECT plan, verdict, nth, "
            "nth_last, nth = 1" +
            not_before +
            " AS is_first FROM ranked) SELECT plan, count(*), count(*) FILTER (WHERE nth = 1), "
            "count(*) FILTER (WHERE is_first), count(*) FILTER (WHERE is_first AND verdict = 'pass'), "
            "count(*) FILTER (WHERE nth_last = 1 AND verdict = 'pass') FROM judged GROUP BY plan",
        conditions.parameters, [&](const Values &values) {
            const auto number = [&](size_t i) { return std::atol(values[i].value_or("").c_str()); };
            yields.push_back({values[0].value_or(""), number(1), number(2), number(3), number(4), number(5)});
        });
    std::sort(yields.begin(), yields.end(),
              [](const PlanYield &a, const PlanYield &b) { return a.plan < b.plan; });
    return yields;
}

std::vector<Harm> Source::harm(const Filter &filter)
{
    Conditions conditions(filter, is_cut_by_id());
    std::vector<Harm> harms;
    query("WITH meant AS (" + finished(conditions) +
              "), ranked AS (SELECT verdict, failing, who, first_value(verdict) OVER (PARTITION BY plan, who "
              "ORDER BY started DESC, id DESC) AS in_the_end FROM meant) "
              "SELECT failing, count(DISTINCT who), count(*), "
              "count(DISTINCT CASE WHEN in_the_end <> 'pass' THEN who END) FROM ranked WHERE verdict <> "
              "'pass' GROUP BY failing",
          conditions.parameters, [&](const Values &values) {
              const auto number = [&](size_t i) { return std::atol(values[i].value_or("").c_str()); };
              harms.push_back({values[0].value_or(""), number(1), number(2), number(3)});
          });
    std::sort(harms.begin(), harms.end(), [](const Harm &a, const Harm &b) {
        return std::tie(b.units, b.runs, a.step) < std::tie(a.units, a.runs, b.step);
    });
    if (filter.limit > 0 && harms.size() > filter.limit)
        harms.resize(filter.limit);
    return harms;
}

} // namespace station::records
