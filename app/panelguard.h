// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <QVector>

class SessionParameters;

// Limits of the values a session can be made from. Below and above them the
// sample counts, the timer period or the sounds themselves stop making sense
// (or overflow), so View and Go refuse the panel instead of running with them.
namespace PanelGuard
{

constexpr double minSamplingRate = 8000.0;
constexpr double maxSamplingRate = 192000.0;
constexpr int minSamples = 2;
constexpr double maxDuration = 10.0;       // seconds
constexpr double maxSilentInterval = 60.0; // seconds
constexpr double maxFrequencyFraction = 0.9999;
constexpr int minReversals = 1;
constexpr int maxReversals = 100;

// One panel field that no session can be made from, named as the panel names
// it ("<row label>", or "<row label> Standard" / "<row label> Deviant" for the
// two columns), with the values it accepts in the panel's units.
struct Problem {
    QString field;
    QString accepted;
};

// Checks a record as the panel reader fills it (with the deviant's start values
// already reset when "Reset md/fd" is checked). Returns the offending fields in
// panel order; an empty list means the record can be used as it is.
QVector<Problem> check(const SessionParameters &p);

// The text of the refusal: one line per problem, "field: accepted".
QString describe(const QVector<Problem> &problems);

} // namespace PanelGuard
