#include "station/page/statistics.h"

#include <algorithm>
#include <cmath>

namespace station::page
{

Summary summary(const std::vector<Sample> &samples, std::optional<double> low, std::optional<double> high)
{
    Summary all;
    if (samples.empty())
        return all;
    all.min = all.max = samples.front().value;
    double squares = 0; // of the distances from the mean so far: no sum of large squares loses small spreads
    for (const Sample &sample : samples) {
        const double distance = sample.value - all.mean;
        all.count++;
        all.mean += distance / static_cast<double>(all.count);
        squares += distance * (sample.value - all.mean);
        all.min = std::min(all.min, sample.value);
        all.max = std::max(all.max, sample.value);
    }
    if (all.count < 2)
        return all;
    all.sigma = std::sqrt(squares / static_cast<double>(all.count - 1));
    if (*all.sigma > 0 && (low || high)) {
        const double infinite = std::numeric_limits<double>::infinity();
        all.cpk =
            std::min(high ? *high - all.mean : infinite, low ? all.mean - *low : infinite) / (3 * *all.sigma);
    }
    return all;
}

std::vector<Bin> histogram(const std::vector<Sample> &samples, size_t bins)
{
    if (samples.empty())
        return {};
    const auto [lowest, highest] = std::minmax_element(
        samples.begin(), samples.end(), [](const Sample &a, const Sample &b) { return a.value < b.value; });
    const double low = lowest->value, width = (highest->value - low) / static_cast<double>(bins);
    if (!(width > 0) || !std::isfinite(width))
        return {{low, highest->value, samples.size()}};
    std::vector<Bin> all(bins);
    for (size_t i = 0; i < bins; i++) {
        all[i].from = low + static_cast<double>(i) * width;
        all[i].to = i + 1 < bins ? low + static_cast<double>(i + 1) * width : highest->value;
    }
    for (const Sample &sample : samples)
        all[std::min(bins - 1, static_cast<size_t>((sample.value - low) / width))].count++;
    return all;
}

std::vector<Moment> drift(const std::vector<Sample> &samples, size_t pieces)
{
    std::vector<Moment> moments;
    if (samples.empty())
        return moments;
    const records::Time begin = samples.front().time;
    const auto length = (samples.back().time - begin) / pieces + std::chrono::milliseconds(1);
    for (size_t at = 0; at < samples.size();) {
        const auto piece = (samples[at].time - begin) / length;
        std::vector<Sample> some;
        for (; at < samples.size() && (samples[at].time - begin) / length == piece; at++)
            some.push_back(samples[at]);
        moments.push_back({begin + piece * length, summary(some, std::nullopt, std::nullopt)});
    }
    return moments;
}

} // namespace station::page
