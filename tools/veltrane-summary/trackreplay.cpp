// SPDX-License-Identifier: GPL-3.0-or-later
#include "trackreplay.h"

#include "procedure/staircase.h"
#include "psychometric.h"

#include <algorithm>
#include <cmath>

namespace
{
// A track that has not ended after this many trials is cut off (the fitted
// function can make reversals rare); its trials still count.
constexpr int maxTrials = 1000;

// The trials of one tracked value, with the chance of a right answer there.
struct Visited {
    double value;
    double p;
    int trials;
    int correct;
};
} // namespace

void TrackReplay::add(int mainParameter, double startValue, int numberOfReversals)
{
    m_starts.append({mainParameter, startValue, numberOfReversals});
}

QVector<LevelCount> TrackReplay::replicate(double alphaDb, double betaDb, double lapse,
                                           gsl_rng *rng) const
{
    // One record serves every track: resetting what the staircase changes
    // keeps its vectors allocated, and a bootstrap runs tens of thousands of
    // tracks.
    SessionParameters params;
    QVector<Visited> visited; // sorted by value; the tracks return to the same few values
    for (const Start &start : m_starts) {
        params.mainParameter = start.mainParameter;
        if (start.mainParameter == 0)
            params.frequencyDifference[1] = start.value;
        else
            params.modulationDepth[1] = start.value;
        params.numberOfReversals = start.numberOfReversals;
        params.reversalValues.fill(0.0, start.numberOfReversals);
        params.reversalCount = 0;
        params.trials.clear();
        for (int trial = 0; trial < maxTrials; ++trial) {
            TrialRecord record;
            record.value = Staircase::trackedValue(params);
            const auto at = std::lower_bound(
                visited.begin(), visited.end(), record.value,
                [](const Visited &v, double value) { return v.value < value * (1 - 1e-7); });
            Visited &here =
                at != visited.end() && at->value < record.value * (1 + 1e-7)
                    ? *at
                    : *visited.insert(
                          at, {record.value,
                               Psychometric::probabilityCorrect(20.0 * std::log10(record.value),
                                                                alphaDb, betaDb, lapse),
                               0, 0});
            record.correct = gsl_rng_uniform(rng) < here.p;
            ++here.trials;
            here.correct += record.correct;
            params.trials.append(record);
            if (Staircase::applyReversalRule(params))
                break;
            // The rule looks at the newest two answers only.
            if (params.trials.size() == 2)
                params.trials.removeFirst();
            Staircase::applyStep(params);
        }
    }
    QVector<LevelCount> levels;
    for (const Visited &v : visited) {
        LevelCount &level = PsychometricFit::level(levels, 20.0 * std::log10(v.value));
        level.trials += v.trials;
        level.correct += v.correct;
    }
    return levels;
}
