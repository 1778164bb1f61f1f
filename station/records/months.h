// The months by which the database's tables are cut.
#pragma once

#include <string>

namespace station::records
{

struct Month {
    std::string name;     // 2026_11
    std::string from, to; // the smallest id of its runs, and of those of the next
};

// Of a run by its id, which begins with the time of its start.
Month month_of(const std::string &id);

} // namespace station::records
