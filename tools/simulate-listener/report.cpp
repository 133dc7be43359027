// SPDX-License-Identifier: GPL-3.0-or-later
#include "report.h"

#include "app/sessionparameters.h"
#include "procedure/staircase.h"
#include "simulation.h"
#include "tablecolumns.h"

#include <QTextStream>

#include <cmath>

namespace
{
QString fixed(double value, int decimals, int width = 0)
{
    if (std::isnan(value))
        return QStringLiteral("-").rightJustified(width);
    return QStringLiteral("%1").arg(value, width, 'f', decimals);
}

QString signedFixed(double value, int decimals)
{
    return (value >= 0 ? QStringLiteral("+") : QString()) + fixed(value, decimals);
}
} // namespace

double Report::displayFactor(const SessionParameters &params)
{
    return params.mainParameter == 0 ? params.carrierFrequency[0] : 100.0;
}

QString Report::unitName(const SessionParameters &params)
{
    return params.mainParameter == 0 ? QStringLiteral("Hz") : QStringLiteral("%");
}

QString Report::quantityName(const SessionParameters &params)
{
    return params.mainParameter == 0 ? QStringLiteral("frequency difference at %1 Hz")
                                           .arg(params.carrierFrequency[0], 0, 'f', 2)
                                     : QStringLiteral("modulation depth");
}

QString Report::table(const SessionParameters &start, const Listener &listener,
                      const SimulationSummary &summary, std::uint64_t seed, int maxTrials)
{
    const double factor = displayFactor(start);
    const QString unit = unitName(start);
    const auto shown = [&](double storedValue) {
        return fixed(storedValue * factor, 4) + ' ' + unit;
    };
    const auto fromDb = [](double db) { return std::pow(10.0, db / 20.0); };

    QString text;
    QTextStream out(&text);
    out << "Listener:  ";
    if (listener.kind() == Listener::Kind::Step)
        out << "step, right above " << fixed(listener.alpha(), 2) << " dB ("
            << shown(fromDb(listener.alpha())) << "), wrong at or below\n";
    else
        out << "logistic, alpha " << fixed(listener.alpha(), 2) << " dB ("
            << shown(fromDb(listener.alpha())) << "), beta " << fixed(listener.beta(), 2)
            << " dB, lapse " << fixed(listener.lapse(), 3) << ", guess rate 0.5\n";
    out << "Tracked:   " << quantityName(start) << ", start "
        << shown(Staircase::trackedValue(start)) << ", upper limit "
        << shown(Simulation::upperLimit(start)) << '\n';
    out << "Procedure: " << start.numberOfReversals << " reversals, threshold = mean of the last "
        << start.reversalsToCalculate << "; " << start.stepDown << " step after a right answer, +"
        << start.stepUp << " after a wrong one\n";
    out << "Runs:      " << summary.runs << " (" << summary.finishedRuns << " finished), seed "
        << seed << "\n\n";

    out << QStringLiteral("%1%2%3").arg(QString(), -18).arg("mean", 11).arg("SD", 11);
    for (double level : SimulationSummary::percentileLevels)
        out << QStringLiteral("%1").arg(QStringLiteral("P%1").arg(level), 11);
    out << '\n';
    out << QStringLiteral("Threshold (%1)").arg(unit).leftJustified(18)
        << fixed(summary.meanThreshold * factor, 4, 11)
        << fixed(summary.sdThreshold * factor, 4, 11);
    for (double value : summary.thresholdPercentiles)
        out << fixed(value * factor, 4, 11);
    out << '\n';
    out << QStringLiteral("Threshold (dB)").leftJustified(18)
        << fixed(summary.meanThresholdDb, 2, 11) << fixed(summary.sdThresholdDb, 2, 11);
    for (double value : summary.thresholdPercentilesDb)
        out << fixed(value, 2, 11);
    out << "\n\n";

    const auto row = [&](const QString &label, const QString &value) {
        out << label.leftJustified(46) << value << '\n';
    };
    row("Trials per run (mean)", fixed(summary.meanTrials, 1));
    row("Runs that reached the upper limit", fixed(100.0 * summary.upperLimitShare, 1) + " %");
    row("Percent correct at the mean threshold",
        fixed(summary.percentCorrectAtMean, 1) + " % (the step ratio aims at " +
            fixed(summary.targetPercentCorrect, 1) + " %)");
    if (listener.kind() == Listener::Kind::Logistic) {
        row(QStringLiteral("Listener's %1 % point").arg(summary.targetPercentCorrect, 0, 'f', 1),
            fixed(summary.targetLevelDb, 2) + " dB (" + shown(fromDb(summary.targetLevelDb)) + ")");
        row("Mean threshold re that point",
            signedFixed(summary.meanThresholdDb - summary.targetLevelDb, 2) + " dB");
    } else {
        row("Mean threshold re the switching value",
            signedFixed(summary.meanThresholdDb - listener.alpha(), 2) + " dB");
    }
    if (summary.finishedRuns < summary.runs)
        out << '\n'
            << summary.runs - summary.finishedRuns << " runs did not reach "
            << start.numberOfReversals << " reversals within " << maxTrials
            << " trials; they are left out of the threshold and trial statistics.\n";
    return text;
}

namespace
{
struct RunView {
    int run;
    const RunOutcome *outcome;
};

// The columns of the table of runs; the threshold in the tracked quantity's
// unit.
QVector<Column<RunView>> runColumns(const SessionParameters &start)
{
    using V = RunView;
    const double factor = Report::displayFactor(start);
    const auto flag = [](bool v) { return QString(v ? "1" : "0"); };
    return {
        {"run", "The run, from 1", "", [](const V &v) { return QString::number(v.run); }},
        {"trials", "Trials presented", "",
         [](const V &v) { return QString::number(v.outcome->trials.size()); }},
        {"reversals", "Reversals reached", "",
         [](const V &v) { return QString::number(v.outcome->reversalValues.size()); }},
        {"threshold", "Mean of the last reversal values; empty when the run did not finish",
         Report::unitName(start),
         [factor](const V &v) {
             return v.outcome->finished ? QString::number(v.outcome->threshold * factor, 'f', 6)
                                        : QString();
         }},
        {"threshold_db", "The threshold as 20·log10 of the stored fraction", "dB",
         [](const V &v) {
             return v.outcome->finished
                        ? QString::number(20.0 * std::log10(v.outcome->threshold), 'f', 4)
                        : QString();
         }},
        {"reached_upper_limit", "1 when a trial presented the tracked quantity's upper limit", "",
         [flag](const V &v) { return flag(v.outcome->reachedUpperLimit); }},
        {"finished", "1 when the run reached its reversals", "",
         [flag](const V &v) { return flag(v.outcome->finished); }},
    };
}
} // namespace

QString Report::tabSeparated(const SessionParameters &start, const QVector<RunOutcome> &outcomes)
{
    QVector<RunView> views;
    for (int i = 0; i < outcomes.size(); ++i)
        views.append({i + 1, &outcomes[i]});
    return TableColumns::table(runColumns(start), views);
}

QJsonObject Report::tableDescription(const SessionParameters &start)
{
    return TableColumns::describe(runColumns(start));
}
