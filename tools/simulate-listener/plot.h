// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "listener.h"
#include "runoutcome.h"
#include "simulationsummary.h"

#include <QString>
#include <QVector>

class SessionParameters;

// The PNG picture of a simulation: on the left the histogram of the runs'
// thresholds in dB with the mean and the listener's target point, on the right
// the track of the first run with its right and wrong answers. Needs a
// QApplication (any platform, offscreen included).
namespace Plot
{

// Writes the picture to path; false when the file cannot be written.
bool writePng(const QString &path, const SessionParameters &start, const Listener &listener,
              const QVector<RunOutcome> &outcomes, const SimulationSummary &summary);

} // namespace Plot
