// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "listener.h"
#include "runoutcome.h"
#include "simulationsummary.h"

#include <QJsonObject>
#include <QString>
#include <QVector>

#include <cstdint>

class SessionParameters;

// Text forms of a simulation: the table for the terminal and the
// tab-separated file with one line per run. Thresholds are shown in the unit
// the experimenter window shows them in (% or Hz) and in dB re the stored
// fraction.
namespace Report
{

// Factor from stored units to shown units: 100 for modulation depth, the
// standard's carrier frequency for the frequency difference.
double displayFactor(const SessionParameters &params);
QString unitName(const SessionParameters &params);
QString quantityName(const SessionParameters &params);

QString table(const SessionParameters &start, const Listener &listener,
              const SimulationSummary &summary, std::uint64_t seed, int maxTrials);

// One line per run under a header line, and what each column holds (the
// JSON written beside the table).
QString tabSeparated(const SessionParameters &start, const QVector<RunOutcome> &outcomes);
QJsonObject tableDescription(const SessionParameters &start);

} // namespace Report
