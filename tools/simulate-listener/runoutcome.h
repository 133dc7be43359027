// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/trialrecord.h"

#include <QVector>

// What one simulated run left behind.
struct RunOutcome {
    QVector<TrialRecord> trials;    // one record per answered trial, in order
    QVector<double> reversalValues; // tracked value at each reversal
    double threshold = 0.0;         // stored units; NaN when the run did not finish
    bool finished = false;          // reached the set number of reversals
    bool reachedUpperLimit = false; // some trial presented the tracked quantity's upper limit
};
