// A few threads that answer requests; nobody waits for them, and no connection is theirs.
#pragma once

#include "station/page/api.h"
#include "station/page/http.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace station::page
{

class Workers
{
  public:
    // Every thread has an api of its own, and asks the records for no longer than `longest` at once. `done`
    // is called by them.
    Workers(size_t count, std::chrono::milliseconds longest,
            const std::function<std::unique_ptr<Api>()> &make,
            std::function<Reply(Api &, const Request &)> answer,
            std::function<void(uint64_t connection, Served served)> done);
    ~Workers(); // interrupts what is asked of the records
    Workers(const Workers &) = delete;
    Workers &operator=(const Workers &) = delete;

    // False when too many wait already.
    bool give(uint64_t connection, std::string request, size_t head);

    // Interrupts what has taken too long. To be called now and then.
    void look();

  private:
    using Clock = std::chrono::steady_clock;
    struct Job {
        uint64_t connection = 0;
        std::string request;
        size_t head = 0;
    };
    struct Worker {
        std::unique_ptr<Api> api;
        Clock::time_point since{}; // it works, or zero
        std::thread thread;
    };

    void work(Worker &worker);

    const std::chrono::milliseconds longest_;
    std::function<Reply(Api &, const Request &)> answer_;
    std::function<void(uint64_t, Served)> done_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;
    bool ends_ = false;
    size_t working_ = 0;
    std::vector<std::unique_ptr<Worker>> workers_;
};

} // namespace station::page
