#include "station/records/source.h"

#include "station/records/conditions.h"
#include "station/records/file.h"
#include "station/records/tables.h"
#include "station/records/text.h"

#include <algorithm>
#include <cstdlib>

namespace station::records
{

static constexpr size_t PAGE = 500;

namespace
{

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

    void interrupt() override { sqlite3_interrupt(database_.get()); }

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
    void stream(const std::string &sql, const std::vector<std::string> &parameters,
                const std::function<void(const Values &)> &row) override
    {
        query(sql, parameters, row);
    }
    std::string time(const std::string &column) const override { return column; }
    std::string hour(const std::string &column) const override { return "substr(" + column + ", 1, 13)"; }
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
std::vector<Run> Source::page(const Filter &filter, const std::optional<Run> &after)
{
    Conditions conditions(filter, is_cut_by_id());
    if (after) {
        const std::string started = conditions.value(time_text(after->started));
        conditions.add("(started, id) > (" + started + ", " + conditions.value(after->id) + ")");
    }
    const std::string order = filter.limit > 0 ? "runs.started DESC, id DESC" : "runs.started, id";
    std::vector<Run> runs;
    query(select<Run>() + " FROM runs" + conditions.text + " ORDER BY " + order + " LIMIT " +
              std::to_string(filter.limit > 0 ? filter.limit : PAGE),
          conditions.parameters, [&](const Values &values) { runs.push_back(run_of(values)); });
    if (filter.limit > 0)
        std::reverse(runs.begin(), runs.end());
    return runs;
}

void Source::each(const Filter &filter, const std::function<void(const Run &)> &visit)
{
    std::vector<Run> runs;
    std::optional<Run> last;
    // Page by page: nothing is held open while what is read is written elsewhere.
    do {
        runs = page(filter, last);
        for (const Run &run : runs)
            visit(run);
        if (!runs.empty())
            last = runs.back();
    } while (filter.limit == 0 && runs.size() == PAGE);
}

std::vector<Step> Source::steps(const std::string &run)
{
    std::vector<Step> steps;
    query(select<Step>() + " FROM steps WHERE run = $1 ORDER BY number", {run},
          [&](const Values &values) { steps.push_back(step_of(values)); });
    return steps;
}

std::vector<Run> Source::begins_with(const std::string &id)
{
    const std::string low = id_bound(id, '0'), high = id_bound(id, 'f');
    std::vector<Run> runs;
    if (!id.empty() && !low.empty())
        query(select<Run>() + " FROM runs WHERE id BETWEEN $1 AND $2 ORDER BY id LIMIT 2", {low, high},
              [&](const auto &values) { runs.push_back(run_of(values)); });
    return runs;
}

Run Source::find(const std::string &id)
{
    const std::vector<Run> runs = begins_with(id);
    if (runs.empty())
        throw Error("there is no run " + clean(id));
    if (runs.size() > 1)
        throw Error("more than one run begins with " + clean(id) + ", such as " + runs[0].id + " and " +
                    runs[1].id);
    return runs[0];
}

std::optional<std::vector<Run>> Source::newest(const Filter &filter, const std::string &before)
{
    Conditions conditions(filter, is_cut_by_id());
    if (!before.empty()) {
        const std::vector<Run> last = begins_with(before);
        if (last.size() != 1)
            return std::nullopt;
        const std::string started = conditions.value(time_text(last[0].started));
        conditions.add("(started, id) < (" + started + ", " + conditions.value(last[0].id) + ")");
    }
    std::vector<Run> runs;
    query(select<Run>() + " FROM runs" + conditions.text + " ORDER BY runs.started DESC, id DESC LIMIT " +
              std::to_string(filter.limit),
          conditions.parameters, [&](const auto &values) { runs.push_back(run_of(values)); });
    return runs;
}

} // namespace station::records
