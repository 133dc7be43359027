// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/trialrecord.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <limits>

// One usable run as the summary sees it: what its files say, what the
// staircase recomputes from its trials, and whether it counts. Numbers that
// are not available are NaN and become empty cells.
struct RunRow {
    QString file;
    QString subject;
    QString sessionType;
    int session = -1; // -1 when neither a sidecar nor the file name gives it
    QString soundType;
    QString mainParameter;
    int trackedQuantity = 0;   // from the header: 0 frequency difference (Hz), 1 depth (%)
    double carrierHz = 0.0;    // the standard's; NaN without a sidecar
    double modulationHz = 0.0; // NaN without a sidecar
    double standardDepthPct = 0.0;
    double durationMs = 0.0;
    QString acquired;
    bool hasSidecar = false;
    int faultyIntervals = 0;
    // The output's volume in % where it was one known value for the whole run
    // (else NaN); 1 when a sound played muted or at 0 %, 0 when none did, -1
    // when that is unknown; whether the volume or the device changed.
    double outputVolumePct = std::numeric_limits<double>::quiet_NaN();
    int outputMuted = -1;
    bool outputChanged = false;

    // Trials with the tracked value in the file's unit, and the trials (from
    // 0) at which the staircase counted a reversal; the threshold averages
    // the values of the last averagedReversals of them.
    QVector<TrialRecord> trials;
    QVector<int> reversalTrials;
    int averagedReversals = 0;
    int reversals = 0;
    bool complete = false;
    double threshold = 0.0; // file's unit; NaN without reversals
    double thresholdDb = 0.0;
    double reversalSdDb = 0.0;
    double percentCorrect = 0.0;
    double chose2Pct = 0.0;
    double meanRtMs = 0.0;
    double medianRtMs = 0.0;
    QStringList excludedBecause;

    // Display units per stored fraction: 100 for depth, the carrier for a
    // frequency difference; NaN when the carrier is unknown.
    double unitsPerFraction() const;
    // The level of a trial in dB re the stored fraction (NaN when unknown).
    double levelDb(int trial) const;
    bool included() const { return excludedBecause.isEmpty(); }
    // The file's unit: "Hz" or "%".
    QString unit() const { return trackedQuantity == 0 ? "Hz" : "%"; }
};
