#include "statistics.h"

#include <algorithm>
#include <cmath>

namespace bench {

double quantile(std::vector<double> values, double part)
{
    if (values.empty()) return 0;
    const auto count = static_cast<double>(values.size());
    const auto rank = static_cast<std::ptrdiff_t>(std::clamp(std::ceil(part * count), 1.0, count));
    std::nth_element(values.begin(), values.begin() + rank - 1, values.end());
    return values[static_cast<size_t>(rank) - 1];
}

spread spread_of(std::vector<double> values)
{
    if (values.empty()) return {};
    std::sort(values.begin(), values.end());
    const size_t upper = values.size() / 2;
    const size_t lower = (values.size() - 1) / 2;
    return {(values[lower] + values[upper]) / 2, values.front(), values.back()};
}

std::vector<double> comparison::ratios() const
{
    std::vector<double> all;
    for (size_t i = 0; i < subject_values.size() && i < base_values.size(); ++i)
        all.push_back(subject_values[i] / base_values[i]);
    return all;
}

double slope(const std::vector<std::pair<double, double>>& points)
{
    const auto count = static_cast<double>(points.size());
    double x_mean = 0;
    double y_mean = 0;
    for (const auto& [x, y] : points) {
        x_mean += x / count;
        y_mean += y / count;
    }
    double above = 0;
    double below = 0;
    for (const auto& [x, y] : points) {
        above += (x - x_mean) * (y - y_mean);
        below += (x - x_mean) * (x - x_mean);
    }
    return below > 0 ? above / below : 0;
}

} // namespace bench
