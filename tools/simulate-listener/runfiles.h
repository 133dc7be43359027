// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "runoutcome.h"

#include <QString>

#include <cstdint>

class SessionParameters;

// Simulated runs saved as the program saves a run: a results file and its
// sidecar, written by the program's own writers under the name the panel
// composes, so that tools reading a study can be checked against a listener
// whose psychometric function is known.
namespace RunFiles
{

// Saves run `index` (counted from 0) of a batch into `folder`. Runs are
// grouped into simulated participants of `runsPerSubject` runs each, coded
// SIM001, SIM002, ..., with test sessions 1, 2, ... and start times ten
// minutes apart from 2024-01-01 09:00 UTC, so the same batch gives the same
// files. Returns the name of a file that could not be written, else an
// empty string.
QString save(const QString &folder, const SessionParameters &start, const RunOutcome &outcome,
             int index, int runsPerSubject, std::uint64_t seed);

} // namespace RunFiles
