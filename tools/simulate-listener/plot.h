// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "figure.h"

#include <QString>
#include <QVector>

// The simulator's picture: its figures drawn on white, side by side.
// Needs a QApplication (any platform, offscreen included).
namespace Plot
{

// Writes the picture to path; false when the file cannot be written.
bool writePng(const QString &path, const QVector<Figure> &figures);

} // namespace Plot
