#include "station/records/postgres.h"

#include "station/records/columns.h"
#include "station/records/forms.h"
#include "station/records/months.h"
#include "station/records/text.h"
#include "station/records/turns.h"
#include "station/records/where.h"
#include "station/text/text.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace station::records
{

// Stations that come at once make tables one after the other.
static constexpr char MAKE_ALONE[] = "SELECT pg_advisory_xact_lock(7219833107421)";

// An id begins with the time of its run, so a month's runs and steps are a range of ids, and the id alone is
// the key. Steps have no foreign key: a run's rows come in one transaction, and a month can be dropped
// without a search through the rest.
static constexpr const char *MIGRATIONS[] = {
    R"(
CREATE TABLE station_records (
    one boolean PRIMARY KEY DEFAULT true CHECK (one),
    version integer NOT NULL,
    id uuid NOT NULL DEFAULT gen_random_uuid()
);
INSERT INTO station_records (version) VALUES (0);
CREATE TABLE runs (
    id uuid PRIMARY KEY,
    unit text NOT NULL,
    unit_source text NOT NULL,
    plan text NOT NULL,
    plan_digest text NOT NULL,
    station text NOT NULL,
    port text NOT NULL,
    software text NOT NULL,
    started timestamptz(3) NOT NULL,
    ended timestamptz(3) NOT NULL,
    verdict text NOT NULL CHECK (verdict IN ('pass', 'fail', 'aborted', 'error')),
    failing text,
    cause text
) PARTITION BY RANGE (id);
CREATE INDEX runs_unit ON runs (unit, started);
CREATE INDEX runs_started ON runs (started);
CREATE INDEX runs_not_passed ON runs (verdict, started) WHERE verdict <> 'pass';
CREATE INDEX runs_failing ON runs (failing, started) WHERE failing IS NOT NULL;
CREATE TABLE steps (
    run uuid NOT NULL,
    number integer NOT NULL,
    began double precision NOT NULL,
    phase text,
    name text NOT NULL,
    code text,
    request text NOT NULL,
    request_bytes bytea,
    answer text NOT NULL,
    answer_bytes bytea,
    measured text,
    unit text,
    low text,
    high text,
    expected text,
    verdict text NOT NULL CHECK (verdict IN ('pass', 'fail', 'aborted', 'error')),
    milliseconds double precision NOT NULL,
    cause text,
    value double precision GENERATED ALWAYS AS (measured::double precision) STORED,
    PRIMARY KEY (run, number)
) PARTITION BY RANGE (run);
CREATE INDEX steps_failing ON steps (name, run) WHERE verdict IN ('fail', 'error');
)",
    R"(
CREATE INDEX runs_plan ON runs (plan, started);
CREATE INDEX steps_measured ON steps (name, run, measured) WHERE measured IS NOT NULL;
)",
    R"(
ALTER TABLE runs ADD COLUMN turn smallint NOT NULL DEFAULT 0;
CREATE INDEX runs_turn ON runs (unit, plan)
    WHERE turn < 2 AND unit_source = 'unit' AND verdict IN ('pass', 'fail', 'error');
CREATE INDEX runs_once ON runs (started, id, plan) WHERE turn = 0 AND verdict = 'pass';
CREATE INDEX runs_yield ON runs (started) WHERE verdict IN ('pass', 'fail', 'error') AND (turn > 0 OR verdict <> 'pass');
)",
};
static constexpr int VERSION = std::size(MIGRATIONS);

// Runs as JSON, under the columns' names. Of two stations that bring the same run one waits for the other
// here.
static std::string insert_runs()
{
    std::string names;
    for (const Column &column : columns(Run()))
        names += std::string(names.empty() ? "" : ", ") + column.name;
    return "INSERT INTO runs (" + names + ") SELECT " + names +
           " FROM json_populate_recordset(NULL::runs, $1) ON CONFLICT DO NOTHING RETURNING id";
}
// What is left of a run that somebody has deleted would stand in its way.
static constexpr char DELETE_OWNERLESS[] = "DELETE FROM steps WHERE run = ANY ($1::uuid[])";

// Two stations that bring runs of one unit at once do not see each other's; of two turns given one after the
// other the second sees all.
static constexpr char TURNS_ALONE[] = "SET LOCAL plan_cache_mode = force_generic_plan; " // planned only once
                                      "SELECT pg_advisory_xact_lock(7219833107422)";
