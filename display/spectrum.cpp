// SPDX-License-Identifier: GPL-3.0-or-later
#include "spectrum.h"

#include "FFTReal/fftreal.h"

#include <algorithm>
#include <cmath>
#include <vector>

int Spectrum::transformLength(int n)
{
    int length = 1;
    while (length < n && length < maximumLength)
        length *= 2;
    return length;
}

int Spectrum::drawnBinCount(double maxFrequency, double fftDuration, int binCount)
{
    const double bins = maxFrequency * fftDuration;
    if (std::isnan(bins) || bins <= 0.0)
        return 0;
    if (bins >= binCount)
        return std::max(0, binCount);
    return static_cast<int>(bins);
}

void Spectrum::binFrequencies(QVector<double> &frequency, int count, double resolution)
{
    const int n = std::min(count, frequency.size());
    for (int k = 0; k < n; ++k)
        frequency[k] = k * resolution;
}

void Spectrum::amplitudeSpectrum(const QVector<double> &sound, int length, int sampleCount,
                                 QVector<double> &amplitude)
{
    const int half = length / 2;
    const int bins = std::min(half, amplitude.size());
    const int divisor = sampleCount / 2;
    if (divisor == 0) {
        std::fill(amplitude.begin(), amplitude.begin() + std::max(0, bins), 0.0);
        return;
    }

    std::vector<double> x(length, 0.0);
    std::copy_n(sound.constBegin(), std::min(sound.size(), length), x.begin());
    std::vector<double> f(length);
    FFTReal<double> transform(length);
    transform.forward_transform(f.data(), x.data());

    // Packed layout: f[k] is Re X(k) for k up to N/2, f[N/2 + k] is -Im X(k)
    // for k from 1 to N/2 - 1. Bin 0 is real; f[N/2] belongs to bin N/2.
    const double d = static_cast<double>(divisor);
    for (int k = 0; k < bins; ++k) {
        const double re = f[k];
        const double im = k == 0 ? 0.0 : -f[half + k];
        amplitude[k] = std::sqrt(re * re + im * im) / d;
    }
}
