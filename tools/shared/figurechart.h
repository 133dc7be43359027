// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "figure.h"

#include <QRectF>

class QPainter;
namespace QtCharts
{
class QChart;
}

// Figures drawn with Qt Charts: axes with their ticks or row labels, lines,
// markers and filled outlines, a legend entry per distinct legend text, at the
// bottom, and a title of more than 60 characters on two lines. Needs a
// QApplication (any platform, offscreen included).
namespace FigureChart
{

// The figure as a chart; the caller owns it.
QtCharts::QChart *chart(const Figure &figure);

// Draws the figure into `target` of the painter's device.
void draw(QPainter &painter, const Figure &figure, const QRectF &target);

} // namespace FigureChart
