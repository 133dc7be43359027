// SPDX-License-Identifier: GPL-3.0-or-later
#include "trackreplay.h"

#include "procedure/staircase.h"
#include "psychometric.h"

#include <cmath>

namespace
{
// A track that has not ended after this many trials is cut off (the fitted
// function can make reversals rare); its trials still count.
constexpr int maxTrials = 1000;
} // namespace

void TrackReplay::add(int mainParameter, double startValue, int numberOfReversals)
{
    SessionParameters params;
    params.mainParameter = mainParameter;
    Staircase::resetStartValues(params);
    if (mainParameter == 0)
        params.frequencyDifference[1] = startValue;
    else
        params.modulationDepth[1] = startValue;
    params.numberOfReversals = numberOfReversals;
    params.reversalValues.fill(0.0, numberOfReversals);
    params.reversalCount = 0;
    params.trials.clear();
    m_starts.append(params);
}

QVector<LevelCount> TrackReplay::replicate(double alphaDb, double betaDb, double lapse,
                                           gsl_rng *rng) const
{
    QVector<LevelCount> levels;
    for (SessionParameters params : m_starts) {
        for (int trial = 0; trial < maxTrials; ++trial) {
            TrialRecord record;
            record.value = Staircase::trackedValue(params);
            const double levelDb = 20.0 * std::log10(record.value);
            record.correct = gsl_rng_uniform(rng) <
                             Psychometric::probabilityCorrect(levelDb, alphaDb, betaDb, lapse);
            LevelCount &level = PsychometricFit::level(levels, levelDb);
            ++level.trials;
            level.correct += record.correct;
            params.trials.append(record);
            if (Staircase::applyReversalRule(params))
                break;
            // The rule looks at the newest two answers only.
            if (params.trials.size() == 2)
                params.trials.removeFirst();
            Staircase::applyStep(params);
        }
    }
    return levels;
}
