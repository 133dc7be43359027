// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QVector>

// Amplitude spectra of the sounds: the transform length fixed at start-up, the
// number of bins a chart draws, and the one-sided amplitude spectrum of one
// sound through the program's own real FFT.
namespace Spectrum
{

// Largest transform the FFT accepts: 2^30.
constexpr int maximumLength = 1 << 30;

// Smallest power of two not less than n, the value 2^ceil(log2 n), computed on
// integers so that an exact power of two is never doubled by rounding. Counts
// below 1 give 1 and counts above 2^30 give 2^30, so the result is always a
// length the FFT accepts.
int transformLength(int n);

// Bins from 0 Hz up to just below maxFrequency: maxFrequency × fftDuration
// truncated, limited to 0 … binCount. A product that is not a number gives 0,
// an infinite one binCount, so a chart never draws past the computed bins.
int drawnBinCount(double maxFrequency, double fftDuration, int binCount);

// Writes k × resolution into frequency[k] for k below count (and below the
// vector's size).
void binFrequencies(QVector<double> &frequency, int count, double resolution);

// Amplitude spectrum of sound through a real FFT of the given length (a power
// of two from transformLength): the sound is zero-padded, or cut to its first
// `length` samples, with no window. Bin k, for k below length / 2 (and below
// the size of amplitude), becomes |X(k)| / (sampleCount / 2), truncated, so a
// full-scale sinusoid of sampleCount samples reads about 1 at its frequency.
// sampleCount is the session's sample count of the sound, which differs from
// the vector's length when the panel changed the duration after the sound was
// built. Bin length / 2 is not written.
//
// A count below 2 has no such divisor (sampleCount / 2 is 0); the bins are
// then all set to 0 so that nothing downstream meets a NaN or an infinity.
void amplitudeSpectrum(const QVector<double> &sound, int length, int sampleCount,
                       QVector<double> &amplitude);

} // namespace Spectrum
