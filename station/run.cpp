#include "run.h"

#include "encode.h"
#include "errors.h"
#include "output.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace station
{

const char run_help[] =
    "A script's lines; the connection is made anew when the phone went away in between:\n"
    "\n"
    "  get-prop ro.build.id                a request as on the command line; must succeed\n"
    "  ! get-prop no.such.property         must be answered with a failure\n"
    "  ? shell \"kill -9 1234\"              may come to anything, silence included\n"
    "  get-prop ro.bootmode => ffbm-01     must be answered with this: the text, or what it means (128 GiB)\n"
    "  shell-output \"date +%Y\" =~ 20..     must be answered with what this regular expression describes\n"
    "  wait 30                             waits until the port answers, for 30 s at most; behind a restart "
    "it first\n"
    "                                      waits until the phone has gone down\n"
    "  sleep 0.5                           just waits\n"
    "  skip NAME REASON                    tells why a request's success is left out; `! skip` its failure\n"
    "  # a comment";

namespace
{

using Json = nlohmann::ordered_json;

constexpr uint16_t PORT_CHECK = 0x013C;
constexpr double POLL_TIMEOUT = 1;
constexpr auto POLL_PAUSE = std::chrono::milliseconds(100);

struct Step {
    enum class Kind { request, wait, sleep, skip };

    int line = 0;
    Kind kind = Kind::request;
    Request request; // for the other kinds only its name and words
    Settings settings;
    double seconds = 0;
    bool must_fail = false;
    bool may_fail = false;
    bool compares = false;
    bool is_pattern = false;
    std::string expected;
};

struct Row {
    const Step *step = nullptr;
    bool as_expected = true;
    std::string answer;
    double milliseconds = 0;
    Exchange exchange;
    Result result;
};

// What a line that sends nothing stands for.
const char *left_out(const Step &step) { return step.must_fail ? "failure" : "success"; }

double seconds_of(const std::vector<std::string> &words)
{
    char *end = nullptr;
    const double seconds = words.size() == 2 ? std::strtod(words[1].c_str(), &end) : -1;
    if (!end || *end || !(seconds >= 0))
        throw UsageError(words[0] + " takes a number of seconds");
    return seconds;
}

Step parse_step(std::string text, const Settings &settings)
{
    Step step;
    step.settings = settings;
    if (text[0] == '!' || text[0] == '?') {
        step.must_fail = text[0] == '!';
        step.may_fail = text[0] == '?';
        text.erase(0, 1);
    }
    std::vector<std::string> words = split_words(text);
    const auto arrow = std::find_if(words.begin(), words.end(),
                                    [](const std::string &word) { return word == "=>" || word == "=~"; });
    if (arrow != words.end()) {
        step.compares = true;
        step.is_pattern = *arrow == "=~";
        for (auto word = arrow + 1; word != words.end(); ++word)
            step.expected += (word == arrow + 1 ? "" : " ") + *word;
        if (step.is_pattern)
            static_cast<void>(std::regex(step.expected)); // a broken one is told before anything is sent
        words.erase(arrow, words.end());
    }
    if (words.empty())
        throw UsageError("no request");
    step.request.name = words[0];
    if (words[0] == "wait" || words[0] == "sleep") {
        step.kind = words[0] == "wait" ? Step::Kind::wait : Step::Kind::sleep;
        step.seconds = seconds_of(words);
        step.request.words = words[1] + " s";
    } else if (words[0] == "skip" && words.size() >= 2) {
        step.kind = Step::Kind::skip;
        step.request.name = words[1];
        if (const Command *command = find_command(words[1], step.request.code))
            step.request.command = command;
        for (size_t i = 2; i < words.size(); i++)
            step.expected += (i == 2 ? "" : " ") + words[i];
    } else
        step.request = parse_request(words, step.settings);
    return step;
}

std::vector<Step> parse_script(const std::string &path, const Settings &settings)
{
    std::vector<Step> steps;
    std::istringstream lines(to_text(read_whole_file(path)));
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        number++;
        const size_t begin = line.find_first_not_of(" \t\r");
        if (begin == std::string::npos || line[begin] == '#')
            continue;
        try {
            steps.push_back(parse_step(line.substr(begin), settings));
            steps.back().line = number;
        } catch (const HelpAsked &) {
            throw UsageError(path + ":" + std::to_string(number) + ": a script asks for no help");
        } catch (const std::exception &error) {
            throw UsageError(path + ":" + std::to_string(number) + ": " + error.what());
        }
    }
    return steps;
}

bool answers_port_check(Client &client, double timeout)
{
    client.settings().timeout = std::max(timeout, 0.001);
    client.settings().retries = 0;
    Bytes packet = empty_request(PORT_CHECK);
    packet.resize(SELECTOR_OFFSET + 1);
    return client.ask(packet, true).outcome == Outcome::answer;
}

// A phone that restarts fast may never be seen silent, but it loses its connection.
bool went_down(Client &client, double timeout)
{
    const int connections = client.connections();
    return !answers_port_check(client, timeout) || client.connections() != connections;
}

// Polls until the phone is as it should be; false when the time is up.
bool poll_phone(Client &client, bool (*is_so)(Client &, double), Deadline deadline)
{
    for (;;) {
        const double left = std::chrono::duration<double>(deadline - Clock::now()).count();
        if (left <= 0)
            return false;
        if (is_so(client, std::min(left, POLL_TIMEOUT)))
            return true;
        std::this_thread::sleep_for(POLL_PAUSE);
    }
}

void wait_for_phone(Client &client, bool goes_down, Row &row)
{
    const Deadline deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                 std::chrono::duration<double>(row.step->seconds));
    row.as_expected = false;
    if (goes_down && !poll_phone(client, went_down, deadline))
        row.answer = "the phone has not gone down";
    else if (!poll_phone(client, answers_port_check, deadline))
        row.answer = "the port does not answer";
    else {
        row.answer = "the port answers";
        row.as_expected = true;
    }
}

