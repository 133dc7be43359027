// SPDX-License-Identifier: GPL-3.0-or-later
#include "reportpage.h"

#include "psychometric.h"

#include <QMap>

#include <algorithm>
#include <cmath>

namespace
{
using Style = Figure::Style;
// Colours as RGB.
const QColor rightColour(0x28963c);
const QColor wrongColour(0xc83228);
const QColor meanColour(0x284682);

QString fixed(double v)
{
    return std::isfinite(v) ? QString::number(v, 'f', 2) : QString("–");
}

QString subjectName(const StudyGroup &g)
{
    return g.subject.isEmpty() ? QString("(no subject)") : g.subject;
}

Figure named(const QString &name, const QString &title, const QString &xTitle,
             const QString &yTitle)
{
    Figure f;
    f.name = name;
    f.title = title;
    f.x.title = xTitle;
    f.y.title = yTitle;
    return f;
}

// Every run's track in dB against trial, answers and reversals marked;
// excluded runs dashed and in orange, so that they stand apart in grey-scale
// print too.
Figure tracks(const StudyGroup &g, const QVector<RunRow> &rows)
{
    Figure f = named("tracks", "Tracks", "Trial", "Level (dB)");
    Figure::Series right{"correct", "correct", Style::Dots, rightColour, 5.0, {}, {}};
    Figure::Series wrong{"wrong", "wrong", Style::Dots, wrongColour, 5.0, {}, {}};
    Figure::Series reversals{"reversal", "reversal", Style::Rings, Qt::black, 10.0, {}, {}};
    for (int k = 0; k < g.runs.size(); ++k) {
        const RunRow &r = rows[g.runs[k]];
        Figure::Series line{QString("run %1").arg(k + 1),
                            "included run",
                            Style::Line,
                            QColor(0x464646),
                            1.0,
                            {},
                            {}};
        if (!r.included())
            line = {line.name + ", excluded",
                    "excluded run (dashed)",
                    Style::DashedLine,
                    QColor(0xdc7800),
                    2.0,
                    {},
                    {}};
        for (int t = 0; t < r.trials.size(); ++t) {
            const QPointF p(t + 1, r.levelDb(t));
            if (!std::isfinite(p.y()))
                continue;
            line.points.append(p);
            (r.trials[t].correct ? right : wrong).points.append(p);
            if (r.reversalTrials.contains(t))
                reversals.points.append(p);
        }
        f.series.append(line);
    }
    f.series << right << wrong << reversals;
    Figures::fitAxes(f, true);
    return f;
}

// Thresholds against run order; excluded runs marked by their reasons.
Figure thresholds(const StudyGroup &g, const QVector<RunRow> &rows)
{
    Figure f = named("thresholds", "Thresholds in run order", "Run", "Threshold (dB)");
    const QList<QColor> colours{wrongColour, QColor(0xe6961e), QColor(0x783caa), QColor(0x1e78c8),
                                QColor(0x969696)};
    QMap<QString, Figure::Series> byReason;
    for (int k = 0; k < g.runs.size(); ++k) {
        const RunRow &r = rows[g.runs[k]];
        if (!std::isfinite(r.thresholdDb))
            continue;
        const QString reason = r.included() ? QString("included") : r.excludedBecause.join(", ");
        if (!byReason.contains(reason))
            byReason[reason] =
                r.included()
                    ? Figure::Series{reason, reason, Style::Dots, rightColour, 10.0, {}, {}}
                    : Figure::Series{reason,
                                     reason,
                                     Style::Squares,
                                     colours[byReason.size() % colours.size()],
                                     10.0,
                                     {},
                                     {}};
        byReason[reason].points.append(QPointF(k + 1, r.thresholdDb));
    }
    f.series = byReason.values().toVector();
    Figures::fitAxes(f, true);
    return f;
}

// Proportion correct of the summarised runs' trials in 1 dB bins (a marker's
// area grows with its bin's trials, so that a bin of 2 trials does not look
// like one of 200), the fitted function, α and its interval. The proportion
// axis starts at 0.4 (chance is 0.5), lower when a bin is.
Figure psychometric(const StudyGroup &g, const QVector<RunRow> &rows)
{
    const FitResult &fit = g.fit;
    Figure f = named("psychometric",
                     fit.fitted ? QString("%1 pooled trials: α %2 dB (95 %: %3 to %4), β %5 dB")
                                      .arg(fit.trials)
                                      .arg(fixed(fit.alpha), fixed(fit.alphaLow),
                                           fixed(fit.alphaHigh), fixed(fit.beta))
                                : QString("%1 pooled trials, too few to fit").arg(fit.trials),
                     "Level (dB)", "Proportion correct");
    QMap<int, QPair<int, int>> bins; // rounded level: trials, correct
    for (int i : g.used)
        for (int t = 0; t < rows[i].trials.size(); ++t) {
            QPair<int, int> &bin = bins[static_cast<int>(std::lround(rows[i].levelDb(t)))];
            ++bin.first;
            bin.second += rows[i].trials[t].correct;
        }
    int most = 0;
    for (const QPair<int, int> &bin : bins)
        most = std::max(most, bin.first);
    Figure::Series binned{"1 dB bins", "1 dB bins, area ∝ trials", Style::Dots, meanColour, 8.0, {},
                          {}};
    double lowest = 0.4;
    for (auto it = bins.cbegin(); it != bins.cend(); ++it) {
        const double p = double(it->second) / it->first;
        lowest = std::min(lowest, p);
        binned.points.append(QPointF(it.key(), p));
        binned.sizes.append(std::max(3.0, 18.0 * std::sqrt(double(it->first) / most)));
    }
    f.series.append(binned);
    if (fit.fitted) {
        Figure::Series curve{"fit", "fit", Style::Line, Qt::black, 2.0, {}, {}};
        double from = fit.alpha - 3 * fit.beta, to = fit.alpha + 3 * fit.beta;
        for (const QPointF &p : binned.points) {
            from = std::min(from, p.x());
            to = std::max(to, p.x());
        }
        for (int k = 0; k <= 100; ++k) {
            const double x = from + (to - from) * k / 100.0;
            curve.points.append(
                QPointF(x, Psychometric::probabilityCorrect(x, fit.alpha, fit.beta, fit.lapse)));
        }
        const double atAlpha =
            Psychometric::probabilityCorrect(fit.alpha, fit.alpha, fit.beta, fit.lapse);
        Figure::Series interval{
            "95 % interval of α", "95 % interval of α", Style::Line, wrongColour, 4.0, {}, {}};
        if (std::isfinite(fit.alphaLow))
            interval.points = {QPointF(fit.alphaLow, atAlpha), QPointF(fit.alphaHigh, atAlpha)};
        f.series << curve << interval;
    }
    Figures::fitAxes(f, false);
    f.y = Figures::roundAxis(f.y.title, lowest, 1.0, 0.1);
    return f;
}

// One condition of the study page: a row per subject with the mean threshold
// and its 95 % interval, then the mean over subjects, from the top down.
Figure conditionPanel(const Overview::Condition &c, const QVector<StudyGroup> &groups)
{
    Figure f = named("study", c.label, "Mean threshold with 95 % interval (dB)", QString());
    const int lines = c.groups.size() + 1;
    Figure::Series means{"subjects' means", "subject's mean", Style::Dots, meanColour, 7.0, {}, {}};
    Figure::Series overall{
        "mean of subjects", "mean of subjects", Style::Squares, Qt::black, 9.0, {}, {}};
    QVector<QPair<double, QString>> labels;
    const auto row = [&](int line, const QString &name, double mean, double ciLow, double ciHigh,
                         Figure::Series &marks) {
        const double y = lines - line;
        // The row's figures under its name (labels are rich text).
        labels.append(
            {y, name + "<br>" +
                    (std::isfinite(ciLow)
                         ? QString("%1 (%2 to %3)").arg(fixed(mean), fixed(ciLow), fixed(ciHigh))
                     : std::isfinite(mean) ? fixed(mean)
                                           : QString("no included run"))});
        if (std::isfinite(mean))
            marks.points.append(QPointF(mean, y));
        if (std::isfinite(ciLow))
            f.series.append({name,
                             "95 % interval",
                             Style::Line,
                             Qt::black,
                             1.0,
                             {QPointF(ciLow, y), QPointF(ciHigh, y)},
                             {}});
    };
    for (int k = 0; k < c.groups.size(); ++k) {
        const StudyGroup &g = groups[c.groups[k]];
        row(k, QString("%1 (%2)").arg(subjectName(g)).arg(g.used.size()), g.meanDb, g.ciLowDb,
            g.ciHighDb, means);
    }
    row(lines - 1, QString("mean of %1").arg(c.subjects), c.meanDb, c.ciLowDb, c.ciHighDb, overall);
    f.series << means << overall;
    Figures::fitAxes(f, false);
    f.y = {QString(), 0.5, lines + 0.5, 1.0, labels};
    return f;
}
} // namespace

