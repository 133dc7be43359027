// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "runrow.h"

#include <QString>
#include <QStringList>

#include <limits>

// Which runs count: the reasons a user may take away, and the stability limit.
struct RunRules {
    bool includePractice = false;
    bool includeFaulty = false;
    double maxReversalSdDb = std::numeric_limits<double>::infinity();
};

// What became of one file found under the paths.
struct RunReading {
    enum class Kind { NotResults, Usable, LeftOut };
    Kind kind = Kind::NotResults;
    RunRow row;    // when usable
    QString where; // when left out: the file at fault (the results file or its sidecar)
    int line = 0;  // its line, 0 for the file as a whole
    QString reason;
};

// Finding results files and reading each with its sidecar.
namespace RunReader
{

// Every .txt file of the paths: a file as it is, a folder searched
// recursively; sorted, each once (a file found under two paths too). Paths
// that do not exist go into `missing`.
QStringList candidates(const QStringList &paths, QStringList &missing);

// Reads a results file and its sidecar, recomputes the threshold with the
// program's staircase (the sidecar's reversal settings, or the panel's
// defaults without one) and decides whether the run counts.
RunReading read(const QString &path, const RunRules &rules);

} // namespace RunReader
