// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "figure.h"
#include "runrow.h"
#include "studygroup.h"

#include <QSizeF>
#include <QString>
#include <QVector>

// A page of the report as data: its title, a line of figures, and its charts
// with their places on the page. The study page comes first (each subject's
// mean threshold per condition, and what became of the runs), then a page per
// subject and condition with the tracks, the thresholds in run order and the
// pooled proportion correct with the fitted function.
struct ReportPage {
    QString subject;   // empty on the study page
    QString condition; // the condition's label; empty on the study page
    QString title;
    QString note; // the group's figures under the title, or the runs' account at the foot
    QRectF noteArea;
    QVector<Figure> figures;

    // A page in pixels at 96 dots per inch: A4 landscape.
    static QSizeF size() { return QSizeF(1123, 794); }
    // The study page, then one page per group. `unusable` is the number of
    // results files left out of every table.
    static QVector<ReportPage> all(const QVector<StudyGroup> &groups, const QVector<RunRow> &rows,
                                   int unusable);
};
