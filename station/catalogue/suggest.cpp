#include "station/catalogue/suggest.h"

#include "station/catalogue/catalogue.h"
#include "station/text/text.h"

#include <algorithm>

namespace station
{

// How many letters have to be put in, left out, changed or swapped with their neighbour.
static size_t distance(const std::string &a, const std::string &b)
{
    std::vector<std::vector<size_t>> cost(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); i++)
        for (size_t j = 0; j <= b.size(); j++) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1,
                                   cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    return cost[a.size()][b.size()];
}

// The distance, but that letters of the other case alone are none.
static size_t farness(const std::string &a, const std::string &b)
{
    return lower_case(a) == lower_case(b) ? 0 : distance(a, b);
}

std::string suggestion(const std::string &mistyped, const std::vector<std::string> &known)
{
    constexpr size_t LONGEST = 64; // of a word that was meant to be a name
    if (known.empty() || mistyped.size() > LONGEST)
        return {};
    const auto nearest =
        std::min_element(known.begin(), known.end(), [&](const std::string &a, const std::string &b) {
            return farness(mistyped, a) < farness(mistyped, b);
        });
    if (farness(mistyped, *nearest) > 1 + nearest->size() / 4)
        return {};
    return "; did you mean " + *nearest + "?";
}

std::vector<std::string> command_names()
{
    std::vector<std::string> names;
    for (const Command &command : catalogue())
        for (const Name &name : command.names)
            names.emplace_back(name.name);
    return names;
}

} // namespace station
