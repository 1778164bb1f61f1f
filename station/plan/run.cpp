#include "station/plan/run.h"

#include "station/client/errors.h"
#include "station/plan/pattern.h"

#include <algorithm>
#include <thread>

namespace station
{

static constexpr double POLL_TIMEOUT = 1;
static constexpr auto POLL_PAUSE = std::chrono::milliseconds(100);

static bool answers_port_check(Client &client, double timeout)
{
    client.settings().timeout = std::max(timeout, 0.001);
    client.settings().retries = 0;
    return client.ask(port_check()).outcome == Outcome::answer;
}

// Polls until the phone is as it should be; false when the time is up.
static bool poll_phone(Client &client, const std::function<bool(Client &, double)> &is_so, Deadline deadline,
                       const Interrupts &interrupts)
{
    for (const int before = interrupts;;) {
        const double left = std::chrono::duration<double>(deadline - Clock::now()).count();
        if (left <= 0 || interrupts != before)
            return false;
        if (is_so(client, std::min(left, POLL_TIMEOUT)))
            return true;
        std::this_thread::sleep_for(POLL_PAUSE);
    }
}

static Deadline after(double seconds)
{
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

static void give_up(Row &row)
{
    row.as_expected = false;
    row.interrupted = true;
    row.answer = row.cause = "interrupted";
}

// `restarted` is the connection on which the phone was told to restart, if it was.
static void wait_for_phone(Client &client, std::optional<int> restarted, const Interrupts &interrupts,
                           Row &row)
{
    const Deadline deadline = after(row.step->seconds);
    const int before = interrupts;
    // A phone that restarts fast may never be seen silent, but it loses its connection.
    const auto went_down = [&](Client &, double timeout) {
        return !answers_port_check(client, timeout) || client.connections() != restarted;
    };
    const bool is_down = !restarted || poll_phone(client, went_down, deadline, interrupts);
    row.as_expected = false;
    if (is_down && poll_phone(client, answers_port_check, deadline, interrupts)) {
        row.answer = "the port answers";
        row.as_expected = true;
    } else if (interrupts != before) {
        give_up(row);
    } else {
        row.answer = row.cause = is_down ? "the port does not answer" : "the phone has not gone down";
        row.port_died = is_down;
    }
}

static void sleep_for(double seconds, const Interrupts &interrupts, Row &row)
{
    const Deadline deadline = after(seconds);
    for (const int before = interrupts; Clock::now() < deadline;) {
        if (interrupts != before)
            return give_up(row);
        std::this_thread::sleep_for(std::min<Clock::duration>(deadline - Clock::now(), POLL_PAUSE));
    }
}

// The answer's number: its text's, or its meaning's in the unit of the limits (8 GiB), where its bytes are
// none. Nothing, and why, when there is none.
static std::optional<Decimal> number_of(const Step &step, const Result &result, std::string &why)
{
    why = "the answer is no number";
    const std::string &meaning = result.meaning.text;
    if (!meaning.empty()) {
        const size_t blank = std::min(meaning.find(' '), meaning.size());
        std::optional<Decimal> number = Decimal::parse(meaning.substr(0, blank));
        const std::string unit = meaning.substr(std::min(blank + 1, meaning.size()));
        if (unit.empty() || unit == step.unit)
            return number;
        if (number)
            why = "the answer is in " + unit +
                  (step.unit.empty() ? ", the limit has no unit" : ", the limit in " + step.unit);
        return std::nullopt;
    }
    std::string text = to_text(result.data);
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    text.erase(0, text.find_first_not_of(" \t"));
    return Decimal::parse(text);
}

// The station's own word on why a step is not as expected; empty when it is.
static std::string fault_of(Row &row)
{
    const Step &step = *row.step;
    const Result &result = row.result;
    if (step.must_fail && result.verdict == SUCCESS)
        return "a failure was wanted";
    const bool may_fail = step.may_fail || step.compares || (step.only_names && result.verdict == FAILURE);
    if (step.must_fail ? result.verdict != FAILURE : result.verdict != SUCCESS && !may_fail)
        return *result.word ? result.word : result.verdict == FAILURE ? "the phone says no" : row.answer;
    if (step.has_limits) {
        std::string why = "no answer to be judged";
        if (result.verdict == SUCCESS)
            row.measured = number_of(step, result, why);
        if (!row.measured)
            return why;
        if (step.low && *row.measured < *step.low)
            return "below " + step.low->text() + (step.unit.empty() ? "" : " " + step.unit);
        if (step.high && *step.high < *row.measured)
            return "above " + step.high->text() + (step.unit.empty() ? "" : " " + step.unit);
    }
    if (!step.compares)
        return "";
    const std::string text = to_text(result.data);
    for (const std::string &form : {row.answer, text, without_last_line_feed(text)})
        if (step.is_pattern ? matches(step.expected, form) : form == step.expected)
            return "";
    if (result.verdict == NO_ANSWER || result.verdict == REFUSED)
        return row.answer;
    return *result.word && result.verdict == FAILURE ? result.word : "another answer was wanted";
}

static std::string seconds_text(double seconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3g s", seconds);
    return text;
}

// Empty when the answer is none.
static std::string name_in(const Row &row)
{
    const std::string text = to_text(row.result.data);
    const bool is_blank = text.find_first_not_of(" \t\r\n") == std::string::npos;
    return row.as_expected && row.result.verdict == SUCCESS && !is_blank ? row.answer : "";
}

void Run::ask_people(Row &row, const std::function<void(const Prompt &)> &question_open)
{
    const Step &step = *row.step;
    Prompt prompt;
    prompt.kind = step.kind == Step::Kind::tell  ? Prompt::Kind::tell
                  : step.kind == Step::Kind::ask ? Prompt::Kind::ask
                                                 : Prompt::Kind::input;
    prompt.text = step.text;
    prompt.pattern = step.expected;
    question_open(prompt);
    const Deadline deadline = step.within ? after(*step.within) : Deadline::max();
    const int before = interrupts_;
    const std::optional<std::string> answer = people_.answer(prompt, deadline, row.cause);
    row.answer = answer ? *answer : is_nobody(row.cause) ? NOBODY_TO_ASK : row.cause;
    row.as_expected = false;
    row.interrupted = !answer && interrupts_ != before;
    if (!answer)
        return;
    const bool is_no = prompt.kind != Prompt::Kind::input && yes_or_no(*answer) == false;
    if (!fits(prompt, *answer))
        row.cause = prompt.kind == Prompt::Kind::ask ? "neither yes nor no" : "not like " + step.expected;
    else if (is_no)
        row.cause = prompt.kind == Prompt::Kind::ask ? "answered with no" : "not done";
    else
        row.as_expected = true;
    if (row.as_expected && prompt.kind == Prompt::Kind::input)
        inputs_[step.input] = *answer;
    if (prompt.kind == Prompt::Kind::tell)
        row.answer = is_no ? "not done" : "done";
}

Row Run::take(const Step &step, const std::function<void(const Prompt &)> &question_open)
{
    Row row;
    row.step = &step_;
    step_ = step;
    const auto begin = Clock::now();
    client_.settings().timeout = step.patience();
    client_.settings().retries = step.retries;
    const auto passed = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
    try {
        step_ = filled(step, inputs_);
    } catch (const UsageError &error) {
        row.as_expected = step.may_fail;
        row.answer = "not sent";
        row.cause = error.what();
        return row;
    }
    switch (step.kind) {
    case Step::Kind::request:
        row.exchange = client_.ask(step_.request);
        row.result = judge(step_.request, row.exchange);
        row.answer = answer_line(row.exchange, row.result);
        row.milliseconds = row.exchange.milliseconds;
        row.cause = fault_of(row);
        if (row.cause.empty() && step.within && passed() > *step.within)
            row.cause = "took " + seconds_text(passed());
        row.as_expected = row.cause.empty();
        if (step.names_unit) {
            row.unit = name_in(row);
            if (row.as_expected && row.unit.empty())
                row.cause = "the unit has told no name: the port's stands in";
        }
        row.port_died = row.exchange.port_died && !row.as_expected;
        if (step_.request.takes_phone_down && row.result.verdict == SUCCESS)
            restarted_ = client_.connections();
        return row;
    case Step::Kind::wait:
        wait_for_phone(client_, restarted_, interrupts_, row);
        restarted_.reset();
        break;
    case Step::Kind::sleep:
        sleep_for(step.seconds, interrupts_, row);
        break;
    case Step::Kind::skip:
        row.answer = std::string(left_out(step)) + " out of reach: " + step.expected;
        break;
    default:
        ask_people(row, question_open);
        break;
    }
    row.milliseconds = passed() * 1000;
    return row;
}

} // namespace station
