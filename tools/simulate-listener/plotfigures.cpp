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

Figure::Series dashed(const QString &name, const QString &legend, const QColor &colour,
                      const QPointF &from, const QPointF &to)
{
    return {name, legend, Style::DashedLine, colour, 2.0, {from, to}, {}};
}

Figure histogram(const SessionParameters &start, const Listener &listener,
                 const QVector<RunOutcome> &outcomes)
{
    const SimulationSummary summary = SimulationSummary::of(outcomes, listener, start);
    QVector<double> values;
    for (const RunOutcome &outcome : outcomes)
        if (outcome.finished)
            values.append(decibels(outcome.threshold));
    Figure f;
    f.title = QString("Thresholds of %1 finished runs").arg(values.size());
    f.x.title = "Threshold (dB, 20·log10 of the stored fraction)";
    f.y.title = "Runs";
    int top = 0;
    if (!values.isEmpty()) {
        const auto [lowest, highest] = std::minmax_element(values.cbegin(), values.cend());
        const int bins = std::clamp(static_cast<int>(std::ceil(std::sqrt(values.size()))), 10, 40);
        const double low = *lowest - 0.25;
        const double width = (*highest + 0.25 - low) / bins;
        QVector<int> counts(bins, 0);
        for (double v : values)
            ++counts[std::min(bins - 1, static_cast<int>((v - low) / width))];
        top = *std::max_element(counts.cbegin(), counts.cend());
        Figure::Series outline{"thresholds",
                               QString("runs per %1 dB").arg(width, 0, 'f', 2),
                               Style::Filled,
                               QColor("lightsteelblue"),
                               1.0,
                               {},
                               {}};
        for (int i = 0; i < bins; ++i)
            outline.points << QPointF(low + i * width, counts[i])
                           << QPointF(low + (i + 1) * width, counts[i]);
        const double mean = summary.meanThresholdDb;
        f.series << outline
                 << dashed("mean", QString("mean %1 dB").arg(mean, 0, 'f', 2), Qt::black,
                           QPointF(mean, 0.0), QPointF(mean, top));
    }
    // A step listener's target is its switching value, whatever the step ratio.
    const double target = summary.targetLevelDb;
    const QString legend = listener.kind() == Listener::Kind::Logistic
                               ? QString("%1 % point %2 dB")
                                     .arg(summary.targetPercentCorrect, 0, 'f', 1)
                                     .arg(target, 0, 'f', 2)
                               : QString("switching value %1 dB").arg(target, 0, 'f', 2);
    if (std::isfinite(target))
        f.series << dashed("target", legend, QColor("firebrick"), QPointF(target, 0.0),
                           QPointF(target, top));
    Figures::fitAxes(f, false);
    f.y = Figures::roundAxis(f.y.title, 0.0, f.y.max, Figures::tickStep(f.y.max, 6, true));
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
        f.series << dashed("threshold", QString("threshold %1 dB").arg(threshold, 0, 'f', 2),
                           Qt::black, QPointF(1.0, threshold),
                           QPointF(run.trials.size(), threshold));
    Figures::fitAxes(f, true);
    return f;
}
} // namespace

QVector<Figure> PlotFigures::of(const SessionParameters &start, const Listener &listener,
                                const QVector<RunOutcome> &outcomes)
{
    QVector<Figure> figures{histogram(start, listener, outcomes)};
    if (!outcomes.isEmpty())
        figures.append(track(start, outcomes.first()));
    for (int k = 0; k < figures.size(); ++k)
        figures[k].area = QRectF(k * 760.0, 0.0, 760.0, 560.0);
    return figures;
}
