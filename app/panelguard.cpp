// SPDX-License-Identifier: GPL-3.0-or-later
#include "panelguard.h"

#include "../stimulus/synthesis.h"
#include "sessionparameters.h"

#include <QStringList>

#include <cmath>

namespace
{

const char *const column[2] = {" Standard", " Deviant"};

QString number(double value)
{
    return QString::number(value, 'g', 6);
}

// Every comparison is written so that a NaN fails it: a text such as "nan" or
// "inf" converts to a non-finite number, which no range accepts.
bool within(double value, double low, double high)
{
    return value >= low && value <= high;
}

// Shortest duration in ms, rounded up to the panel's hundredths, that gives at
// least minSamples samples at the rate.
double shortestDurationMs(double rate)
{
    double ms = std::ceil(100.0 * 1000.0 * PanelGuard::minSamples / rate) / 100.0;
    if (Synthesis::secondsToSamples(rate, ms / 1000.0) < PanelGuard::minSamples)
        ms += 0.01;
    return ms;
}

} // namespace

QVector<PanelGuard::Problem> PanelGuard::check(const SessionParameters &p)
{
    QVector<Problem> problems;
    auto refuse = [&problems](const QString &field, const QString &accepted) {
        problems.append({field, accepted});
    };

    // Frequencies are judged against half the sampling rate only when the rate
    // itself is usable; otherwise every frequency would be reported with it.
    const bool rateUsable = within(p.samplingRate, minSamplingRate, maxSamplingRate);
    const double nyquist = p.samplingRate / 2;
    auto frequencyUsable = [&](double f, double low, bool lowIncluded) {
        const bool aboveLow = lowIncluded ? f >= low : f > low;
        return aboveLow && (rateUsable ? f < nyquist : std::isfinite(f));
    };
    const QString belowNyquist =
        rateUsable ? QString("below %1 Hz (half the sampling rate)").arg(number(nyquist))
                   : QString("below half the sampling rate");

    const bool trackingFrequency = p.mainParameter == 0;
    const double cf0 = p.carrierFrequency[0];
    // The reset derives the deviant carrier from the standard's, so a deviant
    // carrier it set is wrong only when the standard's is, and is reported there.
    const int carriersToCheck = p.resetMdFd ? 1 : 2;
    for (int i = 0; i < carriersToCheck; ++i) {
        const bool standardCarrierOfTrack = i == 0 && trackingFrequency;
        if (!frequencyUsable(p.carrierFrequency[i], 0.0, !standardCarrierOfTrack)) {
            refuse(QString("Carrier frequency (Hz)") + column[i],
                   standardCarrierOfTrack
                       ? QString("above 0 Hz and %1 while the main parameter is carrier frequency")
                             .arg(belowNyquist)
                       : QString("0 Hz or more and %1").arg(belowNyquist));
        }
    }
    for (int i = 0; i < 2; ++i) {
        if (!frequencyUsable(p.modulationFrequency[i], 0.0, true))
            refuse(QString("Modulation frequency (Hz)") + column[i],
                   QString("0 Hz or more and %1").arg(belowNyquist));
    }
    for (int i = 0; i < 2; ++i) {
        if (!within(p.modulationDepth[i], 0.0, 1.0))
            refuse(QString("Modulation depth (%)") + column[i], "0 to 100 %");
    }
    // A frequency difference is a fraction of the standard carrier; with an
    // unusable carrier the fraction means nothing and only the carrier is
    // reported. Only the deviant's difference is checked: the Standard column's
    // is read and kept, but nothing uses it.
    if (std::isfinite(cf0) && cf0 >= 0 &&
        !within(p.frequencyDifference[1], 0.0, maxFrequencyFraction))
        refuse(QString("Frequency difference (Hz)") + column[1],
               QString("0 to %1 Hz (%2 times the standard carrier frequency)")
                   .arg(number(maxFrequencyFraction * cf0), number(maxFrequencyFraction)));
    for (int i = 0; i < 2; ++i) {
        const double d = p.duration[i];
        const bool usable =
            rateUsable
                ? d <= maxDuration && Synthesis::secondsToSamples(p.samplingRate, d) >= minSamples
                : d > 0 && d <= maxDuration;
        if (!usable) {
            const QString shortest =
                rateUsable
                    ? QString("%1 samples (%2 ms at %3 Hz)")
                          .arg(minSamples)
                          .arg(number(shortestDurationMs(p.samplingRate)), number(p.samplingRate))
                    : QString("%1 samples at the sampling rate").arg(minSamples);
            refuse(QString("Duration (ms)") + column[i],
                   QString("from %1 to %2 ms").arg(shortest, number(1000 * maxDuration)));
        }
    }
    const bool reversalsUsable =
        p.numberOfReversals >= minReversals && p.numberOfReversals <= maxReversals;
    if (!reversalsUsable)
        refuse("Number of reversals", QString("%1 to %2").arg(minReversals).arg(maxReversals));
    // A count above the number of reversals has already been lowered to it; a
    // count below 1 would average nothing. With an unusable number of reversals
    // the lowered count is not what was typed, so it is checked only once the
    // number of reversals is usable.
    if (reversalsUsable && p.reversalsToCalculate < 1)
        refuse("Reversals to calculate",
               "1 or more (a value above the number of reversals is lowered to it)");
    if (!within(p.silentInterval, 0.0, maxSilentInterval))
        refuse("Silent interval (ms)", QString("0 to %1 ms").arg(number(1000 * maxSilentInterval)));
    if (!rateUsable)
        refuse("Sampling rate", QString("%1 to %2 samples per second")
                                    .arg(number(minSamplingRate), number(maxSamplingRate)));
    return problems;
}

QString PanelGuard::describe(const QVector<Problem> &problems)
{
    QStringList lines;
    for (const Problem &problem : problems)
        lines.append(problem.field + ": " + problem.accepted);
    return "No session can be made from these values. Accepted values:\n\n" + lines.join('\n');
}
