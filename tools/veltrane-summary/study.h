// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "studygroup.h"

#include <QVector>

#include <cstdint>
#include <functional>

// The grouping of runs into subjects and conditions and what is computed per
// group.
namespace Study
{

// Groups the rows by subject and condition (sound type, main parameter,
// standard carrier, modulation frequency, standard depth and duration); a
// run without a sidecar is a group of its own. Groups come sorted by subject
// and condition, runs in acquisition order (by session number where a time
// is missing). `last` > 0 keeps only each group's last `last` included runs.
QVector<StudyGroup> group(const QVector<RunRow> &rows, int last);

// Half the width of the 95 % t interval of the values' mean; not a number
// for fewer than two values.
double halfWidth95(const QVector<double> &values);

// Threshold statistics in dB of the used runs (mean, SD, SE, t interval,
// geometric mean and median in the file's unit, last minus first).
void summarise(StudyGroup &group, const QVector<RunRow> &rows);

// The fit of the used runs' pooled trials; group i bootstraps from seed + i.
// `progress` is called after each group.
void fitAll(QVector<StudyGroup> &groups, const QVector<RunRow> &rows, const FitOptions &options,
            std::uint64_t seed, const std::function<void(int done)> &progress);

} // namespace Study
