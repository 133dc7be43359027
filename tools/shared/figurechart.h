// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "figure.h"

class QPainter;

// Figures drawn with Qt Charts: axes with their ticks or row labels, lines,
// markers and filled outlines, a legend entry per distinct legend text, at the
// bottom. Needs a QApplication (any platform, offscreen included).
namespace FigureChart
{

// Draws the figure into `target` of the painter's device.
void draw(QPainter &painter, const Figure &figure, const QRectF &target);

} // namespace FigureChart
