// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "figure.h"
#include "overview.h"
#include "runrow.h"
#include "studygroup.h"

#include <QRect>
#include <QString>
#include <QVector>

// A page of the report as data: its title, a line of figures, and its charts
// with their cells in the page's grid. The study page comes first (each subject's
// mean threshold per condition, and what became of the runs), then a page per
// subject and condition with the tracks, the thresholds in run order and the
// pooled proportion correct with the fitted function.
struct ReportPage {
    QString subject;   // empty on the study page
    QString condition; // the condition's label; empty on the study page
    QString title;
    QString note;           // the group's figures under the title, or the runs' account
    bool noteBelow = false; // the note under the figures rather than above
    QVector<Figure> figures;
    // Each figure's cell in the page's grid: column, row, and the columns and
    // rows it spans.
    QVector<QRect> cells;

    // The study page, then one page per group.
    static QVector<ReportPage> all(const Overview &o, const QVector<StudyGroup> &groups,
                                   const QVector<RunRow> &rows);
};
