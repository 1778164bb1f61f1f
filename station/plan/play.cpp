#include "station/plan/play.h"

#include "station/plan/cause.h"

#include <algorithm>
#include <exception>
#include <optional>

namespace station
{

static constexpr double UNIT_TIMEOUT = 5;

namespace
{

class Player
{
  public:
    Player(const Plan &plan, const Playing &playing, const std::vector<Listener *> &listeners)
        : plan_(plan), playing_(playing), listeners_(listeners),
          run_(playing.settings, playing.people, playing.interrupts), watches_(playing.watch)
    {
    }

    Ended play()
    {
        tell([&](Listener &listener) { listener.run_began(plan_); });
        for (size_t i = 0; i < plan_.steps.size(); i++) {
            const Step &step = plan_.steps[i];
            if (wrong_phone_ || dead_for_good_ || (!step.always && is_over()))
                ended_.not_played++;
            else
                play_step(i, step);
        }
        ended_.port_died = dead_;
        if (failure_)
            ended_.end = End::error;
        else if (is_interrupted()) {
            ended_.end = End::aborted;
            ended_.cause = "interrupted at the station";
        } else if (failed_)
            ended_.end = End::fail;
        tell([&](Listener &listener) { listener.run_ended(ended_); });
        if (failure_)
            std::rethrow_exception(failure_);
        return ended_;
    }

  private:
    struct Unit {
        std::string name;
        Request request; // that it has told it to
        int connection;  // on which it was last known to be there
    };

    // All listeners hear it, whatever one of them throws.
    template <typename Event> void tell(Event &&event)
    {
        for (Listener *listener : listeners_) {
            try {
                event(*listener);
            } catch (const std::exception &error) {
                if (!failure_) {
                    failure_ = std::current_exception();
                    ended_.end = End::error;
                    ended_.cause = error.what();
                }
            }
        }
    }

    bool is_interrupted() const { return playing_.interrupts != 0; }
    bool is_over() const { return dead_ || stopped_ || failure_ || is_interrupted(); }

    void play_step(size_t index, const Step &step)
    {
        tell([&](Listener &listener) { listener.step_begins(index, step); });
        const bool asked = step.kind == Step::Kind::request;
        Row row;
        row.step = &step;
        // What is meant for this unit is not sent to whoever has come in its place.
        if (!asked || !unit_ || is_still_connected() || is_there(step.patience(), step.retries, row))
            row = run_.take(step, [&](const Prompt &prompt) {
                tell([&](Listener &listener) { listener.question_open(prompt); });
            });
        if (!row.as_expected && asked && playing_.why && !row.port_died && row.result.verdict != SUCCESS &&
            row.result.verdict != REFUSED && !step.must_fail && row.exchange.attempts > 0) {
            const std::string lines = fetch_cause(run_.client(), row.step->request);
            if (!lines.empty())
                row.cause = lines;
        }
        const bool lost = asked && row.exchange.outcome == Outcome::silence;
        if (!lost && !row.port_died && !wrong_phone_)
            look_whether_same(row);
        if (!row.unit.empty()) {
            unit_ = Unit{row.unit, row.step->request, run_.client().connections()};
            tell([&](Listener &listener) { listener.unit_told(row.unit); });
        }
        watches_ = watches_ || step.names_unit;
        // What has lost its answer, may come to anything or takes the phone down has its connection lost.
        if (asked || step.kind == Step::Kind::wait)
            excused_ =
                !asked || lost || step.may_fail || row.step->request.takes_phone_down || run_.goes_down();
        failed_ = failed_ || !row.as_expected;
        stopped_ = stopped_ || (!row.as_expected && (step.stops || playing_.stop));
        if (row.port_died && !playing_.keep_going) {
            dead_for_good_ = dead_ && step.always; // the first one behind the loss may have it back
            dead_ = true;
        }
        tell([&](Listener &listener) { listener.step_finished(row); });
    }

    bool is_still_connected()
    {
        return run_.client().is_connected() && run_.client().connections() == unit_->connection;
    }

    // Whether the unit answers by its name; if not, the row tells what is there instead.
    bool is_there(double timeout, int retries, Row &row)
    {
        Client &client = run_.client();
        client.settings().timeout = timeout;
        client.settings().retries = retries;
        const Exchange exchange = client.ask(unit_->request);
        const Result result = judge(unit_->request, exchange);
        const std::string now = answer_line(exchange, result);
        if (now == unit_->name) {
            unit_->connection = client.connections();
            return true;
        }
        wrong_phone_ = result.verdict == SUCCESS;
        row.as_expected = row.step->may_fail && !wrong_phone_;
        row.port_died = exchange.port_died && !row.as_expected;
        row.cause = (wrong_phone_ ? "another unit answers: " : "the unit tells its name no more: ") + now;
        if (row.answer.empty())
            row.answer = "not sent";
        return false;
    }

    // A connection that was made anew may lead to another unit, and one that the other side has ended, to one
    // that has restarted by itself.
    void look_whether_same(Row &row)
    {
        Client &client = run_.client();
        const bool is_excused = excused_ || row.step->kind == Step::Kind::wait || row.step->may_fail;
        const bool has_ended = client.endings() != endings_;
        endings_ = client.endings();
        if (unit_ && client.connections() != unit_->connection && !is_there(UNIT_TIMEOUT, 0, row))
            return;
        if (watches_ && has_ended && !is_excused) {
            row.cause = "the phone, or its service, has restarted by itself" +
                        (row.as_expected ? "" : " / " + row.cause);
            row.as_expected = false;
        }
    }

    const Plan &plan_;
    const Playing &playing_;
    const std::vector<Listener *> &listeners_;
    Run run_;
    Ended ended_;
    std::exception_ptr failure_;
    std::optional<Unit> unit_; // once it has told
    int endings_ = 0;          // that were looked at
    bool watches_;             // it is one unit from here on
    bool excused_ = false;
    bool failed_ = false, stopped_ = false, dead_ = false, dead_for_good_ = false, wrong_phone_ = false;
};

} // namespace

Ended play(const Plan &plan, const Playing &playing, const std::vector<Listener *> &listeners)
{
    return Player(plan, playing, listeners).play();
}

} // namespace station
