#include "station/line/desk.h"

namespace station
{

static constexpr auto LOOK = std::chrono::milliseconds(100); // for interrupts, which wake nobody

std::optional<std::string> Desk::ask(const std::string &slot, const Prompt &prompt, Deadline deadline,
                                     std::string &why)
{
    std::unique_lock<std::mutex> lock(mutex_);
    Waiting waiting{{slot, prompt, ++asked_}, std::nullopt};
    waiting_.push_back(&waiting);
    const int before = interrupts_;
    while (!waiting.answer && !left_ && interrupts_ == before && Clock::now() < deadline)
        answered_.wait_for(lock, LOOK);
    waiting_.remove(&waiting);
    if (!waiting.answer)
        why = left_ ? NOBODY_TO_ASK : interrupts_ != before ? "interrupted" : "nobody answered in time";
    return waiting.answer;
}

std::optional<Desk::Open> Desk::open() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const Waiting *waiting : waiting_)
        if (!waiting->answer)
            return waiting->open;
    return std::nullopt;
}

std::vector<Desk::Open> Desk::all_open() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Open> all;
    for (const Waiting *waiting : waiting_)
        if (!waiting->answer)
            all.push_back(waiting->open);
    return all;
}

Desk::Given Desk::give(uint64_t id, const std::string &answer)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (Waiting *waiting : waiting_)
        if (waiting->open.id == id && !waiting->answer) {
            if (!fits(waiting->open.prompt, answer))
                return Given::unfit;
            waiting->answer = answer;
            answered_.notify_all();
            return Given::taken;
        }
    return Given::closed;
}

void Desk::leave()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    left_ = true;
    answered_.notify_all();
}

} // namespace station
