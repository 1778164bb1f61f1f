#include "station/records/sqlite.h"

#include <cerrno>
#include <cstring>

namespace station::records
{

static constexpr int BUSY_MILLISECONDS = 10'000;

Database::Database(const std::string &file, int flags) : file_(file)
{
    sqlite3 *handle = nullptr;
    const int code =
        sqlite3_open_v2(file.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
    handle_.reset(handle);
    if (code != SQLITE_OK)
        fail(code);
    sqlite3_busy_timeout(handle, BUSY_MILLISECONDS);
}

// What the system said. When a commit fails only the file that was written remembers it.
static int system_error(sqlite3 *database, int code)
{
    int error = sqlite3_system_errno(database);
    if (code == SQLITE_IOERR_WRITE)
        for (int which : {SQLITE_FCNTL_FILE_POINTER, SQLITE_FCNTL_JOURNAL_POINTER}) {
            sqlite3_file *file = nullptr;
            sqlite3_file_control(database, "main", which, &file);
            if (error == 0 && file->pMethods)
                file->pMethods->xFileControl(file, SQLITE_FCNTL_LAST_ERRNO, &error);
        }
    return error;
}

// The phone's own words never come here: the texts are SQLite's and the system's.
void Database::fail(int code) const
{
    const int error = system_error(handle_.get(), code);
    const std::string because = error ? std::string(" (") + std::strerror(error) + ")" : "";
    const bool is_no_room = error == ENOSPC || error == EDQUOT || error == EFBIG;
    if ((code & 0xFF) == SQLITE_FULL || ((code & 0xFF) == SQLITE_IOERR && is_no_room))
        throw Error(file_ + ": the disk is full" + because + "; make room where it lies and try again");
    switch (code & 0xFF) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        throw Error(file_ + " is damaged, or no records at all (" + sqlite3_errstr(code) +
                    "); it was left as it is. Move it away together with " + file_ +
                    "-wal and -shm; `sqlite3 FILE .recover` "
                    "gets out of it what is left, and a new file begins by itself");
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        throw Error(file_ + ": another program has held it for " + std::to_string(BUSY_MILLISECONDS / 1000) +
                    " s; `fuser " + file_ + "` tells which");
    case SQLITE_READONLY:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
        throw Error(file_ + " cannot be opened or written" + because +
                    "; the file and its folder must be there and writable, or --records name others");
    case SQLITE_IOERR:
        throw Error(file_ + ": the disk fails" + because +
                    "; check it, or let --records name a file elsewhere");
    default:
        throw Error(file_ + ": " + sqlite3_errmsg(handle_.get()));
    }
}

void Database::execute(const char *sql)
{
    const int code = sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK)
        fail(code);
}

int64_t Database::number(const char *sql)
{
    Statement statement(*this, sql);
    return statement.step() ? statement.number(0) : 0;
}

std::string Database::text(const char *sql)
{
    Statement statement(*this, sql);
    return statement.step() ? statement.text(0) : std::string();
}

void Database::fold_on_close(bool wanted)
{
    const int code =
        sqlite3_db_config(handle_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, int{!wanted}, nullptr);
    if (code != SQLITE_OK)
        fail(code);
}

Statement::Statement(Database &database, std::string_view sql) : database_(&database)
{
    sqlite3_stmt *handle = nullptr;
    check(sqlite3_prepare_v2(database.get(), sql.data(), static_cast<int>(sql.size()), &handle, nullptr));
    handle_.reset(handle);
}

void Statement::check(int code)
{
    if (code != SQLITE_OK)
        database_->fail(code);
}

Statement &Statement::bind(std::string_view text)
{
    // A null pointer would be NULL, not the empty text.
    check(sqlite3_bind_text64(handle_.get(), ++bound_, text.empty() ? "" : text.data(), text.size(),
                              SQLITE_TRANSIENT, SQLITE_UTF8));
    return *this;
}

Statement &Statement::bind(int64_t number)
{
    check(sqlite3_bind_int64(handle_.get(), ++bound_, number));
    return *this;
}

Statement &Statement::bind(double number)
{
    check(sqlite3_bind_double(handle_.get(), ++bound_, number));
    return *this;
}

Statement &Statement::bind_blob(std::string_view bytes)
{
    check(sqlite3_bind_blob64(handle_.get(), ++bound_, bytes.empty() ? "" : bytes.data(), bytes.size(),
                              SQLITE_TRANSIENT));
    return *this;
}

Statement &Statement::bind(const Column &column)
{
    if (const auto *text = std::get_if<std::string>(&column.value))
        return column.kind == Kind::bytes ? bind_blob(*text) : bind(std::string_view(*text));
    if (const auto *number = std::get_if<int64_t>(&column.value))
        return bind(*number);
    const auto *real = std::get_if<double>(&column.value);
    return real ? bind(*real) : bind_null();
}

Statement &Statement::bind_null()
{
    check(sqlite3_bind_null(handle_.get(), ++bound_));
    return *this;
}

bool Statement::step()
{
    if (sqlite3_step(handle_.get()) == SQLITE_ROW)
        return true;
    bound_ = 0;
    check(sqlite3_reset(handle_.get())); // repeats the step's error, and leaves all ready for the next try
    return false;
}

void Statement::execute()
{
    while (step()) {
    }
}

std::string Statement::text(int column) const
{
    const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(handle_.get(), column));
    const int size = sqlite3_column_bytes(handle_.get(), column);
    if (!text && sqlite3_errcode(database_->get()) == SQLITE_NOMEM)
        database_->fail(SQLITE_NOMEM);
    return text ? std::string(text, static_cast<size_t>(size)) : std::string();
}

void Transaction::commit() { database_.execute("COMMIT"); }

// Some errors have rolled back already; then there is nothing to do.
Transaction::~Transaction()
{
    if (!sqlite3_get_autocommit(database_.get()))
        sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

} // namespace station::records
