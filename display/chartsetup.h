// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QtCharts/QChartGlobal>

class QFont;
class QGridLayout;
class QString;

namespace QtCharts
{
class QChart;
class QChartView;
class QLineSeries;
class QValueAxis;
} // namespace QtCharts

// The set-up shared by the waveform and spectrum charts of the experimenter
// window.
namespace ChartSetup
{

// A value axis with the given title and the chart fonts; tick count and label
// format stay at the axis defaults.
QtCharts::QValueAxis *newAxis(const QString &title, const QFont &labelFont, const QFont &titleFont);

// A chart holding series with x at the bottom and y on the left, titled, with
// no legend, no margins, horizontal policy Minimum, vertical Preferred, and a
// minimum width of 200 pixels. The series keeps the theme's colour but is
// drawn with a one-pixel line.
QtCharts::QChart *newChart(QtCharts::QLineSeries *series, QtCharts::QValueAxis *x,
                           QtCharts::QValueAxis *y, const QString &title, const QFont &titleFont);

// Sets the axis to low … high made drawable (ChartData::drawableRange).
void setRange(QtCharts::QValueAxis *axis, double low, double high);

// An antialiased view of chart, placed in one cell of layout.
QtCharts::QChartView *newView(QtCharts::QChart *chart, QGridLayout *layout, int row, int column);

} // namespace ChartSetup
