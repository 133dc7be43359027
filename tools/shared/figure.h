// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QColor>
#include <QPair>
#include <QPointF>
#include <QString>
#include <QVector>

// A chart as data: its axes and the points of each series, with how each is
// drawn. The tools compute their figures as this, without a window, so that
// the figures can be checked and written out as a table for redrawing
// elsewhere; FigureChart draws them.
struct Figure {
    struct Axis {
        QString title;
        double min = 0.0;
        double max = 1.0;
        double step = 1.0; // between labelled ticks, which sit on multiples of it
        // Labels (rich text) at given values instead of numbered ticks (the
        // rows of a panel); when present, step is not used.
        QVector<QPair<double, QString>> labels;
        // Decimals a tick label needs: none on a step of 1 or more.
        int decimals() const;
    };
    // Filled: the area under the line down to 0.
    enum class Style { Line, DashedLine, Dots, Squares, Rings, Filled };
    struct Series {
        QString name;   // in the figures table
        QString legend; // its legend entry, shown once per text; none when empty
        Style style = Style::Line;
        QColor colour;
        double size = 1.0; // pen width, or marker diameter, in pixels
        QVector<QPointF> points;
        // Markers of their own diameter, point by point (a marker's area
        // telling how many trials it stands for); empty when all are `size`.
        QVector<double> sizes;
        bool markers() const
        {
            return style == Style::Dots || style == Style::Squares || style == Style::Rings;
        }
    };
    QString name; // the figure's short name in the figures table
    QString title;
    Axis x, y;
    QVector<Series> series;
};

namespace Figures
{

// A round tick spacing for a span (above 0): 1, 2 or 5 times a power of ten,
// about `ticks` intervals; at least 1 on an axis that counts (`whole`).
double tickStep(double span, int ticks, bool whole);

// An axis from low to high widened to whole steps.
Figure::Axis roundAxis(const QString &title, double low, double high, double step);

// Axes fitted to the points of all series, with half a unit to spare on x and
// 5 % plus half a unit on y, about six round ticks each; whole ticks on x when
// it counts (trials, runs).
void fitAxes(Figure &figure, bool wholeX);

} // namespace Figures
