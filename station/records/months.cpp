#include "station/records/months.h"

#include "station/records/text.h"

#include <algorithm>
#include <ctime>

namespace station::records
{

Month month_of(const std::string &id)
{
    const Time started = time_in(id);
    std::string name = time_text(started).substr(0, std::string_view("2026-11").size());
    const Time from = time_of(name + "-01");
    const std::time_t seconds = std::chrono::system_clock::to_time_t(from);
    std::tm next{};
    gmtime_r(&seconds, &next);
    next.tm_mon++;
    std::replace(name.begin(), name.end(), '-', '_');
    return {name, id_at(from), id_at(Time(std::chrono::seconds(timegm(&next))))};
}

} // namespace station::records
