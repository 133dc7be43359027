// SPDX-License-Identifier: GPL-3.0-or-later
#include "plotfigures.h"

#include "report.h"
#include "simulationsummary.h"

#include <algorithm>
#include <cmath>

namespace
{
using Style = Figure::Style;

double decibels(double x)
{
    return 20.0 * std::log10(x);
}

// A level as the legends show it.
QString inDb(double level)
{
    return QString::number(level, 'f', 2) + " dB";
}

Figure::Series dashed(const QString &name, const QString &legend, const QColor &colour,
                      const QPointF &from, const QPointF &to)
{
    return {name, legend, Style::DashedLine, colour, 2.0, {from, to}, {}};
}

Figure histogram(const SessionParameters &start, const Listener &listener,
                 const QVector<RunOutcome> &outcomes)
{
    QVector<double> values;
    for (const RunOutcome &outcome : outcomes)
        if (outcome.finished)
            values.append(decibels(outcome.threshold));
    Figure f;
    f.title = QString("Thresholds of %1 finished runs").arg(values.size());
    f.x.title = "Threshold (dB, 20·log10 of the stored fraction)";
    f.y.title = "Runs";
    if (values.isEmpty())
        return f;
    const auto [lowest, highest] = std::minmax_element(values.cbegin(), values.cend());
    const int bins = std::clamp(static_cast<int>(std::ceil(std::sqrt(values.size()))), 10, 40);
    const double low = *lowest - 0.25;
    const double width = (*highest + 0.25 - low) / bins;
    QVector<int> counts(bins, 0);
    for (double v : values)
        ++counts[std::min(bins - 1, static_cast<int>((v - low) / width))];
    const double top = *std::max_element(counts.cbegin(), counts.cend());
    Figure::Series outline{"thresholds",
                           "runs per " + inDb(width),
                           Style::Filled,
                           QColor("lightsteelblue"),
                           1.0,
                           {},
                           {}};
    for (int i = 0; i < bins; ++i)
        outline.points << QPointF(low + i * width, counts[i])
                       << QPointF(low + (i + 1) * width, counts[i]);
    const SimulationSummary summary = SimulationSummary::of(outcomes, listener, start);
    const double mean = summary.meanThresholdDb;
    f.series << outline
             << dashed("mean", "mean " + inDb(mean), Qt::black, {mean, 0.0}, {mean, top});
    // A step listener's target is its switching value, whatever the step ratio.
    const double target = summary.targetLevelDb;
    const QString legend =
        listener.kind() == Listener::Kind::Logistic
            ? QString::number(summary.targetPercentCorrect, 'f', 1) + " % point " + inDb(target)
            : "switching value " + inDb(target);
    if (std::isfinite(target))
        f.series << dashed("target", legend, QColor("firebrick"), {target, 0.0}, {target, top});
    // The count axis from 0, in whole runs.
    Figures::fitAxes(f, false);
    f.y.min = 0.0;
    f.y.step = std::max(1.0, f.y.step);
    return f;
}

Figure track(const SessionParameters &start, const RunOutcome &run)
{
    Figure f;
    f.title = QString("Example track: run 1, %1 (%2 trials)")
                  .arg(Report::quantityName(start))
                  .arg(run.trials.size());
    f.x.title = "Trial";
    f.y.title = "Tracked value (dB)";
    Figure::Series line{"track", "tracked value", Style::Line, QColor("dimgray"), 1.5, {}, {}};
    Figure::Series right{"right", "right answer", Style::Dots, QColor("forestgreen"), 8.0, {}, {}};
    Figure::Series wrong{"wrong", "wrong answer", Style::Dots, QColor("firebrick"), 8.0, {}, {}};
    for (int i = 0; i < run.trials.size(); ++i) {
        const QPointF point(i + 1, decibels(run.trials[i].value));
        line.points.append(point);
        (run.trials[i].correct ? right : wrong).points.append(point);
    }
    f.series << line << right << wrong;
    const double threshold = decibels(run.threshold);
    if (run.finished)
        f.series << dashed("threshold", "threshold " + inDb(threshold), Qt::black, {1.0, threshold},
                           {double(run.trials.size()), threshold});
    Figures::fitAxes(f, true);
    return f;
}
} // namespace

QVector<Figure> PlotFigures::of(const SessionParameters &start, const Listener &listener,
                                const QVector<RunOutcome> &outcomes)
{
    return {histogram(start, listener, outcomes), track(start, outcomes.value(0))};
}
