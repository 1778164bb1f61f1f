#include "station/records/store.h"

#include "station/records/file.h"
#include "station/records/tables.h"
#include "station/records/text.h"

#include <algorithm>
#include <mutex>
#include <sys/statvfs.h>

namespace station::records
{

// The log grows to 4 MB before it is folded into the file, and the file by as much.
static constexpr uint64_t LEAST_ROOM = 8U << 20;

struct Store::Inside {
    explicit Inside(const Where &where)
        : database(open_file(where.file, Access::write)), owner(where.file), own(owner.take()),
          tables(database), check(database, "UPDATE state SET checked = ?")
    {
        Transaction transaction(database);
        tables.close_dead(owner);
        transaction.commit();
        if (!where.database.empty())
            forwarder = std::make_unique<Forwarder>(where);
    }

    // One connection for all threads: SQLite lets one write at a time anyhow, and threads wait for a mutex
    // without polling. `synced`: when it returns, this and all before it are on the disk.
    template <typename Write> void write(bool synced, Write &&statements)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (synced)
            database.execute("PRAGMA synchronous = FULL");
        try {
            Transaction transaction(database);
            statements();
            transaction.commit();
        } catch (...) {
            if (synced)
                sqlite3_exec(database.get(), "PRAGMA synchronous = NORMAL", nullptr, nullptr, nullptr);
            throw;
        }
        if (synced)
            database.execute("PRAGMA synchronous = NORMAL");
    }

    Database database;
    Owner owner;
    int64_t own;
    Tables tables;
    Statement check;
    std::mutex mutex;
    std::unique_ptr<Forwarder> forwarder;
};

Store::Store(const Where &where) : inside_(std::make_unique<Inside>(where)) {}

Store::~Store() = default;

void Store::check()
{
    struct statvfs disk = {};
    if (statvfs(inside_->database.file().c_str(), &disk) == 0 && disk.f_bavail * disk.f_frsize < LEAST_ROOM)
        throw Error(inside_->database.file() + ": the disk is full: " +
                    std::to_string((disk.f_bavail * disk.f_frsize) >> 10) + " KB are left, " +
                    std::to_string(LEAST_ROOM >> 10) + " are needed; make room where it lies and try again");
    inside_->write(true, [&] { inside_->check.bind(time_text(records::now())).execute(); });
}

Recording Store::begin(Run run)
{
    run.started = records::now();
    run.id = new_id(run.started);
    Recording recording(*this, std::move(run));
    try {
        inside_->write(false, [&] { inside_->tables.insert(recording.run_, inside_->own); });
    } catch (...) {
        recording.store_ = nullptr;
        throw;
    }
    return recording;
}

Forwarding Store::forwarding() const
{
    return inside_->forwarder ? inside_->forwarder->state() : Forwarding();
}

Recording::Recording(Store &store, Run run) : store_(&store), run_(std::move(run)) {}

Recording::Recording(Recording &&other) noexcept
    : store_(other.store_), run_(std::move(other.run_)), begin_(other.begin_), steps_(other.steps_),
      not_kept_(std::move(other.not_kept_))
{
    other.store_ = nullptr;
}

Recording::~Recording()
{
    if (!store_ || run_.verdict)
        return;
    try {
        end(Verdict::aborted, "the run was left in its middle");
    } catch (const std::exception &) { // the next start of a station closes it
        store_ = nullptr;
    }
}

Time Recording::now() const
{
    return run_.started +
           std::chrono::floor<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin_);
}

static Error closed_meanwhile(const Run &run)
{
    return Error("run " + run.id +
                 " is not open any more: it was removed, or closed by another station that could not see "
                 "this one live");
}

void Recording::identify(const std::string &unit)
{
    store_->inside_->write(false, [&] {
        if (!store_->inside_->tables.identify(run_.id, unit))
            throw closed_meanwhile(run_);
    });
    run_.unit = unit;
    run_.unit_is_port = false;
}

Step Recording::add(Step step)
{
    const double since_begin =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin_).count();
    step.number = ++steps_;
    step.began = std::max(since_begin - step.milliseconds, 0.0);
    step = as_kept(step);
    try {
        store_->inside_->write(false, [&] {
            if (!store_->inside_->tables.insert(run_.id, step))
                throw closed_meanwhile(run_);
        });
    } catch (const std::exception &error) {
        if (not_kept_.empty())
            not_kept_ =
                "step " + std::to_string(step.number) + " (" + step.name + ") was not kept: " + error.what();
        throw;
    }
    return step;
}

void Recording::end(Verdict verdict, const std::string &cause)
{
    const bool lost_its_pass = verdict == Verdict::pass && !not_kept_.empty();
    run_.ended = now();
    const Verdict kept = lost_its_pass ? Verdict::error : verdict;
    store_->inside_->write(true, [&] {
        if (!store_->inside_->tables.end(run_.id, *run_.ended, kept, not_kept_.empty() ? cause : not_kept_))
            throw closed_meanwhile(run_);
    });
    run_.verdict = kept;
    if (store_->inside_->forwarder)
        store_->inside_->forwarder->wake();
    if (lost_its_pass)
        throw Error(not_kept_);
}

} // namespace station::records
