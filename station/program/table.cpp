#include "station/program/table.h"

#include "station/plan/run.h"
#include "station/program/output.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>

namespace station
{
namespace
{

using Json = nlohmann::ordered_json;

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
    static std::string padded(std::string text, size_t width)
    {
        text.resize(std::max(text.size(), width), ' ');
        return text;
    }

    static std::string clipped(const std::string &text, size_t width)
    {
        return text.size() <= width ? text : text.substr(0, width - 3) + "...";
    }

    void line(const std::string &mark, const std::string &code, const std::string &name,
              const std::string &request, const std::string &answer, const std::string &time) const
    {
        const std::string row = padded(mark, 2) + padded(code, 8) + padded(name, name_ + 2) +
                                padded(clipped(request, request_), request_ + 2) +
                                padded(clipped(answer, answer_), answer_ + 2) +
                                std::string(8 - std::min<size_t>(time.size(), 8), ' ') + time;
        std::puts(row.substr(0, row.find_last_not_of(' ') + 1).c_str());
        std::fflush(stdout);
    }

    size_t name_ = 4, request_ = 7, answer_ = 0;
};

// One line below the table, on a terminal only.
class ProgressBar
{
  public:
    explicit ProgressBar(bool shown) : shown_(shown && isatty(STDERR_FILENO)) {}

    void show(size_t done, size_t all, const std::string &name) const
    {
        if (!shown_)
            return;
        constexpr size_t width = 30;
        const size_t filled = all ? done * width / all : width;
        std::fprintf(stderr, "\r\033[K[%s%s] %zu/%zu %s", std::string(filled, '#').c_str(),
                     std::string(width - filled, '.').c_str(), done, all, name.c_str());
        std::fflush(stderr);
    }
    void clear() const
    {
        if (!shown_)
            return;
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
    }

  private:
    bool shown_;
};

Json row_json(const Row &row)
{
    const Step &step = *row.step;
    Json json;
    switch (step.kind) {
    case Step::Kind::request:
        json = to_json(step.request, row.exchange, row.result);
        break;
    case Step::Kind::skip:
        json = {{"name", step.request.name},
                {"status", "left out"},
                {"left_out", left_out(step)},
                {"reason", step.expected}};
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

} // namespace

int run_script(const std::string &path, const Settings &settings, const std::string &record)
{
    const std::vector<Step> steps = parse_script(path, settings);
    const auto begin = Clock::now();
    const Table table(steps);
    const ProgressBar bar(!settings.json);
    Run run(settings);
    Json rows = Json::array();
    size_t requests = 0, unexpected = 0, skipped = 0;
    if (!settings.json)
        table.head();
    for (size_t i = 0; i < steps.size(); i++) {
        const Step &step = steps[i];
        bar.show(i, steps.size(), step.request.name);
        const Row row = run.take(step);
        bar.clear();
        requests += step.kind == Step::Kind::request ? 1 : 0;
        skipped += step.kind == Step::Kind::skip ? 1 : 0;
        unexpected += row.as_expected ? 0 : 1;
        rows.push_back(row_json(row));
        if (!settings.json)
            table.row(row);
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    const Json all{{"lines", rows},
                   {"requests", requests},
                   {"unexpected", unexpected},
                   {"left_out", skipped},
                   {"seconds", seconds}};
    if (settings.json)
        std::printf("%s\n", dump(all).c_str());
    else
        std::printf("%zu requests, %zu not as expected, %zu left out, %.1f s\n", requests, unexpected,
                    skipped, seconds);
    if (!record.empty() && !(std::ofstream(record) << dump(all) << '\n'))
        throw std::runtime_error("cannot write " + record);
    return unexpected ? FAILURE : SUCCESS;
}

} // namespace station
