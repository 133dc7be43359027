// SPDX-License-Identifier: GPL-3.0-or-later
#include "simulationsummary.h"

#include "app/sessionparameters.h"
#include "statistics.h"

#include <cmath>

const QVector<double> SimulationSummary::percentileLevels{5.0, 25.0, 50.0, 75.0, 95.0};

SimulationSummary SimulationSummary::of(const QVector<RunOutcome> &outcomes,
                                        const Listener &listener, const SessionParameters &start)
{
    SimulationSummary summary;
    summary.runs = outcomes.size();

    QVector<double> thresholds;
    QVector<double> thresholdsDb;
    QVector<double> trialCounts;
    int limitRuns = 0;
    for (const RunOutcome &outcome : outcomes) {
        if (outcome.reachedUpperLimit)
            ++limitRuns;
        if (!outcome.finished)
            continue;
        thresholds.append(outcome.threshold);
        thresholdsDb.append(20.0 * std::log10(outcome.threshold));
        trialCounts.append(outcome.trials.size());
    }
    summary.finishedRuns = thresholds.size();
    summary.upperLimitShare = summary.runs > 0 ? double(limitRuns) / summary.runs : 0.0;

    summary.meanThreshold = Statistics::mean(thresholds);
    summary.sdThreshold = Statistics::standardDeviation(thresholds);
    summary.meanThresholdDb = Statistics::mean(thresholdsDb);
    summary.sdThresholdDb = Statistics::standardDeviation(thresholdsDb);
    for (double level : percentileLevels) {
        summary.thresholdPercentiles.append(Statistics::percentile(thresholds, level));
        summary.thresholdPercentilesDb.append(Statistics::percentile(thresholdsDb, level));
    }
    summary.meanTrials = Statistics::mean(trialCounts);

    // A weighted up-down track settles where the expected movement is zero:
    // p · down = (1 − p) · up, so p = up / (up + down) with the two step
    // multipliers of the session record (2 and 1: two thirds).
    const double up = start.stepUp;
    const double down = -start.stepDown;
    const double target = up / (up + down);
    summary.targetPercentCorrect = 100.0 * target;
    summary.targetLevelDb = listener.levelDbAt(target);
    summary.percentCorrectAtMean = 100.0 * listener.probabilityCorrect(summary.meanThreshold);
    return summary;
}
