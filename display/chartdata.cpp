// SPDX-License-Identifier: GPL-3.0-or-later
#include "chartdata.h"

#include <algorithm>
#include <cmath>

QVector<double> ChartData::valueRange(const QVector<double> &values)
{
    bool found = false;
    double low = 0.0;
    double high = 0.0;
    for (double v : values) {
        if (!std::isfinite(v))
            continue;
        if (!found) {
            low = high = v;
            found = true;
        } else if (v < low) {
            low = v;
        } else if (v > high) {
            high = v;
        }
    }
    if (!found)
        return {-1.0, 1.0};
    return {low, high};
}

QVector<double> ChartData::drawableRange(double low, double high)
{
    if (!std::isfinite(low) || !std::isfinite(high) || low > high)
        return {-1.0, 1.0};
    if (low == high)
        return {low - 1.0, high + 1.0};
    return {low, high};
}

void ChartData::fillPoints(QVector<QPointF> &points, const QVector<double> &x,
                           const QVector<double> &y, int count)
{
    const int n = std::max(0, std::min({count, x.size(), y.size()}));
    points.resize(n);
    QPointF *p = points.data();
    for (int k = 0; k < n; ++k)
        p[k] = QPointF(x[k], y[k]);
}
