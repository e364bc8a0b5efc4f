#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

// The median and 95th percentile of a benchmark's samples (nearest rank); zeros for none.
struct Percentiles
{
    double median = 0;
    double p95 = 0;
};

inline Percentiles percentiles(std::vector<double> samples)
{
    if (samples.empty())
        return {};
    std::sort(samples.begin(), samples.end());
    const auto at = [&](double q) {
        return samples[std::size_t(q * double(samples.size() - 1) + 0.5)];
    };
    return {at(0.5), at(0.95)};
}
