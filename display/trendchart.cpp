// SPDX-License-Identifier: GPL-3.0-or-later
#include "../app/mainwindow.h"
#include "../procedure/staircase.h"

#include <QGridLayout>
#include <QPainter>
#include <QtCharts/QChart>
#include <QtCharts/QChartView>
#include <QtCharts/QLineSeries>
#include <QtCharts/QValueAxis>

#include <cmath>

using namespace QtCharts;

// Builds the trend chart's objects that do not exist yet, so construction and
// View run the same code; the value axis title follows the tracked quantity.
void MainWindow::createTrendChart()
{
    if (!seriesTrend) {
        seriesTrend = new QLineSeries();
        seriesTrend->setName("trend");
        seriesTrend->setPointsVisible(true);
    }
    if (!axisXTrend) {
        axisXTrend = new QValueAxis();
        axisXTrend->setLabelsVisible(false);
        axisXTrend->setTickCount(2);
        axisXTrend->setLabelsFont(axisLabelFont);
        axisXTrend->setTitleFont(axisTitleFont);
        axisXTrend->setTitleText("Number of Trials");
    }
    if (axisYTrend) {
        if (params.mainParameter == 0)
            axisYTrend->setTitleText("Frequency difference (Hz)");
        else if (params.mainParameter == 1)
            axisYTrend->setTitleText("Modulation Depth (%)");
    } else {
        axisYTrend = new QValueAxis();
        axisYTrend->setRange(trendMin, trendMax);
        axisYTrend->setLabelFormat("%.0f");
        axisYTrend->setLabelsFont(axisLabelFont);
        axisYTrend->setTitleFont(axisTitleFont);
        axisYTrend->setTitleText("Modulation Depth (%)");
    }
    if (!chartTrend) {
        chartTrend = new QChart();
        chartTrend->addSeries(seriesTrend);
        chartTrend->addAxis(axisXTrend, Qt::AlignBottom);
        seriesTrend->attachAxis(axisXTrend);
        chartTrend->addAxis(axisYTrend, Qt::AlignLeft);
        seriesTrend->attachAxis(axisYTrend);
        chartTrend->setTitleFont(chartTitleFont);
        chartTrend->setTitle("Response Trend");
        chartTrend->legend()->hide();
        chartTrend->setMargins(QMargins(0, 0, 0, 0));
        chartTrend->setSizePolicy(QSizePolicy(QSizePolicy::Minimum, QSizePolicy::Preferred));
        chartTrend->setMinimumWidth(400);
    }
    if (!chartViewTrend) {
        chartViewTrend = new QChartView(chartTrend);
        chartViewTrend->setRenderHint(QPainter::Antialiasing);
        gridLayoutCharts->addWidget(chartViewTrend, 2, 0, 1, 2);
    }
}

// Plots the value the participant has just heard at x = trial index from 0.
// The value axis hugs the smallest and largest value once two differ; until
// then it keeps its range, so a single point never gives an empty range.
void MainWindow::appendTrendPoint()
{
    axisXTrend->setRange(0, params.trialCount);
    axisXTrend->setTickCount(params.trialCount + 1);

    // A value that is not a finite number (the panel converts "inf" and "nan"
    // like any number) cannot be drawn and would spoil the value axis: that
    // trial gets no point, only the trials axis moves on.
    const double value = Staircase::displayValue(params);
    if (!std::isfinite(value))
        return;
    trendTrials.append(params.trialCount - 1);
    trendValues.append(value);
    seriesTrend->append(trendTrials.last(), trendValues.last());

    if (trendValues.size() == 1) {
        trendMin = trendMax = value;
        return;
    }
    if (value > trendMax) {
        trendMax = value;
        axisYTrend->setRange(trendMin, trendMax);
    }
    if (trendMin > value) {
        trendMin = value;
        axisYTrend->setRange(trendMin, trendMax);
    }
}

// Clears the run state and the chart before a new run. The trials axis keeps
// the previous run's range until the first answer of the new one.
void MainWindow::resetRun()
{
    trendTrials.clear();
    trendValues.clear();
    params.trialCount = 0;
    params.reversalValues.fill(0.0);
    params.reversalCount = 0;
    params.trials.clear();
    params.stimPosition = 0;
    params.threshold = 0.0;
    params.reactionTime = 0.0;
    seriesTrend->clear();
    trendMin = 0.0;
    trendMax = 100.0;
    axisYTrend->setRange(trendMin, trendMax);
}
