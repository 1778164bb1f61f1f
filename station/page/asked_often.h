// Answers that took long to find, for the others who ask the same within a moment: fifty pages that look at a
// year's yield ask the records once.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace station::page
{

class AskedOften
{
  public:
    // What `find` finds, or has found for somebody else not longer ago than ten times as long as it took.
    std::string answer(const std::string &question, const std::function<std::string()> &find);

  private:
    using Clock = std::chrono::steady_clock;
    struct Answer {
        bool is_sought = false;
        Clock::time_point until{};
        std::string text;
    };

    std::mutex mutex_;
    std::condition_variable found_;
    std::map<std::string, Answer> answers_;
};

} // namespace station::page