static constexpr char BROUGHT_UNITS[] =
    "unit = ANY (ARRAY (SELECT unit FROM json_populate_recordset(NULL::runs, $1)))";

// What libpq is to do where the address does not say it: a network that swallows everything is noticed.
static std::string with_limits(std::string address)
{
    static constexpr std::pair<const char *, const char *> LIMITS[] = {
        {"connect_timeout", "5"}, {"tcp_user_timeout", "15000"}, {"application_name", "station"}};
    for (const auto &[name, value] : LIMITS)
        if (address.find(std::string(name) + "=") == std::string::npos)
            address += (address.find('?') == std::string::npos ? "?" : "&") + std::string(name) + "=" + value;
    return address;
}

// What libpq says has several lines at times, and may quote the address.
template <typename Work> auto Postgres::guarded(Work &&work)
{
    const auto told = [&](std::string what) {
        const std::string address = with_limits(address_);
        for (const std::string &secret : {address, address_})
            for (size_t at = what.find(secret); at != std::string::npos; at = what.find(secret))
                what.replace(at, secret.size(), "the database");
        while (!what.empty() && what.back() == '\n')
            what.pop_back();
        return shown(address_) + ": " + clean(what);
    };
    try {
        return work();
    } catch (const pqxx::sql_error &error) {
        // A value out of range (22...), a row too long for a page (54...).
        const std::string kind = error.sqlstate().substr(0, 2);
        if (kind == "22" || kind == "54")
            throw NotTaken(told(error.what()));
        throw Error(told(error.what()));
    } catch (const pqxx::failure &error) {
        throw Error(told(error.what()));
    } catch (const std::logic_error &error) { // libpqxx's own complaints of what it is given
        throw Error(told(error.what()));
    }
}

Postgres::Postgres(const std::string &address) : address_(address)
{
    guarded([&] {
        connection_ = std::make_unique<pqxx::connection>(with_limits(address));
        pqxx::nontransaction work(*connection_);
        // A server may have other habits; and compiling a question costs more than a year's yield.
        work.exec("SET client_encoding = 'UTF8'; SET TIME ZONE 'UTC'; SET client_min_messages = warning; "
                  "SET default_transaction_isolation = 'read committed'; SET jit = off");
    });
}

static int version_in(pqxx::transaction_base &work)
{
    if (work.exec1("SELECT to_regclass('station_records') IS NULL")[0].as<bool>())
        return 0;
    return work.exec1("SELECT version FROM station_records")[0].as<int>();
}

static void refuse_other_version(const std::string &address, int version)
{
    if (version > VERSION)
        throw Error(shown(address) + " was made by a newer station (its tables are of version " +
                    std::to_string(version) + ", this one knows " + std::to_string(VERSION) +
                    "); it was left as it is. Use the newer station");
}

void Postgres::check()
{
    guarded([&] {
        pqxx::nontransaction work(*connection_);
        const int version = version_in(work);
        refuse_other_version(address_, version);
        if (version == 0)
            throw Error("there are no records in " + shown(address_) +
                        " yet; `station records push` makes its tables");
        if (version < VERSION)
            throw Error(shown(address_) +
                        " is of an older station; `station records push` makes its tables new");
    });
}

std::string Postgres::prepare()
{
    return guarded([&] {
        pqxx::work work(*connection_);
        work.exec(MAKE_ALONE);
        const int version = version_in(work);
        refuse_other_version(address_, version);
        for (int next = version; next < VERSION; next++) {
            work.exec(MIGRATIONS[next]);
            work.exec("UPDATE station_records SET version = " + std::to_string(next + 1));
        }
        if (version < VERSION)
            work.exec(give_turns("TRUE"));
        auto id = work.exec1("SELECT id FROM station_records")[0].as<std::string>();
        work.commit();
        connection_->prepare("runs", insert_runs());
        connection_->prepare("ownerless", DELETE_OWNERLESS);
        connection_->prepare("turns", give_turns(BROUGHT_UNITS));
        return id;
    });
}

