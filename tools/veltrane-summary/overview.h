// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "runrow.h"
#include "studygroup.h"

#include <QPair>
#include <QString>
#include <QVector>

// The whole study at a glance: per condition each subject's mean threshold
// with its interval and the mean over subjects, and what became of the runs.
struct Overview {
    struct Condition {
        QString label;         // what the condition is, as the report names it
        QVector<int> groups;   // one per subject, in the groups' order
        int subjects = 0;      // subjects with a mean threshold
        double meanDb = 0.0;   // mean of the subjects' mean thresholds; NaN without one
        double ciLowDb = 0.0;  // its 95 % interval (t distribution over subjects);
        double ciHighDb = 0.0; // NaN with fewer than two subjects
    };
    QVector<Condition> conditions; // sorted by label
    int read = 0;                  // results files found, usable or not
    int unusable = 0;              // results files left out of every table
    int included = 0;              // runs that enter the means and the fits
    // Runs left out for each reason, in the order the reasons first occur; a
    // run with several reasons counts under each.
    QVector<QPair<QString, int>> excluded;

    static Overview of(const QVector<StudyGroup> &groups, const QVector<RunRow> &rows,
                       int unusable);
};

// The condition of a run in words: sound type, main parameter, then the
// standard's carrier (not for a noise), modulation frequency, depth and
// duration, or the file for a run without a sidecar.
QString conditionLabel(const RunRow &row);
