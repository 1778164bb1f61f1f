#include "station/page/workers.h"

namespace station::page
{

static constexpr size_t WAITING_MAX = 64;
static constexpr auto ENDING = std::chrono::milliseconds(5);

Workers::Workers(size_t count, std::chrono::milliseconds longest,
                 const std::function<std::unique_ptr<Api>()> &make,
                 std::function<Reply(Api &, const Request &)> answer,
                 std::function<void(uint64_t, Served)> done)
    : longest_(longest), answer_(std::move(answer)), done_(std::move(done))
{
    for (size_t i = 0; i < count; i++) {
        workers_.push_back(std::make_unique<Worker>());
        workers_.back()->api = make();
    }
    for (const std::unique_ptr<Worker> &worker : workers_)
        worker->thread = std::thread([this, &one = *worker] { work(one); });
}

Workers::~Workers()
{
    std::unique_lock<std::mutex> lock(mutex_);
    ends_ = true;
    jobs_.clear();
    changed_.notify_all();
    // Again and again: one may just be about to ask.
    while (!changed_.wait_for(lock, ENDING, [this] { return working_ == 0; }))
        for (const std::unique_ptr<Worker> &worker : workers_)
            worker->api->interrupt();
    lock.unlock();
    for (const std::unique_ptr<Worker> &worker : workers_)
        worker->thread.join();
}

bool Workers::give(uint64_t connection, std::string request, size_t head)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (jobs_.size() >= WAITING_MAX)
        return false;
    jobs_.push_back({connection, std::move(request), head});
    changed_.notify_one();
    return true;
}

void Workers::look()
{
    const auto now = Clock::now();
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const std::unique_ptr<Worker> &worker : workers_)
        if (worker->since != Clock::time_point() && now - worker->since > longest_)
            worker->api->interrupt();
}

void Workers::work(Worker &worker)
{
    for (std::unique_lock<std::mutex> lock(mutex_);;) {
        changed_.wait(lock, [this] { return ends_ || !jobs_.empty(); });
        if (ends_)
            return;
        const Job job = std::move(jobs_.front());
        jobs_.pop_front();
        worker.since = Clock::now();
        working_++;
        lock.unlock();
        Served served = serve(job.request, job.head,
                              [&](const Request &request) { return answer_(*worker.api, request); });
        done_(job.connection, std::move(served));
        lock.lock();
        worker.since = {};
        working_--;
        if (ends_)
            changed_.notify_all();
    }
}

} // namespace station::page