void Postgres::make_months(const std::vector<WholeRun> &runs)
{
    for (const WholeRun &run : runs) {
        const Month month = month_of(run.first.id);
        if (months_.count(month.name) > 0)
            continue;
        pqxx::work work(*connection_);
        const auto is_there = "SELECT to_regclass('runs_" + month.name + "') IS NOT NULL";
        if (!work.exec1(is_there)[0].as<bool>()) {
            work.exec(MAKE_ALONE);
            for (const char *table : {"runs", "steps"})
                work.exec("CREATE TABLE IF NOT EXISTS " + std::string(table) + "_" + month.name +
                          " PARTITION OF " + table + " FOR VALUES FROM ('" + month.from + "') TO ('" +
                          month.to + "')");
        }
        work.commit();
        months_.insert(month.name); // not before: what failed is tried again
    }
}

// As COPY takes it, but for what the stream escapes; nothing for NULL.
static std::optional<std::string> field_of(Column &&column)
{
    if (auto *text = std::get_if<std::string>(&column.value))
        return column.kind == Kind::bytes ? "\\x" + to_hex(*text) : std::move(*text);
    if (const auto *number = std::get_if<int64_t>(&column.value))
        return std::to_string(*number);
    if (const auto *real = std::get_if<double>(&column.value)) {
        char digits[32];
        return std::string(digits, std::to_chars(digits, std::end(digits), *real).ptr);
    }
    return {};
}

static void copy_steps(pqxx::work &work, const std::vector<WholeRun> &runs, const std::set<std::string> &ids)
{
    static constexpr size_t FIELDS = 18; // the stream takes tuples alone
    std::vector<std::string> names{"run"};
    for (const Column &column : columns(Step()))
        names.emplace_back(column.name);
    if (names.size() != FIELDS)
        throw std::logic_error("a step has other columns than its copy");
    pqxx::stream_to rows(work, "steps", names);
    std::array<std::optional<std::string>, FIELDS> fields;
    std::array<const char *, FIELDS> row{};
    for (const auto &[run, steps] : runs) {
        if (ids.count(run.id) == 0)
            continue;
        fields[0] = run.id;
        for (const Step &step : steps) {
            size_t at = 0;
            for (Column &column : columns(step))
                fields[++at] = field_of(std::move(column));
            std::transform(fields.begin(), fields.end(), row.begin(),
                           [](const auto &field) { return field ? field->c_str() : nullptr; });
            rows << row;
        }
    }
    rows.complete();
}

void Postgres::put(const std::vector<WholeRun> &runs)
{
    std::string rows;
    for (const WholeRun &run : runs)
        rows += (rows.empty() ? "[" : ",") + json(run.first);
    rows += "]";
    guarded([&] {
        make_months(runs);
        pqxx::work work(*connection_);
        // The run's row says whose the steps are: they come with it, in one transaction, or are there with
        // it.
        std::set<std::string> ids;
        std::string list = "{";
        for (const auto &row : work.exec_prepared("runs", rows)) {
            ids.insert(row[0].as<std::string>());
            list += (list.size() > 1 ? "," : "") + row[0].as<std::string>();
        }
        if (!ids.empty()) {
            work.exec_prepared("ownerless", list + "}");
            copy_steps(work, runs, ids);
            work.exec(TURNS_ALONE);
            work.exec_prepared("turns", rows);
        }
        work.commit();
    });
}

pqxx::result Postgres::query(const std::string &sql, const std::vector<std::string> &parameters)
{
    return guarded([&] {
        pqxx::nontransaction work(*connection_);
        return work.exec_params(sql, pqxx::prepare::make_dynamic_params(parameters));
    });
}

void Postgres::stream(const std::string &sql, const std::vector<std::string> &parameters,
                      const std::function<void(const pqxx::result &)> &some)
{
    guarded([&] {
        pqxx::work work(*connection_);
        work.exec_params("DECLARE asked NO SCROLL CURSOR FOR " + sql,
                         pqxx::prepare::make_dynamic_params(parameters));
        for (;;) {
            const pqxx::result rows = work.exec("FETCH 10000 FROM asked");
            if (rows.empty())
                return;
            some(rows);
        }
    });
}

void Postgres::interrupt()
{
    try {
        connection_->cancel_query();
    } catch (const std::exception &) { // nothing was being asked, or nobody is there to be told
        return;
    }
}

} // namespace station::records
