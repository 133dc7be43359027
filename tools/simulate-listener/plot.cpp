// SPDX-License-Identifier: GPL-3.0-or-later
#include "plot.h"

#include "app/sessionparameters.h"
#include "report.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QPainter>
#include <QWidget>
#include <QtCharts/QAreaSeries>
#include <QtCharts/QChart>
#include <QtCharts/QChartView>
#include <QtCharts/QLineSeries>
#include <QtCharts/QScatterSeries>
#include <QtCharts/QValueAxis>

#include <algorithm>
#include <cmath>

using namespace QtCharts;

namespace
{
constexpr int chartWidth = 760;
constexpr int chartHeight = 560;

double decibels(double x)
{
    return 20.0 * std::log10(x);
}

QValueAxis *axis(const QString &title, double min, double max)
{
    auto *a = new QValueAxis;
    a->setTitleText(title);
    a->setRange(min, max);
    a->applyNiceNumbers();
    return a;
}

void attach(QChart *chart, QAbstractSeries *series, QValueAxis *x, QValueAxis *y)
{
    chart->addSeries(series);
    series->attachAxis(x);
    series->attachAxis(y);
}

QLineSeries *verticalLine(const QString &name, double x, double top, const QColor &colour)
{
    auto *line = new QLineSeries;
    line->setName(name);
    line->append(x, 0.0);
    line->append(x, top);
    line->setPen(QPen(colour, 2, Qt::DashLine));
    return line;
}

QLineSeries *horizontalLine(const QString &name, double y, double from, double to,
                            const QColor &colour)
{
    auto *line = new QLineSeries;
    line->setName(name);
    line->append(from, y);
    line->append(to, y);
    line->setPen(QPen(colour, 2, Qt::DashLine));
    return line;
}

// Thresholds in dB binned into about √n equal bins (10 to 40), drawn as a
// filled outline.
QChart *histogramChart(const Listener &listener, const QVector<RunOutcome> &outcomes,
                       const SimulationSummary &summary)
{
    QVector<double> values;
    for (const RunOutcome &outcome : outcomes)
        if (outcome.finished)
            values.append(decibels(outcome.threshold));

    auto *chart = new QChart;
    chart->setTitle(QStringLiteral("Thresholds of %1 finished runs").arg(values.size()));
    if (values.isEmpty())
        return chart;

    const auto [lowest, highest] = std::minmax_element(values.cbegin(), values.cend());
    const int bins = std::clamp(static_cast<int>(std::ceil(std::sqrt(values.size()))), 10, 40);
    const double low = *lowest - 0.25;
    const double width = (*highest + 0.25 - low) / bins;
    QVector<int> counts(bins, 0);
    for (double v : values)
        ++counts[std::min(bins - 1, static_cast<int>((v - low) / width))];

    auto *outline = new QLineSeries;
    auto *base = new QLineSeries;
    for (int i = 0; i < bins; ++i) {
        outline->append(low + i * width, counts[i]);
        outline->append(low + (i + 1) * width, counts[i]);
    }
    base->append(low, 0.0);
    base->append(low + bins * width, 0.0);
    auto *area = new QAreaSeries(outline, base);
    area->setName(QStringLiteral("runs per %1 dB").arg(width, 0, 'f', 2));
    area->setColor(QColor(120, 150, 200));
    area->setBorderColor(QColor(40, 70, 130));

    const int top = *std::max_element(counts.cbegin(), counts.cend());
    double xMin = low;
    double xMax = low + bins * width;
    const double target =
        listener.kind() == Listener::Kind::Logistic ? summary.targetLevelDb : listener.alpha();
    if (std::isfinite(target)) {
        xMin = std::min(xMin, target - 0.5);
        xMax = std::max(xMax, target + 0.5);
    }
    QValueAxis *x =
        axis(QStringLiteral("Threshold (dB, 20·log10 of the stored fraction)"), xMin, xMax);
    QValueAxis *y = axis(QStringLiteral("Runs"), 0.0, top * 1.1 + 1);
    y->setLabelFormat(QStringLiteral("%d"));
    chart->addAxis(x, Qt::AlignBottom);
    chart->addAxis(y, Qt::AlignLeft);
    attach(chart, area, x, y);
    attach(chart,
           verticalLine(QStringLiteral("mean %1 dB").arg(summary.meanThresholdDb, 0, 'f', 2),
                        summary.meanThresholdDb, top * 1.1 + 1, Qt::black),
           x, y);
    if (std::isfinite(target)) {
        const QString name = listener.kind() == Listener::Kind::Logistic
                                 ? QStringLiteral("%1 % point %2 dB")
                                       .arg(summary.targetPercentCorrect, 0, 'f', 1)
                                       .arg(target, 0, 'f', 2)
                                 : QStringLiteral("switching value %1 dB").arg(target, 0, 'f', 2);
        attach(chart, verticalLine(name, target, top * 1.1 + 1, QColor(200, 60, 40)), x, y);
    }
    chart->legend()->setAlignment(Qt::AlignBottom);
    return chart;
}

QChart *trackChart(const SessionParameters &start, const RunOutcome &run)
{
    auto *chart = new QChart;
    chart->setTitle(QStringLiteral("Example track: run 1, %1 (%2 trials)")
                        .arg(Report::quantityName(start))
                        .arg(run.trials.size()));
    auto *track = new QLineSeries;
    track->setName(QStringLiteral("tracked value"));
    track->setPen(QPen(QColor(90, 90, 90), 1.5));
    auto *right = new QScatterSeries;
    right->setName(QStringLiteral("right answer"));
    right->setColor(QColor(40, 150, 60));
    right->setMarkerSize(8);
    auto *wrong = new QScatterSeries;
    wrong->setName(QStringLiteral("wrong answer"));
    wrong->setColor(QColor(200, 50, 40));
    wrong->setMarkerSize(8);

    double yMin = 0.0;
    double yMax = 0.0;
    for (int i = 0; i < run.trials.size(); ++i) {
        const double level = decibels(run.trials[i].value);
        const QPointF point(i + 1, level);
        track->append(point);
        (run.trials[i].correct ? right : wrong)->append(point);
        yMin = i == 0 ? level : std::min(yMin, level);
        yMax = i == 0 ? level : std::max(yMax, level);
    }
    QValueAxis *x = axis(QStringLiteral("Trial"), 1.0, std::max(2, run.trials.size()));
    x->setLabelFormat(QStringLiteral("%d"));
    QValueAxis *y = axis(QStringLiteral("Tracked value (dB)"), yMin - 1.0, yMax + 1.0);
    chart->addAxis(x, Qt::AlignBottom);
    chart->addAxis(y, Qt::AlignLeft);
    attach(chart, track, x, y);
    attach(chart, right, x, y);
    attach(chart, wrong, x, y);
    if (run.finished)
        attach(chart,
               horizontalLine(
                   QStringLiteral("threshold %1 dB").arg(decibels(run.threshold), 0, 'f', 2),
                   decibels(run.threshold), 1.0, run.trials.size(), Qt::black),
               x, y);
    chart->legend()->setAlignment(Qt::AlignBottom);
    return chart;
}
} // namespace

bool Plot::writePng(const QString &path, const SessionParameters &start, const Listener &listener,
                    const QVector<RunOutcome> &outcomes, const SimulationSummary &summary)
{
    QWidget page;
    auto *layout = new QHBoxLayout(&page);
    const QList<QChart *> charts{histogramChart(listener, outcomes, summary),
                                 outcomes.isEmpty() ? new QChart
                                                    : trackChart(start, outcomes.first())};
    for (QChart *chart : charts) {
        auto *view = new QChartView(chart);
        view->setRenderHint(QPainter::Antialiasing);
        layout->addWidget(view);
    }
    page.resize(2 * chartWidth, chartHeight);
    QApplication::processEvents();
    return page.grab().save(path, "PNG");
}
