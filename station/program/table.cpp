#include "station/program/table.h"

#include "station/plan/run.h"
#include "station/program/kept_file.h"
#include "station/program/output.h"
#include "station/program/progress_bar.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

namespace station
{

using Json = nlohmann::ordered_json;

namespace
{

// Columns as wide as the script needs and the terminal allows.
class Table
{
  public:
    explicit Table(const std::vector<Step> &steps)
    {
        for (const Step &step : steps) {
            name_ = std::max(name_, step.request.name.size());
            request_ = std::max(request_, std::min<size_t>(step.request.words.size(), 36));
        }
        winsize window{};
        size_t width = 120;
        if (isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0)
            width = window.ws_col;
        const size_t others = 2 + 6 + 2 + name_ + 2 + request_ + 2 + 2 + 8;
        answer_ = std::max<size_t>(width > others ? width - others : 0, 24);
    }

    void head() const { line(" ", "code", "name", "request", "answer", "ms"); }

    void row(const Row &row) const
    {
        const Step &step = *row.step;
        const bool coded = step.kind == Step::Kind::request || step.request.command;
        line(step.kind == Step::Kind::skip ? "-"
             : row.as_expected             ? " "
                                           : "!",
             coded ? code_text(step.request.code) : "", step.request.name, step.request.words, row.answer,
             step.kind == Step::Kind::skip ? "" : milliseconds_text(row.milliseconds));
        if (row.as_expected || step.kind != Step::Kind::request)
            return;
        std::string wanted = step.must_fail ? "a failure" : "";
        if (step.compares)
            wanted +=
                (wanted.empty() ? "" : ": ") + std::string(step.is_pattern ? "like " : "") + step.expected;
        std::printf("  line %d wants %s\n", step.line, wanted.empty() ? "a success" : wanted.c_str());
    }

  private:
    static bool begins_character(char byte) { return (byte & 0xC0) != 0x80; }

    static size_t columns(const std::string &text)
    {
        return static_cast<size_t>(std::count_if(text.begin(), text.end(), begins_character));
    }

    static std::string padded(const std::string &text, size_t width)
    {
        return text + std::string(width - std::min(width, columns(text)), ' ');
    }

    static std::string clipped(const std::string &text, size_t width)
    {
        if (columns(text) <= width)
            return text;
        size_t end = 0;
        for (size_t count = 0; count < width - 3 || !begins_character(text[end]); end++)
            count += begins_character(text[end]) ? 1 : 0;
        return text.substr(0, end) + "...";
    }

    void line(const std::string &mark, const std::string &code, const std::string &name,
              const std::string &request, const std::string &answer, const std::string &time) const
    {
        const std::string row = padded(mark, 2) + padded(code, 8) + padded(name, name_ + 2) +
                                padded(clipped(request, request_), request_ + 2) +
                                padded(clipped(answer, answer_), answer_ + 2) +
                                std::string(8 - std::min<size_t>(time.size(), 8), ' ') + time;
        std::puts(row.substr(0, row.find_last_not_of(' ') + 1).c_str());
        flush_output();
    }

    size_t name_ = 4, request_ = 7, answer_ = 0;
};

// A run as one JSON object, written line by line: a long run is not kept in memory.
class JsonRun
{
  public:
    explicit JsonRun(FILE *file) : file_(file) {}

    void row(const Json &json)
    {
        std::fputs(rows_++ == 0 ? "{\n  \"lines\": [\n" : ",\n", file_);
        std::string text = "    " + dump(json);
        for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 5)
            text.insert(at + 1, "    ");
        std::fputs(text.c_str(), file_);
    }

    void end(const Json &sums)
    {
        std::fputs(rows_ == 0 ? "{\n  \"lines\": [" : "\n  ]", file_);
        std::fprintf(file_, "%s,%s\n", rows_ == 0 ? "]" : "", dump(sums).substr(1).c_str());
    }

  private:
    FILE *file_;
    size_t rows_ = 0;
};

struct Sums {
    size_t requests = 0, unexpected = 0, left_out = 0, not_played = 0;
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
    json["as_expected"] = row.as_expected;
    return json;
}

static void print_sums(const Sums &sums, double seconds)
{
    if (sums.not_played > 0)
        std::printf("the port has died; lines not played: %zu\n", sums.not_played);
    std::printf("%zu requests, %zu not as expected, %zu skipped, %.1f s\n", sums.requests, sums.unexpected,
                sums.left_out, seconds);
}

int run_script(const std::string &path, const Settings &settings, const std::string &record_path,
               bool keep_going)
{
    const std::vector<Step> steps = parse_script(path, settings);
    std::unique_ptr<KeptFile> record;
    if (!record_path.empty())
        record = std::make_unique<KeptFile>(record_path);
    std::vector<JsonRun> outputs;
    if (settings.json)
        outputs.emplace_back(stdout);
    if (record)
        outputs.emplace_back(record->file());
    const auto begin = Clock::now();
    const Table table(steps);
    const ProgressBar bar(!settings.json);
    Run run(settings);
    Sums sums;
    bool died = false;
    if (!settings.json)
        table.head();
    for (size_t i = 0; i < steps.size() && !died; i++) {
        const Step &step = steps[i];
        bar.show(i, steps.size(), step.request.name);
        const Row row = run.take(step);
        bar.clear();
        sums.requests += step.kind == Step::Kind::request ? 1 : 0;
        sums.left_out += step.kind == Step::Kind::skip ? 1 : 0;
        sums.unexpected += row.as_expected ? 0 : 1;
        for (JsonRun &output : outputs)
            output.row(row_json(row));
        if (!settings.json)
            table.row(row);
        flush_output();
        died = row.port_died && !keep_going;
        sums.not_played = died ? steps.size() - i - 1 : 0;
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    for (JsonRun &output : outputs)
        output.end({{"requests", sums.requests},
                    {"unexpected", sums.unexpected},
                    {"left_out", sums.left_out},
                    {"not_played", sums.not_played},
                    {"seconds", seconds}});
    if (!settings.json)
        print_sums(sums, seconds);
    if (record)
        record->keep();
    return died ? NO_ANSWER : sums.unexpected > 0 ? FAILURE : SUCCESS;
}

} // namespace station
