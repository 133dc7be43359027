// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// The psychometric function of the four-interval, two-alternative task,
// shared by the simulated listener and the fit of measured runs:
// ψ(x) = 0.5 + (0.5 − lapse) · F((x − alpha) / beta), x the tracked value in
// dB re the stored fraction, F the logistic function 1 / (1 + e^−z), alpha
// the threshold and beta the slope in dB, lapse the share of trials answered
// at random on top of chance.
namespace Psychometric
{

constexpr double guessRate = 0.5;

double probabilityCorrect(double levelDb, double alphaDb, double betaDb, double lapse);

// The level in dB at which the probability of a correct answer is p; NaN when
// p does not lie strictly between 0.5 and 1 − lapse.
double levelDbAt(double p, double alphaDb, double betaDb, double lapse);

} // namespace Psychometric
