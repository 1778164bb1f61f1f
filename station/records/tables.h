// The tables of a file of records, and the file's opening.
#pragma once

#include "station/records/run.h"
#include "station/records/sqlite.h"

namespace station::records
{

enum class Access { read, write };

// Opens a file of records. `write` makes a file that is not there; `read` asks no more of the file than that
// it can be read, but makes tables of an older version new where it can. Throws Error, and leaves the file as
// it is, when it is damaged, newer, another program's, or cannot be written though it has to be.
Database open_file(const std::string &file, Access access);

// Tells which processes live: each holds a lock on a byte of its own in FILE-lock, and the kernel lets go of
// it when the process ends, however that comes.
class Owner
{
  public:
    // Opens the file of locks and takes none. Throws Error.
    explicit Owner(const std::string &file);
    Owner(const Owner &) = delete;
    Owner &operator=(const Owner &) = delete;
    ~Owner();

    int64_t take(); // a number of one's own, from now on until this is destroyed
    bool lives(int64_t owner) const;

  private:
    std::string path_;
    int descriptor_ = -1;
    int64_t own_ = 0;
};

// The statements that write. None begins a transaction or ends one.
class Tables
{
  public:
    explicit Tables(Database &database);

    void insert(const Run &run, int64_t owner);
    // Each of these is for a run that is not closed yet; false when it is, or is not there.
    bool insert(const std::string &run, const Step &step);
    bool identify(const std::string &run, const std::string &unit);
    bool end(const std::string &run, Time ended, Verdict verdict, const std::string &cause);

    // Closes as aborted what processes left open that live no more. Tells how many runs.
    size_t close_dead(const Owner &owner);

  private:
    Statement insert_run_, insert_step_, identify_, end_, open_owners_, open_runs_, give_turns_;
};

} // namespace station::records
