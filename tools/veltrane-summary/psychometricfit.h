// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QVector>

#include <cstdint>

class TrackReplay;

// The trials of one level pooled: how many were answered and how many right.
struct LevelCount {
    double levelDb = 0.0;
    int trials = 0;
    int correct = 0;
};

struct FitOptions {
    double lapse = 0.02;    // the fixed lapse rate, or the start of a free one
    bool freeLapse = false; // fitted within [0, maxLapse]
    int bootstrap = 1000;   // parametric bootstrap replicates
    static constexpr double maxLapse = 0.06;
    static constexpr int minTrials = 100;
};

// A maximum-likelihood fit of the task's psychometric function with its
// 95 % intervals from a parametric bootstrap that re-runs the tracks (the
// 1.7th and 98.3rd percentiles of the replicates). Values that are not
// available are NaN.
struct FitResult {
    int trials = 0;
    bool fitted = false; // false with fewer than FitOptions::minTrials trials or no convergence
    double alpha, alphaLow, alphaHigh;
    double beta, betaLow, betaHigh;
    double lapse;
    double x66, x66Low, x66High; // level at 66.7 % correct, the point the track aims at
    double x75;
    int bootstrapFailed = 0; // replicates whose fit did not converge
    double deviance;
    double devianceP; // share of replicates with a deviance at least as large (Monte Carlo)
};

namespace PsychometricFit
{

// The entry of `levelDb` in `levels`, trials pooled by level and sorted by
// it, added with no trials when missing. Levels within 1e-6 dB are one.
LevelCount &level(QVector<LevelCount> &levels, double levelDb);

// Fits ψ(x) = 0.5 + (0.5 − λ)·F((x − α)/β) by maximum likelihood (GSL's
// BFGS minimiser with the analytic gradient) to `levels`, the trials of
// `tracks` pooled, and bootstraps it: each replicate runs the tracks again
// under the fitted function and is refitted. GSL's generator, seeded by
// `seed`, draws the answers, so a seed repeats the result exactly.
FitResult fit(const QVector<LevelCount> &levels, const TrackReplay &tracks,
              const FitOptions &options, std::uint64_t seed);

} // namespace PsychometricFit
