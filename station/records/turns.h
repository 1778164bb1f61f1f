// Which of a unit's finished runs by a plan came first: asked of a million runs, a yield has no time to look
// for the earlier ones of each. So it stands beside every run, in the column `turn`: 0, it is its unit's only
// one by its plan, as most are; 1, it is the first of several; 2, there is an earlier one. A run whose unit
// did not tell its name stays 0.
#pragma once

#include <string>

namespace station::records
{

// The indexes are for these words.
inline constexpr char FINISHED[] = "verdict IN ('pass', 'fail', 'error')";
inline constexpr char PASSED_ONLY_ONCE[] = "turn = 0 AND verdict = 'pass'";
inline constexpr char NOT_ONLY_ONCE[] = "(turn > 0 OR verdict <> 'pass')";

// Gives their turn to runs that have ended, or come, since it was done last, in whatever order they did: of
// all that were not known to have an earlier one, the earliest now is the first. `units` is a condition in
// SQL. To be done in the transaction that ends the runs or brings them.
inline std::string give_turns(const std::string &units)
{
    const std::string open =
        " FROM runs WHERE turn < 2 AND unit_source = 'unit' AND " + (FINISHED + (" AND " + units));
    return "UPDATE runs SET turn = placed.place FROM (SELECT id AS placed_id, CASE WHEN row_number() OVER "
           "(PARTITION BY unit, plan ORDER BY started, id) = 1 THEN 1 ELSE 2 END AS place" +
           open + " AND (unit, plan) IN (SELECT unit, plan" + open +
           " GROUP BY unit, plan HAVING count(*) > 1)) AS placed WHERE id = placed_id";
}

} // namespace station::records
