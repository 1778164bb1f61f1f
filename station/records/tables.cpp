#include "station/records/tables.h"

#include "station/records/columns.h"
#include "station/records/text.h"
#include "station/records/turns.h"
#include "station/text/text.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <set>

namespace station::records
{

static std::string insert_step_sql()
{
    std::string names = "run", values = "id";
    int number = 1;
    for (const Column &column : columns(Step())) {
        names += std::string(", ") + column.name;
        values += ", ?" + std::to_string(++number);
    }
    return "INSERT INTO steps (" + names + ") SELECT " + values +
           " FROM runs WHERE id = ?1 AND verdict IS NULL";
}

Tables::Tables(Database &database)
    : insert_run_(database, "INSERT INTO runs (id, unit, unit_source, plan, plan_digest, station, port, "
                            "software, started, owner) "
                            "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
      insert_step_(database, insert_step_sql()),
      identify_(database, "UPDATE runs SET unit = ?, unit_source = 'unit' WHERE id = ? AND verdict IS NULL"),
      end_(database, "UPDATE runs SET ended = ?2, verdict = ?3, cause = ?4, owner = NULL, failing = (SELECT "
                     "name FROM steps "
                     "WHERE run = ?1 AND verdict IN ('fail', 'error') ORDER BY number LIMIT 1) "
                     "WHERE id = ?1 AND verdict IS NULL"),
      open_owners_(database, "SELECT DISTINCT owner FROM runs WHERE verdict IS NULL"),
      open_runs_(database,
                 "SELECT id, started, (SELECT max(began + milliseconds) FROM steps WHERE run = id) FROM runs "
                 "WHERE verdict IS NULL AND owner = ?"),
      give_turns_(database, give_turns("unit = (SELECT unit FROM runs WHERE id = ?1)"))
{
}

// What is looked for by an index, in the database too, which takes a third of a page of 8 KB. A phone that
// tells 60 KB as its name is found by their beginning.
static std::string name(const std::string &text)
{
    static constexpr size_t LONGEST = 1000;
    std::string cleaned = clean(text);
    size_t end = std::min(cleaned.size(), LONGEST);
    while ((cleaned[end] & 0xC0) == 0x80) // no character is cut
        end--;
    cleaned.resize(end);
    return cleaned;
}

// What is none, or beyond what a floating-point number holds, is not kept: the answer has it.
static std::string decimal(const std::string &text)
{
    static constexpr size_t LONGEST = 300;
    return text.size() <= LONGEST && is_decimal(text) ? text : std::string();
}

void Tables::insert(const Run &run, int64_t owner)
{
    insert_run_.bind(run.id).bind(name(run.unit)).bind(std::string_view(run.unit_is_port ? "port" : "unit"));
    for (const std::string *text : {&run.plan, &run.plan_digest, &run.station, &run.port, &run.software})
        insert_run_.bind(clean(*text));
    insert_run_.bind(time_text(run.started)).bind(owner).execute();
}

// The bytes, unless the text says the same.
static std::optional<std::string> beside(const std::string &kept, const std::string &text,
                                         const std::optional<std::string> &bytes)
{
    const std::string &all = bytes ? *bytes : text;
    return all == kept ? std::nullopt : std::optional(all);
}

static double to_microsecond(double milliseconds) { return std::round(milliseconds * 1000) / 1000; }

Step as_kept(const Step &step)
{
    Step kept = step;
    kept.began = to_microsecond(step.began);
    kept.milliseconds = to_microsecond(step.milliseconds);
    kept.name = name(step.name);
    for (std::string Step::*text : {&Step::phase, &Step::code, &Step::request, &Step::answer, &Step::unit,
                                    &Step::expected, &Step::cause})
        kept.*text = clean(step.*text);
    for (std::string Step::*text : {&Step::measured, &Step::low, &Step::high})
        kept.*text = decimal(step.*text);
    kept.request_bytes = beside(kept.request, step.request, step.request_bytes);
    kept.answer_bytes = beside(kept.answer, step.answer, step.answer_bytes);
    return kept;
}

bool Tables::insert(const std::string &run, const Step &step)
{
    insert_step_.bind(run);
    for (const Column &column : columns(step))
        insert_step_.bind(column);
    insert_step_.execute();
    return insert_step_.changes() == 1;
}

bool Tables::identify(const std::string &run, const std::string &unit)
{
    identify_.bind(name(unit)).bind(run).execute();
    return identify_.changes() == 1;
}

bool Tables::end(const std::string &run, Time ended, Verdict verdict, const std::string &cause)
{
    end_.bind(run)
        .bind(time_text(ended))
        .bind(std::string_view(word(verdict)))
        .bind_unless_empty(clean(cause))
        .execute();
    if (end_.changes() != 1)
        return false;
    if (verdict != Verdict::aborted)
        give_turns_.bind(run).execute();
    return true;
}

void Tables::close_dead(const Owner &owner)
{
    std::set<int64_t> dead;
    while (open_owners_.step())
        if (!owner.lives(open_owners_.number(0)))
            dead.insert(open_owners_.number(0));
    std::vector<std::pair<std::string, Time>> runs;
    for (int64_t one : dead) {
        open_runs_.bind(one);
        while (open_runs_.step()) {
            const auto lasted = std::chrono::milliseconds(static_cast<int64_t>(open_runs_.real(2)));
            runs.emplace_back(open_runs_.text(0), time_of(open_runs_.text(1)) + lasted);
        }
    }
    for (const auto &[run, ended] : runs)
        end(run, ended, Verdict::aborted, "the station ended in the middle of the run");
}

} // namespace station::records
