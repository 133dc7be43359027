// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "overview.h"
#include "reportpage.h"
#include "runrow.h"
#include "studygroup.h"

#include <QJsonObject>
#include <QString>
#include <QVector>

// The tab-separated tables and the description of their columns. Numbers are
// written with 8 significant digits, unavailable values as empty cells.
namespace Tables
{

QString runs(const QVector<RunRow> &rows);
QString summary(const QVector<StudyGroup> &groups, const QVector<RunRow> &rows);
// One row per trial of every run, in the rows' order and trial order.
QString trials(const QVector<RunRow> &rows);
// Every point of the report's figures, page by page, for drawing them again
// elsewhere.
QString figures(const QVector<ReportPage> &pages);

// What each column of the tables means and its unit, beside `about` (the
// software, the options and the seed the tables were made with) and what
// became of the runs: files read, runs included, files that could not be
// used, and the runs left out for each reason.
QJsonObject description(const QJsonObject &about, const Overview &o);

} // namespace Tables
