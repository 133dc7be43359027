// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QRect>
#include <QSize>

// Size and place of a window that covers the given fractions (each limited to
// 0..1) of the available screen size. Centred windows sit in the middle of the
// available size measured from the desktop origin; otherwise at the origin.
QRect windowGeometry(QSize available, bool centre, double widthFraction, double heightFraction);
