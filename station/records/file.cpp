#include "station/records/file.h"

#include "station/records/turns.h"
#include "station/text/text.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace station::records
{

static constexpr int64_t APPLICATION = 0x64726563; // drec, in the file's header
static constexpr int64_t FULL_CHECK_BYTES = 64L << 20;

// What makes each version of the tables out of the one before. Only ever added to: files of all versions are
// out there.
static constexpr const char *MIGRATIONS[] = {
    R"(
CREATE TABLE runs (
    id TEXT NOT NULL PRIMARY KEY,
    unit TEXT NOT NULL,
    unit_source TEXT NOT NULL CHECK (unit_source IN ('unit', 'port')),
    plan TEXT NOT NULL,
    plan_digest TEXT NOT NULL,
    station TEXT NOT NULL,
    port TEXT NOT NULL,
    software TEXT NOT NULL,
    started TEXT NOT NULL,
    ended TEXT,
    verdict TEXT CHECK (verdict IN ('pass', 'fail', 'aborted', 'error')),
    failing TEXT,
    cause TEXT,
    owner INTEGER,
    forwarded INTEGER NOT NULL DEFAULT 0,
    CHECK ((ended IS NULL) = (verdict IS NULL))
) STRICT;
CREATE INDEX runs_unit ON runs (unit, started);
CREATE INDEX runs_started ON runs (started);
CREATE INDEX runs_not_passed ON runs (verdict, started) WHERE verdict <> 'pass';
CREATE INDEX runs_failing ON runs (failing, started) WHERE failing IS NOT NULL;
CREATE INDEX runs_running ON runs (owner) WHERE verdict IS NULL;
CREATE INDEX runs_to_forward ON runs (id) WHERE forwarded = 0 AND verdict IS NOT NULL;
CREATE TABLE steps (
    run TEXT NOT NULL REFERENCES runs (id) ON DELETE CASCADE,
    number INTEGER NOT NULL,
    began REAL NOT NULL,
    phase TEXT,
    name TEXT NOT NULL,
    code TEXT,
    request TEXT NOT NULL,
    request_bytes BLOB,
    answer TEXT NOT NULL,
    answer_bytes BLOB,
    measured TEXT,
    unit TEXT,
    low TEXT,
    high TEXT,
    expected TEXT,
    verdict TEXT NOT NULL CHECK (verdict IN ('pass', 'fail', 'aborted', 'error')),
    milliseconds REAL NOT NULL,
    cause TEXT,
    value REAL AS (CAST(measured AS REAL)),
    PRIMARY KEY (run, number)
) STRICT, WITHOUT ROWID;
CREATE INDEX steps_failing ON steps (name, run) WHERE verdict IN ('fail', 'error');
CREATE TABLE state (
    one INTEGER PRIMARY KEY CHECK (one = 1),
    checked TEXT,
    forwarded_to TEXT
) STRICT;
INSERT INTO state (one) VALUES (1);
)",
    R"(
CREATE INDEX runs_plan ON runs (plan, started);
CREATE INDEX runs_yield ON runs (started, id, plan, unit, unit_source, verdict, failing);
CREATE INDEX steps_measured ON steps (name, run, measured) WHERE measured IS NOT NULL;
)",
    // Of a million units nearly all pass in the only run they have. They are counted by the hour.
    R"(
ALTER TABLE runs ADD COLUMN turn INTEGER NOT NULL DEFAULT 0;
DROP INDEX runs_yield;
CREATE INDEX runs_turn ON runs (unit, plan)
    WHERE turn < 2 AND unit_source = 'unit' AND verdict IN ('pass', 'fail', 'error');
CREATE INDEX runs_once ON runs (substr(started, 1, 13), plan, started) WHERE turn = 0 AND verdict = 'pass';
CREATE INDEX runs_yield ON runs (started, id, plan, unit, unit_source, verdict, failing, turn)
    WHERE verdict IN ('pass', 'fail', 'error') AND (turn > 0 OR verdict <> 'pass');
)",
};
static constexpr int64_t VERSION = std::size(MIGRATIONS);

[[noreturn]] static void refuse_newer(const std::string &file, int64_t version)
{
    throw Error(file + " was written by a newer station (its tables are of version " +
                std::to_string(version) + ", this one knows " + std::to_string(VERSION) +
                "); it was left as it is. Use the newer station, or another file");
}

[[noreturn]] static void refuse_stranger(const std::string &file)
{
    throw Error(
        file +
        " is no records, or damaged at its very beginning; it was left as it is. Let --records name another "
        "file, or move this one away");
}