bool meets(const Step &step, const Row &row)
{
    const Result &result = row.result;
    if (step.must_fail && result.verdict != FAILURE)
        return false;
    if (!step.compares)
        return step.must_fail || step.may_fail || result.verdict == SUCCESS;
    std::string text = to_text(result.data);
    std::vector<std::string> forms{row.answer, text};
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
        forms.push_back(text);
    }
    return std::any_of(forms.begin(), forms.end(), [&](const std::string &form) {
        return step.is_pattern ? std::regex_search(form, std::regex(step.expected)) : form == step.expected;
    });
}

Row take(const Step &step, Client &client, bool goes_down)
{
    Row row;
    row.step = &step;
    const auto begin = Clock::now();
    client.settings() = step.settings.client;
    switch (step.kind) {
    case Step::Kind::request:
        row.exchange = client.ask(step.request.packet, step.request.repeatable);
        row.result = judge(step.request, row.exchange);
        row.answer = answer_line(row.exchange, row.result);
        row.milliseconds = row.exchange.milliseconds;
        row.as_expected = meets(step, row);
        return row;
    case Step::Kind::wait:
        wait_for_phone(client, goes_down, row);
        break;
    case Step::Kind::sleep:
        std::this_thread::sleep_for(std::chrono::duration<double>(step.seconds));
        break;
    case Step::Kind::skip:
        row.answer = std::string(left_out(step)) + " left out: " + step.expected;
        break;
    }
    row.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    return row;
}

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
    Client client(settings.client);
    Json rows = Json::array();
    size_t requests = 0, unexpected = 0, skipped = 0;
    bool goes_down = false;
    if (!settings.json)
        table.head();
    for (size_t i = 0; i < steps.size(); i++) {
        const Step &step = steps[i];
        bar.show(i, steps.size(), step.request.name);
        const Row row = take(step, client, goes_down);
        bar.clear();
        if (step.kind == Step::Kind::request) {
            requests++;
            goes_down = step.request.takes_phone_down && row.result.verdict == SUCCESS;
        } else if (step.kind == Step::Kind::skip)
            skipped++;
        else if (step.kind == Step::Kind::wait)
            goes_down = false;
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
