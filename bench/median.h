#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

// What is measured of a series: not its mean, which holds the turns that other programs had on the
// processor. Reorders the values, of which there is at least one.
inline double quantile(std::vector<double> &values, double part)
{
    const auto last = static_cast<double>(values.size() - 1);
    const auto wanted = values.begin() + static_cast<std::ptrdiff_t>(last * part);
    std::nth_element(values.begin(), wanted, values.end());
    return *wanted;
}

inline double median(std::vector<double> &values)
{
    return quantile(values, 0.5);
}
