// The conditions of a filter, in SQL that file and database both take.
#pragma once

#include "station/records/source.h"
#include "station/records/text.h"

#include <string>
#include <vector>

namespace station::records
{

// $1, $2 ... are used first in their order.
class Conditions
{
  public:
    // With `by_id`, bounds on ids too, by which the tables are cut. Without `by_plan`, the index on plans is
    // not used: another one has all that is asked, and that one leads to every run by itself.
    Conditions(const Filter &filter, bool by_id, bool by_plan = true)
    {
        if (!filter.unit.empty())
            add("unit = " + value(clean(filter.unit)));
        if (!filter.plan.empty())
            add((looks_like_digest(filter.plan) ? "plan_digest = "
                 : by_plan                      ? "plan = "
                                                : "plan || '' = ") +
                value(clean(filter.plan)));
        if (filter.verdict == "running")
            add("verdict IS NULL");
        else if (!filter.verdict.empty()) {
            add("verdict = " + value(filter.verdict));
            if (filter.verdict != "pass")
                add("verdict <> 'pass'"); // the index has only these
        }
        if (!filter.failing.empty())
            add("failing = " + value(clean(filter.failing)));
        if (filter.since)
            add("started >= " + (since = value(time_text(*filter.since))));
        if (filter.until)
            add("started < " + (until = value(time_text(*filter.until))));
        if (by_id && filter.since)
            add("id >= " + value(id_at(*filter.since)));
        if (by_id && filter.until)
            add("id < " + value(id_at(*filter.until)));
    }

    void add(const std::string &condition) { text += (text.empty() ? " WHERE " : " AND ") + condition; }
    std::string value(const std::string &parameter)
    {
        parameters.push_back(parameter);
        return "$" + std::to_string(parameters.size());
    }

    std::string text;
    std::string since, until; // their parameters
    std::vector<std::string> parameters;

  private:
    // SHA-256, in hexadecimal digits. Asking for one or the other keeps the index on plans in use.
    static bool looks_like_digest(const std::string &text)
    {
        return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
    }
};

} // namespace station::records
