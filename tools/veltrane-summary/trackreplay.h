// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/sessionparameters.h"
#include "psychometricfit.h"

#include <QVector>

#include <gsl/gsl_rng.h>

// The included runs of a group as their staircases began, to run them again
// against a psychometric function. A repetition of the study would not visit
// the levels the tracks happened to visit, since every answer moves a track;
// running the program's own staircase again gives the bootstrap that spread.
class TrackReplay
{
public:
    // A run of the tracked quantity (0 frequency difference, 1 depth) whose
    // first trial had `startValue` (stored units, a fraction) and which ended
    // at its `numberOfReversals`th reversal.
    void add(int mainParameter, double startValue, int numberOfReversals);

    // Runs every track again with answers drawn from ψ(α, β, λ) by `rng` and
    // pools their trials by level (dB re the stored fraction).
    QVector<LevelCount> replicate(double alphaDb, double betaDb, double lapse, gsl_rng *rng) const;

private:
    struct Start {
        int mainParameter;
        double value;
        int numberOfReversals;
    };
    QVector<Start> m_starts;
};
