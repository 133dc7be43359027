// SPDX-License-Identifier: GPL-3.0-or-later
#include "psychometric.h"

#include <cmath>
#include <limits>

double Psychometric::probabilityCorrect(double levelDb, double alphaDb, double betaDb, double lapse)
{
    const double f = 1.0 / (1.0 + std::exp(-(levelDb - alphaDb) / betaDb));
    return guessRate + (1.0 - guessRate - lapse) * f;
}

double Psychometric::levelDbAt(double p, double alphaDb, double betaDb, double lapse)
{
    const double f = (p - guessRate) / (1.0 - guessRate - lapse);
    if (!(f > 0.0 && f < 1.0))
        return std::numeric_limits<double>::quiet_NaN();
    return alphaDb + betaDb * std::log(f / (1.0 - f));
}
