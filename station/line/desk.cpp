#include "station/line/desk.h"

namespace station
{

static constexpr auto LOOK = std::chrono::milliseconds(100); // for interrupts, which wake nobody

std::optional<std::string> Desk::ask(const std::string &slot, const Prompt &prompt, Deadline deadline,
                                     std::string &why)
{
    Waiting waiting{{slot, prompt}, std::nullopt};
    std::unique_lock<std::mutex> lock(mutex_);
    waiting_.push_back(&waiting);
    const int before = interrupts_;
    while (!waiting.answer && !left_ && interrupts_ == before && Clock::now() < deadline)
        answered_.wait_for(lock, LOOK);
    waiting_.remove(&waiting);
    if (!waiting.answer)
        why = left_ ? "nobody to ask" : interrupts_ != before ? "interrupted" : "nobody answered in time";
    return waiting.answer;
}

std::optional<Desk::Open> Desk::open()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const Waiting *waiting : waiting_)
        if (!waiting->answer)
            return waiting->open;
    return std::nullopt;
}

bool Desk::give(const std::string &answer)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (Waiting *waiting : waiting_)
        if (!waiting->answer) {
            if (!fits(waiting->open.prompt, answer))
                return false;
            waiting->answer = answer;
            answered_.notify_all();
            return true;
        }
    return true;
}

void Desk::leave()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    left_ = true;
    answered_.notify_all();
}

} // namespace station
