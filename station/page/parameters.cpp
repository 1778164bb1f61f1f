#include "station/page/parameters.h"

#include "station/records/text.h"

#include <algorithm>
#include <charconv>

namespace station::page
{

static constexpr size_t LONGEST = 1000;

Parameters::Parameters(const Request &request, std::initializer_list<const char *> known)
    : given_(request.query)
{
    for (const auto &[name, value] : given_) {
        const bool is_known =
            std::any_of(known.begin(), known.end(), [&name = name](const char *one) { return name == one; });
        if (!is_known)
            throw Unfit("there is no parameter '" + records::clean(name.substr(0, LONGEST)) + "' here");
        if (given_.count(name) > 1)
            throw Unfit(name + " is given twice");
        if (value.size() > LONGEST || value.find('\0') != std::string::npos || records::clean(value) != value)
            throw Unfit(name + " is no text of 1000 bytes at most");
    }
}

std::string Parameters::text(const std::string &name) const
{
    const auto found = given_.find(name);
    return found == given_.end() ? "" : found->second;
}

std::string Parameters::word(const std::string &name, std::initializer_list<const char *> allowed) const
{
    std::string given = text(name), all;
    if (given.empty())
        return given;
    for (const char *const one : allowed) {
        if (given == one)
            return given;
        all += (all.empty() ? "" : ", ") + std::string(one);
    }
    throw Unfit(name + " is one of " + all);
}

size_t Parameters::number(const std::string &name, size_t otherwise, size_t least, size_t most) const
{
    const std::string given = text(name);
    size_t value = otherwise;
    if (given.empty())
        return value;
    const char *const end = given.data() + given.size();
    const auto [behind, error] = std::from_chars(given.data(), end, value);
    if (error != std::errc() || behind != end || value < least || value > most)
        throw Unfit(name + " is a number from " + std::to_string(least) + " to " + std::to_string(most));
    return value;
}

records::Filter Parameters::filter() const
{
    const auto time = [&](const char *name) {
        const std::string given = text(name);
        const std::optional<records::Time> parsed =
            given.empty() ? std::nullopt : records::parse_time(given, records::now());
        if (!given.empty() && !parsed)
            throw Unfit(std::string(name) + " is a time such as 2026-11-21, 2026-11-21T21:54 or 24h");
        return parsed;
    };
    records::Filter filter;
    filter.unit = text("unit");
    filter.plan = text("plan");
    filter.verdict = word("verdict", {"pass", "fail", "aborted", "error", "running"});
    filter.failing = text("failing");
    filter.since = time("since");
    filter.until = time("until");
    return filter;
}

} // namespace station::page
