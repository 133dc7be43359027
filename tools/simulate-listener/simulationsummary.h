// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "listener.h"
#include "runoutcome.h"

#include <QVector>

class SessionParameters;

// What a batch of runs says about the procedure. Thresholds are taken from
// finished runs only; "Db" values are 20·log10 of the stored-unit values.
struct SimulationSummary {
    static const QVector<double> percentileLevels; // 5, 25, 50, 75, 95

    int runs = 0;
    int finishedRuns = 0;
    double meanThreshold = 0.0;
    double sdThreshold = 0.0;
    QVector<double> thresholdPercentiles;
    double meanThresholdDb = 0.0;
    double sdThresholdDb = 0.0;
    QVector<double> thresholdPercentilesDb;
    double meanTrials = 0.0;           // over finished runs
    double upperLimitShare = 0.0;      // share of all runs that presented the upper limit
    double percentCorrectAtMean = 0.0; // listener's p(correct) at meanThreshold, in %
    double targetPercentCorrect = 0.0; // the point the step ratio converges on, in %
    double targetLevelDb = 0.0;        // the listener's level at that point

    static SimulationSummary of(const QVector<RunOutcome> &outcomes, const Listener &listener,
                                const SessionParameters &start);
};
