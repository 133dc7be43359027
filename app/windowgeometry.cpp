// SPDX-License-Identifier: GPL-3.0-or-later
#include "windowgeometry.h"

#include <QtGlobal>

QRect windowGeometry(QSize available, bool centre, double widthFraction, double heightFraction)
{
    widthFraction = qBound(0.0, widthFraction, 1.0);
    heightFraction = qBound(0.0, heightFraction, 1.0);
    const int w = static_cast<int>(available.width() * widthFraction);
    const int h = static_cast<int>(available.height() * heightFraction);
    if (!centre)
        return QRect(0, 0, w, h);
    return QRect((available.width() - w) / 2, (available.height() - h) / 2, w, h);
}
