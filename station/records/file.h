// The opening of a file of records, whatever version of the tables it has.
#pragma once

#include "station/records/sqlite.h"

#include <string>

namespace station::records
{

enum class Access { read, write };

// Opens a file of records. `write` makes a file that is not there; `read` asks no more of the file than that
// it can be read, but makes tables of an older version new where it can. Throws Error, and leaves the file as
// it is, when it is damaged, newer, another program's, or cannot be written though it has to be.
Database open_file(const std::string &file, Access access);

} // namespace station::records