QVector<ReportPage> ReportPage::all(const Overview &o, const QVector<StudyGroup> &groups,
                                    const QVector<RunRow> &rows)
{
    ReportPage study;
    study.title = QString("The study: %1 condition%2; per subject the mean threshold of the "
                          "included runs (their number in brackets)")
                      .arg(o.conditions.size())
                      .arg(o.conditions.size() == 1 ? "" : "s");
    QStringList reasons;
    for (const QPair<QString, int> &e : o.excluded)
        reasons.append(QString("%1 %2").arg(e.first).arg(e.second));
    study.note = QString("Results files read: %1. Runs included in the means and fits: %2. Files "
                         "that could not be used: %3.\nRuns left out (a run with several reasons "
                         "counts under each): %4.")
                     .arg(o.read)
                     .arg(o.included)
                     .arg(o.unusable)
                     .arg(reasons.isEmpty() ? QString("none") : reasons.join(", "));
    study.noteBelow = true;
    // Conditions side by side in two columns, as many rows as they need.
    for (int k = 0; k < o.conditions.size(); ++k) {
        study.figures.append(conditionPanel(o.conditions[k], groups));
        study.cells.append(QRect(k % 2, k / 2, 1, 1));
    }
    QVector<ReportPage> pages{study};
    for (const StudyGroup &g : groups) {
        ReportPage page;
        page.subject = g.subject;
        page.condition = conditionLabel(rows[g.first]);
        page.title = QString("%1 — %2").arg(subjectName(g), page.condition);
        page.note =
            QString("%1 runs, %2 summarised: mean threshold %3 dB (SD %4, 95 % %5 to %6 dB), "
                    "first to last %7 dB; fit α %8 dB, β %9 dB, 66.7 % point %10 dB")
                .arg(g.runs.size())
                .arg(g.used.size())
                .arg(fixed(g.meanDb), fixed(g.sdDb), fixed(g.ciLowDb), fixed(g.ciHighDb),
                     fixed(g.firstToLastDb), fixed(g.fit.alpha), fixed(g.fit.beta),
                     fixed(g.fit.x66));
        // The tracks across the page, the other two below them side by side.
        page.figures = {tracks(g, rows), thresholds(g, rows), psychometric(g, rows)};
        page.cells = {QRect(0, 0, 2, 1), QRect(0, 1, 1, 1), QRect(1, 1, 1, 1)};
        pages.append(page);
    }
    return pages;
}
