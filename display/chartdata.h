// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QPointF>
#include <QVector>

// Point lists and axis ranges for the waveform and spectrum charts.
namespace ChartData
{

// Smallest and largest finite element of values, as {min, max}. Elements that
// are NaN or infinite are skipped. Without any finite element (an empty sound)
// there are no extremes; the result is then {-1, 1}, the full scale of the
// audio output, which is the span every sound is made for and a range that an
// axis can draw.
QVector<double> valueRange(const QVector<double> &values);

// A range an axis can draw: {low, high} when both are finite and high > low.
// A range of no width at v becomes {v - 1, v + 1}, so a silent sound or an
// all-zero spectrum still shows its line in the middle of a labelled axis
// (a chart axis of zero width draws neither labels nor line). Anything else
// (a bound that is not finite, or low above high) gives {-1, 1}.
QVector<double> drawableRange(double low, double high);

// Resizes points to count, lowered to the length of the shorter of x and y
// (and to 0 when negative), and sets point k to (x[k], y[k]).
void fillPoints(QVector<QPointF> &points, const QVector<double> &x, const QVector<double> &y,
                int count);

} // namespace ChartData
