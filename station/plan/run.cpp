#include "station/plan/run.h"

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

// A phone that restarts fast may never be seen silent, but it loses its connection.
static bool went_down(Client &client, double timeout)
{
    const int connections = client.connections();
    return !answers_port_check(client, timeout) || client.connections() != connections;
}

// Polls until the phone is as it should be; false when the time is up.
static bool poll_phone(Client &client, bool (*is_so)(Client &, double), Deadline deadline)
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

static void wait_for_phone(Client &client, bool goes_down, Row &row)
{
    const Deadline deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                 std::chrono::duration<double>(row.step->seconds));
    row.as_expected = false;
    if (goes_down && !poll_phone(client, went_down, deadline))
        row.answer = "the phone has not gone down";
    else if (!poll_phone(client, answers_port_check, deadline)) {
        row.answer = "the port does not answer";
        row.port_died = true;
    } else {
        row.answer = "the port answers";
        row.as_expected = true;
    }
}

static bool meets(const Step &step, const Row &row)
{
    const Result &result = row.result;
    if (step.must_fail && result.verdict != FAILURE)
        return false;
    if (!step.compares)
        return step.must_fail || step.may_fail || result.verdict == SUCCESS;
    const std::string text = to_text(result.data);
    for (const std::string &form : {row.answer, text, without_last_line_feed(text)})
        if (step.is_pattern ? matches(step, form) : form == step.expected)
            return true;
    return false;
}

Row Run::take(const Step &step)
{
    Row row;
    row.step = &step;
    const auto begin = Clock::now();
    client_.settings().timeout = step.timeout;
    client_.settings().retries = step.retries;
    switch (step.kind) {
    case Step::Kind::request:
        row.exchange = client_.ask(step.request);
        row.result = judge(step.request, row.exchange);
        row.answer = answer_line(row.exchange, row.result);
        row.milliseconds = row.exchange.milliseconds;
        row.as_expected = meets(step, row);
        row.port_died = row.exchange.port_died && !row.as_expected;
        goes_down_ = step.request.takes_phone_down && row.result.verdict == SUCCESS;
        return row;
    case Step::Kind::wait:
        wait_for_phone(client_, goes_down_, row);
        goes_down_ = false;
        break;
    case Step::Kind::sleep:
        std::this_thread::sleep_for(std::chrono::duration<double>(step.seconds));
        break;
    case Step::Kind::skip:
        row.answer = std::string(left_out(step)) + " out of reach: " + step.expected;
        break;
    }
    row.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    return row;
}

} // namespace station
