// SPDX-License-Identifier: GPL-3.0-or-later
#include "listener.h"

#include "psychometric.h"

#include <cmath>

namespace
{
double decibels(double x)
{
    return 20.0 * std::log10(x);
}

// Uniform on [0, 1) from the top 53 bits of one draw, the same on every
// standard library, so that a seed repeats a simulation everywhere.
double uniform(std::mt19937_64 &generator)
{
    return static_cast<double>(generator() >> 11) * 0x1.0p-53;
}
} // namespace

Listener::Listener(Kind kind, double alphaDb, double betaDb, double lapse)
    : listenerKind(kind), alphaDb(alphaDb), betaDb(betaDb), lapseRate(lapse)
{
}

Listener Listener::logistic(double alphaDb, double betaDb, double lapse)
{
    return Listener(Kind::Logistic, alphaDb, betaDb, lapse);
}

Listener Listener::step(double switchDb)
{
    return Listener(Kind::Step, switchDb, 0.0, 0.0);
}

double Listener::probabilityCorrect(double x) const
{
    const double level = decibels(x);
    if (listenerKind == Kind::Logistic)
        return Psychometric::probabilityCorrect(level, alphaDb, betaDb, lapseRate);
    // A step listener is right above its switch, wrong at or below it, and
    // of unknown chance (NaN) at an unknown level, such as the mean of no runs.
    return std::isnan(level) ? level : level > alphaDb ? 1.0 : 0.0;
}

double Listener::levelDbAt(double p) const
{
    if (listenerKind == Kind::Step)
        return alphaDb;
    return Psychometric::levelDbAt(p, alphaDb, betaDb, lapseRate);
}

int Listener::respond(double x, int stimPosition, std::mt19937_64 &generator) const
{
    const double p = probabilityCorrect(x);
    bool correct = p >= 1.0;
    if (p > 0.0 && p < 1.0)
        correct = uniform(generator) < p;
    const int other = stimPosition == 2 ? 3 : 2;
    return correct ? stimPosition : other;
}
