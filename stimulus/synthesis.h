// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QVector>

class SessionParameters;

namespace Synthesis
{

// floor(rate × seconds) as a sample count. Counts that are not finite or below
// zero become 0 and counts beyond the int range become INT_MAX, so a count read
// from the panel can never index outside a vector or overflow.
int secondsToSamples(double rate, double seconds);

// Samples shown in the waveform chart of sound i: the display stretch, lowered
// to the sound's length.
int displaySampleCount(const SessionParameters &params, int i);

// Time axis in ms of the first n sample positions at the given rate.
QVector<double> timeAxis(int n, double rate);

// Sound i (0 standard, 1 deviant) from the record: carrier times sinusoidal
// envelope, optionally divided by 1 + depth. nSamples[i] of 0 or less gives an
// empty vector. A noise carrier draws one value per sample from RandomSource.
QVector<double> synthesise(const SessionParameters &params, int i);

// Scales standard to the RMS of deviant. When either RMS is zero or not finite
// (a silent or empty sound) the standard is left as it is: a ratio from it
// would only fill the standard with zeros or NaN.
void equaliseRms(QVector<double> &standard, const QVector<double> &deviant);

} // namespace Synthesis

// Root mean square of v; 0 for an empty vector.
double calculateRms(QVector<double> v);
