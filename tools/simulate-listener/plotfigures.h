// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "figure.h"
#include "listener.h"
#include "runoutcome.h"

#include <QVector>

class SessionParameters;

// What the simulator's picture shows, as figures to draw side by side: on the
// left the histogram of the finished runs' thresholds in dB, about √n equal
// bins (10 to 40) as a filled outline, with the mean and the listener's target
// point as dashed vertical lines; on the right the track of the first run in
// dB with its right and wrong answers and, when it finished, its threshold
// (no points when there are no runs).
namespace PlotFigures
{

QVector<Figure> of(const SessionParameters &start, const Listener &listener,
                   const QVector<RunOutcome> &outcomes);

} // namespace PlotFigures
