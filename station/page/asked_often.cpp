#include "station/page/asked_often.h"

#include <algorithm>

namespace station::page
{

static constexpr size_t KEPT_MAX = 32;
static constexpr auto LONGEST = std::chrono::seconds(60);
static constexpr int TIMES = 10; // as long as it took is it good for

std::string AskedOften::answer(const std::string &question, const std::function<std::string()> &find)
{
    std::unique_lock<std::mutex> lock(mutex_);
    found_.wait(lock, [&] { return !answers_[question].is_sought; });
    if (Clock::now() < answers_[question].until)
        return answers_[question].text;
    answers_[question].is_sought = true;
    lock.unlock();
    const auto begin = Clock::now();
    std::string text;
    std::exception_ptr failure;
    try {
        text = find();
    } catch (const std::exception &) {
        failure = std::current_exception();
    }
    const auto now = Clock::now();
    lock.lock();
    for (auto each = answers_.begin(); each != answers_.end();)
        each = !each->second.is_sought && (answers_.size() > KEPT_MAX || each->second.until < now)
                   ? answers_.erase(each)
                   : std::next(each);
    if (failure)
        answers_.erase(question);
    else
        answers_[question] = {false, now + std::min<Clock::duration>(TIMES * (now - begin), LONGEST), text};
    found_.notify_all();
    if (failure)
        std::rethrow_exception(failure);
    return text;
}

} // namespace station::page
