// SPDX-License-Identifier: GPL-3.0-or-later
#include "statistics.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

double Statistics::mean(const QVector<double> &values)
{
    if (values.isEmpty())
        return std::numeric_limits<double>::quiet_NaN();
    return std::accumulate(values.cbegin(), values.cend(), 0.0) / values.size();
}

double Statistics::standardDeviation(const QVector<double> &values)
{
    if (values.size() < 2)
        return 0.0;
    const double m = mean(values);
    double sum = 0.0;
    for (double v : values)
        sum += (v - m) * (v - m);
    return std::sqrt(sum / (values.size() - 1));
}

double Statistics::percentile(QVector<double> values, double p)
{
    if (values.isEmpty())
        return std::numeric_limits<double>::quiet_NaN();
    std::sort(values.begin(), values.end());
    const double rank = std::clamp(p, 0.0, 100.0) / 100.0 * (values.size() - 1);
    const int below = static_cast<int>(std::floor(rank));
    const int above = std::min(below + 1, static_cast<int>(values.size()) - 1);
    const double fraction = rank - below;
    return values[below] + fraction * (values[above] - values[below]);
}
