// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QVector>

// Descriptive statistics of a sample of run results, shared by the tools.
namespace Statistics
{

double mean(const QVector<double> &values);

// Sample standard deviation (divisor n − 1); 0 for fewer than two values.
double standardDeviation(const QVector<double> &values);

// The p-th percentile (0 to 100), interpolating linearly between the two
// nearest order statistics (rank p/100 · (n − 1) counted from 0), as most
// statistics packages do by default. NaN for an empty sample.
double percentile(QVector<double> values, double p);

} // namespace Statistics
