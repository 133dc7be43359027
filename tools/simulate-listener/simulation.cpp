// SPDX-License-Identifier: GPL-3.0-or-later
#include "simulation.h"

#include "procedure/staircase.h"

#include <limits>

SessionParameters Simulation::startRecord(int mainParameter, double carrierFrequency)
{
    SessionParameters params;
    params.mainParameter = mainParameter;
    params.soundType = mainParameter == 0 ? 0 : 1;
    params.carrierFrequency[0] = carrierFrequency;
    params.carrierFrequency[1] = carrierFrequency;
    Staircase::resetStartValues(params);
    return params;
}

double Simulation::upperLimit(const SessionParameters &params)
{
    if (params.mainParameter == 0)
        return Staircase::maxFrequencyDifference;
    if (params.mainParameter == 1)
        return Staircase::maxModulationDepth;
    return std::numeric_limits<double>::infinity();
}

RunOutcome Simulation::run(const SessionParameters &start, std::mt19937_64 &generator,
                           const Responder &respond, int maxTrials)
{
    SessionParameters params = start;
    params.reversalValues.fill(0.0, params.numberOfReversals);
    params.reversalCount = 0;
    params.trials.clear();
    params.stimPosition = 0;
    params.threshold = 0.0;
    params.reactionTime = 0.0;

    RunOutcome outcome;
    const double limit = upperLimit(params);
    while (params.trials.size() < maxTrials) {
        params.stimPosition = (generator() >> 63) ? 3 : 2;

        TrialRecord record;
        record.value = Staircase::trackedValue(params);
        record.stimPosition = params.stimPosition;
        record.responsePosition = respond(record.value, params.stimPosition);
        record.correct = record.responsePosition == params.stimPosition;
        params.trials.append(record);
        if (record.value >= limit)
            outcome.reachedUpperLimit = true;

        if (Staircase::applyReversalRule(params)) {
            Staircase::computeResults(params);
            outcome.finished = true;
            break;
        }
        Staircase::applyStep(params);
    }

    outcome.trials = params.trials;
    outcome.reversalValues = params.reversalValues.mid(0, params.reversalCount);
    outcome.threshold =
        outcome.finished ? params.threshold : std::numeric_limits<double>::quiet_NaN();
    return outcome;
}

QVector<RunOutcome> Simulation::runMany(const SimulationSettings &settings,
                                        const Listener &listener)
{
    std::mt19937_64 generator(settings.seed);
    const Responder respond = [&](double value, int stimPosition) {
        return listener.respond(value, stimPosition, generator);
    };
    QVector<RunOutcome> outcomes;
    outcomes.reserve(settings.runs);
    for (int i = 0; i < settings.runs; ++i)
        outcomes.append(run(settings.start, generator, respond, settings.maxTrials));
    return outcomes;
}
