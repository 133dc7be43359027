// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "listener.h"
#include "runoutcome.h"
#include "simulationsettings.h"

#include <QVector>

#include <functional>
#include <random>

// Complete runs of the program's staircase against a simulated participant.
// Every decision about reversals, steps, limits and the threshold is taken by
// the staircase functions the experimenter window calls; this file only plays
// the part of the participant window and the trial sequencer.
namespace Simulation
{

// The session record as the experimenter window holds it after start-up with
// the given main parameter selected: panel defaults, the standard's carrier
// frequency, and the tracked quantity at its start value.
SessionParameters startRecord(int mainParameter, double carrierFrequency = 1000.0);

// The staircase's upper limit of the tracked quantity (stored units); infinity
// when nothing is tracked.
double upperLimit(const SessionParameters &params);

// The answer (the chosen sound) to a trial presenting the tracked value with
// the deviant at stimPosition.
using Responder = std::function<int(double value, int stimPosition)>;

// One run from the record `start`: the run state is cleared as "View" clears
// it, then trials follow until the staircase ends the run or maxTrials
// trials have been answered. The deviant's position is drawn from generator.
RunOutcome run(const SessionParameters &start, std::mt19937_64 &generator, const Responder &respond,
               int maxTrials);

// settings.runs runs of the listener, all drawn from one generator seeded
// with settings.seed, so the same settings give the same runs.
QVector<RunOutcome> runMany(const SimulationSettings &settings, const Listener &listener);

} // namespace Simulation
