// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "reportpage.h"

#include <QString>
#include <QVector>

#include <functional>

// The report's pages drawn with Qt Charts. Needs a QApplication (any
// platform, offscreen included).
namespace Report
{

// Writes every page into a PDF and, when pngFolder is not empty, each page
// also as page-001.png, page-002.png, ... into that folder. `progress` is
// called after each group's page. False when a file could not be written.
bool write(const QString &pdfPath, const QString &pngFolder, const QVector<ReportPage> &pages,
           const std::function<void(int done)> &progress);

} // namespace Report
