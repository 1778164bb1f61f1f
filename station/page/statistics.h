// What many measured values tell together.
#pragma once

#include "station/records/run.h"

#include <optional>
#include <vector>

namespace station::page
{

struct Sample {
    records::Time time;
    double value = 0;
};

struct Summary {
    size_t count = 0;
    double mean = 0, min = 0, max = 0; // of one value at least
    std::optional<double> sigma;       // of the whole they were taken from; of two at least
    // How many times three sigma fit between the mean and the nearer limit. Not without a limit or a spread.
    std::optional<double> cpk;
};

Summary summary(const std::vector<Sample> &samples, std::optional<double> low, std::optional<double> high);

struct Bin {
    double from = 0, to = 0;
    size_t count = 0;
};

// Of equal width, over all values; the last one has its upper end too. One when all values are the same.
std::vector<Bin> histogram(const std::vector<Sample> &samples, size_t bins);

struct Moment {
    records::Time from;
    Summary summary;
};

// Pieces of equal length between the first and the last sample, those without any left out. The samples are
// in the order of time.
std::vector<Moment> drift(const std::vector<Sample> &samples, size_t pieces);

} // namespace station::page
