// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "psychometricfit.h"
#include "runrow.h"

#include <QString>
#include <QVector>

// One subject in one condition: its runs in acquisition order, the included
// runs the statistics use, their thresholds summarised in dB and the fit of
// their pooled trials. Values that are not available are NaN.
struct StudyGroup {
    QString subject;
    int first = 0;     // a run of the group, whose condition columns stand for all
    QVector<int> runs; // indices of the rows, in acquisition order
    QVector<int> used; // the included runs summarised (the last --last of them)
    double meanDb = 0.0;
    double sdDb = 0.0;
    double seDb = 0.0;
    double ciLowDb = 0.0;
    double ciHighDb = 0.0;
    double geometricMean = 0.0; // file's unit
    double median = 0.0;        // file's unit
    double firstToLastDb = 0.0;
    QVector<double> outputVolumes; // the used runs' known output volumes (%), each once, ascending
    FitResult fit;
};
