#include "station/program/table.h"

#include "station/line/keeper.h"
#include "station/plan/play.h"
#include "station/program/columns.h"
#include "station/program/interrupts.h"
#include "station/program/kept_file.h"
#include "station/program/output.h"
#include "station/program/progress_bar.h"
#include "station/program/terminal.h"
#include "station/records/store.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

namespace station
{

namespace
{

// Columns as wide as the script needs and the terminal allows.
class Table
{
  public:
    explicit Table(const Plan &plan) : path_(plan.path)
    {
        for (const Step &step : plan.steps) {
            name_ = std::max(name_, std::min(columns(shown_name(step)), WIDEST));
            request_ = std::max(request_, std::min(step.request.words.size(), WIDEST));
        }
        winsize window = {}; // it stays so where there is none
        ioctl(STDOUT_FILENO, TIOCGWINSZ, &window);
        const size_t width = window.ws_col ? window.ws_col : 120;
        const size_t others = 2 + 6 + 2 + name_ + 2 + request_ + 2 + 2 + 8;
        const size_t left = width - std::min(width, others);
        // The request gives way, and tells its beginning.
        request_ -=
            std::min(request_ - std::min(request_, REQUEST_MIN), ANSWER_MIN - std::min(left, ANSWER_MIN));
        answer_ = std::max(left, ANSWER_MIN);
    }

    void head() const { line(" ", "code", "name", "request", "answer", "ms"); }

    void row(const Row &row) const
    {
        const Step &step = *row.step;
        const bool coded = step.kind == Step::Kind::request || step.request.command;
        line(step.kind == Step::Kind::skip ? "-"
             : row.as_expected             ? " "
                                           : "!",
             coded ? code_text(step.request.code) : "", clipped(shown_name(step), name_),
             escaped(step.request.words), escaped(row.answer),
             step.kind == Step::Kind::skip ? "" : milliseconds_text(row.milliseconds));
        if (!row.as_expected && step.kind == Step::Kind::request)
            std::printf("  line %d%s wants %s\n", step.line,
                        step.file == path_ ? "" : escaped(" of " + step.file).c_str(),
                        escaped(step.wanted()).c_str());
        if (!row.cause.empty() && row.cause != row.answer)
            std::printf("  %s%s\n", row.as_expected ? "" : "because: ", escaped(row.cause).c_str());
    }

  private:
    static std::string shown_name(const Step &step)
    {
        return escaped(step.title.empty() ? step.request.name : step.title);
    }

    static std::string clipped(const std::string &text, size_t width)
    {
        return columns(text) <= width ? text : cut(text, width - 3) + "...";
    }

    void line(const std::string &mark, const std::string &code, const std::string &name,
              const std::string &request, const std::string &answer, const std::string &time) const
    {
        const std::string row = padded(mark, 2) + padded(code, 8) + padded(name, name_ + 2) +
                                padded(clipped(request, request_), request_ + 2) +
                                padded(clipped(answer, answer_), answer_ + 2) +
                                std::string(8 - std::min<size_t>(time.size(), 8), ' ') + time;
        std::puts(row.substr(0, row.find_last_not_of(' ') + 1).c_str());
    }

    static constexpr size_t ANSWER_MIN = 24, REQUEST_MIN = 12, WIDEST = 36;

    std::string path_;
    size_t name_ = 4, request_ = 7, answer_ = 0;
};

// A run as one JSON object, written line by line: a long run is not kept in memory.
class JsonRun
{
  public:
    explicit JsonRun(FILE *file) : file_(file) {}

    void begin() { std::fputs("{\n  \"lines\": [", file_); }

    void row(const Json &json)
    {
        std::fputs(between_, file_);
        between_ = ",\n";
        std::string text = "    " + json.dump(JSON_INDENT);
        for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 5)
            text.insert(at + 1, "    ");
        std::fputs(text.c_str(), file_);
    }

    void end(const Json &sums)
    {
        std::fprintf(file_, "\n  ],%s\n", sums.dump(JSON_INDENT).substr(1).c_str());
    }

  private:
    FILE *file_;
    const char *between_ = "\n";
};

} // namespace

static Json row_json(const Row &row)
{
    const Step &step = *row.step;
    Json json;
    switch (step.kind) {
    case Step::Kind::request:
        json = to_json(step.request, row.exchange, row.result);
        break;
    case Step::Kind::skip:
        json = {{"name", step.request.name},
                {"status", "skipped"},
                {"left_out", left_out(step)},
                {"reason", step.expected},
                {"line", step.line}};
        if (step.request.command)
            json["code"] = code_text(step.request.code);
        return json;
    default:
        json = {
            {"name", step.request.name}, {"request", step.request.words}, {"milliseconds", row.milliseconds}};
        break;
    }
    json["line"] = step.line;
    if (!step.title.empty())
        json["as"] = step.title;
    if (!step.phase.empty())
        json["phase"] = step.phase;
    if (!step.text.empty())
        json["answer"] = row.answer;
    if (row.measured)
        json["measured"] = row.measured->text();
    json["as_expected"] = row.as_expected;
    if (!row.cause.empty())
        json["cause"] = row.cause;
    return json;
}

