#include "station/records/where.h"

#include "station/records/run.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace station::records
{

static constexpr char DEFAULT_FILE[] = "records.db";

static bool is_address(const std::string &text)
{
    return text.find("postgresql://") == 0 || text.find("postgres://") == 0;
}

static std::string address_beside(const std::string &file)
{
    const std::string path = file + ".address";
    std::ifstream lines(path);
    std::string line;
    if (!lines) {
        if (errno == ENOENT || errno == ENOTDIR)
            return {};
        throw Error(path + " cannot be read: " + std::strerror(errno));
    }
    std::getline(lines, line);
    while (!line.empty() && (line.back() == ' ' || line.back() == '\r'))
        line.pop_back();
    if (!is_address(line))
        throw Error(path + " has to begin with a line postgresql://...");
    return line;
}

Where where_of(const std::string &text)
{
    const char *variable = std::getenv("STATION_RECORDS");
    Where where;
    where.file = !text.empty() ? text : variable && *variable ? variable : DEFAULT_FILE;
    where.is_database = is_address(where.file);
    if (where.is_database) {
        where.database = where.file;
        where.file = DEFAULT_FILE;
    } else if (where.file.find("://") != std::string::npos)
        throw Error(where.file + ": records are kept in a file or in postgresql://...");
    const std::string beside = address_beside(where.file);
    if (where.is_database && !beside.empty() && beside != where.database)
        throw Error(where.file + " is the spool of " + shown(beside) + " (" + where.file +
                    ".address), not of " + shown(where.database));
    where.database = where.is_database ? where.database : beside;
    return where;
}

std::string shown(const std::string &address)
{
    const size_t begin = address.find("://");
    const size_t end = begin == std::string::npos ? begin : address.find_first_of("/?", begin + 3);
    std::string text = address;
    if (begin != std::string::npos) {
        const std::string_view authority = std::string_view(address).substr(begin + 3, end - begin - 3);
        const size_t at = authority.rfind('@');
        const size_t colon = authority.substr(0, at).find(':');
        if (at != std::string_view::npos && colon != std::string_view::npos)
            text.replace(begin + 3 + colon, at - colon, ":...");
    }
    const size_t word = text.find("password=");
    if (word != std::string::npos)
        text.replace(word + 9, text.find('&', word) - (word + 9), "...");
    return text;
}

} // namespace station::records
