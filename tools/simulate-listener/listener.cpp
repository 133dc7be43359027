// SPDX-License-Identifier: GPL-3.0-or-later
#include "listener.h"

#include <cmath>
#include <limits>

namespace
{
constexpr double guessRate = 0.5;

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
    if (listenerKind == Kind::Step)
        return level > alphaDb ? 1.0 : 0.0;
    const double f = 1.0 / (1.0 + std::exp(-(level - alphaDb) / betaDb));
    return guessRate + (1.0 - guessRate - lapseRate) * f;
}

double Listener::levelDbAt(double p) const
{
    if (listenerKind == Kind::Step)
        return alphaDb;
    const double f = (p - guessRate) / (1.0 - guessRate - lapseRate);
    if (!(f > 0.0 && f < 1.0))
        return std::numeric_limits<double>::quiet_NaN();
    return alphaDb + betaDb * std::log(f / (1.0 - f));
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
