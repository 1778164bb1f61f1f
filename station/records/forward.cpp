#include "station/records/forward.h"

#include "station/records/file.h"
#include "station/records/postgres.h"
#include "station/records/source.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

namespace station::records
{

using Clock = std::chrono::steady_clock;

// In one transaction; a few big answers fill it too.
static constexpr size_t RUNS_AT_ONCE = 200;
static constexpr size_t BYTES_AT_ONCE = 8U << 20;
static constexpr auto FIRST_PAUSE = std::chrono::seconds(1);
static constexpr auto LONGEST_PAUSE = std::chrono::seconds(30);
static constexpr auto LAST_TRIES = std::chrono::seconds(5);

namespace
{

// The spool's side: which runs wait.
class Spool
{
  public:
    explicit Spool(const Where &where)
        : database_(open_file(where.file, Access::write)), source_(Source::open({where.file, "", false})),
          waiting_(database_,
                   "SELECT id FROM runs WHERE forwarded = 0 AND verdict IS NOT NULL ORDER BY id LIMIT ?"),
          mark_(database_, "UPDATE runs SET forwarded = ? WHERE id = ?")
    {
    }

    // What was forwarded went to this database. To another everything is new.
    void forward_to(const std::string &database, bool again)
    {
        if (!again && database_.text("SELECT forwarded_to FROM state") == database)
            return;
        Transaction transaction(database_);
        database_.execute("UPDATE runs SET forwarded = 0 WHERE forwarded <> 0");
        Statement(database_, "UPDATE state SET forwarded_to = ?").bind(database).execute();
        transaction.commit();
    }

    std::vector<WholeRun> next()
    {
        std::vector<std::string> ids;
        waiting_.bind(static_cast<int64_t>(RUNS_AT_ONCE));
        while (waiting_.step())
            ids.push_back(waiting_.text(0));
        std::vector<WholeRun> runs;
        size_t bytes = 0;
        for (const std::string &id : ids) {
            runs.emplace_back(source_->find(id), source_->steps(id));
            for (const Step &step : runs.back().second)
                for (const std::string *text : {&step.request, &step.answer, &step.expected, &step.cause})
                    bytes += text->size();
            if (bytes > BYTES_AT_ONCE)
                break;
        }
        return runs;
    }

    // What came of them: forwarded, or not taken, which the next push of all tries again.
    void mark(const std::vector<WholeRun> &runs, bool is_taken)
    {
        Transaction transaction(database_);
        for (const WholeRun &run : runs)
            mark_.bind(int64_t{is_taken ? 1 : 2}).bind(run.first.id).execute();
        transaction.commit();
    }

    size_t waiting()
    {
        return static_cast<size_t>(
            database_.number("SELECT count(*) FROM runs WHERE forwarded = 0 AND verdict IS NOT NULL"));
    }

  private:
    Database database_;
    std::unique_ptr<Source> source_;
    Statement waiting_, mark_;
};

} // namespace

// A run is marked when the database has it for sure; one that is forwarded twice changes nothing there.
// Returns whether any waited.
static bool forward_some(Spool &spool, Postgres &database, Pushed &pushed)
{
    const std::vector<WholeRun> runs = spool.next();
    if (runs.empty())
        return false;
    const auto put = [&](const std::vector<WholeRun> &some) {
        database.put(some);
        spool.mark(some, true);
        pushed.runs += some.size();
    };
    try {
        put(runs);
    } catch (const NotTaken &) { // one that the database does not take must not keep back the others
        for (const WholeRun &run : runs)
            try {
                put({run});
            } catch (const NotTaken &error) {
                spool.mark({run}, false);
                pushed.not_taken++;
                pushed.why = "run " + run.first.id + " was not taken: " + error.what();
            }
    }
    return true;
}

struct Forwarder::Inside {
    Where where;
    mutable std::mutex mutex;
    std::condition_variable changed;
    bool is_awake = false;
    bool is_ending = false;
    std::promise<void> done;
    std::string problem;
    size_t waiting = 0;
    Clock::time_point end = Clock::time_point::max();
    // Returns when all is forwarded, with what was not taken, or throws.
    std::string forward_all(std::unique_ptr<Spool> &spool, std::unique_ptr<Postgres> &database)
    {
        if (!spool)
            spool = std::make_unique<Spool>(where);
        note_waiting(spool->waiting());
        if (!database) {
            database = std::make_unique<Postgres>(where.database);
            spool->forward_to(database->prepare(), false);
        }
        Pushed pushed;
        do
            note_waiting(spool->waiting());
        while (Clock::now() < end_time() && forward_some(*spool, *database, pushed));
        return pushed.why;
    }

    void serve()
    {
        std::unique_ptr<Spool> spool;
        std::unique_ptr<Postgres> database;
        Clock::duration pause = FIRST_PAUSE;
        std::unique_lock<std::mutex> lock(mutex);
        do {
            is_awake = false;
            lock.unlock();
            std::string what;
            try {
                what = forward_all(spool, database);
            } catch (const std::exception &error) {
                what = error.what();
                database.reset();
            }
            lock.lock();
            problem = what;
            if (!database) { // it has failed
                changed.wait_for(lock, pause, [&] { return is_ending; });
                pause = std::min<Clock::duration>(2 * pause, LONGEST_PAUSE);
            } else {
                pause = FIRST_PAUSE;
                changed.wait(lock, [&] { return is_ending || is_awake; });
            }
        } while (!is_ending || (is_awake && database && Clock::now() < end));
        done.set_value();
    }

    void note_waiting(size_t count)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        waiting = count;
    }
    Clock::time_point end_time() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return end;
    }
};

Forwarder::Forwarder(const Where &where) : inside_(std::make_shared<Inside>())
{
    inside_->where = where;
    thread_ = std::thread([inside = inside_] { inside->serve(); });
}

Forwarder::~Forwarder()
{
    {
        const std::lock_guard<std::mutex> lock(inside_->mutex);
        inside_->is_ending = true;
        inside_->end = Clock::now() + LAST_TRIES;
    }
    inside_->changed.notify_all();
    // A database that has stopped in the middle of an answer is waited for no longer: the process is about to
    // end.
    if (inside_->done.get_future().wait_for(2 * LAST_TRIES) == std::future_status::ready)
        thread_.join();
    else
        thread_.detach();
}

void Forwarder::wake()
{
    {
        const std::lock_guard<std::mutex> lock(inside_->mutex);
        inside_->is_awake = true;
        inside_->waiting++;
    }
    inside_->changed.notify_all();
}

Forwarding Forwarder::state() const
{
    const std::lock_guard<std::mutex> lock(inside_->mutex);
    return {inside_->waiting, inside_->problem};
}

Pushed push(const Where &where, bool again)
{
    if (where.database.empty())
        throw Error(where.file +
                    " has no database to forward to: --records postgresql://... names one, or a file " +
                    where.file + ".address whose first line does");
    Spool spool(where);
    Postgres database(where.database);
    spool.forward_to(database.prepare(), again);
    Pushed pushed;
    while (forward_some(spool, database, pushed))
        continue;
    return pushed;
}

} // namespace station::records
