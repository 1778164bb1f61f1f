// SQLite with every result looked at: what fails throws Error, what is left open closes itself.
#pragma once

#include "station/records/columns.h"

#include <cstdint>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <string_view>

namespace station::records
{

class Database
{
  public:
    // `flags` as sqlite3_open_v2 takes them. A connection is for one thread at a time.
    Database(const std::string &file, int flags);

    sqlite3 *get() const { return handle_.get(); }
    const std::string &file() const { return file_; }
    void execute(const char *sql);
    int64_t number(const char *sql); // the first column of the only row
    std::string text(const char *sql);
    // Whether what was written is folded into the file when the last connection closes.
    void fold_on_close(bool wanted);

    [[noreturn]] void fail(int code) const;

  private:
    struct Close {
        void operator()(sqlite3 *handle) const { sqlite3_close_v2(handle); }
    };
    std::string file_;
    std::unique_ptr<sqlite3, Close> handle_;
};

class Statement
{
  public:
    Statement(Database &database, std::string_view sql);

    // Values go to the parameters in their order; a run of them ends with step() or execute(), which begin
    // anew.
    Statement &bind(std::string_view text);
    Statement &bind(int64_t number);
    Statement &bind(double number);
    Statement &bind_blob(std::string_view bytes);
    Statement &bind_null();
    Statement &bind_unless_empty(std::string_view text) { return text.empty() ? bind_null() : bind(text); }
    Statement &bind(const Column &column);

    bool step();    // whether there is a row
    void execute(); // to its end
    // How many rows the last execute() wrote.
    int64_t changes() const { return sqlite3_changes64(database_->get()); }

    int columns() const { return sqlite3_column_count(handle_.get()); }
    bool is_null(int column) const { return sqlite3_column_type(handle_.get(), column) == SQLITE_NULL; }
    std::string text(int column) const;
    int64_t number(int column) const { return sqlite3_column_int64(handle_.get(), column); }
    double real(int column) const { return sqlite3_column_double(handle_.get(), column); }

  private:
    void check(int code);

    struct Finalize {
        void operator()(sqlite3_stmt *handle) const { sqlite3_finalize(handle); }
    };
    Database *database_;
    std::unique_ptr<sqlite3_stmt, Finalize> handle_;
    int bound_ = 0;
};

// A transaction that writes. Rolled back unless it is committed.
class Transaction
{
  public:
    explicit Transaction(Database &database) : database_(database) { database.execute("BEGIN IMMEDIATE"); }
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;
    ~Transaction();
    void commit();

  private:
    Database &database_;
};

} // namespace station::records
