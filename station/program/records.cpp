#include "station/program/records.h"

#include "station/catalogue/answer.h"
#include "station/catalogue/command_line.h"
#include "station/client/errors.h"
#include "station/program/kept_file.h"
#include "station/program/output.h"
#include "station/program/reports.h"
#include "station/records/forms.h"
#include "station/records/forward.h"
#include "station/records/source.h"
#include "station/records/text.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace station
{

using namespace records;

static constexpr char HELP[] =
    "Asks for what was kept of runs.\n"
    "\n"
    "  station records list --verdict fail --since 24h       a line for each run\n"
    "  station records show 019aa875-1c3e                    a run step by step\n"
    "  station records export --csv - --unit CV0250A7F3      for other programs; also --junit, --jsonl\n"
    "  station records yield --since 2026-11-21              units, how many passed at once, what fails "
    "most\n"
    "  station records push                                  forwards what the database has not yet\n"
    "\n"
    "Each takes --help. Records are in a file, or in a database of many stations: --records FILE or\n"
    "postgresql://...; otherwise $STATION_RECORDS, or records.db.\n";

static constexpr char TIMES[] =
    "Times are UTC: 2026-11-21, 2026-11-21T21:54, or so long ago: 30m, 24h, 7d, 2w.\n"
    "--until is the first moment that is left out.";

namespace
{

struct Asked {
    explicit Asked(bool as_json) : json(as_json) {}

    std::string records, since, until, run;
    Reports files;
    Filter filter;
    int limit = 0; // none
    bool json;
    bool again = false;
};

} // namespace

static void add_where(CommandLine &line, Asked &asked)
{
    line.takes("--records WHERE", asked.records,
               "a file or postgresql://...; otherwise $STATION_RECORDS, or records.db");
}

static void add_filters(CommandLine &line, Asked &asked)
{
    add_where(line, asked);
    line.takes("--unit NAME", asked.filter.unit, "runs of this unit");
    line.takes("--plan NAME|DIGEST", asked.filter.plan, "runs of this plan");
    line.takes("--since TIME", asked.since, "runs that were started then or later");
    line.takes("--until TIME", asked.until, "runs that were started before");
    line.takes("--verdict", asked.filter.verdict, {"pass", "fail", "aborted", "error", "running"},
               "runs that ended so");
    line.takes("--limit COUNT", asked.limit, {1, 1'000'000'000},
               "the newest so many; of yield, the so many steps that do most harm");
    line.footer(TIMES);
}

static std::string shown_unit(const Run &run) { return run.unit_is_port ? "(" + run.unit + ")" : run.unit; }

static const char *shown_verdict(const Run &run) { return run.verdict ? word(*run.verdict) : "running"; }

static void print_line(const Run &run)
{
    std::string why = run.failing;
    if (why.empty())
        why = run.cause;
    std::printf("%s  %-7s  %-16s  %-20s  %s%s%s\n", time_text(run.started).c_str(), shown_verdict(run),
                escaped(shown_unit(run)).c_str(), escaped(run.plan).c_str(), run.id.c_str(),
                why.empty() ? "" : "  ", escaped(why).c_str());
}

static void list(Source &source, const Filter &filter, bool as_json)
{
    size_t count = 0;
    if (as_json)
        std::fputs("[", stdout);
    source.each(filter, [&](const Run &run) {
        if (as_json)
            std::printf("%s%s", count == 0 ? "\n" : ",\n", json(run).c_str());
        else
            print_line(run);
        count++;
    });
    if (as_json)
        std::puts("\n]");
    else
        std::printf("%zu run%s\n", count, count == 1 ? "" : "s");
}

static std::string with_limits(const Step &step)
{
    if (step.measured.empty())
        return escaped(without_last_line_feed(step.answer));
    std::string text = step.measured + " " + step.unit;
    if (!step.low.empty() || !step.high.empty())
        text += " in " + (step.low == step.high ? step.low : step.low + ".." + step.high);
    return escaped(text);
}

static void show(Source &source, const std::string &id, bool as_json)
{
    const Run run = source.find(id);
    const std::vector<Step> steps = source.steps(run.id);
    if (as_json) {
        std::puts(json(run, steps).c_str());
        return;
    }
    std::string ended = run.ended ? time_text(*run.ended) : "";
    if (run.ended)
        ended +=
            " (" +
            milliseconds_text(std::chrono::duration<double, std::milli>(*run.ended - run.started).count()) +
            " ms)";
    const std::pair<const char *, std::string> lines[] = {
        {"run", run.id},
        {"unit", shown_unit(run)},
        {"plan", run.plan + (run.plan_digest.empty() ? "" : " " + run.plan_digest)},
        {"station", run.station},
        {"port", run.port},
        {"software", run.software},
        {"started", time_text(run.started)},
        {"ended", ended},
        {"verdict", shown_verdict(run)},
        {"failing", run.failing},
        {"cause", run.cause}};
    for (const auto &[name, text] : lines)
        if (!text.empty())
            std::printf("%-8s  %s\n", name, escaped(text).c_str());
    std::string phase;
    for (const Step &step : steps) {
        if (step.phase != phase)
            std::printf("phase %s\n", escaped(step.phase).c_str());
        phase = step.phase;
        std::printf("%4d  %-7s  %7s ms  %-6s  %-20s  %s\n", step.number, word(step.verdict),
                    milliseconds_text(step.milliseconds).c_str(), step.code.c_str(),
                    escaped(step.name).c_str(), with_limits(step).c_str());
        if (step.verdict == records::Verdict::pass)
            continue;
        std::printf("      asked: %s\n", escaped(step.request).c_str());
        if (!step.expected.empty())
            std::printf("      expected: %s\n", escaped(step.expected).c_str());
        if (!step.cause.empty())
            std::printf("      because: %s\n", escaped(step.cause).c_str());
    }
}

static std::string percent(int64_t part, int64_t of)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %%", 100.0 * static_cast<double>(part) / static_cast<double>(of));
    return of > 0 ? text : "-";
}

static void yield(Source &source, const Filter &filter, bool as_json)
{
    const Tally tally = source.tally(filter);
    const std::vector<PlanYield> plans = tally.plans();
    const std::vector<Harm> harms = tally.harms(filter.limit);
    if (as_json) {
        std::puts(json(plans, harms, 2).c_str());
        return;
    }
    std::printf("%-24s  %7s  %10s  %16s  %16s  %7s\n", "plan", "units", "first time", "first pass", "passed",
                "runs");
    for (const PlanYield &plan : plans) {
        const std::string first =
            std::to_string(plan.first_pass) + "  " + percent(plan.first_pass, plan.first);
        const std::string passed = std::to_string(plan.passed) + "  " + percent(plan.passed, plan.units);
        std::printf("%-24s  %7ld  %10ld  %16s  %16s  %7ld\n", escaped(plan.plan).c_str(), plan.units,
                    plan.first, first.c_str(), passed.c_str(), plan.runs);
    }
    std::printf("\n%-24s  %7s  %10s  %7s\n", "step that failed first", "units", "lost", "runs");
    for (const Harm &harm : harms)
        std::printf("%-24s  %7ld  %10ld  %7ld\n", harm.step.empty() ? "(none)" : escaped(harm.step).c_str(),
                    harm.units, harm.lost, harm.runs);
}

static void export_runs(Source &source, const Asked &asked)
{
    std::vector<std::unique_ptr<KeptFile>> files;
    std::vector<std::pair<Export, FILE *>> exports;
    for (const auto &[form, path] : asked.files.wanted()) {
        FILE *file = stdout;
        if (path != "-")
            file = files.emplace_back(std::make_unique<KeptFile>(path))->file();
        exports.emplace_back(Export(form, file), file);
    }
    source.each(asked.filter, [&](const Run &run) {
        const std::vector<Step> steps = source.steps(run.id);
        for (auto &[each, file] : exports) {
            each.add(run, steps);
            if (std::ferror(file))
                throw OutputError(std::string("cannot write the export: ") + std::strerror(errno));
        }
    });
    for (auto &[each, file] : exports)
        each.end();
    for (const auto &file : files)
        file->keep();
}

static std::optional<Time> time_option(const char *name, const std::string &text)
{
    const std::optional<Time> time = parse_time(text, records::now());
    if (!text.empty() && !time)
        throw UsageError(std::string(name) +
                         " takes a time such as 2026-11-21, 2026-11-21T21:54 or 24h, not '" + text + "'");
    return time;
}

static std::unique_ptr<Source> open_source(Asked &asked)
{
    asked.filter.since = time_option("--since", asked.since);
    asked.filter.until = time_option("--until", asked.until);
    asked.filter.limit = static_cast<size_t>(asked.limit);
    return Source::open(where_of(asked.records));
}

static void serve_list(const std::vector<std::string> &words, Asked &asked)
{
    CommandLine line("records list", "A line for each run, in the order of time.");
    add_filters(line, asked);
    line.takes("--json", asked.json, "as JSON");
    line.parse(words);
    list(*open_source(asked), asked.filter, asked.json);
}

static void serve_show(const std::vector<std::string> &words, Asked &asked)
{
    CommandLine line("records show", "A run step by step.");
    add_where(line, asked);
    line.needs("RUN", asked.run, "its id, or how it begins");
    line.takes("--json", asked.json, "as JSON");
    line.parse(words);
    show(*open_source(asked), asked.run, asked.json);
}

static void serve_export(const std::vector<std::string> &words, Asked &asked)
{
    CommandLine line("records export",
                     "Runs with their steps for other programs; FILE is - for standard output.");
    add_filters(line, asked);
    line.takes("--junit FILE", asked.files.junit, "JUnit's XML, a suite a run");
    line.takes("--csv FILE", asked.files.csv, "CSV, a line a step");
    line.takes("--jsonl FILE", asked.files.jsonl, "JSON lines, a line a run");
    line.parse(words);
    const auto wanted = asked.files.wanted();
    const auto to_standard_output =
        std::count_if(wanted.begin(), wanted.end(), [](const auto &file) { return file.second == "-"; });
    if (wanted.empty())
        throw UsageError("records export: --junit FILE, --csv FILE or --jsonl FILE says in which form");
    if (to_standard_output > 1)
        throw UsageError("records export: only one form fits on standard output");
    export_runs(*open_source(asked), asked);
}

static void serve_yield(const std::vector<std::string> &words, Asked &asked)
{
    CommandLine line(
        "records yield",
        "Units, how many of them passed at once, and the steps that failed, those that harm most first.");
    add_filters(line, asked);
    line.takes("--json", asked.json, "as JSON");
    line.parse(words);
    yield(*open_source(asked), asked.filter, asked.json);
}

static void serve_push(const std::vector<std::string> &words, Asked &asked)
{
    CommandLine line(
        "records push",
        "Forwards to the database what is not there yet. --records names the file, and FILE.address the\n"
        "database; or the database itself, with records.db in front of it.");
    add_where(line, asked);
    line.takes("--all", asked.again, "also what was forwarded before: after the database has lost something");
    line.parse(words);
    const Where where = where_of(asked.records);
    const Pushed pushed = push(where, asked.again);
    std::printf("%zu run%s forwarded to %s\n", pushed.runs, pushed.runs == 1 ? "" : "s",
                escaped(shown(where.database)).c_str());
    if (pushed.not_taken > 0)
        throw records::Error(std::to_string(pushed.not_taken) + " not taken; " + pushed.why);
}

int serve_records(const std::vector<std::string> &words, Settings &settings)
{
    static constexpr std::pair<const char *, void (*)(const std::vector<std::string> &, Asked &)> SERVED[] = {
        {"list", serve_list},
        {"show", serve_show},
        {"export", serve_export},
        {"yield", serve_yield},
        {"push", serve_push}};
    Asked asked(settings.json);
    const std::string what = words.empty() ? "" : words.front();
    if (what == "--help" || what == "-h")
        throw HelpAsked{HELP};
    try {
        for (const auto &[name, serve] : SERVED)
            if (what == name) {
                serve({words.begin() + 1, words.end()}, asked);
                return SUCCESS;
            }
    } catch (const records::Error &error) {
        std::fprintf(stderr, "station: %s\n", escaped(error.what()).c_str());
        return FAILURE;
    }
    for (const auto &[name, serve] : SERVED)
        if (what[0] == '-' && std::find(words.begin(), words.end(), name) != words.end())
            throw UsageError("records: options stand behind the word: station records " + std::string(name) +
                             " " + what + " ...");
    throw UsageError("records: list, show, export, yield or push, not '" + what +
                     "'; `station records --help` tells more");
}

} // namespace station
