// Where records are: a file, and maybe a database that its finished runs are forwarded to.
#pragma once

#include <string>

namespace station::records
{

struct Where {
    std::string file;         // SQLite: the records, or the spool in front of the database
    std::string database;     // postgresql://..., or empty
    bool is_database = false; // the database itself was named
};

// Of --records: a file, or postgresql://...; empty for $STATION_RECORDS, or else records.db. In front of a
// database lies records.db as its spool. The address of a file's database is the first line of FILE.address,
// where there is one. Throws Error when both name databases and not the same.
Where where_of(const std::string &text);

// An address without its password.
std::string shown(const std::string &address);

} // namespace station::records
