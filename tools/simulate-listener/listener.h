// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <random>

// A simulated participant in the four-interval, two-alternative task. Its
// chance of choosing the deviant depends on the tracked value x (stored units)
// through x in decibels, 20·log10 x:
// - logistic: p(x) = 0.5 + (0.5 − lapse) · F((dB(x) − alpha) / beta), with
//   the logistic F(z) = 1 / (1 + e^−z); alpha is the threshold in dB, beta the
//   slope in dB, lapse the share of trials answered at random on top of chance;
// - step: always right when x lies above alpha in dB, always wrong at or below.
class Listener
{
public:
    enum class Kind { Logistic, Step };

    static Listener logistic(double alphaDb, double betaDb, double lapse);
    static Listener step(double switchDb);

    Kind kind() const { return listenerKind; }
    double alpha() const { return alphaDb; }
    double beta() const { return betaDb; }
    double lapse() const { return lapseRate; }

    // Probability of a correct answer at the tracked value x (NaN when x is).
    double probabilityCorrect(double x) const;

    // The tracked value in dB at which the listener is right with probability
    // p (logistic only; p must lie strictly between 0.5 and 1 − lapse). NaN
    // when p is out of reach.
    double levelDbAt(double p) const;

    // The sound the listener chooses (2 or 3) in a trial whose deviant is at
    // stimPosition and whose tracked value is x. Draws from the generator
    // only when the answer is not certain.
    int respond(double x, int stimPosition, std::mt19937_64 &generator) const;

private:
    Listener(Kind kind, double alphaDb, double betaDb, double lapse);

    Kind listenerKind;
    double alphaDb;
    double betaDb;
    double lapseRate;
};
