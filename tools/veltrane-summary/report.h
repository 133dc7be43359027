// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "runrow.h"
#include "studygroup.h"

#include <QString>
#include <QVector>

#include <functional>

// The report: a page for the whole study (each subject's mean threshold per
// condition, and what became of the runs), then one page per subject and
// condition with the tracks, the thresholds in run order and the pooled
// proportion correct with the fitted function, drawn with Qt Charts. Needs a QApplication (any
// platform, offscreen included).
namespace Report
{

// Writes every page into a PDF and, when pngFolder is not empty, each page
// also as page-001.png, page-002.png, ... into that folder. `unusable` is the
// number of results files left out of every table. `progress` is called after
// each group's page. False when a file could not be written.
bool write(const QString &pdfPath, const QString &pngFolder, const QVector<StudyGroup> &groups,
           const QVector<RunRow> &rows, int unusable,
           const std::function<void(int done)> &progress);

} // namespace Report