// Looks at the file's header by itself: SQLite writes to the file's neighbours as soon as it reads it.
static void check_header(const std::string &file, Access access)
{
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0) {
        if (errno != ENOENT)
            throw Error(file + " cannot be opened (" + std::strerror(errno) + ")");
        if (access == Access::read)
            throw Error("there are no records in " + file + "; --records names others");
        return;
    }
    if (!S_ISREG(status.st_mode))
        throw Error(file + " is no file; let --records name one");
    std::array<unsigned char, 100> header{};
    std::ifstream bytes(file, std::ios::binary);
    if (!bytes)
        throw Error(file + " cannot be read (" + std::strerror(errno) + ")");
    if (status.st_size == 0)
        return;
    bytes.read(reinterpret_cast<char *>(header.data()), header.size());
    const auto number = [&](size_t at) {
        return static_cast<int64_t>(header[at]) << 24 | header[at + 1] << 16 | header[at + 2] << 8 |
               header[at + 3];
    };
    const int64_t version = number(60), application = number(68);
    if (!bytes || std::memcmp(header.data(), "SQLite format 3", 16) != 0)
        refuse_stranger(file);
    if (application == APPLICATION && version > VERSION)
        refuse_newer(file, version);
    // A file that was begun and not made yet has neither.
    if (application != APPLICATION && (application != 0 || version != 0))
        refuse_stranger(file);
}

static int64_t version_of(Database &database)
{
    // In this order: another process may just be making the tables.
    const bool has_tables = database.number("SELECT count(*) FROM sqlite_schema") > 0;
    const int64_t application = database.number("PRAGMA application_id");
    const int64_t version = database.number("PRAGMA user_version");
    if (has_tables && application != APPLICATION)
        refuse_stranger(database.file());
    if (version > VERSION)
        refuse_newer(database.file(), version);
    return version;
}

static void migrate(Database &database)
{
    if (version_of(database) == VERSION)
        return;
    Transaction transaction(database);
    // Another process may have done it meanwhile.
    for (int64_t version = version_of(database); version < VERSION; version++)
        database.execute(MIGRATIONS[version]);
    database.execute(give_turns("TRUE").c_str());
    database.execute(("PRAGMA application_id = " + std::to_string(APPLICATION)).c_str());
    database.execute(("PRAGMA user_version = " + std::to_string(VERSION)).c_str());
    transaction.commit();
}

// Needs the file for itself for a moment, and does not wait for it.
static void use_wal(Database &database)
{
    for (int tries = 0; database.text("PRAGMA journal_mode") != "wal"; tries++) {
        const int code = sqlite3_exec(database.get(), "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr);
        if (code != SQLITE_OK && (code & 0xFF) != SQLITE_BUSY)
            database.fail(code);
        if (tries == 1000)
            throw Error(
                database.file() +
                ": no write-ahead log can be kept beside it; the file has to be on a disk of this machine");
        if (tries > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

static Database open_to_read(const std::string &file)
{
    try {
        Database database(file, SQLITE_OPEN_READWRITE);
        database.fold_on_close(false);
        version_of(database);
        return database;
    } catch (const Error &) {
        // A folder that cannot be written has no place for the log's index, but then nobody writes to the
        // file either.
        struct stat status = {};
        if (access(file.c_str(), W_OK) == 0 ||
            (stat((file + "-wal").c_str(), &status) == 0 && status.st_size > 0))
            throw;
    }
    std::string address = "file:";
    for (char character : file)
        address += "%" + to_hex({&character, 1});
    return {address + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI};
}

Database open_file(const std::string &file, Access access)
{
    check_header(file, access);
    Database database = access == Access::write ? Database(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)
                                                : open_to_read(file);
    const bool is_writable = sqlite3_db_readonly(database.get(), "main") == 0;
    if (access == Access::write && !is_writable)
        database.fail(SQLITE_READONLY);
    if (is_writable) {
        database.fold_on_close(false);
        migrate(database);
        use_wal(database);
        database.fold_on_close(true);
    } else if (version_of(database) != VERSION)
        throw Error(file + " is of an older station, and cannot be written to be made new");
    // In WAL a commit is in order without a sync; the end of a run asks for one.
    database.execute("PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON; PRAGMA trusted_schema = OFF;"
                     "PRAGMA journal_size_limit = 67108864");
    // A damaged page shows when it is read. One does not want to learn of it in the middle of a shift; but
    // looking at all of a year's file takes minutes.
    if (access == Access::write &&
        database.number("PRAGMA page_count") * database.number("PRAGMA page_size") <= FULL_CHECK_BYTES &&
        database.text("PRAGMA quick_check(1)") != "ok")
        database.fail(SQLITE_CORRUPT);
    return database;
}

} // namespace station::records
