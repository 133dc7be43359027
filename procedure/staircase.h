// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

class SessionParameters;

// The adaptive staircase as operations on the session record, shared by the
// experimenter window and by tools that run the same procedure without one.
//
// The tracked quantity follows params.mainParameter: 0 tracks the deviant's
// frequency difference frequencyDifference[1] (a fraction of the standard's
// carrier frequency, shown in Hz), 1 tracks the deviant's modulation depth
// modulationDepth[1] (a fraction, shown in percent); any other value tracks
// nothing. A run with these functions, one answer at a time:
//
//   params.trials.append(record);           // record.value = trackedValue(params)
//   if (Staircase::applyReversalRule(params))
//       Staircase::computeResults(params);   // run over: threshold, reactionTime
//   else
//       Staircase::applyStep(params);        // next trial uses the stepped value
//
// Before a run, reversalCount is 0 and reversalValues holds numberOfReversals zeros.
namespace Staircase
{

// Upper limits of the tracked values; there is no lower limit, so a positive
// value stays positive and 0 stays 0.
constexpr double maxFrequencyDifference = 0.9999;
constexpr double maxModulationDepth = 1.0;

// Start values of the tracked quantity for the current main parameter:
// frequency difference 5 % (deviant carrier 5 % below the standard's) or
// modulation depth 50 %. Other main parameters leave the record unchanged.
void resetStartValues(SessionParameters &params);

// The deviant's tracked value in stored units (the value a TrialRecord keeps):
// frequencyDifference[1], modulationDepth[1], or 0.0 when nothing is tracked.
double trackedValue(const SessionParameters &params);

// The deviant's tracked value in display units: the frequency difference in Hz
// (fraction × carrierFrequency[0]) or the modulation depth in percent; 0.0
// when nothing is tracked.
double displayValue(const SessionParameters &params);

// Size in dB of the step taken at the current reversalCount. Counts beyond the
// step table continue with its last entry (1 dB), so any numberOfReversals
// gets a step; a count below 0 takes the first entry.
int stepSize(const SessionParameters &params);

// Applies the reversal rule to the newest answer, the last record of
// params.trials: stepDirection becomes stepDown after a correct answer and
// stepUp after a wrong one; when there is an earlier record whose correctness
// differs, the newest record's value is stored as the next reversal value and
// reversalCount rises by 1. Returns true when the run is over, that is when
// reversalCount has reached numberOfReversals. With no records nothing changes.
bool applyReversalRule(SessionParameters &params);

// Moves the tracked value by stepDirection × stepSize(params) dB, then limits
// it to its maximum; a frequency difference also moves the deviant's carrier,
// carrierFrequency[1] = (1 − frequencyDifference[1]) × carrierFrequency[0].
void applyStep(SessionParameters &params);

// How many reversal values the threshold averages: the last
// reversalsToCalculate of those stored in the run, or all stored when fewer;
// 0 with none or with reversalsToCalculate below 1.
int averagedReversals(const SessionParameters &params);

// Threshold and mean reaction time of the finished run. threshold is the mean of
// the last reversalsToCalculate reversal values stored in the run (stored units);
// when fewer are stored it averages those there are, and with none, or with
// reversalsToCalculate below 1, it is 0. reactionTime is the mean reaction time
// over params.trials in ms, 0 without trials. Neither is ever nan or inf for
// finite inputs.
void computeResults(SessionParameters &params);

} // namespace Staircase
