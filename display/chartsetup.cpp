// SPDX-License-Identifier: GPL-3.0-or-later
#include "chartsetup.h"

#include "chartdata.h"

#include <QFont>
#include <QGridLayout>
#include <QPen>
#include <QtCharts/QChart>
#include <QtCharts/QChartView>
#include <QtCharts/QLineSeries>
#include <QtCharts/QValueAxis>

using namespace QtCharts;

QValueAxis *ChartSetup::newAxis(const QString &title, const QFont &labelFont,
                                const QFont &titleFont)
{
    auto *axis = new QValueAxis;
    axis->setLabelsFont(labelFont);
    axis->setTitleFont(titleFont);
    axis->setTitleText(title);
    return axis;
}

QChart *ChartSetup::newChart(QLineSeries *series, QValueAxis *x, QValueAxis *y,
                             const QString &title, const QFont &titleFont)
{
    auto *chart = new QChart(nullptr, Qt::WindowFlags());
    chart->addSeries(series);
    chart->addAxis(x, Qt::AlignBottom);
    series->attachAxis(x);
    chart->addAxis(y, Qt::AlignLeft);
    series->attachAxis(y);
    chart->setTitleFont(titleFont);
    chart->setTitle(title);
    chart->legend()->hide();
    chart->setMargins(QMargins(0, 0, 0, 0));
    chart->setSizePolicy(QSizePolicy::Minimum, QSizePolicy::Preferred);
    chart->setMinimumWidth(200);
    // The theme's colour with a one-pixel line. The theme's two-pixel
    // antialiased line makes painting a waveform of 2000 noise samples about
    // seven times slower, and that painting follows every answered trial.
    QPen pen = series->pen();
    pen.setWidthF(1.0);
    series->setPen(pen);
    return chart;
}

void ChartSetup::setRange(QValueAxis *axis, double low, double high)
{
    const QVector<double> r = ChartData::drawableRange(low, high);
    axis->setRange(r[0], r[1]);
}

QChartView *ChartSetup::newView(QChart *chart, QGridLayout *layout, int row, int column)
{
    auto *view = new QChartView(chart, nullptr);
    view->setRenderHint(QPainter::Antialiasing);
    layout->addWidget(view, row, column, 1, 1);
    return view;
}
