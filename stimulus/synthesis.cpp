// SPDX-License-Identifier: GPL-3.0-or-later
#include "synthesis.h"

#include "../app/sessionparameters.h"

#include <climits>
#include <cmath>

#include "randomsource.h"

namespace
{
const double twoPi = 6.283185307179586;
const double noiseDivisor = 32767.0;
} // namespace

int Synthesis::secondsToSamples(double rate, double seconds)
{
    const double samples = std::floor(rate * seconds);
    if (!std::isfinite(samples) || samples <= 0.0)
        return 0;
    if (samples >= static_cast<double>(INT_MAX))
        return INT_MAX;
    return static_cast<int>(samples);
}

int Synthesis::displaySampleCount(const SessionParameters &params, int i)
{
    const int d = secondsToSamples(params.samplingRate, params.displayDuration[i]);
    return qMax(0, qMin(d, params.nSamples[i]));
}

QVector<double> Synthesis::timeAxis(int n, double rate)
{
    QVector<double> time(qMax(0, n), 0.0);
    for (int j = 0; j < time.size(); ++j)
        time[j] = (j / rate) * 1000.0;
    return time;
}

QVector<double> Synthesis::synthesise(const SessionParameters &params, int i)
{
    QVector<double> sound(qMax(0, params.nSamples[i]), 0.0);
    const double fs = params.samplingRate;
    const double fc = params.carrierFrequency[i];
    const double fm = params.modulationFrequency[i];
    const double m = params.modulationDepth[i];
    const double a = params.amplitude[i];
    for (int j = 0; j < sound.size(); ++j) {
        const double t = static_cast<double>(j);
        double c;
        if (params.soundType == 0) {
            c = std::sin(t * (fc * twoPi) / fs + params.carrierPhase[i]);
        } else {
            const double y = RandomSource::next() / noiseDivisor;
            c = y + y - 1.0;
        }
        const double u = std::cos(t * (fm * twoPi) / fs + params.modulationPhase[i]);
        const double e = (m * u + 1.0) * a;
        double x = e * c;
        if (params.normaliseModulation)
            x = (1.0 / (m + 1.0)) * x;
        sound[j] = x;
    }
    return sound;
}

void Synthesis::equaliseRms(QVector<double> &standard, const QVector<double> &deviant)
{
    const double rmsStandard = calculateRms(standard);
    const double rmsDeviant = calculateRms(deviant);
    if (!(rmsStandard > 0.0) || !std::isfinite(rmsStandard) || !(rmsDeviant > 0.0) ||
        !std::isfinite(rmsDeviant))
        return;
    const double r = rmsDeviant / rmsStandard;
    for (double &x : standard)
        x *= r;
}

double calculateRms(QVector<double> v)
{
    if (v.isEmpty())
        return 0.0;
    double s = 0.0;
    for (double x : v)
        s += x * x;
    return std::sqrt(s / static_cast<double>(v.size()));
}
