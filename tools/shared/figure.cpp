// SPDX-License-Identifier: GPL-3.0-or-later
#include "figure.h"

#include <algorithm>
#include <cmath>

int Figure::Axis::decimals() const
{
    return std::max(0, -static_cast<int>(std::floor(std::log10(step) + 1e-9)));
}

double Figures::tickStep(double span, int ticks, bool whole)
{
    const double raw = span / ticks;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    double step = 10.0 * power;
    for (double m : {1.0, 2.0, 5.0})
        if (m * power >= raw) {
            step = m * power;
            break;
        }
    return whole ? std::max(1.0, std::round(step)) : step;
}

Figure::Axis Figures::roundAxis(const QString &title, double low, double high, double step)
{
    Figure::Axis axis;
    axis.title = title;
    axis.min = std::floor(low / step + 1e-9) * step;
    axis.max = std::ceil(high / step - 1e-9) * step;
    axis.step = step;
    return axis;
}

void Figures::fitAxes(Figure &figure, bool wholeX)
{
    double xMin = INFINITY, xMax = -INFINITY, yMin = INFINITY, yMax = -INFINITY;
    for (const Figure::Series &s : figure.series)
        for (const QPointF &p : s.points) {
            xMin = std::min(xMin, p.x());
            xMax = std::max(xMax, p.x());
            yMin = std::min(yMin, p.y());
            yMax = std::max(yMax, p.y());
        }
    if (!(xMin <= xMax)) {
        xMin = yMin = 0.5;
        xMax = yMax = 0.5;
    }
    const double yLow = yMin - 0.05 * (yMax - yMin) - 0.5;
    const double yHigh = yMax + 0.05 * (yMax - yMin) + 0.5;
    figure.x =
        roundAxis(figure.x.title, xMin - 0.5, xMax + 0.5, tickStep(xMax - xMin + 1.0, 6, wholeX));
    figure.y = roundAxis(figure.y.title, yLow, yHigh, tickStep(yHigh - yLow, 6, false));
}
