#include "station/line/keeper.h"

#include "station/records/tables.h"
#include "station/records/text.h"

#include <algorithm>
#include <utility>

namespace station
{

static records::Verdict verdict_of_row(const Row &row)
{
    return row.as_expected   ? records::Verdict::pass
           : row.interrupted ? records::Verdict::aborted
                             : records::Verdict::fail;
}

records::Verdict verdict_of(End end)
{
    switch (end) {
    case End::pass:
        return records::Verdict::pass;
    case End::fail:
        return records::Verdict::fail;
    case End::aborted:
        return records::Verdict::aborted;
    default:
        return records::Verdict::error;
    }
}

// Bytes are kept where they are not the text.
static std::optional<std::string> bytes_unless(const std::string &bytes, const std::string &text)
{
    return bytes == text ? std::nullopt : std::optional(bytes);
}

records::Step step_of(const Row &row)
{
    const Step &step = *row.step;
    records::Step kept;
    kept.phase = step.phase;
    kept.name = step.name();
    const bool coded = step.kind == Step::Kind::request || step.request.command;
    kept.code = coded ? code_text(step.request.code) : "";
    kept.request = step.request.name + (step.request.words.empty() ? "" : " " + step.request.words);
    kept.answer = row.answer;
    if (row.exchange.attempts > 0)
        kept.request_bytes = to_text(step.request.packet);
    if (row.exchange.outcome == Outcome::answer && row.exchange.attempts > 0)
        kept.answer_bytes = bytes_unless(to_text(row.result.data), row.answer);
    if (row.measured)
        kept.measured = row.measured->text();
    if (step.has_limits) {
        kept.low = step.low ? step.low->text() : "";
        kept.high = step.high ? step.high->text() : "";
        kept.unit = step.unit;
    } else if (step.must_fail || step.compares || step.kind == Step::Kind::input) {
        kept.expected = step.compares || step.must_fail ? step.wanted() : step.expected;
    }
    kept.verdict = verdict_of_row(row);
    kept.milliseconds = row.milliseconds;
    kept.cause = row.cause;
    return kept;
}

Keeper::Keeper(records::Store *store, Bench bench, bool collects)
    : store_(store), bench_(std::move(bench)), collects_(collects)
{
}

Keeper::~Keeper() = default;

void Keeper::run_began(const Plan &plan)
{
    begin_ = Clock::now();
    run_.unit = bench_.port;
    run_.unit_is_port = true;
    run_.plan = plan.name;
    run_.plan_digest = plan.digest;
    run_.station = bench_.station;
    run_.port = bench_.port;
    run_.software = bench_.software;
    if (store_) {
        recording_ = std::make_unique<records::Recording>(store_->begin(run_));
        run_ = recording_->run();
    } else {
        run_.started = records::now();
        run_.id = records::new_id(run_.started);
    }
}

void Keeper::unit_told(const std::string &unit)
{
    run_.unit = unit;
    run_.unit_is_port = false;
    if (recording_)
        recording_->identify(unit);
}

void Keeper::step_finished(const Row &row)
{
    records::Step step = step_of(row);
    step.number = ++number_;
    step.began = std::max(
        std::chrono::duration<double, std::milli>(Clock::now() - begin_).count() - step.milliseconds, 0.0);
    if (step.verdict == records::Verdict::fail && run_.failing.empty())
        run_.failing = step.name;
    if (collects_)
        steps_.push_back(records::as_kept(step)); // also what cannot be kept
    if (!recording_)
        return;
    step = recording_->add(std::move(step));
    if (collects_)
        steps_.back() = std::move(step);
}

void Keeper::run_ended(const Ended &ended)
{
    run_.cause = ended.cause;
    if (recording_) {
        recording_->end(verdict_of(ended.end), ended.cause);
        run_.ended = recording_->run().ended;
        run_.verdict = recording_->run().verdict;
        return;
    }
    run_.ended = run_.started + std::chrono::floor<std::chrono::milliseconds>(Clock::now() - begin_);
    run_.verdict = verdict_of(ended.end);
}

} // namespace station
