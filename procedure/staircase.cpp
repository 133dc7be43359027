// SPDX-License-Identifier: GPL-3.0-or-later
#include "staircase.h"

#include "../app/sessionparameters.h"

#include <QtGlobal>

#include <cmath>

void Staircase::resetStartValues(SessionParameters &params)
{
    if (params.mainParameter == 0) {
        params.modulationDepth[1] = 0.0;
        params.frequencyDifference[1] = 0.05;
        params.carrierFrequency[1] = params.carrierFrequency[0] * (1 - 0.05);
    } else if (params.mainParameter == 1) {
        params.modulationDepth[1] = 0.5;
        params.frequencyDifference[1] = 0.0;
        params.carrierFrequency[1] = params.carrierFrequency[0];
    }
}

double Staircase::trackedValue(const SessionParameters &params)
{
    if (params.mainParameter == 0)
        return params.frequencyDifference[1];
    if (params.mainParameter == 1)
        return params.modulationDepth[1];
    return 0.0;
}

double Staircase::displayValue(const SessionParameters &params)
{
    if (params.mainParameter == 0)
        return params.frequencyDifference[1] * params.carrierFrequency[0];
    if (params.mainParameter == 1)
        return 100 * params.modulationDepth[1];
    return 0.0;
}

int Staircase::stepSize(const SessionParameters &params)
{
    // The table is fixed at construction and never empty; the bound keeps a
    // reversal count outside it on its first or last entry.
    const int last = params.stepSizes.size() - 1;
    return params.stepSizes[qBound(0, params.reversalCount, last)];
}

bool Staircase::applyReversalRule(SessionParameters &params)
{
    const int n = params.trials.size();
    if (n > 0) {
        const TrialRecord &newest = params.trials[n - 1];
        params.stepDirection = newest.correct ? params.stepDown : params.stepUp;
        if (n >= 2 && newest.correct != params.trials[n - 2].correct) {
            // reversalValues is sized to numberOfReversals when a run is
            // prepared; a record that was not grows with the reversals
            // rather than being written past its end.
            if (params.reversalCount < params.reversalValues.size())
                params.reversalValues[params.reversalCount] = newest.value;
            else
                params.reversalValues.append(newest.value);
            ++params.reversalCount;
        }
    }
    return params.reversalCount >= params.numberOfReversals;
}

void Staircase::applyStep(SessionParameters &params)
{
    const int decibels = params.stepDirection * stepSize(params);
    const double factor = std::pow(10.0, decibels / 20.0);
    if (params.mainParameter == 0) {
        params.frequencyDifference[1] =
            qMin(params.frequencyDifference[1] * factor, maxFrequencyDifference);
        params.carrierFrequency[1] =
            (1 - params.frequencyDifference[1]) * params.carrierFrequency[0];
    } else if (params.mainParameter == 1) {
        params.modulationDepth[1] = qMin(params.modulationDepth[1] * factor, maxModulationDepth);
    }
}

int Staircase::averagedReversals(const SessionParameters &params)
{
    // In a finished run reversalCount equals numberOfReversals, so the averaged
    // values are the last reversalsToCalculate of reversalValues. Counting only
    // the values this run stored keeps an early call or an odd setting from
    // averaging nothing or reading past the stored values.
    const int stored = qBound(0, params.reversalCount, params.reversalValues.size());
    return qBound(0, params.reversalsToCalculate, stored);
}

void Staircase::computeResults(SessionParameters &params)
{
    const int stored = qBound(0, params.reversalCount, params.reversalValues.size());
    const int count = averagedReversals(params);
    double sum = 0.0;
    for (int i = stored - count; i < stored; ++i)
        sum += params.reversalValues[i];
    params.threshold = count > 0 ? sum / count : 0.0;

    double totalTime = 0.0;
    for (const TrialRecord &record : params.trials)
        totalTime += record.reactionTime;
    params.reactionTime = params.trials.isEmpty() ? 0.0 : totalTime / params.trials.size();
}
