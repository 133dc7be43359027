// SPDX-License-Identifier: GPL-3.0-or-later
#include "report.h"

#include "app/sessionparameters.h"
#include "procedure/staircase.h"
#include "simulation.h"

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

QString Report::tabSeparated(const SessionParameters &start, const QVector<RunOutcome> &outcomes)
{
    const double factor = displayFactor(start);
    QString text;
    QTextStream out(&text);
    out << "run\ttrials\treversals\tthreshold (" << unitName(start)
        << ")\tthreshold (dB)\treached upper limit\tfinished\n";
    for (int i = 0; i < outcomes.size(); ++i) {
        const RunOutcome &outcome = outcomes[i];
        out << i + 1 << '\t' << outcome.trials.size() << '\t' << outcome.reversalValues.size()
            << '\t';
        if (outcome.finished)
            out << QString::number(outcome.threshold * factor, 'f', 6) << '\t'
                << QString::number(20.0 * std::log10(outcome.threshold), 'f', 4);
        else
            out << '\t';
        out << '\t' << (outcome.reachedUpperLimit ? 1 : 0) << '\t' << (outcome.finished ? 1 : 0)
            << '\n';
    }
    return text;
}
