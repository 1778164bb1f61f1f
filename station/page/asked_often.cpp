#include "station/page/asked_often.h"

#include <algorithm>

namespace station::page
{

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
    try {
        text = find();
    } catch (...) {
        lock.lock();
        answers_.erase(question);
        found_.notify_all();
        throw;
    }
    const auto now = Clock::now();
    lock.lock();
    // No more than a few are good at a time: it took long to find them.
    for (auto each = answers_.begin(); each != answers_.end();)
        each = !each->second.is_sought && each->second.until < now ? answers_.erase(each) : std::next(each);
    answers_[question] = {false, now + std::min<Clock::duration>(TIMES * (now - begin), LONGEST), text};
    found_.notify_all();
    return text;
}

} // namespace station::page