namespace
{

// What stands on the terminal and in JSON's files.
class View : public Listener
{
  public:
    View(const Plan &plan, bool json, FILE *record)
        : table_(plan), bar_(!json), shows_table_(!json), steps_(plan.steps.size())
    {
        if (json)
            outputs_.emplace_back(stdout);
        if (record)
            outputs_.emplace_back(record);
    }

    void run_began(const Plan &) override
    {
        for (JsonRun &output : outputs_)
            output.begin();
        if (shows_table_)
            table_.head();
        flush_output();
    }

    void step_begins(size_t index, const Step &step) override { bar_.show(index, steps_, step.request.name); }

    void question_open(const Prompt &) override { bar_.clear(); }

    void step_finished(const Row &row) override
    {
        const Step &step = *row.step;
        bar_.clear();
        requests_ += step.kind == Step::Kind::request ? 1 : 0;
        left_out_ += step.kind == Step::Kind::skip ? 1 : 0;
        unexpected_ += row.as_expected ? 0 : 1;
        for (JsonRun &output : outputs_)
            output.row(row_json(row));
        if (shows_table_)
            table_.row(row);
        flush_output();
    }

    void run_ended(const Ended &ended) override
    {
        const double seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
        for (JsonRun &output : outputs_)
            output.end({{"requests", requests_},
                        {"unexpected", unexpected_},
                        {"left_out", left_out_},
                        {"not_played", ended.not_played},
                        {"seconds", seconds}});
        if (!shows_table_)
            return;
        if (ended.not_played > 0)
            std::printf("%s; lines not played: %zu\n",
                        ended.end == End::aborted ? "interrupted"
                        : ended.end == End::error ? "an error of the station"
                        : ended.port_died         ? "the port has died"
                                                  : "stopped at a failure",
                        ended.not_played);
        std::printf("%zu requests, %zu not as expected, %zu skipped, %.1f s\n", requests_, unexpected_,
                    left_out_, seconds);
        flush_output();
    }

  private:
    Table table_;
    ProgressBar bar_;
    bool shows_table_;
    size_t steps_;
    std::vector<JsonRun> outputs_;
    Clock::time_point begin_ = Clock::now();
    size_t requests_ = 0, unexpected_ = 0, left_out_ = 0;
};

} // namespace

static constexpr char ENDS[] = "station: ends behind this step; Ctrl-C again ends at once\n";

int run_plan(const RunOptions &options, const Settings &settings)
{
    const Plan plan = parse_plan(options.plan, settings);
    Nobody nobody;
    Terminal terminal;
    People &present = isatty(STDIN_FILENO) ? static_cast<People &>(terminal) : nobody;
    std::unique_ptr<AnswersFile> answers;
    if (!options.answers.empty())
        answers = std::make_unique<AnswersFile>(options.answers, present);

    // What is not kept has not passed: so it is kept before it is shown, and nothing is asked that could not
    // be.
    std::unique_ptr<records::Store> store;
    if (options.keeps) {
        store = std::make_unique<records::Store>(records::where_of(options.records));
        store->check();
    }
    std::unique_ptr<Keeper> keeper;
    if (store || options.reports.any())
        keeper = std::make_unique<Keeper>(
            store.get(), Bench{options.station, settings.client.port, "station " STATION_VERSION},
            options.reports.any());
    std::unique_ptr<ReportFiles> reports;
    if (options.reports.any())
        reports = std::make_unique<ReportFiles>(options.reports);
    std::unique_ptr<KeptFile> record;
    if (!options.record.empty())
        record = std::make_unique<KeptFile>(options.record);

    View view(plan, settings.json, record ? record->file() : nullptr);
    std::vector<Listener *> listeners;
    if (keeper)
        listeners.push_back(keeper.get());
    listeners.push_back(&view);
    const Interrupts &interrupts = catch_interrupts(ENDS);
    const Playing playing{settings,     answers ? *answers : present, interrupts,
                          options.stop, options.keep_going,           !options.no_why};
    const Ended ended = play(plan, playing, listeners);
    if (record)
        record->keep();
    if (reports)
        reports->keep(keeper->run(), keeper->steps());
    if (ended.end == End::aborted)
        return INTERRUPTED;
    return ended.port_died ? NO_ANSWER : ended.end == End::pass ? SUCCESS : FAILURE;
}

} // namespace station
